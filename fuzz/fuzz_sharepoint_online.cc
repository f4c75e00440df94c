// SharePoint Online: the namespace question, then the token exchange with a
// credential made from fuzzed RSTR text, every response fuzzed.
#include <cstdint>
#include <string>

#include "CredentialFactory.h"
#include "FuzzNetwork.h"
#include "SharePointOffice365.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string site = input.Piece();
  std::string email = input.Piece();
  std::string rstr = input.Piece();
  FuzzNetwork network(&input);
  SharePointOffice365 online(&network);

  SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
  std::string auth_url;
  online.GetAuthTarget(email, kind, auth_url);

  // Whatever the factory makes of the text; a credential of another class
  // (an assertion) or none at all must be refused, not misused.
  ICredential* credential = CredentialFactory::CreateCredentialFromRstr(
      rstr.empty() ? "<wsse:BinarySecurityToken Id=\"Compact0\">t=fuzz&amp;p=</wsse:BinarySecurityToken>"
                   : rstr);
  online.Authenticate(site.c_str(), credential);
  delete credential;
  online.GetFedAuthCookie();
  online.GetRtfaCookie();
  return 0;
}
