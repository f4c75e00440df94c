// A transport that answers every request from fuzzer bytes: a result code, a
// status, header lines, cookies and a body per exchange.
#ifndef VANTREL_FUZZ_FUZZ_NETWORK_H_
#define VANTREL_FUZZ_FUZZ_NETWORK_H_

#include <cstring>
#include <string>

#include "AuthEngineConfig.h"
#include "Cookie.h"
#include "FuzzInput.h"
#include "INetworkControl.h"
#include "UrlUtil.h"

class FuzzNetwork : public Vantrel::Auth::INetworkControl {
 public:
  explicit FuzzNetwork(FuzzInput* input) : input_(input) {
    // Every log line formatted, as a host at debug level has them: the
    // dumps of requests and responses then see the fuzzed texts too.
    static const bool logging = [] {
      Vantrel::Auth::AuthEngineConfig::SetLoggerCallback(&Discard);
      Vantrel::Auth::AuthEngineConfig::SetLogLevel(Vantrel::Auth::kLogLevelDebug);
      return true;
    }();
    (void)logging;
  }

  Vantrel::Auth::AuthResult Exec(Vantrel::Auth::NetworkConfig* config,
                                 Vantrel::Auth::NetworkResult* result) override {
    using namespace Vantrel::Auth;
    if (result == nullptr) return kAuthResultInternalError;
    result->Reset();
    // Read the request the way the real transport would, so that a dangling
    // pointer in the description shows up under the sanitizers.
    if (config != nullptr) {
      Touch(config->GetUrl());
      Touch(config->GetPostData());
      for (HeaderNode* node = config->GetHeaders(); node != nullptr; node = node->next) {
        Touch(node->header->name);
        Touch(node->header->value);
      }
    }
    uint8_t mode = input_->Byte();
    if (mode % 8 == 0) {
      result->SetErrorMsg(input_->Piece().c_str());
      return kAuthResultSendFailed;
    }
    int status = static_cast<int>(input_->Byte()) * 4 + input_->Byte() % 4;
    result->SetResponseCode(status);
    int headers = input_->Byte() % 8;
    for (int i = 0; i < headers; ++i) {
      std::string name = input_->Piece();
      std::string value = input_->Piece();
      result->AddHeader(name.c_str(), value.c_str());
    }
    int cookies = input_->Byte() % 4;
    for (int i = 0; i < cookies; ++i) {
      Cookie cookie;
      std::string name = input_->Piece();
      std::string value = input_->Piece();
      cookie.SetName(name.c_str());
      cookie.SetValue(value.c_str());
      result->AddCookie(&cookie);
    }
    std::string body = input_->Piece();
    result->AppendBody(body.data(), body.size());
    return kAuthResultOk;
  }

  char* Escape(const char* text) override {
    if (text == nullptr || input_->Byte() == 0x42) return nullptr;
    std::string encoded = Vantrel::Auth::PercentEncode(text);
    char* copy = new char[encoded.size() + 1];
    std::memcpy(copy, encoded.c_str(), encoded.size() + 1);
    return copy;
  }

  void FreeEscaped(char* text) override { delete[] text; }

 private:
  static void Discard(Vantrel::Auth::VantrelAuthLogLevel, const char* text) { Touch(text); }

  static void Touch(const char* text) {
    if (text != nullptr) sink_ += std::strlen(text);
  }

  static inline size_t sink_ = 0;
  FuzzInput* input_;
};

#endif  // VANTREL_FUZZ_FUZZ_NETWORK_H_
