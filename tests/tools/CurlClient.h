// CurlClient: one libcurl easy handle, kept across transfers so that
// connections are reused, for talking to the emulator in tests.
#ifndef VANTREL_TESTS_TOOLS_CURL_CLIENT_H_
#define VANTREL_TESTS_TOOLS_CURL_CLIENT_H_

#include <curl/curl.h>

#include <string>
#include <vector>

namespace Vantrel {
namespace Emulation {

struct CurlReply {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string headers, body;  // headers: every block received, raw
  double seconds = 0;
  long new_connections = 0;
};

class CurlClient {
 public:
  CurlClient() : handle_(curl_easy_init()) {}
  ~CurlClient() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(handle_);
  }
  CurlClient(const CurlClient&) = delete;
  CurlClient& operator=(const CurlClient&) = delete;

  CURL* handle() const { return handle_; }

  // Extra request headers for the following transfers.
  void SetHeaders(const std::vector<std::string>& lines) {
    curl_slist_free_all(headers_);
    headers_ = nullptr;
    for (const std::string& line : lines) headers_ = curl_slist_append(headers_, line.c_str());
  }

  void TrustOnly(const std::string& ca_file) {
    curl_easy_setopt(handle_, CURLOPT_CAINFO, ca_file.c_str());
    curl_easy_setopt(handle_, CURLOPT_CAPATH, nullptr);
  }

  void UseProxy(const std::string& proxy_url) {
    curl_easy_setopt(handle_, CURLOPT_PROXY, proxy_url.c_str());
  }

  // A POST when `post_body` is set, else a GET. Options set on handle()
  // beforehand stay in force.
  CurlReply Perform(const std::string& url, const std::string* post_body = nullptr) {
    CurlReply reply;
    curl_easy_setopt(handle_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(handle_, CURLOPT_HTTPGET, 1L);
    if (post_body != nullptr) {
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(post_body->size()));
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, post_body->data());
    }
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &Append);
    curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &reply.headers);
    reply.code = curl_easy_perform(handle_);
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_easy_getinfo(handle_, CURLINFO_TOTAL_TIME, &reply.seconds);
    curl_easy_getinfo(handle_, CURLINFO_NUM_CONNECTS, &reply.new_connections);
    return reply;
  }

 private:
  static size_t Append(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
  }

  CURL* handle_;
  curl_slist* headers_ = nullptr;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_TESTS_TOOLS_CURL_CLIENT_H_
