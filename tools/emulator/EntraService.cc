#include "emulator/EntraService.h"

#include <ctime>
#include <utility>

#include "emulator/EndpointSupport.h"
#include "emulator/EntraServiceBooks.h"
#include "emulator/EntraServiceHandlers.h"

namespace Vantrel {
namespace Emulation {

EntraServiceState::EntraServiceState(EntraServiceOptions options)
    : options_(std::move(options)), books_(std::make_shared<Books>()) {
  books_->access_token_lifetime = options_.access_token_lifetime;
  for (const EntraApplication& application : options_.applications) {
    if (application.certificate_pem.empty()) continue;
    auto certificate = EntraCertificate::FromPem(application.certificate_pem);
    if (certificate != nullptr) books_->certificates[application.client_id] = certificate;
  }
}

bool EntraServiceState::ApproveDeviceCode(const std::string& user_code,
                                          const std::string& account) {
  const EntraAccount* registered = nullptr;
  for (const EntraAccount& candidate : options_.accounts) {
    if (EqualsIgnoreCase(candidate.name, account)) registered = &candidate;
  }
  if (registered == nullptr) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  Books::Clock::time_point now = Books::Clock::now();
  for (auto& entry : books_->device_codes) {
    Books::DeviceAuthorization& waiting = entry.second;
    if (EqualsIgnoreCase(waiting.user_code, user_code) &&
        waiting.status == Books::DeviceStatus::kPending && now < waiting.expires) {
      waiting.status = Books::DeviceStatus::kApproved;
      waiting.account = registered->name;
      return true;
    }
  }
  return false;
}

bool EntraServiceState::DeclineDeviceCode(const std::string& user_code) {
  std::lock_guard<std::mutex> lock(mutex_);
  Books::Clock::time_point now = Books::Clock::now();
  for (auto& entry : books_->device_codes) {
    Books::DeviceAuthorization& waiting = entry.second;
    if (EqualsIgnoreCase(waiting.user_code, user_code) &&
        waiting.status == Books::DeviceStatus::kPending && now < waiting.expires) {
      waiting.status = Books::DeviceStatus::kDeclined;
      return true;
    }
  }
  return false;
}

std::vector<std::string> EntraServiceState::PendingUserCodes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  Books::Clock::time_point now = Books::Clock::now();
  std::vector<std::string> codes;
  for (const std::string& device_code : books_->device_code_order) {
    const Books::DeviceAuthorization& waiting = books_->device_codes.at(device_code);
    if (waiting.status == Books::DeviceStatus::kPending && now < waiting.expires) {
      codes.push_back(waiting.user_code);
    }
  }
  return codes;
}

void EntraServiceState::FailNextToken(EntraError error) {
  std::lock_guard<std::mutex> lock(mutex_);
  books_->failures.push_back(std::move(error));
}

void EntraServiceState::SetAccessTokenLifetime(long seconds) {
  std::lock_guard<std::mutex> lock(mutex_);
  books_->access_token_lifetime = seconds;
}

void EntraServiceState::RevokeRefreshTokens() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& entry : books_->refresh_tokens) entry.second.revoked = true;
}

bool EntraServiceState::LookUpAccessToken(const std::string& token, AccessToken* record) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = books_->access_tokens.find(token);
  if (found == books_->access_tokens.end() || std::time(nullptr) >= found->second.expires_on) {
    return false;
  }
  *record = found->second;
  return true;
}

std::vector<std::string> EntraServiceState::IssuedAccessTokens() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return books_->access_token_order;
}

int EntraServiceState::TokenRequests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return books_->token_requests;
}

std::shared_ptr<EntraServiceState> InstallEntraService(Emulator* emulator,
                                                       const EntraServiceOptions& options) {
  auto state = std::make_shared<EntraServiceState>(options);
  auto handlers = std::make_shared<EntraServiceHandlers>(state);
  // One route for the whole host, so that the tenant in front of each
  // endpoint may be anything; the sign-in service's routes on the same host
  // name longer prefixes and keep their requests.
  emulator->Route("", options.authority_host, "/",
                  [handlers](const Request& request) { return handlers->Answer(request); });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel
