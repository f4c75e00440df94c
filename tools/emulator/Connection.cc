#include "emulator/Connection.h"

#include <sys/socket.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "emulator/HttpWire.h"

namespace Vantrel {
namespace Emulation {

namespace {

constexpr unsigned char kTlsHandshakeRecord = 0x16;

// Splits "host:port" or "[v6]:port"; the port defaults to `default_port`.
bool SplitAuthority(std::string_view authority, int default_port, std::string* host, int* port) {
  std::string_view port_text;
  if (!authority.empty() && authority.front() == '[') {
    size_t close = authority.find(']');
    if (close == std::string_view::npos) return false;
    *host = std::string(authority.substr(1, close - 1));
    if (close + 1 < authority.size()) {
      if (authority[close + 1] != ':') return false;
      port_text = authority.substr(close + 2);
    }
  } else {
    size_t colon = authority.rfind(':');
    *host = std::string(authority.substr(0, colon));
    if (colon != std::string_view::npos) port_text = authority.substr(colon + 1);
  }
  *port = default_port;
  if (!port_text.empty()) {
    std::string digits(port_text);
    char* end = nullptr;
    long value = std::strtol(digits.c_str(), &end, 10);
    if (*end != '\0' || value <= 0 || value > 65535) return false;
    *port = static_cast<int>(value);
  }
  for (char& c : *host) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return !host->empty();
}

// Host and port of an absolute-form target such as "http://host:8080/x".
bool AbsoluteFormAuthority(const std::string& target, std::string* host, int* port) {
  size_t scheme_end = target.find("://");
  if (target.empty() || target.front() == '/' || scheme_end == std::string::npos) return false;
  std::string_view scheme = std::string_view(target).substr(0, scheme_end);
  std::string_view rest = std::string_view(target).substr(scheme_end + 3);
  std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  size_t at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  return SplitAuthority(authority, EqualsIgnoreCase(scheme, "https") ? 443 : 80, host, port);
}

}  // namespace

Connection::Connection(int fd, int local_port, bool tls_listener, std::uint64_t id,
                       const TlsContext* tls, Exchange* exchange)
    : fd_(fd), local_port_(local_port), tls_listener_(tls_listener), id_(id), tls_(tls),
      exchange_(exchange), stream_(fd) {}

bool Connection::StartTls(const std::string* tunnel_host) {
  if (exchange_->StallsTlsHandshakes()) {
    StallTlsHandshake();
    return false;
  }
  SSL* ssl = tls_->NewSession(fd_, tunnel_host);
  return ssl != nullptr && stream_.AcceptTls(ssl);
}

void Connection::HoldUntilClientLeaves() {
  char scratch[4096];
  for (;;) {
    long got = recv(fd_, scratch, sizeof scratch, 0);
    if (got == 0 || (got < 0 && errno != EINTR)) return;
  }
}

void Connection::StallTlsHandshake() {
  char hello[4096];
  long got;
  do {
    got = recv(fd_, hello, sizeof hello, 0);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) return;
  // A handshake record of TLS 1.2 announcing 512 bytes, none of which follow.
  const unsigned char head[] = {kTlsHandshakeRecord, 0x03, 0x03, 0x02, 0x00};
  if (send(fd_, head, sizeof head, MSG_NOSIGNAL) != sizeof head) return;
  HoldUntilClientLeaves();
}

void Connection::Close(bool abrupt) {
  if (!abrupt) stream_.CloseGracefully();
  shutdown(fd_, SHUT_RDWR);
}

bool Connection::OpenTunnel(Request* connect) {
  connect->proxied_host.clear();
  if (!SplitAuthority(connect->target, 443, &connect->proxied_host, &connect->proxied_port)) {
    Close(false);
    return false;
  }
  Response answer = exchange_->AnswerConnect(*connect);
  if (answer.never_answer) {
    HoldUntilClientLeaves();
    return false;
  }
  if (answer.status < 200 || answer.status > 299) {
    WriteResponse(&stream_, *connect, answer, false);
    Close(answer.close_after_body_bytes.has_value());
    return false;
  }
  // A 2xx to CONNECT has no body and no length: the tunnel follows at once.
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " +
                     (answer.reason.empty() ? std::string("Connection established") : answer.reason) + "\r\n";
  for (const std::string& line : answer.header_lines) head.append(line).append("\r\n");
  head += "\r\n";
  if (!stream_.Write(head) || !stream_.Flush()) return false;

  in_tunnel_ = true;
  tunnel_host_ = connect->proxied_host;
  tunnel_port_ = connect->proxied_port;
  unsigned char first;
  if (!stream_.Peek(&first)) return false;
  return first != kTlsHandshakeRecord || StartTls(&tunnel_host_);
}

void Connection::Serve() {
  if (tls_listener_ && !StartTls(nullptr)) return Close(true);
  for (;;) {
    Request request;
    ReadResult read = ReadRequestHead(&stream_, &request);
    if (read == ReadResult::kClosed) return Close(false);
    request.tls = stream_.tls();
    request.local_port = local_port_;
    request.connection_id = id_;
    if (read == ReadResult::kMalformed) {
      WriteResponse(&stream_, request, Response::Text(400, "emulator: malformed request\n"), false);
      return Close(false);
    }
    if (request.method == "CONNECT" && !in_tunnel_) {
      if (!OpenTunnel(&request)) return Close(true);
      continue;
    }
    if (in_tunnel_) {
      request.proxied_host = tunnel_host_;
      request.proxied_port = tunnel_port_;
    } else {
      AbsoluteFormAuthority(request.target, &request.proxied_host, &request.proxied_port);
    }
    read = ReadRequestBody(&stream_, &request);
    if (read != ReadResult::kOk) {
      if (read == ReadResult::kMalformed) {
        WriteResponse(&stream_, request, Response::Text(400, "emulator: malformed body\n"), false);
      }
      return Close(false);
    }
    Response response = exchange_->Answer(request);
    if (response.never_answer) {
      HoldUntilClientLeaves();
      return Close(true);
    }
    bool keep_alive = ClientKeepsAlive(request) && !response.hold_after_answer;
    stream_.SetPace(response.byte_interval);
    bool open = WriteResponse(&stream_, request, response, keep_alive);
    stream_.SetPace(std::chrono::milliseconds(0));
    if (response.hold_after_answer) {
      HoldUntilClientLeaves();
      return Close(false);
    }
    if (!open) return Close(response.close_after_body_bytes.has_value());
  }
}

}  // namespace Emulation
}  // namespace Vantrel
