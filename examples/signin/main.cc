// signin: signs in to a SharePoint site with VantrelAuthEngine64 and writes
// the resulting cookies in the Netscape format that curl and wget load, or
// (entra) the Authorization header line that curl -H @FILE sends.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

namespace {

const char kUsage[] =
    "Usage: signin fba|adfs|online --site URL --user NAME [options]\n"
    "       signin entra --site URL --client-id ID [flow] [options]\n"
    "\n"
    "Signs in to a SharePoint site. fba, adfs and online write the session cookies\n"
    "in the Netscape cookie-file format, ready for `curl -b FILE` or\n"
    "`wget --load-cookies FILE`; entra writes the line `Authorization: Bearer TOKEN`,\n"
    "ready for `curl -H @FILE`.\n"
    "\n"
    "Commands:\n"
    "  fba      forms-based sign-in: the site's authentication web service\n"
    "  adfs     a token from an ADFS server (--adfs, --realm) handed to the site\n"
    "  online   SharePoint Online through the Office 365 token service (retired by\n"
    "           Microsoft for SharePoint Online; use entra there)\n"
    "  entra    SharePoint Online today: an access token from Microsoft Entra ID\n"
    "\n"
    "Options:\n"
    "  --site URL            the site, http:// or https://; a query, a fragment and\n"
    "                        a final .aspx page are ignored\n"
    "  --user NAME           the account (an e-mail address for online and entra)\n"
    "  --password-file FILE  read the password from the first line of FILE\n"
    "  --password-stdin      read the password from the first line of standard input\n"
    "                        (without either, it is asked for on the terminal, unechoed)\n"
    "  --ca-file FILE        trust the CA certificates in FILE for https\n"
    "  --insecure            check neither the server's certificate nor its name\n"
    "  --proxy URL           send every request through this HTTP proxy\n"
    "  --connect-timeout S   give up a connection not made within S seconds, its\n"
    "                        TLS handshake and proxy tunnel included (default\n"
    "                        30; 0: libcurl's own, 300)\n"
    "  --timeout S           give up a request not done within S seconds (default\n"
    "                        120; 0: never); either time-out exits 15\n"
    "  --verbose             write the library's debug log to standard error\n"
    "  --cookie-jar FILE     write the cookies to FILE (mode 0600) instead of\n"
    "                        standard output\n"
    "  --adfs URL            adfs: the ADFS server\n"
    "  --realm URN           adfs: the realm the site's trust is registered under\n"
    "  --sts URL             online: another Office 365 token service\n"
    "  --adfs-realm URN      online: the realm to ask a federated tenant's ADFS for\n"
    "  -h, --help            show this text\n"
    "\n"
    "entra, one flow at most:\n"
    "  --certificate FILE [--key FILE] [--key-password-file FILE]\n"
    "                        app-only: a PEM certificate with its PEM key (both may\n"
    "                        be one file), or without --key a PKCS#12 file\n"
    "                        (.pfx/.p12); the password of either from FILE\n"
    "  --client-secret-file FILE\n"
    "                        app-only with the secret in FILE (SharePoint itself\n"
    "                        refuses such tokens; see --no-site-check)\n"
    "  --device-code         a user who signs in on any device; the instructions go\n"
    "                        to standard error\n"
    "  --browser [--browser-command CMD]\n"
    "                        a user in a browser on this machine: CMD, split on\n"
    "                        spaces, gets the sign-in URL as its last argument\n"
    "                        (default xdg-open)\n"
    "  --user NAME           a user's name and password (no MFA); the password is\n"
    "                        read as above\n"
    "  (none of these)       silent: from --token-cache (required then), with a\n"
    "                        refresh if needed\n"
    "entra options:\n"
    "  --client-id ID        the registered application (required)\n"
    "  --tenant T            the tenant's GUID or domain (default: asked of the site)\n"
    "  --authority URL       the sign-in service (default: by the site's domain)\n"
    "  --scope S             the scope to ask for (default: the site's host/.default)\n"
    "  --token-cache FILE    keep tokens in FILE (mode 0600) for later runs\n"
    "  --header-out FILE     write the header line to FILE (mode 0600) instead of\n"
    "                        standard output\n"
    "  --no-site-check       don't ask the site whether it takes the token\n"
    "Ctrl-C ends a device-code or browser wait with exit status 20.\n"
    "\n"
    "Exit status:\n"
    "  0   signed in, cookies or header written\n"
    "  1   a password, secret, cookie jar or header file could not be read or written\n"
    "  2   the command line is wrong\n"
    "  10 + the library's result for a failed sign-in, among them:\n"
    "      11 internal error, 12 initialisation error, 13 invalid input (also an\n"
    "      unreadable --certificate or --key: the library reads those),\n"
    "      15 request could not be sent, 16 HTTP error, 17 authentication failed,\n"
    "      18 a SharePoint Online site converted from BPOS,\n"
    "      19 no token without interaction (an empty token cache, MFA required),\n"
    "      20 cancelled (Ctrl-C, or the browser could not be started),\n"
    "      21 timed out (the device code expired, the browser never came back)\n"
    "\n"
    "Examples:\n"
    "  signin fba --site https://intranet.example.com/sites/team --user alice \\\n"
    "      --cookie-jar jar.txt && curl -b jar.txt https://intranet.example.com/sites/team/_api/web\n"
    "  signin entra --site https://contoso.sharepoint.com/sites/team --client-id ID \\\n"
    "      --device-code --token-cache tokens.json --header-out header.txt &&\n"
    "      curl -H @header.txt https://contoso.sharepoint.com/sites/team/_api/web\n";

// Options that only one kind of command reads: given to the other kind, they
// are a mistake the user should hear about, not a silent no-op.
const std::set<std::string> kCookieOptions = {"--cookie-jar", "--adfs", "--realm", "--sts",
                                              "--adfs-realm"};
const std::set<std::string> kEntraOptions = {
    "--client-id",   "--tenant",        "--authority",          "--scope",
    "--token-cache", "--header-out",    "--no-site-check",      "--certificate",
    "--key",         "--key-password-file", "--client-secret-file", "--device-code",
    "--browser",     "--browser-command"};

// A whole number of seconds, 0 or more; false for anything else.
bool ParseSeconds(const std::string& text, long* seconds) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  errno = 0;
  *seconds = std::strtol(text.c_str(), nullptr, 10);
  return errno == 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string connect_timeout;
  std::string timeout;
  std::map<std::string, std::string*> valued = {
      {"--site", &options.site},         {"--user", &options.user},
      {"--password-file", &options.password_file},
      {"--ca-file", &options.ca_file},   {"--proxy", &options.proxy},
      {"--cookie-jar", &options.cookie_jar},
      {"--adfs", &options.adfs},         {"--realm", &options.realm},
      {"--sts", &options.sts},           {"--adfs-realm", &options.adfs_realm},
      {"--client-id", &options.client_id},
      {"--tenant", &options.tenant},     {"--authority", &options.authority},
      {"--scope", &options.scope},       {"--token-cache", &options.token_cache},
      {"--header-out", &options.header_out},
      {"--certificate", &options.certificate},
      {"--key", &options.key},           {"--key-password-file", &options.key_password_file},
      {"--client-secret-file", &options.client_secret_file},
      {"--browser-command", &options.browser_command},
      {"--connect-timeout", &connect_timeout},
      {"--timeout", &timeout},
  };
  std::map<std::string, bool*> flags = {
      {"--password-stdin", &options.password_stdin},
      {"--insecure", &options.insecure},
      {"--verbose", &options.verbose},
      {"--no-site-check", &options.no_site_check},
      {"--device-code", &options.device_code},
      {"--browser", &options.browser},
  };
  std::set<std::string> given;

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
    given.insert(arg);
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
  bool entra = options.command == "entra";
  if (!entra && options.command != "fba" && options.command != "adfs" &&
      options.command != "online") {
    return UsageError("unknown command '" + options.command + "'");
  }
  for (const std::string& name : given) {
    if ((entra ? kCookieOptions : kEntraOptions).count(name) != 0) {
      return UsageError(name + " does not apply to " + options.command);
    }
  }
  if (given.count("--connect-timeout") != 0 && !ParseSeconds(connect_timeout, &options.connect_timeout)) {
    return UsageError("--connect-timeout needs a whole number of seconds");
  }
  if (given.count("--timeout") != 0 && !ParseSeconds(timeout, &options.timeout)) {
    return UsageError("--timeout needs a whole number of seconds");
  }
  if (options.site.empty()) return UsageError("--site is required");
  // entra needs a user for its password flow only; it checks that itself.
  if (!entra && options.user.empty()) return UsageError("--user is required");
  if (!options.password_file.empty() && options.password_stdin) {
    return UsageError("--password-file and --password-stdin exclude each other");
  }

  if (options.command == "fba") return RunFba(options);
  if (options.command == "adfs") return RunAdfs(options);
  if (options.command == "online") return RunOnline(options);
  return RunEntra(options);
}
