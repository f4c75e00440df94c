#include "credentials/UsernameCredential.h"

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

UsernameCredential::UsernameCredential(std::string_view username, std::string_view password)
    : username_(username), password_(password) {}

UsernameCredential::~UsernameCredential() {}

SecretString UsernameCredential::GetSoapCredential() const {
  SecretString text;
  text.Append("<username>");
  text.Append(username_);
  text.Append("</username>\n<password>");
  text.Append(password_.view());
  text.Append("</password>\n");
  return text;
}

// Both texts go in byte for byte: the servers we talk to accept the password
// exactly as typed, and escaping it would change what they compare.
SecretString UsernameCredential::GetSamlCredential() const {
  SecretString text;
  text.Append("<o:UsernameToken xmlns:o=\"");
  text.Append(kSecextNamespace);
  text.Append("\">\n\t<o:Username>");
  text.Append(username_);
  text.Append("</o:Username>\n\t<o:Password Type=\"");
  text.Append(kPasswordTextType);
  text.Append("\">");
  text.Append(password_.view());
  text.Append("</o:Password>\n</o:UsernameToken>\n");
  return text;
}

}  // namespace Auth
}  // namespace Vantrel
