// CertificateAuthority: a test CA made at run time, and the leaves it signs.
//
// Each authority has its own key, so a CA file of one authority does not vouch
// for servers of another: that is how a test shows verification failing.
// The CA certificate (never the key) is written to a temporary PEM file for
// clients to trust; the destructor removes it.
#ifndef VANTREL_EMULATOR_CERTIFICATE_AUTHORITY_H_
#define VANTREL_EMULATOR_CERTIFICATE_AUTHORITY_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/TlsIdentity.h"

namespace Vantrel {
namespace Emulation {

class CertificateAuthority {
 public:
  // Generates the CA key and its self-signed certificate (basicConstraints
  // CA:TRUE, keyUsage keyCertSign) and writes the PEM file. Throws
  // std::runtime_error when OpenSSL or the file system fails.
  explicit CertificateAuthority(std::string_view common_name = "Vantrel Emulator Test CA");
  ~CertificateAuthority();

  CertificateAuthority(const CertificateAuthority&) = delete;
  CertificateAuthority& operator=(const CertificateAuthority&) = delete;

  // Path of the CA certificate PEM, e.g. for CURLOPT_CAINFO.
  const std::string& CaFile() const { return ca_file_; }
  std::string CaPem() const { return ca_->CertificatePem(); }

  // A leaf for `names` (DNS names or IP literals; the first is the common
  // name), issued at the first call and cached after. Thread-safe.
  std::shared_ptr<const TlsIdentity> Leaf(const std::vector<std::string>& names);

 private:
  std::shared_ptr<const TlsIdentity> ca_;
  std::string ca_file_;
  std::mutex mutex_;
  std::map<std::vector<std::string>, std::shared_ptr<const TlsIdentity>> leaves_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_CERTIFICATE_AUTHORITY_H_
