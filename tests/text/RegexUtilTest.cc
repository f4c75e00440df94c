#include "RegexUtil.h"

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Group 1 as a std::string; "<null>" when the helper gives null.
std::string Capture(const char* subject, const char* pattern) {
  char* result = RegexFirstCapture(subject, pattern);
  std::string text = result != nullptr ? result : "<null>";
  StrFree(&result);
  return text;
}

std::string Element(const char* xml, const char* word, bool whole) {
  char* result = ExtractXmlElement(xml, word, whole);
  std::string text = result != nullptr ? result : "<null>";
  StrFree(&result);
  return text;
}

// What the standard engine gives for the same search, in the same terms.
std::string Reference(const std::string& subject, const char* pattern) {
  std::regex re(pattern, std::regex::ECMAScript | std::regex::icase);
  std::smatch match;
  if (!std::regex_search(subject, match, re) || re.mark_count() < 1) return "<null>";
  return match[1].str();
}

TEST(RegexFirstCaptureTest, MissingInputGivesNull) {
  EXPECT_EQ(RegexFirstCapture(nullptr, "(a)"), nullptr);
  EXPECT_EQ(RegexFirstCapture("a", nullptr), nullptr);
  EXPECT_EQ(RegexFirstCapture("a", ""), nullptr);
}

TEST(RegexFirstCaptureTest, EmptyIsNotNull) {
  EXPECT_EQ(Capture("", "(x*)"), "");         // empty subject, group matched nothing
  EXPECT_EQ(Capture("", "x*"), "<null>");     // a match, but no group
  EXPECT_EQ(Capture("abc", "b"), "<null>");
  EXPECT_EQ(Capture("ac", "a(b)?c"), "");     // group took no part
  EXPECT_EQ(Capture("abc", "(x)|b"), "");
  EXPECT_EQ(Capture("abc", "(x)"), "<null>");  // no match
}

TEST(RegexFirstCaptureTest, EachCallGivesANewString) {
  char* first = RegexFirstCapture("key=value", "=(.*)");
  char* second = RegexFirstCapture("key=value", "=(.*)");
  EXPECT_NE(first, second);
  EXPECT_STREQ(first, second);
  StrFree(&first);
  StrFree(&second);
}

TEST(RegexFirstCaptureTest, IgnoresCaseOnBothSides) {
  EXPECT_EQ(Capture("https://h/?WREPLY=https%3a%2f%2fsite%2f&wctx=1", "wreply=([^]+?)(&[^]*)*$"),
            "https%3a%2f%2fsite%2f");
  EXPECT_EQ(Capture("\"namespacetype\": \"Federated\"", "\"NameSpaceType\":\\s*\"(.+?)\""),
            "Federated");
}

TEST(RegexFirstCaptureTest, PatternThatDoesNotCompileThrowsRegexError) {
  EXPECT_THROW(RegexFirstCapture("abc", "(a"), std::regex_error);
  EXPECT_THROW(RegexFirstCapture("abc", "[a"), std::regex_error);
  EXPECT_THROW(RegexFirstCapture("abc", "a\\"), std::regex_error);
  EXPECT_THROW(ExtractXmlElement("<a>b</a>", "(", false), std::regex_error);
}

// Corners of the dialect where PCRE2 left to itself differs from ECMAScript.
TEST(RegexDialectTest, AgreesWithStdRegexOnTheCorners) {
  struct Case {
    const char* pattern;
    const char* subject;
    const char* expected;
  } cases[] = {
      {"a([^]+)z", "a\r\n\tz", "\r\n\t"},          // [^] crosses line ends
      {"a(.+)z", "a\rz", "<null>"},                // . stops at CR ...
      {"a(.+)z", "a\nz", "<null>"},                // ... and at LF
      {"(.+)", "\r\nxy", "xy"},
      {"\\s(b)", "a\r\nb", "b"},                   // a match may start on the LF of CRLF
      {"(\\s+)b", "\r\n\v\f b", "\r\n\v\f "},      // \s as in ECMAScript
      {"(x)$", "x\n", "<null>"},                   // $ only at the very end
      {"^(b)", "a\nb", "<null>"},                  // ^ only at the very start
      {"([.]+)", "a..b", ".."},                    // a dot in a class stays a dot
      {"(\\.)", "a.b", "."},
      {"([^.]+)", ".ab.", "ab"},
      {"([[:alpha:].]+)", "1a.b2", "a.b"},
      {"([]a)", "a]a", "<null>"},                  // [] is empty and matches nothing
      {"([^]a)", "\na", "\na"},
      {"(<[A-z]+?:x>)", "<A_b:x>", "<A_b:x>"},      // the range A-z holds [\]^_` too
      {"([A-Z]+)", "abC", "abC"},
      {"(a|ab)(c|bcd)", "abcd", "a"},              // leftmost, first alternative
      {"(a+?)", "aaa", "a"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Capture(c.subject, c.pattern), c.expected) << c.pattern;
    EXPECT_EQ(Reference(c.subject, c.pattern), c.expected) << "reference: " << c.pattern;
  }
}

TEST(RegexDialectTest, SubjectEndsAtItsFirstNul) {
  std::string subject("keep\0drop", 9);
  EXPECT_EQ(Capture(subject.c_str(), "(p[^]*)$"), "p");
  EXPECT_EQ(RegexRemoveAll(subject, "e"), "kp");
}

