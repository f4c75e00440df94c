// NetworkControlLibcurl: the libcurl transport behind INetworkControl.
//
// Internal. One easy handle, reset (not replaced) before every request so that
// connections and TLS sessions are reused; cookies are wiped per request.
#ifndef VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_
#define VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_

#include <cstddef>
#include <cstdio>

#include <curl/curl.h>

#include "VantrelAuthEngine64/INetworkControl.h"

namespace Vantrel {
namespace Auth {

class Cancellation;
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

  // The flag that aborts a transfer in progress (kAuthResultCancelled); null
  // for none. Borrowed: it outlives the transport.
  void SetCancellation(const Cancellation* cancellation) { cancellation_ = cancellation; }

  // Path of the verbose log file, or null when no directory was configured.
  const char* GetCurlLogFile() const { return curl_log_file_; }

 private:
  AuthResult SendRequest(NetworkConfig* config, NetworkResult* result);
  // Forgets the previous request's options and cookies; keeps connections.
  void ResetHandle();
  // Everything `config` asks for, the time-outs, the callbacks. The header
  // lines go into `*header_list`, which the caller frees after the transfer.
  void SetRequestOptions(NetworkConfig* config, long connect_timeout, long request_timeout,
                         curl_slist** header_list);
  // The result of a finished transfer, with the detail it leaves in `result`.
  AuthResult TransferOutcome(CURLcode code, long connect_timeout, long request_timeout,
                             NetworkResult* result);
  AuthResult ProcessResponse(NetworkResult* result);
  // Logs, line by line, what libcurl wrote to `file` during the request.
  void CopyVerboseLog(FILE* file);
  bool IsCancelled() const;

  static size_t WriteCallback(char* data, size_t size, size_t count, void* user);
  static size_t HeaderCallback(char* data, size_t size, size_t count, void* user);
  static int ProgressCallback(void* user, curl_off_t download_total, curl_off_t downloaded,
                              curl_off_t upload_total, curl_off_t uploaded);

  CurlWrap* curl_wrap_;
  char* error_buffer_;
  NetworkResult* current_result_;
  char log_stream_buffer_[BUFSIZ];
  char* curl_log_file_;
  const Cancellation* cancellation_ = nullptr;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_NETWORK_CONTROL_LIBCURL_H_
