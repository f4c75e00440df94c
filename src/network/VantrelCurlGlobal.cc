#include "network/VantrelCurlGlobal.h"

namespace Vantrel {
namespace Auth {
namespace {

void CurlGlobalCleanup() { curl_global_cleanup(); }

// Plain function pointers, set only by tests while no other thread is inside
// the library.
VantrelCurlGlobal::InitFunction init_function = &curl_global_init;
VantrelCurlGlobal::CleanupFunction cleanup_function = &CurlGlobalCleanup;

}  // namespace

CURLcode VantrelCurlGlobal::Init() { return init_function(CURL_GLOBAL_ALL); }

void VantrelCurlGlobal::Cleanup() { cleanup_function(); }

void VantrelCurlGlobal::SetHooksForTesting(InitFunction init, CleanupFunction cleanup) {
  init_function = init != nullptr ? init : &curl_global_init;
  cleanup_function = cleanup != nullptr ? cleanup : &CurlGlobalCleanup;
}

}  // namespace Auth
}  // namespace Vantrel
