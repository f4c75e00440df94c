// The libcurl transport against the loopback emulator, then the records on
// their own: header and cookie lines, log dumps, null arguments.
#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "emulator/Emulator.h"
#include "network/HeaderLine.h"
#include "network/NetscapeCookie.h"
#include "network/NetworkControlLibcurl.h"
#include "support/HostileBodies.h"
#include "support/LogCapture.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Emulator;
using Emulation::Response;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitizer = false;
#endif

class TransportTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(emulator_.Start()); }

  // A path goes to the emulator with a scripted 200; anything else is a URL.
  AuthResult Exec(const std::string& where, NetworkControlLibcurl* transport = nullptr) {
    if (where[0] == '/') emulator_.Enqueue(Response::Text(200, "ok"));
    config_.SetUrl(where[0] == '/' ? emulator_.HttpUrl(where).c_str() : where.c_str());
    return (transport != nullptr ? transport : &transport_)->Exec(&config_, &result_);
  }
  std::string Cookies() const {  // "name=value domain;" for each
    std::string out;
    for (CookieNode* n = result_.GetCookies(); n != nullptr; n = n->next) {
      out += std::string(n->cookie->GetName()) + "=" + n->cookie->GetValue() + " " + n->cookie->GetDomain() + ";";
    }
    return out;
  }

  Emulator emulator_;
  NetworkControlLibcurl transport_;
  NetworkConfig config_;
  NetworkResult result_;
};

TEST_F(TransportTest, RequestGoesOutAsDescribed) {
  const std::string body = "<s:Envelope><password>secret</password></s:Envelope>";
  config_.AddHeader("Content-Type", "text/xml; charset=utf-8");
  config_.AddHeader(nullptr, "no name");
  config_.AddHeader("X-No-Value", nullptr);
  config_.AddHeader("SOAPAction", "urn:Login");
  config_.AddHeader("SOAPAction", "again");
  config_.SetPostData(body.c_str());
  ASSERT_EQ(kAuthResultOk, Exec("/_vti_bin/authentication.asmx"));
  const std::string host = "Host: 127.0.0.1:" + std::to_string(emulator_.HttpPort()) + "\r\n";
  EXPECT_EQ("POST /_vti_bin/authentication.asmx HTTP/1.1\r\n" + host +
                "Accept: */*\r\nSOAPAction: again\r\nSOAPAction: urn:Login\r\n"
                "Content-Type: text/xml; charset=utf-8\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body,  // unmasked
            emulator_.Requests().at(0).Raw());

  for (const char* no_body : {"", static_cast<const char*>(nullptr)}) {
    config_.Reset();
    config_.SetPostData(no_body);
    ASSERT_EQ(kAuthResultOk, Exec("/g"));
    EXPECT_EQ("GET /g HTTP/1.1\r\n" + host + "Accept: */*\r\n\r\n", emulator_.Requests().back().Raw());
  }
}

// Cookies don't carry over, a redirect isn't followed; of a transfer cut short
// what arrived stays, with libcurl's text and without the cookies.
TEST_F(TransportTest, ResponseFillsTheResult) {
  Response first = Response::Text(500, std::string("<a>\0b", 5), "text/xml");
  first.SetCookie("FedAuth=77u/; path=/; HttpOnly").SetCookie("Other=1");
  emulator_.Enqueue(first);
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/first")));
  EXPECT_EQ(500, result_.GetResponseCode());
  EXPECT_STREQ("", result_.GetErrorMsg());
  EXPECT_EQ(std::string("<a>\0b", 5), result_.GetBody());
  EXPECT_EQ("Other=1 127.0.0.1;FedAuth=77u/ 127.0.0.1;", Cookies());  // reversed: libcurl's order is its own

  emulator_.Enqueue(Response::Redirect(302, "http://127.0.0.1:1/elsewhere").SetCookie("Third=3"));
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/second")));
  EXPECT_EQ(302, result_.GetResponseCode());
  EXPECT_STREQ("http://127.0.0.1:1/elsewhere", result_.GetHeader("Location"));
  ASSERT_EQ(2u, emulator_.Requests().size());
  EXPECT_FALSE(emulator_.Requests()[1].Header("Cookie").has_value());
  EXPECT_EQ("Third=3 127.0.0.1;", Cookies());

  EXPECT_EQ(kAuthResultSendFailed, Exec("http://127.0.0.1:1/"));  // nobody listens there
  EXPECT_EQ("Failed to connect to 127.0.0.1 port 1 ", std::string(result_.GetErrorMsg()).substr(0, 38));
  Response dropped = Response::Text(200, std::string(1 << 20, 'x'));
  dropped.SetCookie("FedAuth=lost");
  dropped.close_after_body_bytes = 100000;
  emulator_.Enqueue(dropped);
  EXPECT_EQ(kAuthResultSendFailed, Exec(emulator_.HttpUrl("/drop")));
  EXPECT_EQ(100000u, result_.GetBody().size());
  EXPECT_EQ(0, result_.GetResponseCode());
  EXPECT_EQ(nullptr, result_.GetCookies());
  EXPECT_NE(std::string::npos, std::string(result_.GetErrorMsg()).find("transfer closed")) << result_.GetErrorMsg();
}

