#include "emulator/CertificateAuthority.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Vantrel {
namespace Emulation {

CertificateAuthority::CertificateAuthority(std::string_view common_name)
    : ca_(TlsIdentity::Issue({std::string(common_name)}, true, nullptr)) {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string path = std::string(tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp") +
                     "/vantrel-emulator-ca-XXXXXX.pem";
  int fd = mkstemps(path.data(), 4);
  if (fd < 0) throw std::runtime_error("emulator: cannot create " + path);
  std::string pem = ca_->CertificatePem();
  bool written = write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size());
  close(fd);
  if (!written) {
    std::remove(path.c_str());
    throw std::runtime_error("emulator: cannot write " + path);
  }
  ca_file_ = path;
}

CertificateAuthority::~CertificateAuthority() { std::remove(ca_file_.c_str()); }

std::shared_ptr<const TlsIdentity> CertificateAuthority::Leaf(const std::vector<std::string>& names) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::shared_ptr<const TlsIdentity>& leaf = leaves_[names];
  if (!leaf) leaf = TlsIdentity::Issue(names, false, ca_.get());
  return leaf;
}

}  // namespace Emulation
}  // namespace Vantrel
