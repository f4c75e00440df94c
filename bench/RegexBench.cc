// The regular-expression helpers as the library calls them: every call
// compiles its pattern and searches once, over bodies of 10 KB, 1 MB and
// 16 MB, and over the short texts (header lines, URLs) they also serve.
#include <regex>
#include <string>

#include <benchmark/benchmark.h>

#include "RegexUtil.h"
#include "StringUtil.h"
#include "UrlUtil.h"

namespace {

using Vantrel::Auth::ExtractXmlElement;
using Vantrel::Auth::RegexFirstCapture;
using Vantrel::Auth::SanitizeUrl;
using Vantrel::Auth::StrDup;
using Vantrel::Auth::StrFree;

const char kRstrPattern[] =
    "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)";
const char kTokenPattern[] = "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>";
const char kHeaderNamePattern[] = "^\\s*([^]+?)\\s*:\\s*";

std::string Filler(size_t size) {
  static const std::string kPiece =
      "<a:Item Id=\"_1\" xmlns:a=\"urn:x\">text &amp; more\tand more</a:Item>\r\n";
  std::string filler;
  while (filler.size() < size) filler += kPiece;
  filler.resize(size);
  return filler;
}

// A response of about `size` bytes whose element of interest fills its middle
// half: the greedy "[^]+" runs to the end of the body and backtracks through
// the last quarter to the closing tag.
std::string Body(const std::string& open, const std::string& close, size_t size) {
  return "<s:Envelope><s:Body>" + Filler(size / 4) + open + Filler(size / 2) + close +
         Filler(size / 4) + "</s:Body></s:Envelope>";
}

void Consume(char* result) {
  benchmark::DoNotOptimize(result);
  StrFree(&result);
}

void BM_RstrElement(benchmark::State& state) {
  std::string body = Body("<t:RequestSecurityTokenResponse>", "</t:RequestSecurityTokenResponse>",
                          static_cast<size_t>(state.range(0)));
  for (auto _ : state) Consume(RegexFirstCapture(body.c_str(), kRstrPattern));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}

void BM_BinaryToken(benchmark::State& state) {
  std::string body = Body("<wsse:BinarySecurityToken Id=\"Compact0\">t=", "</wsse:BinarySecurityToken>",
                          static_cast<size_t>(state.range(0)));
  for (auto _ : state) Consume(RegexFirstCapture(body.c_str(), kTokenPattern));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}

void BM_ExtractXmlElement(benchmark::State& state) {
  std::string body = Body("<strSite>", "</strSite>", static_cast<size_t>(state.range(0)));
  for (auto _ : state) Consume(ExtractXmlElement(body.c_str(), "strSite", false));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}

// The short texts: here the compilation at every call is the cost.
void BM_HeaderName(benchmark::State& state) {
  const char* line = "X-Forms_Based_Auth_Required: https://h/_login/default.aspx?ReturnUrl=/\r\n";
  for (auto _ : state) Consume(RegexFirstCapture(line, kHeaderNamePattern));
}

void BM_SanitizeUrl(benchmark::State& state) {
  const char* url = "https://contoso.sharepoint.com/sites/a/Pages/Home.aspx?x=1&y=2#top";
  for (auto _ : state) Consume(SanitizeUrl(StrDup(url)));
}

// For comparison: the standard engine on the same 10 KB body. It is not run
// on larger bodies, where it exhausts an 8 MB stack.
void BM_StdRegexRstrElement(benchmark::State& state) {
  std::string body = Body("<t:RequestSecurityTokenResponse>", "</t:RequestSecurityTokenResponse>",
                          static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    std::regex re(kRstrPattern, std::regex::ECMAScript | std::regex::icase);
    std::smatch match;
    benchmark::DoNotOptimize(std::regex_search(body, match, re));
  }
}

const int64_t k10K = 10 * 1024;
const int64_t k1M = 1024 * 1024;
const int64_t k16M = 16 * 1024 * 1024;

BENCHMARK(BM_RstrElement)->Arg(k10K)->Arg(k1M)->Arg(k16M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BinaryToken)->Arg(k10K)->Arg(k1M)->Arg(k16M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExtractXmlElement)->Arg(k10K)->Arg(k1M)->Arg(k16M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HeaderName)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SanitizeUrl)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StdRegexRstrElement)->Arg(k10K)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
