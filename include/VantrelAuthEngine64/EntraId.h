// EntraId: an OAuth 2.0 access token from Microsoft Entra ID, for SharePoint
// Online (or any other resource of Entra ID), sent as
// "Authorization: Bearer TOKEN" with the host's own requests.
//
// One operation per way of signing in:
//   AuthenticateWithCertificate[Data]  app-only, the application's certificate
//   AuthenticateWithClientSecret       app-only, a client secret (SharePoint
//                                      itself refuses such tokens)
//   AuthenticateWithDeviceCode         a user, on another device's browser
//   AuthenticateWithBrowser            a user, in a browser on this machine
//   AuthenticateByUser                 a user's name and password (no MFA)
//   AuthenticateSilent                 from the token cache, or a refresh
// Only AuthenticateSilent answers from the token cache; every other operation
// asks Entra ID each time, and each success is stored in the cache for the
// silent sign-ins to come. After a new token the site is asked for "_api/web"
// with it (the site check, on by default), so that a token the site won't
// take is a failure now and not at the host's first request.
//
// Options survive attempts; results (token, header, expiry, tenant, account)
// stay valid until the next attempt. Texts leave by the buffer protocol of
// AuthBase. No password, secret, key or token ever reaches the log.
#ifndef VANTREL_AUTH_ENTRA_ID_H_
#define VANTREL_AUTH_ENTRA_ID_H_

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class EntraIdState;

// How the certificate flow signs its client assertion. Entra ID accepts both.
enum EntraAssertionAlgorithm : int32_t {
  kEntraAssertionPs256 = 0,  // RSASSA-PSS with SHA-256; header names x5t#S256
  kEntraAssertionRs256 = 1,  // RSASSA-PKCS1-v1_5 with SHA-256; header names x5t
};

// Device-code flow: called once, before the first poll, with the service's
// own instructions ("To sign in, use a web browser to open the page ... and
// enter the code ... to authenticate.") and their two parts. Return false to
// give up: the attempt ends with kAuthResultCancelled.
typedef bool (*EntraDeviceCodeCallback)(const char* message, const char* user_code,
                                        const char* verification_uri, void* context);

// Browser flow: called once with the URL of the sign-in page, to open in the
// user's browser. Return false when no browser could be opened: the attempt
// ends with kAuthResultCancelled.
typedef bool (*EntraBrowserCallback)(const char* url, void* context);

class VANTREL_AUTH_EXPORT EntraId : public AuthBase {
 public:
  explicit EntraId(INetworkControl* network_control);
  ~EntraId() override;

  // --- options ---------------------------------------------------------------

  // The authority's base URL, e.g. "https://login.microsoftonline.com". Null or
  // "" chooses by the site's domain: *.sharepoint.us signs in at
  // login.microsoftonline.us, *.sharepoint.cn at login.partner.microsoftonline.cn,
  // every other site at login.microsoftonline.com.
  AuthResult SetAuthority(const char* authority);
  AuthResult GetAuthority(char* buffer, size_t* size) const;

  // The tenant: its GUID or a verified domain ("contoso.onmicrosoft.com"), or
  // "organizations" for the user flows. Null or "" finds it from the site at
  // the first sign-in and keeps it (GetTenantId tells what was found).
  AuthResult SetTenant(const char* tenant);
  AuthResult GetTenant(char* buffer, size_t* size) const;

  // The application (client) id of the registered application. Required.
  AuthResult SetClientId(const char* client_id);
  AuthResult GetClientId(char* buffer, size_t* size) const;

  // The scope to ask for. Null or "" means "https://HOST/.default" for the
  // app-only flows and "https://HOST/.default offline_access openid profile"
  // for the user flows, HOST being the site's host.
  AuthResult SetScope(const char* scope);
  AuthResult GetScope(char* buffer, size_t* size) const;

  // kEntraAssertionPs256 by default.
  AuthResult SetAssertionAlgorithm(EntraAssertionAlgorithm algorithm);
  EntraAssertionAlgorithm GetAssertionAlgorithm() const;

