#include "network/CurlWrap.h"

namespace Vantrel {
namespace Auth {

// A failed curl_easy_init is not reported here: Exec asks IsValid before it
// sends anything and reports it to the caller who can do something about it.
CurlWrap::CurlWrap() : handle_(curl_easy_init()) {}

CurlWrap::~CurlWrap() {
  if (handle_ != nullptr) curl_easy_cleanup(handle_);
}

void CurlWrap::Reset() {
  if (handle_ != nullptr) curl_easy_reset(handle_);
}

CURLcode CurlWrap::Perform() {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_perform(handle_);
}

CURLcode CurlWrap::SetOpt(CURLoption option, const char* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::SetOpt(CURLoption option, char* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::SetOpt(CURLoption option, curl_slist* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::SetOpt(CURLoption option, long value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::SetOpt(CURLoption option, void* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::SetOpt(CURLoption option, FILE* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_setopt(handle_, option, value);
}

CURLcode CurlWrap::GetInfo(CURLINFO info, curl_slist** value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_getinfo(handle_, info, value);
}

CURLcode CurlWrap::GetInfo(CURLINFO info, long* value) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_getinfo(handle_, info, value);
}

curl_slist* CurlWrap::SlistAppend(curl_slist* list, const char* text) {
  return curl_slist_append(list, text);
}

void CurlWrap::SlistFreeAll(curl_slist* list) { curl_slist_free_all(list); }

char* CurlWrap::Escape(const char* text, int length) {
  if (handle_ == nullptr) return nullptr;
  return curl_easy_escape(handle_, text, length);
}

void CurlWrap::Free(void* pointer) { curl_free(pointer); }

bool CurlWrap::IsValid() const { return handle_ != nullptr; }

}  // namespace Auth
}  // namespace Vantrel
