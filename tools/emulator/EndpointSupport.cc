#include "emulator/EndpointSupport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <random>
#include <regex>

namespace Vantrel {
namespace Emulation {
namespace {

std::string Trim(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return "";
  size_t end = text.find_last_not_of(" \t");
  return std::string(text.substr(begin, end - begin + 1));
}

}  // namespace

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string RandomHex(size_t words) {
  static thread_local std::mt19937_64 random(std::random_device{}());
  std::string out;
  char part[17];
  for (size_t i = 0; i < words; ++i) {
    std::snprintf(part, sizeof(part), "%016llx", static_cast<unsigned long long>(random()));
    out += part;
  }
  return out;
}

std::string Capture(const std::string& text, const char* pattern) {
  std::smatch match;
  std::regex re(pattern, std::regex::ECMAScript | std::regex::icase);
  if (!std::regex_search(text, match, re) || match.size() < 2) return "";
  return match[1].str();
}

std::vector<std::string> CookieValues(const Request& request, std::string_view name) {
  std::vector<std::string> values;
  for (const std::string& header : request.Headers("Cookie")) {
    size_t start = 0;
    while (start <= header.size()) {
      size_t end = header.find(';', start);
      if (end == std::string::npos) end = header.size();
      std::string pair = Trim(std::string_view(header).substr(start, end - start));
      size_t equals = pair.find('=');
      if (equals != std::string::npos && pair.compare(0, equals, name) == 0) {
        values.push_back(pair.substr(equals + 1));
      }
      start = end + 1;
    }
  }
  return values;
}

const std::string* MatchAccount(const std::map<std::string, std::string>& accounts,
                                const std::string& user, const std::string& password) {
  for (const auto& account : accounts) {
    if (Lower(account.first) == Lower(user) && account.second == password) return &account.first;
  }
  return nullptr;
}

Response SoapClientFault(const std::string& reason) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
      "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">"
      "<soap:Body><soap:Fault><faultcode>soap:Client</faultcode><faultstring>";
  body += reason;
  body += "</faultstring></soap:Fault></soap:Body></soap:Envelope>";
  return Response::Text(500, std::move(body), "text/xml; charset=utf-8");
}

std::string IssuedSessions::Issue(const std::string& user) {
  std::string value = user + "." + RandomHex(2);
  std::lock_guard<std::mutex> lock(mutex_);
  tokens_.push_back(value);
  return value;
}

bool IssuedSessions::IsValid(const std::string& token) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::find(tokens_.begin(), tokens_.end(), token) != tokens_.end();
}

bool IssuedSessions::Admits(const Request& request) const {
  for (const std::string& token : CookieValues(request, "FedAuth")) {
    if (IsValid(token)) return true;
  }
  return false;
}

void IssuedSessions::NoteRejected() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++rejected_;
}

std::vector<std::string> IssuedSessions::IssuedTokens() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tokens_;
}

int IssuedSessions::Rejected() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return rejected_;
}

}  // namespace Emulation
}  // namespace Vantrel
