// EntraServiceState::Books: what an EntraService has issued and who waits on
// it, shared by the state's public calls (EntraService.cc) and the endpoints
// (EntraServiceHandlers.cc). Guarded by the state's mutex.
#ifndef VANTREL_EMULATOR_ENTRA_SERVICE_BOOKS_H_
#define VANTREL_EMULATOR_ENTRA_SERVICE_BOOKS_H_

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "emulator/EntraCertificate.h"
#include "emulator/EntraService.h"

namespace Vantrel {
namespace Emulation {

struct EntraServiceState::Books {
  using Clock = std::chrono::steady_clock;

  // A refresh token stands for this; each use gets a new access token for
  // the scope asked for then.
  struct RefreshGrant {
    std::string client_id;
    std::string account;
    std::string scope;
    bool revoked = false;
  };

  struct AuthorizationCode {
    std::string client_id;
    std::string redirect_uri;  // as the authorize request named it
    std::string challenge;     // S256 code challenge
    std::string scope;
    std::string account;
    Clock::time_point expires;
    bool used = false;
  };

  enum class DeviceStatus { kPending, kApproved, kDeclined, kRedeemed };

  struct DeviceAuthorization {
    std::string user_code;
    std::string client_id;
    std::string scope;
    std::string account;  // who approved
    DeviceStatus status = DeviceStatus::kPending;
    Clock::time_point expires;
    // Between two polls of one device code at least `interval` passes, or
    // the client is told to slow down and the interval grows.
    bool polled = false;
    Clock::time_point last_poll;
    long interval = 5;  // seconds
  };

  // Registered certificates by client id, read once.
  std::map<std::string, std::shared_ptr<const EntraCertificate>> certificates;
  long access_token_lifetime = 3600;

  std::map<std::string, AccessToken> access_tokens;
  std::vector<std::string> access_token_order;
  std::map<std::string, RefreshGrant> refresh_tokens;
  std::map<std::string, AuthorizationCode> codes;
  std::map<std::string, DeviceAuthorization> device_codes;  // by device code
  std::vector<std::string> device_code_order;
  // The jti of every client assertion accepted: none is taken twice.
  std::set<std::string> assertion_ids;
  std::deque<EntraError> failures;
  int token_requests = 0;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ENTRA_SERVICE_BOOKS_H_
