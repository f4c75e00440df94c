// A transport that records each request description, then answers from a
// script, or sends through libcurl (whose requests don't show the SSL version
// asked for: this libcurl refuses SSL 3 and uses its default).
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "VantrelAuthEngine.h"
#include "network/NetworkControlLibcurl.h"

namespace Vantrel::Auth::testing {

// What a NetworkConfig held when Exec was called; null texts become "<null>".
struct SentRequest {
  std::string url, proxy, ca_file;
  bool ssl_used, verify_cert, verify_host, verbose;
  SslVersion ssl_version;
};

class FakeNetworkControl : public INetworkControl {
 public:
  // Fills the reset result and returns what Exec returns; default: a bare 200.
  using Script = std::function<AuthResult(NetworkResult* result)>;
  enum Forward { kThroughLibcurl };

  explicit FakeNetworkControl(Script script = nullptr) : script_(std::move(script)) {}
  explicit FakeNetworkControl(Forward) : forward_(true) {}

  AuthResult Exec(NetworkConfig* config, NetworkResult* result) override {
    auto text = [](const char* value) { return std::string(value != nullptr ? value : "<null>"); };
    sent_.push_back({text(config->GetUrl()), text(config->GetProxy()), text(config->GetCaFile()), config->IsSslUsed(),
                     config->IsVerifyCert(), config->IsVerifyHost(), config->IsVerbose(), config->GetSslVersion()});
    if (forward_) return real_.Exec(config, result);
    result->Reset();
    if (script_) return script_(result);
    result->SetResponseCode(200);
    return kAuthResultOk;
  }
  char* Escape(const char* text) override {
    return forward_ ? real_.Escape(text) : std::strcpy(new char[std::strlen(text) + 1], text);
  }
  void FreeEscaped(char* text) override {
    if (forward_) real_.FreeEscaped(text);
    else delete[] text;
  }

  const std::vector<SentRequest>& sent() const { return sent_; }

 private:
  Script script_;
  bool forward_ = false;
  NetworkControlLibcurl real_;
  std::vector<SentRequest> sent_;
};

}  // namespace Vantrel::Auth::testing
