// TokenCache: access and refresh tokens kept for silent sign-in, in memory,
// and with a file between processes.
//
// Entries are keyed by authority host, tenant, client id, account and scope;
// all but the scope compare without regard to ASCII case, as the service
// treats them. An access token counts as expired 5 minutes before its
// expiry, and so does one cached "in the future" (the clock was moved back).
// A refresh token is kept until it is replaced by a newer one.
//
// The file, when set: JSON, mode 0600, replaced atomically (a temporary file
// in the same folder, then rename), read under a shared and written under an
// exclusive advisory lock on "<file>.lock", so that processes signing in at
// once lose none of each other's entries. A corrupt, truncated or foreign
// file is ignored (a warning goes to the log) and rewritten by the next Store;
// an entry of another account is never dropped by a Store.
//
// One object serves one thread at a time, like the authenticator owning it.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_CACHE_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_CACHE_H_

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

struct TokenCacheKey {
  std::string authority_host;  // "login.microsoftonline.com"
  std::string tenant;          // as used in the endpoint; "" matches any tenant
  std::string client_id;
  std::string account;  // "" for app-only tokens; in a lookup, "" matches any account
  std::string scope;
};

struct TokenCacheEntry {
  TokenCacheKey key;
  SecretString access_token;
  SecretString refresh_token;
  time_t expires_on = 0;  // of the access token
  time_t cached_at = 0;
  std::string tenant_id;  // the tenant's GUID, when known
};

class TokenCache {
 public:
  // Seconds before expiry from which an access token no longer serves.
  static constexpr time_t kExpiryMargin = 300;

  // "" keeps tokens in memory only. The file is read at the next Reload.
  void SetFile(std::string_view path);
  const std::string& file() const { return file_; }

  // With a file, reads it and merges its entries over memory's (another
  // process may have written it); without one, does nothing. A lookup
  // that wants what other processes stored calls this first.
  void Reload();

  // Lookups answer with pointers into the cache, valid until the next
  // Reload, Store or SetFile: a hit copies no token.
  using Found = std::vector<const TokenCacheEntry*>;

  // The entries matching `key` (tenant "" and account "" match any) whose
  // access token still serves at `now`, newest first (by cached_at).
  Found FindUsable(const TokenCacheKey& key, time_t now) const;
  // The entries matching `key` that hold a refresh token, newest first.
  Found FindRefreshable(const TokenCacheKey& key) const;

  // Adds or replaces the entry with exactly this key, in memory and, with a
  // file, in the file; the file's entries of other keys stay as they are.
  // An entry without a refresh token keeps the one its key held: an answer
  // that brings none doesn't take away the right to refresh. False with a
  // reason in `warning` (may be null) when the file could not be written;
  // memory is updated all the same.
  bool Store(const TokenCacheEntry& entry, std::string* warning);

  // Reads a cache file's text into entries; false for anything that is not a
  // cache file of this library (the fuzz target drives this). An entry of
  // the wrong shape is left out and the others still count. Never throws.
  static bool ParseFile(std::string_view text, std::vector<TokenCacheEntry>* entries);
  static SecretString SerializeFile(const std::vector<TokenCacheEntry>& entries);

 private:
  // The file's entries; none for a missing file, and none with a warning in
  // the log for one that is not a readable cache file. The caller holds the lock.
  std::vector<TokenCacheEntry> Load() const;
  void MergeLoaded(const std::vector<TokenCacheEntry>& loaded);

  std::string file_;
  std::vector<TokenCacheEntry> entries_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_CACHE_H_
