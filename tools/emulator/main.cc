// vantrel-emulator: the emulator as a program, for demos and manual runs.
//
//   vantrel-emulator [--address A] [--http-port N] [--https-port N]
//                    [--ca-out FILE] [--ready-file FILE]
//                    [--fba-site PATH [--fba-account USER:PASSWORD]...]
//                    [--adfs-server PATH [--adfs-account USER:PASSWORD]...]
//                    [--trust-site PATH [--trust-realm URN]]
//                    [--online-site HOST]... [--online-bpos-site HOST]...
//                    [--office365-account ADDRESS:PASSWORD]...
//                    [--office365-federated ADDRESS:AUTHURL]...
//
// Serves until SIGTERM or SIGINT and exits 0. Prints one line per request:
// method, host, target and status. --ready-file receives "http_port https_port"
// once both listeners accept, written whole (by rename) so a script polling for
// the file never reads half of it.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "emulator/AdfsServer.h"
#include "emulator/FbaSite.h"
#include "emulator/Office365Service.h"
#include "emulator/OnlineSite.h"
#include "emulator/TrustSite.h"
#include "emulator/Emulator.h"

namespace {

using Vantrel::Emulation::Emulator;
using Vantrel::Emulation::Request;
using Vantrel::Emulation::Response;

struct Flags {
  Emulator::Options options;
  std::string ca_out;
  std::string ready_file;
  bool fba_site = false;
  Vantrel::Emulation::FbaSiteOptions fba;
  bool fba_accounts_given = false;
  bool adfs_server = false;
  Vantrel::Emulation::AdfsServerOptions adfs;
  bool adfs_accounts_given = false;
  bool trust_site = false;
  Vantrel::Emulation::TrustSiteOptions trust;
  // The Office 365 sign-in service comes with the first online site or account.
  bool office365 = false;
  Vantrel::Emulation::Office365ServiceOptions office365_service;
  bool office365_accounts_given = false;
  std::vector<Vantrel::Emulation::OnlineSiteOptions> online_sites;
};

void Usage(const char* program) {
  std::fprintf(stderr,
               "usage: %s [--address A] [--http-port N] [--https-port N] [--ca-out FILE] "
               "[--ready-file FILE]\n"
               "       [--fba-site PATH [--fba-account USER:PASSWORD]...]\n"
               "       [--adfs-server PATH [--adfs-account USER:PASSWORD]...]\n"
               "       [--trust-site PATH [--trust-realm URN]]\n"
               "       [--online-site HOST]... [--online-bpos-site HOST]...\n"
               "       [--office365-account ADDRESS:PASSWORD]... "
               "[--office365-federated ADDRESS:AUTHURL]...\n"
               "  ports default to 0, which lets the system pick free ones\n",
               program);
}

bool ParsePort(const char* text, int* port) {
  char* end = nullptr;
  long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || value < 0 || value > 65535) return false;
  *port = static_cast<int>(value);
  return true;
}

// "NAME:REST" of an account flag, split at the first colon; NAME may not be
// empty, REST may.
bool SplitAccount(const char* value, std::string* name, std::string* rest) {
  const char* colon = std::strchr(value, ':');
  if (colon == nullptr || colon == value) return false;
  name->assign(value, colon);
  rest->assign(colon + 1);
  return true;
}

