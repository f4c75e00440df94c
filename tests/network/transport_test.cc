// The libcurl transport over the wire, against the loopback emulator: what
// reaches the server byte for byte, what comes back into the result, and
// libcurl's verbose text on its way to the log.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <curl/curl.h>

#include "AuthEngineConfig.h"
#include "NetworkConfig.h"
#include "NetworkControlLibcurl.h"
#include "NetworkResult.h"
#include "emulator/emulator.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using Emulation::Emulator;
using Emulation::Request;
using Emulation::Response;
using testing::ScopedLogCapture;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

class CurlEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_EQ(CURLE_OK, curl_global_init(CURL_GLOBAL_ALL)); }
  void TearDown() override { curl_global_cleanup(); }
};
::testing::Environment* const curl_environment = ::testing::AddGlobalTestEnvironment(new CurlEnvironment);

// "name=value domain path" plus the flags that are set, newest first.
std::vector<std::string> CookieLines(const NetworkResult& result) {
  std::vector<std::string> lines;
  for (CookieNode* node = result.GetCookies(); node != nullptr; node = node->next) {
    const Cookie* c = node->cookie;
    lines.push_back(std::string(c->GetName()) + "=" + c->GetValue() + " " + c->GetDomain() + " " +
                    c->GetPath() + (c->IsTailMatchEnabled() ? " tail" : "") +
                    (c->IsSecureEnabled() ? " secure" : "") + (c->IsHttpOnlyEnabled() ? " httponly" : ""));
  }
  return lines;
}

class TransportTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(emulator_.Start()); }

  AuthResult Exec(const std::string& url) { return ExecVia(&transport_, url); }
  // Paths go to the emulator, with a scripted 200; anything else is a URL.
  AuthResult ExecVia(NetworkControlLibcurl* transport, const std::string& where) {
    if (where[0] == '/') emulator_.Enqueue(Response::Text(200, "ok"));
    config_.SetUrl(where[0] == '/' ? emulator_.HttpUrl(where).c_str() : where.c_str());
    return transport->Exec(&config_, &result_);
  }

  Emulator emulator_;
  NetworkControlLibcurl transport_;
  NetworkConfig config_;
  NetworkResult result_;
};

TEST_F(TransportTest, RequestGoesOutAsDescribedAndOnlyTheLogIsMasked) {
  ScopedLogCapture log;
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
                std::to_string(body.size()) + "\r\n\r\n" + body,
            emulator_.Requests().at(0).Raw());
  EXPECT_TRUE(ScopedLogCapture::Has("NetworkConfig::LogDump - POST data: <s:Envelope><password>*</password></s:Envelope>"));
  EXPECT_TRUE(ScopedLogCapture::Has("NetworkResult::LogDump - Response: ok"));

  for (const char* no_body : {"", static_cast<const char*>(nullptr)}) {
    emulator_.ClearRequests();
    config_.Reset();
    config_.SetPostData(no_body);
    ASSERT_EQ(kAuthResultOk, Exec("/g"));
    EXPECT_EQ("GET /g HTTP/1.1\r\n" + host + "Accept: */*\r\n\r\n", emulator_.Requests().at(0).Raw());
  }
}

