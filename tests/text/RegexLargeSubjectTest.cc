// Every pattern that runs over a whole body, on a 16 MB body, on a thread whose
// stack is only 256 KB: no crash, and the capture that the body was built to
// hold. std::regex, the engine these patterns come from, overflows an 8 MB
// stack on a 50 KB body.
#include <pthread.h>

#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "RegexUtil.h"
#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const size_t kBodySize = 16 * 1024 * 1024;
const size_t kThreadStack = 256 * 1024;

// Tags, attributes, entities and line ends: what a SOAP body is made of, so
// that every "<", ">" and line end in the patterns gets work to do.
std::string Filler(size_t size) {
  static const std::string kPiece =
      "<a:Item Id=\"_1\" xmlns:a=\"urn:x\">text &amp; more\tand more</a:Item>\r\n";
  std::string filler;
  filler.reserve(size + kPiece.size());
  while (filler.size() < size) filler += kPiece;
  return filler;
}

struct BodyCase {
  BodyCase(std::string name_in, std::string subject_in, std::string expected_in,
           std::function<char*(const char*)> extract_in)
      : name(std::move(name_in)), subject(std::move(subject_in)), expected(std::move(expected_in)),
        extract(std::move(extract_in)) {}

  std::string name;
  std::string subject;
  std::string expected;
  std::function<char*(const char*)> extract;
  std::string actual;
  bool was_null = false;
  std::string error;  // what a search threw, if it did
};

void* RunCases(void* argument) {
  auto* cases = static_cast<std::vector<BodyCase>*>(argument);
  for (BodyCase& c : *cases) {
    try {
      char* result = c.extract(c.subject.c_str());
      c.was_null = result == nullptr;
      if (result != nullptr) c.actual.assign(result);
      StrFree(&result);
    } catch (const std::exception& error) {
      c.error = error.what();
    }
  }
  return nullptr;
}

std::function<char*(const char*)> FirstCapture(const char* pattern) {
  return [pattern](const char* subject) { return RegexFirstCapture(subject, pattern); };
}

std::function<char*(const char*)> Element(const char* word, bool whole) {
  return [word, whole](const char* subject) { return ExtractXmlElement(subject, word, whole); };
}

std::vector<BodyCase> BuildCases() {
  const std::string half = Filler(kBodySize / 2);
  const std::string whole_body = Filler(kBodySize);
  const std::string token(kBodySize, 'E');
  const std::string line(kBodySize, 'x');  // "." stops at line ends: one long line
  std::vector<BodyCase> cases;

  std::string rstr = "<t:RequestSecurityTokenResponse Context=\"c\">" + whole_body +
                     "</t:RequestSecurityTokenResponse>";
  cases.emplace_back("rstr", "<s:Envelope><s:Body>" + rstr + "</s:Body></s:Envelope>", rstr,
                   FirstCapture("(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*"
                                "RequestSecurityTokenResponse[^>]*>)"));

  std::string bst = "<wsse:BinarySecurityToken Id=\"Compact0\">t=" + token + "</wsse:BinarySecurityToken>";
  cases.emplace_back("token inner", half + bst + half, "t=" + token,
                   FirstCapture("<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>"));
  cases.emplace_back("token whole", half + bst + half, bst,
                   FirstCapture("(<[^<]*BinarySecurityToken[^>]*>t=[^]+</[^<]*BinarySecurityToken[^>]*>)"));

  std::string assertion = "<saml:Assertion MajorVersion=\"1\">" + line + "</saml:Assertion>";
  cases.emplace_back("assertion", half + assertion + "\r\n" + half, assertion,
                   FirstCapture("(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)"));

  std::string json_filler;
  while (json_filler.size() < kBodySize) json_filler += "\"Key\": \"value\", \"Other\":\t\"x\",\n";
  cases.emplace_back("namespace type", "{" + json_filler + "\"NameSpaceType\": \"Federated\"}", "Federated",
                   FirstCapture("\"NameSpaceType\":\\s*\"(.+?)\""));
  cases.emplace_back("auth url", "{" + json_filler + "\"AuthURL\":\"https://sts/adfs/ls/\"}",
                   "https://sts/adfs/ls/", FirstCapture("\"AuthURL\":\\s*\"(.+?)\""));

  std::string before = half + "<o:Password Type=\"PasswordText\">";
  std::string after = "</o:Password>" + half;
  cases.emplace_back("before password", before + "secret" + after, before,
                   FirstCapture("^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$"));
  cases.emplace_back("after password", before + "secret" + after, after,
                   FirstCapture("^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$"));

  std::string site = "<s:strSite a=\"1\">" + whole_body + "</s:strSite>";
  cases.emplace_back("strSite inner", "<r>" + site + "<strWeb>w</strWeb></r>", whole_body,
                   Element("strSite", false));
  cases.emplace_back("strSite whole", "<r>" + site + "<strWeb>w</strWeb></r>", site, Element("strSite", true));
  cases.emplace_back("strWeb inner", half + "<strWeb>https://h/w</strWeb>" + half, "https://h/w",
                   Element("strWeb", false));
  cases.emplace_back("strWeb whole", half + "<strWeb>https://h/w</strWeb>" + half,
                   "<strWeb>https://h/w</strWeb>", Element("strWeb", true));
  return cases;
}

TEST(RegexLargeSubjectTest, BodyPatternsOnSixteenMegabytesWithASmallStack) {
  std::vector<BodyCase> cases = BuildCases();

  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kThreadStack), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, RunCases, &cases), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);

  for (const BodyCase& c : cases) {
    ASSERT_GE(c.subject.size(), kBodySize) << c.name;
    EXPECT_EQ(c.error, "") << c.name;
    EXPECT_FALSE(c.was_null) << c.name << ": no match";
    // Sizes first: a failure must not print 16 MB.
    EXPECT_EQ(c.actual.size(), c.expected.size()) << c.name;
    EXPECT_TRUE(c.actual == c.expected) << c.name << ": wrong capture";
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
