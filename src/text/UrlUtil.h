// URL helpers on owned strings. Stateless; they log and report nothing.
#ifndef VANTREL_AUTH_TEXT_URL_UTIL_H_
#define VANTREL_AUTH_TEXT_URL_UTIL_H_

#include <string>

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

// *out (null or owned) is released; then *out = base + "/" + path, a copy of
// base if path is null or empty, or null if base is null or empty. Plain
// concatenation: a slash on either side stays.
void JoinUrl(char** out, const char* base, const char* path);

// Takes over `text`; every blank becomes "%20". Returns the same pointer when
// there is no blank, else a new string (the old one released). Null -> null.
char* EscapeSpaces(char* text);

// Take over `text` and return a new owned string (null -> null). The result
// ends at the codec result's first NUL byte.
char* UrlEncode(char* text);
char* UrlDecode(char* text);

// Takes over `url`; cuts the query, then the fragment, then a final
// "/<page>.aspx" segment. Null and "" come back as they are; otherwise a new
// owned string is returned and `url` released.
char* SanitizeUrl(char* url);

// The same on held strings: what a function takes over is never in the
// caller's hands, so nothing can leak between the two.
OwnedString JoinUrl(const char* base, const char* path);
OwnedString EscapeSpaces(OwnedString text);
OwnedString UrlEncode(OwnedString text);
OwnedString UrlDecode(OwnedString text);
OwnedString SanitizeUrl(OwnedString url);

// The percent codec. Only ASCII letters and digits are left as they are.
std::string PercentEncode(const std::string& text);
std::string PercentDecode(const std::string& text);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_TEXT_URL_UTIL_H_
