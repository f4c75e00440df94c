// AuthEngine: the entry to the library.
//
// Order of use:
//   1. Optionally configure logging, proxy and temporary log directory through
//      AuthEngineConfig (SetTempLogDir must come before step 3).
//   2. AuthEngine::GlobalInit(), once per process.
//   3. Construct an AuthEngine.
//   4. Take an authenticator from an accessor, set its options, sign in, read
//      the result, detail text, tokens and cookies.
//   5. Destroy the AuthEngine; every authenticator pointer dies with it.
//   6. AuthEngine::GlobalCleanup(), once, after the last AuthEngine is gone.
//
// An AuthEngine and everything it hands out are used by one thread at a time.
// Two AuthEngine objects may run on two threads.
#ifndef VANTREL_AUTH_AUTH_ENGINE_H_
#define VANTREL_AUTH_AUTH_ENGINE_H_

#include <cstddef>

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/AuthTypes.h"

namespace Vantrel {
namespace Auth {

class Cancellation;
class EntraId;
class INetworkControl;
class Ntlm;
class SharePointFba;
class Adfs;
class SharePointAdfs;
class Office365;
class SharePointOffice365;

class VANTREL_AUTH_EXPORT AuthEngine {
 public:
  // Creates the engine's libcurl transport. Reads AuthEngineConfig's temporary
  // log directory once, here.
  AuthEngine();
  // Deletes the transport first, then every authenticator handed out.
  ~AuthEngine();

  AuthEngine(const AuthEngine&) = delete;
  AuthEngine& operator=(const AuthEngine&) = delete;

  // Global set-up of the network layer. Returns kAuthResultOk, also when it
  // was already done, or kAuthResultInitError when libcurl refuses; a later
  // call then tries again. Call on one thread while no other is in the library.
  static AuthResult GlobalInit();
  // Undoes GlobalInit. Without a prior GlobalInit it only logs.
  static void GlobalCleanup();

  // Copies the text of `result` (0 to 11) into `buffer` by the buffer protocol:
  // *size is the buffer's size on entry; if the text and its terminator don't
  // fit, the buffer gets an empty string and *size the size needed. Before the
  // first GlobalInit every text is empty.
  void GetResultStr(AuthResult result, char* buffer, size_t* size) const;

  // Accessors: each creates its authenticator on first use and returns the
  // same object afterwards. The engine owns it; never delete it.
  Vantrel::Auth::SharePointFba* SharePointFba();
  Vantrel::Auth::Ntlm* Ntlm();
  Vantrel::Auth::Adfs* Adfs();
  Vantrel::Auth::SharePointAdfs* SharePointAdfs();
  Vantrel::Auth::Office365* Office365();
  Vantrel::Auth::SharePointOffice365* SharePointOffice365();
  Vantrel::Auth::EntraId* EntraId();

  // Ends the sign-in running on this engine, if any, within a second, with
  // kAuthResultCancelled: whatever it waits for (a connection, a slow answer,
  // a device-code poll, the browser's redirect). Safe from any thread, from
  // inside the library's callbacks, and from a signal handler. A Cancel while
  // no sign-in runs is forgotten when the next one starts.
  void Cancel();

 private:
  static bool is_init_;
  static const char* result_strs_[kAuthResultTimedOut + 1];

  INetworkControl* network_control_;
  Vantrel::Auth::Ntlm* ntlm_;
  Vantrel::Auth::SharePointFba* share_point_fba_;
  Vantrel::Auth::Adfs* adfs_;
  Vantrel::Auth::SharePointAdfs* share_point_adfs_;
  Vantrel::Auth::Office365* office365_;
  Vantrel::Auth::SharePointOffice365* share_point_office365_;
  Vantrel::Auth::EntraId* entra_id_;
  Cancellation* cancellation_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTH_ENGINE_H_
