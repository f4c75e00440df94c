// Every sign-in, on a transport that answers from fuzzer bytes (result, status,
// headers, cookies, body). The first byte picks forms, ADFS, a site that trusts
// ADFS, the Office 365 token service, or SharePoint Online.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "VantrelAuthEngine.h"
#include "text/UrlUtil.h"

using namespace Vantrel::Auth;

namespace {

// Splits the fuzzer's bytes into the pieces the transport hands out.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(reinterpret_cast<const char*>(data)), size_(size) {}
  bool empty() const { return position_ >= size_; }
  uint8_t Byte() { return empty() ? 0 : static_cast<uint8_t>(data_[position_++]); }
  // Bytes up to the next separator byte 0xFF (or the end); may hold NUL bytes.
  std::string Piece() {
    std::string piece;
    while (!empty() && static_cast<uint8_t>(data_[position_]) != 0xFF) piece.push_back(data_[position_++]);
    position_ += empty() ? 0 : 1;
    return piece;
  }
 private:
  const char* data_;
  size_t size_;
  size_t position_ = 0;
};

size_t sink = 0;
void Touch(const char* text) { sink += text != nullptr ? std::strlen(text) : 0; }
void Discard(VantrelAuthLogLevel, const char* text) { Touch(text); }

class FuzzNetwork : public INetworkControl {
 public:
  explicit FuzzNetwork(FuzzInput* input) : input_(input) {
    // Debug level, so that the dumps format the fuzzed texts too.
    static const bool logging =
        (AuthEngineConfig::SetLoggerCallback(&Discard), AuthEngineConfig::SetLogLevel(kLogLevelDebug), true);
    (void)logging;
  }

  AuthResult Exec(NetworkConfig* config, NetworkResult* result) override {
    if (result == nullptr) return kAuthResultInternalError;
    result->Reset();
    // Read the request as libcurl would: a dangling pointer shows under the sanitizers.
    if (config != nullptr) {
      Touch(config->GetUrl());
      Touch(config->GetPostData());
      for (HeaderNode* node = config->GetHeaders(); node != nullptr; node = node->next) {
        Touch(node->header->name);
        Touch(node->header->value);
      }
    }
    if (input_->Byte() % 8 == 0) {
      result->SetErrorMsg(input_->Piece().c_str());
      return kAuthResultSendFailed;
    }
    result->SetResponseCode(static_cast<int>(input_->Byte()) * 4 + input_->Byte() % 4);
    for (int i = input_->Byte() % 8; i > 0; --i) {
      std::string name = input_->Piece();
      result->AddHeader(name.c_str(), input_->Piece().c_str());
    }
    for (int i = input_->Byte() % 4; i > 0; --i) {
      Cookie cookie;
      cookie.SetName(input_->Piece().c_str());
      cookie.SetValue(input_->Piece().c_str());
      result->AddCookie(&cookie);
    }
    std::string body = input_->Piece();
    result->AppendBody(body.data(), body.size());
    return kAuthResultOk;
  }

  char* Escape(const char* text) override {
    if (text == nullptr || input_->Byte() == 0x42) return nullptr;
    std::string encoded = PercentEncode(text);
    return std::strcpy(new char[encoded.size() + 1], encoded.c_str());
  }
  void FreeEscaped(char* text) override { delete[] text; }

 private:
  FuzzInput* input_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const uint8_t choice = input.Byte() % 5;
  const std::string first = input.Piece();
  FuzzNetwork network(&input);
  ICredential* user = CredentialFactory::CreateBasicUsernameCredential("user", "p<&>ss");
  char buffer[64];
  size_t length = sizeof(buffer);
  if (choice == 0) {
    SharePointFba fba(&network);
    for (int attempt = 0; attempt < 2 && !input.empty(); ++attempt) fba.Authenticate(first.c_str(), "user", "p<&>ss");
  } else if (choice == 1) {
    Adfs adfs(&network);
    adfs.AuthenticateByUser(first.c_str(), "urn:sharepoint:portal", "user", "secret");
    adfs.GetRstr(buffer, &length);
    adfs.Authenticate(first.c_str(), "urn:sharepoint:portal", user);
  } else if (choice == 2) {
    SharePointAdfs trust(&network);
    trust.AuthenticateByRstr(first.c_str(), input.Piece().c_str());
  } else if (choice == 3) {
    Office365 office(&network);
    office.Authenticate(first.c_str(), user);
    office.GetBinarySecurityToken(buffer, &length);
  } else {
    const std::string email = input.Piece(), rstr = input.Piece();
    SharePointOffice365 online(&network);
    SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
    std::string auth_url;
    online.GetAuthTarget(email, kind, auth_url);
    // Whatever the factory makes of the text; a credential of another class
    // (an assertion) or none at all must be refused, not misused.
    ICredential* credential = CredentialFactory::CreateCredentialFromRstr(
        rstr.empty() ? "<wsse:BinarySecurityToken Id=\"Compact0\">t=fuzz&amp;p=</wsse:BinarySecurityToken>" : rstr);
    online.Authenticate(first.c_str(), credential);
    delete credential;
  }
  delete user;
  return 0;
}
