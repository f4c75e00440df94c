// Parsing of one raw response header line as libcurl delivers it.
#ifndef VANTREL_AUTH_NETWORK_HEADER_LINE_H_
#define VANTREL_AUTH_NETWORK_HEADER_LINE_H_

#include <cstddef>

namespace Vantrel {
namespace Auth {

class NetworkResult;

// Splits `length` bytes (not NUL-terminated, line end still on) at the first
// colon, trims white space, and adds the pair to `result` when it is not null
// and the name is not empty. Lines without a colon leave no trace.
void ParseHeaderLine(const char* data, size_t length, NetworkResult* result);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_HEADER_LINE_H_
