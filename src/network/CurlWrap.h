// CurlWrap: one libcurl easy handle behind typed operations.
//
// Internal. Replaces libcurl's variadic calls by one virtual operation per kind
// of value and forwards unchanged; without a handle the handle-bound calls
// return CURLE_FAILED_INIT (or null / nothing).
#ifndef VANTREL_AUTH_NETWORK_CURL_WRAP_H_
#define VANTREL_AUTH_NETWORK_CURL_WRAP_H_

#include <cstdio>

#include <curl/curl.h>

namespace Vantrel {
namespace Auth {

class CurlWrap {
 public:
  CurlWrap();
  virtual ~CurlWrap();

  CurlWrap(const CurlWrap&) = delete;
  CurlWrap& operator=(const CurlWrap&) = delete;

  virtual void Reset();
  virtual CURLcode Perform();
  virtual CURLcode SetOpt(CURLoption option, const char* value);
  virtual CURLcode SetOpt(CURLoption option, char* value);
  virtual CURLcode SetOpt(CURLoption option, curl_slist* value);
  virtual CURLcode SetOpt(CURLoption option, long value);
  virtual CURLcode SetOpt(CURLoption option, void* value);
  virtual CURLcode SetOpt(CURLoption option, FILE* value);
  virtual CURLcode GetInfo(CURLINFO info, curl_slist** value);
  virtual CURLcode GetInfo(CURLINFO info, long* value);
  virtual curl_slist* SlistAppend(curl_slist* list, const char* text);
  virtual void SlistFreeAll(curl_slist* list);
  virtual char* Escape(const char* text, int length);
  virtual void Free(void* pointer);
  virtual bool IsValid() const;

 private:
  CURL* handle_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_CURL_WRAP_H_
