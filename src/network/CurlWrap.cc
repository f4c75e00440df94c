#include "network/CurlWrap.h"

namespace Vantrel {
namespace Auth {

// A failed curl_easy_init is not reported here: Exec asks IsValid before it
// sends anything and reports it to the caller who can do something about it.
CurlWrap::CurlWrap() : handle_(curl_easy_init()), multi_(curl_multi_init()) {}

// The easy handle is never left inside the multi handle, so either may go
// first; the multi handle closes the connections it keeps.
CurlWrap::~CurlWrap() {
  if (handle_ != nullptr) curl_easy_cleanup(handle_);
  if (multi_ != nullptr) curl_multi_cleanup(multi_);
}

void CurlWrap::Reset() {
  if (handle_ != nullptr) curl_easy_reset(handle_);
}

CURLcode CurlWrap::Perform() {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  return curl_easy_perform(handle_);
}

CURLcode CurlWrap::PerformWaking(long tick_ms) {
  if (handle_ == nullptr) return CURLE_FAILED_INIT;
  // Without a multi handle the transfer still runs, only with libcurl's
  // slower wake-ups.
  if (multi_ == nullptr || curl_multi_add_handle(multi_, handle_) != CURLM_OK) {
    return curl_easy_perform(handle_);
  }
  int running = 1;
  CURLMcode status = CURLM_OK;
  while (status == CURLM_OK && running > 0) {
    status = curl_multi_perform(multi_, &running);
    if (status == CURLM_OK && running > 0) {
      status = curl_multi_poll(multi_, nullptr, 0, static_cast<int>(tick_ms), nullptr);
    }
  }
  // As curl_easy_perform reports a failure of the multi machinery itself.
  CURLcode code = status == CURLM_OUT_OF_MEMORY ? CURLE_OUT_OF_MEMORY : CURLE_BAD_FUNCTION_ARGUMENT;
  int left = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg == CURLMSG_DONE && message->easy_handle == handle_) code = message->data.result;
  }
  curl_multi_remove_handle(multi_, handle_);
  return code;
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
