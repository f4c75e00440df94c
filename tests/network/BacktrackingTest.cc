// Password masking and the cookie-line parser decide without the backtracking
// searches they stand for, which took minutes or threw on some texts, and must
// give exactly what those searches would give.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "base/StringUtil.h"
#include "network/NetscapeCookie.h"
#include "support/HostileBodies.h"
#include "text/RegexUtil.h"

namespace Vantrel::Auth::testing {
namespace {

// Masking as defined: the two searches, and a copy-back that never grows the text.
std::string MaskedBySearches(const std::string& input) {
  std::string text = input.c_str();
  char* prefix = RegexFirstCapture(text.c_str(), "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$");
  char* suffix = RegexFirstCapture(text.c_str(), "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$");
  if (prefix != nullptr && suffix != nullptr && std::strlen(prefix) + std::strlen(suffix) + 1 <= text.size()) {
    text = std::string(prefix) + "*" + suffix;
  }
  StrFree(&prefix);
  StrFree(&suffix);
  return text;
}

std::string Masked(std::string text) {
  EXPECT_EQ(MaskPassword(&text[0]), &text[0]);
  return text.c_str();
}

// Texts made of what steers the searches: tag marks, the word in several cases
// and cut in two, line ends, bytes above 0x7F and NUL.
TEST(MaskPasswordTest, GivesWhatTheSearchesGiveOnGeneratedTexts) {
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
  // The last element only; never longer than before.
  EXPECT_EQ(Masked("<password>one</password><password>two</password>"), "<password>one</password><password>*</password>");
  EXPECT_EQ(Masked("<password></password>"), "<password></password>");
  EXPECT_EQ(MaskPassword(nullptr), nullptr);
}

// Each took the searches minutes at one megabyte, or made them throw.
TEST(MaskPasswordTest, HostileTextsTakeLinearTime) {
  for (const std::string unit : {"<password>", "<password", "</password", "<password></p>", "<o:Password Type=\"x\"</"}) {
    std::string small = Repeat(unit, 1000) + "<password>pw</password>";
    std::string large = Repeat(unit, 16 * kMegabyte / unit.size()) + "<password>pw</password>";
    EXPECT_EQ(Masked(small), MaskedBySearches(small)) << unit;
    std::string masked;
    EXPECT_LT(Measure([&] { masked = Masked(large); }).seconds, 10.0) << unit;
    EXPECT_EQ(masked.size(), large.size() - 1) << unit;
    EXPECT_EQ(masked.compare(masked.size() - 22, 22, "<password>*</password>"), 0) << unit;
  }
}

// A line may hold any number of tabs; with a line end behind them the anchored
// search used to try every placing of seven groups between them before it failed.
TEST(NetscapeCookieTest, LineWithALineEndIsRefusedAtOnce) {
  for (const std::string& line : {Repeat("\t", 5000) + "\r", Repeat("x\t", 3000) + "\n"}) {
    Cookie cookie;
    cookie.SetName("stale");
    EXPECT_LT(Measure([&] { ParseNetscapeCookie(&cookie, line.c_str()); }).seconds, 1.0);
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
}  // namespace Vantrel::Auth::testing
