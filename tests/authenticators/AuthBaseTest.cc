// The options every authenticator carries, how they reach each request, and
// the null checks at the start of an attempt. Run through SharePointFba, the
// simplest subclass, with a scripted transport.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "AuthEngineConfig.h"
#include "ErrorDetail.h"
#include "NetworkConfig.h"
#include "SharePointFba.h"
#include "support/Authenticators.h"
#include "support/FakeNetworkControl.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::Detail;
using testing::FakeNetworkControl;
using testing::ScopedLogCapture;

TEST(AuthBaseTest, FreshOptionsAndTheirBufferGetters) {
  FakeNetworkControl transport;
  SharePointFba fba(&transport);
  EXPECT_TRUE(fba.IsSslVerifyCertEnabled());
  EXPECT_TRUE(fba.IsSslVerifyHostEnabled());
  EXPECT_EQ(fba.GetSslVersion(), kSslVersionDefault);
  EXPECT_EQ(fba.GetNetworkControl(), &transport);

  // No CA file: an empty text, and the caller's size is left alone.
  char buffer[64];
  std::memset(buffer, 'x', sizeof(buffer));
  size_t size = 16;
  EXPECT_EQ(fba.GetCaFile(buffer, &size), kAuthResultOk);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(size, 16u);

  // Too small a buffer: still kAuthResultOk, an empty text and the size needed.
  size = 10;
  EXPECT_EQ(fba.GetServiceEndpoint(buffer, &size), kAuthResultOk);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(size, std::strlen("_vti_bin/authentication.asmx") + 1);
  EXPECT_EQ(fba.GetServiceEndpoint(buffer, &size), kAuthResultOk);
  EXPECT_STREQ(buffer, "_vti_bin/authentication.asmx");
}

TEST(AuthBaseTest, EachAttemptCopiesTheOptionsAndGlobalSettingsAfresh) {
  ScopedLogCapture log(kLogLevelDebug);
  FakeNetworkControl transport;
  SharePointFba fba(&transport);
  fba.SetCaFile("/etc/ca.pem");
  fba.EnableSslVerifyHost(false);
  // Out of the enumeration: stored and handed on, for the transport to judge.
  fba.SetSslVersion(static_cast<SslVersion>(7));
  AuthEngineConfig::SetProxy("http://proxy.test:3128");

  ASSERT_EQ(fba.Authenticate("https://h/s", "u", "p"), kAuthResultAuthFailed);
  EXPECT_EQ(fba.GetSslVersion(), static_cast<SslVersion>(7));

  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetProxy(nullptr);
  fba.SetCaFile("");
  fba.EnableSslVerifyHost(true);
  fba.EnableSslVerifyCert(false);
  fba.SetSslVersion(kSslVersionTls1);
  ASSERT_EQ(fba.Authenticate("http://h/s", "u", "p"), kAuthResultAuthFailed);

  ASSERT_EQ(transport.sent().size(), 2u);
  const testing::SentRequest& first = transport.sent()[0];
  EXPECT_TRUE(first.ssl_used);
  EXPECT_TRUE(first.verify_cert);
  EXPECT_FALSE(first.verify_host);
  EXPECT_EQ(first.ssl_version, static_cast<SslVersion>(7));
  EXPECT_EQ(first.ca_file, "/etc/ca.pem");
  EXPECT_EQ(first.proxy, "http://proxy.test:3128");
  EXPECT_TRUE(first.verbose);

  const testing::SentRequest& second = transport.sent()[1];
  EXPECT_FALSE(second.ssl_used);
  EXPECT_FALSE(second.verify_cert);
  EXPECT_TRUE(second.verify_host);
  EXPECT_EQ(second.ssl_version, kSslVersionTls1);
  EXPECT_EQ(second.ca_file, "");
  EXPECT_EQ(second.proxy, "<null>");
  EXPECT_FALSE(second.verbose);
}

// Subclasses that lose one of the objects an attempt needs.
class FbaWithoutConfig : public SharePointFba {
 public:
  using SharePointFba::SharePointFba;

 protected:
  NetworkConfig* GetNetworkConfig() override { return nullptr; }
};

class FbaWithoutDetail : public SharePointFba {
 public:
  using SharePointFba::SharePointFba;

 protected:
  using SharePointFba::GetErrorDetail;
  ErrorDetail* GetErrorDetail() override { return nullptr; }
};

TEST(AuthBaseTest, AnAttemptWithAMissingObjectIsAnInternalErrorAndSendsNothing) {
  FakeNetworkControl transport;

  FbaWithoutConfig without_config(&transport);
  EXPECT_EQ(without_config.Authenticate("http://h/s", "u", "p"), kAuthResultInternalError);
  EXPECT_EQ(Detail(without_config), "Null pointer(s) detected.");

  FbaWithoutDetail without_detail(&transport);
  EXPECT_EQ(without_detail.Authenticate("http://h/s", "u", "p"), kAuthResultInternalError);
  EXPECT_EQ(Detail(without_detail), "");

  // The missing transport is caught before the arguments are looked at.
  SharePointFba without_transport(nullptr);
  EXPECT_EQ(without_transport.Authenticate(nullptr, nullptr, nullptr), kAuthResultInternalError);
  EXPECT_EQ(Detail(without_transport), "Null pointer(s) detected.");
  EXPECT_EQ(without_transport.GetFedAuthCookie(), nullptr);

  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
