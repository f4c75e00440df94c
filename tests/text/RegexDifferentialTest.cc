// Our PCRE2-backed dialect against std::regex(ECMAScript | icase), the engine
// whose semantics the patterns were written for, over generated subjects that
// are rich in the characters and words each pattern reacts to. Subjects run to
// 2 KB, and a share of them to 6 KB, so that both the interpreter and the JIT
// (used from 4 KB on) are compared.
#include <cstdio>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "RegexUtil.h"
#include "StringUtil.h"
#include "UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const int kSubjectsPerPattern = 3000;
const size_t kMaxSubject = 2048;
const size_t kJitSubject = 4096;  // from here on the JIT does the search
const size_t kMaxJitSubject = 6144;
const size_t kLongestPiece = 64;  // no fragment or word is longer

const std::regex::flag_type kReferenceFlags = std::regex::ECMAScript | std::regex::icase;

// Characters every pattern of the library reacts to.
const char kCharacters[] = "<>/:\"&=%?#\t\r\n  .aAbBsStTxXzZ_[0";

// Words of all patterns, offered to every subject so that near misses occur.
const std::vector<std::string> kSharedWords = {
    "RequestSecurityTokenResponse", "BinarySecurityToken", "Assertion", "wreply=", "/adfs/ls",
    "NameSpaceType", "AuthURL", "Password", "strSite", "strWeb", ".aspx", "t=", "TRUE", "#HttpOnly_",
};

struct PatternCase {
  const char* name;
  std::string pattern;
  std::vector<std::string> fragments;  // pieces that make a match likely
};

class SubjectGenerator {
 public:
  SubjectGenerator(const std::vector<std::string>& fragments, unsigned seed,
                   const char* characters = kCharacters)
      : fragments_(fragments), characters_(characters), random_(seed) {}

  std::string Next() {
    size_t length = PickLength();
    std::string subject;
    while (subject.size() < length) {
      int roll = Uniform(100);
      if (roll < 35 && !fragments_.empty()) {
        subject += Mangle(fragments_[Uniform(static_cast<int>(fragments_.size()))]);
      } else if (roll < 42) {
        subject += Mangle(kSharedWords[Uniform(static_cast<int>(kSharedWords.size()))]);
      } else {
        subject += characters_[Uniform(static_cast<int>(characters_.size()))];
      }
    }
    // The last piece stays whole, so that subjects end in whole words too.
    return subject;
  }

 private:
  // Mostly short subjects, where the structure varies most; a share long
  // enough for the JIT.
  size_t PickLength() {
    int roll = Uniform(100);
    if (roll < 50) return Uniform(65);
    if (roll < 80) return 64 + Uniform(449);
    if (roll < 92) return 512 + Uniform(static_cast<int>(kMaxSubject - kLongestPiece) - 511);
    return kJitSubject + Uniform(static_cast<int>(kMaxJitSubject - kJitSubject - kLongestPiece));
  }

  // Swaps the case of some letters, since every pattern ignores case.
  std::string Mangle(std::string text) {
    if (Uniform(3) != 0) return text;
    for (char& c : text) {
      if (Uniform(2) == 0) continue;
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
      else if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
  }

  int Uniform(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

  const std::vector<std::string>& fragments_;
  std::string characters_;
  std::mt19937 random_;
};

std::string Escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text.substr(0, 200)) {
    if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof(hex), "\\x%02X", c);
      out += hex;
    }
  }
  return text.size() > 200 ? out + "..." : out;
}

// Counts of one pattern's run; both kinds of outcome must occur often enough
// for the comparison to mean something.
struct Tally {
  int matched = 0;
  int unmatched = 0;
  int mismatches = 0;
};

void ExpectMeaningful(const Tally& tally, const char* name) {
  EXPECT_EQ(tally.mismatches, 0) << name;
  EXPECT_GE(tally.matched, kSubjectsPerPattern / 20) << name << ": too few subjects match";
  EXPECT_GE(tally.unmatched, kSubjectsPerPattern / 20) << name << ": too few subjects miss";
}

void Report(Tally* tally, const char* name, const std::string& subject, const std::string& ours,
            const std::string& reference) {
  if (++tally->mismatches <= 3) {
    ADD_FAILURE() << name << "\n  subject:   \"" << Escaped(subject) << "\"\n  ours:      \""
                  << Escaped(ours) << "\"\n  reference: \"" << Escaped(reference) << "\"";
  }
}

std::string OrNull(char* owned) {
  std::string text = owned != nullptr ? std::string("=") + owned : "<null>";
  StrFree(&owned);
  return text;
}

