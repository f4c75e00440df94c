// The libcurl transport over the wire against the loopback emulator, then the
// records on their own: header and cookie lines, masking and log dumps.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "Cookie.h"
#include "HeaderLine.h"
#include "NetscapeCookie.h"
#include "NetworkConfig.h"
#include "NetworkControlLibcurl.h"
#include "NetworkResult.h"
#include "emulator/Emulator.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using Emulation::Emulator;
using Emulation::Response;
using testing::ScopedLogCapture;

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
  std::string Cookies() const {  // "name=value domain;" for each cookie in the result

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

  emulator_.Enqueue(Response::Text(200, "via proxy"));
  config_.SetProxy(emulator_.ProxyUrl().c_str());
  ASSERT_EQ(kAuthResultOk, Exec("http://www.contoso.example/plain"));
  EXPECT_EQ("http://www.contoso.example/plain", emulator_.Requests().back().target);
}

TEST_F(TransportTest, ResponseFillsResultAndCookiesDoNotCarryOver) {
  Response first = Response::Text(500, std::string("<a>\0b", 5), "text/xml");
  first.SetCookie("FedAuth=77u/; path=/; HttpOnly").SetCookie("Other=1");
  emulator_.Enqueue(first);
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/first")));
  EXPECT_EQ(500, result_.GetResponseCode());
  EXPECT_STREQ("", result_.GetErrorMsg());
  EXPECT_EQ(std::string("<a>\0b", 5), result_.GetBody());
  // libcurl lists cookies in its own order; the result holds them reversed.
  EXPECT_EQ("Other=1 127.0.0.1;FedAuth=77u/ 127.0.0.1;", Cookies());

  emulator_.Enqueue(Response::Redirect(302, "http://127.0.0.1:1/elsewhere").SetCookie("Third=3"));
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/second")));
  EXPECT_EQ(302, result_.GetResponseCode());
  EXPECT_STREQ("http://127.0.0.1:1/elsewhere", result_.GetHeader("Location"));
  ASSERT_EQ(2u, emulator_.Requests().size());  // the redirect was not followed
  EXPECT_FALSE(emulator_.Requests()[1].Header("Cookie").has_value());
  EXPECT_EQ("Third=3 127.0.0.1;", Cookies());
}

TEST_F(TransportTest, FailedTransfersReportLibcurlsText) {
  EXPECT_EQ(kAuthResultSendFailed, Exec("http://127.0.0.1:1/"));  // nobody listens there
  EXPECT_EQ("Failed to connect to 127.0.0.1 port 1 ", std::string(result_.GetErrorMsg()).substr(0, 38));

  Response dropped = Response::Text(200, std::string(1 << 20, 'x'));
  dropped.SetCookie("FedAuth=lost");
  dropped.close_after_body_bytes = 100000;
  emulator_.Enqueue(dropped);
  EXPECT_EQ(kAuthResultSendFailed, Exec(emulator_.HttpUrl("/drop")));
  EXPECT_EQ(100000u, result_.GetBody().size());  // what arrived stays
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
  struct { Emulator* server; const char* ca_file; bool verify_host; AuthResult expected; } cases[] = {
      {&emulator_, ca, true, kAuthResultOk},
      {&misnamed, misnamed.CaFile().c_str(), true, kAuthResultSendFailed},
      {&misnamed, misnamed.CaFile().c_str(), false, kAuthResultOk},
      {&misnamed, ca, false, kAuthResultSendFailed},  // another CA's file
  };
  // libcurl refuses SSLv3 at setopt time and goes on with its default; Reset keeps it.
  config_.SetSslVersion(kSslVersionSsl3);
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    c.server->Enqueue(Response::Text(200, "ok"));
    config_.Reset();
    config_.SetSslUsed(true);
    config_.SetCaFile(c.ca_file);
    config_.SetVerifyHost(c.verify_host);
    EXPECT_EQ(c.expected, Exec(c.server->HttpsUrl("/s"))) << result_.GetErrorMsg();
  }
}

