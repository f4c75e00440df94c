#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "BinaryTokenCredential.h"
#include "CredentialFactory.h"
#include "ISamlCredential.h"
#include "ISoapCredential.h"
#include "SamlAssertionCredential.h"
#include "UsernameCredential.h"

namespace Vantrel {
namespace Auth {
namespace {

using CredentialPtr = std::unique_ptr<ICredential>;

std::string SamlText(const ICredential* credential) {
  const ISamlCredential* saml = dynamic_cast<const ISamlCredential*>(credential);
  return saml != nullptr ? saml->GetSamlCredential() : "<not an ISamlCredential>";
}

TEST(UsernameCredentialTest, TextsCarryTheBytesAsGivenInFixedLayout) {
  const char* cases[][2] = {{"alice@contoso.test", "P@ss"},
                            {"", ""},
                            {"DOM\\b<o>", "a&b<c\"'"},
                            {"j\xC3\xBCrgen", "\xE2\x82\xAC  x"}};
  for (const auto& c : cases) {
    CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(c[0], c[1]));
    std::string expected =
        std::string(
            "<o:UsernameToken xmlns:o=\"http://docs.oasis-open.org/wss/2004/01/"
            "oasis-200401-wss-wssecurity-secext-1.0.xsd\">\n\t<o:Username>") +
        c[0] +
        "</o:Username>\n\t<o:Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-username-token-profile-1.0#PasswordText\">" +
        c[1] + "</o:Password>\n</o:UsernameToken>\n";
    EXPECT_EQ(SamlText(credential.get()), expected);
    EXPECT_EQ(SamlText(credential.get()), expected) << "a second call differs";
    EXPECT_EQ(
        dynamic_cast<const ISoapCredential*>(credential.get())->GetSoapCredential(),
        std::string("<username>") + c[0] + "</username>\n<password>" + c[1] + "</password>\n");
  }
}

TEST(TokenCredentialTest, TextIsTheElementAloneAndTheValueStartsAtTEquals) {
  const std::string token = "<BinarySecurityToken Id=\"C0\">t=Ew&amp;p=\n</BinarySecurityToken>";
  EXPECT_EQ(BinaryTokenCredential(token).GetSamlCredential(), token);
  EXPECT_EQ(BinaryTokenCredential(token).GetTokenValue(), "t=Ew&amp;p=\n");
  EXPECT_EQ(BinaryTokenCredential("<BinarySecurityToken>X</BinarySecurityToken>").GetTokenValue(),
            "");
}

// Every credential must reach its WS-Security text through ICredential, and
// only the binary token may pass for one at SharePoint Online.
TEST(CredentialCastTest, AllAreSamlCredentialsOnlyTheTokenIsBinary) {
  CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(
      "<BinarySecurityToken>t=1</BinarySecurityToken>"));
  CredentialPtr assertion(
      CredentialFactory::CreateCredentialFromRstr("<saml:Assertion>y</saml:Assertion>"));
  ASSERT_TRUE(user && token && assertion);
  for (const ICredential* credential : {user.get(), token.get(), assertion.get()}) {
    EXPECT_NE(dynamic_cast<const ISamlCredential*>(credential), nullptr);
  }
  EXPECT_EQ(dynamic_cast<const BinaryTokenCredential*>(user.get()), nullptr);
  EXPECT_EQ(dynamic_cast<const BinaryTokenCredential*>(assertion.get()), nullptr);
  ASSERT_NE(dynamic_cast<const BinaryTokenCredential*>(token.get()), nullptr);
  EXPECT_EQ(dynamic_cast<const BinaryTokenCredential*>(token.get())->GetTokenValue(), "t=1");
}

std::string Rstr(const std::string& inner) {
  return "<t:RequestSecurityTokenResponse>\n<t:RequestedSecurityToken>" + inner +
         "</t:RequestedSecurityToken>\n</t:RequestSecurityTokenResponse>";
}

TEST(CredentialFactoryTest, RecognisesTheTokenKindInAnRstr) {
  const std::string token =
      "<wsse:BinarySecurityToken Id=\"C\">t=Ew&amp;p=</wsse:BinarySecurityToken>";
  const std::string assertion =
      "<saml:Assertion AssertionID=\"_9f\"><saml:Conditions NotBefore=\"x\"/><saml:Subject>"
      "<saml:NameIdentifier>u@contoso.test</saml:NameIdentifier></saml:Subject></saml:Assertion>";
  const std::string lower = "<binarysecuritytoken>T=Q</binarysecuritytoken>";
  // The kind made ('T' token, 'A' assertion, '-' none) and its text.
  struct Case { std::string rstr; char kind; std::string text; };
  const Case cases[] = {
      {Rstr(token), 'T', token},
      {Rstr(assertion), 'A', assertion},
      {Rstr(token + "\n" + assertion), 'A', assertion},  // tried second, yet it wins
      {Rstr("<x>t=1</x>"), '-', ""},
      {"", '-', ""},
      {Rstr("<BinarySecurityToken>a</BinarySecurityToken>"), '-', ""},  // no "t="
      {lower, 'T', lower},
      {Rstr("<saml:Assertion ID=\"a\">\n</saml:Assertion>"), '-', ""},  // "." stops at a line end
      {Rstr(token + "<saml:Assertion>\n</saml:Assertion>"), 'T', token},
  };
  for (const Case& c : cases) {
    CredentialPtr credential(CredentialFactory::CreateCredentialFromRstr(c.rstr));
    EXPECT_EQ(dynamic_cast<BinaryTokenCredential*>(credential.get()) != nullptr, c.kind == 'T')
        << c.rstr;
    EXPECT_EQ(dynamic_cast<SamlAssertionCredential*>(credential.get()) != nullptr, c.kind == 'A')
        << c.rstr;
    EXPECT_EQ(credential == nullptr, c.kind == '-') << c.rstr;
    if (credential != nullptr) {
      EXPECT_EQ(SamlText(credential.get()), c.text);
    }
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
