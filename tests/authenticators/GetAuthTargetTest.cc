// Where a user signs in: the namespace query at the emulated Office 365
// sign-in service, under its real host name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngine.h"
#include "AuthEngineConfig.h"
#include "Office365Endpoints.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Office365Account;
using Emulation::Request;

class GetAuthTargetTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    Emulation::Office365ServiceOptions options;
    options.accounts = {
        {"adele@contoso.com", {"Managed", "", "x"}},
        {"lower@contoso.com", {"managed", "", "x"}},
        {"blank@contoso.com", {"", "", ""}},
        {"nourl@fabrikam.com", {"Federated", "", ""}},
        {"unknown@contoso.com", {"Unknown", "", ""}},
        {"adfs@fabrikam.com",
         {"Federated",
          "https://adfs.fabrikam.com/adfs/ls/?username=adfs%40fabrikam.com&wa=wsignin1.0", ""}},
        {"caps@fabrikam.com", {"Federated", "https://sts.fabrikam.com/ADFS/LS/", ""}},
        {"other@fabrikam.com",
         {"Federated", "https://sts.fabrikam.com/federation/signin.aspx?x=1#y", ""}},
        {"rooted@fabrikam.com", {"Federated", "/adfs/ls/", ""}},
    };
    InstallService(options);
    online_ = engine_->SharePointOffice365();
    Trust(online_);
  }

  // Runs the query with outputs that show whether they were written.
  AuthResult Ask(const std::string& email) {
    type_ = static_cast<SharePointOffice365AuthNamespace>(-1);
    url_ = "untouched";
    return online_->GetAuthTarget(email, type_, url_);
  }

  SharePointOffice365* online_ = nullptr;
  SharePointOffice365AuthNamespace type_;
  std::string url_;
};

TEST_F(GetAuthTargetTest, AsksTheSignInServiceWithTheAddressEncoded) {
  ASSERT_EQ(Ask("adele@contoso.com"), kAuthResultOk) << Detail(*online_);
  EXPECT_EQ(type_, kAuthNamespaceManaged);
  EXPECT_EQ(url_, kDefaultOffice365Server);

  std::vector<Request> requests = emulator_.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_TRUE(requests[0].tls);
  EXPECT_EQ(requests[0].Host(), kSignInHost);
  EXPECT_EQ(requests[0].target, "/GetUserRealm.srf?handler=1&login=adele%40contoso%2Ecom");
  EXPECT_TRUE(requests[0].body.empty());
}

TEST_F(GetAuthTargetTest, FederatedTenantGivesTheBaseOfItsServer) {
  struct Case {
    const char* email;
    const char* url;
  } cases[] = {
      {"adfs@fabrikam.com", "https://adfs.fabrikam.com"},
      {"caps@fabrikam.com", "https://sts.fabrikam.com"},
      {"other@fabrikam.com", "https://sts.fabrikam.com/federation"},
      {"rooted@fabrikam.com", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.email);
    EXPECT_EQ(Ask(c.email), kAuthResultOk);
    EXPECT_EQ(type_, kAuthNamespaceFederated);
    EXPECT_EQ(url_, c.url);
  }
}

TEST_F(GetAuthTargetTest, OnlyTheThreeKnownNamespacesAreAccepted) {
  EXPECT_EQ(Ask("unknown@contoso.com"), kAuthResultOk);
  EXPECT_EQ(type_, kAuthNamespaceUnknown);
  EXPECT_EQ(url_, "untouched");
  EXPECT_EQ(Ask("nobody@elsewhere.test"), kAuthResultOk);  // the service's answer for strangers
  EXPECT_EQ(type_, kAuthNamespaceUnknown);

  EXPECT_EQ(Ask("lower@contoso.com"), kAuthResultInternalError);
  EXPECT_EQ(Detail(*online_), "Unsupported Office 365 Auth Namespace Typemanaged");
  EXPECT_EQ(static_cast<int>(type_), -1);
  EXPECT_EQ(url_, "untouched");
}

TEST_F(GetAuthTargetTest, AnswerWithoutTheNeededFieldIsAnInternalError) {
  EXPECT_EQ(Ask("blank@contoso.com"), kAuthResultInternalError);
  EXPECT_EQ(Detail(*online_), "Could not find Office 365 Auth Namespace Type");
  EXPECT_EQ(type_, kAuthNamespaceUnknown);

  EXPECT_EQ(Ask("nourl@fabrikam.com"), kAuthResultInternalError);
  EXPECT_EQ(Detail(*online_), "Could not find Office 365 Auth URL for a Federated namespace");
  EXPECT_EQ(url_, "untouched");

  // An unreachable service is reported the same way, not as a send failure.
  AuthEngineConfig::SetProxy("http://127.0.0.1:1");
  EXPECT_EQ(Ask("adele@contoso.com"), kAuthResultInternalError);
  EXPECT_EQ(Detail(*online_), "Could not find Office 365 Auth Namespace Type");
}

TEST_F(GetAuthTargetTest, EmptyAddressMakesNoRequest) {
  EXPECT_EQ(Ask(""), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*online_), "");
  EXPECT_EQ(url_, "untouched");
  EXPECT_TRUE(emulator_.Requests().empty());
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel
