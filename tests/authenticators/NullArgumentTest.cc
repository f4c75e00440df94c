// Every exported operation with a null pointer wherever a host could pass
// one: the documented result and no crash. The operations are grouped by the
// object a host holds when it makes the mistake.
#include <gtest/gtest.h>

#include <string>

#include "Adfs.h"
#include "AuthEngine.h"
#include "AuthEngineConfig.h"
#include "Cookie.h"
#include "NetworkConfig.h"
#include "NetworkControlLibcurl.h"
#include "NetworkResult.h"
#include "Ntlm.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "StrList.h"
#include "support/Authenticators.h"
#include "support/FakeNetworkControl.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

constexpr char kNullInput[] = "At least one of the required input string is null.";
constexpr char kEmptyInput[] = "Input is an empty or null string.";
constexpr char kNullObjects[] = "Null pointer(s) detected.";

// Each buffer getter of an authenticator, as the host calls it.
template <typename Getter>
void ExpectBufferGetterTakesNulls(Getter getter) {
  size_t size = 7;
  getter(nullptr, &size);  // a null buffer has no room: a query for the size
  EXPECT_NE(size, 7u);
  char buffer[4] = "abc";
  getter(buffer, nullptr);  // nowhere to learn the size from: nothing happens
  EXPECT_STREQ(buffer, "abc");
  getter(nullptr, nullptr);
}

void ExpectBaseTakesNulls(AuthBase* authenticator) {
  EXPECT_EQ(authenticator->SetCaFile(nullptr), kAuthResultOk);
  EXPECT_EQ(authenticator->SetServiceEndpoint(nullptr), kAuthResultOk);
  size_t size = 0;
  EXPECT_EQ(authenticator->GetCaFile(nullptr, &size), kAuthResultOk);
  EXPECT_EQ(size, 0u);  // nothing set: nothing needed
  EXPECT_EQ(authenticator->GetServiceEndpoint(nullptr, &size), kAuthResultOk);
  EXPECT_EQ(authenticator->GetCaFile(nullptr, nullptr), kAuthResultOk);
  EXPECT_EQ(authenticator->GetServiceEndpoint(nullptr, nullptr), kAuthResultOk);
  authenticator->GetLastErrorDetail(nullptr, nullptr);
  ExpectBufferGetterTakesNulls(
      [&](char* buffer, size_t* size) { authenticator->GetLastErrorDetail(buffer, size); });
}

class NullArgumentTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk); }
  // Logging on, so that every entry line formats its null arguments too.
  ScopedLogCapture log_{kLogLevelDebug};
  AuthEngine engine_;
};

TEST_F(NullArgumentTest, EngineAndGlobalConfiguration) {
  size_t size = 0;
  engine_.GetResultStr(kAuthResultOk, nullptr, &size);
  EXPECT_EQ(size, 3u);
  engine_.GetResultStr(kAuthResultOk, nullptr, nullptr);

  AuthEngineConfig::SetProxy(nullptr);
  EXPECT_EQ(AuthEngineConfig::GetProxy(), nullptr);
  AuthEngineConfig::SetTempLogDir(nullptr);
  EXPECT_EQ(AuthEngineConfig::GetTempLogDir(), nullptr);
  AuthEngineConfig::SetLoggerCallback(nullptr);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);  // no callback: nowhere to call
}

TEST_F(NullArgumentTest, SignInsRefuseNullInputsBeforeAnyRequest) {
  SharePointFba* fba = engine_.SharePointFba();
  EXPECT_EQ(fba->Authenticate(nullptr, nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*fba), kNullInput);
  EXPECT_EQ(fba->Authenticate(nullptr, "user", "password"), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*fba), kEmptyInput);
  EXPECT_EQ(fba->GetFedAuthCookie(), nullptr);

  Adfs* adfs = engine_.Adfs();
  EXPECT_EQ(adfs->Authenticate(nullptr, nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*adfs), kNullInput);
  EXPECT_EQ(adfs->AuthenticateByUser(nullptr, nullptr, nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*adfs), kNullInput);
  EXPECT_EQ(adfs->AuthenticateByUser("https://sts", "urn:x", "user", nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*adfs), kNullInput);

  SharePointAdfs* trust = engine_.SharePointAdfs();
  EXPECT_EQ(trust->AuthenticateByRstr(nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*trust), kEmptyInput);
  EXPECT_EQ(trust->AuthenticateByRstr("https://site", nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*trust), kEmptyInput);
  EXPECT_EQ(trust->GetFedAuthCookie(), nullptr);

  Office365* office365 = engine_.Office365();
  EXPECT_EQ(office365->Authenticate(nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*office365), "Realm is not valid.");

  SharePointOffice365* online = engine_.SharePointOffice365();
  EXPECT_EQ(online->Authenticate(nullptr, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*online), kEmptyInput);
  EXPECT_EQ(online->GetFedAuthCookie(), nullptr);
  EXPECT_EQ(online->GetRtfaCookie(), nullptr);

  // Holds a place and reads nothing, not even what `out` points to.
  EXPECT_EQ(engine_.Ntlm()->Authenticate(nullptr, nullptr, nullptr, nullptr), kAuthResultOk);
}

