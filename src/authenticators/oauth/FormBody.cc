#include "authenticators/oauth/FormBody.h"

#include <cstring>

#include "VantrelAuthEngine64/INetworkControl.h"

namespace Vantrel {
namespace Auth {

void FormBody::Add(std::string_view name, std::string_view value) {
  if (!ok_) return;
  // Escape reads up to a NUL: a value holding one would be sent cut short.
  char* escaped = nullptr;
  if (transport_ != nullptr && value.find('\0') == std::string_view::npos) {
    const SecretString terminated(value);
    escaped = transport_->Escape(terminated.c_str());
  }
  if (escaped == nullptr) {
    ok_ = false;
    text_.Clear();
    return;
  }
  if (!text_.empty()) text_.Append('&');
  text_.Append(name);
  text_.Append('=');
  text_.Append(escaped);
  // The transport's copy carries the secret as well and is freed by code
  // that doesn't wipe it.
  WipeMemory(escaped, std::strlen(escaped));
  transport_->FreeEscaped(escaped);
}

}  // namespace Auth
}  // namespace Vantrel
