#include "emulator/OnlineSite.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <utility>

#include "emulator/EndpointSupport.h"

namespace Vantrel {
namespace Emulation {
namespace {

const char kGetSiteAndWebAction[] =
    "\"http://schemas.microsoft.com/sharepoint/soap/GetSiteAndWeb\"";

bool EndsWithIgnoreCase(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         EqualsIgnoreCase(std::string_view(text).substr(text.size() - tail.size()), tail);
}

Response SiteAndWeb(const OnlineSiteOptions& options, const Request& request) {
  if (request.Header("SOAPAction").value_or("") != kGetSiteAndWebAction) {
    return SoapClientFault("Server did not recognize the value of HTTP Header SOAPAction: " +
                           request.Header("SOAPAction").value_or("") + ".");
  }
  if (request.Header("Content-Type").value_or("").compare(0, 8, "text/xml") != 0 ||
      request.body.find("<strUrl>") == std::string::npos) {
    return SoapClientFault("Server was unable to read request.");
  }
  std::string str_url = Capture(request.body, "<strUrl>([^<]*)</strUrl>");
  std::string site = options.str_site.empty() ? str_url : options.str_site;
  std::string web = options.str_web.empty() ? site : options.str_web;
  return Response::Text(
      200,
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope "
      "xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
      "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"><soap:Body>"
      "<GetSiteAndWebResponse xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">"
      "<GetSiteAndWebResult>0</GetSiteAndWebResult><strSite>" +
          site + "</strSite><strWeb>" + web +
          "</strWeb></GetSiteAndWebResponse></soap:Body></soap:Envelope>",
      "text/xml; charset=utf-8");
}

Response SignIn(const OnlineSiteOptions& options, const std::string& realm,
                const std::shared_ptr<Office365ServiceState>& service,
                const std::shared_ptr<OnlineSiteState>& state, const Request& request) {
  Office365ServiceState::Token token;
  if (request.query.find("wa=wsignin1.0") == std::string::npos ||
      !service->Find(request.body, &token) || token.realm != realm) {
    return Response::Text(403, "<html><body>Sign-in failed.</body></html>",
                          "text/html; charset=utf-8");
  }
  std::string secure = request.tls ? "; secure" : "";
  Response response = Response::Redirect(302, "/");
  if (options.send_rtfa) {
    // rtFa is the tenant-wide cookie; this site only hands it out.
    response.SetCookie("rtFa=" + PercentEncode(token.user) + "IAAAAA; domain=sharepoint.com; path=/" +
                       secure + "; HttpOnly");
  }
  response.SetCookie("FedAuth=" + state->Issue(token.user) + "; path=/" + secure + "; HttpOnly");
  return response;
}

Response Anonymous(const std::vector<ProbeHop>& chain, const Request& request) {
  const ProbeHop* hop = &chain.front();
  for (size_t i = 1; i < chain.size(); ++i) {
    if (EqualsIgnoreCase(chain[i].path, request.path)) hop = &chain[i];
  }
  Response response;
  response.status = hop->status;
  if (!hop->forms_auth.empty()) response.AddHeader("X-Forms_Based_Auth_Required", hop->forms_auth);
  if (!hop->location.empty()) response.AddHeader("Location", hop->location);
  response.AddHeader("Content-Type", "text/html; charset=utf-8");
  response.body = "<html><body>Sign in to continue.</body></html>";
  return response;
}

}  // namespace

std::string WreplyLocation(const std::string& realm) {
  return "https://login.microsoftonline.com/login.srf?wa=wsignin1.0&rpsnv=4&rver=6.7.6640.0"
         "&wp=MBI_SSL&wreply=" +
         PercentEncode(PercentEncode(realm)) + "&lc=1033&id=500046&cbcxt=mai";
}

std::vector<ProbeHop> StandardChain(const std::string& host, const std::string& realm) {
  std::string base = "https://" + host;
  std::string return_to = "?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f";
  return {
      {"", 403, "", base + "/_login/default.aspx" + return_to},
      {"/_login/default.aspx", 302, base + "/_layouts/15/AccessDenied.aspx",
       base + "/_forms/default.aspx" + return_to},
      {"/_forms/default.aspx", 302, WreplyLocation(realm), ""},
  };
}

std::string OnlineSiteState::Issue(const std::string& user) {
  static std::atomic<unsigned> serial{0};
  char value[48];
  std::snprintf(value, sizeof value, "77u/PD94%08lx%04x",
                static_cast<unsigned long>(std::time(nullptr)), serial.fetch_add(1) & 0xffffu);
  std::lock_guard<std::mutex> lock(mutex_);
  sessions_.emplace_back(value, user);
  return value;
}

std::string OnlineSiteState::UserOf(const std::string& fed_auth) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& session : sessions_) {
    if (session.first == fed_auth) return session.second;
  }
  return "";
}

std::vector<std::string> OnlineSiteState::IssuedCookies() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> values;
  for (const auto& session : sessions_) values.push_back(session.first);
  return values;
}

std::shared_ptr<OnlineSiteState> InstallOnlineSite(
    Emulator* emulator, const OnlineSiteOptions& options,
    const std::shared_ptr<Office365ServiceState>& service) {
  auto state = std::make_shared<OnlineSiteState>();
  std::string realm = options.realm.empty() ? "https://" + options.host : options.realm;
  std::vector<ProbeHop> chain =
      options.chain.empty() ? StandardChain(options.host, realm) : options.chain;
  service->AddRealm(realm, options.bpos_converted);

  // One route for the whole host: the endpoints sit below any site path, so
  // they are told apart by how the path ends, not by a prefix.
  emulator->Route("", options.host, "/", [=](const Request& request) {
    if (request.method == "POST" && EndsWithIgnoreCase(request.path, "/_vti_bin/SiteData.asmx")) {
      return SiteAndWeb(options, request);
    }
    if (request.method == "POST" && EndsWithIgnoreCase(request.path, "/_forms/default.aspx")) {
      return SignIn(options, realm, service, state, request);
    }
    std::vector<std::string> fed_auth = CookieValues(request, "FedAuth");
    std::string user = state->UserOf(fed_auth.empty() ? "" : fed_auth.front());
    if (request.method == "GET" && !user.empty()) {
      return Response::Text(200, "<html><body>Signed in as " + user + ".</body></html>",
                            "text/html; charset=utf-8");
    }
    if (request.method == "GET") return Anonymous(chain, request);
    return Response::Text(405, "Method not allowed here.\n");
  });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel
