// Response: what the emulator sends back for one request.
//
// A test scripts the wire: status line, header lines sent verbatim and in order
// (duplicates and odd letter case kept), the body, and how the body is framed.
// The writer adds only what keeps the exchange well-formed:
//   - "Content-Length" unless the response is chunked, `content_length` is
//     false, or a header line already names it;
//   - "Transfer-Encoding: chunked" for a chunked response unless a header line
//     already names Transfer-Encoding;
//   - "Connection: close" when the server is about to close after a complete
//     response and no header line names Connection.
// A body neither chunked nor measured is ended by closing the connection.
#ifndef VANTREL_EMULATOR_RESPONSE_H_
#define VANTREL_EMULATOR_RESPONSE_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vantrel {
namespace Emulation {

struct Response {
  int status = 200;

  // Empty means the usual phrase for `status` ("OK", "Found", ...).
  std::string reason;

  // Complete header lines without line end, e.g. "location: /next".
  std::vector<std::string> header_lines;

  // Any bytes, NUL included. Responses are moved, never copied, on their way
  // to the socket, so a large body costs one buffer.
  std::string body;

  // Send the body as chunks of `chunk_size` bytes (the last may be shorter).
  bool chunked = false;
  std::size_t chunk_size = 16 * 1024;

  // Add "Content-Length" automatically (see above).
  bool content_length = true;

  // Close the connection after this response even if the client could keep it.
  bool close_connection = false;

  // Drop the connection, without any TLS close_notify, once this many body
  // bytes (payload, not chunk framing) have been sent. The announced length
  // stays that of the whole body, so the client sees a truncated transfer.
  std::optional<std::size_t> close_after_body_bytes;

  // Servers that go quiet. Each holds the connection until the client leaves
  // or the emulator stops, so a client without a time-out waits forever.
  // Send nothing at all (to a CONNECT too: the tunnel never opens).
  bool never_answer = false;
  // Send the response, head and body, one byte at a time, pausing this long
  // before each byte. Zero sends it at once.
  std::chrono::milliseconds byte_interval{0};
  // Announce "Connection: close" and send the whole response, then neither
  // close nor read: only the framing tells the client that it is complete.
  bool hold_after_answer = false;

  // A response with `body` and a Content-Type header.
  static Response Text(int status, std::string body,
                       std::string_view content_type = "text/plain; charset=utf-8");

  // An empty-bodied redirect with a Location header.
  static Response Redirect(int status, std::string_view location);

  // Appends "name: value".
  Response& AddHeader(std::string_view name, std::string_view value);

  // Appends a raw header line as it is.
  Response& AddHeaderLine(std::string line);

  // Appends "Set-Cookie: " followed by `cookie`, attributes and all.
  Response& SetCookie(std::string_view cookie);

  // The phrase sent after the status code.
  std::string ReasonPhrase() const;
};

// The usual phrase for an HTTP status code, "Unknown" for one without.
const char* StandardReason(int status);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_RESPONSE_H_
