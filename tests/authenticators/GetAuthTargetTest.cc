// Where a user signs in: the namespace query at the emulated sign-in service.
#include <gtest/gtest.h>

#include <string>

#include "Office365Endpoints.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

TEST_F(OnlineTest, GetAuthTargetReadsTheNamespaceAndServer) {
  Emulation::Office365ServiceOptions options;
  options.accounts = {
      {"adele@contoso.com", {"Managed", "", "x"}},
      {"lower@contoso.com", {"managed", "", "x"}},
      {"blank@contoso.com", {"", "", ""}},
      {"nourl@fabrikam.com", {"Federated", "", ""}},
      {"unknown@contoso.com", {"Unknown", "", ""}},
      {"adfs@fabrikam.com", {"Federated", "https://adfs.fabrikam.com/adfs/ls/?username=a&wa=wsignin1.0", ""}},
      {"caps@fabrikam.com", {"Federated", "https://sts.fabrikam.com/ADFS/LS/", ""}},
      {"other@fabrikam.com", {"Federated", "https://sts.fabrikam.com/federation/signin.aspx?x=1#y", ""}},
  };
  InstallService(options);
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  const int kUntouched = -1;
  const struct { const char* email; AuthResult result; int type; const char* url; const char* detail; } rows[] = {
      {"adele@contoso.com", kAuthResultOk, kAuthNamespaceManaged, kDefaultOffice365Server, ""},
      {"adfs@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://adfs.fabrikam.com", ""},
      {"caps@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://sts.fabrikam.com", ""},
      {"other@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://sts.fabrikam.com/federation", ""},
      {"unknown@contoso.com", kAuthResultOk, kAuthNamespaceUnknown, "untouched", ""},
      {"lower@contoso.com", kAuthResultInternalError, kUntouched, "untouched",
       "Unsupported Office 365 Auth Namespace Typemanaged"},
      {"blank@contoso.com", kAuthResultInternalError, kAuthNamespaceUnknown, "untouched",
       "Could not find Office 365 Auth Namespace Type"},
      {"nourl@fabrikam.com", kAuthResultInternalError, kAuthNamespaceFederated, "untouched",
       "Could not find Office 365 Auth URL for a Federated namespace"},
      {"", kAuthResultInvalidInput, kUntouched, "untouched", ""},
  };
  for (const auto& row : rows) {
    auto type = static_cast<SharePointOffice365AuthNamespace>(kUntouched);
    std::string url = "untouched";
    EXPECT_EQ(online->GetAuthTarget(row.email, type, url), row.result) << row.email;
    EXPECT_EQ(static_cast<int>(type), row.type) << row.email;
    EXPECT_EQ(url, row.url) << row.email;
    EXPECT_EQ(Detail(*online), row.detail) << row.email;
  }
  const Emulation::Request first = emulator_.Requests().at(0);
  EXPECT_TRUE(first.tls);
  EXPECT_EQ(first.method + " " + first.Host() + " " + first.target,
            "GET login.microsoftonline.com /GetUserRealm.srf?handler=1&login=adele%40contoso%2Ecom");
  EXPECT_EQ(emulator_.Requests().size(), 8u);  // none for the empty address
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel
