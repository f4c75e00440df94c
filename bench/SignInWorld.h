// One emulator on loopback with every kind of site the library signs in to,
// and the sign-ins against it that the benchmarks time.
#ifndef VANTREL_BENCH_SIGN_IN_WORLD_H_
#define VANTREL_BENCH_SIGN_IN_WORLD_H_

#include <functional>
#include <string>
#include <vector>

#include "VantrelAuthEngine64/AuthEngine.h"
#include "emulator/Emulator.h"

namespace Vantrel {
namespace Bench {

class SignInWorld {
 public:
  struct SignIn {
    std::string name;     // e.g. "Fba/http"
    bool https = false;   // a CA file is needed
    bool proxied = false;  // the hosts are reached through the emulator's proxy
    // One whole sign-in with the engine's authenticators; true when it
    // ended with the cookie or token it is for.
    std::function<bool(Auth::AuthEngine*)> run;
  };

  // Made on first use, so that benchmarks without a network start none.
  static SignInWorld& Shared();

  // Starts the emulator and installs the sites; exits the program if the
  // emulator can't start, as no benchmark could run.
  SignInWorld();

  // Forms sign-in, ADFS token, RSTR to a site, each over http and https, and
  // the managed SharePoint Online chain.
  const std::vector<SignIn>& SignIns() const { return sign_ins_; }
  const SignIn& Find(const std::string& name) const;

  // Points the engine's authenticators and the global proxy at the emulator
  // as `sign_in` needs.
  void Prepare(Auth::AuthEngine* engine, const SignIn& sign_in) const;

  Emulation::Emulator& emulator() { return emulator_; }

  // Forms sign-in to a site that answers every call with the same fixed
  // response and keeps no state, so that nothing but the client can grow.
  bool FixedFbaSignIn(Auth::AuthEngine* engine) const;

 private:
  void AddForms(bool https);
  void AddAdfs(bool https);
  void AddTrust(bool https);
  void AddOnline();
  std::string Url(bool https, const std::string& path) const;

  Emulation::Emulator emulator_;
  std::string rstr_;  // an ADFS answer that the trust site accepts
  std::vector<SignIn> sign_ins_;
};

}  // namespace Bench
}  // namespace Vantrel

#endif  // VANTREL_BENCH_SIGN_IN_WORLD_H_
