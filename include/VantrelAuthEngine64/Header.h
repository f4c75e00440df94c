// Header: a name and a value, of a request or of a response.
#ifndef VANTREL_AUTH_HEADER_H_
#define VANTREL_AUTH_HEADER_H_

#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

struct VANTREL_AUTH_EXPORT Header {
  Header();
  // Releases both texts.
  virtual ~Header();

  // Not copyable: a byte-wise copy would release each text twice.
  Header(const Header&) = delete;
  Header& operator=(const Header&) = delete;

  char* name;   // owned, without the colon; may be null
  char* value;  // owned; may be null
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_HEADER_H_
