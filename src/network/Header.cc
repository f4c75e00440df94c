#include "VantrelAuthEngine64/Header.h"

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

Header::Header() : name(nullptr), value(nullptr) {}

Header::~Header() {
  StrFree(&name);
  StrFree(&value);
}

}  // namespace Auth
}  // namespace Vantrel
