// No sign-in, succeeding or failing, logs the password, even at debug level with
// libcurl's verbose text; cookie values, on the other hand, are logged.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VantrelAuthEngine64/Ntlm.h"
#include "support/LogCapture.h"
#include "support/OnlineTest.h"

namespace Vantrel::Auth::testing {
namespace {

TEST_F(EveryFlowTest, NoSignInLogsThePassword) {
  ScopedLogCapture log(kLogLevelDebug);
  VerboseEngine verbose(emulator_.CaFile());
  AuthEngine& engine = *verbose.engine;
  std::vector<std::string> cookies;
  ASSERT_EQ(SignInEveryWay(engine, &cookies), "");
  // Where it is wrong, and where nothing listens (the request is logged all the same).
  EXPECT_EQ(engine.SharePointFba()->Authenticate(kFormsSite, "mallory", kPassword), kAuthResultAuthFailed);
  EXPECT_NE(engine.SharePointFba()->Authenticate("http://127.0.0.1:1/sites/x", "alice", kPassword), kAuthResultOk);
  EXPECT_EQ(engine.Adfs()->AuthenticateByUser(kAdfsServer, kTrustRealm, "nobody@fabrikam.com", kPassword),
            kAuthResultHttpError);
  CredentialPtr stranger(CredentialFactory::CreateBasicUsernameCredential("eve@contoso.com", kPassword));
  EXPECT_NE(engine.Office365()->Authenticate(kSite, stranger.get()), kAuthResultOk);
  char* untouched = nullptr;
  EXPECT_EQ(engine.Ntlm()->Authenticate(kFormsSite, "alice", kPassword, &untouched), kAuthResultOk);
  EXPECT_EQ(engine.SharePointFba()->Authenticate(kFormsSite, "alice", ""), kAuthResultAuthFailed);
  const std::string entry = std::string("SharePointFba::Authenticate - Site: ") + kFormsSite + ", User: alice, Pwd avail: ";
  for (char avail : {'Y', 'N'}) EXPECT_GE(ScopedLogCapture::IndexOf(entry + avail), 0) << avail;  // only whether it's there

  std::string text;
  size_t verbose_dumps = 0, masked = 0;
  for (const std::string& line : ScopedLogCapture::Lines()) {
    ASSERT_EQ(line.find("Zq7"), std::string::npos) << line;
    verbose_dumps += line.find("libcurl verbose output BEGIN") != std::string::npos;
    masked += line.find("POST data: ") != std::string::npos && line.find(">*</") != std::string::npos;
    text += line + "\n";
  }
  // The capture was on, and the requests that carried the password were logged.
  EXPECT_GE(verbose_dumps, 10u);
  EXPECT_GE(masked, 7u);
  for (const std::string& cookie : cookies) EXPECT_NE(text.find(cookie), std::string::npos) << cookie;
}

}  // namespace
}  // namespace Vantrel::Auth::testing
