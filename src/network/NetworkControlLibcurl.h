// NetworkControlLibcurl: the libcurl transport behind INetworkControl.
//
// Internal. One easy handle, reset (not replaced) before every request so that
// connections and TLS sessions are reused; cookies are wiped per request.
#ifndef VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_
#define VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_

#include <cstddef>
#include <cstdio>

#include "VantrelAuthEngine64/INetworkControl.h"

namespace Vantrel {
namespace Auth {

class CurlWrap;

class NetworkControlLibcurl : public INetworkControl {
 public:
  // Reads AuthEngineConfig::GetTempLogDir once, here.
  NetworkControlLibcurl();
  ~NetworkControlLibcurl() override;

  NetworkControlLibcurl(const NetworkControlLibcurl&) = delete;
  NetworkControlLibcurl& operator=(const NetworkControlLibcurl&) = delete;

  AuthResult Exec(NetworkConfig* config, NetworkResult* result) override;
  char* Escape(const char* text) override;
  void FreeEscaped(char* text) override;

  // Global set-up and clean-up of libcurl, called by AuthEngine.
  static AuthResult Init();
  static AuthResult Cleanup();

  // Path of the verbose log file, or null when no directory was configured.
  const char* GetCurlLogFile() const { return curl_log_file_; }

 private:
  AuthResult SendRequest(NetworkConfig* config, NetworkResult* result);
  AuthResult ProcessResponse(NetworkResult* result);
  void CopyVerboseLog();

  static size_t WriteCallback(char* data, size_t size, size_t count, void* user);
  static size_t HeaderCallback(char* data, size_t size, size_t count, void* user);

  CurlWrap* curl_wrap_;
  char* error_buffer_;
  NetworkResult* current_result_;
  char log_stream_buffer_[BUFSIZ];
  char* curl_log_file_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_
