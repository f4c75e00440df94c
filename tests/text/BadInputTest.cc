// Arbitrary bytes wherever the text helpers take text: they return or, for a
// pattern that does not compile, throw std::regex_error; they never crash. Run
// under AddressSanitizer this also proves that nothing reads or writes astray.
#include <random>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "RegexUtil.h"
#include "StringUtil.h"
#include "UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

std::string RandomBytes(std::mt19937* random, size_t max_length) {
  std::uniform_int_distribution<size_t> length(0, max_length);
  std::uniform_int_distribution<int> byte(1, 255);  // a C string ends at NUL anyway
  std::string text(length(*random), ' ');
  for (char& c : text) c = static_cast<char>(byte(*random));
  return text;
}

TEST(BadInputTest, UrlHelpersTakeAnyBytes) {
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    std::string text = RandomBytes(&random, 300);
    char* out = SanitizeUrl(StrDup(text.c_str()));
    StrFree(&out);
    out = EscapeSpaces(StrDup(text.c_str()));
    StrFree(&out);
    char* encoded = UrlEncode(StrDup(text.c_str()));
    char* decoded = UrlDecode(StrDup(encoded));
    ASSERT_EQ(std::string(decoded), text);
    StrFree(&encoded);
    StrFree(&decoded);
    out = UrlDecode(StrDup(text.c_str()));
    StrFree(&out);
    JoinUrl(&out, text.c_str(), text.c_str());
    StrFree(&out);
  }
}

TEST(BadInputTest, RegexHelpersTakeAnyBytesAsSubjectWordOrPattern) {
  std::mt19937 random(11);
  int compiled = 0;
  for (int i = 0; i < 2000; ++i) {
    std::string subject = RandomBytes(&random, 600);
    std::string other = RandomBytes(&random, 12);
    char* out = RegexFirstCapture(subject.c_str(), "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*");
    StrFree(&out);
    try {
      out = ExtractXmlElement(subject.c_str(), other.c_str(), i % 2 == 0);
      StrFree(&out);
      out = RegexFirstCapture(subject.c_str(), other.c_str());
      StrFree(&out);
      RegexRemoveAll(subject, other.c_str());
      ++compiled;
    } catch (const std::regex_error&) {
    }
  }
  EXPECT_GT(compiled, 100);  // random patterns that compile were searched too
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
