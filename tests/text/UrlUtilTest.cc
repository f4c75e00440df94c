#include "UrlUtil.h"

#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Runs a function that takes over an owned copy of `text` and returns the
// result as a std::string ("<null>" for null), releasing it.
template <typename Function>
std::string Through(Function function, const char* text) {
  char* result = function(StrDup(text));
  std::string out = result != nullptr ? result : "<null>";
  StrFree(&result);
  return out;
}

std::string Joined(const char* base, const char* path) {
  char* out = nullptr;
  JoinUrl(&out, base, path);
  std::string text = out != nullptr ? out : "<null>";
  StrFree(&out);
  return text;
}

TEST(JoinUrlTest, ConcatenatesWithOneSlashAndNoCleverness) {
  EXPECT_EQ(Joined("https://h/sites/a", "_vti_bin/x.asmx"), "https://h/sites/a/_vti_bin/x.asmx");
  EXPECT_EQ(Joined("https://h/", "_trust"), "https://h//_trust");
  EXPECT_EQ(Joined("https://h", "/_trust"), "https://h//_trust");
  EXPECT_EQ(Joined("a b", "c d"), "a b/c d");  // nothing is encoded
}

TEST(JoinUrlTest, MissingBaseGivesNullAndMissingPathACopy) {
  EXPECT_EQ(Joined(nullptr, "path"), "<null>");
  EXPECT_EQ(Joined("", "path"), "<null>");
  EXPECT_EQ(Joined("https://h", nullptr), "https://h");
  EXPECT_EQ(Joined("https://h", ""), "https://h");
}

TEST(JoinUrlTest, ReleasesWhatTheHolderHeldEvenWhenStoringNothing) {
  char* out = StrDup("previous");
  JoinUrl(&out, nullptr, "x");
  EXPECT_EQ(out, nullptr);  // the old string is gone; ASan/valgrind see no leak
}

TEST(JoinUrlTest, MayJoinOntoTheStringItReplaces) {
  char* url = StrDup("https://h/sites/a");
  JoinUrl(&url, url, "_layouts");
  EXPECT_STREQ(url, "https://h/sites/a/_layouts");
  JoinUrl(&url, url, nullptr);
  EXPECT_STREQ(url, "https://h/sites/a/_layouts");
  StrFree(&url);
}

TEST(EscapeSpacesTest, ReturnsTheSamePointerWithoutBlanks) {
  char* text = StrDup("no-blanks\there%");
  char* same = EscapeSpaces(text);
  EXPECT_EQ(same, text);
  StrFree(&same);
  EXPECT_EQ(EscapeSpaces(nullptr), nullptr);
}

TEST(EscapeSpacesTest, ReplacesOnlyBlanks) {
  EXPECT_EQ(Through(EscapeSpaces, "a  b"), "a%20%20b");
  EXPECT_EQ(Through(EscapeSpaces, " x\t%y "), "%20x\t%y%20");
  EXPECT_EQ(Through(EscapeSpaces, " "), "%20");
}

TEST(PercentCodecTest, EncodesEverythingButAsciiLettersAndDigits) {
  int unreserved = 0;
  for (int byte = 1; byte < 256; ++byte) {
    std::string one(1, static_cast<char>(byte));
    std::string encoded = PercentEncode(one);
    bool alnum = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                 (byte >= 'a' && byte <= 'z');
    if (alnum) {
      ++unreserved;
      EXPECT_EQ(encoded, one);
    } else {
      static const char kHex[] = "0123456789ABCDEF";
      const char expected[] = {'%', kHex[byte >> 4], kHex[byte & 15], '\0'};
      EXPECT_EQ(encoded, expected) << byte;
    }
  }
  EXPECT_EQ(unreserved, 62);
  EXPECT_EQ(PercentEncode(std::string("\0", 1)), "%00");
}

