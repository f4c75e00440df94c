#include "Logger.h"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AllocationCounter.h"
#include "LogRecorder.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::AllocationCounter;
using testing::LogRecorder;

void LogFormat5(VantrelAuthLogLevel level, const char* format, const char* a1 = nullptr,
                const char* a2 = nullptr, const char* a3 = nullptr, const char* a4 = nullptr,
                const char* a5 = nullptr) {
  Logger::LogFormat(level, format, a1, a2, a3, a4, a5);
}

// The filter: a callback, a level other than 0, and the message's level at
// most the logger's, compared as signed numbers.
TEST(LoggerTest, FilterByLevel) {
  struct Row {
    int logger_level;
    int message_level;
    bool passes;
  } rows[] = {
      {0, 1, false}, {0, 0, false}, {1, 1, true},  {1, 2, false}, {2, 1, true},
      {2, 2, true},  {7, 2, true},  {7, 7, true},  {1, -1, true}, {-1, -2, true},
      {-1, 1, false},
  };
  for (const Row& row : rows) {
    LogRecorder recorder(static_cast<VantrelAuthLogLevel>(row.logger_level));
    Logger::Log(static_cast<VantrelAuthLogLevel>(row.message_level), "plain");
    LogFormat5(static_cast<VantrelAuthLogLevel>(row.message_level), "formatted %s", "x");
    size_t expected = row.passes ? 2 : 0;
    EXPECT_EQ(LogRecorder::Entries().size(), expected)
        << "logger " << row.logger_level << ", message " << row.message_level;
  }
}

TEST(LoggerTest, CallbackGetsTheMessagesOwnLevel) {
  LogRecorder recorder(kLogLevelDebug);
  Logger::Log(kLogLevelInfo, "entry");
  LogFormat5(kLogLevelDebug, "step %s", "1");
  ASSERT_EQ(LogRecorder::Entries().size(), 2u);
  EXPECT_EQ(LogRecorder::Entries()[0].first, kLogLevelInfo);
  EXPECT_EQ(LogRecorder::Entries()[1].first, kLogLevelDebug);
}

TEST(LoggerTest, NoCallbackMeansNoLogging) {
  LogRecorder recorder(kLogLevelDebug);
  Logger::GetInstance()->SetCallback(nullptr);
  Logger::Log(kLogLevelInfo, "dropped");
  LogFormat5(kLogLevelInfo, "dropped %s", "too");
  Logger::GetInstance()->SetCallback(&LogRecorder::Record);
  EXPECT_TRUE(LogRecorder::Entries().empty());
}

TEST(LoggerTest, DroppedMessagesCostNoAllocation) {
  const char* widest = "%s - Cookie Expiry: %s, HttpOnly: %s, TailMatch: %s, Secure: %s";
  {
    LogRecorder recorder(kLogLevelOff);
    AllocationCounter counter;
    LogFormat5(kLogLevelInfo, widest, "a", "b", "c", "d", "e");
    Logger::Log(kLogLevelInfo, "x");
    EXPECT_EQ(counter.Count(), 0);
  }
  {
    LogRecorder recorder(kLogLevelInfo);
    AllocationCounter counter;
    LogFormat5(kLogLevelDebug, widest, "a", "b", "c", "d", "e");
    EXPECT_EQ(counter.Count(), 0);
  }
  {
    LogRecorder recorder(kLogLevelDebug);
    Logger::GetInstance()->SetCallback(nullptr);
    AllocationCounter counter;
    LogFormat5(kLogLevelInfo, widest, "a", "b", "c", "d", "e");
    EXPECT_EQ(counter.Count(), 0);
  }
  {
    // The counter sees the logger's allocations: a message that passes costs
    // two, and the recorder's copy of it one more.
    LogRecorder recorder(kLogLevelDebug);
    LogRecorder::Entries().reserve(4);
    AllocationCounter counter;
    LogFormat5(kLogLevelInfo, widest, "a", "b", "c", "d", "e");
    EXPECT_EQ(counter.Count(), 3);
  }
}

TEST(LoggerTest, FiveArgumentsFillTheWidestFormatExactly) {
  LogRecorder recorder(kLogLevelDebug);
  const char* format = "%s - Cookie Expiry: %s, HttpOnly: %s, TailMatch: %s, Secure: %s";
  // Long arguments, so that a buffer sized from the format alone would overflow.
  std::string name(300, 'n');
  std::string expiry = "Thu Jan  1 00:00:00 1970\n";
  LogFormat5(kLogLevelDebug, format, name.c_str(), expiry.c_str(), "Y", "N", "Y");
  char expected[1024];
  std::snprintf(expected, sizeof(expected), format, name.c_str(), expiry.c_str(), "Y", "N", "Y");
  ASSERT_EQ(LogRecorder::Texts(), std::vector<std::string>{expected});
}

TEST(LoggerTest, ArgumentsFillInOrderAndNullPrintsAsNothing) {
  LogRecorder recorder(kLogLevelDebug);
  LogFormat5(kLogLevelInfo, "AuthEngineConfig::SetProxy(%s)");
  LogFormat5(kLogLevelInfo, "%s|%s|%s|%s|%s", "1", nullptr, "3", nullptr, "5");
  LogFormat5(kLogLevelInfo, "%s%s%s%s%s");
  EXPECT_EQ(LogRecorder::Texts(),
            (std::vector<std::string>{"AuthEngineConfig::SetProxy()", "1||3||5", ""}));
}

TEST(LoggerTest, NullOrEmptyFormatCallsNothing) {
  LogRecorder recorder(kLogLevelDebug);
  LogFormat5(kLogLevelInfo, nullptr, "a");
  LogFormat5(kLogLevelInfo, "", "a");
  EXPECT_TRUE(LogRecorder::Entries().empty());
}

TEST(LoggerTest, PercentSignsPassThrough) {
  LogRecorder recorder(kLogLevelDebug);
  Logger::Log(kLogLevelInfo, "100% %s %d %n");
  LogFormat5(kLogLevelInfo, "value: %s", "%s%d%n%%");
  LogFormat5(kLogLevelInfo, "%s%%", "50");
  EXPECT_EQ(LogRecorder::Texts(),
            (std::vector<std::string>{"100% %s %d %n", "value: %s%d%n%%", "50%"}));
}

TEST(LoggerTest, FormatBreakingThePlaceholderRuleGoesOutUnformatted) {
  LogRecorder recorder(kLogLevelDebug);
  LogFormat5(kLogLevelInfo, "count %d of %s", "a", "b");
  LogFormat5(kLogLevelInfo, "%s%s%s%s%s%s", "1", "2", "3", "4", "5");
  LogFormat5(kLogLevelInfo, "trailing %", "a");
  EXPECT_EQ(LogRecorder::Texts(),
            (std::vector<std::string>{"count %d of %s", "%s%s%s%s%s%s", "trailing %"}));
}

TEST(LoggerTest, NullTextIsNotHandedOn) {
  LogRecorder recorder(kLogLevelDebug);
  Logger::Log(kLogLevelInfo, nullptr);
  EXPECT_TRUE(LogRecorder::Entries().empty());
}

// The formatted text is the library's and is gone once the callback returns.
const char* kept_pointer = nullptr;
void KeepPointer(VantrelAuthLogLevel, const char* message) { kept_pointer = message; }

TEST(LoggerTest, PlainTextIsTheCallersOwnPointer) {
  LogRecorder recorder(kLogLevelDebug);
  Logger::GetInstance()->SetCallback(&KeepPointer);
  const char* text = "as given";
  Logger::Log(kLogLevelInfo, text);
  EXPECT_EQ(kept_pointer, text);
  LogFormat5(kLogLevelInfo, "%s", text);
  EXPECT_NE(kept_pointer, text);  // a buffer of the logger's, already freed
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