TEST_F(TransportTest, ResponseFillsResultAndCookiesDoNotCarryOver) {
  Response first = Response::Text(500, std::string("<a>\0b", 5), "text/xml");
  first.AddHeaderLine("location: /lower").AddHeaderLine("X-Twice: 1").AddHeaderLine("X-Twice: 2");
  first.SetCookie("FedAuth=77u/; path=/; HttpOnly").SetCookie("Other=1; Max-Age=3600");
  emulator_.Enqueue(first);
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/first")));
  EXPECT_EQ(500, result_.GetResponseCode());
  EXPECT_STREQ("", result_.GetErrorMsg());
  EXPECT_EQ(std::string("<a>\0b", 5), result_.GetBody());
  EXPECT_EQ(nullptr, result_.GetHeader("Location"));
  EXPECT_STREQ("/lower", result_.GetHeader("location"));
  EXPECT_STREQ("2", result_.GetHeader("X-Twice"));
  // libcurl lists cookies in its own order; the result holds them reversed.
  EXPECT_EQ((std::vector<std::string>{"Other=1 127.0.0.1 /", "FedAuth=77u/ 127.0.0.1 / httponly"}),
            CookieLines(result_));
  EXPECT_NEAR(time(nullptr) + 3600.0, result_.GetCookies()->cookie->GetExpires(), 60.0);

  emulator_.Enqueue(Response::Redirect(302, "http://127.0.0.1:1/elsewhere").SetCookie("Third=3"));
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/second")));
  EXPECT_EQ(302, result_.GetResponseCode());
  EXPECT_STREQ("http://127.0.0.1:1/elsewhere", result_.GetHeader("Location"));
  ASSERT_EQ(2u, emulator_.Requests().size());  // the redirect was not followed
  EXPECT_FALSE(emulator_.Requests()[1].Header("Cookie").has_value());
  EXPECT_EQ(std::vector<std::string>{"Third=3 127.0.0.1 /"}, CookieLines(result_));
}

TEST_F(TransportTest, FailedTransfersReportLibcurlsText) {
  int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  ASSERT_EQ(0, bind(probe, reinterpret_cast<sockaddr*>(&address), length));
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  close(probe);  // nobody listens there now
  const std::string refused = "Failed to connect to 127.0.0.1 port " + std::to_string(ntohs(address.sin_port));
  EXPECT_EQ(kAuthResultSendFailed, Exec("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/"));
  EXPECT_EQ(refused, std::string(result_.GetErrorMsg()).substr(0, refused.size()));

  Response dropped = Response::Text(200, std::string(1 << 20, 'x'));
  dropped.SetCookie("FedAuth=lost");
  dropped.close_after_body_bytes = 100000;
  emulator_.Enqueue(dropped);
  EXPECT_EQ(kAuthResultSendFailed, Exec(emulator_.HttpUrl("/drop")));
  EXPECT_EQ(100000u, result_.GetBody().size());  // what arrived stays
  EXPECT_STREQ("FedAuth=lost", result_.GetHeader("Set-Cookie"));
  EXPECT_EQ(0, result_.GetResponseCode());
  EXPECT_EQ(nullptr, result_.GetCookies());
  EXPECT_NE(nullptr, std::strstr(result_.GetErrorMsg(), "transfer closed")) << result_.GetErrorMsg();

  EXPECT_EQ(kAuthResultInternalError, transport_.Exec(&config_, nullptr));
  EXPECT_EQ(kAuthResultInternalError, transport_.Exec(nullptr, &result_));
}

TEST_F(TransportTest, HttpsVerificationFollowsTheConfig) {
  Emulator::Options options;
  options.https_names = {"elsewhere.test"};
  options.https_leaf_for_any_name = false;
  Emulator misnamed(options);
  ASSERT_TRUE(misnamed.Start());
  const char* ca = emulator_.CaFile().c_str();
  struct {
    Emulator* server;
    const char* ca_file;
    bool verify_host;
    SslVersion version;
    AuthResult expected;
  } cases[] = {
      {&emulator_, nullptr, true, kSslVersionDefault, kAuthResultSendFailed},  // unknown CA
      {&emulator_, ca, true, kSslVersionDefault, kAuthResultOk},
      {&emulator_, ca, true, kSslVersionTls1, kAuthResultOk},
      // libcurl refuses SSLv3 at setopt time and goes on with its default.
      {&emulator_, ca, true, kSslVersionSsl3, kAuthResultOk},
      {&misnamed, misnamed.CaFile().c_str(), true, kSslVersionDefault, kAuthResultSendFailed},
      {&misnamed, misnamed.CaFile().c_str(), false, kSslVersionDefault, kAuthResultOk},
      {&misnamed, ca, false, kSslVersionDefault, kAuthResultSendFailed},  // another CA's file
  };
  int index = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(index++);
    c.server->Enqueue(Response::Text(200, "secure"));
    config_.Reset();
    config_.SetSslUsed(true);
    config_.SetCaFile(c.ca_file);
    config_.SetVerifyHost(c.verify_host);
    config_.SetSslVersion(c.version);
    EXPECT_EQ(c.expected, Exec(c.server->HttpsUrl("/s"))) << result_.GetErrorMsg();
    EXPECT_EQ(c.expected == kAuthResultOk ? "secure" : "", result_.GetBody());
    EXPECT_EQ(c.expected == kAuthResultOk, result_.GetErrorMsg()[0] == '\0');
  }
}