long StatusKb(const std::string& field) {  // "VmRSS:" now, "VmHWM:" peak
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line) && line.rfind(field, 0) != 0) continue;
  return status ? std::atol(line.c_str() + field.size()) : -1;
}

TEST_F(TransportTest, LargeBodyWithNulBytesArrivesWholeInBoundedMemory) {
  const size_t size = size_t{64} << 20;
  Response response;
  response.body.resize(size);  // NULs among the bytes, in a pattern of prime period
  for (size_t i = 0; i < size; ++i) response.body[i] = static_cast<char>(i % 65521 * 7 % 251);
  const std::string expected = response.body;
  bool peak_reset = static_cast<bool>(std::ofstream("/proc/self/clear_refs") << "5");  // earlier peaks don't count
  long start_kb = StatusKb("VmRSS:");
  emulator_.Enqueue(std::move(response));
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/big")));
  EXPECT_TRUE(result_.GetBody() == expected);
  // The result's buffer with its growth and GetBody's copy. AddressSanitizer's quarantine
  // keeps freed buffers resident, so there the figure says nothing about the library.
  if (peak_reset && !kAddressSanitizer) {
    EXPECT_LT(StatusKb("VmHWM:") - start_kb, static_cast<long>(4 * size / 1024));
  }
}

// The log lines between the capture's BEGIN and END markers.
std::vector<std::string> VerboseLines() {
  const std::string where = "NetworkControlLibcurl::SendRequest: libcurl verbose output ";
  std::vector<std::string> lines = ScopedLogCapture::Lines();
  long begin = ScopedLogCapture::IndexOf(where + "BEGIN ....."), end = ScopedLogCapture::IndexOf(where + "END.");
  if (begin < 0 || end < begin) return {};
  return std::vector<std::string>(lines.begin() + begin + 1, lines.begin() + end);
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
  std::string joined;
  for (const std::string& line : VerboseLines()) {
    EXPECT_TRUE(line.size() <= 199 && line.find('\n') == std::string::npos) << line;
    joined += line + "|";
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
  EXPECT_EQ(0, rmdir(dir));  // the destructor removed the file, and nothing else was made
}

std::string CtimeText(time_t when) { return std::ctime(&when); }

TEST(HeaderLineTest, SplitsAtTheFirstColonAndTrimsAndGetHeaderFindsTheLast) {
  const std::string colons(100000, ':');
  const std::pair<std::string, std::string> cases[] = {
      {"Content-Type: text/xml; charset=utf-8\r\n", "[Content-Type][text/xml; charset=utf-8]"},
      {"Location :  https://h:8443/a?b=c:d \r\n", "[Location][https://h:8443/a?b=c:d]"},
      {"X-Empty:   \r\n", "[X-Empty][\n]"},  // the line feed is the value
      {"HTTP/1.1 500 Bad: thing\r\n", "[HTTP/1.1 500 Bad][thing]"},
      {"HTTP/1.1 200 OK\r\n", ""},
      {"\r\n", ""},
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
  EXPECT_EQ(nullptr, result.GetHeader("A"));
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

TEST(MaskPasswordTest, MasksOnlyTheLastElementAndNeverGrows) {
  const char* cases[][2] = {
      {"<password>abc</password>", "<password>*</password>"},
      {"<password>a</password>", "<password>*</password>"},
      {"<PASSWORD>abc</PASSWORD>", "<PASSWORD>*</PASSWORD>"},
      {"x\n<o:Password\nType=\"a\">p\nq</o:Password>\ny", "x\n<o:Password\nType=\"a\">*</o:Password>\ny"},
      {"<password>one</password><password>two</password>", "<password>one</password><password>*</password>"},
      {"<password></password>", "<password></password>"},  // masking would grow it
      {"user=a&password=secret", "user=a&password=secret"},
      {"<password>open", "<password>open"},
  };
  for (const auto& c : cases) {
    std::string text = c[0];
    EXPECT_EQ(&text[0], MaskPassword(&text[0]));
    EXPECT_STREQ(c[1], text.c_str()) << c[0];
  }
  EXPECT_EQ(nullptr, MaskPassword(nullptr));
}

TEST(LogDumpTest, NetworkConfigMasksOnlyTheLoggedBody) {
  ScopedLogCapture log;
  NetworkConfig::LogDump(nullptr);
  NetworkConfig config;
  const char body[] = "<s:Envelope><o:Password Type=\"t\">se%cret</o:Password></s:Envelope>";
  config.SetUrl("https://contoso.com/x");
  config.AddHeader("SOAPAction", "Login");
  config.AddHeader(nullptr, "orphan");
  config.SetPostData(body);
  config.SetSslUsed(true);
  config.SetVerifyHost(false);
  config.SetSslVersion(static_cast<SslVersion>(7));
  config.SetVerbose(true);
  config.SetProxy("http://127.0.0.1:3128");
  NetworkConfig::LogDump(&config);
  const std::string p = "NetworkConfig::LogDump - ";
  EXPECT_EQ((std::vector<std::string>{
                p + "Nothing to print; NetworkConfig is NULL.", p + "URL: https://contoso.com/x",
                p + "Printing Header(s) .....", p + "Header: : orphan", p + "Header: SOAPAction: Login",
                p + "Printing Header(s) - Done", p + "SSL Used: Y, Verf_host: N, Verf_cert: Y",
                p + "SSL Version: ?", p + "CA file: ", p + "Verbose: Y", p + "Proxy: http://127.0.0.1:3128",
                p + "POST data: <s:Envelope><o:Password Type=\"t\">*</o:Password></s:Envelope>"}),
            ScopedLogCapture::Lines());
  EXPECT_STREQ(body, config.GetPostData());  // what goes out is never masked
}

TEST(LogDumpTest, NetworkResultAndCookie) {
  ScopedLogCapture log;
  NetworkResult result;
  result.SetResponseCode(-1);
  result.SetErrorMsg("boom");
  result.AddHeader("A", "1");
  result.AddHeader("B", nullptr);
  Cookie cookie;
  cookie.SetName("rtFa");
  cookie.SetValue("v%sv");
  cookie.EnableTailMatch(true);
  result.AddCookie(&cookie);
  result.AppendBody("<a>\0hidden", 10);
  for (const NetworkResult* r : {static_cast<NetworkResult*>(nullptr), &result}) NetworkResult::LogDump(r);
  for (const Cookie* c : {static_cast<Cookie*>(nullptr), &cookie}) Cookie::LogDump(c);
  const std::string p = "NetworkResult::LogDump - ", c = "Cookie::LogDump - ";
  EXPECT_EQ((std::vector<std::string>{
                p + "Nothing to print; NetworkResult is NULL.", p + "Response code: -1", p + "Error detail: boom",
                p + "Printing Header(s) .....", p + "Header: B: ", p + "Header: A: 1", p + "Printing Header(s) - Done",
                p + "Printing cookie(s) ..... ", p + "    Cookie Name: rtFa, Domain: , Path: ",
                p + "    Cookie Expiry: (none), HttpOnly: N, TailMatch: Y, Secure: N", p + "    Cookie Value: v%sv",
                p + "Printing cookie(s) done.", p + "Response: <a>",
                c + "Nothing to print; Cookie is NULL.", c + "Cookie Name: rtFa, Domain: , Path: ",
                // Unlike the response dump, no expiry prints as the time 0.
                c + "Cookie Expiry: " + CtimeText(0) + ", HttpOnly: N, TailMatch: Y, Secure: N",
                c + "Cookie Value: v%sv"}),
            ScopedLogCapture::Lines());
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
