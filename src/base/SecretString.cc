#include "base/SecretString.h"

#include <openssl/crypto.h>

#include <cstring>

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// More than any small-string buffer holds, so the text is always allocated.
constexpr size_t kMinimumCapacity = 32;

}  // namespace

void WipeMemory(void* data, size_t size) {
  if (data != nullptr && size > 0) OPENSSL_cleanse(data, size);
}

void WipeString(std::string* text) {
  if (text == nullptr) return;
  // The whole capacity: a text that shrank leaves its old tail behind the end.
  WipeMemory(&(*text)[0], text->capacity());
  text->clear();
}

void WipeAndFree(char** holder) {
  if (*holder != nullptr) WipeMemory(*holder, std::strlen(*holder));
  StrFree(holder);
}

void WipeAndAssign(char** holder, const char* source) {
  // Copied before the old text goes, so that a source inside it still reads.
  char* copy = StrDup(source);
  WipeAndFree(holder);
  *holder = copy;
}

SecretString::SecretString() {}

SecretString::SecretString(std::string_view text) {
  KeepOnHeap();
  Assign(text);
}

SecretString::SecretString(const char* data, size_t size) {
  KeepOnHeap();
  if (data != nullptr) Assign(std::string_view(data, size));
}

SecretString::SecretString(const SecretString& other) {
  KeepOnHeap();
  Assign(other.view());
}

SecretString::SecretString(SecretString&& other) noexcept : text_(std::move(other.text_)) {
  // The moved-from object gets a fresh buffer of its own on its next use.
}

SecretString& SecretString::operator=(const SecretString& other) {
  if (this != &other) Assign(other.view());
  return *this;
}

SecretString& SecretString::operator=(SecretString&& other) noexcept {
  if (this != &other) {
    Clear();
    text_.swap(other.text_);
  }
  return *this;
}

// A text that is there lives on the heap, and the allocator wipes every
// buffer it takes back: wiping here as well would do it twice.
SecretString::~SecretString() = default;

void SecretString::Assign(std::string_view text) {
  Clear();
  KeepOnHeap();
  text_.append(text.data(), text.size());
}

void SecretString::Append(std::string_view text) {
  KeepOnHeap();
  text_.append(text.data(), text.size());
}

void SecretString::Append(char c) {
  KeepOnHeap();
  text_.push_back(c);
}

void SecretString::Clear() {
  // Every way to shorten the text passes through here, so an empty text
  // stands in a buffer that was wiped whole already. A text that is there
  // is wiped with the bytes behind its end, which a longer one may have left.
  if (text_.empty()) return;
  WipeMemory(&text_[0], text_.capacity());
  text_.clear();
}

void SecretString::KeepOnHeap() {
  if (text_.capacity() < kMinimumCapacity) text_.reserve(kMinimumCapacity);
}

}  // namespace Auth
}  // namespace Vantrel
