// The sign-in flows of the example host, one source file each.
#ifndef VANTREL_EXAMPLES_SIGNIN_FLOWS_H_
#define VANTREL_EXAMPLES_SIGNIN_FLOWS_H_

#include <string>

// Everything the command line can say. Each flow reads what it needs.
struct Options {
  std::string command;        // "fba", "adfs" or "online"
  std::string site;           // --site URL
  std::string user;           // --user NAME (an e-mail address for "online")
  std::string password_file;  // --password-file FILE
  bool password_stdin = false;  // --password-stdin
  std::string ca_file;        // --ca-file FILE
  bool insecure = false;      // --insecure: both certificate checks off
  std::string proxy;          // --proxy URL
  bool verbose = false;       // --verbose: library log at debug level to stderr
  std::string cookie_jar;     // --cookie-jar FILE ("" = standard output)
  std::string adfs;           // --adfs URL   (adfs flow)
  std::string realm;          // --realm URN  (adfs flow)
  std::string sts;            // --sts URL    (online flow: Office365::SetServer)
  std::string adfs_realm;     // --adfs-realm URN (online flow, federated tenants)
};

// Each returns the process exit status.
int RunFba(const Options& options);
int RunAdfs(const Options& options);
int RunOnline(const Options& options);

#endif  // VANTREL_EXAMPLES_SIGNIN_FLOWS_H_
