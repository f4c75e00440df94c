// The requests of one sign-in, made again with nothing but libcurl on one
// reused easy handle: the floor that the library's cost is measured against.
//
// The requests are those the emulator recorded while the library signed in,
// so URL, header lines and body are the library's own, byte for byte, and the
// emulator gives the same answers. The client keeps body and header bytes as
// any host would, and sets no more options per request than it must.
#ifndef VANTREL_BENCH_BARE_CURL_CLIENT_H_
#define VANTREL_BENCH_BARE_CURL_CLIENT_H_

#include <curl/curl.h>

#include <string>
#include <vector>

#include "emulator/Request.h"

namespace Vantrel {
namespace Bench {

class BareCurlClient {
 public:
  // `proxy` and `ca_file` may be empty.
  BareCurlClient(const std::string& proxy, const std::string& ca_file);
  ~BareCurlClient();

  BareCurlClient(const BareCurlClient&) = delete;
  BareCurlClient& operator=(const BareCurlClient&) = delete;

  // Takes the requests to make, oldest first, as the emulator recorded them.
  void Load(const std::vector<Emulation::Request>& recorded);

  // Makes every loaded request once, in order; false if one failed.
  bool Run();

  size_t request_count() const { return calls_.size(); }

 private:
  struct Call {
    std::string url;
    bool post = false;
    std::string body;
    curl_slist* headers = nullptr;
  };

  static size_t Collect(char* data, size_t size, size_t count, void* target);
  void FreeCalls();

  CURL* handle_;
  std::vector<Call> calls_;
  std::string received_body_;
  std::string received_headers_;
};

}  // namespace Bench
}  // namespace Vantrel

#endif  // VANTREL_BENCH_BARE_CURL_CLIENT_H_
