#include "VantrelAuthEngine64/ICredential.h"

namespace Vantrel {
namespace Auth {

// Defined out of line so that the vtable and type information of the exported
// root are emitted once, in the library, for dynamic_cast across the boundary.
ICredential::~ICredential() {}

}  // namespace Auth
}  // namespace Vantrel
