#include "credentials/UsernameCredential.h"

#include <utility>

namespace Vantrel {
namespace Auth {
namespace {

// The namespaces of the OASIS WS-Security 1.0 header and of the PasswordText
// type of its Username Token Profile.
const char* const kSecextNamespace =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd";
const char* const kPasswordTextType =
    "http://docs.oasis-open.org/wss/2004/01/"
    "oasis-200401-wss-username-token-profile-1.0#PasswordText";

}  // namespace

UsernameCredential::UsernameCredential(std::string username, std::string password)
    : username_(std::move(username)), password_(std::move(password)) {}

UsernameCredential::~UsernameCredential() {}

std::string UsernameCredential::GetSoapCredential() const {
  std::string text;
  text.reserve(username_.size() + password_.size() + 42);
  text += "<username>";
  text += username_;
  text += "</username>\n<password>";
  text += password_;
  text += "</password>\n";
  return text;
}

// Both texts go in byte for byte: the servers we talk to accept the password
// exactly as typed, and escaping it would change what they compare.
std::string UsernameCredential::GetSamlCredential() const {
  std::string text;
  text += "<o:UsernameToken xmlns:o=\"";
  text += kSecextNamespace;
  text += "\">\n\t<o:Username>";
  text += username_;
  text += "</o:Username>\n\t<o:Password Type=\"";
  text += kPasswordTextType;
  text += "\">";
  text += password_;
  text += "</o:Password>\n</o:UsernameToken>\n";
  return text;
}

}  // namespace Auth
}  // namespace Vantrel
