// AdfsImpl: a WS-Trust (February 2005) token request in a SOAP 1.2 envelope,
// and the RequestSecurityTokenResponse (RSTR) that comes back.
//
// Base of Adfs and Office365.
#ifndef VANTREL_AUTH_ADFS_IMPL_H_
#define VANTREL_AUTH_ADFS_IMPL_H_

#include <cstddef>

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class ICredential;

class VANTREL_AUTH_EXPORT AdfsImpl : public AuthBase {
 public:
  explicit AdfsImpl(INetworkControl* network_control);
  ~AdfsImpl() override;

  // The RSTR of the last successful attempt, by the buffer protocol; "" after
  // a failure. Hand it to SharePointAdfs::AuthenticateByRstr or to
  // CredentialFactory::CreateCredentialFromRstr.
  virtual void GetRstr(char* buffer, size_t* size) const;

 protected:
  // Posts the RST for `realm` with `credential` (an ISamlCredential) to
  // `server_url` joined with the service endpoint, and keeps the RSTR.
  virtual AuthResult AuthenticateHelper(const char* server_url, const char* realm,
                                        const ICredential* credential);
  // The RSTR itself, or null; owned by this object.
  const char* GetRstr() const;

 private:
  static const char* const default_service_endpoint_user_;

  char* rstr_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_ADFS_IMPL_H_
