#include "emulator/TrustSite.h"

#include <cctype>
#include <map>

namespace Vantrel {
namespace Emulation {
namespace {

// Form fields as sent (still encoded), first occurrence of each name.
std::map<std::string, std::string> RawFormFields(const std::string& body) {
  std::map<std::string, std::string> fields;
  size_t start = 0;
  while (start <= body.size()) {
    size_t end = body.find('&', start);
    if (end == std::string::npos) end = body.size();
    std::string pair = body.substr(start, end - start);
    size_t equals = pair.find('=');
    std::string name = PercentDecode(pair.substr(0, equals), true);
    fields.emplace(name, equals == std::string::npos ? "" : pair.substr(equals + 1));
    start = end + 1;
  }
  return fields;
}

// Whether every byte that a URL gives meaning to is percent-encoded, as it
// must be for a URL carried inside another one.
bool FullyEncoded(const std::string& value) {
  for (char c : value) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '%' && c != '-' && c != '.' &&
        c != '_' && c != '~') {
      return false;
    }
  }
  return true;
}

// The text between `open` and the next `close` after it.
bool Between(const std::string& text, const std::string& open, const std::string& close,
             std::string* value) {
  size_t start = text.find(open);
  if (start == std::string::npos) return false;
  start += open.size();
  size_t end = text.find(close, start);
  if (end == std::string::npos) return false;
  *value = text.substr(start, end - start);
  return true;
}

Response ErrorPage(TrustSiteState* state) {
  state->NoteRejected();
  return Response::Text(200,
                        "<html><head><title>Error</title></head><body>"
                        "<h1>Sorry, something went wrong</h1>"
                        "<p>The security token was not accepted.</p></body></html>\n",
                        "text/html; charset=utf-8");
}

Response SignIn(const TrustSiteOptions& options, TrustSiteState* state, const Request& request) {
  std::optional<std::string> type = request.Header("Content-Type");
  if (!type || Lower(*type).rfind("application/x-www-form-urlencoded", 0) != 0) {
    return Response::Text(400, "The sign-in form wants application/x-www-form-urlencoded.\n");
  }
  std::map<std::string, std::string> fields = RawFormFields(request.body);
  if (PercentDecode(fields["wa"], true) != "wsignin1.0") {
    return Response::Text(400, "wa must be wsignin1.0.\n");
  }

  // The site as the client addressed it: the trust URL less its endpoint.
  std::string addressed = AddressedUrl(request);
  addressed = addressed.substr(0, addressed.find('?'));
  const std::string endpoint = "/_trust";
  if (addressed.size() < endpoint.size() ||
      addressed.compare(addressed.size() - endpoint.size(), endpoint.size(), endpoint) != 0) {
    return Response::Text(400, "Unexpected trust URL.\n");
  }
  std::string site_url = addressed.substr(0, addressed.size() - endpoint.size());
  const std::string& raw_wctx = fields["wctx"];
  std::string wctx = PercentDecode(raw_wctx, false);
  if (!FullyEncoded(raw_wctx) || wctx.rfind(site_url + "/", 0) != 0) {
    return Response::Text(400, "wctx must be the encoded absolute URL of a page below " + site_url +
                                   "; got " + raw_wctx + "\n");
  }

  // The assertion must be one the server issued, byte for byte: that stands
  // in for checking its signature.
  std::string wresult = PercentDecode(fields["wresult"], true);
  std::string rstr, id, body;
  AdfsServerState::Assertion assertion;
  if (!Between(wresult, "RequestSecurityTokenResponse", "RequestSecurityTokenResponse>", &rstr) ||
      !Between(rstr, " AssertionID=\"", "\"", &id) || options.adfs == nullptr ||
      !options.adfs->Find(id, &assertion) ||
      !Between(rstr, "<saml:Assertion ", "</saml:Assertion>", &body) ||
      "<saml:Assertion " + body + "</saml:Assertion>" != assertion.text ||
      (!options.realm.empty() && assertion.realm != options.realm)) {
    return ErrorPage(state);
  }

  std::string cookie = "FedAuth=" + state->Issue(assertion.user) + "; path=/";
  if (request.tls) cookie += "; secure";
  cookie += "; HttpOnly";
  Response response = Response::Redirect(302, wctx);
  response.SetCookie(cookie);
  return response;
}

Response Web(const TrustSiteOptions& options, const TrustSiteState& state, const Request& request) {
  if (state.Admits(request)) {
    std::string title = options.site_path.empty() ? "Home" : options.site_path;
    return Response::Text(200,
                          "{\"Title\":\"" + title + "\",\"Url\":\"" + options.site_path + "\"}\n",
                          "application/json;odata=verbose;charset=utf-8");
  }
  return Response::Text(401, "401 UNAUTHORIZED: sign in first.\n");
}

}  // namespace

std::shared_ptr<TrustSiteState> InstallTrustSite(Emulator* emulator,
                                                 const TrustSiteOptions& options) {
  auto state = std::make_shared<TrustSiteState>();
  emulator->Route(
      "POST", options.host, options.site_path + "/_trust",
      [options, state](const Request& request) { return SignIn(options, state.get(), request); });
  emulator->Route(
      "GET", options.host, options.site_path + "/_api/web",
      [options, state](const Request& request) { return Web(options, *state, request); });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel
