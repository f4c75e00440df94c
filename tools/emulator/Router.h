// Router: decides the response to each request.
//
// Order of precedence:
//   1. The queue. Enqueued responses answer the next requests, one each, in
//      order, whatever they ask for. A test can so put a one-off failure in
//      front of endpoint handlers without removing them.
//   2. Routes. A route names a method ("" for any), a host ("" for any) and a
//      path prefix. The most specific match wins: a named host before any host,
//      then the longer prefix, then a named method; among equals the route
//      added last. Host and prefix compare case-insensitively, as the servers
//      being stood in for do, and a prefix matches whole path segments only:
//      "/_trust" matches "/_trust" and "/_trust/x" but not "/_trustee".
//   3. Otherwise 404 with a short text naming the request.
// CONNECT requests never take from the queue and see only routes registered
// for the method "CONNECT"; without one the tunnel is granted.
//
// Thread-safe. Handlers run on connection threads, possibly several at once,
// without the router's lock held, so they may add routes or enqueue.
#ifndef VANTREL_EMULATOR_ROUTER_H_
#define VANTREL_EMULATOR_ROUTER_H_

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "emulator/Request.h"
#include "emulator/Response.h"

namespace Vantrel {
namespace Emulation {

using Handler = std::function<Response(const Request&)>;
using RouteId = int;

class Router {
 public:
  RouteId Add(std::string method, std::string host, std::string path_prefix, Handler handler);
  void Remove(RouteId id);
  void Enqueue(Response response);
  std::size_t QueuedCount() const;

  // The response for an ordinary request, by the order above. A handler's
  // exception becomes a 500 whose body is the exception's text.
  Response Dispatch(const Request& request);

  // The answer of a CONNECT route, or nullopt when none matches.
  std::optional<Response> DispatchConnect(const Request& request);

 private:
  struct Route {
    RouteId id;
    std::string method;
    std::string host;
    std::string path_prefix;
    Handler handler;
  };

  // The best route's handler, copied so it can run without the lock.
  Handler Match(const Request& request, bool connect) const;

  mutable std::mutex mutex_;
  std::deque<Response> queue_;
  std::vector<Route> routes_;
  RouteId next_id_ = 1;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ROUTER_H_
