// A transport that answers from a test's script, for what no real server can
// provoke, and that records each request description as handed over.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "INetworkControl.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "SslVersion.h"

namespace Vantrel {
namespace Auth {
namespace testing {

// What a NetworkConfig held when Exec was called; null texts become "<null>".
struct SentRequest {
  std::string url, post_data, proxy, ca_file;
  bool ssl_used, verify_cert, verify_host, verbose;
  SslVersion ssl_version;
};

class FakeNetworkControl : public INetworkControl {
 public:
  // Fills the reset result and returns what Exec returns; default: a bare 200.
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
    return std::strcpy(new char[std::strlen(text) + 1], text);
  }
  void FreeEscaped(char* text) override { delete[] text; }

  const std::vector<SentRequest>& sent() const { return sent_; }

 private:
  static std::string Text(const char* text) { return text != nullptr ? text : "<null>"; }

  static SentRequest Capture(const NetworkConfig& config) {
    return {Text(config.GetUrl()), Text(config.GetPostData()), Text(config.GetProxy()), Text(config.GetCaFile()),
            config.IsSslUsed(), config.IsVerifyCert(), config.IsVerifyHost(), config.IsVerbose(),
            config.GetSslVersion()};
  }

  Script script_;
  std::vector<SentRequest> sent_;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel
