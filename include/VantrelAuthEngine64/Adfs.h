// Adfs: a token from an ADFS 2.0 server ("<server>/adfs/services/trust/2005/usernamemixed").
#ifndef VANTREL_AUTH_ADFS_H_
#define VANTREL_AUTH_ADFS_H_

#include "VantrelAuthEngine64/AdfsImpl.h"
#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT Adfs : public AdfsImpl {
 public:
  explicit Adfs(INetworkControl* network_control);
  ~Adfs() override;

  // Requests a token for `realm` (a URN the server knows) from the server at
  // `adfs_url`. The credential is borrowed for the call. On kAuthResultOk read
  // the RSTR with GetRstr.
  AuthResult Authenticate(const char* adfs_url, const char* realm, const ICredential* credential);
  // The same with a user name and password.
  AuthResult AuthenticateByUser(const char* adfs_url, const char* realm, const char* user,
                                const char* password);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_ADFS_H_
