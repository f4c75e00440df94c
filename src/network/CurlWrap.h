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
  // Perform, but through a multi handle that wakes at least every `tick_ms`
  // while the transfer waits, and runs the progress callback at each wake:
  // curl_easy_perform sleeps up to a second between its calls. Connections
  // stay in the multi handle between transfers and are reused as before.
  virtual CURLcode PerformWaking(long tick_ms);
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
  CURLM* multi_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_CURL_WRAP_H_
