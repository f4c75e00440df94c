#include "emulator/Request.h"

#include <cctype>

namespace Vantrel {
namespace Emulation {

namespace {

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// Strips a trailing ":port" and the brackets of an IPv6 literal.
std::string HostWithoutPort(std::string_view authority) {
  if (!authority.empty() && authority.front() == '[') {
    size_t close = authority.find(']');
    return std::string(authority.substr(1, close == std::string_view::npos ? std::string_view::npos : close - 1));
  }
  return std::string(authority.substr(0, authority.find(':')));
}

}  // namespace

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

std::string PercentDecode(std::string_view text, bool plus_is_space) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%' && i + 2 < text.size()) {
      int hi = HexValue(text[i + 1]);
      int lo = HexValue(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(plus_is_space && c == '+' ? ' ' : c);
  }
  return out;
}

std::string Request::Raw() const {
  return head + (framed_body.empty() ? body : framed_body);
}

std::optional<std::string> Request::Header(std::string_view name) const {
  for (const std::string& line : header_lines) {
    size_t colon = line.find(':');
    if (colon != std::string::npos && EqualsIgnoreCase(std::string_view(line).substr(0, colon), name)) {
      return std::string(Trim(std::string_view(line).substr(colon + 1)));
    }
  }
  return std::nullopt;
}

std::vector<std::string> Request::Headers(std::string_view name) const {
  std::vector<std::string> values;
  for (const std::string& line : header_lines) {
    size_t colon = line.find(':');
    if (colon != std::string::npos && EqualsIgnoreCase(std::string_view(line).substr(0, colon), name)) {
      values.emplace_back(Trim(std::string_view(line).substr(colon + 1)));
    }
  }
  return values;
}

std::string Request::Host() const {
  std::string host = proxied_host;
  if (host.empty()) host = HostWithoutPort(Header("Host").value_or(""));
  for (char& c : host) c = Lower(c);
  return host;
}

std::optional<std::string> Request::QueryParam(std::string_view name) const {
  std::string_view rest = query;
  while (!rest.empty()) {
    size_t amp = rest.find('&');
    std::string_view pair = rest.substr(0, amp);
    rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
    size_t eq = pair.find('=');
    if (PercentDecode(pair.substr(0, eq), true) == name) {
      return eq == std::string_view::npos ? std::string() : PercentDecode(pair.substr(eq + 1), true);
    }
  }
  return std::nullopt;
}

void Request::DerivePathAndQuery() {
  path.clear();
  query.clear();
  std::string_view rest = target;
  if (method == "CONNECT") return;
  size_t scheme_end = rest.find("://");
  if (!rest.empty() && rest.front() != '/' && scheme_end != std::string_view::npos) {
    rest.remove_prefix(scheme_end + 3);
    size_t path_start = rest.find_first_of("/?#");
    rest = path_start == std::string_view::npos ? std::string_view() : rest.substr(path_start);
  }
  rest = rest.substr(0, rest.find('#'));
  size_t question = rest.find('?');
  path = PercentDecode(rest.substr(0, question), false);
  if (path.empty()) path = "/";
  if (question != std::string_view::npos) query = std::string(rest.substr(question + 1));
}

}  // namespace Emulation
}  // namespace Vantrel
