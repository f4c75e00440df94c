// Result codes and log levels shared by every part of the interface.
#ifndef VANTREL_AUTH_AUTH_TYPES_H_
#define VANTREL_AUTH_AUTH_TYPES_H_

#include <cstdint>

namespace Vantrel {
namespace Auth {

// What an operation that can fail returns. The words that go with a failure are
// in the authenticator's detail text (AuthBase::GetLastErrorDetail); the text of
// a value itself comes from AuthEngine::GetResultStr.
enum AuthResult : int32_t {
  kAuthResultOk = 0,                // "OK"
  kAuthResultInternalError = 1,     // a required object is missing, wrong credential class
  kAuthResultInitError = 2,         // libcurl's global set-up failed in GlobalInit
  kAuthResultInvalidInput = 3,      // an argument is null, empty, or not http/https
  kAuthResultInvalidOption = 4,     // has a text, but no operation returns it
  kAuthResultSendFailed = 5,        // the HTTP exchange could not be carried out
  kAuthResultHttpError = 6,         // response code 0, or 400 to 599
  kAuthResultAuthFailed = 7,        // the response lacks the expected token or cookie
  kAuthResultBposNotSupported = 8,  // token service answered without a binary token
  kAuthResultInteractionRequired = 9,  // no token without the user: sign in interactively
  kAuthResultCancelled = 10,           // AuthEngine::Cancel, or a callback said stop
  kAuthResultTimedOut = 11,            // a wait of the library's own ran out
};

// The logger's level, and the level of each message passed to the callback.
enum VantrelAuthLogLevel : int32_t {
  kLogLevelOff = 0,    // nothing is passed on
  kLogLevelInfo = 1,   // entry of public operations, with their arguments
  kLogLevelDebug = 2,  // steps inside, request/response dumps, libcurl's verbose text
};

// The host's log function. It receives the message's own level and a
// NUL-terminated text that is freed when the callback returns: copy it to keep
// it. With two AuthEngine objects on two threads it is entered from both.
typedef void (*VantrelAuthLogCallback)(VantrelAuthLogLevel level, const char* message);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTH_TYPES_H_
