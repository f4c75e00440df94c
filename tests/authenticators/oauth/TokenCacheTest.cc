// The token cache: when a token serves, what a lookup finds, the refresh token
// that survives, and the file shared between processes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "authenticators/oauth/TokenCache.h"
#include "support/LogCapture.h"

namespace Vantrel::Auth::testing {
namespace {

namespace fs = std::filesystem;
const time_t kNow = 1700000000;

TokenCacheEntry Entry(const std::string& account, const char* access, const char* refresh, time_t cached_at = kNow,
                      time_t expires_on = kNow + 3600, const std::string& tenant = "contoso") {
  TokenCacheEntry entry;
  entry.key = {"login.microsoftonline.com", tenant, "client-1", account, "https://c.sharepoint.com/.default"};
  entry.access_token.Assign(access);
  entry.refresh_token.Assign(refresh);
  entry.cached_at = cached_at, entry.expires_on = expires_on, entry.tenant_id = "0d5c-guid";
  return entry;
}

TokenCacheKey AnyAccount() { return Entry("", "", "", 0, 0, "").key; }

// "c/a f/b": each entry's tenant initial and account, in the order given.
std::string Accounts(const TokenCache::Found& entries) {
  std::string text;
  for (const auto* entry : entries) text += (text.empty() ? "" : " ") + entry->key.tenant.substr(0, 1) + "/" + entry->key.account;
  return text;
}

std::string Accounts(const std::vector<TokenCacheEntry>& entries) {
  TokenCache::Found found;
  for (const auto& entry : entries) found.push_back(&entry);
  return Accounts(found);
}

std::vector<TokenCacheEntry> OnDisk(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  std::vector<TokenCacheEntry> entries;
  EXPECT_TRUE(TokenCache::ParseFile(text.str(), &entries)) << path;
  return entries;
}

TEST(TokenCacheTest, AnAccessTokenServesUntilFiveMinutesBeforeExpiryAndNeverFromTheFuture) {
  struct { time_t cached_at, expires_on; const char* access; bool usable; } rows[] = {
      {kNow, kNow + 301, "at", true},        {kNow, kNow + 300, "at", false}, {kNow, kNow + 299, "at", false},
      {kNow - 7200, kNow - 10, "at", false}, {kNow + 1, kNow + 3600, "at", false},  // the clock moved back
      {kNow, kNow + 3600, "", false},        {kNow, LLONG_MAX, "at", true},   {kNow, LLONG_MIN, "at", false},
  };
  for (const auto& row : rows) {
    TokenCache cache;
    ASSERT_TRUE(cache.Store(Entry("a@x", row.access, "rt", row.cached_at, row.expires_on), nullptr));
    EXPECT_EQ(cache.FindUsable(AnyAccount(), kNow).size(), row.usable ? 1u : 0u) << row.expires_on;
    EXPECT_EQ(cache.FindRefreshable(AnyAccount()).size(), 1u);  // whatever the access token's state
  }
}

TEST(TokenCacheTest, EmptyTenantAndAccountMatchAnyNewestFirst) {
  TokenCache cache;
  for (const auto& [account, tenant, age] : {std::tuple("a", "contoso", 4), {"b", "fabrikam", 1}, {"b", "contoso", 3}, {"a", "fabrikam", 2}}) {
    cache.Store(Entry(account, "at", "", kNow - age, kNow + 3600, tenant), nullptr);
  }
  struct { const char *tenant, *account, *client, *scope, *found; } rows[] = {
      {"", "", "client-1", "", "f/b f/a c/b c/a"}, {"contoso", "", "client-1", "", "c/b c/a"},
      {"", "a", "client-1", "", "f/a c/a"},       {"FABRIKAM", "B", "CLIENT-1", "", "f/b"},
      {"northwind", "", "client-1", "", ""},      {"", "", "client-2", "", ""},
      {"", "", "client-1", "https://C.sharepoint.com/.default", ""},  // scopes compare exactly
  };
  for (const auto& row : rows) {
    TokenCacheKey key = AnyAccount();
    key.tenant = row.tenant, key.account = row.account, key.client_id = row.client;
    if (*row.scope != '\0') key.scope = row.scope;
    EXPECT_EQ(Accounts(cache.FindUsable(key, kNow)), row.found) << row.tenant << "|" << row.account;
  }
}

class TokenCacheFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string folder = ::testing::TempDir() + "token-cache-XXXXXX";
    ASSERT_NE(mkdtemp(&folder[0]), nullptr);
    folder_ = folder, file_ = folder + "/cache.json";
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string folder_, file_;
};

// In file mode each Store goes through a fresh object: what survives, survives by way of the file.
TEST_F(TokenCacheFileTest, AStoreReplacesItsKeyKeepsTheNewestRefreshTokenAndNoOtherAccountIsLost) {
  for (const std::string& file : {std::string(), file_}) {
    TokenCache memory, reader;
    memory.SetFile(file_), memory.SetFile("");  // back to memory alone
    reader.SetFile(file);
    auto store = [&](const TokenCacheEntry& entry) {
      TokenCache fresh;
      fresh.SetFile(file);
      ASSERT_TRUE((file.empty() ? memory : fresh).Store(entry, nullptr));
    };
    auto find = [&] {
      TokenCache& cache = file.empty() ? memory : reader;
      cache.Reload();
      return cache.FindRefreshable(AnyAccount());
    };
    store(Entry("a", "at1", "rt1", kNow - 20));
    store(Entry("b", "other", "rtb"));
    store(Entry("a", "at2", "", kNow - 10));  // an answer without a refresh token
    TokenCache::Found found = find();
    ASSERT_EQ(Accounts(found), "c/b c/a") << file;
    EXPECT_EQ(std::tuple(found[1]->access_token.view(), found[1]->refresh_token.view()), std::tuple("at2", "rt1"));
    store(Entry("a", "at3", "rt3", kNow - 30));  // replaces even when the clock moved back
    found = find();
    ASSERT_EQ(Accounts(found), "c/b c/a");
    EXPECT_EQ(found[1]->refresh_token.view(), "rt3");
    if (file.empty()) { EXPECT_TRUE(fs::is_empty(folder_)); }
  }
}

TEST_F(TokenCacheFileTest, TwoProcessesStoringAtOnceLoseNothing) {
  // Enough stores for the two to overlap many times, few enough for
  // valgrind: each store reads and rewrites the whole file.
  constexpr int kStoresEach = 80;
  pid_t children[2];
  for (int child = 0; child < 2; ++child) {
    if ((children[child] = fork()) != 0) continue;
    TokenCache cache;  // knows none of the other process's entries
    cache.SetFile(file_);
    bool stored = true;
    for (int i = 0; i < kStoresEach; ++i) stored &= cache.Store(Entry(std::to_string(child * 1000 + i), "at", "rt"), nullptr);
    _exit(stored ? 0 : 1);
  }
  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(OnDisk(file_).size(), 2u * kStoresEach);
}

// A link planted at the cache path reads as unreadable too, and its target is neither read nor written.
TEST_F(TokenCacheFileTest, AFileThatIsNotOursIsIgnoredAndRewrittenByTheNextStore) {
  const std::string whole = TokenCache::SerializeFile({Entry("a", "at-a", "rt-a"), Entry("v", "at-v", "rt-v")}).c_str();
  const std::string victim = folder_ + "/victim";
  std::ofstream(victim) << whole;
  const std::string rows[] = {"{\"format\":\"vantrel-token-cache\",,}", whole.substr(0, whole.size() / 2),
                              "{\"access_token\":\"x\",\"entries\":[]}", "", std::string("\0\xff\xfe{[\x80", 6), "fifo", "link"};
  for (const auto& text : rows) {
    fs::remove(file_);
    if (text == "fifo") { ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0); }  // must not hang the reader
    if (text == "link") fs::create_symlink(victim, file_);
    if (text != "fifo" && text != "link") std::ofstream(file_, std::ios::binary) << text;
    ScopedLogCapture log(kLogLevelInfo);
    TokenCache cache;
    cache.SetFile(file_);
    cache.Reload();
    EXPECT_TRUE(cache.FindUsable(AnyAccount(), kNow).empty()) << text;
    EXPECT_GE(log.IndexOf("TokenCache::Load - Ignoring unreadable token cache file: " + file_), 0) << text;
    ASSERT_TRUE(cache.Store(Entry("c", "at-c", "rt-c"), nullptr)) << text;
    EXPECT_EQ(Accounts(OnDisk(file_)), "c/c") << text;
  }
  EXPECT_EQ(Accounts(OnDisk(victim)), "c/a c/v");
}

