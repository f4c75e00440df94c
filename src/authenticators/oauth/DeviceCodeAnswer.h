// DeviceCodeAnswer: the devicecode endpoint's answer. Any bytes are accepted;
// Parse never throws.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_DEVICE_CODE_ANSWER_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_DEVICE_CODE_ANSWER_H_

#include <string>
#include <string_view>

#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

class DeviceCodeAnswer {
 public:
  // False unless `body` is a JSON object with a non-empty device_code and
  // user_code. A missing, unreadable, zero or negative interval is 5, such an
  // expires_in 900; both as a number or a decimal string up to 10^9 s.
  static bool Parse(std::string_view body, DeviceCodeAnswer* answer);

  SecretString device_code;
  std::string user_code;
  std::string verification_uri;
  std::string message;
  long long expires_in = 900;  // seconds
  long long interval = 5;      // seconds, at least 1
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_DEVICE_CODE_ANSWER_H_
