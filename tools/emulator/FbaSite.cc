#include "emulator/FbaSite.h"

#include <optional>
#include <regex>

namespace Vantrel {
namespace Emulation {
namespace {

const char kSoapNamespace[] = "http://schemas.microsoft.com/sharepoint/soap/";
const char kLoginAction[] = "\"http://schemas.microsoft.com/sharepoint/soap/Login\"";

std::string LoginResponse(const char* error_code) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
      "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
      "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">"
      "<soap:Body><LoginResponse xmlns=\"";
  body += kSoapNamespace;
  body += "\"><LoginResult><CookieName>FedAuth</CookieName><ErrorCode>";
  body += error_code;
  body += "</ErrorCode><TimeoutSeconds>1800</TimeoutSeconds></LoginResult></LoginResponse>"
          "</soap:Body></soap:Envelope>";
  return body;
}

// The client puts the values in unescaped, so a value may hold "<" or "&";
// the lazy match stops at the first closing tag, which is the right one.
std::optional<std::string> ElementText(const std::string& body, const char* name) {
  std::regex pattern(std::string("<") + name + ">([\\s\\S]*?)</" + name + ">");
  std::smatch match;
  if (!std::regex_search(body, match, pattern)) return std::nullopt;
  return match[1].str();
}

Response Login(const FbaSiteOptions& options, FbaSiteState* state, const Request& request) {
  std::optional<std::string> action = request.Header("SOAPAction");
  if (!action || *action != kLoginAction) {
    return SoapClientFault("Server did not recognize the value of HTTP Header SOAPAction: " +
                           action.value_or(""));
  }
  std::optional<std::string> type = request.Header("Content-Type");
  if (!type || Lower(*type).rfind("text/xml", 0) != 0) {
    return Response::Text(415, "The Login call wants a text/xml body.\n");
  }
  std::optional<std::string> user = ElementText(request.body, "username");
  std::optional<std::string> password = ElementText(request.body, "password");
  if (!user || !password) return SoapClientFault("The Login call lacks username or password.");

  if (const std::string* name = MatchAccount(options.accounts, *user, *password)) {
    std::string cookie = "FedAuth=" + state->Issue(*name) + "; path=/";
    if (request.tls) cookie += "; secure";
    cookie += "; HttpOnly";
    Response response = Response::Text(200, LoginResponse("NoError"), "text/xml; charset=utf-8");
    response.SetCookie(cookie);
    return response;
  }
  state->NoteRejected();
  return Response::Text(200, LoginResponse("PasswordNotMatch"), "text/xml; charset=utf-8");
}

Response Web(const FbaSiteOptions& options, const FbaSiteState& state, const Request& request) {
  if (state.Admits(request)) {
    std::string url = options.site_path.empty() ? "/" : options.site_path;
    return Response::Text(200, "{\"Title\":\"Team Site\",\"ServerRelativeUrl\":\"" + url + "\"}\n",
                          "application/json;odata=verbose;charset=utf-8");
  }
  Response response = Response::Text(401, "401 UNAUTHORIZED: sign in first.\n");
  response.AddHeader("X-Forms_Based_Auth_Required",
                     options.site_path + "/_login/default.aspx?ReturnUrl=/_layouts/Error.aspx");
  return response;
}

}  // namespace

std::shared_ptr<FbaSiteState> InstallFbaSite(Emulator* emulator, const FbaSiteOptions& options) {
  auto state = std::make_shared<FbaSiteState>();
  emulator->Route("POST", options.host, options.site_path + "/_vti_bin/authentication.asmx",
                  [options, state](const Request& request) {
                    return Login(options, state.get(), request);
                  });
  emulator->Route("GET", options.host, options.site_path + "/_api/web",
                  [options, state](const Request& request) {
                    return Web(options, *state, request);
                  });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel
