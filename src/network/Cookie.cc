#include "VantrelAuthEngine64/Cookie.h"

#include <climits>
#include <ctime>

#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

Cookie::Cookie()
    : name_(nullptr),
      value_(nullptr),
      domain_(nullptr),
      path_(nullptr),
      tail_match_(false),
      secure_(false),
      http_only_(false),
      expires_(0) {}

Cookie::~Cookie() { Reset(); }

// The value is a session (FedAuth, rtFa): wiped whenever it goes.
void Cookie::Reset() {
  StrFree(&name_);
  WipeAndFree(&value_);
  StrFree(&domain_);
  StrFree(&path_);
  tail_match_ = false;
  secure_ = false;
  http_only_ = false;
  expires_ = 0;
}

void Cookie::SetName(const char* name) { StrAssign(&name_, name); }
const char* Cookie::GetName() const { return name_; }
void Cookie::SetValue(const char* value) { WipeAndAssign(&value_, value); }
const char* Cookie::GetValue() const { return value_; }
void Cookie::SetDomain(const char* domain) { StrAssign(&domain_, domain); }
const char* Cookie::GetDomain() const { return domain_; }
void Cookie::SetPath(const char* path) { StrAssign(&path_, path); }
const char* Cookie::GetPath() const { return path_; }

void Cookie::EnableTailMatch(bool enable) { tail_match_ = enable; }
bool Cookie::IsTailMatchEnabled() const { return tail_match_; }
void Cookie::EnableSecure(bool enable) { secure_ = enable; }
bool Cookie::IsSecureEnabled() const { return secure_; }
void Cookie::EnableHttpOnly(bool enable) { http_only_ = enable; }
bool Cookie::IsHttpOnlyEnabled() const { return http_only_; }

void Cookie::SetExpires(long expires) {
  // libcurl hands out 64-bit expiry times (a far-future Expires or a huge
  // Max-Age). Saturating keeps such a cookie "far in the future" instead of
  // wrapping it round to some date in the past.
  if (expires > INT32_MAX) expires = INT32_MAX;
  if (expires < INT32_MIN) expires = INT32_MIN;
  expires_ = static_cast<int32_t>(expires);
}

long Cookie::GetExpires() const { return expires_; }

void Cookie::Copy(Cookie* destination, const Cookie* source) {
  // Onto itself there is nothing to do.
  if (destination == nullptr || source == nullptr || destination == source) return;
  // A failed allocation leaves `destination` part copied: every field valid.
  StrAssign(&destination->name_, source->name_);
  WipeAndAssign(&destination->value_, source->value_);
  StrAssign(&destination->domain_, source->domain_);
  StrAssign(&destination->path_, source->path_);
  destination->tail_match_ = source->tail_match_;
  destination->secure_ = source->secure_;
  destination->http_only_ = source->http_only_;
  destination->expires_ = source->expires_;
}

void Cookie::LogDump(const Cookie* cookie) {
  static const char kWhere[] = "Cookie::LogDump";
  if (cookie == nullptr) {
    Logger::LogFormat(kLogLevelDebug, "%s - Nothing to print; Cookie is NULL.", kWhere, nullptr,
                      nullptr, nullptr, nullptr);
    return;
  }
  Logger::LogFormat(kLogLevelDebug, "%s - Cookie Name: %s, Domain: %s, Path: %s", kWhere,
                    cookie->name_, cookie->domain_, cookie->path_, nullptr);
  // ctime_r gives ctime's text, line feed included, without its shared buffer:
  // two engines may log on two threads.
  char expiry[64] = "";
  time_t when = static_cast<time_t>(cookie->expires_);
  if (ctime_r(&when, expiry) == nullptr) expiry[0] = '\0';
  Logger::LogFormat(kLogLevelDebug, "%s - Cookie Expiry: %s, HttpOnly: %s, TailMatch: %s, Secure: %s",
                    kWhere, expiry, YesNo(cookie->http_only_), YesNo(cookie->tail_match_),
                    YesNo(cookie->secure_));
  Logger::LogFormat(kLogLevelDebug, "%s - Cookie Value: %s", kWhere, cookie->value_, nullptr,
                    nullptr, nullptr);
}

}  // namespace Auth
}  // namespace Vantrel
