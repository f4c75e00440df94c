// The sign-in service and sites under their real host names, reached through
// the emulator's proxy, and a transport that records each request's SSL version.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "ICredential.h"
#include "NetworkControlLibcurl.h"
#include "emulator/AdfsServer.h"
#include "emulator/Office365Service.h"
#include "emulator/OnlineSite.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"

namespace Vantrel {
namespace Auth {
namespace testing {

constexpr char kSiteHost[] = "contoso.sharepoint.com";
constexpr char kRealm[] = "https://contoso.sharepoint.com";
constexpr char kSite[] = "https://contoso.sharepoint.com/sites/team";
constexpr char kManagedUser[] = "adele@contoso.com";
constexpr char kManagedPassword[] = "Spring-2024";

// The SSL version can't be seen on the wire: this libcurl refuses SSL 3.
class RecordingTransport : public INetworkControl {
 public:
  struct Sent {
    std::string url;
    SslVersion ssl_version;
  };

  AuthResult Exec(NetworkConfig* config, NetworkResult* result) override {
    sent_.push_back({config->GetUrl() != nullptr ? config->GetUrl() : "", config->GetSslVersion()});
    return real_.Exec(config, result);
  }
  char* Escape(const char* text) override { return real_.Escape(text); }
  void FreeEscaped(char* text) override { real_.FreeEscaped(text); }

  const std::vector<Sent>& sent() const { return sent_; }

 private:
  NetworkControlLibcurl real_;
  std::vector<Sent> sent_;
};

struct DeleteCredential {
  void operator()(ICredential* credential) const { delete credential; }
};
using CredentialPtr = std::unique_ptr<ICredential, DeleteCredential>;

class OnlineTest : public EmulatorTest {
 protected:
  void SetUp() override {
    EmulatorTest::SetUp();
    AuthEngineConfig::SetProxy(emulator_.ProxyUrl().c_str());
  }

  void TearDown() override {
    AuthEngineConfig::SetProxy(nullptr);
    EmulatorTest::TearDown();
  }

  void InstallService(Emulation::Office365ServiceOptions options = {}) {
    service_ = Emulation::InstallOffice365Service(&emulator_, options);
  }
  void InstallSite(Emulation::OnlineSiteOptions options = {}) {
    site_ = Emulation::InstallOnlineSite(&emulator_, options, service_);
  }

  void Trust(AuthBase* authenticator) const { authenticator->SetCaFile(emulator_.CaFile().c_str()); }

  std::vector<std::string> RequestLines() const {
    std::vector<std::string> lines;
    for (const Emulation::Request& request : emulator_.Requests()) {
      lines.push_back(request.method + " " + request.Host() + " " + request.target);
    }
    return lines;
  }

  std::shared_ptr<Emulation::Office365ServiceState> service_;
  std::shared_ptr<Emulation::OnlineSiteState> site_;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel
