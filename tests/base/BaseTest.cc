// The base layer: the logger, the error detail and the global settings.
#include <climits>
#include <cstdlib>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "VantrelAuthEngine.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"

// Counts this thread's global allocations while `allocations` is not negative.
namespace {
thread_local int allocations = -1;
void* Counted(std::size_t size) {
  if (allocations >= 0) ++allocations;
  if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
}  // namespace
void* operator new(std::size_t size) { return Counted(size); }
void* operator new[](std::size_t size) { return Counted(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace Vantrel::Auth {
namespace {

using Entries = std::vector<std::pair<VantrelAuthLogLevel, std::string>>;
Entries entries;
void Record(VantrelAuthLogLevel level, const char* message) { entries.emplace_back(level, message); }
void Ignore(VantrelAuthLogLevel, const char*) {}

class BaseTest : public ::testing::Test {
 protected:
  void TearDown() override {
    Listen(kLogLevelOff, nullptr);
    AuthEngineConfig::SetProxy(nullptr);
    AuthEngineConfig::SetTempLogDir(nullptr);
  }
  // Installs the recorder, then the level, without logging either change.
  static void Listen(VantrelAuthLogLevel level, VantrelAuthLogCallback callback = &Record) {
    Logger::GetInstance()->SetLogLevel(kLogLevelOff);
    Logger::GetInstance()->SetCallback(callback);
    Logger::GetInstance()->SetLogLevel(level);
    entries.clear();
  }
  static std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const auto& entry : entries) texts.push_back(entry.second);
    return texts;
  }
};

void Format(VantrelAuthLogLevel level, const char* format, const char* a1 = nullptr, const char* a2 = nullptr,
            const char* a3 = nullptr, const char* a4 = nullptr, const char* a5 = nullptr) {
  Logger::LogFormat(level, format, a1, a2, a3, a4, a5);
}
const char* kWidest = "%s - Cookie Expiry: %s, HttpOnly: %s, TailMatch: %s, Secure: %s";

// A callback, a level other than 0, and the message's level at most it (signed).
TEST_F(BaseTest, LoggerFilter) {
  struct { int logger, message; bool passes; } rows[] = {{0, 1, false}, {0, 0, false}, {1, 1, true},
      {1, 2, false}, {2, 1, true}, {7, 7, true}, {1, -1, true}, {-1, -2, true}, {-1, 1, false}};
  for (const auto& row : rows) {
    Listen(static_cast<VantrelAuthLogLevel>(row.logger));
    auto level = static_cast<VantrelAuthLogLevel>(row.message);
    Logger::Log(level, "plain");
    Format(level, "formatted %s", "x");
    EXPECT_EQ(entries, row.passes ? (Entries{{level, "plain"}, {level, "formatted x"}}) : Entries{})
        << row.logger << " " << row.message;
  }
}

TEST_F(BaseTest, LoggerFormatting) {
  Listen(kLogLevelDebug);
  std::string name(300, 'n');  // a buffer sized from the format alone would overflow
  Format(kLogLevelDebug, kWidest, name.c_str(), "Thu Jan  1 00:00:00 1970\n", "Y", "N", "Y");
  const std::string widest = name + " - Cookie Expiry: Thu Jan  1 00:00:00 1970\n, HttpOnly: Y, TailMatch: N, Secure: Y";
  Format(kLogLevelInfo, "%s|%s|%s|%s|%s", "1", nullptr, "3", nullptr, "5");
  Format(kLogLevelInfo, nullptr, "a");
  Format(kLogLevelInfo, "", "a");
  Logger::Log(kLogLevelInfo, nullptr);
  Logger::Log(kLogLevelInfo, "100% %s %d %n");
  Format(kLogLevelInfo, "value: %s", "%s%d%n%%");
  Format(kLogLevelInfo, "%s%%", "50");
  // A format breaking the placeholder rule goes out unformatted.
  Format(kLogLevelInfo, "count %d of %s", "a", "b");
  Format(kLogLevelInfo, "%s%s%s%s%s%s", "1", "2", "3", "4", "5");
  Format(kLogLevelInfo, "trailing %", "a");
  EXPECT_EQ(Texts(), (std::vector<std::string>{widest, "1||3||5", "100% %s %d %n", "value: %s%d%n%%",
                                               "50%", "count %d of %s", "%s%s%s%s%s%s", "trailing %"}));
}

// The filter stands before all work; a message that passes costs two.
TEST_F(BaseTest, LoggerAllocatesOnlyForMessagesThatPass) {
  struct { VantrelAuthLogLevel logger; VantrelAuthLogCallback callback; int expected; } rows[] = {
      {kLogLevelOff, &Ignore, 0}, {kLogLevelInfo, &Ignore, 0}, {kLogLevelDebug, nullptr, 0}, {kLogLevelDebug, &Ignore, 2}};
  for (const auto& row : rows) {
    Listen(row.logger, row.callback);
    Logger::Log(kLogLevelDebug, "plain");  // no callback: not called
    allocations = 0;
    Format(kLogLevelDebug, kWidest, "a", "b", "c", "d", "e");
    EXPECT_EQ(std::exchange(allocations, -1), row.expected) << row.logger;
  }
}

template <typename... Text>
std::string After(ErrorDetail* detail, Text... text) { return detail->Set(text...), detail->Get(); }

// Every form cuts at one boundary and marks it; a minus counts; null is empty.
TEST_F(BaseTest, ErrorDetailCutsAtTheCapacity) {
  for (size_t requested : {0, 3, 4}) EXPECT_EQ(ErrorDetail(requested).Capacity(), 4u) << requested;
  ErrorDetail four(4), detail(256), twelve(12);
  const char* buffer = detail.Get();
  const std::pair<std::string, std::string> rows[] = {
      {After(&four, "abc"), "abc"}, {After(&four, "abcd"), "..."},
      {After(&detail, std::string(255, 'a').c_str()), std::string(255, 'a')},
      {After(&detail, (std::string(252, 'b') + "XYZW").c_str()), std::string(252, 'b') + "..."},
      {After(&detail, "p", std::string(10000, 'c').c_str()), "p" + std::string(251, 'c') + "..."},
      {After(&detail, "", INT_MIN), "-2147483648"},
      {After(&twelve, "Curl error: ", "x"), "Curl err..."}, {After(&twelve, "Curl e", "rror!"), "Curl error!"},
      {After(&twelve, "HTTP ", 1234567), "HTTP 123..."}, {After(&twelve, "HTTP ", 123456), "HTTP 123456"},
      {After(&twelve, "HTTP ", -1234567), "HTTP -12..."}, {After(&twelve, "HTTP ", -12345), "HTTP -12345"},
      {After(&twelve, nullptr, "b"), "b"}, {After(&twelve, "a", static_cast<const char*>(nullptr)), "a"},
      {After(&twelve, nullptr, 5), "5"}, {After(&twelve, "x", twelve.Get()), "x5"}, {After(&twelve, twelve.Get()), "x5"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.first, row.second);
  EXPECT_EQ(detail.Get(), buffer);  // never moves or grows
  detail.Clear();
  EXPECT_STREQ(detail.Get(), "");
}

// Setters copy; "" empties the proxy, not the directory. A change of level is
// logged under the old level, a change of callback to the old callback.
TEST_F(BaseTest, ConfigurationSettersCopyAndLog) {
  std::string proxy = "http://user:pw@proxy:3128";
  AuthEngineConfig::SetProxy(proxy.c_str());
  proxy[0] = 'X';
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "http://user:pw@proxy:3128");
  AuthEngineConfig::SetProxy(AuthEngineConfig::GetProxy() + 7);  // a getter's pointer handed back
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "user:pw@proxy:3128");
  AuthEngineConfig::SetProxy("");
  EXPECT_EQ(AuthEngineConfig::GetProxy(), nullptr);
  AuthEngineConfig::SetTempLogDir("");
  ASSERT_NE(AuthEngineConfig::GetTempLogDir(), nullptr);
  AuthEngineConfig::SetTempLogDir(nullptr);
  EXPECT_EQ(AuthEngineConfig::GetTempLogDir(), nullptr);
  Listen(kLogLevelOff);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);  // from 0: silent
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetLogLevel(static_cast<VantrelAuthLogLevel>(-3));  // nothing passes ...
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);                        // ... so this is silent
  AuthEngineConfig::SetLogLevel(kLogLevelOff);                         // down to 0: still logged
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetLoggerCallback(&Ignore);
  AuthEngineConfig::SetLoggerCallback(&Record);  // Ignore hears this one
  AuthEngineConfig::SetLoggerCallback(nullptr);
  AuthEngineConfig::SetProxy("p");
  EXPECT_EQ(Texts(), (std::vector<std::string>{"AuthEngineConfig::SetLogLevel(1)", "AuthEngineConfig::SetLogLevel(-3)",
                                               "AuthEngineConfig::SetLogLevel(0)",
                                               "AuthEngineConfig::SetLoggerCallback(...)",
                                               "AuthEngineConfig::SetLoggerCallback(...)"}));
}

