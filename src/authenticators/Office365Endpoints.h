// Fixed addresses of the Office 365 sign-in service. Internal.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OFFICE365_ENDPOINTS_H_
#define VANTREL_AUTH_AUTHENTICATORS_OFFICE365_ENDPOINTS_H_

namespace Vantrel {
namespace Auth {

// Base URL of the token service and of a managed tenant's sign-in.
extern const char* const kDefaultOffice365Server;
// Namespace query; the encoded e-mail address follows directly.
extern const char* const kGetUserRealmUrl;

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OFFICE365_ENDPOINTS_H_
