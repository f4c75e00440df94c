#include "authenticators/Office365Endpoints.h"

namespace Vantrel {
namespace Auth {

// The namespace query is kept as its own text rather than derived from the
// server: a host that points Office365::SetServer elsewhere still asks the
// public service where its users sign in.
const char* const kDefaultOffice365Server = "https://login.microsoftonline.com";
const char* const kGetUserRealmUrl =
    "https://login.microsoftonline.com/GetUserRealm.srf?handler=1&login=";

}  // namespace Auth
}  // namespace Vantrel
