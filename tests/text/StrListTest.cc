#include "StrList.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Vantrel {
namespace Auth {
namespace {

std::vector<std::string> Texts(const StrList* list) {
  std::vector<std::string> texts;
  for (; list != nullptr; list = list->next) texts.push_back(list->str ? list->str : "<null>");
  return texts;
}

TEST(StrListTest, AppendPutsTheNewestFirst) {
  StrList* list = StrList::Append(nullptr, "first");
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->next, nullptr);
  list = StrList::Append(list, "second");
  list = StrList::Append(list, "third");
  EXPECT_EQ(Texts(list), (std::vector<std::string>{"third", "second", "first"}));
  StrList::Free(list);
}

TEST(StrListTest, AppendCopiesTheText) {
  char text[] = "mutable";
  StrList* list = StrList::Append(nullptr, text);
  text[0] = 'X';
  EXPECT_STREQ(list->str, "mutable");
  StrList::Free(list);
}

TEST(StrListTest, NullTextMakesANodeThatFreePassesOver) {
  StrList* list = StrList::Append(StrList::Append(nullptr, "a"), nullptr);
  EXPECT_EQ(list->str, nullptr);
  EXPECT_EQ(Texts(list), (std::vector<std::string>{"<null>", "a"}));
  StrList::Free(list);
  StrList::Free(nullptr);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel
