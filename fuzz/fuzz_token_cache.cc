// The token cache file as anything on disk may hold it: whatever parses must
// survive a write and a read unchanged, whatever doesn't leaves no entry, and
// the parsed times, however extreme, go through the lookups.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <tuple>
#include <vector>

#include "authenticators/oauth/TokenCache.h"

using namespace Vantrel::Auth;

namespace {

auto Fields(const TokenCacheEntry& entry) {
  const TokenCacheKey& key = entry.key;
  return std::tie(key.authority_host, key.tenant, key.client_id, key.account, key.scope, entry.access_token,
                  entry.refresh_token, entry.expires_on, entry.cached_at, entry.tenant_id);
}

// Every token a lookup hands out serves by the rule, reckoned here in wider
// integers than time_t, and comes newest first.
void Look(const std::vector<TokenCacheEntry>& entries) {
  TokenCache cache;
  for (const TokenCacheEntry& entry : entries) cache.Store(entry, nullptr);
  for (const TokenCacheEntry& probe : entries) {
    TokenCacheKey any = probe.key;
    any.tenant.clear();
    any.account.clear();
    for (time_t now : {probe.cached_at, probe.expires_on - probe.expires_on / 2}) {
      const TokenCache::Found found = cache.FindUsable(any, now);
      for (size_t i = 0; i < found.size(); ++i) {
        const TokenCacheEntry& entry = *found[i];
        const __int128 left = static_cast<__int128>(entry.expires_on) - now;
        if (entry.access_token.empty() || entry.cached_at > now || left <= TokenCache::kExpiryMargin) std::abort();
        if (i > 0 && found[i - 1]->cached_at < entry.cached_at) std::abort();
      }
    }
    for (const TokenCacheEntry* entry : cache.FindRefreshable(any)) {
      if (entry->refresh_token.empty()) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<TokenCacheEntry> entries, again;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!TokenCache::ParseFile(text, &entries)) {
    if (!entries.empty()) std::abort();
    return 0;
  }
  const SecretString written = TokenCache::SerializeFile(entries);
  if (!TokenCache::ParseFile(written.view(), &again) || again.size() != entries.size()) std::abort();
  for (size_t i = 0; i < entries.size(); ++i) {
    if (Fields(entries[i]) != Fields(again[i])) std::abort();
  }
  if (TokenCache::SerializeFile(again) != written) std::abort();
  Look(entries);
  return 0;
}
