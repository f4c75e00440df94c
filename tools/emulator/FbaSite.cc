#include "emulator/FbaSite.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <random>
#include <regex>
#include <string_view>
#include <utility>

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

Response SoapFault(const std::string& reason) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
      "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">"
      "<soap:Body><soap:Fault><faultcode>soap:Client</faultcode><faultstring>";
  body += reason;
  body += "</faultstring></soap:Fault></soap:Body></soap:Envelope>";
  return Response::Text(500, std::move(body), "text/xml; charset=utf-8");
}

// The client puts the values in unescaped, so a value may hold "<" or "&";
// the lazy match stops at the first closing tag, which is the right one.
std::optional<std::string> ElementText(const std::string& body, const char* name) {
  std::regex pattern(std::string("<") + name + ">([\\s\\S]*?)</" + name + ">");
  std::smatch match;
  if (!std::regex_search(body, match, pattern)) return std::nullopt;
  return match[1].str();
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string Trim(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return "";
  size_t end = text.find_last_not_of(" \t");
  return std::string(text.substr(begin, end - begin + 1));
}

// Values of every cookie called `name` across all Cookie headers.
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

Response Login(const FbaSiteOptions& options, FbaSiteState* state, const Request& request) {
  std::optional<std::string> action = request.Header("SOAPAction");
  if (!action || *action != kLoginAction) {
    return SoapFault("Server did not recognize the value of HTTP Header SOAPAction: " +
                     action.value_or(""));
  }
  std::optional<std::string> type = request.Header("Content-Type");
  if (!type || Lower(*type).rfind("text/xml", 0) != 0) {
    return Response::Text(415, "The Login call wants a text/xml body.\n");
  }
  std::optional<std::string> user = ElementText(request.body, "username");
  std::optional<std::string> password = ElementText(request.body, "password");
  if (!user || !password) return SoapFault("The Login call lacks username or password.");

  // Names are matched without regard to case, passwords exactly.
  for (const auto& account : options.accounts) {
    if (Lower(account.first) == Lower(*user) && account.second == *password) {
      std::string cookie = "FedAuth=" + state->Issue(account.first) + "; path=/";
      if (request.tls) cookie += "; secure";
      cookie += "; HttpOnly";
      Response response = Response::Text(200, LoginResponse("NoError"), "text/xml; charset=utf-8");
      response.SetCookie(cookie);
      return response;
    }
  }
  state->NoteRejected();
  return Response::Text(200, LoginResponse("PasswordNotMatch"), "text/xml; charset=utf-8");
}

Response Web(const FbaSiteOptions& options, const FbaSiteState& state, const Request& request) {
  for (const std::string& token : CookieValues(request, "FedAuth")) {
    if (state.IsValid(token)) {
      std::string url = options.site_path.empty() ? "/" : options.site_path;
      return Response::Text(200, "{\"Title\":\"Team Site\",\"ServerRelativeUrl\":\"" + url + "\"}\n",
                            "application/json;odata=verbose;charset=utf-8");
    }
  }
  Response response = Response::Text(401, "401 UNAUTHORIZED: sign in first.\n");
  response.AddHeader("X-Forms_Based_Auth_Required",
                     options.site_path + "/_login/default.aspx?ReturnUrl=/_layouts/Error.aspx");
  return response;
}

}  // namespace

std::string FbaSiteState::Issue(const std::string& user) {
  static thread_local std::mt19937_64 random(std::random_device{}());
  char token[40];
  std::snprintf(token, sizeof(token), "%016llx%016llx",
                static_cast<unsigned long long>(random()),
                static_cast<unsigned long long>(random()));
  // The user's name up front makes a jar readable in the demo; the random part
  // is what makes the value unguessable.
  std::string value = user + "." + token;
  std::lock_guard<std::mutex> lock(mutex_);
  tokens_.push_back(value);
  return value;
}

bool FbaSiteState::IsValid(const std::string& token) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::find(tokens_.begin(), tokens_.end(), token) != tokens_.end();
}

void FbaSiteState::NoteRejected() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++rejected_;
}

std::vector<std::string> FbaSiteState::IssuedTokens() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tokens_;
}

int FbaSiteState::RejectedLogins() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return rejected_;
}

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
