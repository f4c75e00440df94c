#include "authenticators/oauth/LoopbackReceiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Cancellation.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

using Clock = std::chrono::steady_clock;

// A browser's request head is well under this; more is not a browser.
constexpr size_t kMaxHeadSize = 8192;
// Browsers open spare connections that may never carry a request, so several
// are read side by side; beyond this many the oldest gives way.
constexpr size_t kMaxConnections = 16;
// Connections the system holds for us before we take them.
constexpr int kBacklog = 64;
// How long one connection may take to deliver its head.
constexpr std::chrono::seconds kConnectionTimeout{5};
// How long an answer may take to leave; it is small and nearly always leaves
// at once.
constexpr std::chrono::seconds kSendTimeout{1};

const char kSignedInText[] = "Signed in. You can close this window and return to the application.";

struct Connection {
  int fd;
  Clock::time_point expires;
  SecretString head;  // carries the code of the redirect
};

enum class ReadState { kWaiting, kComplete, kTooLarge, kGone };

std::string SystemError(const char* call) {
  return std::string(call) + ": " + std::strerror(errno);
}

void SetDetail(std::string* detail, const std::string& text) {
  if (detail != nullptr) *detail = text;
}

void CloseConnection(Connection* connection) {
  if (connection->fd >= 0) close(connection->fd);
  connection->fd = -1;
  connection->head.Clear();
}

bool HeadComplete(std::string_view head) {
  return head.find("\r\n\r\n") != std::string_view::npos ||
         head.find("\n\n") != std::string_view::npos;
}

ReadState ReadMore(Connection* connection) {
  char buffer[2048];
  ReadState state = ReadState::kWaiting;
  for (;;) {
    ssize_t got = recv(connection->fd, buffer, sizeof buffer, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      if (errno != EAGAIN && errno != EWOULDBLOCK) state = ReadState::kGone;
      break;
    }
    if (got == 0) {
      state = ReadState::kGone;
      break;
    }
    connection->head.Append(std::string_view(buffer, static_cast<size_t>(got)));
    if (HeadComplete(connection->head.view())) {
      state = ReadState::kComplete;
      break;
    }
    if (connection->head.size() > kMaxHeadSize) {
      state = ReadState::kTooLarge;
      break;
    }
  }
  WipeMemory(buffer, sizeof buffer);
  return state;
}

// Sends all of `text` or gives up after kSendTimeout; the socket is
// non-blocking, and MSG_NOSIGNAL keeps a vanished browser from raising SIGPIPE.
void SendAll(int fd, std::string_view text) {
  Clock::time_point give_up = Clock::now() + kSendTimeout;
  while (!text.empty() && Clock::now() < give_up) {
    ssize_t sent = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      text.remove_prefix(static_cast<size_t>(sent));
    } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd writable = {fd, POLLOUT, 0};
      poll(&writable, 1, 50);
    } else if (!(sent < 0 && errno == EINTR)) {
      return;
    }
  }
}

// Reads away what the client still sent, then half-closes: closing with
// unread input would reset the connection and the client might lose the
// answer.
void Finish(Connection* connection) {
  char buffer[2048];
  size_t drained = 0;
  ssize_t got;
  while (drained < 64 * 1024 && (got = recv(connection->fd, buffer, sizeof buffer, 0)) > 0) {
    drained += static_cast<size_t>(got);
  }
  WipeMemory(buffer, sizeof buffer);
  shutdown(connection->fd, SHUT_WR);
  CloseConnection(connection);
}

void Answer(Connection* connection, const char* status, const char* type, const std::string& body) {
  std::string response = std::string("HTTP/1.1 ") + status + "\r\nContent-Type: " + type +
                         "\r\nContent-Length: " + std::to_string(body.size()) +
                         "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + body;
  SendAll(connection->fd, response);
  Finish(connection);
}

