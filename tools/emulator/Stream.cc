#include "emulator/Stream.h"

#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace Vantrel {
namespace Emulation {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;
constexpr std::size_t kGatherLimit = 64 * 1024;
// Bounds one read or write call: SSL_read and SSL_write take an int.
constexpr std::size_t kMaxTransfer = 1024 * 1024;

}  // namespace

Stream::Stream(int fd) : fd_(fd) {}

Stream::~Stream() { SSL_free(ssl_); }

bool Stream::AcceptTls(SSL* ssl) {
  ssl_ = ssl;
  return Drained() && SSL_accept(ssl_) == 1;
}

bool Stream::Fill() {
  if (start_ > 0 && start_ == buffer_.size()) {
    buffer_.clear();
    start_ = 0;
  } else if (start_ > kReadSize) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  std::size_t old_size = buffer_.size();
  buffer_.resize(old_size + kReadSize);
  long got;
  if (ssl_ != nullptr) {
    got = SSL_read(ssl_, &buffer_[old_size], static_cast<int>(kReadSize));
  } else {
    do {
      got = recv(fd_, &buffer_[old_size], kReadSize, 0);
    } while (got < 0 && errno == EINTR);
  }
  buffer_.resize(old_size + static_cast<std::size_t>(std::max(got, 0L)));
  return got > 0;
}

bool Stream::Peek(unsigned char* byte) {
  if (Drained() && ssl_ == nullptr) {
    // Left in the socket: if it opens a TLS handshake, OpenSSL must read it.
    long got;
    do {
      got = recv(fd_, byte, 1, MSG_PEEK);
    } while (got < 0 && errno == EINTR);
    return got == 1;
  }
  if (Drained() && !Fill()) return false;
  *byte = static_cast<unsigned char>(buffer_[start_]);
  return true;
}

bool Stream::ReadUntil(std::string_view delimiter, std::size_t limit, std::string* out) {
  std::size_t searched = start_;
  for (;;) {
    std::size_t found = std::string_view(buffer_).find(delimiter, searched);
    if (found != std::string_view::npos) {
      std::size_t end = found + delimiter.size();
      out->append(buffer_, start_, end - start_);
      start_ = end;
      return true;
    }
    if (buffer_.size() - start_ >= limit) return false;
    // Resume the search where a delimiter split across reads could begin.
    std::size_t kept = buffer_.size() - start_;
    std::size_t overlap = std::min(kept, delimiter.size() - 1);
    std::size_t offset = kept - overlap;
    if (!Fill()) return false;
    searched = start_ + offset;
  }
}

bool Stream::ReadExactly(std::size_t count, std::string* out) {
  std::size_t buffered = std::min(count, buffer_.size() - start_);
  out->append(buffer_, start_, buffered);
  start_ += buffered;
  count -= buffered;
  if (count == 0) return true;
  // Large bodies go straight into the caller's string, not through buffer_.
  std::size_t old_size = out->size();
  out->resize(old_size + count);
  char* cursor = &(*out)[old_size];
  while (count > 0) {
    long got;
    std::size_t want = std::min(count, kMaxTransfer);
    if (ssl_ != nullptr) {
      got = SSL_read(ssl_, cursor, static_cast<int>(want));
    } else {
      got = recv(fd_, cursor, want, 0);
      if (got < 0 && errno == EINTR) continue;
    }
    if (got <= 0) {
      out->resize(static_cast<std::size_t>(cursor - out->data()));
      return false;
    }
    cursor += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

bool Stream::QuietFor(std::chrono::milliseconds interval) {
  pollfd watched = {fd_, POLLIN, 0};
  int ready;
  do {
    ready = poll(&watched, 1, static_cast<int>(interval.count()));
  } while (ready < 0 && errno == EINTR);
  return ready == 0;
}

bool Stream::Send(const char* data, std::size_t size) {
  if (pace_.count() <= 0) return SendAll(data, size);
  for (std::size_t i = 0; i < size; ++i) {
    if (!QuietFor(pace_) || !SendAll(data + i, 1)) return false;
  }
  return true;
}

bool Stream::SendAll(const char* data, std::size_t size) {
  while (size > 0) {
    long sent;
    if (ssl_ != nullptr) {
      sent = SSL_write(ssl_, data, static_cast<int>(std::min(size, kMaxTransfer)));
    } else {
      sent = send(fd_, data, size, MSG_NOSIGNAL);
      if (sent < 0 && errno == EINTR) continue;
    }
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool Stream::Write(std::string_view bytes) {
  if (pending_.size() + bytes.size() <= kGatherLimit) {
    pending_.append(bytes);
    return true;
  }
  if (!Flush()) return false;
  if (bytes.size() < kGatherLimit) {
    pending_.append(bytes);
    return true;
  }
  return Send(bytes.data(), bytes.size());
}

bool Stream::Flush() {
  bool ok = Send(pending_.data(), pending_.size());
  pending_.clear();
  return ok;
}

void Stream::CloseGracefully() {
  Flush();
  if (ssl_ != nullptr) SSL_shutdown(ssl_);
}

}  // namespace Emulation
}  // namespace Vantrel
