// Texts handed out by the buffer protocol, and what an attempt leaves behind.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "VantrelAuthEngine.h"

namespace Vantrel::Auth::testing {

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

// The RSTR an ADFS or Office 365 sign-in holds.
// Credentials from the factory are the caller's to delete.
using CredentialPtr = std::unique_ptr<ICredential>;

inline std::string RstrOf(const AdfsImpl& authenticator) {
  return Fetch([&](char* buffer, size_t* size) { authenticator.GetRstr(buffer, size); });
}

template <typename Authenticator>
class Probe : public Authenticator {
 public:
  using Authenticator::Authenticator;
  using AuthBase::GetNetworkConfig;
  using AuthBase::GetNetworkResult;
};

}  // namespace Vantrel::Auth::testing