TEST_F(TransportTest, ProxyCarriesPlainAndTunnelledRequests) {
  emulator_.Route("", "www.contoso.example", "/", [](const Request&) {
    return Response::Text(200, "via proxy")
        .SetCookie("Host=1; path=/")
        .SetCookie("Tail=2; Domain=contoso.example; Secure; Expires=Tue, 01 Jan 2030 00:00:00 GMT")
        .SetCookie("Dotted=3; Domain=.contoso.example; path=/p; HttpOnly");
  });
  config_.SetProxy(emulator_.ProxyUrl().c_str());
  ASSERT_EQ(kAuthResultOk, Exec("http://www.contoso.example/plain"));
  EXPECT_EQ("via proxy", result_.GetBody());
  EXPECT_EQ("http://www.contoso.example/plain", emulator_.Requests().at(0).target);

  config_.SetSslUsed(true);
  config_.SetCaFile(emulator_.CaFile().c_str());
  ASSERT_EQ(kAuthResultOk, Exec("https://www.contoso.example/tls")) << result_.GetErrorMsg();
  EXPECT_EQ("via proxy", result_.GetBody());
  ASSERT_EQ(1u, emulator_.Tunnels().size());
  EXPECT_TRUE(emulator_.Requests().at(1).tls);
  EXPECT_EQ((std::vector<std::string>{"Dotted=3 .contoso.example /p tail httponly",
                                      "Tail=2 .contoso.example / tail secure", "Host=1 www.contoso.example /"}),
            CookieLines(result_));
  EXPECT_EQ(1893456000, result_.GetCookies()->next->cookie->GetExpires());
}

long StatusKb(const char* field) {  // "VmRSS:" now, "VmHWM:" peak
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field));
  }
  return -1;
}

TEST_F(TransportTest, LargeBodyWithNulBytesArrivesWholeInBoundedMemory) {
  const size_t size = size_t{64} << 20;
  // A block of prime length, NULs included, repeated: a lost, doubled or
  // shifted piece of the body can't line up with it again.
  std::string block(65521, '\0');
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 7 % 251);
  // Restart the peak here, so that earlier tests don't count.
  bool peak_reset = static_cast<bool>(std::ofstream("/proc/self/clear_refs") << "5");
  long start_kb = StatusKb("VmRSS:");
  Response response;
  response.body.reserve(size);
  while (response.body.size() < size) response.body.append(block, 0, size - response.body.size());
  emulator_.Enqueue(std::move(response));
  ASSERT_EQ(kAuthResultOk, Exec(emulator_.HttpUrl("/big")));
  {
    std::string body = result_.GetBody();
    ASSERT_EQ(size, body.size());
    for (size_t at = 0; at < size; at += block.size()) {
      ASSERT_EQ(0, body.compare(at, block.size(), block, 0, std::min(block.size(), size - at))) << at;
    }
  }
  long grown_kb = StatusKb("VmHWM:") - start_kb;
  std::printf("64 MiB body: peak RSS %ld MiB, %ld MiB above the start of the test\n",
              StatusKb("VmHWM:") / 1024, grown_kb / 1024);
  // The server's copy, the result's buffer with its growth, and the copy
  // GetBody hands out. AddressSanitizer's quarantine keeps freed buffers
  // resident, so there the figure says nothing about the library.
  if (peak_reset && !kAddressSanitizer) {
    EXPECT_LT(grown_kb, static_cast<long>(4 * size / 1024));
  }
}

TEST_F(TransportTest, EscapeUsesLibcurl) {
  char* escaped = transport_.Escape("a b&c=d/\xC3\xA9");
  EXPECT_STREQ("a%20b%26c%3Dd%2F%C3%A9", escaped);
  transport_.FreeEscaped(escaped);
  EXPECT_EQ(nullptr, transport_.Escape(nullptr));
}

