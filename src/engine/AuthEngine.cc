#include "VantrelAuthEngine64/AuthEngine.h"

#include <memory>

#include "VantrelAuthEngine64/Adfs.h"
#include "VantrelAuthEngine64/EntraId.h"
#include "VantrelAuthEngine64/Ntlm.h"
#include "VantrelAuthEngine64/Office365.h"
#include "VantrelAuthEngine64/SharePointAdfs.h"
#include "VantrelAuthEngine64/SharePointFba.h"
#include "VantrelAuthEngine64/SharePointOffice365.h"
#include "base/Cancellation.h"
#include "base/Logger.h"
#include "network/NetworkControlLibcurl.h"

namespace Vantrel {
namespace Auth {

AuthEngine::AuthEngine()
    : network_control_(nullptr),
      ntlm_(nullptr),
      share_point_fba_(nullptr),
      adfs_(nullptr),
      share_point_adfs_(nullptr),
      office365_(nullptr),
      share_point_office365_(nullptr),
      entra_id_(nullptr),
      cancellation_(nullptr) {
  Logger::Log(kLogLevelInfo, "AuthEngine::AuthEngine()");
  std::unique_ptr<Cancellation> cancellation(new Cancellation());
  std::unique_ptr<NetworkControlLibcurl> transport(new NetworkControlLibcurl());
  transport->SetCancellation(cancellation.get());
  cancellation_ = cancellation.release();
  network_control_ = transport.release();
}

// The transport goes first, so no authenticator destructor can reach it: they
// only borrowed it, and a host-constructed authenticator must not depend on
// one being alive either.
AuthEngine::~AuthEngine() {
  Logger::Log(kLogLevelInfo, "AuthEngine::~AuthEngine()");
  delete network_control_;
  network_control_ = nullptr;
  delete ntlm_;
  delete share_point_fba_;
  delete adfs_;
  delete share_point_adfs_;
  delete office365_;
  delete share_point_office365_;
  delete entra_id_;
  delete cancellation_;
}

// Each accessor creates its authenticator once and hands out the same object
// for the engine's life, so options set through one pointer are seen through
// every later one. Each gets the engine's cancellation flag.
Vantrel::Auth::Ntlm* AuthEngine::Ntlm() {
  if (ntlm_ == nullptr) {
    ntlm_ = new Vantrel::Auth::Ntlm(network_control_);
    ntlm_->SetCancellation(cancellation_);
  }
  return ntlm_;
}

Vantrel::Auth::SharePointFba* AuthEngine::SharePointFba() {
  if (share_point_fba_ == nullptr) {
    share_point_fba_ = new Vantrel::Auth::SharePointFba(network_control_);
    share_point_fba_->SetCancellation(cancellation_);
  }
  return share_point_fba_;
}

Vantrel::Auth::Adfs* AuthEngine::Adfs() {
  if (adfs_ == nullptr) {
    adfs_ = new Vantrel::Auth::Adfs(network_control_);
    adfs_->SetCancellation(cancellation_);
  }
  return adfs_;
}

Vantrel::Auth::SharePointAdfs* AuthEngine::SharePointAdfs() {
  if (share_point_adfs_ == nullptr) {
    share_point_adfs_ = new Vantrel::Auth::SharePointAdfs(network_control_);
    share_point_adfs_->SetCancellation(cancellation_);
  }
  return share_point_adfs_;
}

Vantrel::Auth::Office365* AuthEngine::Office365() {
  if (office365_ == nullptr) {
    office365_ = new Vantrel::Auth::Office365(network_control_);
    office365_->SetCancellation(cancellation_);
  }
  return office365_;
}

Vantrel::Auth::SharePointOffice365* AuthEngine::SharePointOffice365() {
  if (share_point_office365_ == nullptr) {
    share_point_office365_ = new Vantrel::Auth::SharePointOffice365(network_control_);
    share_point_office365_->SetCancellation(cancellation_);
  }
  return share_point_office365_;
}

Vantrel::Auth::EntraId* AuthEngine::EntraId() {
  if (entra_id_ == nullptr) {
    entra_id_ = new Vantrel::Auth::EntraId(network_control_);
    entra_id_->SetCancellation(cancellation_);
  }
  return entra_id_;
}

void AuthEngine::Cancel() {
  if (cancellation_ != nullptr) cancellation_->Raise();
}

}  // namespace Auth
}  // namespace Vantrel