std::string ReferenceFirstCapture(const std::string& subject, const std::regex& re) {
  std::smatch match;
  if (!std::regex_search(subject, match, re) || re.mark_count() < 1) return "<null>";
  return "=" + match[1].str();
}

// The patterns that go through RegexFirstCapture, with fragments that build
// their matches and near misses.
std::vector<PatternCase> FirstCaptureCases() {
  return {
      {"rstr", "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)",
       {"<t:RequestSecurityTokenResponse xmlns:t=\"u\">", "</t:RequestSecurityTokenResponse>",
        "<RequestSecurityTokenResponse>", "</RequestSecurityTokenResponse >", "<t:Lifetime>", "</x>"}},
      {"token inner", "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>",
       {"<wsse:BinarySecurityToken Id=\"Compact0\">", "t=", "</wsse:BinarySecurityToken>", "t=EwB",
        "<BinarySecurityToken>t=", "</BinarySecurityToken>"}},
      {"token whole", "(<[^<]*BinarySecurityToken[^>]*>t=[^]+</[^<]*BinarySecurityToken[^>]*>)",
       {"<wsse:BinarySecurityToken Id=\"Compact0\">", "t=", "</wsse:BinarySecurityToken>", "t=EwB",
        "<BinarySecurityToken>t=", "</BinarySecurityToken>"}},
      {"assertion", "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)",
       {"<saml:Assertion MajorVersion=\"1\">", "</saml:Assertion>", "<saml2:Assertion>", "</x_y:Assertion>",
        "<:Assertion>", "<saml:AssertionID>", "<s[1]:Assertion>"}},
      {"wreply", "wreply=([^]+?)(&[^]*)*$",
       {"wreply=", "https%3a%2f%2fh%2f", "&wctx=", "&", "?wa=wsignin1.0", "&wreply=x", "=="}},
      {"adfs prefix", "(.*?)/adfs/ls", {"/adfs/ls", "https://sts.h", "/adfs/ls/?", "/adfs", "/ls", "adfs/ls"}},
      {"namespace type", "\"NameSpaceType\":\\s*\"(.+?)\"",
       {"\"NameSpaceType\":", "\"NameSpaceType\": \"", "\"Managed\"", "\"Federated\",", "\":\"", "\"\""}},
      {"auth url", "\"AuthURL\":\\s*\"(.+?)\"",
       {"\"AuthURL\":", "\"AuthURL\":\"", "\"https://sts/adfs/ls/\"", "\",\"", " \t", "\"\""}},
      {"header name", "^\\s*([^]+?)\\s*:\\s*", {"Location", ": ", " :", "\t", "X-Forms_Based_Auth_Required", "\r\n"}},
      {"header value", ":\\s*([^]+?)[\\s\\r\\n]*$", {": ", "value", " \r\n", "\r\n", ":", "\t\t", "a b"}},
      {"before password", "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$",
       {"<o:Password Type=\"t\">", "</o:Password>", "<password>", "</PASSWORD>", "<Username>", "</x>"}},
      {"after password", "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$",
       {"<o:Password Type=\"t\">", "</o:Password>", "<password>", "</PASSWORD>", "<Username>", "</x>"}},
  };
}

TEST(RegexDifferentialTest, FirstCapturePatterns) {
  unsigned seed = 1;
  for (const PatternCase& c : FirstCaptureCases()) {
    std::regex reference(c.pattern, kReferenceFlags);
    SubjectGenerator generator(c.fragments, seed++);
    Tally tally;
    for (int i = 0; i < kSubjectsPerPattern; ++i) {
      std::string subject = generator.Next();
      std::string expected = ReferenceFirstCapture(subject, reference);
      std::string ours = OrNull(RegexFirstCapture(subject.c_str(), c.pattern.c_str()));
      (expected == "<null>" ? tally.unmatched : tally.matched)++;
      if (ours != expected) Report(&tally, c.name, subject, ours, expected);
    }
    ExpectMeaningful(tally, c.name);
  }
}

