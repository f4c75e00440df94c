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

std::string SamlText(const ICredential* c) { return dynamic_cast<const ISamlCredential&>(*c).GetSamlCredential(); }

TEST(UsernameCredentialTest, TextsCarryTheBytesAsGivenInFixedLayout) {
  const char* cases[][2] = {
      {"alice@contoso.test", "P@ss"}, {"", ""}, {"DOM\\b<o>", "a&b<c\"'"}, {"j\xC3\xBCrgen", "\xE2\x82\xAC  x"}};
  for (const auto& c : cases) {
    CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(c[0], c[1]));
    const std::string expected =
        "<o:UsernameToken xmlns:o=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\""
        ">\n\t<o:Username>" + std::string(c[0]) + "</o:Username>\n\t<o:Password Type=\"http://docs.oasis-open.org/wss"
        "/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordText\">" + c[1] + "</o:Password>\n"
        "</o:UsernameToken>\n";
    EXPECT_EQ(SamlText(credential.get()), expected);
    EXPECT_EQ(dynamic_cast<const ISoapCredential*>(credential.get())->GetSoapCredential(),
              std::string("<username>") + c[0] + "</username>\n<password>" + c[1] + "</password>\n");
  }
}

// Every credential reaches its WS-Security text through ICredential; only the
// binary token may pass for one at SharePoint Online. Its value starts at "t=".
TEST(CredentialCastTest, AllAreSamlCredentialsOnlyTheTokenIsBinary) {
  CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr("<BinarySecurityToken>t=1</BinarySecurityToken>"));
  CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr("<saml:Assertion>y</saml:Assertion>"));
  ASSERT_TRUE(user && token && assertion);
  for (const ICredential* credential : {user.get(), token.get(), assertion.get()}) {
    EXPECT_NE(dynamic_cast<const ISamlCredential*>(credential), nullptr);
    EXPECT_EQ(dynamic_cast<const BinaryTokenCredential*>(credential) != nullptr, credential == token.get());
  }
  EXPECT_EQ(dynamic_cast<const BinaryTokenCredential*>(token.get())->GetTokenValue(), "t=1");
  EXPECT_EQ(BinaryTokenCredential("<BinarySecurityToken Id=\"C\">t=Ew&amp;p=\n</BinarySecurityToken>").GetTokenValue(),
            "t=Ew&amp;p=\n");
  EXPECT_EQ(BinaryTokenCredential("<BinarySecurityToken>X</BinarySecurityToken>").GetTokenValue(), "");
}

std::string Rstr(const std::string& inner) {
  return "<t:RequestSecurityTokenResponse>\n<t:RequestedSecurityToken>" + inner +
         "</t:RequestedSecurityToken>\n</t:RequestSecurityTokenResponse>";
}

TEST(CredentialFactoryTest, RecognisesTheTokenKindInAnRstr) {
  const std::string token = "<wsse:BinarySecurityToken Id=\"C\">t=Ew&amp;p=</wsse:BinarySecurityToken>";
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
    CredentialPtr made(CredentialFactory::CreateCredentialFromRstr(c.rstr));
    const ICredential* got = made.get();
    char kind = got == nullptr ? '-' : dynamic_cast<const BinaryTokenCredential*>(got) ? 'T'
                : dynamic_cast<const SamlAssertionCredential*>(got) ? 'A' : '?';
    EXPECT_EQ(c.kind, kind) << c.rstr;
    EXPECT_EQ(c.text, got != nullptr ? SamlText(got) : "") << c.rstr;
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
