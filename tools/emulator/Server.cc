#include "emulator/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Vantrel {
namespace Emulation {

namespace {

void CloseFd(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

int Listen(const std::string& address, int port, int* bound_port, std::string* error) {
  sockaddr_storage storage{};
  socklen_t length;
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
  if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(static_cast<uint16_t>(port));
    length = sizeof *v4;
  } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(static_cast<uint16_t>(port));
    length = sizeof *v6;
  } else {
    *error = "emulator: not an IP address: " + address;
    return -1;
  }
  int fd = socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 || listen(fd, 64) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
    *error = "emulator: cannot listen on " + address + ":" + std::to_string(port) + ": " +
             std::strerror(errno);
    if (fd >= 0) close(fd);
    return -1;
  }
  *bound_port = ntohs(storage.ss_family == AF_INET ? v4->sin_port : v6->sin6_port);
  return fd;
}

}  // namespace

Server::Server(Serve serve) : serve_(std::move(serve)) {}

Server::~Server() { Stop(); }

bool Server::Start(const std::string& address, int http_port, int https_port, std::string* error) {
  if (acceptor_.joinable()) {
    *error = "emulator: already started";
    return false;
  }
  http_fd_ = Listen(address, http_port, &http_port_, error);
  if (http_fd_ >= 0) https_fd_ = Listen(address, https_port, &https_port_, error);
  if (https_fd_ >= 0 && pipe2(wake_fds_, O_CLOEXEC) != 0) {
    *error = std::string("emulator: pipe2: ") + std::strerror(errno);
    CloseFd(&https_fd_);
  }
  if (https_fd_ < 0) {
    CloseFd(&http_fd_);
    CloseFd(&https_fd_);
    return false;
  }
  // Threads inherit the mask of their creator, so connection threads block
  // SIGPIPE too.
  sigset_t blocked, previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  acceptor_ = std::thread(&Server::AcceptLoop, this);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return true;
}

void Server::Stop() {
  if (!acceptor_.joinable()) return;
  char wake = 0;
  while (write(wake_fds_[1], &wake, 1) < 0 && errno == EINTR) {
  }
  acceptor_.join();
  std::list<Slot> slots;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Slot& slot : slots_) {
      if (slot.fd >= 0) shutdown(slot.fd, SHUT_RDWR);
    }
    slots.swap(slots_);
  }
  for (Slot& slot : slots) slot.thread.join();
  CloseFd(&http_fd_);
  CloseFd(&https_fd_);
  CloseFd(&wake_fds_[0]);
  CloseFd(&wake_fds_[1]);
}

void Server::AcceptLoop() {
  pollfd fds[3] = {{wake_fds_[0], POLLIN, 0}, {http_fd_, POLLIN, 0}, {https_fd_, POLLIN, 0}};
  for (;;) {
    if (poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents != 0) return;
    for (int i = 1; i < 3; ++i) {
      if ((fds[i].revents & POLLIN) == 0) continue;
      int fd = accept4(fds[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      Launch(fd, i == 1 ? http_port_ : https_port_, i == 2);
    }
    ReapFinished();
  }
}

void Server::Launch(int fd, int local_port, bool tls_listener) {
  // Heads and bodies leave in separate writes; without this, Nagle's algorithm
  // and the client's delayed ACK stall each exchange by tens of milliseconds.
  int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  std::lock_guard<std::mutex> lock(mutex_);
  Slot& slot = slots_.emplace_back();
  slot.fd = fd;
  std::uint64_t id = next_id_++;
  slot.thread = std::thread([this, &slot, fd, local_port, tls_listener, id] {
    serve_(fd, local_port, tls_listener, id);
    {
      std::lock_guard<std::mutex> slot_lock(mutex_);
      close(fd);
      slot.fd = -1;
    }
    slot.done = true;
  });
}

void Server::ReapFinished() {
  std::list<Slot> finished;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = slots_.begin(); it != slots_.end();) {
      auto next = std::next(it);
      if (it->done) finished.splice(finished.end(), slots_, it);
      it = next;
    }
  }
  for (Slot& slot : finished) slot.thread.join();
}

}  // namespace Emulation
}  // namespace Vantrel
