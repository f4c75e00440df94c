// Every pattern the library searches with, over fuzzed bodies.
#include <cstdint>
#include <string>

#include "FuzzInput.h"
#include "RegexUtil.h"
#include "StringUtil.h"

using namespace Vantrel::Auth;

namespace {

const char* const kPatterns[] = {
    "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)",
    "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>",
    "(<[^<]*BinarySecurityToken[^>]*>t=[^]+</[^<]*BinarySecurityToken[^>]*>)",
    "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)",
    "wreply=([^]+?)(&[^]*)*$",
    "(.*?)/adfs/ls",
    "\"NameSpaceType\":\\s*\"(.+?)\"",
    "\"AuthURL\":\\s*\"(.+?)\"",
    "^\\s*([^]+?)\\s*:\\s*",
    ":\\s*([^]+?)[\\s\\r\\n]*$",
    "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$",
    "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$",
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  uint8_t choice = input.Byte();
  std::string body = input.Rest();
  const size_t count = sizeof(kPatterns) / sizeof(kPatterns[0]);
  char* capture = RegexFirstCapture(body.c_str(), kPatterns[choice % count]);
  StrFree(&capture);
  char* element = ExtractXmlElement(body.c_str(), (choice & 0x80) ? "strSite" : "strWeb",
                                    (choice & 0x40) != 0);
  StrFree(&element);
  return 0;
}
