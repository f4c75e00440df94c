#include "VantrelAuthEngine64/Adfs.h"

#include <memory>

#include "VantrelAuthEngine64/CredentialFactory.h"
#include "VantrelAuthEngine64/ICredential.h"
#include "authenticators/AttemptSteps.h"
#include "base/Cancellation.h"
#include "base/Logger.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

Adfs::Adfs(INetworkControl* network_control) : AdfsImpl(network_control) {
  Logger::Log(kLogLevelInfo, "Adfs::Adfs(...)");
}

Adfs::~Adfs() { Logger::Log(kLogLevelInfo, "Adfs::~Adfs()"); }

AuthResult Adfs::Authenticate(const char* adfs_url, const char* realm,
                              const ICredential* credential) {
  Logger::LogFormat(kLogLevelInfo,
                    "Adfs::Authenticate - ADFS server: %s, Realm: %s, Credential avail: %s",
                    adfs_url, realm, YesNo(credential != nullptr), nullptr, nullptr);
  if (Cancellation* cancellation = GetCancellation()) cancellation->Clear();
  return AuthenticateHelper(adfs_url, realm, credential);
}

AuthResult Adfs::AuthenticateByUser(const char* adfs_url, const char* realm, const char* user,
                                    const char* password) {
  Logger::LogFormat(
      kLogLevelInfo,
      "Adfs::AuthenticateByUser - ADFS server: %s, Realm: %s, User: %s, Pwd avail: %s", adfs_url,
      realm, user, AvailFlag(password), nullptr);
  if (Cancellation* cancellation = GetCancellation()) cancellation->Clear();
  // A null user or password can't become a credential. Passing no credential
  // on still runs the attempt's resets and yields the null-input failure.
  std::unique_ptr<ICredential> credential;
  if (user != nullptr && password != nullptr) {
    credential.reset(CredentialFactory::CreateBasicUsernameCredential(user, password));
  }
  return AuthenticateHelper(adfs_url, realm, credential.get());
}

}  // namespace Auth
}  // namespace Vantrel