std::string EscapeHtml(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string Page(const std::string& escaped_text) {
  return "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Sign-in</title></head>"
         "<body><p>" +
         escaped_text + "</p></body></html>\n";
}

// A query component: '+' is a blank, then %XX escapes.
std::string FormDecode(std::string_view text) {
  std::string plus_free(text);
  std::replace(plus_free.begin(), plus_free.end(), '+', ' ');
  std::string decoded = PercentDecode(plus_free);
  WipeString(&plus_free);
  return decoded;
}

// "a=1&b=x+y" into its pairs; the first of two equal names wins.
void DecodeQuery(std::string_view query, std::map<std::string, std::string>* parameters) {
  while (!query.empty()) {
    size_t end = std::min(query.find('&'), query.size());
    std::string_view pair = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    if (pair.empty()) continue;
    size_t equals = std::min(pair.find('='), pair.size());
    std::string value = FormDecode(pair.substr(std::min(equals + 1, pair.size())));
    parameters->emplace(FormDecode(pair.substr(0, equals)), value);
    WipeString(&value);
  }
}

// The query of "GET /?QUERY HTTP/1.x", or false for any other request.
bool RedirectQuery(std::string_view head, std::string_view* query, std::string_view* method,
                   std::string_view* target) {
  std::string_view line = head.substr(0, head.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  size_t first_space = line.find(' ');
  size_t second_space = line.find(' ', first_space == std::string_view::npos ? 0 : first_space + 1);
  if (first_space == std::string_view::npos || second_space == std::string_view::npos) {
    return false;
  }
  *method = line.substr(0, first_space);
  *target = line.substr(first_space + 1, second_space - first_space - 1);
  if (line.substr(second_space + 1, 5) != "HTTP/") return false;
  if (*method != "GET" || target->substr(0, 2) != "/?") return false;
  *query = target->substr(2);
  return true;
}

// Answers a complete head; true when it was the redirect, whose parameters
// then fill `parameters`.
bool Respond(Connection* connection, std::map<std::string, std::string>* parameters) {
  std::string_view head = connection->head.view();
  std::string_view query, method, target;
  std::map<std::string, std::string> decoded;
  if (RedirectQuery(head, &query, &method, &target)) DecodeQuery(query, &decoded);
  bool has_code = decoded.count("code") > 0;
  bool has_error = decoded.count("error") > 0;
  if (!has_code && !has_error) {
    // The path alone: a query might carry something secret.
    std::string path(target.substr(0, std::min<size_t>(target.find('?'), 200)));
    std::string verb(method.substr(0, 16));
    Logger::LogFormat(kLogLevelDebug, "LoopbackReceiver::Wait - not the redirect, 404 for %s %s",
                      verb.c_str(), path.c_str(), nullptr, nullptr, nullptr);
    for (auto& entry : decoded) WipeString(&entry.second);
    Answer(connection, "404 Not Found", "text/plain; charset=utf-8", "Not found.\n");
    return false;
  }
  std::string text =
      has_code ? kSignedInText
               : "Sign-in failed: " + EscapeHtml(decoded["error"]) + ". You can close this window.";
  Logger::LogFormat(kLogLevelDebug, "LoopbackReceiver::Wait - the redirect arrived, with %s",
                    has_code ? "a code" : "an error", nullptr, nullptr, nullptr, nullptr);
  Answer(connection, "200 OK", "text/html; charset=utf-8", Page(text));
  if (parameters != nullptr) parameters->swap(decoded);
  for (auto& entry : decoded) WipeString(&entry.second);
  return true;
}

// Connections that were ready are served; true once the redirect was among them.
bool ServeConnections(const std::vector<pollfd>& polled, std::vector<Connection>* connections,
                      std::map<std::string, std::string>* parameters) {
  bool redirected = false;
  for (size_t i = 0; i < connections->size() && !redirected; ++i) {
    Connection* connection = &(*connections)[i];
    if (polled[i + 1].revents == 0) continue;
    switch (ReadMore(connection)) {
      case ReadState::kWaiting:
        break;
      case ReadState::kGone:
        CloseConnection(connection);
        break;
      case ReadState::kComplete:
        redirected = Respond(connection, parameters);
        break;
      case ReadState::kTooLarge:
        Answer(connection, "431 Request Header Fields Too Large", "text/plain; charset=utf-8",
               "Request too large.\n");
        break;
    }
  }
  return redirected;
}

void AcceptConnections(int listener, std::vector<Connection>* connections) {
  for (;;) {
    int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;  // nothing more pending, or a connection that gave up
    if (connections->size() >= kMaxConnections) {
      CloseConnection(&connections->front());
      connections->erase(connections->begin());
    }
    connections->push_back(Connection{fd, Clock::now() + kConnectionTimeout, SecretString()});
  }
}

// Drops closed connections and those whose time to send a head is up.
void Prune(Clock::time_point now, std::vector<Connection>* connections) {
  for (Connection& connection : *connections) {
    if (connection.fd >= 0 && now >= connection.expires) CloseConnection(&connection);
  }
  connections->erase(std::remove_if(connections->begin(), connections->end(),
                                    [](const Connection& c) { return c.fd < 0; }),
                     connections->end());
}

// Milliseconds until the next thing to watch: the deadline, a connection's
// expiry, or the next look at the cancellation flag.
int PollTimeout(Clock::time_point now, Clock::time_point deadline,
                const std::vector<Connection>& connections) {
  Clock::time_point wake = std::min(deadline, now + Cancellation::kWatchInterval);
  for (const Connection& connection : connections) wake = std::min(wake, connection.expires);
  auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake - now).count();
  return static_cast<int>(
      std::clamp<decltype(wait)>(wait, 0, Cancellation::kWatchInterval.count()));
}

}  // namespace

