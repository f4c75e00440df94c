// What the emulated sites and token services share: reading what a client
// sent, encodings and random values, the SOAP fault SharePoint's web services
// answer with, and the FedAuth sessions a site hands out.
#ifndef VANTREL_EMULATOR_ENDPOINT_SUPPORT_H_
#define VANTREL_EMULATOR_ENDPOINT_SUPPORT_H_

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/Request.h"
#include "emulator/Response.h"

namespace Vantrel {
namespace Emulation {

std::string Lower(std::string text);

// `words` random 64-bit words as 16 hex digits each.
std::string RandomHex(size_t words);

// Values that stand for secrets (tokens, codes) come from OpenSSL's generator,
// as a real service's would: `size` random bytes, base64url-encoded.
std::string RandomBase64Url(size_t size);
// A random version-4 GUID, lower case: "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".
std::string RandomGuid();
// 16 bytes (more are ignored) as a GUID in the same form.
std::string GuidOf(std::string_view bytes);

// Base64url without padding, as JSON Web Tokens and PKCE use it.
std::string Base64UrlEncode(std::string_view bytes);
// False for anything but the base64url alphabet without padding.
bool Base64UrlDecode(std::string_view text, std::string* bytes);

// Percent-encodes everything but the unreserved characters of RFC 3986, so
// the result fits into a query or a form value.
std::string PercentEncode(std::string_view text);

// First capture of `pattern` in `text`, searched without regard to case and
// across lines; "" when there is none. Good enough for the envelopes clients
// send, and deliberately no parser: the client doesn't use one either.
std::string Capture(const std::string& text, const char* pattern);

// Values of every cookie called `name` across all Cookie headers, in order.
std::vector<std::string> CookieValues(const Request& request, std::string_view name);

// The name an account is registered under when `user` matches it without
// regard to case and `password` matches exactly; null otherwise.
const std::string* MatchAccount(const std::map<std::string, std::string>& accounts,
                                const std::string& user, const std::string& password);

// A SOAP 1.1 client fault, 500, as the SharePoint web services send one.
Response SoapClientFault(const std::string& reason);

// The FedAuth values a site has handed out, and how many sign-ins it refused.
// Thread-safe.
class IssuedSessions {
 public:
  // A new FedAuth value for `user`, remembered as valid. The user's name up
  // front makes a jar readable in the demo; the random part is what makes
  // the value unguessable.
  std::string Issue(const std::string& user);
  bool IsValid(const std::string& token) const;
  // Whether the request carries a FedAuth cookie with a value issued here.
  bool Admits(const Request& request) const;
  void NoteRejected();

  std::vector<std::string> IssuedTokens() const;  // oldest first

 protected:
  int Rejected() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> tokens_;
  int rejected_ = 0;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ENDPOINT_SUPPORT_H_
