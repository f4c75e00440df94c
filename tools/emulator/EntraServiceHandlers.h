// EntraServiceHandlers: the endpoints of one EntraService (EntraService.h
// lists them), reached by path on the authority's host: the token endpoint
// with its grants and the checks before each, the device-code and authorize
// endpoints, and the emulator's control calls for the user's side.
#ifndef VANTREL_EMULATOR_ENTRA_SERVICE_HANDLERS_H_
#define VANTREL_EMULATOR_ENTRA_SERVICE_HANDLERS_H_

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "emulator/EntraService.h"

namespace Vantrel {
namespace Emulation {

class EntraServiceHandlers {
 public:
  explicit EntraServiceHandlers(std::shared_ptr<EntraServiceState> state);

  // Every request to the authority's host that no longer route takes.
  Response Answer(const Request& request);

  // What a scope asks for; `text` is what the token answer grants.
  struct Scope {
    std::string text;
    std::string resource_host;  // lower case
    bool offline = false;       // offline_access: a refresh token too
    bool openid = false;        // openid: an id token too
  };

 private:
  using Form = std::map<std::string, std::string>;

  // Whom and what a token answer is issued for.
  struct Grant {
    std::string client_id;
    std::string account;  // "" for app-only
    Scope scope;
    bool app_only = false;
    bool from_secret = false;  // the client proved itself with its secret
  };

  Response Token(const std::string& tenant, const Request& request);
  Response DeviceCode(const std::string& tenant, const Request& request);
  Response Authorize(const std::string& tenant, const Request& request);
  Response Control(const Request& request);

  // Each returns why the request is refused, or nothing and fills its output.
  std::optional<EntraError> ReadTokenRequest(const std::string& tenant, const Request& request,
                                             Grant* grant);
  std::optional<EntraError> CheckTenant(const std::string& tenant,
                                        const std::string& grant_type) const;
  std::optional<EntraError> AuthenticateClient(const EntraApplication& application,
                                               const Form& form, const std::string& tenant,
                                               const std::string& grant_type, bool* from_secret);
  std::optional<EntraError> CheckAssertion(const EntraApplication& application,
                                           const std::string& assertion,
                                           const std::string& audience);
  std::optional<EntraError> Password(const Form& form, Grant* grant) const;
  std::optional<EntraError> RedeemCode(const Form& form, Grant* grant);
  std::optional<EntraError> Refresh(const Form& form, Grant* grant);
  std::optional<EntraError> PollDeviceCode(const Form& form, Grant* grant);
  std::optional<EntraError> StartDeviceCode(const std::string& tenant, const Request& request,
                                            std::string* answer);
  std::optional<EntraError> IssueCode(const Request& request, const EntraApplication& application,
                                      const std::string& redirect_uri, std::string* code);

  Response Issue(const Grant& grant);
  Response ErrorAnswer(const Request& request, const EntraError& error) const;
  EntraError UnknownApplication(const std::string& client_id) const;
  std::string DirectoryName() const;

  const EntraServiceOptions& options() const { return state_->options(); }
  EntraServiceState::Books& books() const;
  std::mutex& mutex() const { return state_->mutex(); }

  std::shared_ptr<EntraServiceState> state_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ENTRA_SERVICE_HANDLERS_H_