TEST_F(TransportTest, HttpsVerificationFollowsTheConfig) {
  Emulator::Options options;
  options.https_names = {"elsewhere.test"};
  options.https_leaf_for_any_name = false;
  Emulator misnamed(options);
  ASSERT_TRUE(misnamed.Start());
  const char* ca = emulator_.CaFile().c_str();
  const char* misnamed_ca = misnamed.CaFile().c_str();
  struct { Emulator* server; const char* ca_file; bool verify_cert, verify_host; AuthResult expected; } cases[] = {
      {&emulator_, ca, true, true, kAuthResultOk},
      {&misnamed, misnamed_ca, true, true, kAuthResultSendFailed},
      {&misnamed, misnamed_ca, true, false, kAuthResultOk},
      {&misnamed, ca, true, false, kAuthResultSendFailed},  // another CA's file
      {&misnamed, ca, false, false, kAuthResultOk},
  };
  // libcurl refuses SSLv3 at setopt time and goes on with its default; Reset keeps it.
  config_.SetSslVersion(kSslVersionSsl3);
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    c.server->Enqueue(Response::Text(200, "ok"));
    config_.Reset();
    config_.SetSslUsed(true);
    config_.SetCaFile(c.ca_file);
    config_.SetVerifyCert(c.verify_cert);
    config_.SetVerifyHost(c.verify_host);
    EXPECT_EQ(c.expected, Exec(c.server->HttpsUrl("/s"))) << result_.GetErrorMsg();
  }
}

TEST_F(TransportTest, LargeBodyWithNulBytesArrivesWholeInBoundedMemory) {
  const size_t size = size_t{64} << 20;
  Response response;
  response.body.resize(size);  // NULs among the bytes, in a pattern of prime period
  for (size_t i = 0; i < size; ++i) response.body[i] = static_cast<char>(i % 65521 * 7 % 251);
  const std::string expected = response.body;
  emulator_.Enqueue(std::move(response));
  AuthResult result = kAuthResultInternalError;
  Cost cost = Measure([&] { result = Exec(emulator_.HttpUrl("/big")); });
  ASSERT_EQ(kAuthResultOk, result);
  EXPECT_TRUE(result_.GetBody() == expected);
  // The buffer with its growth and GetBody's copy; ASan's quarantine keeps freed buffers resident.
  if (cost.peak_bytes != 0 && !kAddressSanitizer) { EXPECT_LT(cost.peak_bytes - cost.start_bytes, 4 * size); }
}