TEST(PercentCodecTest, EncodesTheUsualUnreservedMarksToo) {
  EXPECT_EQ(Through(UrlEncode, ".-_~@% +"), "%2E%2D%5F%7E%40%25%20%2B");
  EXPECT_EQ(Through(UrlEncode, "user@contoso.com"), "user%40contoso%2Ecom");
  EXPECT_EQ(Through(UrlEncode, "\xC3\xA9"), "%C3%A9");  // bytes, not characters
  EXPECT_EQ(Through(UrlEncode, ""), "");
  EXPECT_EQ(UrlEncode(nullptr), nullptr);
}

TEST(PercentCodecTest, DecodesEitherCaseAndKeepsWhatIsNoSequence) {
  EXPECT_EQ(Through(UrlDecode, "%2e%2E"), "..");
  EXPECT_EQ(Through(UrlDecode, "a+b"), "a+b");
  EXPECT_EQ(Through(UrlDecode, "100%"), "100%");
  EXPECT_EQ(Through(UrlDecode, "x%4"), "x%4");
  EXPECT_EQ(Through(UrlDecode, "%"), "%");
  EXPECT_EQ(Through(UrlDecode, "%G1%41"), "%G1A");
  EXPECT_EQ(Through(UrlDecode, "%%41"), "%A");
  EXPECT_EQ(Through(UrlDecode, "%4%41"), "%4A");
  EXPECT_EQ(Through(UrlDecode, "%FF"), "\xFF");
  EXPECT_EQ(Through(UrlDecode, ""), "");
  EXPECT_EQ(UrlDecode(nullptr), nullptr);
}

TEST(PercentCodecTest, DecodingPeelsOneLevelAtATime) {
  std::string once = Through(UrlDecode, "%252F");
  EXPECT_EQ(once, "%2F");
  EXPECT_EQ(Through(UrlDecode, once.c_str()), "/");
}

TEST(PercentCodecTest, EncodedNulCutsTheDecodedText) {
  EXPECT_EQ(PercentDecode("a%00b"), std::string("a\0b", 3));
  EXPECT_EQ(Through(UrlDecode, "a%00b"), "a");
}

TEST(PercentCodecTest, RoundTripsEveryByte) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(PercentDecode(PercentEncode(all)), all);
}

TEST(SanitizeUrlTest, CutsQueryThenFragmentThenPage) {
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/a/Pages/Home.aspx?x=1#top"), "https://h/sites/a/Pages");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/a#frag?notaquery"), "https://h/sites/a");
  // The page is seen only once the query behind it is gone.
  EXPECT_EQ(Through(SanitizeUrl, "https://h/a/default.aspx?next=/b.aspx"), "https://h/a");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/a/b.aspx#x.aspx"), "https://h/a");
}

TEST(SanitizeUrlTest, RemovesOnlyAFinalPageAnyCase) {
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/a/HOME.ASPX"), "https://h/sites/a");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/default.aspx"), "https://h");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/x.aspx/sites/a"), "https://h/x.aspx/sites/a");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/myaspxpage"), "https://h/sites/myaspxpage");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/a.aspxz"), "https://h/sites/a.aspxz");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/sites/a/"), "https://h/sites/a/");
}

TEST(SanitizeUrlTest, AQueryAloneLeavesAnEmptyStringNotNull) {
  EXPECT_EQ(Through(SanitizeUrl, "?a=1"), "");
  EXPECT_EQ(Through(SanitizeUrl, "#"), "");
  EXPECT_EQ(Through(SanitizeUrl, "/x.aspx"), "");
}

TEST(SanitizeUrlTest, LineEndsStopTheCutsAsThePatternsSay) {
  // "." matches no line end, so a query with one in it doesn't reach "$".
  EXPECT_EQ(Through(SanitizeUrl, "https://h/a?x\ny"), "https://h/a?x\ny");
  EXPECT_EQ(Through(SanitizeUrl, "https://h/a?x\ny?z"), "https://h/a?x\ny");
}

TEST(SanitizeUrlTest, NullAndEmptyComeBackAsTheyAre) {
  EXPECT_EQ(SanitizeUrl(nullptr), nullptr);
  char* empty = StrDup("");
  char* result = SanitizeUrl(empty);
  EXPECT_EQ(result, empty);
  StrFree(&result);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
