// Stream: buffered, blocking byte I/O on one accepted socket, in the clear or
// through TLS once AcceptTls has run.
//
// Reads are buffered so the HTTP parser can look for line ends without a system
// call per byte. Small writes are gathered until Flush, so that a head and a
// short body leave in one segment; large writes go straight to the socket from
// the caller's buffer.
#ifndef VANTREL_EMULATOR_STREAM_H_
#define VANTREL_EMULATOR_STREAM_H_

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

typedef struct ssl_st SSL;

namespace Vantrel {
namespace Emulation {

class Stream {
 public:
  // Does not own `fd`; the server closes it.
  explicit Stream(int fd);
  ~Stream();

  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Runs the server side of a TLS handshake on the socket. Takes ownership of
  // `ssl`, which must be bound to the socket already. Fails if the client sent
  // anything beyond what was read so far, as that would have to be TLS too.
  bool AcceptTls(SSL* ssl);
  bool tls() const { return ssl_ != nullptr; }

  // The next byte without consuming it; false at end of stream. In the clear
  // with nothing buffered, the byte stays in the socket for AcceptTls.
  bool Peek(unsigned char* byte);

  // Consumes bytes up to and including the first `delimiter`, appending them to
  // `out`. False at end of stream, or when `limit` bytes pass without it.
  bool ReadUntil(std::string_view delimiter, std::size_t limit, std::string* out);

  // Appends exactly `count` bytes to `out`; false at an early end of stream.
  bool ReadExactly(std::size_t count, std::string* out);

  // Whether consumed bytes are all that has arrived so far (buffer empty).
  bool Drained() const { return start_ == buffer_.size(); }

  bool Write(std::string_view bytes);
  bool Flush();

  // From now on send one byte at a time, pausing `interval` before each; zero
  // ends it. A client that leaves (or talks) in a pause ends the sending.
  void SetPace(std::chrono::milliseconds interval) { pace_ = interval; }

  // Sends the TLS close_notify, if any, and whatever is still gathered.
  void CloseGracefully();

 private:
  bool Fill();
  // Sends at the pace set, if any.
  bool Send(const char* data, std::size_t size);
  bool SendAll(const char* data, std::size_t size);
  // Waits `interval`; false when the client left or spoke meanwhile.
  bool QuietFor(std::chrono::milliseconds interval);

  int fd_;
  SSL* ssl_ = nullptr;
  std::string buffer_;
  std::size_t start_ = 0;
  std::string pending_;
  std::chrono::milliseconds pace_{0};
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_STREAM_H_
