// The texts of the OAuth sign-ins: challenges, token and device-code answers,
// ID token claims, base64url, random texts, form bodies, authority URLs.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VantrelAuthEngine.h"
#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/BearerChallenge.h"
#include "authenticators/oauth/DeviceCodeAnswer.h"
#include "authenticators/oauth/EntraAuthority.h"
#include "authenticators/oauth/FormBody.h"
#include "authenticators/oauth/IdTokenClaims.h"
#include "authenticators/oauth/RandomText.h"
#include "authenticators/oauth/TokenAnswer.h"
#include "network/NetworkControlLibcurl.h"

namespace Vantrel::Auth::testing {
namespace {

using nlohmann::json;
using std::string_literals::operator""s;

const char kIssuers[] = "00000001-0000-0000-c000-000000000000@*,D3776938-3DBA-481F-A652-4BEDFCAB7CD8@*,"
                        "https://sts.windows.net/*/,https://login.microsoftonline.com/*/v2.0";
const std::string kSharePointChallenge = "Bearer realm=\"5f3a1b2c-0d4e-4f60-8a7b-9c0d1e2f3a4b\",client_id=\"00000003-"
                                         "0000-0ff1-ce00-000000000000\",trusted_issuers=\"" + std::string(kIssuers) +
                                         "\",authorization_uri=\"https://login.windows.net/common/oauth2/authorize\"";

// `name` is asked besides realm; "" for `found` means absent.
TEST(BearerChallengeTest, FindsTheBearerChallengeInAnyHeaderValue) {
  const struct { std::string value; const char* realm; const char* name; const char* found; } rows[] = {
      {kSharePointChallenge, "5f3a1b2c-0d4e-4f60-8a7b-9c0d1e2f3a4b", "TRUSTED_ISSUERS", kIssuers},
      {"Basic realm=\"x, Bearer realm=no\", bEaReR REALM=t, Error=\"invalid_token\"", "t", "error", "invalid_token"},
      {"Negotiate YIIB+g==, NTLM, Bearer realm = \"t\" ,  , scope=s", "t", "scope", "s"},
      {"Bearer realm=\"a\\\"b\\\\c\\,d\"", "a\"b\\c,d", "x", ""},
      {"Bearer realm=x, Basic realm=y, error=z", "x", "error", ""},  // Basic's parameters are not Bearer's
      {"Bearer realm=x, realm=y", "x", "realm", "x"},                 // a repeated name can't take over
      {"Bearer realm=y, Basic realm=\"unterminated", "y", "x", ""},  // broken only after Bearer ended
      {"Bearer mF_9.B5f-4.1JqM+/==", "", "x", ""}, {"Bearer", "", "x", ""},  // a token68, nothing
  };
  for (const auto& row : rows) {
    BearerChallenge challenge;
    ASSERT_TRUE(BearerChallenge::Parse(row.value, &challenge)) << row.value;
    EXPECT_EQ(challenge.Get("Realm"), row.realm) << row.value;
    EXPECT_EQ(challenge.Get(row.name), row.found) << row.value;
    EXPECT_EQ(challenge.Has(row.name), *row.found != '\0') << row.value;
  }
  const std::string broken[] = {
      "Bearer realm=\"unterminated", "Bearer realm=\"ends in escape\\", "Basic realm=\"broken, Bearer realm=t",
      "Basic realm=x", "Bearer mF_9, realm=t" /* nothing follows a token68 */, "Bearer realm=x y", "Bearer realm==x",
      "Bearer realm=\"a\r\nX-Injected: b\"", "Bearer realm=t\0"s, "", "\xff\xfe=;;\x01",
  };
  for (const std::string& value : broken) {
    BearerChallenge challenge;
    BearerChallenge::Parse("Bearer realm=stale", &challenge);
    EXPECT_FALSE(BearerChallenge::Parse(value, &challenge)) << value;
    EXPECT_FALSE(challenge.Has("realm")) << value;  // nothing of an earlier parse survives
  }
}

TEST(TokenAnswerTest, ReadsSuccessesAndToleratesWrongTypes) {
  TokenAnswer answer;
  ASSERT_TRUE(TokenAnswer::Parse(json({{"token_type", "Bearer"}, {"scope", "s"}, {"expires_in", 3599},
                                       {"access_token", "eyJ0.a.b"}, {"refresh_token", "0.AX"}, {"id_token", "i"}})
                                     .dump(),
                                 &answer));
  EXPECT_EQ(std::string(answer.access_token.view()) + "|" + std::string(answer.refresh_token.view()) + "|" +
                std::string(answer.id_token.view()),
            "eyJ0.a.b|0.AX|i");
  std::string detail = "stale";
  EXPECT_EQ(answer.Classify(&detail), kAuthResultOk);
  EXPECT_EQ(detail, "");

  const struct { json expires_in; long long seconds; } expiries[] = {
      {"3599", 3599}, {3599.9, 3599}, {"1000000000", 1000000000}, {"1000000001", 0}, {"-5", 0},
      {"36 00", 0},   {1e300, 0},     {true, 0},  {18446744073709551615ull, 0},
  };
  for (const auto& row : expiries) {
    ASSERT_TRUE(TokenAnswer::Parse(json({{"access_token", "t"}, {"expires_in", row.expires_in}}).dump(), &answer));
    EXPECT_EQ(answer.expires_in, row.seconds) << row.expires_in;
  }

  ASSERT_TRUE(TokenAnswer::Parse(R"({"access_token":7,"error":{"a":1},"scope":null})", &answer));
  EXPECT_TRUE(answer.access_token.empty() && !answer.IsError());
  EXPECT_EQ(answer.Classify(&detail), kAuthResultAuthFailed);  // neither a token nor an error
  EXPECT_NE(detail, "");

  const std::string not_objects[] = {"<html>Bad Gateway</html>", "[1]", "{\"access_token\":", std::string(100000, '['),
                                     "{\"a\":\"\xff\"}"};
  for (const std::string& body : not_objects) EXPECT_FALSE(TokenAnswer::Parse(body, &answer)) << body.substr(0, 20);
  const std::string huge_token(1 << 20, 'x');
  ASSERT_TRUE(TokenAnswer::Parse(json({{"access_token", huge_token}}).dump(), &answer));
  EXPECT_EQ(answer.access_token.size(), huge_token.size());
}

TEST(TokenAnswerTest, ClassifiesErrorsByErrorAndCodesAlone) {
  const std::string trail = "\r\nTrace ID: 0a1b\r\nCorrelation ID: 2c3d\r\nTimestamp: 2026-05-02 10:00:00Z";
  const std::string long_line(2000, 'w');
  const AuthResult kAsk = kAuthResultInteractionRequired, kFail = kAuthResultAuthFailed;
  struct Row { const char* error; std::vector<json> codes; std::string description; AuthResult result; std::string detail; };
  std::vector<Row> rows = {
      {"invalid_grant", {50126}, "AADSTS50126: Error validating credentials." + trail, kFail,
       "AADSTS50126: Error validating credentials."},
      {"interaction_required", {}, "", kAsk, "interaction_required"},
      {"invalid_grant", {50126, 50076}, "AADSTS50126: Bad password.", kAsk, "AADSTS50126: Bad password."},
      {"invalid_grant", {"50076", 50126}, "Bad password.", kFail, "AADSTS50126: Bad password."},
      {"invalid_grant", {50126}, "AADSTS50076: interaction_required" + trail, kFail,  // the description never decides
       "AADSTS50126: AADSTS50076: interaction_required"},
      {"invalid_grant", {5012}, "AADSTS50126: Bad password.", kFail, "AADSTS5012: AADSTS50126: Bad password."},
      {"invalid_request", {90014}, "\r\nTrace ID: 1", kFail, "invalid_request"},
      {"invalid_grant", {50126}, long_line, kFail, "AADSTS50126: " + long_line},
  };
  for (int code : {50076, 50079, 65001, 53003, 700082, 50173, 70043}) {  // MFA, consent, policy, stale refresh
    const std::string line = "AADSTS" + std::to_string(code) + ": Sign in again.";
    rows.push_back({"invalid_grant", {code}, line + "\n" + trail, kAsk, line});
  }
  for (const auto& row : rows) {
    json body = {{"error", row.error}, {"error_codes", row.codes}, {"correlation_id", "2c3d"}};
    if (!row.description.empty()) body["error_description"] = row.description;
    TokenAnswer answer;
    std::string detail;
    ASSERT_TRUE(TokenAnswer::Parse(body.dump(), &answer) && answer.correlation_id == "2c3d");
    EXPECT_EQ(answer.Classify(&detail), row.result) << body;
    EXPECT_EQ(detail, row.detail) << body;
  }
}

TEST(DeviceCodeAnswerTest, NeedsBothCodesAndDefaultsTheTimes) {
  const json real = {{"device_code", "DAQABAAEAAAD"}, {"user_code", "FJ7QZK2LP"}, {"verification_uri", "https://v.test"},
                     {"expires_in", 900}, {"interval", 5}, {"message", "To sign in, open https://v.test."}};
  const struct { json changes; bool ok; long long interval, expires_in; } rows[] = {
      {{{"interval", 8}, {"expires_in", 1800}}, true, 8, 1800}, {{{"interval", "10"}, {"expires_in", "600"}}, true, 10, 600},
      {{{"interval", 0}, {"expires_in", 0}}, true, 5, 900},     {{{"interval", -3}, {"expires_in", "soon"}}, true, 5, 900},
      {{{"interval", nullptr}, {"expires_in", 1e12}}, true, 5, 900}, {{{"device_code", ""}}, false, 5, 900},
      {{{"device_code", 12345}}, false, 5, 900}, {{{"user_code", nullptr}}, false, 5, 900},
  };
  for (const auto& row : rows) {
    json body = real;
    body.update(row.changes);
    DeviceCodeAnswer answer;
    ASSERT_EQ(DeviceCodeAnswer::Parse(body.dump(), &answer), row.ok) << row.changes;
    EXPECT_EQ(answer.interval * 10000 + answer.expires_in, row.interval * 10000 + row.expires_in) << row.changes;
    EXPECT_EQ(answer.device_code.view(), row.ok ? "DAQABAAEAAAD" : "");
    EXPECT_EQ(answer.user_code + answer.verification_uri + answer.message,
              row.ok ? "FJ7QZK2LPhttps://v.testTo sign in, open https://v.test." : "");
  }
}

TEST(IdTokenClaimsTest, ReadsTheMiddlePartOnly) {
  const std::string header = Base64UrlEncode(R"({"typ":"JWT","alg":"RS256","kid":"k1"})") + ".";
  const std::string payload = Base64UrlEncode(R"({"preferred_username":"adele@contoso.com","tid":"t","oid":"o"})");
  const std::string padded = payload + std::string((4 - payload.size() % 4) % 4, '=');
  const struct { std::string token; bool ok; const char* claims; } rows[] = {
      {header + payload + ".c2lnbmF0dXJl", true, "adele@contoso.com t o"},
      {header + padded + ".", true, "adele@contoso.com t o"},  // padded, unsigned
      {header + Base64UrlEncode(R"({"preferred_username":["a"],"tid":7})") + ".c2ln", true, "  "},
      {header + payload, false, "  "},
      {header + payload + ".c2ln.ZXh0cmE", false, "  "},
      {header + "." + payload, false, "  "},
      {header + payload.substr(0, 10) + "*" + payload.substr(10) + ".c2ln", false, "  "},
      {header + Base64UrlEncode("[\"array\"]") + ".c2ln", false, "  "},
  };
  for (const auto& row : rows) {
    IdTokenClaims claims;
    claims.tenant_id = "stale";
    EXPECT_EQ(IdTokenClaims::Read(row.token, &claims), row.ok) << row.token;
    EXPECT_EQ(claims.preferred_username + " " + claims.tenant_id + " " + claims.object_id, row.claims) << row.token;
  }
}

TEST(Base64UrlTest, MatchesTheStandardVectorsAndRoundTrips) {
  const struct { std::string bytes, text; } vectors[] = {
      {"", ""}, {"f", "Zg"}, {"fo", "Zm8"}, {"foo", "Zm9v"}, {"foob", "Zm9vYg"}, {"\xfb\xff\xbf\x00"s, "-_-_AA"},
  };
  std::string bytes;
  for (const auto& vector : vectors) {
    EXPECT_EQ(Base64UrlEncode(vector.bytes), vector.text);
    ASSERT_TRUE(Base64UrlDecode(vector.text, &bytes)) << vector.text;
    EXPECT_EQ(bytes, vector.bytes);
  }
  EXPECT_TRUE(Base64UrlDecode("Zm8=", &bytes) && bytes == "fo");  // padding is tolerated, but must fit
  for (const char* text : {"Zg=", "Zg===", "Z", "Zm9vY", "Zm9v+g", "Zm9v/g", "Zm 9v\n", "Zg==Zg==", "=="}) {
    EXPECT_FALSE(Base64UrlDecode(text, &bytes)) << text;
  }
  // Lengths around each remainder, and beyond the pieces OpenSSL is handed at once.
  std::mt19937 random(7);
  for (size_t size : {12287u, 12288u, 12289u, 16385u, 100001u}) {
    std::string data(size, '\0');
    for (char& c : data) c = static_cast<char>(random());
    const std::string text = Base64UrlEncode(data);
    EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"), text.npos);
    ASSERT_TRUE(Base64UrlDecode(text, &bytes)) << size;
    EXPECT_EQ(bytes, data) << size;
  }
}

TEST(RandomTextTest, GuidsAndUnreservedTextsAreWellFormedAndUnbiased) {
  std::string first, second;
  ASSERT_TRUE(RandomGuid(&first) && RandomGuid(&second) && first != second);
  const std::regex guid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  EXPECT_TRUE(std::regex_match(first, guid)) << first;
  // A bare "byte % 66" draws each of the first 58 characters 4/3 as often as
  // the last 8: chi-square (65 degrees of freedom) far above 140, which a
  // fair draw passes with p < 1e-6.
  const std::string set = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  const double per_char = 2000;
  ASSERT_TRUE(RandomUnreserved(set.size() * 2000, &first));
  std::map<char, size_t> counts;
  for (char c : first) ++counts[c];
  double chi_square = 0;
  for (const auto& [c, count] : counts) {
    EXPECT_NE(set.find(c), std::string::npos) << c;
    chi_square += (count - per_char) * (count - per_char) / per_char;
  }
  EXPECT_EQ(counts.size(), set.size());
  EXPECT_LT(chi_square, 140.0);
}

// Escapes through libcurl, refuses call number `refuse_at`, and checks that
// each escaped text comes back wiped.
struct EscapingTransport : NetworkControlLibcurl {
  char* Escape(const char* text) override {
    char* escaped = ++calls == refuse_at ? nullptr : NetworkControlLibcurl::Escape(text);
    if (escaped != nullptr) sizes[escaped] = std::strlen(escaped);
    return escaped;
  }
  void FreeEscaped(char* text) override {
    EXPECT_EQ(std::string(text, sizes[text]), std::string(sizes[text], '\0')) << "escaped text freed unwiped";
    sizes.erase(text);
    NetworkControlLibcurl::FreeEscaped(text);
  }
  int refuse_at = 0, calls = 0;
  std::map<char*, size_t> sizes;
};

TEST(FormBodyTest, EscapesEachValueAndFailsForGoodOnARefusal) {
  const struct { int refuse_at; std::string password; int calls; const char* text; } rows[] = {
      {0, "p&=+ x/é", 4, "grant_type=password&username=adele%40contoso.com&password=p%26%3D%2B%20x%2F%C3%A9&scope=s"},
      {0, "", 4, "grant_type=password&username=adele%40contoso.com&password=&scope=s"},
      {3, "secret", 3, ""},  // no call after a refusal, and no part of the body left
      {1, "secret", 1, ""},
      {0, "cut\0here"s, 2, ""},
  };
  for (const auto& row : rows) {
    EscapingTransport transport;
    transport.refuse_at = row.refuse_at;
    FormBody body(&transport);
    for (const auto& [name, value] : {std::pair<const char*, std::string>{"grant_type", "password"},
                                      {"username", "adele@contoso.com"}, {"password", row.password}, {"scope", "s"}}) {
      body.Add(name, value);
    }
    EXPECT_EQ(body.ok(), *row.text != '\0') << row.refuse_at;
    EXPECT_EQ(body.text().view(), row.text) << row.refuse_at;
    EXPECT_EQ(transport.calls, row.calls);
    EXPECT_TRUE(transport.sizes.empty()) << "escaped text not given back";
  }
  FormBody without_transport(nullptr);
  without_transport.Add("a", "b");
  EXPECT_FALSE(without_transport.ok());
}

TEST(EntraAuthorityTest, ChoosesTheCloudByTheSiteHost) {
  const char* const kGlobal = "https://login.microsoftonline.com";
  const char* const kUs = "https://login.microsoftonline.us";
  const char* const kCn = "https://login.partner.microsoftonline.cn";
  const struct { const char* site; const char* host; const char* authority; } rows[] = {
      {"https://Contoso.SharePoint.US:443/sites/x?a=b", "contoso.sharepoint.us", kUs},
      {"CONTOSO.SHAREPOINT.CN", "contoso.sharepoint.cn", kCn},
      {"https://user:pw@contoso.sharepoint.cn:8443#frag", "contoso.sharepoint.cn", kCn},
      {"https://contoso.sharepoint.us./", "contoso.sharepoint.us.", kUs},
      {"https://sharepoint.us.evil.test/", "sharepoint.us.evil.test", kGlobal},
      {"https://evilsharepoint.us/", "evilsharepoint.us", kGlobal},
      {"https://host?next=@contoso.sharepoint.us", "host", kGlobal},
      {"https://[::1]:8443/", "[::1]", kGlobal},
      {"https://[::1/", "", kGlobal},
      {"https://a.sharepoint.us\r\nX: y/", "", kGlobal},
      {"", "", kGlobal},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(EntraAuthority::HostOf(row.site), row.host) << row.site;
    EXPECT_EQ(EntraAuthority::OriginOf(row.site), *row.host ? "https://"s + row.host : "") << row.site;
    EXPECT_EQ(EntraAuthority::ForSiteHost(row.site), row.authority) << row.site;
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing
