// Every pattern the library compiles: against std::regex(ECMAScript | icase),
// the engine the patterns were written for, and on 16 MB bodies.
#include <pthread.h>

#include <cctype>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RegexUtil.h"
#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const int kSubjects = 1000;

// The patterns that run over a whole body.
const char* const kRstr =
    "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)";
const char* const kTokenInner = "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>";
const char* const kTokenWhole = "(<[^<]*BinarySecurityToken[^>]*>t=[^]+</[^<]*BinarySecurityToken[^>]*>)";
const char* const kAssertion = "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)";
const char* const kNamespace = "\"NameSpaceType\":\\s*\"(.+?)\"";
const char* const kAuthUrl = "\"AuthURL\":\\s*\"(.+?)\"";
const char* const kBeforePassword = "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$";
const char* const kAfterPassword = "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$";

enum Helper { kFirstCapture, kElement, kWhole, kGroups, kRemoveAll };

struct PatternCase {
  Helper helper;
  const char* word;  // for kElement*, whose pattern is what the helper builds from it
  std::string pattern;
  std::vector<std::string> fragments;
};

const std::vector<std::string> kPassword = {"<o:Password t>", "</o:Password>", "<password>", "</PASSWORD>"};
const std::vector<std::string> kToken = {"<w:BinarySecurityToken I=\"C\">", "t=", "</w:BinarySecurityToken>",
                                         "<BinarySecurityToken>t=", "</x>"};
const std::vector<std::string> kSite = {"<strSite>", "</strSite>", "<s:strSite a=\"1\">", "</s:strSite >",
                                        "<strWeb>", "</strWeb>", "<x:strWebUrl>", "<strSite/>", "h/s"};
const std::vector<std::string> kUrl = {"https://h", "/sites/a", "/Home.aspx", ".aspx", "?", "#",
                                       "x=1&y=2", "/", "default.ASPX", "/b.aspx/c"};

const std::vector<PatternCase> kCases = {
    {kFirstCapture, nullptr, kRstr,
     {"<t:RequestSecurityTokenResponse x=\"u\">", "</t:RequestSecurityTokenResponse>",
      "<RequestSecurityTokenResponse>", "</RequestSecurityTokenResponse >", "</x>"}},
    {kFirstCapture, nullptr, kTokenInner, kToken},
    {kFirstCapture, nullptr, kTokenWhole, kToken},
    {kFirstCapture, nullptr, kAssertion,
     {"<saml:Assertion a>", "</saml:Assertion>", "</x_y:Assertion>", "<:Assertion>", "<s[:Assertion>"}},
    {kFirstCapture, nullptr, "wreply=([^]+?)(&[^]*)*$", {"wreply=", "h%3a%2f", "&wctx=", "&", "=="}},
    {kFirstCapture, nullptr, "(.*?)/adfs/ls", {"/adfs/ls", "https://sts.h", "/adfs/ls/?", "/adfs", "/ls"}},
    {kFirstCapture, nullptr, kNamespace, {"\"NameSpaceType\": \"", "\"Managed\"", "\"\"", ":"}},
    {kFirstCapture, nullptr, kAuthUrl, {"\"AuthURL\":", "\"AuthURL\":\"", "\"https://s/\"", "\"\""}},
    {kFirstCapture, nullptr, "^\\s*([^]+?)\\s*:\\s*", {"Location", ": ", " :", "\t", "X-Forms_Auth", "\r\n"}},
    {kFirstCapture, nullptr, ":\\s*([^]+?)[\\s\\r\\n]*$", {": ", "value", " \r\n", "\r\n", ":", "\t"}},
    {kFirstCapture, nullptr, kBeforePassword, kPassword},
    {kFirstCapture, nullptr, kAfterPassword, kPassword},
    {kElement, "strSite", "<[^<]*strSite[^>]*>([^]+)</[^<]*strSite[^>]*>", kSite},
    {kElement, "strWeb", "<[^<]*strWeb[^>]*>([^]+)</[^<]*strWeb[^>]*>", kSite},
    {kWhole, "strSite", "(<[^<]*strSite[^>]*>[^]+</[^<]*strSite[^>]*>)", kSite},
    {kGroups, nullptr, "^(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)$",
     {"\t", "\t\t", "#HttpOnly_", ".h.com", "TRUE", "/", "0", "FedAuth", "\tTRUE\t/\tFALSE\t1767225600\t"}},
    {kRemoveAll, nullptr, "\\?(.*)$", kUrl},
    {kRemoveAll, nullptr, "#(.*)$", kUrl},
    {kRemoveAll, nullptr, "/[^/]*\\.aspx$", kUrl},
};

