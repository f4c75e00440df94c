// FormBody: an application/x-www-form-urlencoded request body, each value
// percent-encoded by the transport's Escape (libcurl's curl_easy_escape).
// The body holds secrets (passwords, codes, assertions) and is wiped.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_FORM_BODY_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_FORM_BODY_H_

#include <string_view>

#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

class INetworkControl;

class FormBody {
 public:
  explicit FormBody(INetworkControl* transport) : transport_(transport) {}

  // Appends "&name=escaped(value)" ("name=..." first). A value the transport
  // can't escape makes the whole body fail: ok() turns false for good.
  void Add(std::string_view name, std::string_view value);

  bool ok() const { return ok_; }
  const SecretString& text() const { return text_; }

 private:
  INetworkControl* transport_;
  SecretString text_;
  bool ok_ = true;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_FORM_BODY_H_
