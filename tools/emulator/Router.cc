#include "emulator/Router.h"

#include <algorithm>
#include <exception>
#include <tuple>
#include <utility>

namespace Vantrel {
namespace Emulation {

namespace {

bool PrefixMatches(const std::string& path, const std::string& prefix) {
  if (path.size() < prefix.size() ||
      !EqualsIgnoreCase(std::string_view(path).substr(0, prefix.size()), prefix)) {
    return false;
  }
  return path.size() == prefix.size() || prefix.empty() || prefix.back() == '/' ||
         path[prefix.size()] == '/';
}

}  // namespace

RouteId Router::Add(std::string method, std::string host, std::string path_prefix, Handler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  RouteId id = next_id_++;
  routes_.push_back({id, std::move(method), std::move(host), std::move(path_prefix), std::move(handler)});
  return id;
}

void Router::Remove(RouteId id) {
  std::lock_guard<std::mutex> lock(mutex_);
  routes_.erase(std::remove_if(routes_.begin(), routes_.end(),
                               [id](const Route& route) { return route.id == id; }),
                routes_.end());
}

void Router::Enqueue(Response response) {
  std::lock_guard<std::mutex> lock(mutex_);
  queue_.push_back(std::move(response));
}

std::size_t Router::QueuedCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return queue_.size();
}

Handler Router::Match(const Request& request, bool connect) const {
  std::string host = request.Host();
  const Route* best = nullptr;
  std::tuple<bool, std::size_t, bool> best_rank;
  for (const Route& route : routes_) {
    if (connect ? route.method != "CONNECT"
                : !route.method.empty() && route.method != request.method) {
      continue;
    }
    if (!route.host.empty() && !EqualsIgnoreCase(route.host, host)) continue;
    if (!connect && !PrefixMatches(request.path, route.path_prefix)) continue;
    auto rank = std::make_tuple(!route.host.empty(), route.path_prefix.size(), !route.method.empty());
    if (best == nullptr || rank >= best_rank) {
      best = &route;
      best_rank = rank;
    }
  }
  return best != nullptr ? best->handler : Handler();
}

Response Router::Dispatch(const Request& request) {
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!queue_.empty()) {
      Response response = std::move(queue_.front());
      queue_.pop_front();
      return response;
    }
    handler = Match(request, false);
  }
  if (!handler) {
    return Response::Text(404, "emulator: no route for " + request.method + " " + request.Host() +
                                   request.path + "\n");
  }
  try {
    return handler(request);
  } catch (const std::exception& error) {
    return Response::Text(500, std::string("emulator: handler failed: ") + error.what() + "\n");
  }
}

std::optional<Response> Router::DispatchConnect(const Request& request) {
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    handler = Match(request, true);
  }
  if (!handler) return std::nullopt;
  try {
    return handler(request);
  } catch (const std::exception& error) {
    return Response::Text(502, std::string("emulator: handler failed: ") + error.what() + "\n");
  }
}

}  // namespace Emulation
}  // namespace Vantrel