// Fragments, words of other patterns for near misses, and single characters,
// with the case of some letters swapped.
std::string Subject(const std::vector<std::string>& fragments, std::mt19937* random) {
  static const std::string kChars = "<>/:\"&=%?#\t\r\n  .aAbBsStTxXzZ_[0";
  static const std::vector<std::string> kWords = {"Assertion", "wreply=", "/adfs/ls", "Password", ".aspx",
                                                  "strSite", "AuthURL", "TRUE", "t="};
  auto uniform = [random](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(*random); };
  size_t roll = uniform(100);
  size_t length = roll < 50 ? uniform(65) : roll < 80 ? 64 + uniform(450) : roll < 90 ? 512 + uniform(1500)
                                                                                       : 4096 + uniform(2000);
  std::string subject;
  while (subject.size() < length) {
    roll = uniform(100);
    std::string piece = roll < 35 ? fragments[uniform(fragments.size())]
                        : roll < 42 ? kWords[uniform(kWords.size())]
                                    : std::string(1, kChars[uniform(kChars.size())]);
    for (char& ch : piece) {
      if (std::isalpha(static_cast<unsigned char>(ch)) && uniform(6) == 0) ch = static_cast<char>(ch ^ 0x20);
    }
    subject += piece;
  }
  return subject;
}

TEST(RegexDifferentialTest, AgreesWithStdRegexOnEveryPatternOfTheLibrary) {
  std::mt19937 random(1);
  for (const PatternCase& c : kCases) {
    std::regex reference(c.pattern, std::regex::ECMAScript | std::regex::icase);
    int matched = 0, mismatches = 0;
    for (int i = 0; i < kSubjects; ++i) {
      std::string subject = Subject(c.fragments, &random), expected, ours;
      std::smatch match;
      if (c.helper == kGroups) {
        // Seven greedy groups backtrack as a power of the tab count in both
        // engines; libcurl writes six tabs, so cut after the eighth.
        size_t tab = std::string::npos;
        for (int tabs = 0; tabs < 8 && (tab = subject.find('\t', tab + 1)) != std::string::npos;) ++tabs;
        if (tab != std::string::npos) subject.resize(tab + 1);
      }
      bool found = std::regex_search(subject, match, reference);
      if (!found) expected = "<null>";
      if (c.helper == kRemoveAll) {
        expected = std::regex_replace(subject, reference, "");
        ours = RegexRemoveAll(subject, c.pattern.c_str());
        found = expected != subject;
      } else if (c.helper == kGroups) {
        std::vector<std::string> groups;
        ours = RegexSearchGroups(subject.c_str(), c.pattern.c_str(), &groups) ? "" : "<null>";
        for (size_t g = 0; g < groups.size(); ++g) ours += "[" + groups[g] + "]";
        for (size_t g = 1; found && g < match.size(); ++g) expected += "[" + match[g].str() + "]";
      } else {
        if (found) expected = "=" + match[1].str();
        char* out = c.word == nullptr ? RegexFirstCapture(subject.c_str(), c.pattern.c_str())
                                      : ExtractXmlElement(subject.c_str(), c.word, c.helper == kWhole);
        ours = out != nullptr ? "=" + std::string(out) : "<null>";
        StrFree(&out);
      }
      matched += found;
      if (ours != expected && ++mismatches <= 3) {
        ADD_FAILURE() << c.pattern << "\n subject:   " << subject.substr(0, 300) << "\n ours:      "
                      << ours.substr(0, 300) << "\n reference: " << expected.substr(0, 300);
      }
    }
    EXPECT_EQ(mismatches, 0) << c.pattern;
    EXPECT_GE(matched, kSubjects / 20) << c.pattern;  // both outcomes common, or the test means little
    EXPECT_LE(matched, kSubjects - kSubjects / 20) << c.pattern;
  }
}