  // A file that keeps tokens between processes (created with mode 0600,
  // replaced atomically, shared safely by processes that sign in at once).
  // Null or "": tokens are kept in this object's memory only.
  AuthResult SetTokenCacheFile(const char* path);
  AuthResult GetTokenCacheFile(char* buffer, size_t* size) const;

  // The request to "{site}/_api/web" after each new token; on by default.
  AuthResult EnableSiteCheck(bool enable);
  bool IsSiteCheckEnabled() const;

  // How long the browser flow waits for the redirect; 300 seconds by default.
  // 0 or less restores the default.
  AuthResult SetBrowserTimeout(long seconds);
  long GetBrowserTimeout() const;

  // --- sign-in ---------------------------------------------------------------
  // `site` is the SharePoint site's address (https://HOST/...); the token is
  // for HOST. All texts are copied; the copies of passwords and secrets are
  // wiped before the call returns. The certificate's key stays parsed (in
  // OpenSSL's memory, cleansed when the EntraId goes) for the next sign-in
  // with the same certificate, which then needn't parse it again.

  // App-only with the application's certificate. A PEM certificate file and
  // a PEM key file (`key_password` for an encrypted key, else null); or, with
  // `key_file` null, one PKCS#12 file (.pfx/.p12) with `key_password`. RSA keys
  // of fewer than 2048 bits are refused before any request.
  AuthResult AuthenticateWithCertificate(const char* site, const char* certificate_file,
                                         const char* key_file, const char* key_password);
  // The same from memory: PEM texts, or with `key` null the PKCS#12 bytes in
  // `certificate`.
  AuthResult AuthenticateWithCertificateData(const char* site, const char* certificate,
                                             size_t certificate_size, const char* key,
                                             size_t key_size, const char* key_password);

  // App-only with a client secret.
  AuthResult AuthenticateWithClientSecret(const char* site, const char* client_secret);

  // A user who approves on any device; `prompt` shows the instructions. Ends
  // with kAuthResultTimedOut when the code expires unused.
  AuthResult AuthenticateWithDeviceCode(const char* site, EntraDeviceCodeCallback prompt,
                                        void* context);

  // A user in the browser that `open_browser` opens; the library takes the
  // redirect on 127.0.0.1. `login_hint` (may be null) fills in the account.
  // Ends with kAuthResultTimedOut when no redirect comes in time.
  AuthResult AuthenticateWithBrowser(const char* site, const char* login_hint,
                                     EntraBrowserCallback open_browser, void* context);

  // A user's name and password (resource owner password credentials): work
  // accounts without MFA only. Meant for hosts moving off the retired
  // SharePoint Online sign-in.
  AuthResult AuthenticateByUser(const char* site, const char* user, const char* password);

  // No user at hand: a token from the cache, or one got with the cached
  // refresh token. `account` (may be null when the cache holds only one for
  // this application) names the user; kAuthResultInteractionRequired when
  // neither serves.
  AuthResult AuthenticateSilent(const char* site, const char* account);

  // --- results of the last attempt -----------------------------------------

  // The access token; opaque, never to be parsed.
  AuthResult GetAccessToken(char* buffer, size_t* size) const;
  // "Bearer TOKEN": the value of the Authorization header.
  AuthResult GetAuthorizationHeader(char* buffer, size_t* size) const;
  // When the access token expires, in seconds since 1970; 0 without one.
  time_t GetExpiresOn() const;
  // The tenant's GUID.
  AuthResult GetTenantId(char* buffer, size_t* size) const;
  // The signed-in user's name ("adele@contoso.com"); "" for app-only tokens.
  AuthResult GetAccountName(char* buffer, size_t* size) const;

 private:
  // The flows' shared steps live in the state and need the attempt frame of
  // AuthBase.
  friend class EntraIdState;
  EntraIdState* state_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_ENTRA_ID_H_
