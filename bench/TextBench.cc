// Throughput of every search the library runs over response text, on bodies
// of 1 KB to 16 MB whose element of interest fills the middle half: a greedy
// "[^]+" runs to the end of the body and backtracks to the closing tag, the
// most a real answer asks of it. Each call compiles its pattern, as the
// library does. Beside it, the standard library's std::regex on the same
// patterns, at the sizes where its recursion fits in an 8 MB stack.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <functional>
#include <regex>
#include <string>

#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AdfsUtil.h"
#include "base/StringUtil.h"
#include "network/HeaderLine.h"
#include "support/HostileBodies.h"
#include "text/RegexUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Bench {
namespace {

using namespace Vantrel::Auth;
using Auth::testing::Filler;
using Auth::testing::Repeat;

// The factory's own copy is private.
const char kAssertionPattern[] = "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)";
const char kStrSitePattern[] = "<[^<]*strSite[^>]*>([^]+)</[^<]*strSite[^>]*>";

// Filler on one line, for the patterns whose "." stops at a line end.
std::string Line(size_t size) {
  std::string text = Repeat("<a:Item Id=\"_1\" xmlns:a=\"urn:x\">text &amp; more and more</a:Item>",
                            size / 64 + 1);
  text.resize(size);
  return text;
}

// About `size` bytes: a quarter of filler, the element around half, a quarter.
std::string Around(const std::string& open, const std::string& close, size_t size,
                   std::string (*fill)(size_t) = Filler) {
  return "<s:Envelope><s:Body>" + fill(size / 4) + open + fill(size / 2) + close + fill(size / 4) +
         "</s:Body></s:Envelope>";
}

struct Search {
  const char* name;
  std::function<std::string(size_t)> text;
  std::function<void(const std::string&)> run;
  const char* std_pattern;  // the same search with std::regex; null if none
};

void Release(char* text) {
  benchmark::DoNotOptimize(text);
  StrFree(&text);
}

std::function<void(const std::string&)> First(const char* pattern) {
  return [pattern](const std::string& text) { Release(RegexFirstCapture(text.c_str(), pattern)); };
}

const Search kSearches[] = {
    {"Rstr",
     [](size_t n) {
       return Around("<t:RequestSecurityTokenResponse>", "</t:RequestSecurityTokenResponse>", n);
     },
     [](const std::string& text) { Release(AdfsUtil::ExtractRstr(text.c_str())); },
     AdfsUtil::regex_str_rstr_},
    {"BinaryToken",
     [](size_t n) {
       return Around("<wsse:BinarySecurityToken Id=\"Compact0\">t=", "</wsse:BinarySecurityToken>", n);
     },
     [](const std::string& text) { Release(AdfsUtil::ExtractBinarySecurityToken(text.c_str())); },
     AdfsUtil::regex_str_binarysecuritytoken_},
    {"Assertion",
     [](size_t n) { return Around("<saml:Assertion MajorVersion=\"1\">", "</saml:Assertion>", n, Line); },
     First(kAssertionPattern), kAssertionPattern},
    {"StrSite", [](size_t n) { return Around("<strSite>", "</strSite>", n); },
     [](const std::string& text) { Release(ExtractXmlElement(text.c_str(), "strSite", false)); },
     kStrSitePattern},
    {"MaskPassword",
     [](size_t n) { return Around("<o:Password Type=\"Text\">", "</o:Password>", n); },
     [](const std::string& text) { Release(MaskPassword(StrDup(text.c_str()))); }, nullptr},
    {"HeaderLine", [](size_t n) { return "X-Filler: " + Line(n) + "\r\n"; },
     [](const std::string& text) {
       NetworkResult result;
       ParseHeaderLine(text.data(), text.size(), &result);
       benchmark::DoNotOptimize(result);
     },
     nullptr},
    {"SanitizeUrl",
     [](size_t n) {
       return "https://contoso.sharepoint.com" + Repeat("/sites/team", n / 11) +
              "/Pages/Home.aspx?x=1&y=2#top";
     },
     [](const std::string& text) { Release(SanitizeUrl(StrDup(text.c_str()))); }, nullptr},
    {"UrlDecode", [](size_t n) { return Repeat("name%40contoso%2Ecom%20and+more/", n / 32); },
     [](const std::string& text) { Release(UrlDecode(StrDup(text.c_str()))); }, nullptr},
};

// glibc hands blocks of more than 128 KB back to the system when they are
// freed, and a fresh block is paid for in page faults (on the virtual machines
// measured, some 10 us for every 4 KB, which makes any pass over new memory
// run at about 100 MB/s). While a text benchmark runs the heap keeps what it
// was given, so the figures are those of the searches; afterwards glibc's
// defaults return, and the memory with them.
class SteadyHeap {
 public:
  SteadyHeap() {
    mallopt(M_MMAP_THRESHOLD, kKeep);
    mallopt(M_TRIM_THRESHOLD, kKeep);
  }
  ~SteadyHeap() {
    mallopt(M_MMAP_THRESHOLD, kDefault);
    mallopt(M_TRIM_THRESHOLD, kDefault);
    malloc_trim(0);
  }

 private:
  static constexpr int kKeep = 1 << 30;
  static constexpr int kDefault = 128 * 1024;
};

void Throughput(benchmark::State& state, const Search& search, size_t size) {
  SteadyHeap heap;
  const std::string text = search.text(size);
  for (auto _ : state) search.run(text);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size()));
}

void StdRegexThroughput(benchmark::State& state, const Search& search, size_t size) {
  SteadyHeap heap;
  const std::string text = search.text(size);
  for (auto _ : state) {
    std::regex pattern(search.std_pattern, std::regex::ECMAScript | std::regex::icase);
    std::smatch match;
    benchmark::DoNotOptimize(std::regex_search(text, match, pattern));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size()));
}

struct Size {
  const char* label;
  size_t bytes;
};
const Size kSizes[] = {{"1KB", 1 << 10}, {"16KB", 16 << 10}, {"64KB", 64 << 10},
                       {"1MB", 1 << 20}, {"16MB", 16 << 20}};
// std::regex recurses once per character that a "[^]+" takes: near 50 KB its
// recursion ends the process on an 8 MB stack.
const size_t kStdRegexLimit = 16 << 10;

const bool kRegistered = [] {
  for (const Search& search : kSearches) {
    for (const Size& size : kSizes) {
      std::string name = std::string("Text/") + search.name + "/" + size.label;
      benchmark::RegisterBenchmark(name.c_str(), Throughput, search, size.bytes)
          ->Unit(benchmark::kMicrosecond);
    }
  }
  for (const Search& search : kSearches) {
    if (search.std_pattern == nullptr) continue;
    for (const Size& size : kSizes) {
      if (size.bytes > kStdRegexLimit) break;
      std::string name = std::string("Text/StdRegex/") + search.name + "/" + size.label;
      benchmark::RegisterBenchmark(name.c_str(), StdRegexThroughput, search, size.bytes)
          ->Unit(benchmark::kMicrosecond);
    }
  }
  return true;
}();

}  // namespace
}  // namespace Bench
}  // namespace Vantrel
