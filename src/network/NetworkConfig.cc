#include "VantrelAuthEngine64/NetworkConfig.h"

#include <cstdio>
#include <cstring>

#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "network/HeaderList.h"
#include "network/SecretMask.h"

namespace Vantrel {
namespace Auth {
namespace {

// The password element is the one that the two searches
//   prefix: ^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$
//   suffix: ^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$
// (case-insensitive, "[^]" any byte, "$" only at the end) would find. A
// backtracking engine spends time quadratic in the text on them, and far more
// on texts full of unclosed tags; a request body can carry a token or an
// assertion that a server made, so it is hostile text. FindPasswordElement
// gives the same two captures in two linear passes, worked out from how the
// searches backtrack:
//   - A closing tag starts at c when "</" stands there, the first "password"
//     at or after c+2 comes before the next "<", and some ">" follows that
//     word. The greedy "[^]*" in front of the suffix's group makes c the last
//     such place, c_last.
//   - An opening tag is a "<", a "password" before the next "<", and the first
//     ">" behind the word; it ends behind that ">". Any "<" before the word will
//     do, since "[^<]*" then starts at the last one. The greedy "[^]*" in front
//     of it tries the last word first, so the tag is the one of the last word
//     whose tag ends at or before c_last.
// Neither capture exists without the other: the prefix is text[0, end of that
// opening tag), the suffix text[c_last, length).
const char kWord[] = "password";
const size_t kWordLength = sizeof(kWord) - 1;

const char* SslVersionName(SslVersion version) {
  switch (version) {
    case kSslVersionTls1:
      return "kSslVersionTls1";
    case kSslVersionSsl3:
      return "kSslVersionSsl3";
    case kSslVersionDefault:
      return "kSslVersionDefault";
  }
  return "?";
}

}  // namespace

NetworkConfig::NetworkConfig()
    : url_(nullptr),
      headers_(nullptr),
      proxy_(nullptr),
      post_data_(nullptr),
      ssl_used_(false),
      ca_file_(nullptr),
      verify_host_(true),
      verify_cert_(true),
      verbose_(false),
      ssl_version_(kSslVersionDefault) {
  Reset();
}

NetworkConfig::~NetworkConfig() { Reset(); }

void NetworkConfig::Reset() {
  StrFree(&url_);
  ClearHeaders();
  StrFree(&proxy_);
  WipeAndFree(&post_data_);
  StrFree(&ca_file_);
  ssl_used_ = false;
  verbose_ = false;
  verify_host_ = true;
  verify_cert_ = true;
  // ssl_version_ survives on purpose: realm discovery sets it once and then
  // resets the rest between its redirect hops.
}

void NetworkConfig::SetUrl(const char* url) { StrAssign(&url_, url); }
const char* NetworkConfig::GetUrl() const { return url_; }

HeaderNode* NetworkConfig::GetHeaders() const { return headers_; }

void NetworkConfig::AddHeader(const char* name, const char* value) {
  PushHeader(&headers_, name, value);
}

// A header's value is wiped as it goes: it may be "Bearer TOKEN".
void NetworkConfig::ClearHeaders() {
  HeaderNode::FreeList(headers_);
  headers_ = nullptr;
}

void NetworkConfig::SetProxy(const char* proxy) { StrAssign(&proxy_, proxy); }
const char* NetworkConfig::GetProxy() const { return proxy_; }
// A body may hold a password, a client secret or a token: its bytes are
// overwritten before the heap gets them back.
void NetworkConfig::SetPostData(const char* data) { WipeAndAssign(&post_data_, data); }
const char* NetworkConfig::GetPostData() const { return post_data_; }
void NetworkConfig::SetSslUsed(bool used) { ssl_used_ = used; }
bool NetworkConfig::IsSslUsed() const { return ssl_used_; }
void NetworkConfig::SetCaFile(const char* path) { StrAssign(&ca_file_, path); }
const char* NetworkConfig::GetCaFile() const { return ca_file_; }
void NetworkConfig::SetVerifyCert(bool verify) { verify_cert_ = verify; }
bool NetworkConfig::IsVerifyCert() const { return verify_cert_; }
void NetworkConfig::SetVerifyHost(bool verify) { verify_host_ = verify; }
bool NetworkConfig::IsVerifyHost() const { return verify_host_; }
void NetworkConfig::SetSslVersion(SslVersion version) { ssl_version_ = version; }
SslVersion NetworkConfig::GetSslVersion() const { return ssl_version_; }
void NetworkConfig::SetVerbose(bool verbose) { verbose_ = verbose; }
bool NetworkConfig::IsVerbose() const { return verbose_; }

void NetworkConfig::LogDump(const NetworkConfig* config) {
  static const char kWhere[] = "NetworkConfig::LogDump";
  // Every line is a debug line; below that level the masked copy of the body
  // would be made for nothing.
  if (!Logger::IsEnabled(kLogLevelDebug)) return;
  if (config == nullptr) {
    Logger::LogFormat(kLogLevelDebug, "%s - Nothing to print; NetworkConfig is NULL.", kWhere,
                      nullptr, nullptr, nullptr, nullptr);
    return;
  }
  Logger::LogFormat(kLogLevelDebug, "%s - URL: %s", kWhere, config->url_, nullptr, nullptr,
                    nullptr);
  LogHeaderList(kWhere, config->headers_);
  Logger::LogFormat(kLogLevelDebug, "%s - SSL Used: %s, Verf_host: %s, Verf_cert: %s", kWhere,
                    YesNo(config->ssl_used_), YesNo(config->verify_host_),
                    YesNo(config->verify_cert_), nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - SSL Version: %s", kWhere,
                    SslVersionName(config->ssl_version_), nullptr, nullptr, nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - CA file: %s", kWhere, config->ca_file_, nullptr,
                    nullptr, nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - Verbose: %s", kWhere, YesNo(config->verbose_), nullptr,
                    nullptr, nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - Proxy: %s", kWhere, config->proxy_, nullptr, nullptr,
                    nullptr);
  // The request itself goes out unmasked; only the logged copy is masked:
  // a password element of an XML body, the secret fields of a form body.
  // The copy still holds every secret that the masks don't know of.
  OwnedSecret masked(StrDup(config->post_data_));
  if (masked) {
    size_t length = std::strlen(masked.get());
    MaskFormSecrets(MaskPassword(masked.get()));
    // Masking shortens the text in place and leaves old bytes, a password's
    // among them, behind the new end, where the deleter would not look.
    size_t kept = std::strlen(masked.get());
    WipeMemory(masked.get() + kept, length - kept);
  }
  Logger::LogFormat(kLogLevelDebug, "%s - POST data: %s", kWhere, masked.get(), nullptr, nullptr,
                    nullptr);
}

namespace {

bool IsPasswordWord(const char* text, size_t length, size_t at) {
  if (length - at < kWordLength) return false;
  for (size_t i = 0; i < kWordLength; ++i) {
    char c = text[at + i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != kWord[i]) return false;
  }
  return true;
}

// Finds the element that MaskPassword hides: its content is text[*content_start,
// *content_end). False when the searches above would find nothing.
bool FindPasswordElement(const char* text, size_t length, size_t* content_start,
                         size_t* content_end) {
  const size_t kNone = static_cast<size_t>(-1);
  size_t last_gt = kNone;
  size_t first_lt = kNone;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '>') last_gt = i;
    if (text[i] == '<' && first_lt == kNone) first_lt = i;
  }
  if (last_gt == kNone || first_lt == kNone) return false;

