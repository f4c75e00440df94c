// ErrorDetail: the text of the last failure, in a buffer of fixed capacity.
//
// Setting a text never grows the buffer: a text that doesn't fit is cut and
// ends in "...". Internal; hosts read it through AuthBase::GetLastErrorDetail.
#ifndef VANTREL_AUTH_BASE_ERROR_DETAIL_H_
#define VANTREL_AUTH_BASE_ERROR_DETAIL_H_

#include <cstddef>

namespace Vantrel {
namespace Auth {

class ErrorDetail {
 public:
  // `capacity` counts the terminator and is raised to 4 if smaller.
  explicit ErrorDetail(size_t capacity);
  virtual ~ErrorDetail();

  ErrorDetail(const ErrorDetail&) = delete;
  ErrorDetail& operator=(const ErrorDetail&) = delete;

  void Clear();
  // Never null; valid for the object's life.
  const char* Get() const;
  size_t Capacity() const { return capacity_; }

  // A null argument reads as an empty text.
  void Set(const char* text);
  void Set(const char* prefix, const char* text);
  void Set(const char* prefix, int number);

 private:
  void Store(const char* text, size_t needed);
  void MarkTruncated();

  static const char* const truncation_marker_;

  size_t capacity_;
  char* buffer_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_BASE_ERROR_DETAIL_H_
