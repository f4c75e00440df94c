#include "BareCurlClient.h"

#include <strings.h>

namespace Vantrel {
namespace Bench {
namespace {

// The URL the client asked for: an absolute-form target as it stands, the
// tunnelled host for a request through CONNECT, else the emulator itself.
std::string UrlOf(const Emulation::Request& request) {
  if (request.target.rfind("http://", 0) == 0) return request.target;
  std::string scheme = request.tls ? "https://" : "http://";
  if (request.proxied_host.empty()) {
    return scheme + "127.0.0.1:" + std::to_string(request.local_port) + request.target;
  }
  std::string port = request.proxied_port == 443 ? "" : ":" + std::to_string(request.proxied_port);
  return scheme + request.proxied_host + port + request.target;
}

// libcurl writes these two itself.
bool WrittenByCurl(const std::string& line) {
  return strncasecmp(line.c_str(), "Host:", 5) == 0 ||
         strncasecmp(line.c_str(), "Content-Length:", 15) == 0;
}

}  // namespace

BareCurlClient::BareCurlClient(const std::string& proxy, const std::string& ca_file)
    : handle_(curl_easy_init()) {
  curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &BareCurlClient::Collect);
  curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &received_body_);
  curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &BareCurlClient::Collect);
  curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &received_headers_);
  if (!proxy.empty()) curl_easy_setopt(handle_, CURLOPT_PROXY, proxy.c_str());
  if (!ca_file.empty()) curl_easy_setopt(handle_, CURLOPT_CAINFO, ca_file.c_str());
}

BareCurlClient::~BareCurlClient() {
  FreeCalls();
  curl_easy_cleanup(handle_);
}

void BareCurlClient::Load(const std::vector<Emulation::Request>& recorded) {
  FreeCalls();
  for (const Emulation::Request& request : recorded) {
    Call call;
    call.url = UrlOf(request);
    call.post = request.method == "POST";
    call.body = request.body;
    for (const std::string& line : request.header_lines) {
      if (!WrittenByCurl(line)) call.headers = curl_slist_append(call.headers, line.c_str());
    }
    calls_.push_back(std::move(call));
  }
}

bool BareCurlClient::Run() {
  for (const Call& call : calls_) {
    received_body_.clear();
    received_headers_.clear();
    curl_easy_setopt(handle_, CURLOPT_URL, call.url.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, call.headers);
    if (call.post) {
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(call.body.size()));
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, call.body.c_str());
    } else {
      curl_easy_setopt(handle_, CURLOPT_HTTPGET, 1L);
    }
    if (curl_easy_perform(handle_) != CURLE_OK) return false;
  }
  return true;
}

size_t BareCurlClient::Collect(char* data, size_t size, size_t count, void* target) {
  static_cast<std::string*>(target)->append(data, size * count);
  return size * count;
}

void BareCurlClient::FreeCalls() {
  for (Call& call : calls_) curl_slist_free_all(call.headers);
  calls_.clear();
}

}  // namespace Bench
}  // namespace Vantrel
