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
//                    [--entra-site HOST]... [--entra-tenant GUID]
//                    [--entra-app CLIENT_ID]... [--entra-app-certificate CLIENT_ID:FILE]...
//                    [--entra-app-secret CLIENT_ID:SECRET]... [--entra-app-confidential CLIENT_ID]...
//                    [--entra-account NAME:PASSWORD]... [--entra-mfa-account NAME:PASSWORD]...
//                    [--entra-token-lifetime SECONDS] [--entra-device-interval SECONDS]
//                    [--never-answer PATH]...
//
// --never-answer makes every request below PATH go unanswered: the connection
// stays open, silent, until the client gives up.
//
// Any --entra-* flag installs Entra ID on login.microsoftonline.com (beside
// the Office 365 sign-in service, if that is installed too). An application
// named by --entra-app-certificate, --entra-app-secret or
// --entra-app-confidential is registered if no --entra-app named it. The
// user's side of the device-code flow is a control call through the proxy:
//   POST https://login.microsoftonline.com/_emulator/devicecode/approve
//        user_code=..&account=..   (account: the first one when left out)
//   POST https://login.microsoftonline.com/_emulator/devicecode/decline
//        user_code=..
//   GET  https://login.microsoftonline.com/_emulator/devicecode/pending
//        the user codes waiting, one a line, oldest first
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
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "emulator/AdfsServer.h"
#include "emulator/EntraCertificate.h"
#include "emulator/EntraService.h"
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
  // Entra ID comes with the first --entra-* flag.
  bool entra = false;
  Vantrel::Emulation::EntraServiceOptions entra_service;
  std::vector<Vantrel::Emulation::EntraSiteOptions> entra_sites;
  // Client id and the PEM file of its certificate, read once the flags are in.
  std::vector<std::pair<std::string, std::string>> entra_certificate_files;
  std::vector<std::string> silent_paths;
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
               "       [--entra-site HOST]... [--entra-tenant GUID]\n"
               "       [--entra-app CLIENT_ID]... [--entra-app-certificate CLIENT_ID:FILE]...\n"
               "       [--entra-app-secret CLIENT_ID:SECRET]... "
               "[--entra-app-confidential CLIENT_ID]...\n"
               "       [--entra-account NAME:PASSWORD]... [--entra-mfa-account NAME:PASSWORD]...\n"
               "       [--entra-token-lifetime SECONDS] [--entra-device-interval SECONDS]\n"
               "       [--never-answer PATH]...\n"
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

bool ParseSeconds(const char* text, long* seconds) {
  char* end = nullptr;
  long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || value < 0) return false;
  *seconds = value;
  return true;
}

// The application registered under `client_id`, registered now if need be.
Vantrel::Emulation::EntraApplication* EntraApp(Flags* flags, const std::string& client_id) {
  for (auto& application : flags->entra_service.applications) {
    if (application.client_id == client_id) return &application;
  }
  flags->entra_service.applications.emplace_back();
  flags->entra_service.applications.back().client_id = client_id;
  return &flags->entra_service.applications.back();
}

// One --entra-* flag and its value; false for a value that doesn't parse.
bool ParseEntraFlag(const std::string& flag, const char* value, Flags* flags) {
  std::string name;
  std::string rest;
  flags->entra = true;
  if (flag == "--entra-site") {
    // A SharePoint Online site under its real host name, taking the
    // service's bearer tokens.
    Vantrel::Emulation::EntraSiteOptions site;
    site.host = value;
    flags->entra_sites.push_back(site);
  } else if (flag == "--entra-tenant") {
    flags->entra_service.tenant_id = value;
  } else if (flag == "--entra-app" || flag == "--entra-app-confidential") {
    if (*value == '\0') return false;
    // Only --entra-app-confidential turns the flows off, in whatever order
    // the two flags come.
    Vantrel::Emulation::EntraApplication* application = EntraApp(flags, value);
    if (flag == "--entra-app-confidential") application->public_client = false;
  } else if (flag == "--entra-app-certificate") {
    if (!SplitAccount(value, &name, &rest) || rest.empty()) return false;
    EntraApp(flags, name);
    flags->entra_certificate_files.emplace_back(name, rest);
  } else if (flag == "--entra-app-secret") {
    if (!SplitAccount(value, &name, &rest) || rest.empty()) return false;
    EntraApp(flags, name)->secret = rest;
  } else if (flag == "--entra-account" || flag == "--entra-mfa-account") {
    if (!SplitAccount(value, &name, &rest)) return false;
    flags->entra_service.accounts.push_back({name, rest, flag == "--entra-mfa-account"});
  } else if (flag == "--entra-token-lifetime") {
    return ParseSeconds(value, &flags->entra_service.access_token_lifetime);
  } else if (flag == "--entra-device-interval") {
    return ParseSeconds(value, &flags->entra_service.device_code_interval);
  } else {
    return false;
  }
  return true;
}

// Reads the certificates that --entra-app-certificate named; false, with the
// reason on standard error, for a file that can't be read or holds none.
bool ReadEntraCertificates(Flags* flags) {
  for (const auto& entry : flags->entra_certificate_files) {
    std::ifstream in(entry.second, std::ios::binary);
    std::string pem((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) pem.clear();
    if (Vantrel::Emulation::EntraCertificate::FromPem(pem) == nullptr) {
      std::fprintf(stderr, "cannot read a PEM certificate from %s\n", entry.second.c_str());
      return false;
    }
    EntraApp(flags, entry.first)->certificate_pem = pem;
  }
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
    } else if (flag == "--never-answer") {
      flags->silent_paths.push_back(std::string(value) == "/" ? "" : value);
    } else if (flag.compare(0, 8, "--entra-") == 0) {
      if (!ParseEntraFlag(flag, value, flags)) return false;
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
  if (flags.entra) {
    auto state = Vantrel::Emulation::InstallEntraService(emulator, flags.entra_service);
    for (const auto& site : flags.entra_sites) {
      Vantrel::Emulation::InstallEntraSite(emulator, site, state);
    }
  }
  // Installed last: among equal prefixes the route added last wins.
  for (const std::string& path : flags.silent_paths) {
    emulator->Route("", "", path, [](const Request&) {
      Response silence;
      silence.never_answer = true;
      return silence;
    });
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
  if (!ReadEntraCertificates(&flags)) return 1;

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
