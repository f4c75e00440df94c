#include "authenticators/oauth/EntraAuthority.h"

#include <algorithm>

namespace Vantrel {
namespace Auth {
namespace {

const char kGlobalAuthority[] = "https://login.microsoftonline.com";
const char kUsGovernmentAuthority[] = "https://login.microsoftonline.us";
const char kChinaAuthority[] = "https://login.partner.microsoftonline.cn";

bool EndsWithDomain(const std::string& host, std::string_view domain) {
  if (host.size() == domain.size()) return host == domain;
  return host.size() > domain.size() && host[host.size() - domain.size() - 1] == '.' &&
         host.compare(host.size() - domain.size(), domain.size(), domain) == 0;
}

bool IsNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_';
}

bool IsAddressChar(char c) {  // inside the brackets of an IPv6 literal
  return (c >= 'a' && c <= 'f') || (c >= '0' && c <= '9') || c == ':' || c == '.';
}

// A name goes into scopes, cache keys and URLs the library builds: anything
// but the characters of host names and addresses makes it no host at all.
std::string CheckedHost(std::string host) {
  for (char& c : host) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    const bool ok = std::all_of(host.begin() + 1, host.end() - 1, IsAddressChar);
    return ok ? host : std::string();
  }
  const bool ok = std::all_of(host.begin(), host.end(), IsNameChar);
  return ok ? host : std::string();
}

}  // namespace

std::string EntraAuthority::ForSiteHost(std::string_view site_host) {
  std::string host = HostOf(site_host);
  if (!host.empty() && host.back() == '.') host.pop_back();  // a fully qualified name
  if (EndsWithDomain(host, "sharepoint.us")) return kUsGovernmentAuthority;
  if (EndsWithDomain(host, "sharepoint.cn")) return kChinaAuthority;
  return kGlobalAuthority;
}

// Tolerates a URL without a scheme ("host:port/path"), since hosts pass what
// their users typed.
std::string EntraAuthority::HostOf(std::string_view url) {
  const size_t scheme_end = url.find("://");
  if (scheme_end != std::string_view::npos) url.remove_prefix(scheme_end + 3);
  // A plain scan: find_first_of asks memchr once per character, and every
  // silent sign-in comes through here.
  size_t end = 0;
  while (end < url.size() && url[end] != '/' && url[end] != '?' && url[end] != '#') ++end;
  std::string_view authority = url.substr(0, end);
  const size_t at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  size_t host_end;
  if (!authority.empty() && authority.front() == '[') {
    host_end = authority.find(']');
    host_end = host_end == std::string_view::npos ? authority.size() : host_end + 1;
  } else {
    host_end = authority.find(':');
  }
  return CheckedHost(std::string(authority.substr(0, host_end)));
}

std::string EntraAuthority::OriginOf(std::string_view url) {
  const std::string host = HostOf(url);
  return host.empty() ? std::string() : "https://" + host;
}

std::string EntraAuthority::EndpointUrl(std::string_view authority, std::string_view tenant,
                                        std::string_view endpoint) {
  while (!authority.empty() && authority.back() == '/') authority.remove_suffix(1);
  std::string url(authority);
  url.append("/").append(tenant).append("/oauth2/v2.0/").append(endpoint);
  return url;
}

}  // namespace Auth
}  // namespace Vantrel