TEST(RegexSearchGroupsTest, GivesEveryGroupAndEmptyForAbsentOnes) {
  std::vector<std::string> groups{"stale"};
  ASSERT_TRUE(RegexSearchGroups("k=v", "(k)=(x)?(v)", &groups));
  EXPECT_EQ(groups, (std::vector<std::string>{"k", "", "v"}));
  EXPECT_FALSE(RegexSearchGroups("k=v", "(z)", &groups));
  EXPECT_TRUE(groups.empty());
  EXPECT_FALSE(RegexSearchGroups(nullptr, "(z)", &groups));
}

TEST(RegexSearchGroupsTest, CookieLineSplitsOnTheLastSixTabs) {
  const char* pattern = "^(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)$";
  std::vector<std::string> groups;
  ASSERT_TRUE(RegexSearchGroups("#HttpOnly_a\tb\tTRUE\t/\tFALSE\t0\tFedAuth\tv", pattern, &groups));
  EXPECT_EQ(groups, (std::vector<std::string>{"#HttpOnly_a\tb", "TRUE", "/", "FALSE", "0", "FedAuth",
                                              "v"}));
  ASSERT_TRUE(RegexSearchGroups(".h\tTRUE\t/\tFALSE\t0\tFedAuth\t", pattern, &groups));
  EXPECT_EQ(groups.back(), "");
  EXPECT_FALSE(RegexSearchGroups("a\tb\tc", pattern, &groups));
}

// RegexRemoveAll walks the subject as std::regex_replace does, empty matches
// included; the patterns here are chosen for those.
TEST(RegexRemoveAllTest, EqualsRegexReplaceAlsoForEmptyMatches) {
  const char* patterns[] = {"a*", "a*?", "(|ab)", "b|", "$", "^", "(?=b)", "x?", "\\s*", "[^]"};
  const char* subjects[] = {"", "a", "ab", "aab", "bab", "abba", "b\nab ", "xxab"};
  for (const char* pattern : patterns) {
    std::regex re(pattern, std::regex::ECMAScript | std::regex::icase);
    for (const char* subject : subjects) {
      EXPECT_EQ(RegexRemoveAll(subject, pattern), std::regex_replace(std::string(subject), re, ""))
          << "pattern " << pattern << " subject " << subject;
    }
  }
}

TEST(RegexRemoveAllTest, EmptyPatternRemovesNothing) {
  EXPECT_EQ(RegexRemoveAll("abc", ""), "abc");
  EXPECT_EQ(RegexRemoveAll("abc", nullptr), "abc");
}

TEST(ExtractXmlElementTest, MissingInputGivesNullWithoutASearch) {
  EXPECT_EQ(ExtractXmlElement(nullptr, "strSite", false), nullptr);
  EXPECT_EQ(ExtractXmlElement("", "strSite", false), nullptr);
  EXPECT_EQ(ExtractXmlElement("<a>b</a>", nullptr, false), nullptr);
  // An empty word would make a valid pattern that matches any element.
  EXPECT_EQ(ExtractXmlElement("<a>b</a>", "", false), nullptr);
}

TEST(ExtractXmlElementTest, FindsTheWordInAnyTagWithPrefixesAndAttributes) {
  const char* xml =
      "<soap:Body><GetSiteAndWebResponse xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">"
      "<GetSiteAndWebResult>0</GetSiteAndWebResult>"
      "<s:strSite type=\"url\">https://h/sites/a</s:strSite>"
      "<strWeb>https://h/sites/a/web</strWeb></GetSiteAndWebResponse></soap:Body>";
  EXPECT_EQ(Element(xml, "strSite", false), "https://h/sites/a");
  EXPECT_EQ(Element(xml, "STRWEB", false), "https://h/sites/a/web");
  EXPECT_EQ(Element(xml, "strSite", true), "<s:strSite type=\"url\">https://h/sites/a</s:strSite>");
  EXPECT_EQ(Element(xml, "strWeb", true), "<strWeb>https://h/sites/a/web</strWeb>");
}

TEST(ExtractXmlElementTest, TwoElementsOfOneNameGiveEverythingBetween) {
  const char* xml = "<strSite>a</strSite>\n<strSite>b</strSite>";
  EXPECT_EQ(Element(xml, "strSite", false), "a</strSite>\n<strSite>b");
}

TEST(ExtractXmlElementTest, AShortWordMatchesALongerName) {
  EXPECT_EQ(Element("<strSiteUrl>u</strSiteUrl>", "Site", false), "u");
}

TEST(ExtractXmlElementTest, EmptyAndSelfClosingElementsGiveNull) {
  EXPECT_EQ(Element("<strSite></strSite>", "strSite", false), "<null>");
  EXPECT_EQ(Element("<strSite/>", "strSite", false), "<null>");
  // A later closing tag lets an empty element's match run on.
  EXPECT_EQ(Element("<strSite></strSite><strSite>x</strSite>", "strSite", false),
            "</strSite><strSite>x");
}

TEST(ExtractXmlElementTest, EntitiesAndCdataStayAsTheyAre) {
  EXPECT_EQ(Element("<strWeb>a&amp;b<![CDATA[<c>]]></strWeb>", "strWeb", false),
            "a&amp;b<![CDATA[<c>]]>");
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
