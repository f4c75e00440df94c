// NetworkConfig: the description of one HTTP request.
//
// Text setters copy their argument; null clears the field, "" is stored as "".
// Exec reads the description and leaves it unchanged.
#ifndef VANTREL_AUTH_NETWORK_CONFIG_H_
#define VANTREL_AUTH_NETWORK_CONFIG_H_

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/HeaderNode.h"
#include "VantrelAuthEngine64/SslVersion.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT NetworkConfig {
 public:
  NetworkConfig();
  virtual ~NetworkConfig();

  NetworkConfig(const NetworkConfig&) = delete;
  NetworkConfig& operator=(const NetworkConfig&) = delete;

  // Clears URL, headers, proxy, body and CA file; certificate checks back on,
  // SSL and verbose off. The SSL version stays.
  void Reset();

  void SetUrl(const char* url);
  const char* GetUrl() const;

  // Newest first: headers go out in the reverse of AddHeader order. The list
  // stays the property of this object.
  HeaderNode* GetHeaders() const;
  void AddHeader(const char* name, const char* value);
  void ClearHeaders();

  void SetProxy(const char* proxy);
  const char* GetProxy() const;

  // A body that is neither null nor empty makes the request a POST.
  void SetPostData(const char* data);
  const char* GetPostData() const;

  void SetSslUsed(bool used);
  bool IsSslUsed() const;
  void SetCaFile(const char* path);
  const char* GetCaFile() const;
  void SetVerifyCert(bool verify);
  bool IsVerifyCert() const;
  void SetVerifyHost(bool verify);
  bool IsVerifyHost() const;
  void SetSslVersion(SslVersion version);
  SslVersion GetSslVersion() const;
  void SetVerbose(bool verbose);
  bool IsVerbose() const;

  // Writes the request to the log at debug level, with the content of the last
  // password element of an XML body masked in the logged copy.
  static void LogDump(const NetworkConfig* config);

 private:
  char* url_;
  HeaderNode* headers_;
  char* proxy_;
  char* post_data_;
  bool ssl_used_;
  char* ca_file_;
  bool verify_host_;
  bool verify_cert_;
  bool verbose_;
  SslVersion ssl_version_;
};

// Masks, in place, the content of the last password element of an XML text
// with one "*", provided the result is not longer; returns `text`.
char* MaskPassword(char* text);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_CONFIG_H_