const std::string kWhere = "NetworkControlLibcurl::SendRequest: ";

struct TempDir {
  TempDir() {
    char pattern[] = "/tmp/vantrel-verbose-XXXXXX";
    path = mkdtemp(pattern) != nullptr ? pattern : "";
  }
  ~TempDir() { rmdir(path.c_str()); }
  std::string path;
};

bool Exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

// The log lines between the capture's BEGIN and END markers.
std::vector<std::string> VerboseLines() {
  std::vector<std::string> out;
  bool inside = false;
  for (const std::string& line : ScopedLogCapture::Lines()) {
    if (line == kWhere + "libcurl verbose output END.") inside = false;
    if (inside) out.push_back(line);
    if (line == kWhere + "libcurl verbose output BEGIN .....") inside = true;
  }
  return out;
}

TEST_F(TransportTest, VerboseTextIsCapturedPerRequestInShortLinesAndRemovedAtTheEnd) {
  ScopedLogCapture log;
  TempDir dir;
  config_.SetVerbose(true);
  AuthEngineConfig::SetTempLogDir(dir.path.c_str());
  long started = static_cast<long>(time(nullptr));
  auto transport = std::make_unique<NetworkControlLibcurl>();
  ASSERT_NE(nullptr, transport->GetCurlLogFile());
  const std::string path = transport->GetCurlLogFile();
  const std::string prefix = dir.path + "/authengine.";
  ASSERT_EQ(prefix, path.substr(0, prefix.size()));
  long stamp = std::atol(path.c_str() + prefix.size());
  EXPECT_TRUE(stamp >= started && stamp <= started + 2) << path;
  EXPECT_EQ(".log", path.substr(path.size() - 4));

  config_.AddHeader("X-Long", std::string(450, 'L').c_str());
  ASSERT_EQ(kAuthResultOk, ExecVia(transport.get(), "/first"));
  bool saw_request_line = false, saw_full_piece = false;
  for (const std::string& line : VerboseLines()) {
    EXPECT_LE(line.size(), 199u);
    EXPECT_EQ(std::string::npos, line.find('\n'));
    saw_request_line |= line.rfind("> GET /first HTTP/1.1", 0) == 0;
    saw_full_piece |= line.size() == 199;  // the long header line, cut up
  }
  EXPECT_TRUE(saw_request_line);
  EXPECT_TRUE(saw_full_piece);

  config_.ClearHeaders();
  ASSERT_EQ(kAuthResultOk, ExecVia(transport.get(), "/second"));
  std::ifstream file(path);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_NE(std::string::npos, content.find("GET /second"));
  EXPECT_EQ(std::string::npos, content.find("GET /first"));  // emptied per request

  transport.reset();
  EXPECT_FALSE(Exists(path));
  EXPECT_TRUE(ScopedLogCapture::Has("NetworkControlLibcurl::~NetworkControlLibcurl - Removing log file: " + path));
}

TEST_F(TransportTest, VerboseTextWithoutAUsableDirectoryIsNotCaptured) {
  ScopedLogCapture log;
  config_.SetVerbose(true);
  // libcurl's text goes to the process's standard error then; keep it quiet.
  int saved_stderr = dup(2);
  int null_fd = open("/dev/null", O_WRONLY);
  dup2(null_fd, 2);
  for (const char* dir : {static_cast<const char*>(nullptr), "", "/nonexistent-vantrel-dir"}) {
    AuthEngineConfig::SetTempLogDir(dir);
    auto transport = std::make_unique<NetworkControlLibcurl>();
    EXPECT_EQ(dir == nullptr || dir[0] == '\0', transport->GetCurlLogFile() == nullptr);
    ScopedLogCapture::Clear();
    EXPECT_EQ(kAuthResultOk, ExecVia(transport.get(), "/x"));
    EXPECT_TRUE(VerboseLines().empty());
  }
  dup2(saved_stderr, 2);
  close(null_fd);
  close(saved_stderr);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