TEST_F(NullArgumentTest, OptionsAndBufferGettersOfEveryAuthenticator) {
  AuthBase* all[] = {engine_.SharePointFba(), engine_.Ntlm(), engine_.Adfs(),
                     engine_.SharePointAdfs(), engine_.Office365(), engine_.SharePointOffice365()};
  for (AuthBase* authenticator : all) ExpectBaseTakesNulls(authenticator);

  Adfs* adfs = engine_.Adfs();
  adfs->GetRstr(nullptr, nullptr);
  size_t size = 5;
  adfs->GetRstr(nullptr, &size);
  EXPECT_EQ(size, 0u);

  SharePointAdfs* trust = engine_.SharePointAdfs();
  EXPECT_EQ(trust->SetWctx(nullptr), kAuthResultOk);
  size = 5;
  EXPECT_EQ(trust->GetWctx(nullptr, &size), kAuthResultOk);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(trust->GetWctx(nullptr, nullptr), kAuthResultOk);

  Office365* office365 = engine_.Office365();
  ExpectBufferGetterTakesNulls(
      [&](char* buffer, size_t* size) { office365->GetServer(buffer, size); });
  EXPECT_EQ(office365->SetServer(nullptr), kAuthResultOk);
  office365->GetBinarySecurityToken(nullptr, nullptr);
  EXPECT_EQ(office365->getBinarySecurityTokenSize(), 0u);
  // Without a server the attempt fails at the input check, after the probe
  // (refused at once: nothing listens on port 1).
  EXPECT_EQ(office365->Authenticate("http://127.0.0.1:1/sites/a", nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*office365), kNullInput);
}

// A host may build authenticators on a transport of its own, or on none.
TEST_F(NullArgumentTest, AuthenticatorsWithoutTransport) {
  SharePointFba fba(nullptr);
  EXPECT_EQ(fba.Authenticate("https://site", "user", "password"), kAuthResultInternalError);
  EXPECT_EQ(Detail(fba), kNullObjects);
  Adfs adfs(nullptr);
  EXPECT_EQ(adfs.AuthenticateByUser("https://sts", "urn:x", "user", "password"),
            kAuthResultInternalError);
  EXPECT_EQ(Detail(adfs), kNullObjects);
  SharePointAdfs trust(nullptr);
  EXPECT_EQ(trust.AuthenticateByRstr("https://site", "<rstr/>"), kAuthResultInternalError);
  EXPECT_EQ(Detail(trust), kNullObjects);
  SharePointOffice365 online(nullptr);
  EXPECT_EQ(online.Authenticate("https://site", nullptr), kAuthResultInternalError);
  EXPECT_EQ(Detail(online), kNullObjects);
  SharePointOffice365AuthNamespace kind = kAuthNamespaceFederated;
  std::string url = "kept";
  EXPECT_EQ(online.GetAuthTarget("a@b.c", kind, url), kAuthResultInternalError);
  EXPECT_EQ(url, "kept");
  Ntlm ntlm(nullptr);
  EXPECT_EQ(ntlm.Authenticate("a", "b", "c", nullptr), kAuthResultOk);
  for (AuthBase* authenticator : {static_cast<AuthBase*>(&fba), static_cast<AuthBase*>(&ntlm)}) {
    ExpectBaseTakesNulls(authenticator);
    EXPECT_EQ(authenticator->GetNetworkControl(), nullptr);
  }
}

TEST_F(NullArgumentTest, TransportAndRecords) {
  NetworkControlLibcurl transport;
  NetworkResult result;
  EXPECT_EQ(transport.Exec(nullptr, nullptr), kAuthResultInternalError);
  EXPECT_EQ(transport.Exec(nullptr, &result), kAuthResultInternalError);
  EXPECT_EQ(transport.Escape(nullptr), nullptr);
  transport.FreeEscaped(nullptr);

  NetworkConfig::LogDump(nullptr);
  NetworkResult::LogDump(nullptr);
  EXPECT_EQ(result.GetHeader(nullptr), nullptr);
  result.AddHeader(nullptr, nullptr);
  result.AddCookie(nullptr);
  result.SetErrorMsg(nullptr);
  EXPECT_STREQ(result.GetErrorMsg(), "");
  NetworkResult::LogDump(&result);  // a header and a cookie with nothing in them
  NetworkConfig config;
  config.AddHeader(nullptr, nullptr);
  config.SetUrl(nullptr);
  config.SetPostData(nullptr);
  NetworkConfig::LogDump(&config);
  EXPECT_EQ(MaskPassword(nullptr), nullptr);

  Cookie cookie;
  cookie.SetName(nullptr);
  cookie.SetValue(nullptr);
  cookie.SetDomain(nullptr);
  cookie.SetPath(nullptr);
  Cookie::Copy(nullptr, &cookie);
  Cookie::Copy(&cookie, nullptr);
  Cookie::Copy(nullptr, nullptr);
  Cookie::LogDump(nullptr);
  Cookie::LogDump(&cookie);
  EXPECT_EQ(cookie.GetName(), nullptr);

  StrList* list = StrList::Append(nullptr, nullptr);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->str, nullptr);
  StrList::Free(list);
  StrList::Free(nullptr);
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel
