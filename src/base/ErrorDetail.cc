#include "base/ErrorDetail.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// The callers pass literals or another detail's text; a null slipping through
// reads as nothing rather than taking the process down.
const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

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

void ErrorDetail::Set(const char* text) {
  text = OrEmpty(text);
  Store(text, std::strlen(text) + 1);
}

void ErrorDetail::Set(const char* prefix, const char* text) {
  prefix = OrEmpty(prefix);
  text = OrEmpty(text);
  size_t needed = std::strlen(prefix) + std::strlen(text) + 1;
  std::unique_ptr<char[]> joined(new char[needed]);
  std::snprintf(joined.get(), needed, "%s%s", prefix, text);
  Store(joined.get(), needed);
}

void ErrorDetail::Set(const char* prefix, int number) {
  prefix = OrEmpty(prefix);
  size_t needed = std::strlen(prefix) + DigitCount(number) + 1;
  std::unique_ptr<char[]> joined(new char[needed]);
  std::snprintf(joined.get(), needed, "%s%ld", prefix, static_cast<long>(number));
  Store(joined.get(), needed);
}

void ErrorDetail::Store(const char* text, size_t needed) {
  size_t count = needed < capacity_ ? needed : capacity_;
  // memmove: Set(Get()) hands the buffer its own text.
  std::memmove(buffer_, text, count);
  if (needed > capacity_) MarkTruncated();
}

void ErrorDetail::MarkTruncated() {
  size_t marker_size = std::strlen(truncation_marker_) + 1;
  std::memcpy(buffer_ + capacity_ - marker_size, truncation_marker_, marker_size);
}

}  // namespace Auth
}  // namespace Vantrel