// On a thread with a 256 KB stack: no crash, and the capture the body was
// built to hold. (std::regex overflows an 8 MB stack on a 50 KB body.)
const size_t kBody = 16 * 1024 * 1024;

struct BodyCase {
  const char* pattern;  // or, with `element`, the word for ExtractXmlElement
  int element;          // -1: RegexFirstCapture; 0: inner; 1: whole
  std::string subject, expected;
};

struct Runner {
  std::vector<BodyCase> cases;
  std::vector<std::string> results;  // "<null>" for null

  static void* Main(void* argument) {
    auto* run = static_cast<Runner*>(argument);
    for (const BodyCase& c : run->cases) {
      char* result = c.element < 0 ? RegexFirstCapture(c.subject.c_str(), c.pattern)
                                   : ExtractXmlElement(c.subject.c_str(), c.pattern, c.element == 1);
      run->results.push_back(result != nullptr ? result : "<null>");
      StrFree(&result);
    }
    return nullptr;
  }
};

TEST(RegexLargeSubjectTest, BodyPatternsOnSixteenMegabytesWithASmallStack) {
  auto filler = [](size_t size, const std::string& piece) {
    std::string text;
    while (text.size() < size) text += piece;
    return text;
  };
  // Tags, attributes, entities and line ends, as in a SOAP body.
  const std::string xml = "<a:Item Id=\"_1\" xmlns:a=\"urn:x\">text &amp; more\tand more</a:Item>\r\n";
  const std::string half = filler(kBody / 2, xml), whole = filler(kBody, xml);
  const std::string json = filler(kBody, "\"Key\": \"value\", \"Other\":\t\"x\",\n");
  const std::string rstr = "<t:RequestSecurityTokenResponse>" + whole + "</t:RequestSecurityTokenResponse>";
  const std::string token = "t=" + std::string(kBody, 'E');
  const std::string bst = "<wsse:BinarySecurityToken Id=\"C\">" + token + "</wsse:BinarySecurityToken>";
  const std::string assertion = "<saml:Assertion M=\"1\">" + std::string(kBody, 'x') + "</saml:Assertion>";
  const std::string before = half + "<o:Password Type=\"PasswordText\">", after = "</o:Password>" + half;
  const std::string site = "<s:strSite a=\"1\">" + whole + "</s:strSite>";
  Runner run;
  run.cases = {
      {kRstr, -1, "<s:Envelope><s:Body>" + rstr + "</s:Body></s:Envelope>", rstr},
      {kTokenInner, -1, half + bst + half, token},
      {kTokenWhole, -1, half + bst + half, bst},
      {kAssertion, -1, half + assertion + "\r\n" + half, assertion},
      {kNamespace, -1, "{" + json + "\"NameSpaceType\": \"Federated\"}", "Federated"},
      {kAuthUrl, -1, "{" + json + "\"AuthURL\":\"https://sts/adfs/ls/\"}", "https://sts/adfs/ls/"},
      {kBeforePassword, -1, before + "secret" + after, before},
      {kAfterPassword, -1, before + "secret" + after, after},
      {"strSite", 0, "<r>" + site + "<strWeb>w</strWeb></r>", whole},
      {"strSite", 1, "<r>" + site + "<strWeb>w</strWeb></r>", site},
      {"strWeb", 0, half + "<strWeb>https://h/w</strWeb>" + half, "https://h/w"},
  };

  pthread_attr_t attributes;
  pthread_t thread = {};
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  ASSERT_EQ(pthread_create(&thread, &attributes, &Runner::Main, &run), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);

  for (size_t i = 0; i < run.cases.size(); ++i) {
    const BodyCase& c = run.cases[i];
    // Size and a prefix first: a failure must not print 16 MB.
    EXPECT_EQ(run.results[i].size(), c.expected.size()) << c.pattern << ": " << run.results[i].substr(0, 200);
    EXPECT_TRUE(run.results[i] == c.expected) << c.pattern;
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
