#include "authenticators/oauth/TokenCache.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <string>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "authenticators/oauth/JsonMember.h"
#include "base/Logger.h"

namespace Vantrel {
namespace Auth {
namespace {

const char kFormat[] = "vantrel-token-cache";
const long long kVersion = 1;
const mode_t kFileMode = 0600;

// The JSON tree holds the tokens too: its strings are wiped on release like
// SecretString's, and so is the text dump() builds. (The parser's scratch copy
// of the token it scans, kept for error messages, is a plain vector.)
using WipedText = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;
using Json = nlohmann::basic_json<std::map, std::vector, WipedText>;

void LogDebug(const char* format, const char* a1, const char* a2 = nullptr) {
  Logger::LogFormat(kLogLevelDebug, format, a1, a2, nullptr, nullptr, nullptr);
}

std::string ErrorText(int error) { return std::error_code(error, std::generic_category()).message(); }

// --- keys and entries --------------------------------------------------------

bool SameText(const std::string& a, const std::string& b) {
  return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
}

bool SameKey(const TokenCacheKey& a, const TokenCacheKey& b) {
  return SameText(a.authority_host, b.authority_host) && SameText(a.tenant, b.tenant) &&
         SameText(a.client_id, b.client_id) && SameText(a.account, b.account) && a.scope == b.scope;
}

bool Matches(const TokenCacheKey& lookup, const TokenCacheKey& stored) {
  return SameText(lookup.authority_host, stored.authority_host) &&
         (lookup.tenant.empty() || SameText(lookup.tenant, stored.tenant)) &&
         SameText(lookup.client_id, stored.client_id) &&
         (lookup.account.empty() || SameText(lookup.account, stored.account)) &&
         lookup.scope == stored.scope;
}

bool Serves(const TokenCacheEntry& entry, time_t now) {
  if (entry.access_token.empty() || entry.cached_at > now || entry.expires_on <= now) return false;
  // Unsigned, so that no value read from a file can overflow the difference.
  const uint64_t left = static_cast<uint64_t>(entry.expires_on) - static_cast<uint64_t>(now);
  return left > static_cast<uint64_t>(TokenCache::kExpiryMargin);
}

TokenCacheEntry* FindExact(std::vector<TokenCacheEntry>* entries, const TokenCacheKey& key) {
  for (TokenCacheEntry& entry : *entries) {
    if (SameKey(entry.key, key)) return &entry;
  }
  return nullptr;
}

// Replaces the entry of `entry`'s key, keeping its refresh token when `entry`
// brings none.
void Put(std::vector<TokenCacheEntry>* entries, const TokenCacheEntry& entry) {
  TokenCacheEntry* held = FindExact(entries, entry.key);
  if (held == nullptr) {
    entries->push_back(entry);
    return;
  }
  SecretString refresh_token = entry.refresh_token.empty() ? held->refresh_token : entry.refresh_token;
  *held = entry;
  held->refresh_token = std::move(refresh_token);
}

template <typename Predicate>
TokenCache::Found Select(const std::vector<TokenCacheEntry>& entries, const TokenCacheKey& key,
                         Predicate wanted) {
  TokenCache::Found found;
  for (const TokenCacheEntry& entry : entries) {
    if (Matches(key, entry.key) && wanted(entry)) found.push_back(&entry);
  }
  std::stable_sort(found.begin(), found.end(), [](const TokenCacheEntry* a, const TokenCacheEntry* b) {
    return a->cached_at > b->cached_at;
  });
  return found;
}

// --- the file's JSON ---------------------------------------------------------

const Json* Member(const Json& object, const char* name) {
  auto found = object.find(name);
  return found == object.end() ? nullptr : &*found;
}

bool ReadText(const Json& object, const char* name, std::string* text) {
  const Json* value = Member(object, name);
  if (value == nullptr || !value->is_string()) return false;
  const WipedText& held = value->get_ref<const WipedText&>();
  text->assign(held.data(), held.size());
  return true;
}

bool ReadSecret(const Json& object, const char* name, SecretString* secret) {
  const Json* value = Member(object, name);
  if (value == nullptr || !value->is_string()) return false;
  const WipedText& held = value->get_ref<const WipedText&>();
  secret->Assign(std::string_view(held.data(), held.size()));
  return true;
}

bool ReadTime(const Json& object, const char* name, time_t* time) {
  const Json* value = Member(object, name);
  if (value == nullptr || !value->is_number_integer()) return false;
  if (value->is_number_unsigned()) {
    const uint64_t number = value->get<uint64_t>();
    if (number > static_cast<uint64_t>(std::numeric_limits<time_t>::max())) return false;
    *time = static_cast<time_t>(number);
  } else {
    const int64_t number = value->get<int64_t>();
    if (number < std::numeric_limits<time_t>::min()) return false;
    *time = static_cast<time_t>(number);
  }
  return true;
}

bool ReadEntry(const Json& item, TokenCacheEntry* entry) {
  if (!item.is_object()) return false;
  TokenCacheKey& key = entry->key;
  return ReadText(item, "authority_host", &key.authority_host) && ReadText(item, "tenant", &key.tenant) &&
         ReadText(item, "client_id", &key.client_id) && ReadText(item, "account", &key.account) &&
         ReadText(item, "scope", &key.scope) && ReadSecret(item, "access_token", &entry->access_token) &&
         ReadSecret(item, "refresh_token", &entry->refresh_token) &&
         ReadTime(item, "expires_on", &entry->expires_on) && ReadTime(item, "cached_at", &entry->cached_at) &&
         ReadText(item, "tenant_id", &entry->tenant_id);
}

Json Text(const std::string& text) { return Json(WipedText(text.data(), text.size())); }
Json Text(const SecretString& text) { return Json(WipedText(text.data(), text.size())); }

Json EntryToJson(const TokenCacheEntry& entry) {
  Json item = Json::object();
  JsonDisposal<Json> dispose(&item);
  item["authority_host"] = Text(entry.key.authority_host);
  item["tenant"] = Text(entry.key.tenant);
  item["client_id"] = Text(entry.key.client_id);
  item["account"] = Text(entry.key.account);
  item["scope"] = Text(entry.key.scope);
  item["access_token"] = Text(entry.access_token);
  item["refresh_token"] = Text(entry.refresh_token);
  item["expires_on"] = static_cast<int64_t>(entry.expires_on);
  item["cached_at"] = static_cast<int64_t>(entry.cached_at);
  item["tenant_id"] = Text(entry.tenant_id);
  // Moved out, so that the disposal empties nothing the caller gets.
  return Json(std::move(item));
}

// --- files -------------------------------------------------------------------

class ScopedFd {
 public:
  explicit ScopedFd(int fd) : fd_(fd) {}
  ~ScopedFd() {
    if (fd_ >= 0) close(fd_);
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int get() const { return fd_; }
  // Closes now, so that a failing close (a late write error) can be seen.
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return close(fd) == 0;
  }

