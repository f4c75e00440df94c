// EntraService: Microsoft Entra ID's v2.0 endpoints under the authority's
// real host name (reached through the proxy), as far as the OAuth 2.0
// sign-ins of a SharePoint Online client see them; and EntraSite, a
// SharePoint Online site that takes the service's access tokens.
//
//   POST /{tenant}/oauth2/v2.0/token       (form-encoded)
//       grant_type client_credentials (client_assertion or client_secret),
//       password, authorization_code (with PKCE), refresh_token and
//       urn:ietf:params:oauth:grant-type:device_code. 200 with token_type,
//       expires_in, access_token, and for user grants refresh_token, id_token
//       and scope; otherwise 400 (401 for invalid_client) with error,
//       error_description ("AADSTSnnnnn: ...\r\nTrace ID: ...\r\nCorrelation
//       ID: ...\r\nTimestamp: ..."), error_codes, timestamp, trace_id and
//       correlation_id, as the real service answers.
//   POST /{tenant}/oauth2/v2.0/devicecode
//       device_code, user_code, verification_uri, expires_in, interval,
//       message.
//   GET  /{tenant}/oauth2/v2.0/authorize?...
//       Signs an account in at once (login_hint, if it names one, else the
//       first account) and answers 302 to redirect_uri?code=..&state=.., or
//       ?error=..&error_description=.. for a request it refuses. Until the
//       redirect URI is known to be registered (unknown tenant or client,
//       unregistered URI) a refusal is a 400 page naming the AADSTS code
//       instead. A plain `curl -L` (or no redirect following at all) can
//       play the browser.
//   POST /_emulator/devicecode/approve   user_code=..&account=..
//   POST /_emulator/devicecode/decline   user_code=..
//       The user's side of the device-code flow: 200, or 404 for a user code
//       nobody is waiting on. approve takes the first account when account
//       is left out.
//   GET  /_emulator/devicecode/pending
//       The user codes waiting, one a line, oldest first.
//
// {tenant} is the tenant's GUID, one of its domains, or "organizations"
// (refused for client credentials, as the real service does). What the real
// service checks, this one checks: the client assertion's signature against
// the application's registered certificate (PS256 with x5t#S256, or RS256
// with x5t), its aud (the token URL exactly), iss = sub = client id, nbf, exp
// (at most 10 minutes), and its jti (a repeated one is refused); the PKCE
// verifier against the challenge; the redirect URI against the one at
// authorize and the registered ones (port ignored); the device-code poll
// interval (slow_down when faster); public client flows being enabled for
// device code and password; MFA accounts refusing password sign-in.
#ifndef VANTREL_EMULATOR_ENTRA_SERVICE_H_
#define VANTREL_EMULATOR_ENTRA_SERVICE_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

struct EntraApplication {
  std::string client_id;
  // The registered certificate, PEM; "" for none.
  std::string certificate_pem;
  // The client secret; "" for none.
  std::string secret;
  // Public client flows (device code, password) allowed.
  bool public_client = true;
  // Registered redirect URIs; the port of a loopback URI is ignored.
  std::vector<std::string> redirect_uris = {"http://localhost"};
};

struct EntraAccount {
  std::string name;  // "adele@contoso.com", compared without regard to case
  std::string password;
  bool mfa = false;  // password sign-in then fails with AADSTS50076
};

// One scripted failure of the token endpoint (see FailNextToken).
struct EntraError {
  int status = 400;
  std::string error;  // "invalid_grant", "interaction_required", ...
  long code = 0;      // the AADSTS number: 50126, 50076, ...
  std::string description;  // first line after "AADSTSnnnnn: "
};

struct EntraServiceOptions {
  std::string authority_host = "login.microsoftonline.com";
  std::string tenant_id = "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c";
  std::vector<std::string> tenant_domains = {"contoso.onmicrosoft.com", "contoso.com"};
  std::vector<EntraApplication> applications;
  std::vector<EntraAccount> accounts;
  long access_token_lifetime = 3600;  // seconds
  long device_code_interval = 5;      // seconds
  long device_code_lifetime = 900;    // seconds
};

// What the service has issued and who waits on it. Thread-safe.
class EntraServiceState {
 public:
  struct AccessToken {
    std::string audience_host;  // the host of the scope's resource
    std::string client_id;
    std::string account;        // "" for app-only
    bool app_only = false;
    bool from_secret = false;   // app-only by client secret
    long long expires_on = 0;
  };

  explicit EntraServiceState(EntraServiceOptions options);

  const EntraServiceOptions& options() const { return options_; }

  // The user's side of the device-code flow.
  bool ApproveDeviceCode(const std::string& user_code, const std::string& account);
  bool DeclineDeviceCode(const std::string& user_code);
  std::vector<std::string> PendingUserCodes() const;  // oldest first

  // The next token request (of any grant) is answered with this error.
  void FailNextToken(EntraError error);
  // Tokens issued from now on live this long.
  void SetAccessTokenLifetime(long seconds);
  // Every refresh token issued so far is refused from now on (AADSTS70043).
  void RevokeRefreshTokens();

  // The access token's record if this service issued it and it has not
  // expired; false otherwise.
  bool LookUpAccessToken(const std::string& token, AccessToken* record) const;
  std::vector<std::string> IssuedAccessTokens() const;  // oldest first
  int TokenRequests() const;

  // Used by the service's handlers.
  std::mutex& mutex() const { return mutex_; }

 private:
  friend class EntraServiceHandlers;
  EntraServiceOptions options_;
  mutable std::mutex mutex_;
  // The implementation keeps issued tokens, codes, jtis, device codes and
  // scripted failures behind this.
  struct Books;
  std::shared_ptr<Books> books_;
};

std::shared_ptr<EntraServiceState> InstallEntraService(Emulator* emulator,
                                                       const EntraServiceOptions& options);

// A SharePoint Online site that takes the service's bearer tokens.
//
//   GET /_vti_bin/client.svc with "Authorization: Bearer" (empty)
//       401 with WWW-Authenticate: Bearer realm="<tenant GUID>",
//       client_id="00000003-0000-0ff1-ce00-000000000000",
//       trusted_issuers="00000001-0000-0000-c000-000000000000@*,...",
//       authorization_uri="https://login.windows.net/common/oauth2/authorize"
//   GET <any path> with "Authorization: Bearer TOKEN"
//       200 with a small JSON object (odata=verbose style: {"d":{...}}) when
//       TOKEN is the service's, unexpired, issued for this host; 401
//       "Unsupported app only token." for an app-only token got with a client
//       secret; otherwise 401 with an x-ms-diagnostics header and a JSON
//       error naming the reason. Without a token, 401 with the challenge.
struct EntraSiteOptions {
  std::string host = "contoso.sharepoint.com";
  std::string title = "Team Site";
};

void InstallEntraSite(Emulator* emulator, const EntraSiteOptions& options,
                      const std::shared_ptr<EntraServiceState>& service);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ENTRA_SERVICE_H_
