#include "ErrorDetail.h"

#include <cstdio>
#include <cstring>

#include "StringUtil.h"

namespace Vantrel {
namespace Auth {

const char* const ErrorDetail::truncation_marker_ = "...";

ErrorDetail::ErrorDetail(size_t capacity) : capacity_(capacity), buffer_(nullptr) {
  size_t minimum = std::strlen(truncation_marker_) + 1;
  if (capacity_ < minimum) capacity_ = minimum;
  buffer_ = new char[capacity_];
  buffer_[0] = '\0';
}

ErrorDetail::~ErrorDetail() { delete[] buffer_; }

void ErrorDetail::Clear() { buffer_[0] = '\0'; }

const char* ErrorDetail::Get() const { return buffer_; }

void ErrorDetail::Set(const char* text) { Store(text, std::strlen(text) + 1); }

void ErrorDetail::Set(const char* prefix, const char* text) {
  size_t needed = std::strlen(prefix) + std::strlen(text) + 1;
  char* joined = new char[needed];
  std::snprintf(joined, needed, "%s%s", prefix, text);
  Store(joined, needed);
  delete[] joined;
}

void ErrorDetail::Set(const char* prefix, int number) {
  size_t needed = std::strlen(prefix) + DigitCount(number) + 1;
  char* joined = new char[needed];
  std::snprintf(joined, needed, "%s%ld", prefix, static_cast<long>(number));
  Store(joined, needed);
  delete[] joined;
}

void ErrorDetail::Store(const char* text, size_t needed) {
  size_t count = needed < capacity_ ? needed : capacity_;
  std::memcpy(buffer_, text, count);
  if (needed > capacity_) MarkTruncated();
}

void ErrorDetail::MarkTruncated() {
  size_t marker_size = std::strlen(truncation_marker_) + 1;
  std::memcpy(buffer_ + capacity_ - marker_size, truncation_marker_, marker_size);
}

}  // namespace Auth
}  // namespace Vantrel
