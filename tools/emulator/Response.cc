#include "emulator/Response.h"

#include <utility>

namespace Vantrel {
namespace Emulation {

Response Response::Text(int status, std::string body, std::string_view content_type) {
  Response response;
  response.status = status;
  response.body = std::move(body);
  response.AddHeader("Content-Type", content_type);
  return response;
}

Response Response::Redirect(int status, std::string_view location) {
  Response response;
  response.status = status;
  response.AddHeader("Location", location);
  return response;
}

Response& Response::AddHeader(std::string_view name, std::string_view value) {
  std::string line;
  line.reserve(name.size() + 2 + value.size());
  line.append(name).append(": ").append(value);
  header_lines.push_back(std::move(line));
  return *this;
}

Response& Response::AddHeaderLine(std::string line) {
  header_lines.push_back(std::move(line));
  return *this;
}

Response& Response::SetCookie(std::string_view cookie) { return AddHeader("Set-Cookie", cookie); }

std::string Response::ReasonPhrase() const { return reason.empty() ? StandardReason(status) : reason; }

const char* StandardReason(int status) {
  switch (status) {
    case 100: return "Continue";
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 301: return "Moved Permanently";
    case 302: return "Found";
    case 303: return "See Other";
    case 304: return "Not Modified";
    case 307: return "Temporary Redirect";
    case 308: return "Permanent Redirect";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 407: return "Proxy Authentication Required";
    case 411: return "Length Required";
    case 413: return "Content Too Large";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 501: return "Not Implemented";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    default: return "Unknown";
  }
}

}  // namespace Emulation
}  // namespace Vantrel
