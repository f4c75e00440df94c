#include "ErrorDetail.h"

#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "AuthEngineConfig.h"

namespace Vantrel {
namespace Auth {
namespace {

// The first `capacity - 4` bytes, then the marker: what a cut text looks like.
std::string Cut(const std::string& text, size_t capacity) { return text.substr(0, capacity - 4) + "..."; }

TEST(ErrorDetailTest, CapacityIsAtLeastTheMarkerAndItsTerminator) {
  for (size_t requested : {0, 1, 3}) EXPECT_EQ(ErrorDetail(requested).Capacity(), 4u) << requested;
  EXPECT_EQ(ErrorDetail(4).Capacity(), 4u);
  EXPECT_EQ(ErrorDetail(AuthEngineConfig::GetDefaultBufferSize()).Capacity(), 256u);
}

TEST(ErrorDetailTest, StartsEmptyAndClearsToEmptyNotNull) {
  ErrorDetail detail(16);
  ASSERT_NE(detail.Get(), nullptr);
  EXPECT_STREQ(detail.Get(), "");
  detail.Set("something failed");
  detail.Clear();
  ASSERT_NE(detail.Get(), nullptr);
  EXPECT_STREQ(detail.Get(), "");
  detail.Set("x");
  detail.Set("");
  EXPECT_STREQ(detail.Get(), "");
}

TEST(ErrorDetailTest, SmallestCapacityBoundary) {
  ErrorDetail detail(4);
  detail.Set("abc");
  EXPECT_STREQ(detail.Get(), "abc");
  detail.Set("abcd");
  EXPECT_STREQ(detail.Get(), "...");
}

TEST(ErrorDetailTest, DefaultCapacityBoundary) {
  ErrorDetail detail(256);
  std::string fits(255, 'a');
  detail.Set(fits.c_str());
  EXPECT_EQ(detail.Get(), fits);

  std::string over = std::string(252, 'b') + "XYZW";  // 256 bytes
  detail.Set(over.c_str());
  EXPECT_EQ(std::strlen(detail.Get()), 255u);
  EXPECT_EQ(detail.Get(), Cut(over, 256));

  std::string far_over(10000, 'c');
  detail.Set(far_over.c_str());
  EXPECT_EQ(detail.Get(), Cut(far_over, 256));
}

TEST(ErrorDetailTest, EveryFormCutsAtTheSameBoundary) {
  const size_t capacity = 12;
  ErrorDetail detail(capacity);
  detail.Set("Curl error: ", "x");  // 14 bytes with its terminator
  EXPECT_STREQ(detail.Get(), "Curl err...");
  detail.Set("Curl e", "rror!");  // 12 bytes: fits exactly
  EXPECT_STREQ(detail.Get(), "Curl error!");
  detail.Set("HTTP ", 1234567);  // 13 bytes: the last digits are lost
  EXPECT_STREQ(detail.Get(), "HTTP 123...");
  detail.Set("HTTP ", 123456);  // 12 bytes: fits exactly
  EXPECT_STREQ(detail.Get(), "HTTP 123456");
}

TEST(ErrorDetailTest, NumberFormHandlesSignZeroAndExtremes) {
  ErrorDetail detail(256);
  detail.Set("code ", 0);
  EXPECT_STREQ(detail.Get(), "code 0");
  detail.Set("code ", -42);
  EXPECT_STREQ(detail.Get(), "code -42");
  detail.Set("", INT_MIN);
  EXPECT_STREQ(detail.Get(), "-2147483648");
  detail.Set("", INT_MAX);
  EXPECT_STREQ(detail.Get(), "2147483647");
  // The minus sign counts towards the size: exactly full, then one over.
  ErrorDetail tight(9);
  tight.Set("ab", -12345);
  EXPECT_STREQ(tight.Get(), "ab-12345");
  tight.Set("ab", -123456);
  EXPECT_STREQ(tight.Get(), "ab-12...");
}

TEST(ErrorDetailTest, TwoPartFormJoinsWithNothingBetween) {
  ErrorDetail detail(256);
  detail.Set("Failed: ", "timeout");
  EXPECT_STREQ(detail.Get(), "Failed: timeout");
  detail.Set("", "");
  EXPECT_STREQ(detail.Get(), "");
}

TEST(ErrorDetailTest, BufferNeverMovesOrGrows) {
  ErrorDetail detail(8);
  const char* buffer = detail.Get();
  detail.Set(std::string(100, 'x').c_str());
  detail.Set("p", std::string(100, 'y').c_str());
  detail.Set("p", INT_MIN);
  EXPECT_EQ(detail.Get(), buffer);
  EXPECT_EQ(std::strlen(detail.Get()), 7u);
}

TEST(ErrorDetailTest, TakesTextFromADetailIncludingItself) {
  ErrorDetail source(256);
  source.Set("transfer failed");
  ErrorDetail detail(8);
  detail.Set(source.Get());
  EXPECT_STREQ(detail.Get(), "tran...");
  detail.Set("ab");
  detail.Set(detail.Get());
  EXPECT_STREQ(detail.Get(), "ab");
  detail.Set("x", detail.Get());
  EXPECT_STREQ(detail.Get(), "xab");
}

TEST(ErrorDetailTest, NullArgumentsReadAsEmpty) {
  ErrorDetail detail(16);
  detail.Set(nullptr);
  EXPECT_STREQ(detail.Get(), "");
  detail.Set(nullptr, "b");
  EXPECT_STREQ(detail.Get(), "b");
  detail.Set("a", static_cast<const char*>(nullptr));
  EXPECT_STREQ(detail.Get(), "a");
  detail.Set(nullptr, 5);
  EXPECT_STREQ(detail.Get(), "5");
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
