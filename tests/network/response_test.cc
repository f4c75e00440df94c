// Response collection: header-line parsing, header lookup, cookie lines and
// the response dump.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "Cookie.h"
#include "HeaderLine.h"
#include "NetscapeCookie.h"
#include "NetworkResult.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::ScopedLogCapture;

// "[name][value]" of every header one raw line leaves behind.
std::string Parse(const std::string& line) {
  NetworkResult result;
  ParseHeaderLine(line.data(), line.size(), &result);
  std::string out;
  for (HeaderNode* node = result.GetHeaders(); node != nullptr; node = node->next) {
    out += std::string("[") + node->header->name + "][" + node->header->value + "]";
  }
  return out;
}

TEST(HeaderLineTest, SplitsAtFirstColonAndTrims) {
  EXPECT_EQ("[Content-Type][text/xml; charset=utf-8]", Parse("Content-Type: text/xml; charset=utf-8\r\n"));
  EXPECT_EQ("[Location][https://h:8443/a?b=c:d]", Parse("Location :  https://h:8443/a?b=c:d \r\n"));
  EXPECT_EQ("[X-Empty][\n]", Parse("X-Empty:   \r\n"));  // the line feed is the value
  EXPECT_EQ("[HTTP/1.1 500 Bad][thing]", Parse("HTTP/1.1 500 Bad: thing\r\n"));
  EXPECT_EQ("", Parse("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ("", Parse("\r\n"));
  EXPECT_EQ("", Parse(": no name\r\n"));
  EXPECT_EQ("[A][b]", Parse(std::string("A: b\0C: d\r\n", 11)));  // up to a NUL only
  EXPECT_EQ("[A][b]", Parse(std::string("A: bcdef", 4)));
  std::string colons(100000, ':');
  EXPECT_EQ("[:][" + colons.substr(1) + "x]", Parse(colons + "x"));
  EXPECT_EQ("", Parse(std::string(100000, ' ') + "\r\n"));
  ParseHeaderLine("A: b\r\n", 6, nullptr);
}

TEST(NetworkResultTest, GetHeaderTakesLastReceivedNonEmptyCaseSensitively) {
  NetworkResult result;
  EXPECT_EQ(nullptr, result.GetHeader("Location"));
  result.AddHeader("location", "/lower");
  EXPECT_EQ(nullptr, result.GetHeader("Location"));
  result.AddHeader("Location", "/first");
  result.AddHeader("Location", "/second");
  result.AddHeader("Location", "");  // doesn't hide the one before
  EXPECT_STREQ("/second", result.GetHeader("Location"));
  result.AddHeader("X-Only-Empty", "");
  EXPECT_STREQ("", result.GetHeader("X-Only-Empty"));
}

TEST(NetworkResultTest, LogDumpTextsAndReset) {
  ScopedLogCapture log;
  NetworkResult::LogDump(nullptr);
  NetworkResult result;
  result.SetResponseCode(-1);
  result.SetErrorMsg("boom");
  result.AddHeader("A", "1");
  result.AddHeader("B", nullptr);
  Cookie cookie;
  cookie.SetName("FedAuth");
  cookie.EnableTailMatch(true);
  result.AddCookie(&cookie);
  cookie.SetName("rtFa");
  cookie.SetDomain("h");
  cookie.SetExpires(1700000000);
  result.AddCookie(&cookie);
  result.AppendBody("<a>\0hidden", 10);
  NetworkResult::LogDump(&result);
  time_t when = 1700000000;
  const std::string p = "NetworkResult::LogDump - ";
  EXPECT_EQ((std::vector<std::string>{
                p + "Nothing to print; NetworkResult is NULL.", p + "Response code: -1",
                p + "Error detail: boom", p + "Printing Header(s) .....", p + "Header: B: ",
                p + "Header: A: 1", p + "Printing Header(s) - Done", p + "Printing cookie(s) ..... ",
                p + "    Cookie Name: rtFa, Domain: h, Path: ",
                p + "    Cookie Expiry: " + std::ctime(&when) + ", HttpOnly: N, TailMatch: Y, Secure: N",
                p + "    Cookie Value: ", p + "    Cookie Name: FedAuth, Domain: , Path: ",
                p + "    Cookie Expiry: (none), HttpOnly: N, TailMatch: Y, Secure: N",
                p + "    Cookie Value: ", p + "Printing cookie(s) done.", p + "Response: <a>"}),
            ScopedLogCapture::Lines());

  EXPECT_EQ(10u, result.GetBody().size());
  result.Reset();
  EXPECT_EQ("", result.GetBody());
  EXPECT_EQ(0, result.GetResponseCode());
  EXPECT_EQ(nullptr, result.GetHeaders());
  EXPECT_EQ(nullptr, result.GetCookies());
  EXPECT_STREQ("", result.GetErrorMsg());
}

// "domain|path|name|value|expiry" plus the flags that are set.
std::string ParseCookie(const char* line) {
  Cookie c;
  c.SetName("untouched");
  ParseNetscapeCookie(&c, line);
  auto text = [](const char* s) { return s ? std::string(s) : std::string("(null)"); };
  return text(c.GetDomain()) + "|" + text(c.GetPath()) + "|" + text(c.GetName()) + "|" +
         text(c.GetValue()) + "|" + std::to_string(c.GetExpires()) + (c.IsHttpOnlyEnabled() ? " httponly" : "") +
         (c.IsTailMatchEnabled() ? " tail" : "") + (c.IsSecureEnabled() ? " secure" : "");
}

TEST(NetscapeCookieTest, FieldsConversionsAndMalformedLines) {
  EXPECT_EQ(".contoso.com|/|FedAuth|77u/|0 httponly tail secure",
            ParseCookie("#HttpOnly_.contoso.com\tTRUE\t/\tTRUE\t0\tFedAuth\t77u/"));
  // The marker and "TRUE" count only in libcurl's exact spelling.
  EXPECT_EQ("#httponly_h|/p|n||1700000000", ParseCookie("#httponly_h\ttrue\t/p\tyes\t1700000000\tn\t"));
  EXPECT_EQ("x#HttpOnly_h|/|n|v|0", ParseCookie("x#HttpOnly_h\tFALSE\t/\tFALSE\tsoon\tn\tv"));
  // The last six tabs separate; extra ones belong to the domain.
  EXPECT_EQ("a\tb\th|/|n|v|12", ParseCookie("a\tb\th\tFALSE\t/\tFALSE\t12abc\tn\tv"));
  EXPECT_EQ("h|/|n|v|" + std::to_string(INT32_MAX), ParseCookie("h\tF\t/\tF\t99999999999999999999999\tn\tv"));
  const char* reset = "(null)|(null)|(null)|(null)|0";
  EXPECT_EQ(reset, ParseCookie("h\tTRUE\t/\tTRUE\t0\tname"));
  EXPECT_EQ(reset, ParseCookie("h\tTRUE\t/\tTRUE\t0\tn\tv\nx"));
  EXPECT_EQ("(null)|(null)|untouched|(null)|0", ParseCookie(""));
  EXPECT_EQ("(null)|(null)|untouched|(null)|0", ParseCookie(nullptr));
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
