// AuthBase: what every authenticator shares.
//
// Options (CA file, certificate checks, SSL version, service endpoint) survive
// every attempt and take effect at the next one; results are rebuilt by each
// attempt. Setters copy their text (null clears it) and return kAuthResultOk.
// Getters that fill a caller's buffer follow the buffer protocol: *size is the
// buffer's size on entry; a text that doesn't fit leaves "" and sets *size to
// the size needed, terminator included. `size` must not be null.
//
// One attempt at a time on all authenticators of one AuthEngine: they share a
// transport.
#ifndef VANTREL_AUTH_AUTH_BASE_H_
#define VANTREL_AUTH_AUTH_BASE_H_

#include <cstddef>

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/AuthTypes.h"
#include "VantrelAuthEngine64/SslVersion.h"

namespace Vantrel {
namespace Auth {

class AuthEngine;
class Cancellation;
class ErrorDetail;
class INetworkControl;
class NetworkConfig;
class NetworkResult;

class VANTREL_AUTH_EXPORT AuthBase {
 public:
  // The transport is borrowed, not owned; null is accepted and every sign-in
  // then ends in kAuthResultInternalError.
  explicit AuthBase(INetworkControl* network_control);
  virtual ~AuthBase();

  AuthBase(const AuthBase&) = delete;
  AuthBase& operator=(const AuthBase&) = delete;

  // File of CA certificates for https; null or "" means libcurl's default.
  virtual AuthResult SetCaFile(const char* path);

 protected:
  virtual const char* GetCaFile() const;

 public:
  virtual AuthResult GetCaFile(char* buffer, size_t* size) const;

  // Both checks are on by default.
  virtual AuthResult EnableSslVerifyCert(bool enable);
  virtual bool IsSslVerifyCertEnabled() const;
  virtual AuthResult EnableSslVerifyHost(bool enable);
  virtual bool IsSslVerifyHostEnabled() const;

  // Stored as given; values outside the enumeration act as kSslVersionDefault.
  virtual AuthResult SetSslVersion(SslVersion version);
  virtual SslVersion GetSslVersion() const;

  // Path joined with a "/" to the site or server URL; null posts to the URL
  // itself. Each authenticator installs its own default.
  virtual AuthResult SetServiceEndpoint(const char* endpoint);

 protected:
  virtual const char* GetServiceEndpoint() const;

 public:
  virtual AuthResult GetServiceEndpoint(char* buffer, size_t* size) const;

  // Text of the last failure; "" after a success.
  virtual void GetLastErrorDetail(char* buffer, size_t* size) const;

  virtual INetworkControl* GetNetworkControl();

 protected:
  // Copies the options, the global proxy and the verbose flag (log level at
  // debug) into the request description.
  virtual void ConfigureCommonProperties(const char* url);
  virtual NetworkConfig* GetNetworkConfig();
  virtual NetworkResult* GetNetworkResult();
  virtual const NetworkResult* GetNetworkResultConst() const;
  virtual const ErrorDetail* GetErrorDetail() const;
  virtual ErrorDetail* GetErrorDetail();
  // True for a URL beginning with "http://" or "https://" (case-sensitive);
  // otherwise sets the detail. `url` must not be null.
  virtual bool IsSupportedProtocols(const char* url);
  // True for null or ""; then sets the detail.
  virtual bool IsEmpty(const char* text);

  // The engine's cancellation flag; null for an authenticator a host
  // constructed itself, which nothing can cancel.
  Cancellation* GetCancellation() const { return cancellation_; }

 private:
  // An engine hands each authenticator its flag right after creating it.
  friend class AuthEngine;
  void SetCancellation(Cancellation* cancellation) { cancellation_ = cancellation; }

  INetworkControl* network_control_;
  NetworkConfig* network_config_;
  NetworkResult* network_result_;
  ErrorDetail* error_detail_;
  char* ca_file_;
  bool ssl_verify_host_;
  bool ssl_verify_cert_;
  char* service_endpoint_;
  SslVersion ssl_version_;
  Cancellation* cancellation_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTH_BASE_H_
