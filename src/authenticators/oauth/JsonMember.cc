#include "authenticators/oauth/JsonMember.h"

namespace Vantrel {
namespace Auth {
namespace {

const nlohmann::json* Member(const nlohmann::json& object, const char* name) {
  if (!object.is_object()) return nullptr;
  auto found = object.find(name);
  return found != object.end() ? &*found : nullptr;
}

bool SecondsOfText(const std::string& text, long long* seconds) {
  if (text.empty() || text.size() > 10) return false;  // kMaxJsonSeconds has 10 digits
  long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  if (value > kMaxJsonSeconds) return false;
  *seconds = value;
  return true;
}

}  // namespace

bool ParseJsonObject(std::string_view text, nlohmann::json* object) {
  *object = nlohmann::json::parse(text.data(), text.data() + text.size(), nullptr, false);
  if (object->is_object()) return true;
  DisposeJson(object);
  *object = nlohmann::json();
  return false;
}

bool ReadJsonString(const nlohmann::json& object, const char* name, std::string* value) {
  const nlohmann::json* member = Member(object, name);
  if (member == nullptr || !member->is_string()) return false;
  *value = member->get_ref<const std::string&>();
  return true;
}

bool TakeJsonSecret(nlohmann::json* object, const char* name, SecretString* value) {
  if (!object->is_object()) return false;
  auto found = object->find(name);
  if (found == object->end() || !found->is_string()) return false;
  std::string& text = found->get_ref<std::string&>();
  value->Assign(text);
  WipeString(&text);
  return true;
}

bool ReadJsonSeconds(const nlohmann::json& object, const char* name, long long* seconds) {
  const nlohmann::json* member = Member(object, name);
  if (member == nullptr) return false;
  if (member->is_string()) return SecondsOfText(member->get_ref<const std::string&>(), seconds);
  if (member->is_number_integer()) {  // true for unsigned numbers as well
    if (member->is_number_unsigned()) {
      const auto value = member->get<nlohmann::json::number_unsigned_t>();
      if (value > static_cast<unsigned long long>(kMaxJsonSeconds)) return false;
      *seconds = static_cast<long long>(value);
      return true;
    }
    const auto value = member->get<nlohmann::json::number_integer_t>();
    if (value < 0 || value > kMaxJsonSeconds) return false;
    *seconds = value;
    return true;
  }
  if (member->is_number_float()) {
    const double value = member->get<double>();
    if (!(value >= 0 && value <= static_cast<double>(kMaxJsonSeconds))) return false;
    *seconds = static_cast<long long>(value);
    return true;
  }
  return false;
}

}  // namespace Auth
}  // namespace Vantrel
