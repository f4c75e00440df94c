#include "VantrelAuthEngine64/Header.h"

#include "base/SecretString.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

Header::Header() : name(nullptr), value(nullptr) {}

// A value may be a request's "Bearer TOKEN" or a response's Set-Cookie line
// with a session in it: wiped before the heap gets it back.
Header::~Header() {
  StrFree(&name);
  WipeAndFree(&value);
}

}  // namespace Auth
}  // namespace Vantrel
