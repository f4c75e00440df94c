// The debug dumps hide the OAuth secrets: form fields, the Authorization
// header (also in libcurl's verbose text, cut into pieces), and the tokens of
// a JSON answer. What goes on the wire stays whole.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "emulator/Emulator.h"
#include "network/NetworkControlLibcurl.h"
#include "network/SecretMask.h"
#include "support/LogCapture.h"

namespace Vantrel::Auth::testing {
namespace {

std::string MaskedForm(std::string text) { return MaskFormSecrets(&text[0]); }

TEST(SecretMaskTest, FormFieldsByExactName) {
  const std::pair<std::string, std::string> rows[] = {
      {"grant_type=password&client_id=c&username=u%40x&password=p%26w",
       "grant_type=password&client_id=c&username=u%40x&password=*"},
      {"client_assertion_type=urn%3Ajwt&client_assertion=eyJ.eyJ.sig&client_secret=s",
       "client_assertion_type=urn%3Ajwt&client_assertion=*&client_secret=*"},
      {"code=c0de&code_verifier=v&refresh_token=r&device_code=d&scope=a%20b",
       "code=*&code_verifier=*&refresh_token=*&device_code=*&scope=a%20b"},
      // Names compare exactly; an empty value stays empty; odd shapes survive.
      {"xcode=1&Password=2&password=&code&=3&&password=4", "xcode=1&Password=2&password=&code&=3&&password=*"},
      {"password==x=y", "password=*"},
      {"", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(MaskedForm(row.first), row.second) << row.first;
  EXPECT_EQ(MaskFormSecrets(nullptr), nullptr);
}

TEST(SecretMaskTest, JsonTokensWhereverTheyStand) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"token_type":"Bearer","expires_in":3599,"access_token":"eyJ0.x\"y\\","refresh_token" : "0.AR"})",
       R"({"token_type":"Bearer","expires_in":3599,"access_token":"*","refresh_token" : "*"})"},
      {R"({"id_token":"a.b.c","device_code":"DAQ","user_code":"ABCD","scope":"s"})",
       R"({"id_token":"*","device_code":"*","user_code":"ABCD","scope":"s"})"},
      // Not a string value, not the member name itself, cut short.
      {R"({"access_token":null,"my_access_token":"x","access_tokens":"y"})",
       R"({"access_token":null,"my_access_token":"x","access_tokens":"y"})"},
      {R"({"error":"invalid_grant","access_token":"trunc)", R"({"error":"invalid_grant","access_token":"*)"},
      {R"({"access_token":"ends in backslash\)", R"({"access_token":"*)"},
      {"\"access_token\"", "\"access_token\""},
      {"Unsupported app only token.", "Unsupported app only token."},
  };
  for (const auto& row : rows) EXPECT_EQ(MaskJsonSecrets(row.first), row.second) << row.first;
}

TEST(SecretMaskTest, CredentialHeadersKeepOnlyTheirScheme) {
  const struct { const char* name; const char* value; const char* logged; } rows[] = {
      {"Authorization", "Bearer eyJ0eXAi.x.y", "Bearer *"},
      {"authorization", "  Basic dTpw  ", "Basic *"},
      {"Proxy-Authorization", "Negotiate abc", "Negotiate *"},
      {"Authorization", "Bearer", "Bearer"},
      {"Authorization", "", ""},
      {"Accept", "application/json;odata=verbose", "application/json;odata=verbose"},
      {nullptr, "kept", "kept"},
  };
  for (const auto& row : rows) EXPECT_EQ(LoggableHeaderValue(row.name, row.value), row.logged) << row.value;
  EXPECT_EQ(LoggableHeaderValue("Authorization", nullptr), "");

  const std::pair<std::string, std::string> lines[] = {
      {"> Authorization: Bearer eyJ0", "> Authorization: Bearer *"},
      {"AUTHORIZATION:Bearer eyJ0\r", "AUTHORIZATION: Bearer *"},
      {"Authorization: Bearer", "Authorization: Bearer"},
  };
  for (const auto& line : lines) {
    EXPECT_TRUE(IsCredentialHeaderLine(line.first)) << line.first;
    EXPECT_EQ(MaskedHeaderLine(line.first), line.second);
  }
  for (const char* line : {"X-Authorization-Hint: a", "< WWW-Authenticate: Bearer realm=\"r\"", "Authorization"}) {
    EXPECT_FALSE(IsCredentialHeaderLine(line)) << line;
  }
}

// One exchange with every kind of secret, logged at debug level with libcurl's
// verbose text: no line holds any of them, and the wire got them whole.
TEST(SecretMaskTest, NoSecretInAnyDebugLineOfARealExchange) {
  const std::string token = "eyJ" + std::string(600, 'T') + ".tail";  // longer than a verbose piece
  const std::string body = "grant_type=refresh_token&client_id=app&refresh_token=R3fr35h&client_secret=S3cr3t";
  Emulation::Emulator emulator;
  ASSERT_TRUE(emulator.Start());
  emulator.Enqueue(Emulation::Response::Text(
      200, R"({"access_token":"A4cc355","refresh_token":"N3wR3fr35h","id_token":"1d.T0k.3n"})", "application/json"));
  ScopedLogCapture log;
  char dir[] = "/tmp/vantrel-mask-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(dir));
  AuthEngineConfig::SetTempLogDir(dir);
  auto transport = std::make_unique<NetworkControlLibcurl>();
  NetworkConfig config;
  NetworkResult result;
  config.SetUrl(emulator.HttpUrl("/token").c_str());
  config.SetVerbose(true);
  config.AddHeader("Authorization", ("Bearer " + token).c_str());
  config.SetPostData(body.c_str());
  ASSERT_EQ(transport->Exec(&config, &result), kAuthResultOk);
  NetworkResult::LogDump(&result);
  transport.reset();
  ASSERT_EQ(rmdir(dir), 0);

  const std::vector<Emulation::Request> sent = emulator.Requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].body, body);
  EXPECT_EQ(sent[0].Header("Authorization").value_or(""), "Bearer " + token);
  std::string all;
  for (const std::string& line : ScopedLogCapture::Lines()) all += line + "\n";
  for (const std::string& secret : {std::string("TTTTTTTT"), std::string(".tail"), std::string("R3fr35h"),
                                    std::string("S3cr3t"), std::string("A4cc355"), std::string("1d.T0k")}) {
    EXPECT_EQ(all.find(secret), std::string::npos) << secret;
  }
  for (const char* shown : {"Header: Authorization: Bearer *", "refresh_token=*&client_secret=*",
                                   "Authorization: Bearer *", R"("access_token":"*")"}) {
    EXPECT_NE(all.find(shown), std::string::npos) << shown;
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing
