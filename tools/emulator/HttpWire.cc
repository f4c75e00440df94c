#include "emulator/HttpWire.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace Vantrel {
namespace Emulation {

namespace {

constexpr std::size_t kMaxHeadBytes = 256 * 1024;
constexpr std::size_t kMaxLineBytes = 16 * 1024;
// Far above anything a test sends; stops a bogus length from allocating.
constexpr unsigned long long kMaxBodyBytes = 1ULL << 30;

std::string_view StripLineEnd(std::string_view line) {
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// Whether a comma-separated header value lists `token`.
bool HasToken(std::string_view value, std::string_view token) {
  while (!value.empty()) {
    size_t comma = value.find(',');
    if (EqualsIgnoreCase(Trim(value.substr(0, comma)), token)) return true;
    if (comma == std::string_view::npos) break;
    value.remove_prefix(comma + 1);
  }
  return false;
}

bool ParseNumber(std::string_view text, int base, unsigned long long* value) {
  if (text.empty() || text.size() > 16) return false;
  unsigned long long result = 0;
  for (char c : text) {
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return false;
    }
    result = result * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
  }
  *value = result;
  return true;
}

bool NamesHeader(std::string_view line, std::string_view name) {
  size_t colon = line.find(':');
  return colon != std::string_view::npos && EqualsIgnoreCase(Trim(line.substr(0, colon)), name);
}

ReadResult ReadChunkedBody(Stream* stream, Request* request) {
  for (;;) {
    std::string size_line;
    if (!stream->ReadUntil("\n", kMaxLineBytes, &size_line)) return ReadResult::kMalformed;
    request->framed_body += size_line;
    std::string_view digits = StripLineEnd(size_line);
    digits = Trim(digits.substr(0, digits.find(';')));
    unsigned long long size;
    if (!ParseNumber(digits, 16, &size) || size > kMaxBodyBytes) return ReadResult::kMalformed;
    if (size == 0) break;
    std::size_t old_size = request->body.size();
    if (!stream->ReadExactly(size, &request->body)) return ReadResult::kMalformed;
    request->framed_body.append(request->body, old_size, std::string::npos);
    std::string line_end;
    if (!stream->ReadUntil("\n", kMaxLineBytes, &line_end)) return ReadResult::kMalformed;
    request->framed_body += line_end;
  }
  for (;;) {  // trailer section, ended by an empty line
    std::string line;
    if (!stream->ReadUntil("\n", kMaxLineBytes, &line)) return ReadResult::kMalformed;
    request->framed_body += line;
    if (StripLineEnd(line).empty()) return ReadResult::kOk;
  }
}

}  // namespace

ReadResult ReadRequestHead(Stream* stream, Request* request) {
  unsigned char next;
  for (;;) {
    if (!stream->Peek(&next)) return ReadResult::kClosed;
    if (next != '\r' && next != '\n') break;
    std::string blank;
    stream->ReadExactly(1, &blank);
  }
  std::string& head = request->head;
  std::string line;
  if (!stream->ReadUntil("\n", kMaxLineBytes, &line)) return ReadResult::kMalformed;
  head += line;
  std::string_view request_line = StripLineEnd(line);
  size_t first_space = request_line.find(' ');
  size_t last_space = request_line.rfind(' ');
  if (first_space == std::string_view::npos || first_space == last_space) return ReadResult::kMalformed;
  request->method = std::string(request_line.substr(0, first_space));
  request->target = std::string(request_line.substr(first_space + 1, last_space - first_space - 1));
  request->version = std::string(request_line.substr(last_space + 1));
  if (request->method.empty() || request->target.empty() ||
      request->version.compare(0, 5, "HTTP/") != 0) {
    return ReadResult::kMalformed;
  }
  for (;;) {
    line.clear();
    if (head.size() >= kMaxHeadBytes ||
        !stream->ReadUntil("\n", std::min(kMaxLineBytes, kMaxHeadBytes - head.size()), &line)) {
      return ReadResult::kMalformed;
    }
    head += line;
    std::string_view text = StripLineEnd(line);
    if (text.empty()) break;
    request->header_lines.emplace_back(text);
  }
  request->DerivePathAndQuery();
  return ReadResult::kOk;
}

ReadResult ReadRequestBody(Stream* stream, Request* request) {
  std::optional<std::string> transfer_encoding = request->Header("Transfer-Encoding");
  std::optional<std::string> content_length = request->Header("Content-Length");
  bool chunked = transfer_encoding.has_value() && HasToken(*transfer_encoding, "chunked");
  unsigned long long length = 0;
  if (!chunked && content_length.has_value() &&
      (!ParseNumber(*content_length, 10, &length) || length > kMaxBodyBytes)) {
    return ReadResult::kMalformed;
  }
  std::optional<std::string> expect = request->Header("Expect");
  if (expect.has_value() && EqualsIgnoreCase(*expect, "100-continue") &&
      request->version == "HTTP/1.1" && (chunked || length > 0) && stream->Drained()) {
    if (!stream->Write("HTTP/1.1 100 Continue\r\n\r\n") || !stream->Flush()) return ReadResult::kClosed;
  }
  if (chunked) return ReadChunkedBody(stream, request);
  request->body.reserve(length);
  return stream->ReadExactly(length, &request->body) ? ReadResult::kOk : ReadResult::kMalformed;
}

bool ClientKeepsAlive(const Request& request) {
  bool close = false;
  bool keep_alive = false;
  for (const char* name : {"Connection", "Proxy-Connection"}) {
    for (const std::string& value : request.Headers(name)) {
      close = close || HasToken(value, "close");
      keep_alive = keep_alive || HasToken(value, "keep-alive");
    }
  }
  if (close) return false;
  return request.version == "HTTP/1.0" ? keep_alive : true;
}

bool WriteResponse(Stream* stream, const Request& request, const Response& response,
                   bool keep_alive) {
  const std::string& body = response.body;
  bool bodiless_status = response.status < 200 || response.status == 204 || response.status == 304;
  bool send_body = !bodiless_status && request.method != "HEAD";
  bool chunked = response.chunked && !bodiless_status;

  bool names_length = false, names_encoding = false, names_connection = false;
  bool length_matches = true;
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " + response.ReasonPhrase() + "\r\n";
  for (const std::string& line : response.header_lines) {
    head.append(line).append("\r\n");
    if (NamesHeader(line, "Content-Length")) {
      names_length = true;
      unsigned long long scripted;
      length_matches = ParseNumber(Trim(std::string_view(line).substr(line.find(':') + 1)), 10, &scripted) &&
                       scripted == body.size();
    }
    names_encoding = names_encoding || NamesHeader(line, "Transfer-Encoding");
    names_connection = names_connection || NamesHeader(line, "Connection");
  }
  if (chunked && !names_encoding) head += "Transfer-Encoding: chunked\r\n";
  if (!chunked && !bodiless_status && !names_length && response.content_length) {
    head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }

  bool delimited = !send_body || chunked || (names_length ? length_matches : response.content_length);
  bool dropping = send_body && response.close_after_body_bytes.has_value();
  bool keep = keep_alive && !response.close_connection && delimited && !dropping;
  if (!keep && !dropping && !names_connection) head += "Connection: close\r\n";
  head += "\r\n";
  if (!stream->Write(head)) return false;

  if (send_body) {
    std::size_t limit = dropping ? std::min(*response.close_after_body_bytes, body.size()) : body.size();
    std::string_view all(body);
    if (chunked) {
      std::size_t step = response.chunk_size > 0 ? response.chunk_size : std::max<std::size_t>(body.size(), 1);
      for (std::size_t offset = 0; offset < body.size(); offset += step) {
        std::size_t size = std::min(step, body.size() - offset);
        char size_line[32];
        std::snprintf(size_line, sizeof size_line, "%zx\r\n", size);
        if (!stream->Write(size_line)) return false;
        if (offset + size > limit) {
          stream->Write(all.substr(offset, limit - offset));
          stream->Flush();
          return false;
        }
        if (!stream->Write(all.substr(offset, size)) || !stream->Write("\r\n")) return false;
      }
      if (!dropping && !stream->Write("0\r\n\r\n")) return false;
    } else if (!stream->Write(all.substr(0, limit))) {
      return false;
    }
  }
  return stream->Flush() && keep;
}

}  // namespace Emulation
}  // namespace Vantrel