bool ParseFlags(int argc, char** argv, Flags* flags) {
  std::string name;
  std::string rest;
  for (int i = 1; i < argc; ++i) {
    std::string flag = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (flag == "--help" || flag == "-h" || value == nullptr) return false;
    ++i;
    if (flag == "--address") {
      flags->options.address = value;
    } else if (flag == "--http-port") {
      if (!ParsePort(value, &flags->options.http_port)) return false;
    } else if (flag == "--https-port") {
      if (!ParsePort(value, &flags->options.https_port)) return false;
    } else if (flag == "--ca-out") {
      flags->ca_out = value;
    } else if (flag == "--ready-file") {
      flags->ready_file = value;
    } else if (flag == "--fba-site") {
      // A forms-based site at PATH ("" or "/" for the root).
      flags->fba_site = true;
      flags->fba.site_path = std::string(value) == "/" ? "" : value;
    } else if (flag == "--fba-account") {
      // Replaces the site's default account; repeat for several.
      if (!SplitAccount(value, &name, &rest)) return false;
      if (!flags->fba_accounts_given) flags->fba.accounts.clear();
      flags->fba_accounts_given = true;
      flags->fba.accounts[name] = rest;
    } else if (flag == "--adfs-server") {
      // An ADFS token endpoint below PATH ("" or "/" for the root).
      flags->adfs_server = true;
      flags->adfs.path = std::string(value) == "/" ? "" : value;
    } else if (flag == "--adfs-account") {
      if (!SplitAccount(value, &name, &rest)) return false;
      if (!flags->adfs_accounts_given) flags->adfs.accounts.clear();
      flags->adfs_accounts_given = true;
      flags->adfs.accounts[name] = rest;
    } else if (flag == "--trust-site") {
      // A site at PATH that takes the ADFS server's tokens at its _trust endpoint.
      flags->trust_site = true;
      flags->trust.site_path = std::string(value) == "/" ? "" : value;
    } else if (flag == "--trust-realm") {
      flags->trust.realm = value;
    } else if (flag == "--online-site" || flag == "--online-bpos-site") {
      // A SharePoint Online site under its real host name, reached through
      // the proxy; the sign-in service answers for its realm.
      Vantrel::Emulation::OnlineSiteOptions site;
      site.host = value;
      site.bpos_converted = flag == "--online-bpos-site";
      flags->online_sites.push_back(site);
      flags->office365 = true;
    } else if (flag == "--office365-account" || flag == "--office365-federated") {
      // Replaces the service's default account; repeat for several. A
      // federated account names its ADFS sign-in page instead of a password.
      if (!SplitAccount(value, &name, &rest)) return false;
      if (!flags->office365_accounts_given) flags->office365_service.accounts.clear();
      flags->office365_accounts_given = true;
      flags->office365 = true;
      Vantrel::Emulation::Office365Account account;
      if (flag == "--office365-account") {
        account.password = rest;
      } else {
        account.namespace_type = "Federated";
        account.auth_url = rest;
      }
      flags->office365_service.accounts[name] = account;
    } else {
      // Flags that install endpoint families (sites, token services) go here.
      return false;
    }
  }
  return true;
}

// Endpoint families register their routes here, as chosen by their flags.
void InstallEndpoints(const Flags& flags, Emulator* emulator) {
  if (flags.fba_site) Vantrel::Emulation::InstallFbaSite(emulator, flags.fba);
  std::shared_ptr<Vantrel::Emulation::AdfsServerState> adfs;
  if (flags.adfs_server) adfs = Vantrel::Emulation::InstallAdfsServer(emulator, flags.adfs);
  if (flags.trust_site) {
    // Without a server of its own the site refuses every token.
    Vantrel::Emulation::TrustSiteOptions trust = flags.trust;
    trust.adfs = adfs;
    Vantrel::Emulation::InstallTrustSite(emulator, trust);
  }
  if (flags.office365) {
    // The service takes the assertions of the emulated ADFS server, the
    // federation partner of every federated account.
    Vantrel::Emulation::Office365ServiceOptions service = flags.office365_service;
    if (flags.adfs_server) service.trusted_issuers.push_back(flags.adfs.issuer);
    auto state = Vantrel::Emulation::InstallOffice365Service(emulator, service);
    for (const auto& site : flags.online_sites) {
      Vantrel::Emulation::InstallOnlineSite(emulator, site, state);
    }
  }
}

bool WriteWhole(const std::string& path, const std::string& content) {
  std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out.flush()) return false;
  }
  return std::rename(temporary.c_str(), path.c_str()) == 0;
}

void PrintExchange(const Request& request, const Response& response) {
  std::string host = request.Host();
  std::printf("%s %s %s -> %d\n", request.method.c_str(), host.empty() ? "-" : host.c_str(),
              request.target.c_str(), response.status);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  Flags flags;
  if (!ParseFlags(argc, argv, &flags)) {
    Usage(argv[0]);
    return 2;
  }

  // Blocked before any thread exists, so every server thread inherits the mask
  // and the signals wait for sigwait below.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  Emulator emulator(flags.options);
  InstallEndpoints(flags, &emulator);
  emulator.SetObserver(&PrintExchange);
  std::string error;
  if (!emulator.Start(&error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  if (!flags.ca_out.empty() && !WriteWhole(flags.ca_out, emulator.Authority().CaPem())) {
    std::fprintf(stderr, "cannot write %s\n", flags.ca_out.c_str());
    return 1;
  }
  std::string ports = std::to_string(emulator.HttpPort()) + " " + std::to_string(emulator.HttpsPort());
  if (!flags.ready_file.empty() && !WriteWhole(flags.ready_file, ports + "\n")) {
    std::fprintf(stderr, "cannot write %s\n", flags.ready_file.c_str());
    return 1;
  }
  std::printf("listening: http %s  https %s  ca %s\n", emulator.HttpUrl().c_str(),
              emulator.HttpsUrl().c_str(), emulator.CaFile().c_str());
  std::fflush(stdout);

  int signal_number = 0;
  sigwait(&stop_signals, &signal_number);
  emulator.Stop();
  return 0;
}
