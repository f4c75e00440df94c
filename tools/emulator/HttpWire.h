// HTTP/1.1 framing on a Stream: reading requests, writing responses.
//
// Hand-written rather than borrowed, because the point of the emulator is to
// see header lines exactly as the client wrote them, which libraries that
// normalise names, order or blanks would hide.
#ifndef VANTREL_EMULATOR_HTTP_WIRE_H_
#define VANTREL_EMULATOR_HTTP_WIRE_H_

#include "emulator/Request.h"
#include "emulator/Response.h"
#include "emulator/Stream.h"

namespace Vantrel {
namespace Emulation {

enum class ReadResult {
  kOk,
  kClosed,     // the client closed (or the server is stopping) before a request
  kMalformed,  // unparseable or oversized head; answer 400 and close
};

// Reads one request head into `request`: method, target, version, header
// lines, head bytes, path and query. Blank lines before a request are skipped.
ReadResult ReadRequestHead(Stream* stream, Request* request);

// Reads the body that the head announces (Content-Length or chunked). When the
// client waits for "100 Continue" it is sent first, so that no client sits out
// its expect time-out.
ReadResult ReadRequestBody(Stream* stream, Request* request);

// Whether the client lets the connection stay open after this request.
bool ClientKeepsAlive(const Request& request);

// Writes `response` to the request; `keep_alive` is whether the server means
// to read another request afterwards. Returns whether the connection can in
// fact carry another request: false after a write failure, a deliberate drop,
// a body delimited by closing, or an announced length the body doesn't match.
bool WriteResponse(Stream* stream, const Request& request, const Response& response,
                   bool keep_alive);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_HTTP_WIRE_H_
