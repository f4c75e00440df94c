// signin: signs in to a SharePoint site with VantrelAuthEngine64 and writes
// the resulting cookies in the Netscape format that curl and wget load.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

namespace {

const char kUsage[] =
    "Usage: signin COMMAND --site URL --user NAME [options]\n"
    "\n"
    "Signs in to a SharePoint site and writes the session cookies in the Netscape\n"
    "cookie-file format, ready for `curl -b FILE` or `wget --load-cookies FILE`.\n"
    "\n"
    "Commands:\n"
    "  fba      forms-based sign-in: the site's authentication web service\n"
    "  adfs     a token from an ADFS server (--adfs, --realm) handed to the site\n"
    "  online   SharePoint Online through the Office 365 token service\n"
    "\n"
    "Options:\n"
    "  --site URL            the site, http:// or https://; a query, a fragment and\n"
    "                        a final .aspx page are ignored\n"
    "  --user NAME           the account (an e-mail address for online)\n"
    "  --password-file FILE  read the password from the first line of FILE\n"
    "  --password-stdin      read the password from the first line of standard input\n"
    "                        (without either, it is asked for on the terminal, unechoed)\n"
    "  --ca-file FILE        trust the CA certificates in FILE for https\n"
    "  --insecure            check neither the server's certificate nor its name\n"
    "  --proxy URL           send every request through this HTTP proxy\n"
    "  --verbose             write the library's debug log to standard error\n"
    "  --cookie-jar FILE     write the cookies to FILE (mode 0600) instead of\n"
    "                        standard output\n"
    "  --adfs URL            adfs: the ADFS server\n"
    "  --realm URN           adfs: the realm the site's trust is registered under\n"
    "  --sts URL             online: another Office 365 token service\n"
    "  --adfs-realm URN      online: the realm to ask a federated tenant's ADFS for\n"
    "  -h, --help            show this text\n"
    "\n"
    "Exit status:\n"
    "  0   signed in, cookies written\n"
    "  1   the password or the cookie jar could not be read or written\n"
    "  2   the command line is wrong\n"
    "  10 + the library's result for a failed sign-in, among them:\n"
    "      11 internal error, 12 initialisation error, 13 invalid input,\n"
    "      15 request could not be sent, 16 HTTP error, 17 authentication failed,\n"
    "      18 a SharePoint Online site converted from BPOS\n"
    "\n"
    "Example:\n"
    "  signin fba --site https://intranet.example.com/sites/team --user alice \\\n"
    "      --cookie-jar jar.txt && curl -b jar.txt https://intranet.example.com/sites/team/_api/web\n";

int UsageError(const std::string& message) {
  std::fprintf(stderr, "signin: %s\nTry 'signin --help'.\n", message.c_str());
  return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::map<std::string, std::string*> valued = {
      {"--site", &options.site},         {"--user", &options.user},
      {"--password-file", &options.password_file},
      {"--ca-file", &options.ca_file},   {"--proxy", &options.proxy},
      {"--cookie-jar", &options.cookie_jar},
      {"--adfs", &options.adfs},         {"--realm", &options.realm},
      {"--sts", &options.sts},           {"--adfs-realm", &options.adfs_realm},
  };
  std::map<std::string, bool*> flags = {
      {"--password-stdin", &options.password_stdin},
      {"--insecure", &options.insecure},
      {"--verbose", &options.verbose},
  };

  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return kExitOk;
    }
    if (arg.rfind("--", 0) != 0) {
      if (!options.command.empty()) return UsageError("unexpected argument '" + arg + "'");
      options.command = arg;
      continue;
    }
    std::string value;
    bool inline_value = false;
    size_t equals = arg.find('=');
    if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
      arg.erase(equals);
      inline_value = true;
    }
    if (auto flag = flags.find(arg); flag != flags.end()) {
      if (inline_value) return UsageError(arg + " takes no value");
      *flag->second = true;
    } else if (auto field = valued.find(arg); field != valued.end()) {
      if (!inline_value) {
        if (i + 1 >= argc) return UsageError(arg + " needs a value");
        value = argv[++i];
      }
      *field->second = value;
    } else {
      return UsageError("unknown option '" + arg + "'");
    }
  }

  if (options.command.empty()) return UsageError("no command given");
  if (options.site.empty()) return UsageError("--site is required");
  if (options.user.empty()) return UsageError("--user is required");
  if (!options.password_file.empty() && options.password_stdin) {
    return UsageError("--password-file and --password-stdin exclude each other");
  }

  if (options.command == "fba") return RunFba(options);
  if (options.command == "adfs") return RunAdfs(options);
  if (options.command == "online") return RunOnline(options);
  return UsageError("unknown command '" + options.command + "'");
}
