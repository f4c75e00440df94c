#include "VantrelAuthEngine64/AuthBase.h"

#include <cstring>
#include <memory>

#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "base/ErrorDetail.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

bool StartsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

AuthBase::AuthBase(INetworkControl* network_control)
    : network_control_(network_control),
      network_config_(nullptr),
      network_result_(nullptr),
      error_detail_(nullptr),
      ca_file_(nullptr),
      ssl_verify_host_(true),
      ssl_verify_cert_(true),
      service_endpoint_(nullptr),
      ssl_version_(kSslVersionDefault),
      cancellation_(nullptr) {
  // Held in smart pointers until all three exist, so that a failed allocation
  // of a later one doesn't leak the earlier ones on its way to the caller.
  std::unique_ptr<NetworkConfig> config(new NetworkConfig());
  std::unique_ptr<NetworkResult> result(new NetworkResult());
  std::unique_ptr<ErrorDetail> detail(new ErrorDetail(AuthEngineConfig::GetDefaultBufferSize()));
  network_config_ = config.release();
  network_result_ = result.release();
  error_detail_ = detail.release();
}

// The transport is never touched here: an AuthEngine deletes it first.
AuthBase::~AuthBase() {
  delete network_config_;
  delete network_result_;
  delete error_detail_;
  StrFree(&ca_file_);
  StrFree(&service_endpoint_);
}

AuthResult AuthBase::SetCaFile(const char* path) {
  StrAssign(&ca_file_, path);
  return kAuthResultOk;
}

const char* AuthBase::GetCaFile() const { return ca_file_; }

AuthResult AuthBase::GetCaFile(char* buffer, size_t* size) const {
  CopyOut(buffer, size, ca_file_);
  return kAuthResultOk;
}

AuthResult AuthBase::EnableSslVerifyCert(bool enable) {
  ssl_verify_cert_ = enable;
  return kAuthResultOk;
}

bool AuthBase::IsSslVerifyCertEnabled() const { return ssl_verify_cert_; }

AuthResult AuthBase::EnableSslVerifyHost(bool enable) {
  ssl_verify_host_ = enable;
  return kAuthResultOk;
}

bool AuthBase::IsSslVerifyHostEnabled() const { return ssl_verify_host_; }

AuthResult AuthBase::SetSslVersion(SslVersion version) {
  ssl_version_ = version;
  return kAuthResultOk;
}

SslVersion AuthBase::GetSslVersion() const { return ssl_version_; }

AuthResult AuthBase::SetServiceEndpoint(const char* endpoint) {
  StrAssign(&service_endpoint_, endpoint);
  return kAuthResultOk;
}

const char* AuthBase::GetServiceEndpoint() const { return service_endpoint_; }

AuthResult AuthBase::GetServiceEndpoint(char* buffer, size_t* size) const {
  CopyOut(buffer, size, service_endpoint_);
  return kAuthResultOk;
}

void AuthBase::GetLastErrorDetail(char* buffer, size_t* size) const {
  CopyOut(buffer, size, error_detail_ != nullptr ? error_detail_->Get() : nullptr);
}

INetworkControl* AuthBase::GetNetworkControl() { return network_control_; }

void AuthBase::ConfigureCommonProperties(const char* url) {
  network_config_->SetSslUsed(url != nullptr && StartsWith(url, "https://"));
  network_config_->SetVerifyCert(ssl_verify_cert_);
  network_config_->SetVerifyHost(ssl_verify_host_);
  network_config_->SetSslVersion(ssl_version_);
  network_config_->SetCaFile(ca_file_);
  network_config_->SetProxy(AuthEngineConfig::GetProxy());
  network_config_->SetVerbose(AuthEngineConfig::GetLogLevel() >= kLogLevelDebug);
}

NetworkConfig* AuthBase::GetNetworkConfig() { return network_config_; }

NetworkResult* AuthBase::GetNetworkResult() { return network_result_; }

const NetworkResult* AuthBase::GetNetworkResultConst() const { return network_result_; }

const ErrorDetail* AuthBase::GetErrorDetail() const { return error_detail_; }

ErrorDetail* AuthBase::GetErrorDetail() { return error_detail_; }

bool AuthBase::IsSupportedProtocols(const char* url) {
  // Callers test for null with IsEmpty first; a null that slips through is
  // refused rather than dereferenced.
  if (url == nullptr) url = "";
  if (StartsWith(url, "http://") || StartsWith(url, "https://")) return true;
  error_detail_->Set("Only http or https is supported. URL: ", url);
  return false;
}

bool AuthBase::IsEmpty(const char* text) {
  if (text != nullptr && text[0] != '\0') return false;
  error_detail_->Set("Input is an empty or null string.");
  return true;
}

}  // namespace Auth
}  // namespace Vantrel