// None by default; below 0 is none too, and what libcurl can't take is capped.
// Like the proxy, the values outlive GlobalCleanup.
TEST_F(BaseTest, TimeOutsTakeTheirValuesAndOutliveGlobalCleanup) {
  auto both = [] { return std::make_pair(AuthEngineConfig::GetConnectTimeout(), AuthEngineConfig::GetRequestTimeout()); };
  EXPECT_EQ(both(), std::make_pair(0L, 0L));
  Listen(kLogLevelInfo);
  for (auto [given, taken] : {std::pair{7L, 7L}, {0L, 0L}, {-5L, 0L}, {LONG_MAX, 2147483L}}) {
    AuthEngineConfig::SetConnectTimeout(given);
    AuthEngineConfig::SetRequestTimeout(given);
    EXPECT_EQ(both(), std::make_pair(taken, taken)) << given;
  }
  EXPECT_EQ(Texts().at(4), "AuthEngineConfig::SetConnectTimeout(-5)");
  EXPECT_EQ(Texts().at(5), "AuthEngineConfig::SetRequestTimeout(-5)");
  ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(both(), std::make_pair(2147483L, 2147483L));
  AuthEngineConfig::SetConnectTimeout(0);
  AuthEngineConfig::SetRequestTimeout(0);
}

}  // namespace
}  // namespace Vantrel::Auth
