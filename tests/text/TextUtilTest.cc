// Owned strings and the buffer protocol, the regex dialect's corners, URL helpers, the string list.
#include <climits>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "VantrelAuthEngine64/StrList.h"
#include "base/StringUtil.h"
#include "text/RegexUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel::Auth {
namespace {

// Takes an owned result; "<null>" for null.
std::string Text(char* owned) {
  std::string text = owned != nullptr ? owned : "<null>";
  StrFree(&owned);
  return text;
}

TEST(StringUtilTest, AssignTellsEmptyFromNullAndMayTakeFromItsOwnHolder) {
  char* text = StrDup("http://proxy:8080");
  StrAssign(&text, text + 7);  // the copy must be made before the old text goes
  EXPECT_STREQ(text, "proxy:8080");
  StrAssign(&text, "");
  ASSERT_NE(text, nullptr);
  StrAssign(&text, nullptr);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(Text(IntToText(INT_MIN)), "-2147483648");
  EXPECT_EQ(DigitCount(INT_MIN), 11u);
  EXPECT_EQ(DigitCount64(LLONG_MIN), 20u);
}

// Guard bytes behind the declared size show a write past *size.
TEST(StringUtilTest, CopyOutFollowsTheBufferProtocol) {
  struct { const char* source; size_t in; const char* text /* null: untouched */; size_t out; } rows[] = {
      {nullptr, 0, nullptr, 0}, {nullptr, 10, "", 10}, {"ab", 3, "ab", 3}, {"ab", 10, "ab", 10},
      {"ab", 2, "", 3},         {"ab", 0, nullptr, 3}, {"", 1, "", 1},     {"", 0, nullptr, 1},
  };
  for (const auto& row : rows) {
    char buffer[16];
    std::memset(buffer, '#', sizeof(buffer));
    size_t size = row.in;
    CopyOut(buffer, &size, row.source);
    EXPECT_EQ(size, row.out) << (row.source ? row.source : "null") << " " << row.in;
    if (row.text != nullptr) { EXPECT_STREQ(buffer, row.text); } else { EXPECT_EQ(buffer[0], '#'); }
    for (size_t i = row.in; i < sizeof(buffer); ++i) ASSERT_EQ(buffer[i], '#') << i;
  }
  size_t size = 10;
  CopyOut(nullptr, &size, "ab");  // a null buffer is a query whatever the size
  EXPECT_EQ(size, 3u);
  char buffer[4] = "xyz";
  CopyOut(buffer, nullptr, "ab");  // nowhere to learn the size from: nothing happens
  EXPECT_STREQ(buffer, "xyz");
  CopyOut(nullptr, nullptr, "ab");
}

// Where PCRE2 left to itself differs from ECMAScript; an empty capture is not no match.
TEST(RegexUtilTest, FirstCaptureAgreesWithStdRegexOnTheCorners) {
  struct { const char* pattern; const char* subject; const char* expected; } cases[] = {
      {"(x*)", "", ""}, {"x*", "", "<null>"}, {"a(b)?c", "ac", ""},  // no group, an empty one
      {"a([^]+)z", "a\r\n\tz", "\r\n\t"}, {"a(.+)z", "a\rz", "<null>"}, {"(\\s+)b", "\r\n\v\f b", "\r\n\v\f "},
      {"(x)$", "x\n", "<null>"}, {"^(b)", "a\nb", "<null>"},  // anchors only at the ends
      {"([.]+)", "a..b", ".."}, {"([]a)", "a]a", "<null>"}, {"(<[A-z]+?:x>)", "<A_b:x>", "<A_b:x>"},
      {"([A-Z]+)", "abC", "abC"}, {"(a|ab)(c|bcd)", "abcd", "a"}, {"(a+?)", "aaa", "a"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Text(RegexFirstCapture(c.subject, c.pattern)), c.expected) << c.pattern;
    std::regex re(c.pattern, std::regex::ECMAScript | std::regex::icase);
    std::cmatch match;
    bool found = std::regex_search(c.subject, match, re) && re.mark_count() > 0;
    EXPECT_EQ(found ? match[1].str() : "<null>", c.expected) << "reference: " << c.pattern;
  }
  EXPECT_EQ(RegexFirstCapture(nullptr, "(a)"), nullptr);
  EXPECT_EQ(RegexFirstCapture("a", ""), nullptr);
  EXPECT_EQ(Text(RegexFirstCapture(std::string("keep\0p", 6).c_str(), "(p[^]*)$")), "p");  // ends at NUL
  for (const char* bad : {"(a", "[a", "a\\"}) EXPECT_THROW(RegexFirstCapture("abc", bad), std::regex_error);
  EXPECT_THROW(ExtractXmlElement("<a>b</a>", "(", false), std::regex_error);
  EXPECT_TRUE(!ExtractXmlElement(nullptr, "strSite", false) && !ExtractXmlElement("<a>b</a>", nullptr, false));
  EXPECT_EQ(ExtractXmlElement("<a>b</a>", "", false), nullptr);  // would match any element
  // Every group, an unmatched one as empty; no match leaves none.
  std::vector<std::string> groups{"stale"};
  ASSERT_TRUE(RegexSearchGroups("k=v", "(k)=(x)?(v)", &groups));
  EXPECT_EQ(groups, (std::vector<std::string>{"k", "", "v"}));
  EXPECT_FALSE(RegexSearchGroups("k=v", "(z)", &groups));
  EXPECT_TRUE(groups.empty());
}

// Empty matches are walked as std::regex_replace walks them.
TEST(RegexUtilTest, RemoveAllEqualsRegexReplaceAlsoForEmptyMatches) {
  for (const char* pattern : {"a*", "a*?", "(|ab)", "b|", "$", "^", "(?=b)", "x?", "\\s*", "[^]"}) {
    std::regex re(pattern, std::regex::ECMAScript | std::regex::icase);
    for (const char* subject : {"", "a", "aab", "bab", "abba", "b\nab ", "xxab"}) {
      EXPECT_EQ(RegexRemoveAll(subject, pattern), std::regex_replace(std::string(subject), re, ""))
          << pattern << " on " << subject;
    }
  }
  EXPECT_EQ(RegexRemoveAll("abc", "") + RegexRemoveAll("abc", nullptr), "abcabc");
  EXPECT_EQ(RegexRemoveAll(std::string("keep\0drop", 9), "e"), "kp");
}

TEST(UrlUtilTest, JoinUrlAddsOneSlashAndNoClevernessAndEscapeSpacesOnlyBlanks) {
  struct { const char* base; const char* path; const char* expected; } rows[] = {
      {"h/a", "x.asmx", "h/a/x.asmx"}, {"h/", "_t", "h//_t"}, {"h", "/_t", "h//_t"}, {"a b", "c", "a b/c"},
      {nullptr, "p", "<null>"}, {"", "p", "<null>"}, {"h", nullptr, "h"}, {"h", "", "h"},
  };
  for (const auto& row : rows) {
    char* out = StrDup("previous");  // released even when nothing is stored
    JoinUrl(&out, row.base, row.path);
    EXPECT_EQ(Text(out), row.expected);
  }
  char* url = StrDup("https://h/a");
  JoinUrl(&url, url, "_layouts");  // onto the string it replaces
  EXPECT_EQ(Text(url), "https://h/a/_layouts");

  EXPECT_EQ(Text(EscapeSpaces(StrDup(" x\t%y  "))), "%20x\t%y%20%20");
  char* text = StrDup("no-blanks");
  EXPECT_EQ(EscapeSpaces(text), text);  // the same string back
  StrFree(&text);
  EXPECT_EQ(EscapeSpaces(nullptr), nullptr);
}

TEST(UrlUtilTest, PercentCodec) {
  // Only ASCII letters and digits stay; the neighbours of each range do not.
  EXPECT_EQ(PercentEncode("/09:@AZ[`az{.-_~ +\x7F\xC3\xA9\xFF"),
            "%2F09%3A%40AZ%5B%60az%7B%2E%2D%5F%7E%20%2B%7F%C3%A9%FF");
  EXPECT_EQ(PercentEncode(std::string("\0", 1)), "%00");
  EXPECT_EQ(Text(UrlEncode(StrDup("user@contoso.com"))), "user%40contoso%2Ecom");
  struct { const char* in; const char* out; } decoded[] = {{"%2e%2E", ".."}, {"a+b", "a+b"}, {"100%", "100%"},
      {"x%4", "x%4"}, {"%G1%41", "%G1A"}, {"%%41", "%A"}, {"%4%41", "%4A"}, {"%FF", "\xFF"}, {"%252F", "%2F"},
      {"a%00b", "a"}};
  for (const auto& row : decoded) EXPECT_EQ(Text(UrlDecode(StrDup(row.in))), row.out) << row.in;
  EXPECT_EQ(PercentDecode("a%00b"), std::string("a\0b", 3));
  EXPECT_TRUE(UrlEncode(nullptr) == nullptr && UrlDecode(nullptr) == nullptr);
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(PercentDecode(PercentEncode(all)), all);
}

TEST(UrlUtilTest, SanitizeUrlCutsQueryThenFragmentThenAFinalPage) {
  struct { const char* in; const char* out; } rows[] = {
      {"https://h/a/Pages/Home.aspx?x=1#top", "https://h/a/Pages"}, {"https://h/a#frag?notaquery", "https://h/a"},
      {"https://h/a/default.aspx?next=/b.aspx", "https://h/a"},  // the page shows once the query is gone
      {"https://h/a/b.aspx#x.aspx", "https://h/a"}, {"https://h/a/HOME.ASPX", "https://h/a"},
      {"https://h/x.aspx/a", "https://h/x.aspx/a"}, {"https://h/a.aspxz", "https://h/a.aspxz"},
      {"https://h/a?x\ny", "https://h/a?x\ny"},  // "." stops at a line end, so "$" is out of reach
      {"?a=1", ""}, {"/x.aspx", ""}, {"#", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(Text(SanitizeUrl(StrDup(row.in))), row.out) << row.in;
  EXPECT_EQ(SanitizeUrl(nullptr), nullptr);
}

TEST(StrListTest, AppendPutsACopyOfTheTextFirst) {
  char text[] = "first";
  StrList* list = StrList::Append(StrList::Append(nullptr, text), nullptr);
  text[0] = 'X';
  EXPECT_TRUE(list->str == nullptr && std::string(list->next->str) == "first" && list->next->next == nullptr);
  StrList::Free(list);
  StrList::Free(nullptr);
}

}  // namespace
}  // namespace Vantrel::Auth