TEST_F(TransportTest, VerboseTextIsCapturedPerRequestInShortLinesAndRemovedAtTheEnd) {
  ScopedLogCapture log;
  EXPECT_EQ(nullptr, transport_.GetCurlLogFile());  // no directory, no file to create
  AuthEngineConfig::SetTempLogDir("");
  EXPECT_EQ(nullptr, NetworkControlLibcurl().GetCurlLogFile());
  config_.SetVerbose(true);
  char dir[] = "/tmp/vantrel-verbose-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(dir));
  AuthEngineConfig::SetTempLogDir(dir);
  auto transport = std::make_unique<NetworkControlLibcurl>();
  const std::string path = transport->GetCurlLogFile() != nullptr ? transport->GetCurlLogFile() : "";
  EXPECT_EQ(std::string(dir) + "/authengine.", path.substr(0, sizeof dir + 11));

  config_.AddHeader("X-Long", std::string(450, 'L').c_str());
  ASSERT_EQ(kAuthResultOk, Exec("/first", transport.get()));
  const std::string where = "NetworkControlLibcurl::SendRequest: libcurl verbose output ";
  const std::vector<std::string> lines = ScopedLogCapture::Lines();
  const long begin = ScopedLogCapture::IndexOf(where + "BEGIN ....."), end = ScopedLogCapture::IndexOf(where + "END.");
  ASSERT_TRUE(begin >= 0 && end > begin);
  std::string joined;
  for (long i = begin + 1; i < end; ++i) {
    EXPECT_TRUE(lines[i].size() <= 199 && lines[i].find('\n') == std::string::npos) << lines[i];
    joined += lines[i] + "|";
  }
  EXPECT_NE(std::string::npos, joined.find("|> GET /first HTTP/1.1"));
  // fgets cuts the long header line into pieces of 199 characters.
  EXPECT_NE(std::string::npos, joined.find("|X-Long: " + std::string(191, 'L') + "|" + std::string(199, 'L') + "|"));

  ASSERT_EQ(kAuthResultOk, Exec("/second", transport.get()));
  std::ifstream file(path);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_NE(std::string::npos, content.find("GET /second"));
  EXPECT_EQ(std::string::npos, content.find("GET /first"));  // emptied per request
  transport.reset();
  EXPECT_EQ(0, rmdir(dir));  // the file went with the transport, and nothing else was made
}

TEST(HeaderLineTest, SplitsAtTheFirstColonAndTrimsAndGetHeaderFindsTheLast) {
  const std::string colons(100000, ':');
  const std::pair<std::string, std::string> cases[] = {
      {"Location :  https://h:8443/a?b=c:d \r\n", "[Location][https://h:8443/a?b=c:d]"},
      {"X-Empty:   \r\n", "[X-Empty][\n]"},  // the line feed is the value
      {"HTTP/1.1 500 Bad: thing\r\n", "[HTTP/1.1 500 Bad][thing]"},
      {"HTTP/1.1 200 OK\r\n", ""},
      {": no name\r\n", ""},
      {std::string("A: b\0C: d\r\n", 11), "[A][b]"},  // up to a NUL only
      {colons + "x", "[:][" + colons.substr(1) + "x]"},
      {std::string(100000, ' ') + "\r\n", ""},
  };
  for (const auto& c : cases) {
    NetworkResult result;
    ParseHeaderLine(c.first.data(), c.first.size(), &result);
    std::string parsed;
    for (HeaderNode* node = result.GetHeaders(); node != nullptr; node = node->next) {
      parsed += std::string("[") + node->header->name + "][" + node->header->value + "]";
    }
    EXPECT_EQ(c.second, parsed) << c.first.substr(0, 40);
  }
  NetworkResult result;
  ParseHeaderLine("A: bcdef", 4, &result);  // the length counts, not the NUL
  EXPECT_STREQ("b", result.GetHeader("A"));
  // GetHeader takes the last received non-empty one, case-sensitively.
  for (const char* value : {"/first", "/second", ""}) result.AddHeader("Location", value);
  result.AddHeader("location", "/lower");
  result.AddHeader("X-Only-Empty", "");
  EXPECT_STREQ("/second", result.GetHeader("Location"));  // "" doesn't hide the one before
  EXPECT_STREQ("", result.GetHeader("X-Only-Empty"));
}

TEST(NetscapeCookieTest, FieldsConversionsAndMalformedLines) {
  const char* untouched = "(null)|(null)|untouched|(null)|0";
  const std::pair<const char*, const char*> cases[] = {
      {"#HttpOnly_.contoso.com\tTRUE\t/\tTRUE\t0\tFedAuth\t77u/", ".contoso.com|/|FedAuth|77u/|0 httponly tail secure"},
      // The marker and "TRUE" count only in libcurl's exact spelling.
      {"#httponly_h\ttrue\t/p\tyes\t1700000000\tn\t", "#httponly_h|/p|n||1700000000"},
      {"x#HttpOnly_h\tFALSE\t/\tFALSE\tsoon\tn\tv", "x#HttpOnly_h|/|n|v|0"},
      // The last six tabs separate; extra ones belong to the domain.
      {"a\tb\th\tFALSE\t/\tFALSE\t12abc\tn\tv", "a\tb\th|/|n|v|12"},
      {"h\tTRUE\t/\tTRUE\t0\tname", "(null)|(null)|(null)|(null)|0"},  // reset
      {"", untouched},
      {nullptr, untouched},
  };
  auto text = [](const char* s) { return std::string(s ? s : "(null)"); };
  for (const auto& c : cases) {
    Cookie k;  // named, to tell a line that isn't looked at from one that resets
    k.SetName("untouched");
    ParseNetscapeCookie(&k, c.first);
    EXPECT_EQ(c.second, text(k.GetDomain()) + "|" + text(k.GetPath()) + "|" + text(k.GetName()) + "|" +
                            text(k.GetValue()) + "|" + std::to_string(k.GetExpires()) +
                            (k.IsHttpOnlyEnabled() ? " httponly" : "") + (k.IsTailMatchEnabled() ? " tail" : "") +
                            (k.IsSecureEnabled() ? " secure" : ""));
  }
}

