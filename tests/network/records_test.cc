// Request description and cookie records: copy rules, masking and log dumps.
#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "Cookie.h"
#include "NetworkConfig.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::ScopedLogCapture;

std::string CtimeText(time_t when) { return std::ctime(&when); }

TEST(CookieTest, CopyIsIndependentAndCarriesNulls) {
  auto source = std::make_unique<Cookie>();
  source->SetName("FedAuth");
  source->SetDomain("");
  source->EnableSecure(true);
  source->SetExpires(1700000000);
  Cookie destination;
  destination.SetValue("old");
  Cookie::Copy(&destination, source.get());
  source.reset();  // the copy must share no byte with its source
  EXPECT_STREQ("FedAuth", destination.GetName());
  EXPECT_EQ(nullptr, destination.GetValue());  // a null overwrites
  EXPECT_STREQ("", destination.GetDomain());   // "" stays "", not null
  EXPECT_TRUE(destination.IsSecureEnabled());
  EXPECT_EQ(1700000000, destination.GetExpires());
  Cookie::Copy(&destination, nullptr);
  Cookie::Copy(nullptr, &destination);
  EXPECT_STREQ("FedAuth", destination.GetName());

  destination.SetExpires(253402300799L);  // year 9999, as libcurl may report it
  EXPECT_EQ(INT32_MAX, destination.GetExpires());
}

TEST(CookieTest, LogDumpTexts) {
  ScopedLogCapture log;
  Cookie cookie;
  Cookie::LogDump(&cookie);
  Cookie::LogDump(nullptr);
  cookie.SetName("rtFa");
  cookie.SetValue("v%sv");
  cookie.SetDomain(".contoso.com");
  cookie.SetPath("/");
  cookie.EnableHttpOnly(true);
  cookie.SetExpires(1700000000);
  Cookie::LogDump(&cookie);
  const std::string p = "Cookie::LogDump - ";
  EXPECT_EQ((std::vector<std::string>{
                p + "Cookie Name: , Domain: , Path: ",
                // Unlike the response dump, no expiry prints as the time 0.
                p + "Cookie Expiry: " + CtimeText(0) + ", HttpOnly: N, TailMatch: N, Secure: N",
                p + "Cookie Value: ", p + "Nothing to print; Cookie is NULL.",
                p + "Cookie Name: rtFa, Domain: .contoso.com, Path: /",
                p + "Cookie Expiry: " + CtimeText(1700000000) + ", HttpOnly: Y, TailMatch: N, Secure: N",
                p + "Cookie Value: v%sv"}),
            ScopedLogCapture::Lines());
}

TEST(NetworkConfigTest, ResetKeepsOnlyTheSslVersion) {
  NetworkConfig config;
  config.SetUrl("http://a/");
  config.AddHeader("A", "1");
  config.SetVerifyCert(false);
  config.SetVerifyHost(false);
  config.SetSslVersion(kSslVersionSsl3);
  config.Reset();
  EXPECT_EQ(nullptr, config.GetUrl());
  EXPECT_EQ(nullptr, config.GetHeaders());
  EXPECT_TRUE(config.IsVerifyCert() && config.IsVerifyHost());
  EXPECT_EQ(kSslVersionSsl3, config.GetSslVersion());
}

TEST(NetworkConfigTest, LogDumpTextsWithMaskedBody) {
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
                p + "SSL Version: ?", p + "CA file: ", p + "Verbose: Y",
                p + "Proxy: http://127.0.0.1:3128",
                p + "POST data: <s:Envelope><o:Password Type=\"t\">*</o:Password></s:Envelope>"}),
            ScopedLogCapture::Lines());
  EXPECT_STREQ(body, config.GetPostData());  // what goes out is never masked
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

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
