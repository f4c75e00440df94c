// Parsing of the Netscape cookie-file lines that libcurl's cookie engine gives.
#ifndef VANTREL_AUTH_NETWORK_NETSCAPE_COOKIE_H_
#define VANTREL_AUTH_NETWORK_NETSCAPE_COOKIE_H_

namespace Vantrel {
namespace Auth {

class Cookie;

// Parses one line of seven tab-separated fields into `cookie` (owned by the
// caller). A null or empty line leaves the cookie untouched; a line that isn't
// seven fields leaves it reset.
void ParseNetscapeCookie(Cookie* cookie, const char* line);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_NETSCAPE_COOKIE_H_