TEST(RegexDifferentialTest, XmlElementTemplates) {
  const std::vector<std::string> fragments = {
      "<strSite>", "</strSite>", "<s:strSite a=\"1\">", "</s:strSite >", "<strWeb>", "</strWeb>",
      "<x:strWebUrl>", "<strSite/>", "https://h/sites/a", "<GetSiteAndWebResult>"};
  unsigned seed = 100;
  for (const char* word : {"strSite", "strWeb"}) {
    for (bool whole : {false, true}) {
      const char* format = whole ? "(<[^<]*%s[^>]*>[^]+</[^<]*%s[^>]*>)"
                                 : "<[^<]*%s[^>]*>([^]+)</[^<]*%s[^>]*>";
      char pattern[128];
      std::snprintf(pattern, sizeof(pattern), format, word, word);
      std::regex reference(pattern, kReferenceFlags);
      SubjectGenerator generator(fragments, seed++);
      Tally tally;
      std::string name = std::string(word) + (whole ? " whole" : " inner");
      for (int i = 0; i < kSubjectsPerPattern; ++i) {
        std::string subject = generator.Next();
        std::string expected = subject.empty() ? "<null>" : ReferenceFirstCapture(subject, reference);
        std::string ours = OrNull(ExtractXmlElement(subject.c_str(), word, whole));
        (expected == "<null>" ? tally.unmatched : tally.matched)++;
        if (ours != expected) Report(&tally, name.c_str(), subject, ours, expected);
      }
      ExpectMeaningful(tally, name.c_str());
    }
  }
}

TEST(RegexDifferentialTest, CookieLineAllGroups) {
  const char* pattern = "^(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)$";
  const std::vector<std::string> fragments = {"\t", "\t", "#HttpOnly_", ".h.com", "TRUE", "FALSE", "/", "0",
                                              "FedAuth", "77u/PD94", "\tTRUE\t/\tFALSE\t1767225600\t"};
  std::regex reference(pattern, kReferenceFlags);
  // A line end anywhere spoils a match, so they are rare here.
  SubjectGenerator generator(fragments, 200, "\t\t\t\tab.TRUE/0 #_\r\nxyzw:=\"<>?&%");
  Tally tally;
  for (int i = 0; i < kSubjectsPerPattern; ++i) {
    // Seven greedy groups backtrack through every choice of six separators:
    // both engines take time that grows as a power of the number of tabs.
    // libcurl writes six, and rejects cookies with control bytes in them.
    std::string subject = generator.Next();
    size_t tab = std::string::npos;
    for (int tabs = 0; tabs < 8; ++tabs) {
      tab = subject.find('\t', tab + 1);
      if (tab == std::string::npos) break;
    }
    if (tab != std::string::npos) subject.resize(tab + 1);
    std::smatch match;
    std::string expected = "<null>";
    if (std::regex_search(subject, match, reference)) {
      expected.clear();
      for (size_t g = 1; g < match.size(); ++g) expected += "[" + match[g].str() + "]";
    }
    std::vector<std::string> groups;
    std::string ours = "<null>";
    if (RegexSearchGroups(subject.c_str(), pattern, &groups)) {
      ours.clear();
      for (const std::string& group : groups) ours += "[" + group + "]";
    }
    (expected == "<null>" ? tally.unmatched : tally.matched)++;
    if (ours != expected) Report(&tally, "cookie line", subject, ours, expected);
  }
  ExpectMeaningful(tally, "cookie line");
}

TEST(RegexDifferentialTest, SanitizeUrlRemovals) {
  const std::vector<std::string> fragments = {"https://h", "/sites/a", "/Pages/Home.aspx", ".aspx", "?",
                                              "#", "x=1&y=2", "/", "default.ASPX", "/b.aspx/c"};
  const char* patterns[] = {"\\?(.*)$", "#(.*)$", "/[^/]*\\.aspx$"};
  unsigned seed = 300;
  for (const char* pattern : patterns) {
    std::regex reference(pattern, kReferenceFlags);
    SubjectGenerator generator(fragments, seed++);
    Tally tally;
    for (int i = 0; i < kSubjectsPerPattern; ++i) {
      std::string subject = generator.Next();
      std::string expected = std::regex_replace(subject, reference, "");
      std::string ours = RegexRemoveAll(subject, pattern);
      (expected == subject ? tally.unmatched : tally.matched)++;
      if (ours != expected) Report(&tally, pattern, subject, ours, expected);
    }
    ExpectMeaningful(tally, pattern);
  }

  // The three in their order, through the public helper.
  std::regex query(patterns[0], kReferenceFlags), fragment(patterns[1], kReferenceFlags),
      page(patterns[2], kReferenceFlags);
  SubjectGenerator generator(fragments, seed);
  Tally tally;
  for (int i = 0; i < kSubjectsPerPattern; ++i) {
    std::string subject = generator.Next();
    if (subject.empty()) continue;
    std::string expected = std::regex_replace(
        std::regex_replace(std::regex_replace(subject, query, ""), fragment, ""), page, "");
    std::string ours = OrNull(SanitizeUrl(StrDup(subject.c_str()))).substr(1);
    (expected == subject ? tally.unmatched : tally.matched)++;
    if (ours != expected) Report(&tally, "SanitizeUrl", subject, ours, expected);
  }
  ExpectMeaningful(tally, "SanitizeUrl");
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
