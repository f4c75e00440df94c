// Office365: a token for one SharePoint Online site from the Office 365
// security token service ("<server>/extSTS.srf").
//
// Authenticate first finds the site's realm by following its redirects, then
// requests the token; the binary security token inside the RSTR is the proof.
#ifndef VANTREL_AUTH_OFFICE365_H_
#define VANTREL_AUTH_OFFICE365_H_

#include <cstddef>

#include "VantrelAuthEngine64/AdfsImpl.h"
#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT Office365 : public AdfsImpl {
 public:
  explicit Office365(INetworkControl* network_control);
  ~Office365() override;

  // `realm` is the site's address. The credential (borrowed) is a user name
  // and password for a managed tenant, or the assertion credential made from
  // an ADFS RSTR for a federated one. kAuthResultBposNotSupported means the
  // RSTR came without a binary token; the RSTR is still readable.
  AuthResult Authenticate(const char* realm, ICredential* credential);

  // Base URL of the token service; the default is the public Office 365
  // sign-in service. Null clears it.
  AuthResult SetServer(const char* server);
  AuthResult GetServer(char* buffer, size_t* size) const;

  // The binary security token ("t=...") of the last RSTR, by the buffer
  // protocol; "" if there is none.
  virtual void GetBinarySecurityToken(char* buffer, size_t* size) const;
  // Its size, terminator included; 0 if there is none.
  virtual size_t getBinarySecurityTokenSize() const;

  using AdfsImpl::GetRstr;

 private:
  void FindRealmToUse(const char* realm_url, char** result);

  static const char* const default_service_endpoint_;

  char* server_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_OFFICE365_H_
