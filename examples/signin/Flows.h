// The sign-in flows of the example host, one source file each.
#ifndef VANTREL_EXAMPLES_SIGNIN_FLOWS_H_
#define VANTREL_EXAMPLES_SIGNIN_FLOWS_H_

#include <string>

// Everything the command line can say. Each flow reads what it needs.
struct Options {
  std::string command;        // "fba", "adfs", "online" or "entra"
  std::string site;           // --site URL
  std::string user;           // --user NAME (an e-mail address for "online")
  std::string password_file;  // --password-file FILE
  bool password_stdin = false;  // --password-stdin
  std::string ca_file;        // --ca-file FILE
  bool insecure = false;      // --insecure: both certificate checks off
  std::string proxy;          // --proxy URL
  // The library sets no time-out of its own; this host never waits on a
  // server for ever unless told to with 0.
  long connect_timeout = 30;  // --connect-timeout S
  long timeout = 120;         // --timeout S
  bool verbose = false;       // --verbose: library log at debug level to stderr
  std::string cookie_jar;     // --cookie-jar FILE ("" = standard output)
  std::string adfs;           // --adfs URL   (adfs flow)
  std::string realm;          // --realm URN  (adfs flow)
  std::string sts;            // --sts URL    (online flow: Office365::SetServer)
  std::string adfs_realm;     // --adfs-realm URN (online flow, federated tenants)

  // entra: an access token from Entra ID instead of cookies.
  std::string client_id;           // --client-id ID
  std::string tenant;              // --tenant T
  std::string authority;           // --authority URL
  std::string scope;               // --scope S
  std::string token_cache;         // --token-cache FILE
  std::string header_out;          // --header-out FILE ("" = standard output)
  bool no_site_check = false;      // --no-site-check
  std::string certificate;         // --certificate FILE
  std::string key;                 // --key FILE
  std::string key_password_file;   // --key-password-file FILE
  std::string client_secret_file;  // --client-secret-file FILE
  bool device_code = false;        // --device-code
  bool browser = false;            // --browser
  std::string browser_command;     // --browser-command CMD
};

// Each returns the process exit status.
int RunFba(const Options& options);
int RunAdfs(const Options& options);
int RunOnline(const Options& options);
int RunEntra(const Options& options);

#endif  // VANTREL_EXAMPLES_SIGNIN_FLOWS_H_