TEST_F(TokenCacheFileTest, FileAndLockAreTheOwnersAloneWhateverTheUmaskAndALinkedLockIsRefused) {
  std::ofstream(file_ + ".lock").close();
  fs::permissions(file_ + ".lock", fs::perms(0666));  // left behind by a careless older writer
  for (mode_t mask : {0000, 0022, 0277}) {
    const mode_t old_mask = umask(mask);
    TokenCache cache;
    cache.SetFile(file_);
    EXPECT_TRUE(cache.Store(Entry("a", "at", "rt"), nullptr));
    umask(old_mask);
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms(0600)) << mask;
    EXPECT_EQ(fs::status(file_ + ".lock").permissions(), fs::perms(0600)) << mask;
  }
  fs::rename(file_ + ".lock", folder_ + "/victim");
  fs::permissions(folder_ + "/victim", fs::perms(0640));
  fs::create_symlink(folder_ + "/victim", file_ + ".lock");
  TokenCache cache;
  cache.SetFile(file_);
  EXPECT_FALSE(cache.Store(Entry("b", "at", "rt"), nullptr));
  EXPECT_EQ(fs::status(folder_ + "/victim").permissions(), fs::perms(0640));
  cache.Reload();
  EXPECT_EQ(Accounts(cache.FindUsable(AnyAccount(), kNow)), "c/b c/a");  // a failed write still serves from memory
}

TEST(TokenCacheParseTest, OnlyOurFormatParsesAndABadEntryCostsOnlyItself) {
  const std::string good = R"({"authority_host":"h","tenant":"t","client_id":"c","account":"a","scope":"s",)"
                           R"("access_token":"at","refresh_token":"rt","expires_on":2,"cached_at":1,"tenant_id":"g")";
  auto file = [](const std::string& version, const std::string& entries) {
    return R"({"format":"vantrel-token-cache","version":)" + version + R"(,"entries":)" + entries + "}";
  };
  struct { std::string text; bool parses; size_t entries; } rows[] = {
      {file("1", "[" + good + "}," + good + "}]"), true, 2},
      {file("1", "[" + good + R"(},{"account":"a"},7,)" + good + R"(,"cached_at":1.5}])"), true, 1},
      {file("1", "[" + good + R"(,"cached_at":18446744073709551615}])"), true, 0},  // beyond time_t
      {file("2", "[]"), false, 0}, {file("\"1\"", "[]"), false, 0}, {file("1", "{}"), false, 0},
      {R"({"format":"other","version":1,"entries":[]})", false, 0},
  };
  for (const auto& row : rows) {
    std::vector<TokenCacheEntry> entries(3);
    EXPECT_EQ(TokenCache::ParseFile(row.text, &entries), row.parses) << row.text;
    EXPECT_EQ(entries.size(), row.entries) << row.text;
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing
