// What authenticator tests read back from an authenticator: texts handed out
// by the buffer protocol, and the request and result an attempt leaves.
#ifndef VANTREL_TESTS_SUPPORT_AUTHENTICATORS_H_
#define VANTREL_TESTS_SUPPORT_AUTHENTICATORS_H_

#include <cstddef>
#include <string>

#include "AuthBase.h"

namespace Vantrel {
namespace Auth {
namespace testing {

// A text handed out by the buffer protocol, asked for at its full size.
template <typename Getter>
std::string Fetch(Getter getter) {
  size_t size = 0;
  getter(nullptr, &size);
  if (size == 0) return "";
  std::string text(size, '\0');
  getter(&text[0], &size);
  text.resize(size - 1);
  return text;
}

inline std::string Detail(const AuthBase& authenticator) {
  return Fetch([&](char* buffer, size_t* size) { authenticator.GetLastErrorDetail(buffer, size); });
}

// Lets a test see what an attempt left in the request description and the
// result.
template <typename Authenticator>
class Probe : public Authenticator {
 public:
  using Authenticator::Authenticator;
  using AuthBase::GetNetworkConfig;
  using AuthBase::GetNetworkResult;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_TESTS_SUPPORT_AUTHENTICATORS_H_
