// Request: one HTTP request exactly as it arrived at the emulator.
//
// The raw fields are the record: tests compare them with what the client was
// meant to put on the wire, byte for byte. Everything else here is derived from
// them for the convenience of handlers.
#ifndef VANTREL_EMULATOR_REQUEST_H_
#define VANTREL_EMULATOR_REQUEST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vantrel {
namespace Emulation {

struct Request {
  // Request line, split at its two spaces. `target` is untouched: origin form
  // ("/a?b"), absolute form ("http://host/a?b") or authority form ("host:443").
  std::string method;
  std::string target;
  std::string version;

  // Header lines in arrival order, each without its line end, exactly as sent.
  std::vector<std::string> header_lines;

  // The head as received: request line, header lines, the empty line, all
  // with their original line ends.
  std::string head;

  // Body bytes after removal of any chunked framing. Binary-safe.
  std::string body;

  // The body as framed on the wire, kept only when it differs from `body`
  // (chunked uploads); empty otherwise.
  std::string framed_body;

  // Whether the request came over TLS (the HTTPS listener or a CONNECT tunnel).
  bool tls = false;

  // Local port of the connection: the HTTP or the HTTPS listener's port.
  int local_port = 0;

  // For a request that came through the proxy, the host and port it was meant
  // for, from the absolute-form target or from the tunnel's CONNECT authority.
  // Empty and 0 for a request addressed to the emulator itself.
  std::string proxied_host;
  int proxied_port = 0;

  // Connections are numbered from 1 in accept order; two requests with the same
  // number travelled over one connection. A tunnel keeps its proxy connection's
  // number.
  std::uint64_t connection_id = 0;

  // Percent-decoded path ("/a b" for "/a%20b") and the raw query without its
  // "?" (empty when there is none), from the target in any of its forms.
  std::string path;
  std::string query;

  // The bytes that arrived for this request: head and framed body.
  std::string Raw() const;

  // Value of the first header with that name, compared case-insensitively,
  // with surrounding blanks removed; nullopt when there is none.
  std::optional<std::string> Header(std::string_view name) const;

  // Values of all headers with that name, in arrival order.
  std::vector<std::string> Headers(std::string_view name) const;

  // Host the request was meant for, lower-cased and without port: the proxied
  // host when there is one, else the Host header's name.
  std::string Host() const;

  // Value of the first query parameter with that name, form-decoded ("+" is a
  // space); nullopt when absent.
  std::optional<std::string> QueryParam(std::string_view name) const;

  // Fills path and query from target. Called by the parser; a handler that
  // builds a Request by hand may call it too.
  void DerivePathAndQuery();
};

// Decodes %XX escapes; with `plus_is_space` also "+" (form encoding). A "%" not
// followed by two hex digits is kept as it is.
std::string PercentDecode(std::string_view text, bool plus_is_space);

// ASCII case-insensitive comparison, as header names and schemes need.
bool EqualsIgnoreCase(std::string_view a, std::string_view b);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_REQUEST_H_
