// The credentials' texts, and which one the factory makes of an RSTR.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "VantrelAuthEngine64/CredentialFactory.h"
#include "credentials/BinaryTokenCredential.h"
#include "credentials/ISamlCredential.h"
#include "credentials/ISoapCredential.h"
#include "credentials/SamlAssertionCredential.h"
#include "support/Authenticators.h"

namespace Vantrel::Auth {
namespace {

using testing::CredentialPtr;

std::string SamlText(const ICredential* c) { return std::string(dynamic_cast<const ISamlCredential&>(*c).GetSamlCredential().view()); }

TEST(UsernameCredentialTest, TextsCarryTheBytesAsGivenInFixedLayout) {
  const char* cases[][2] = {{"", ""}, {"DOM\\b<o>j\xC3\xBCrgen", "a&b<c\"' \xE2\x82\xAC"}};
  for (const auto& c : cases) {
    CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(c[0], c[1]));
    EXPECT_EQ(SamlText(credential.get()),
              "<o:UsernameToken xmlns:o=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0"
              ".xsd\">\n\t<o:Username>" + std::string(c[0]) + "</o:Username>\n\t<o:Password Type=\"http://docs.oasis-"
              "open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordText\">" + c[1] +
              "</o:Password>\n</o:UsernameToken>\n");
    EXPECT_EQ(dynamic_cast<const ISoapCredential*>(credential.get())->GetSoapCredential().view(),
              std::string("<username>") + c[0] + "</username>\n<password>" + c[1] + "</password>\n");
  }
}

// The token's value starts at "t=" and runs to the closing tag.
TEST(BinaryTokenCredentialTest, TokenValue) {
  EXPECT_EQ(BinaryTokenCredential("<BinarySecurityToken Id=\"C\">t=Ew&amp;p=\n</BinarySecurityToken>").GetTokenValue().view(),
            "t=Ew&amp;p=\n");
  EXPECT_EQ(BinaryTokenCredential("<BinarySecurityToken>X</BinarySecurityToken>").GetTokenValue().view(), "");
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
  // The kind made ('T' token, 'A' assertion, '-' none) and its text.
  const struct { std::string rstr; char kind; std::string text; } cases[] = {
      {Rstr(token), 'T', token},
      {Rstr(assertion), 'A', assertion},
      {Rstr(token + "\n" + assertion), 'A', assertion},  // tried second, yet it wins
      {Rstr("<x>t=1</x>"), '-', ""},
      {"", '-', ""},
      {Rstr("<BinarySecurityToken>a</BinarySecurityToken>"), '-', ""},  // no "t="
      {Rstr("<saml:Assertion ID=\"a\">\n</saml:Assertion>"), '-', ""},  // "." stops at a line end
      {Rstr(token + "<saml:Assertion>\n</saml:Assertion>"), 'T', token},
  };
  for (const auto& c : cases) {
    CredentialPtr made(CredentialFactory::CreateCredentialFromRstr(c.rstr));
    const ICredential* got = made.get();
    char kind = got == nullptr ? '-' : dynamic_cast<const BinaryTokenCredential*>(got) ? 'T'
                : dynamic_cast<const SamlAssertionCredential*>(got) ? 'A' : '?';
    EXPECT_EQ(c.kind, kind) << c.rstr;
    EXPECT_EQ(c.text, got != nullptr ? SamlText(got) : "") << c.rstr;
  }
}

}  // namespace
}  // namespace Vantrel::Auth
