#include "emulator/EndpointSupport.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <random>
#include <regex>
#include <stdexcept>

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

std::string RandomBase64Url(size_t size) {
  std::string bytes(size, '\0');
  if (size > 0 && RAND_bytes(reinterpret_cast<unsigned char*>(&bytes[0]), static_cast<int>(size)) != 1) {
    throw std::runtime_error("RAND_bytes failed");
  }
  return Base64UrlEncode(bytes);
}

std::string RandomGuid() {
  unsigned char bytes[16];
  if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error("RAND_bytes failed");
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  return GuidOf(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

std::string GuidOf(std::string_view bytes) {
  std::string out;
  char part[3];
  for (size_t i = 0; i < 16 && i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    std::snprintf(part, sizeof part, "%02x", static_cast<unsigned char>(bytes[i]));
    out += part;
  }
  return out;
}

std::string Base64UrlEncode(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                               reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(length));
  while (!out.empty() && out.back() == '=') out.pop_back();
  for (char& c : out) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  return out;
}

bool Base64UrlDecode(std::string_view text, std::string* bytes) {
  if (text.size() % 4 == 1) return false;
  std::string standard;
  standard.reserve(text.size() + 3);
  for (char c : text) {
    bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (plain) {
      standard += c;
    } else if (c == '-') {
      standard += '+';
    } else if (c == '_') {
      standard += '/';
    } else {
      return false;
    }
  }
  size_t padding = (4 - standard.size() % 4) % 4;
  standard.append(padding, '=');
  std::string out(standard.size() / 4 * 3 + 1, '\0');
  int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                               reinterpret_cast<const unsigned char*>(standard.data()),
                               static_cast<int>(standard.size()));
  if (length < 0 || static_cast<size_t>(length) < padding) return false;
  // EVP_DecodeBlock counts the zero bytes that stand for the padding.
  out.resize(static_cast<size_t>(length) - padding);
  *bytes = std::move(out);
  return true;
}

std::string PercentEncode(std::string_view text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
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
