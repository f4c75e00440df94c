#include "StringUtil.h"

#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace Vantrel {
namespace Auth {
namespace {

TEST(OwnedStringTest, FreeNullsTheHolderAndToleratesNull) {
  char* text = StrDup("abc");
  StrFree(&text);
  EXPECT_EQ(text, nullptr);
  StrFree(&text);
  EXPECT_EQ(text, nullptr);
}

TEST(OwnedStringTest, AssignTellsEmptyFromNull) {
  char* text = StrDup("old");
  StrAssign(&text, "");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  StrAssign(&text, nullptr);
  EXPECT_EQ(text, nullptr);
  StrAssign(&text, "new");
  EXPECT_STREQ(text, "new");
  StrFree(&text);
}

TEST(OwnedStringTest, AssignFromInsideItsOwnHolder) {
  // A host handing back what a getter gave it; the copy must be made first.
  char* text = StrDup("http://proxy:8080");
  StrAssign(&text, text + 7);
  EXPECT_STREQ(text, "proxy:8080");
  StrAssign(&text, text);
  EXPECT_STREQ(text, "proxy:8080");
  StrFree(&text);
}

// The buffer protocol, with guard bytes behind the declared size: a write past
// *size shows up as a changed guard.
struct CopyOutRow {
  const char* source;
  size_t size_in;
  const char* expected_text;  // null: the buffer must stay untouched
  size_t expected_size;
};

class CopyOutTest : public ::testing::TestWithParam<CopyOutRow> {};

TEST_P(CopyOutTest, FollowsTheBufferProtocol) {
  const CopyOutRow& row = GetParam();
  char buffer[32];
  std::memset(buffer, '#', sizeof(buffer));
  size_t size = row.size_in;
  CopyOut(buffer, &size, row.source);
  EXPECT_EQ(size, row.expected_size);
  if (row.expected_text == nullptr) {
    EXPECT_EQ(buffer[0], '#');
  } else {
    EXPECT_STREQ(buffer, row.expected_text);
  }
  for (size_t i = row.size_in; i < sizeof(buffer); ++i) {
    ASSERT_EQ(buffer[i], '#') << "byte " << i << " written past *size " << row.size_in;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CopyOutTest,
    ::testing::Values(CopyOutRow{nullptr, 0, nullptr, 0},  // null source, no room
                      CopyOutRow{nullptr, 10, "", 10},     // null source reads as empty
                      CopyOutRow{"ab", 3, "ab", 3},        // exact fit
                      CopyOutRow{"ab", 10, "ab", 10},      // size not reduced to needed
                      CopyOutRow{"ab", 2, "", 3},          // one short: emptied, size needed
                      CopyOutRow{"ab", 1, "", 3},
                      CopyOutRow{"ab", 0, nullptr, 3},     // query: nothing written
                      CopyOutRow{"", 1, "", 1},
                      CopyOutRow{"", 0, nullptr, 1}));

TEST(CopyOutTest, QueryWithNullBufferThenRetry) {
  const char* text = "Authentication failed";
  size_t size = 0;
  CopyOut(nullptr, &size, text);
  ASSERT_EQ(size, std::strlen(text) + 1);
  std::string buffer(size, '#');
  CopyOut(&buffer[0], &size, text);
  EXPECT_STREQ(buffer.c_str(), text);
}

TEST(CopyOutTest, NullBufferIsNeverWrittenWhateverTheSize) {
  size_t size = 10;
  CopyOut(nullptr, &size, "ab");
  EXPECT_EQ(size, 3u);
  size = 10;
  CopyOut(nullptr, &size, nullptr);
  EXPECT_EQ(size, 0u);
  CopyOut(nullptr, nullptr, "ab");  // nothing to honour, nothing done
}

TEST(DecimalTextTest, DigitCountIncludesTheSign) {
  EXPECT_EQ(DigitCount(0), 1u);
  EXPECT_EQ(DigitCount(9), 1u);
  EXPECT_EQ(DigitCount(10), 2u);
  EXPECT_EQ(DigitCount(-1), 2u);
  EXPECT_EQ(DigitCount(1000), 4u);
  EXPECT_EQ(DigitCount(-1000), 5u);
  EXPECT_EQ(DigitCount(INT_MAX), 10u);
  EXPECT_EQ(DigitCount(INT_MIN), 11u);
  EXPECT_EQ(DigitCount64(LLONG_MAX), 19u);
  EXPECT_EQ(DigitCount64(LLONG_MIN), 20u);
}

TEST(DecimalTextTest, IntToTextAgreesWithDigitCountAtTheExtremes) {
  for (int value : {0, 7, -12, 100, INT_MAX, INT_MIN}) {
    char* text = IntToText(value);
    EXPECT_EQ(std::string(text), std::to_string(value));
    EXPECT_EQ(std::strlen(text), DigitCount(value));
    StrFree(&text);
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
