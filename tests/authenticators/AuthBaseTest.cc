// What every authenticator shares, with a scripted transport: options copied
// into each request, missing objects, a response without a code.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <tuple>
#include <string>

#include "Adfs.h"
#include "AuthEngineConfig.h"
#include "CredentialFactory.h"
#include "Ntlm.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "support/Authenticators.h"
#include "support/FakeNetworkControl.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::Detail;
using testing::FakeNetworkControl;

TEST(AuthBaseTest, EachAttemptCopiesTheOptionsAndGlobalSettingsAfresh) {
  testing::ScopedLogCapture log(kLogLevelDebug);
  FakeNetworkControl transport;
  SharePointFba fba(&transport);
  fba.SetCaFile("/etc/ca.pem");
  fba.EnableSslVerifyHost(false);
  fba.SetSslVersion(kSslVersionTls1);
  AuthEngineConfig::SetProxy("http://proxy.test:3128");
  ASSERT_EQ(fba.Authenticate("https://h/s", "u", "p"), kAuthResultAuthFailed);
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetProxy(nullptr);
  fba.SetCaFile("");
  fba.EnableSslVerifyHost(true);
  fba.EnableSslVerifyCert(false);
  ASSERT_EQ(fba.Authenticate("http://h/s", "u", "p"), kAuthResultAuthFailed);

  ASSERT_EQ(transport.sent().size(), 2u);
  const testing::SentRequest &first = transport.sent()[0], &second = transport.sent()[1];
  EXPECT_EQ(std::make_tuple(first.ssl_used, first.verify_cert, first.verify_host, first.verbose),
            std::make_tuple(true, true, false, true));
  EXPECT_EQ(std::make_tuple(first.ssl_version, first.ca_file, first.proxy),
            std::make_tuple(kSslVersionTls1, std::string("/etc/ca.pem"), std::string("http://proxy.test:3128")));
  EXPECT_EQ(std::make_tuple(second.ssl_used, second.verify_cert, second.verify_host, second.verbose),
            std::make_tuple(false, false, true, false));
  EXPECT_EQ(std::make_tuple(second.ca_file, second.proxy), std::make_tuple(std::string(""), std::string("<null>")));
}

TEST(AuthBaseTest, NoTransportOrNoResponseCode) {
  std::unique_ptr<ICredential> token(CredentialFactory::CreateCredentialFromRstr(
      "<wsse:BinarySecurityToken Id=\"C\">t=x</wsse:BinarySecurityToken>"));
  // Each sign-in, run on a transport; what it left as detail.
  const std::function<AuthResult(INetworkControl*, std::string*)> attempts[] = {
      [](INetworkControl* n, std::string* d) { SharePointFba a(n); AuthResult r = a.Authenticate("http://h/s", "u", "p"); *d = Detail(a); return r; },
      [](INetworkControl* n, std::string* d) { Adfs a(n); AuthResult r = a.AuthenticateByUser("http://h", "urn:r", "u", "p"); *d = Detail(a); return r; },
      [](INetworkControl* n, std::string* d) { SharePointAdfs a(n); AuthResult r = a.AuthenticateByRstr("http://h/s", "r"); *d = Detail(a); return r; },
      [&](INetworkControl* n, std::string* d) { SharePointOffice365 a(n); AuthResult r = a.Authenticate("https://h/s", token.get()); *d = Detail(a); return r; },
  };
  for (const auto& attempt : attempts) {
    std::string detail;
    EXPECT_EQ(attempt(nullptr, &detail), kAuthResultInternalError);
    EXPECT_EQ(detail, "Null pointer(s) detected.");
    FakeNetworkControl silent([](NetworkResult*) { return kAuthResultOk; });
    EXPECT_EQ(attempt(&silent, &detail), kAuthResultHttpError);
    EXPECT_EQ(detail, "Unexpected HTTP response code.  Response code: 0");
  }
}

TEST(AuthBaseTest, TransportFailureIsPassedOn) {
  const char kText[] = "Null handle encountered.  This might be caused by network initialization not called prior to use.";
  FakeNetworkControl no_handle([&](NetworkResult* result) {
    result->SetErrorMsg(kText);
    return kAuthResultInternalError;
  });
  SharePointFba fba(&no_handle);
  EXPECT_EQ(fba.Authenticate("http://h/s", "u", "p"), kAuthResultInternalError);
  EXPECT_EQ(Detail(fba), kText);
}

// Ntlm holds a place in the interface: it succeeds and touches nothing.
TEST(AuthBaseTest, NtlmSucceedsWithoutTouchingAnything) {
  FakeNetworkControl transport;
  Ntlm ntlm(&transport);
  char* out = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(ntlm.Authenticate("a", "b", "c", &out), kAuthResultOk);
  EXPECT_EQ(Ntlm(nullptr).Authenticate(nullptr, nullptr, nullptr, nullptr), kAuthResultOk);
  EXPECT_EQ(out, reinterpret_cast<char*>(0x1));
  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
