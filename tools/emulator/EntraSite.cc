// InstallEntraSite (declared in EntraService.h): the SharePoint Online site
// that takes the Entra service's bearer tokens.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "emulator/EndpointSupport.h"
#include "emulator/EntraService.h"

namespace Vantrel {
namespace Emulation {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kSharePointAppId[] = "00000003-0000-0ff1-ce00-000000000000";

std::string Dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// What SharePoint Online answers to every request it won't serve: the
// tenant, SharePoint's own application id and where to sign in. The
// trusted_issuers value holds commas inside its quotes on purpose.
std::string Challenge(const EntraServiceOptions& service) {
  const std::string& authority = service.authority_host;
  std::string authorize_host =
      authority == "login.microsoftonline.com" ? "login.windows.net" : authority;
  return "Bearer realm=\"" + service.tenant_id + "\",client_id=\"" + kSharePointAppId +
         "\",trusted_issuers=\"00000001-0000-0000-c000-000000000000@*,"
         "D3776938-3DBA-481F-A652-4BEDFCAB7CD8@*,https://sts.windows.net/*/,https://" +
         authority + "/*/v2.0," + kSharePointAppId +
         "@90140122-8516-11e1-8eff-49304924019b\",authorization_uri=\"https://" + authorize_host +
         "/common/oauth2/authorize\"";
}

// The token of "Authorization: Bearer TOKEN"; "" for none, an empty one or
// another scheme.
std::string BearerToken(const Request& request) {
  std::string value = request.Header("Authorization").value_or("");
  if (value.size() < 6 || !EqualsIgnoreCase(std::string_view(value).substr(0, 6), "Bearer") ||
      (value.size() > 6 && value[6] != ' ')) {
    return "";
  }
  size_t start = value.find_first_not_of(' ', 6);
  return start == std::string::npos ? "" : value.substr(start);
}

Response Unauthorized(const std::string& challenge, std::string body, const char* content_type) {
  Response response = Response::Text(401, std::move(body), content_type);
  response.AddHeader("WWW-Authenticate", challenge);
  return response;
}

// A token the site won't take: the reason in x-ms-diagnostics and in the
// JSON body, as SharePoint Online states it.
Response Refusal(const std::string& challenge, const std::string& reason) {
  Response response = Unauthorized(challenge, Dump(Json{{"error_description", reason}}),
                                   "application/json; charset=utf-8");
  response.AddHeader("x-ms-diagnostics",
                     "3000003;reason=\"" + reason + "\";category=\"invalid_client\"");
  return response;
}

// The web a request is about: the path in front of "/_api", "/_vti_bin" or
// "/_layouts", without a final "/".
std::string WebPath(const std::string& path) {
  std::string lower = Lower(path);
  size_t end = path.size();
  for (const char* marker : {"/_api", "/_vti_bin", "/_layouts"}) {
    end = std::min(end, lower.find(marker));
  }
  std::string web = path.substr(0, end);
  while (!web.empty() && web.back() == '/') web.pop_back();
  return web;
}

Response Web(const EntraSiteOptions& options, const std::string& web_id, const Request& request) {
  std::string web_path = WebPath(request.path);
  std::string url = "https://" + options.host + web_path;
  Json web;
  web["__metadata"] = {{"id", url + "/_api/Web"}, {"uri", url + "/_api/Web"}, {"type", "SP.Web"}};
  web["Id"] = web_id;
  web["Title"] = options.title;
  web["Url"] = url;
  web["ServerRelativeUrl"] = web_path.empty() ? "/" : web_path;
  return Response::Text(200, Dump(Json{{"d", web}}),
                        "application/json;odata=verbose;charset=utf-8");
}

}  // namespace

void InstallEntraSite(Emulator* emulator, const EntraSiteOptions& options,
                      const std::shared_ptr<EntraServiceState>& service) {
  const std::string challenge = Challenge(service->options());
  const std::string web_id = RandomGuid();
  emulator->Route("", options.host, "/", [=](const Request& request) {
    std::string token = BearerToken(request);
    if (token.empty()) {
      return Unauthorized(
          challenge, Dump(Json{{"error_description", "Invalid JWT token. No token provided."}}),
          "application/json; charset=utf-8");
    }
    EntraServiceState::AccessToken record;
    if (!service->LookUpAccessToken(token, &record)) {
      std::vector<std::string> issued = service->IssuedAccessTokens();
      bool expired = std::find(issued.begin(), issued.end(), token) != issued.end();
      return Refusal(challenge,
                     expired ? "Invalid JWT token. The token is expired." : "Invalid signature.");
    }
    if (!EqualsIgnoreCase(record.audience_host, options.host)) {
      return Refusal(challenge, "Invalid audience Uri 'https://" + record.audience_host + "'.");
    }
    if (record.from_secret) {
      // SharePoint takes app-only tokens of certificates alone.
      Response response =
          Unauthorized(challenge, "Unsupported app only token.", "text/plain; charset=utf-8");
      response.AddHeader(
          "x-ms-diagnostics",
          "3000003;reason=\"Unsupported app only token.\";category=\"invalid_client\"");
      return response;
    }
    return Web(options, web_id, request);
  });
}

}  // namespace Emulation
}  // namespace Vantrel