  // Backwards, knowing the nearest word and the nearest "<" at or after i.
  size_t closing = kNone;
  size_t word_at = kNone;
  size_t lt_at = kNone;
  for (size_t i = length; i-- > 0;) {
    if (IsPasswordWord(text, length, i)) word_at = i;
    if (text[i] == '<') lt_at = i;
    if (i >= 2 && text[i - 2] == '<' && text[i - 1] == '/' && word_at != kNone &&
        (lt_at == kNone || word_at < lt_at) && word_at + kWordLength <= last_gt) {
      closing = i - 2;
      break;
    }
  }
  if (closing == kNone) return false;

  // Backwards again, knowing the nearest ">" at or after i + the word's length.
  size_t gt_at = kNone;
  for (size_t w = length; w-- > 0;) {
    if (w + kWordLength < length && text[w + kWordLength] == '>') gt_at = w + kWordLength;
    if (w <= first_lt) break;
    if (gt_at != kNone && gt_at < closing && IsPasswordWord(text, length, w)) {
      *content_start = gt_at + 1;
      *content_end = closing;
      return true;
    }
  }
  return false;
}

}  // namespace

char* MaskPassword(char* text) {
  if (text == nullptr) return text;
  size_t length = std::strlen(text);
  size_t start = 0;
  size_t end = 0;
  // The masked text must never be longer than the original: it is written
  // over it. An empty element fails this and is left as it is.
  if (FindPasswordElement(text, length, &start, &end) && start < end) {
    text[start] = '*';
    std::memmove(text + start + 1, text + end, length - end + 1);
  }
  return text;
}

}  // namespace Auth
}  // namespace Vantrel
