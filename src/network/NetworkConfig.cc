#include "NetworkConfig.h"

#include <cstdio>
#include <cstring>

#include "Logger.h"
#include "RegexUtil.h"
#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Both searches are greedy in front of the tag, so both settle on the last
// password element; the word may stand anywhere in the tag (a namespace
// prefix, attributes) and the search ignores case.
const char kPasswordPrefixPattern[] =
    "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$";
const char kPasswordSuffixPattern[] =
    "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$";

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
  StrFree(&post_data_);
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
  Header* header = new Header();
  HeaderNode* node = nullptr;
  try {
    StrAssign(&header->name, name);
    StrAssign(&header->value, value);
    node = new HeaderNode();
  } catch (...) {
    delete header;
    throw;
  }
  node->header = header;
  node->next = headers_;
  headers_ = node;
}

void NetworkConfig::ClearHeaders() {
  HeaderNode::FreeList(headers_);
  headers_ = nullptr;
}

void NetworkConfig::SetProxy(const char* proxy) { StrAssign(&proxy_, proxy); }
const char* NetworkConfig::GetProxy() const { return proxy_; }
void NetworkConfig::SetPostData(const char* data) { StrAssign(&post_data_, data); }
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
  if (config == nullptr) {
    Logger::LogFormat(kLogLevelDebug, "%s - Nothing to print; NetworkConfig is NULL.", kWhere,
                      nullptr, nullptr, nullptr, nullptr);
    return;
  }
  Logger::LogFormat(kLogLevelDebug, "%s - URL: %s", kWhere, config->url_, nullptr, nullptr,
                    nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - Printing Header(s) .....", kWhere, nullptr, nullptr,
                    nullptr, nullptr);
  for (const HeaderNode* node = config->headers_; node != nullptr; node = node->next) {
    if (node->header == nullptr) continue;
    Logger::LogFormat(kLogLevelDebug, "%s - Header: %s: %s", kWhere, node->header->name,
                      node->header->value, nullptr, nullptr);
  }
  Logger::LogFormat(kLogLevelDebug, "%s - Printing Header(s) - Done", kWhere, nullptr, nullptr,
                    nullptr, nullptr);
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
  // The request itself goes out unmasked; only the logged copy is masked.
  char* masked = StrDup(config->post_data_);
  MaskPassword(masked);
  Logger::LogFormat(kLogLevelDebug, "%s - POST data: %s", kWhere, masked, nullptr, nullptr,
                    nullptr);
  StrFree(&masked);
}

char* MaskPassword(char* text) {
  if (text == nullptr) return text;
  char* prefix = RegexFirstCapture(text, kPasswordPrefixPattern);
  char* suffix = nullptr;
  try {
    suffix = RegexFirstCapture(text, kPasswordSuffixPattern);
  } catch (...) {
    StrFree(&prefix);
    throw;
  }
  if (prefix != nullptr && suffix != nullptr) {
    size_t length = std::strlen(text);
    // The masked text must never be longer than the original: it is written
    // over it. An empty element fails this and is left as it is.
    if (std::strlen(prefix) + std::strlen(suffix) + 1 <= length) {
      std::snprintf(text, length + 1, "%s%s%s", prefix, "*", suffix);
    }
  }
  StrFree(&prefix);
  StrFree(&suffix);
  return text;
}

}  // namespace Auth
}  // namespace Vantrel
