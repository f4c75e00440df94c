// Texts on which a backtracking search took time far beyond linear, or gave up
// with an exception: password masking and the cookie-line parser. Both now
// decide such texts without the costly search, and must give exactly what the
// searches they stand for would give.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "Cookie.h"
#include "NetscapeCookie.h"
#include "NetworkConfig.h"
#include "RegexUtil.h"
#include "StringUtil.h"
#include "support/HostileBodies.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::kMegabyte;
using testing::Repeat;

// What masking is defined as: the two searches, and the copy-back that never
// lets the text grow.
std::string MaskedBySearches(const std::string& input) {
  std::string text = input.c_str();
  char* prefix = RegexFirstCapture(
      text.c_str(), "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$");
  char* suffix = RegexFirstCapture(
      text.c_str(), "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$");
  if (prefix != nullptr && suffix != nullptr &&
      std::strlen(prefix) + std::strlen(suffix) + 1 <= text.size()) {
    text = std::string(prefix) + "*" + suffix;
  }
  StrFree(&prefix);
  StrFree(&suffix);
  return text;
}

std::string Masked(std::string text) {
  MaskPassword(&text[0]);
  return text.c_str();
}

double SecondsFor(const std::function<void()>& run) {
  auto start = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Texts put together from the pieces that steer the searches: tag marks,
// the word in several cases and cut in two, line ends, bytes above 0x7F and NUL.
TEST(MaskPasswordBacktrackingTest, GivesWhatTheSearchesGiveOnGeneratedTexts) {
  const std::vector<std::string> pieces = {
      "<", ">", "/", "password", "PassWord", "pass", "word", "x", "o:", " ", "\n", "\r",
      "</password>", "<password>", "<o:Password Type=\"t\">", "</o:Password>", "\xc3\xa9",
      "passwordpassword", "</", "<p", "ab>", std::string(1, '\0')};
  std::mt19937 random(20240611);
  for (int i = 0; i < 40000; ++i) {
    std::string text;
    for (int n = random() % 14; n > 0; --n) text += pieces[random() % pieces.size()];
    ASSERT_EQ(Masked(text), MaskedBySearches(text)) << "text: " << text;
  }
}

TEST(MaskPasswordBacktrackingTest, HostileTextsTakeLinearTime) {
  // Each took the searches minutes at one megabyte, or made them throw.
  const std::vector<std::string> units = {"<password>", "<password", "</password", "<password></p>",
                                          "<o:Password Type=\"x\"</"};
  for (const std::string& unit : units) {
    SCOPED_TRACE(unit);
    std::string small = Repeat(unit, 1000) + "<password>pw</password>";
    std::string large = Repeat(unit, 16 * kMegabyte / unit.size()) + "<password>pw</password>";
    EXPECT_EQ(Masked(small), MaskedBySearches(small));
    std::string masked;
    double seconds = SecondsFor([&] { masked = Masked(large); });
    EXPECT_LT(seconds, 10.0);
    EXPECT_EQ(masked.size(), large.size() - 1);
    EXPECT_EQ(masked.compare(masked.size() - 22, 22, "<password>*</password>"), 0);
  }
}

// A tab may stand in a cookie's value, so a line can hold any number of them.
// With a line end behind them the anchored search can't match, and used to try
// every way of placing seven groups between the tabs before it gave up.
TEST(NetscapeCookieBacktrackingTest, LineWithALineEndIsRefusedAtOnce) {
  for (const std::string& line :
       {Repeat("\t", 5000) + "\r", std::string("a\tTRUE\t/\tFALSE\t0\tFedAuth\tv\n"),
        Repeat("x\t", 3000) + "\n"}) {
    Cookie cookie;
    cookie.SetName("stale");
    double seconds = SecondsFor([&] { ParseNetscapeCookie(&cookie, line.c_str()); });
    EXPECT_LT(seconds, 1.0);
    EXPECT_EQ(cookie.GetName(), nullptr);
    EXPECT_EQ(cookie.GetValue(), nullptr);
  }
  // Tabs alone are fields: the last six are the separators.
  Cookie cookie;
  ParseNetscapeCookie(&cookie, (Repeat("\t", 5000) + "v").c_str());
  EXPECT_STREQ(cookie.GetValue(), "v");
  EXPECT_EQ(std::strlen(cookie.GetDomain()), 5000u - 6);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
