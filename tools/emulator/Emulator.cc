#include "emulator/Emulator.h"

#include <utility>

namespace Vantrel {
namespace Emulation {

namespace {

std::shared_ptr<const TlsIdentity> ListenerIdentity(const Emulator::Options& options,
                                                    CertificateAuthority* authority) {
  return options.https_self_signed ? TlsIdentity::Issue(options.https_names, false, nullptr)
                                   : authority->Leaf(options.https_names);
}

std::shared_ptr<CertificateAuthority> AuthorityOf(const Emulator::Options& options) {
  return options.authority ? options.authority : std::make_shared<CertificateAuthority>();
}

std::string UrlHost(const std::string& address) {
  return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

}  // namespace

Emulator::Emulator() : Emulator(Options()) {}

Emulator::Emulator(Options options)
    : options_(std::move(options)),
      authority_(AuthorityOf(options_)),
      tls_(authority_, ListenerIdentity(options_, authority_.get()), options_.https_names,
           options_.https_leaf_for_any_name && !options_.https_self_signed),
      server_([this](int fd, int local_port, bool tls_listener, std::uint64_t id) {
        Connection(fd, local_port, tls_listener, id, &tls_, this).Serve();
      }) {}

Emulator::~Emulator() { Stop(); }

bool Emulator::Start(std::string* error) {
  std::string ignored;
  return server_.Start(options_.address, options_.http_port, options_.https_port,
                       error != nullptr ? error : &ignored);
}

void Emulator::Stop() { server_.Stop(); }

std::string Emulator::HttpUrl(std::string_view path) const {
  return "http://" + UrlHost(options_.address) + ":" + std::to_string(HttpPort()) + std::string(path);
}

std::string Emulator::HttpsUrl(std::string_view path) const {
  return "https://" + UrlHost(options_.address) + ":" + std::to_string(HttpsPort()) + std::string(path);
}

std::string Emulator::ProxyUrl() const { return HttpUrl(""); }

void Emulator::Enqueue(Response response) { router_.Enqueue(std::move(response)); }

RouteId Emulator::Route(std::string method, std::string host, std::string path_prefix,
                        Handler handler) {
  return router_.Add(std::move(method), std::move(host), std::move(path_prefix), std::move(handler));
}

void Emulator::Unroute(RouteId id) { router_.Remove(id); }

void Emulator::ClearRequests() {
  requests_.Clear();
  tunnels_.Clear();
}

void Emulator::SetObserver(Observer observer) {
  std::lock_guard<std::mutex> lock(observer_mutex_);
  observer_ = std::move(observer);
}

Response Emulator::Answer(const Request& request) {
  requests_.Add(request);
  Response response = router_.Dispatch(request);
  Notify(request, response);
  return response;
}

Response Emulator::AnswerConnect(const Request& request) {
  tunnels_.Add(request);
  Response response = router_.DispatchConnect(request).value_or(Response());
  Notify(request, response);
  return response;
}

void Emulator::Notify(const Request& request, const Response& response) {
  Observer observer;
  {
    std::lock_guard<std::mutex> lock(observer_mutex_);
    observer = observer_;
  }
  if (observer) observer(request, response);
}

}  // namespace Emulation
}  // namespace Vantrel