LoopbackReceiver::LoopbackReceiver() : listener_(-1), port_(0) {}

LoopbackReceiver::~LoopbackReceiver() {
  if (listener_ >= 0) close(listener_);
}

bool LoopbackReceiver::Listen(std::string* detail) {
  if (listener_ >= 0) close(listener_);
  port_ = 0;
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listener_ < 0) {
    SetDetail(detail, "The loopback listener could not be opened: " + SystemError("socket"));
    return false;
  }
  // 127.0.0.1 alone: the redirect carries the code, and no other host may
  // reach it.
  sockaddr_in address;
  std::memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  const char* failed = nullptr;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    failed = "bind";
  } else if (getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    failed = "getsockname";
  } else if (listen(listener_, kBacklog) != 0) {
    failed = "listen";
  }
  if (failed != nullptr) {
    SetDetail(detail, "The loopback listener could not be opened: " + SystemError(failed));
    close(listener_);
    listener_ = -1;
    return false;
  }
  port_ = ntohs(address.sin_port);
  std::string port_text = std::to_string(port_);
  Logger::LogFormat(kLogLevelDebug, "LoopbackReceiver::Listen - listening on 127.0.0.1:%s",
                    port_text.c_str(), nullptr, nullptr, nullptr, nullptr);
  return true;
}

std::string LoopbackReceiver::RedirectUri() const {
  return "http://localhost:" + std::to_string(port_);
}

LoopbackReceiver::Outcome LoopbackReceiver::Wait(Clock::time_point deadline,
                                                 const Cancellation* cancellation,
                                                 std::map<std::string, std::string>* parameters,
                                                 std::string* detail) {
  if (parameters != nullptr) parameters->clear();
  if (listener_ < 0) {
    SetDetail(detail, "The loopback listener is not open.");
    return Outcome::kFailed;
  }
  std::vector<Connection> connections;
  Outcome outcome;
  for (;;) {
    Clock::time_point now = Clock::now();
    if (cancellation != nullptr && cancellation->IsRaised()) {
      SetDetail(detail, "The wait for the browser's redirect was cancelled.");
      outcome = Outcome::kCancelled;
      break;
    }
    if (now >= deadline) {
      SetDetail(detail, "No redirect came from the browser in time.");
      outcome = Outcome::kTimedOut;
      break;
    }
    Prune(now, &connections);
    std::vector<pollfd> polled(1, pollfd{listener_, POLLIN, 0});
    for (const Connection& connection : connections) polled.push_back({connection.fd, POLLIN, 0});
    if (poll(polled.data(), polled.size(), PollTimeout(now, deadline, connections)) < 0) {
      if (errno == EINTR) continue;
      SetDetail(detail, "Waiting for the browser's redirect failed: " + SystemError("poll"));
      outcome = Outcome::kFailed;
      break;
    }
    if (ServeConnections(polled, &connections, parameters)) {
      // Nobody is left to answer a second request: it finds the port closed.
      close(listener_);
      listener_ = -1;
      outcome = Outcome::kRedirect;
      break;
    }
    if (polled[0].revents != 0) AcceptConnections(listener_, &connections);
  }
  for (Connection& connection : connections) CloseConnection(&connection);
  return outcome;
}

}  // namespace Auth
}  // namespace Vantrel
