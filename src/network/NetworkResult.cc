#include "VantrelAuthEngine64/NetworkResult.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "network/HeaderList.h"
#include "network/SecretMask.h"

namespace Vantrel {
namespace Auth {

NetworkResult::NetworkResult()
    : headers_(nullptr), response_code_(0), cookies_(nullptr), error_detail_(nullptr) {
  error_detail_ = new ErrorDetail(AuthEngineConfig::GetDefaultBufferSize());
  Reset();
}

NetworkResult::~NetworkResult() {
  Reset();
  delete error_detail_;
}

void NetworkResult::Reset() {
  ClearBody();
  response_code_ = 0;
  ClearHeaders();
  ClearCookies();
  error_detail_->Clear();
}

void NetworkResult::SetResponseCode(int code) { response_code_ = code; }
int NetworkResult::GetResponseCode() const { return response_code_; }

void NetworkResult::AddHeader(const char* name, const char* value) {
  PushHeader(&headers_, name, value);
}

const char* NetworkResult::GetHeader(const char* name) const {
  if (name == nullptr) return nullptr;
  const char* found = nullptr;
  for (const HeaderNode* node = headers_; node != nullptr; node = node->next) {
    // A header sent with nothing behind its colon doesn't hide an earlier
    // one of the same name that has a value.
    if (found != nullptr && found[0] != '\0') break;
    const Header* header = node->header;
    if (header == nullptr || header->name == nullptr) continue;
    if (std::strcmp(header->name, name) == 0) found = header->value;
  }
  return found;
}

HeaderNode* NetworkResult::GetHeaders() const { return headers_; }

void NetworkResult::ClearHeaders() {
  HeaderNode::FreeList(headers_);
  headers_ = nullptr;
}

void NetworkResult::AddCookie(const Cookie* cookie) {
  Cookie* copy = new Cookie();
  CookieNode* node = nullptr;
  try {
    Cookie::Copy(copy, cookie);
    node = new CookieNode();
  } catch (...) {
    delete copy;
    throw;
  }
  node->cookie = copy;
  node->next = cookies_;
  cookies_ = node;
}

CookieNode* NetworkResult::GetCookies() const { return cookies_; }

void NetworkResult::ClearCookies() {
  CookieNode::FreeList(cookies_);
  cookies_ = nullptr;
}

void NetworkResult::AppendBody(const char* data, size_t length) {
  if (length == 0) return;
  if (body_.size() + length > body_.capacity()) {
    // Grown by hand: std::string would give its old buffer, which may hold
    // part of a token answer, back to the heap unwiped.
    std::string larger;
    larger.reserve(std::max(body_.size() + length, 2 * body_.capacity()));
    larger.append(body_);
    WipeString(&body_);
    body_.swap(larger);
  }
  body_.append(data, length);
}

std::string NetworkResult::GetBody() const { return body_; }

void NetworkResult::ClearBody() {
  // A token answer is a body too: wiped first. clear() keeps the capacity; a
  // transport reused for many requests would otherwise hold on to its
  // largest body ever, so give the memory back.
  WipeString(&body_);
  std::string().swap(body_);
}

void NetworkResult::SetErrorMsg(const char* text) { error_detail_->Set(text != nullptr ? text : ""); }

const char* NetworkResult::GetErrorMsg() const { return error_detail_->Get(); }

void NetworkResult::LogDump(const NetworkResult* result) {
  static const char kWhere[] = "NetworkResult::LogDump";
  // Every line is a debug line: below that level there is nothing to walk.
  if (!Logger::IsEnabled(kLogLevelDebug)) return;
  if (result == nullptr) {
    Logger::LogFormat(kLogLevelDebug, "%s - Nothing to print; NetworkResult is NULL.", kWhere,
                      nullptr, nullptr, nullptr, nullptr);
    return;
  }
  OwnedString code(IntToText(result->response_code_));
  Logger::LogFormat(kLogLevelDebug, "%s - Response code: %s", kWhere, code.get(), nullptr,
                    nullptr, nullptr);
  Logger::LogFormat(kLogLevelDebug, "%s - Error detail: %s", kWhere, result->GetErrorMsg(),
                    nullptr, nullptr, nullptr);
  LogHeaderList(kWhere, result->headers_);
  Logger::LogFormat(kLogLevelDebug, "%s - Printing cookie(s) ..... ", kWhere, nullptr, nullptr,
                    nullptr, nullptr);
  for (const CookieNode* node = result->cookies_; node != nullptr; node = node->next) {
    const Cookie* cookie = node->cookie;
    if (cookie == nullptr) continue;
    Logger::LogFormat(kLogLevelDebug, "%s -     Cookie Name: %s, Domain: %s, Path: %s", kWhere,
                      cookie->GetName(), cookie->GetDomain(), cookie->GetPath(), nullptr);
    char expiry[64] = "(none)";
    if (cookie->GetExpires() > 0) {
      time_t when = static_cast<time_t>(cookie->GetExpires());
      if (ctime_r(&when, expiry) == nullptr) expiry[0] = '\0';
    }
    Logger::LogFormat(kLogLevelDebug,
                      "%s -     Cookie Expiry: %s, HttpOnly: %s, TailMatch: %s, Secure: %s", kWhere,
                      expiry, YesNo(cookie->IsHttpOnlyEnabled()),
                      YesNo(cookie->IsTailMatchEnabled()), YesNo(cookie->IsSecureEnabled()));
    Logger::LogFormat(kLogLevelDebug, "%s -     Cookie Value: %s", kWhere, cookie->GetValue(),
                      nullptr, nullptr, nullptr);
  }
  Logger::LogFormat(kLogLevelDebug, "%s - Printing cookie(s) done.", kWhere, nullptr, nullptr,
                    nullptr, nullptr);
  // The text ends at the body's first NUL byte; a token answer shows its
  // member names but none of its tokens.
  std::string masked = MaskJsonSecrets(result->body_.c_str());
  Logger::LogFormat(kLogLevelDebug, "%s - Response: %s", kWhere, masked.c_str(), nullptr, nullptr,
                    nullptr);
}

}  // namespace Auth
}  // namespace Vantrel
