// SecretString: text that must not outlive its use in memory: passwords,
// client secrets, keys, tokens, and request bodies that carry them.
//
// Every buffer it ever owned is wiped (OPENSSL_cleanse) before it goes back
// to the heap, also the ones given up when the text grows. The text always
// lives on the heap: a short one is never kept inside the object, where no
// allocator would see it go.
#ifndef VANTREL_AUTH_BASE_SECRET_STRING_H_
#define VANTREL_AUTH_BASE_SECRET_STRING_H_

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

// Overwrites `size` bytes at `data`; the compiler may not drop it.
void WipeMemory(void* data, size_t size);
// Overwrites a std::string's whole buffer and empties it.
void WipeString(std::string* text);

// Owned strings (see base/StringUtil.h) that hold a secret: the text is
// overwritten up to its terminator before it is released.
void WipeAndFree(char** holder);
// Like StrAssign, wiping the old text; `source` may point into *holder. If
// the copy can't be allocated, *holder keeps its old text.
void WipeAndAssign(char** holder, const char* source);

struct WipeAndFreeDeleter {
  void operator()(char* text) const { WipeAndFree(&text); }
};
// An owned string holding a secret, wiped and released on every way out.
using OwnedSecret = std::unique_ptr<char[], WipeAndFreeDeleter>;

// Wipes a std::string when the scope ends, also by an exception: for the
// copies that an interface hands out as std::string (a response body).
class ScopedWipe {
 public:
  explicit ScopedWipe(std::string* text) : text_(text) {}
  ~ScopedWipe() { WipeString(text_); }
  ScopedWipe(const ScopedWipe&) = delete;
  ScopedWipe& operator=(const ScopedWipe&) = delete;

 private:
  std::string* text_;
};

template <typename T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() noexcept = default;
  template <typename U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}
  T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* data, size_t count) noexcept {
    WipeMemory(data, count * sizeof(T));
    std::allocator<T>().deallocate(data, count);
  }
  template <typename U>
  bool operator==(const WipingAllocator<U>&) const noexcept { return true; }
  template <typename U>
  bool operator!=(const WipingAllocator<U>&) const noexcept { return false; }
};

class SecretString {
 public:
  SecretString();
  explicit SecretString(std::string_view text);
  SecretString(const char* data, size_t size);
  SecretString(const SecretString& other);
  SecretString(SecretString&& other) noexcept;
  SecretString& operator=(const SecretString& other);
  SecretString& operator=(SecretString&& other) noexcept;
  ~SecretString();

  // Wipes the old text first.
  void Assign(std::string_view text);
  void Append(std::string_view text);
  void Append(char c);
  // Wipes and empties.
  void Clear();

  const char* c_str() const { return text_.c_str(); }
  const char* data() const { return text_.data(); }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }
  std::string_view view() const { return std::string_view(text_.data(), text_.size()); }

  bool operator==(const SecretString& other) const { return view() == other.view(); }
  bool operator!=(const SecretString& other) const { return view() != other.view(); }

 private:
  using Text = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;
  void KeepOnHeap();

  Text text_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_BASE_SECRET_STRING_H_
