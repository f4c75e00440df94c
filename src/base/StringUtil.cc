#include "base/StringUtil.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace Vantrel {
namespace Auth {

const char* const kYes = "Y";
const char* const kNo = "N";
const char* const kEmpty = "";

void StrFree(char** holder) {
  if (*holder != nullptr) {
    delete[] *holder;
    *holder = nullptr;
  }
}

char* StrDup(const char* source) {
  if (source == nullptr) return nullptr;
  size_t size = std::strlen(source) + 1;
  char* copy = new char[size];
  std::memcpy(copy, source, size);
  return copy;
}

void StrAssign(char** holder, const char* source) {
  // The holder is emptied before the copy is made, so a failed allocation
  // leaves it null rather than dangling; the old text is released only after
  // the copy, so a source inside it is still readable.
  std::unique_ptr<char[]> old(*holder);
  *holder = nullptr;
  *holder = StrDup(source);
}

void CopyOut(char* buffer, size_t* size, const char* source) {
  if (size == nullptr) return;
  // A null buffer has no room, whatever *size claims: the call becomes a
  // query for the size needed.
  if (buffer == nullptr) *size = 0;
  if (source == nullptr) {
    if (*size > 0) buffer[0] = '\0';
    return;
  }
  size_t needed = std::strlen(source) + 1;
  if (needed <= *size) {
    std::memcpy(buffer, source, needed);
    return;
  }
  if (*size > 0) buffer[0] = '\0';
  *size = needed;
}

size_t DigitCount64(long long value) {
  size_t count = value < 0 ? 2 : 1;  // the sign, and the last digit
  // Divide before testing so that the most negative value never gets negated.
  while ((value /= 10) != 0) ++count;
  return count;
}

size_t DigitCount(int value) { return DigitCount64(value); }

char* IntToText(int value) {
  size_t size = DigitCount(value) + 1;
  char* text = new char[size];
  std::snprintf(text, size, "%ld", static_cast<long>(value));
  return text;
}

bool EqualsIgnoringCase(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != lower[i]) return false;
  }
  return true;
}

}  // namespace Auth
}  // namespace Vantrel
