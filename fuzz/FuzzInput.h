// Splits a fuzzer's byte string into the pieces a target needs.
#ifndef VANTREL_FUZZ_FUZZ_INPUT_H_
#define VANTREL_FUZZ_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size)
      : data_(reinterpret_cast<const char*>(data)), size_(size) {}

  bool empty() const { return position_ >= size_; }

  uint8_t Byte() { return empty() ? 0 : static_cast<uint8_t>(data_[position_++]); }

  // Bytes up to the next separator byte 0xFF (or the end); may hold NUL bytes.
  std::string Piece() {
    std::string piece;
    while (!empty()) {
      char c = data_[position_++];
      if (static_cast<uint8_t>(c) == 0xFF) break;
      piece.push_back(c);
    }
    return piece;
  }

  // Everything that is left.
  std::string Rest() {
    std::string rest(data_ + (empty() ? size_ : position_), empty() ? 0 : size_ - position_);
    position_ = size_;
    return rest;
  }

 private:
  const char* data_;
  size_t size_;
  size_t position_ = 0;
};

#endif  // VANTREL_FUZZ_FUZZ_INPUT_H_