 private:
  int fd_;
};

// An advisory lock on "<file>.lock", held while the object lives. The lock
// file rather than the cache file itself: rename replaces the cache file, and
// a lock on a replaced file would guard nothing.
class FileLock {
 public:
  FileLock(const std::string& file, int operation)
      : fd_(open((file + ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, kFileMode)) {
    if (fd_.get() < 0) {
      error_ = errno;
      return;
    }
    fchmod(fd_.get(), kFileMode);  // whatever the umask or an older file had; best effort
    while (flock(fd_.get(), operation) != 0) {
      if (errno != EINTR) {
        error_ = errno;
        return;
      }
    }
    locked_ = true;
  }
  ~FileLock() {
    if (locked_) flock(fd_.get(), LOCK_UN);
  }

  bool locked() const { return locked_; }
  int error() const { return error_; }

 private:
  ScopedFd fd_;
  bool locked_ = false;
  int error_ = 0;
};

enum class ReadOutcome { kRead, kMissing, kUnreadable };

// O_NONBLOCK: a FIFO planted at the path must not hang the sign-in.
ReadOutcome ReadWholeFile(const std::string& path, SecretString* text) {
  ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (fd.get() < 0) return errno == ENOENT ? ReadOutcome::kMissing : ReadOutcome::kUnreadable;
  struct stat status;
  if (fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return ReadOutcome::kUnreadable;
  char chunk[4096];
  ReadOutcome outcome = ReadOutcome::kRead;
  for (;;) {
    const ssize_t count = read(fd.get(), chunk, sizeof(chunk));
    if (count > 0) {
      text->Append(std::string_view(chunk, static_cast<size_t>(count)));
    } else if (count == 0) {
      break;
    } else if (errno != EINTR) {
      outcome = ReadOutcome::kUnreadable;
      break;
    }
  }
  WipeMemory(chunk, sizeof(chunk));
  return outcome;
}

bool WriteAll(int fd, const SecretString& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

// "<file>.tmp.<pid>.<random>": in the cache file's folder, so that rename
// stays within one file system, and never a name an attacker could guess.
bool TemporaryPath(const std::string& file, std::string* path) {
  unsigned char random[8];
  if (RAND_bytes(random, sizeof(random)) != 1) return false;
  char hex[2 * sizeof(random) + 1];
  for (size_t i = 0; i < sizeof(random); ++i) std::snprintf(hex + 2 * i, 3, "%02x", random[i]);
  *path = file + ".tmp." + std::to_string(getpid()) + "." + hex;
  return true;
}

// Replaces `file` atomically by `text`: readers see the old or the new
// content whole, never a part. On failure the errno is returned in *error.
bool ReplaceFile(const std::string& file, const SecretString& text, int* error) {
  std::string temporary;
  if (!TemporaryPath(file, &temporary)) {
    *error = EIO;
    return false;
  }
  // O_EXCL and O_NOFOLLOW: a link planted at the name is never written through.
  ScopedFd fd(open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, kFileMode));
  if (fd.get() < 0) {
    *error = errno;
    return false;
  }
  // The mode given to open passes through the umask, which may take the owner's bits away.
  bool written = fchmod(fd.get(), kFileMode) == 0 && WriteAll(fd.get(), text) && fsync(fd.get()) == 0;
  if (!written) *error = errno;
  if (!fd.Close() && written) {
    *error = errno;
    written = false;
  }
  // rename replaces a link at `file` itself rather than its target.
  if (written && rename(temporary.c_str(), file.c_str()) != 0) {
    *error = errno;
    written = false;
  }
  // The folder is not synced: a rename lost in a crash leaves the previous
  // file whole, an older cache rather than a broken one.
  if (!written) unlink(temporary.c_str());
  return written;
}

}  // namespace

void TokenCache::SetFile(std::string_view path) { file_.assign(path.data(), path.size()); }

TokenCache::Found TokenCache::FindUsable(const TokenCacheKey& key, time_t now) const {
  return Select(entries_, key, [now](const TokenCacheEntry& entry) { return Serves(entry, now); });
}

TokenCache::Found TokenCache::FindRefreshable(const TokenCacheKey& key) const {
  return Select(entries_, key, [](const TokenCacheEntry& entry) { return !entry.refresh_token.empty(); });
}

bool TokenCache::Store(const TokenCacheEntry& entry, std::string* warning) {
  if (file_.empty()) {
    Put(&entries_, entry);
    return true;
  }
  // Read, merge and write under one exclusive lock: a process storing at the
  // same time waits, and then reads this one's entry before adding its own.
  FileLock lock(file_, LOCK_EX);
  std::vector<TokenCacheEntry> on_disk;
  if (lock.locked()) {
    on_disk = Load();
    MergeLoaded(on_disk);
  }
  Put(&entries_, entry);
  int error = lock.error();
  if (lock.locked()) {
    // Memory's entry now carries the refresh token the file had for the key, if it brings none.
    Put(&on_disk, *FindExact(&entries_, entry.key));
    LogDebug("TokenCache::Store - Writing the token cache file: %s", file_.c_str());
    if (ReplaceFile(file_, SerializeFile(on_disk), &error)) return true;
  }
  const std::string reason = ErrorText(error);
  LogDebug("TokenCache::Store - Could not write the token cache file: %s (%s)", file_.c_str(),
           reason.c_str());
  if (warning != nullptr) *warning = "Could not write the token cache file " + file_ + ": " + reason;
  return false;
}

void TokenCache::Reload() {
  if (file_.empty()) return;
  FileLock lock(file_, LOCK_SH);
  // Without a lock (a folder we may not write in) the read is still whole:
  // the file is only ever replaced by rename.
  if (!lock.locked()) LogDebug("TokenCache::Load - Reading without a lock: %s", file_.c_str());
  MergeLoaded(Load());
}

std::vector<TokenCacheEntry> TokenCache::Load() const {
  std::vector<TokenCacheEntry> loaded;
  SecretString text;
  const ReadOutcome outcome = ReadWholeFile(file_, &text);
  if (outcome == ReadOutcome::kMissing) return loaded;
  if (outcome == ReadOutcome::kUnreadable || !ParseFile(text.view(), &loaded)) {
    Logger::LogFormat(kLogLevelInfo, "TokenCache::Load - Ignoring unreadable token cache file: %s",
                      file_.c_str(), nullptr, nullptr, nullptr, nullptr);
    loaded.clear();
  }
  return loaded;
}

// The file's entry of a key wins over memory's, also an older one: the file
// is what every process agrees on, and a clock moved back makes "older" moot.
void TokenCache::MergeLoaded(const std::vector<TokenCacheEntry>& loaded) {
  for (const TokenCacheEntry& entry : loaded) Put(&entries_, entry);
}

bool TokenCache::ParseFile(std::string_view text, std::vector<TokenCacheEntry>* entries) {
  entries->clear();
  Json root = Json::parse(text.begin(), text.end(), nullptr, false);
  JsonDisposal<Json> dispose(&root);
  if (root.is_discarded() || !root.is_object()) return false;
  std::string format;
  const Json* version = Member(root, "version");
  const Json* list = Member(root, "entries");
  if (!ReadText(root, "format", &format) || format != kFormat || version == nullptr ||
      !version->is_number_integer() || version->get<long long>() != kVersion || list == nullptr ||
      !list->is_array()) {
    return false;
  }
  // A bad entry is skipped rather than the whole file refused: refusing would
  // let the next Store drop every good entry of the other accounts with it.
  for (const Json& item : *list) {
    TokenCacheEntry entry;
    if (ReadEntry(item, &entry)) entries->push_back(std::move(entry));
  }
  return true;
}

SecretString TokenCache::SerializeFile(const std::vector<TokenCacheEntry>& entries) {
  Json list = Json::array();
  JsonDisposal<Json> dispose_list(&list);
  for (const TokenCacheEntry& entry : entries) list.push_back(EntryToJson(entry));
  Json root = Json::object();
  JsonDisposal<Json> dispose_root(&root);
  root["format"] = kFormat;
  root["version"] = kVersion;
  root["entries"] = std::move(list);
  // A text that is not UTF-8 (a host's odd tenant name) gets U+FFFD rather
  // than an exception: such an entry is merely never found again.
  const WipedText text = root.dump(-1, ' ', false, Json::error_handler_t::replace);
  return SecretString(text.data(), text.size());
}

}  // namespace Auth
}  // namespace Vantrel
