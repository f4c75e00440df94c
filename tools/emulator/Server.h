// Server: the listening sockets and the threads behind them.
//
// One thread accepts on both listeners; each accepted connection gets a thread
// of its own that runs the `serve` callback. Stop() wakes the acceptor, shuts
// down every open connection, idle or busy, and joins all threads, so it returns
// promptly whatever the clients do. Server threads block SIGPIPE: a client that
// vanishes mid-write is an error return, not a dead process.
#ifndef VANTREL_EMULATOR_SERVER_H_
#define VANTREL_EMULATOR_SERVER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace Vantrel {
namespace Emulation {

class Server {
 public:
  // Runs on the connection's own thread; the server closes `fd` afterwards.
  using Serve = std::function<void(int fd, int local_port, bool tls_listener, std::uint64_t id)>;

  explicit Server(Serve serve);
  ~Server();

  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds both listeners (port 0: the system picks one) and starts accepting.
  bool Start(const std::string& address, int http_port, int https_port, std::string* error);
  void Stop();

  int http_port() const { return http_port_; }
  int https_port() const { return https_port_; }

 private:
  struct Slot {
    int fd;
    std::thread thread;
    std::atomic<bool> done{false};
  };

  void AcceptLoop();
  void Launch(int fd, int local_port, bool tls_listener);
  void ReapFinished();

  Serve serve_;
  int http_fd_ = -1;
  int https_fd_ = -1;
  int wake_fds_[2] = {-1, -1};
  int http_port_ = 0;
  int https_port_ = 0;
  std::thread acceptor_;
  std::mutex mutex_;  // guards slots_ and each slot's fd
  std::list<Slot> slots_;
  std::uint64_t next_id_ = 1;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_SERVER_H_
