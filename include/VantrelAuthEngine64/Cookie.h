// Cookie: what libcurl knows about one cookie.
//
// Getters return the stored pointer (null included), valid until the field is
// set again or the cookie is reset or destroyed. A cookie handed out by an
// authenticator changes at its next attempt: keep one with Cookie::Copy.
#ifndef VANTREL_AUTH_COOKIE_H_
#define VANTREL_AUTH_COOKIE_H_

#include <cstdint>

#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT Cookie {
 public:
  Cookie();
  virtual ~Cookie();

  // Not copyable by value; use Cookie::Copy.
  Cookie(const Cookie&) = delete;
  Cookie& operator=(const Cookie&) = delete;

  // Back to the state of a new cookie: null texts, false flags, expiry 0.
  void Reset();

  // Text setters copy their argument; null clears the field.
  void SetName(const char* name);
  const char* GetName() const;
  void SetValue(const char* value);
  const char* GetValue() const;
  void SetDomain(const char* domain);  // without any "#HttpOnly_" prefix
  const char* GetDomain() const;
  void SetPath(const char* path);
  const char* GetPath() const;

  void EnableTailMatch(bool enable);  // the domain covers its subdomains
  bool IsTailMatchEnabled() const;
  void EnableSecure(bool enable);  // sent over secure connections only
  bool IsSecureEnabled() const;
  void EnableHttpOnly(bool enable);  // closed to scripts
  bool IsHttpOnlyEnabled() const;

  // Seconds since 1970, held in 32 bits; 0 means no expiry.
  void SetExpires(long expires);
  long GetExpires() const;

  // Makes `destination` an independent copy of `source`. Null on either side
  // does nothing. Copying a cookie onto itself is not supported.
  static void Copy(Cookie* destination, const Cookie* source);
  // Writes the cookie to the log at debug level.
  static void LogDump(const Cookie* cookie);

 private:
  char* name_;
  char* value_;
  char* domain_;
  char* path_;
  bool tail_match_;
  bool secure_;
  bool http_only_;
  int32_t expires_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_COOKIE_H_
