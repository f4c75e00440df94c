// NetworkResult: the outcome of one HTTP exchange.
//
// Everything a getter returns stays valid until the next Reset, which Exec
// does first thing.
#ifndef VANTREL_AUTH_NETWORK_RESULT_H_
#define VANTREL_AUTH_NETWORK_RESULT_H_

#include <cstddef>
#include <string>

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Cookie.h"
#include "VantrelAuthEngine64/CookieNode.h"
#include "VantrelAuthEngine64/HeaderNode.h"

namespace Vantrel {
namespace Auth {

class ErrorDetail;

class VANTREL_AUTH_EXPORT NetworkResult {
 public:
  NetworkResult();
  virtual ~NetworkResult();

  NetworkResult(const NetworkResult&) = delete;
  NetworkResult& operator=(const NetworkResult&) = delete;

  // Empties body, headers, cookies and failure text; response code 0.
  void Reset();

  void SetResponseCode(int code);
  int GetResponseCode() const;  // 0 when no response was read

  // Response headers, newest first.
  void AddHeader(const char* name, const char* value);
  // Value of the header received last under exactly this (case-sensitive)
  // name, skipping empty values if a non-empty one follows; null if none.
  const char* GetHeader(const char* name) const;
  HeaderNode* GetHeaders() const;
  void ClearHeaders();

  // Cookies of this response alone, in the reverse of libcurl's order.
  void AddCookie(const Cookie* cookie);
  CookieNode* GetCookies() const;
  void ClearCookies();

  void AppendBody(const char* data, size_t length);
  std::string GetBody() const;  // a copy, binary-safe
  void ClearBody();

  // The transport's failure text, cut to 256 bytes; never null.
  void SetErrorMsg(const char* text);
  const char* GetErrorMsg() const;

  // Writes the response to the log at debug level.
  static void LogDump(const NetworkResult* result);

 private:
  HeaderNode* headers_;
  int response_code_;
  CookieNode* cookies_;
  ErrorDetail* error_detail_;
  std::string body_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_RESULT_H_
