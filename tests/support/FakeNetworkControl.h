// A transport that answers from a test's script instead of the network, for
// tests of authenticator logic that no real server can provoke (a transport
// failure of a given kind, a response code of 0) and for inspecting the
// request description exactly as the authenticator handed it over.
#ifndef VANTREL_TESTS_SUPPORT_FAKE_NETWORK_CONTROL_H_
#define VANTREL_TESTS_SUPPORT_FAKE_NETWORK_CONTROL_H_

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "HeaderNode.h"
#include "INetworkControl.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "SslVersion.h"

namespace Vantrel {
namespace Auth {
namespace testing {

// What a NetworkConfig held when Exec was called; null texts become "<null>".
struct SentRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;  // in sending order
  std::string post_data;
  std::string proxy;
  std::string ca_file;
  bool ssl_used = false;
  bool verify_cert = false;
  bool verify_host = false;
  bool verbose = false;
  SslVersion ssl_version = kSslVersionDefault;
};

class FakeNetworkControl : public INetworkControl {
 public:
  // Fills the result (after the reset a real transport does) and returns
  // what Exec returns. The default answers 200 with nothing else.
  using Script = std::function<AuthResult(NetworkResult* result)>;

  explicit FakeNetworkControl(Script script = nullptr) : script_(std::move(script)) {}

  AuthResult Exec(NetworkConfig* config, NetworkResult* result) override {
    sent_.push_back(Capture(*config));
    result->Reset();
    if (!script_) {
      result->SetResponseCode(200);
      return kAuthResultOk;
    }
    return script_(result);
  }
  char* Escape(const char* text) override {
    char* copy = new char[std::strlen(text) + 1];
    std::strcpy(copy, text);
    return copy;
  }
  void FreeEscaped(char* text) override { delete[] text; }

  const std::vector<SentRequest>& sent() const { return sent_; }

 private:
  static std::string Text(const char* text) { return text != nullptr ? text : "<null>"; }

  static SentRequest Capture(const NetworkConfig& config) {
    SentRequest request;
    request.url = Text(config.GetUrl());
    // The list is newest first, which is also the order a transport sends it.
    for (HeaderNode* node = config.GetHeaders(); node != nullptr; node = node->next) {
      request.headers.emplace_back(Text(node->header->name), Text(node->header->value));
    }
    request.post_data = Text(config.GetPostData());
    request.proxy = Text(config.GetProxy());
    request.ca_file = Text(config.GetCaFile());
    request.ssl_used = config.IsSslUsed();
    request.verify_cert = config.IsVerifyCert();
    request.verify_host = config.IsVerifyHost();
    request.verbose = config.IsVerbose();
    request.ssl_version = config.GetSslVersion();
    return request;
  }

  Script script_;
  std::vector<SentRequest> sent_;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_TESTS_SUPPORT_FAKE_NETWORK_CONTROL_H_