// POST data masked in the log only; headers newest first; a body up to its NUL;
// expiry 0 as "(none)" for a response, as the time 0 for a cookie; no formats.
TEST(LogDumpTest, RequestResponseAndCookie) {
  ScopedLogCapture log;
  NetworkConfig config;
  const char body[] = "<s:Envelope><o:Password Type=\"t\">se%cret</o:Password></s:Envelope>";
  config.SetUrl("https://contoso.com/x");
  config.AddHeader(nullptr, "orphan");
  config.SetPostData(body);
  config.SetSslUsed(true);
  config.SetVerifyHost(false);
  config.SetSslVersion(static_cast<SslVersion>(7));
  NetworkResult result;
  result.AddHeader("A", "1");
  result.AddHeader("B", nullptr);
  Cookie cookie;
  cookie.SetName("rtFa");
  cookie.SetValue("v%sv");
  cookie.EnableTailMatch(true);
  result.AddCookie(&cookie);
  result.AppendBody("<a>\0hidden", 10);
  for (const NetworkConfig* c : {static_cast<NetworkConfig*>(nullptr), &config}) NetworkConfig::LogDump(c);
  for (const NetworkResult* r : {static_cast<NetworkResult*>(nullptr), &result}) NetworkResult::LogDump(r);
  for (const Cookie* c : {static_cast<Cookie*>(nullptr), &cookie}) Cookie::LogDump(c);
  const std::string q = "NetworkConfig::LogDump - ", p = "NetworkResult::LogDump - ", c = "Cookie::LogDump - ";
  time_t zero = 0;
  for (const std::string& line : {q + "Nothing to print; NetworkConfig is NULL.", q + "Header: : orphan",
                                  q + "SSL Used: Y, Verf_host: N, Verf_cert: Y", q + "SSL Version: ?",
                                  q + "POST data: <s:Envelope><o:Password Type=\"t\">*</o:Password></s:Envelope>",
                                  p + "Nothing to print; NetworkResult is NULL.", p + "Response: <a>",
                                  p + "    Cookie Expiry: (none), HttpOnly: N, TailMatch: Y, Secure: N",
                                  p + "    Cookie Value: v%sv", c + "Nothing to print; Cookie is NULL.",
                                  c + "Cookie Expiry: " + std::ctime(&zero) + ", HttpOnly: N, TailMatch: Y, Secure: N"}) {
    EXPECT_GE(ScopedLogCapture::IndexOf(line), 0) << line;
  }
  EXPECT_LT(ScopedLogCapture::IndexOf(p + "Header: B: "), ScopedLogCapture::IndexOf(p + "Header: A: 1"));
  EXPECT_STREQ(body, config.GetPostData());  // what goes out is never masked
}

TEST(NullArgumentTest, TransportAndRecordsTakeNulls) {
  ScopedLogCapture log;  // the dumps format what is null too
  NetworkControlLibcurl transport;
  NetworkResult result;
  EXPECT_EQ(transport.Exec(nullptr, &result), kAuthResultInternalError);
  EXPECT_EQ(transport.Escape(nullptr), nullptr);
  transport.FreeEscaped(nullptr);
  EXPECT_EQ(result.GetHeader(nullptr), nullptr);
  result.AddHeader(nullptr, nullptr);
  result.AddCookie(nullptr);
  result.SetErrorMsg(nullptr);
  EXPECT_STREQ(result.GetErrorMsg(), "");
  NetworkResult::LogDump(&result);
  Cookie cookie;
  for (auto set : {&Cookie::SetName, &Cookie::SetValue, &Cookie::SetDomain, &Cookie::SetPath}) (cookie.*set)(nullptr);
  Cookie::Copy(nullptr, &cookie);
  Cookie::Copy(&cookie, nullptr);
  Cookie::LogDump(&cookie);
}

}  // namespace
}  // namespace Vantrel::Auth::testing
