// Owned strings and the buffer protocol.
//
// An owned string is a NUL-terminated char array allocated with new[] and held
// by exactly one char*. Null is its unset state and differs from "".
#ifndef VANTREL_AUTH_BASE_STRING_UTIL_H_
#define VANTREL_AUTH_BASE_STRING_UTIL_H_

#include <cstddef>
#include <memory>
#include <string_view>

namespace Vantrel {
namespace Auth {

// Texts for true, false and a missing value in log lines; never freed.
extern const char* const kYes;    // "Y"
extern const char* const kNo;     // "N"
extern const char* const kEmpty;  // ""

inline const char* YesNo(bool value) { return value ? kYes : kNo; }

// Releases *holder if set and nulls it. Harmless on a null *holder.
void StrFree(char** holder);
// Replaces *holder by a copy of `source` (null stays null). `source` may
// point into *holder: the old text is released only after it was copied. If
// the copy can't be allocated, *holder is left null and the allocator's
// exception passes on.
void StrAssign(char** holder, const char* source);
// Makes a new owned copy of `source`, or null for null.
char* StrDup(const char* source);

// Lets a std::unique_ptr hold an owned string, so that a local one is
// released on every way out, also when a log callback or an allocation
// throws in the middle of an operation.
struct StrFreeDeleter {
  void operator()(char* text) const { StrFree(&text); }
};
using OwnedString = std::unique_ptr<char[], StrFreeDeleter>;

// A held copy of `source`, or an empty holder for null.
inline OwnedString OwnedCopy(const char* source) { return OwnedString(StrDup(source)); }

// The one way a text leaves the library for a caller's buffer. *size is the
// buffer's size, terminator included. The whole text is delivered or none:
//   source null:  *size 0 -> untouched; otherwise buffer = "" and *size kept.
//   fits:         text copied, *size kept.
//   doesn't fit:  buffer = "" if *size > 0, and *size = length + 1.
// A null buffer counts as no room, so a caller may ask for the size first with
// (nullptr, &size = 0). A null `size` does nothing.
void CopyOut(char* buffer, size_t* size, const char* source);

// Whether `text` equals `lower` (given in lower case) without regard to the
// case of ASCII letters: header names, schemes, tenant words.
bool EqualsIgnoringCase(std::string_view text, std::string_view lower);

// Decimal text of `value` as a new owned string.
char* IntToText(int value);
// Number of characters of the decimal text, minus sign included.
size_t DigitCount(int value);
size_t DigitCount64(long long value);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_BASE_STRING_UTIL_H_
