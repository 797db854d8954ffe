// Shared text reads like the wide text that it replaced in the records.
#include "core/shared_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/print_text.h"

#include "core/writer_metadata.h"

namespace varnel::test {
namespace {

// Longer than what a std::wstring keeps in itself, so that sharing shows in the address.
const std::wstring kLong = L"\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\";

TEST(SharedTextTest, StartsEmpty) {
  const SharedText text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0u);
  EXPECT_EQ(text.Get(), L"");
  EXPECT_STREQ(text.c_str(), L"");
}

TEST(SharedTextTest, CopiesHaveTheSameCharacters) {
  const SharedText text = kLong;
  const SharedText copy = text;
  EXPECT_EQ(copy.c_str(), text.c_str());
  EXPECT_EQ(copy, kLong);
}

TEST(SharedTextTest, ACopyOutlivesWhatItWasCopiedFrom) {
  SharedText copy;
  {
    const SharedText text = kLong;
    copy = text;
  }
  EXPECT_EQ(copy, kLong);
}

TEST(SharedTextTest, AssigningOneCopyLeavesTheOthers) {
  const SharedText text = kLong;
  SharedText copy = text;
  copy = L"another";
  EXPECT_EQ(copy, L"another");
  EXPECT_EQ(text, kLong);
  SharedText cleared = text;
  cleared.clear();
  EXPECT_EQ(cleared, L"");
  EXPECT_EQ(text, kLong);
}

TEST(SharedTextTest, IsMadeOfEveryKindOfWideText) {
  EXPECT_EQ(SharedText(L"text"), L"text");
  EXPECT_EQ(SharedText(std::wstring(L"text")), L"text");
  EXPECT_EQ(SharedText(std::wstring_view(L"text and more").substr(0, 4)), L"text");
  EXPECT_EQ(SharedText(L""), SharedText());
  EXPECT_TRUE(SharedText(std::wstring()).empty());
}

TEST(SharedTextTest, ANulInsideIsACharacter) {
  const std::wstring inside(L"a\0b", 3);
  const SharedText text = inside;
  EXPECT_EQ(text.size(), 3u);
  EXPECT_EQ(text, inside);
  EXPECT_FALSE(text == L"a");
}

TEST(SharedTextTest, IsEqualByItsCharactersAndTheirCase) {
  const SharedText text = L"E:\\data";
  EXPECT_EQ(text, SharedText(L"E:\\data"));
  EXPECT_EQ(text, std::wstring(L"E:\\data"));
  EXPECT_EQ(text, std::wstring_view(L"E:\\data"));
  EXPECT_EQ(L"E:\\data", text);
  EXPECT_EQ(std::wstring(L"E:\\data"), text);
  EXPECT_NE(text, SharedText(L"e:\\data"));
  EXPECT_NE(text, L"E:\\dat");
  EXPECT_NE(text, SharedText());
}

TEST(SharedTextTest, PassesWhereWideTextIsWanted) {
  const SharedText text = kLong;
  const std::wstring copy = text;
  EXPECT_EQ(copy, kLong);
  const std::wstring& borrowed = text;
  EXPECT_EQ(borrowed.c_str(), text.c_str());
  const std::wstring_view view = text;
  EXPECT_EQ(view.data(), text.c_str());
  std::wstring assigned;
  assigned = text;
  EXPECT_EQ(assigned, kLong);
  std::vector<std::wstring> list;
  list.push_back(text);
  list.emplace_back(text);
  std::set<std::wstring> set;
  set.insert(text);
  EXPECT_THAT(list, testing::ElementsAre(kLong, kLong));
  EXPECT_TRUE(set.contains(text));
}

TEST(SharedTextTest, IsAppendedAndAppendedTo) {
  const SharedText text = L"b";
  const std::wstring a = L"a";
  EXPECT_EQ(a + text, L"ab");
  EXPECT_EQ(L"a" + text, L"ab");
  EXPECT_EQ(std::wstring(L"a") + text, L"ab");
  EXPECT_EQ(text + a, L"ba");
  EXPECT_EQ(text + L"a", L"ba");
  EXPECT_EQ(text + text, L"bb");
  EXPECT_EQ(text + SharedText() + L"c" + text, L"bcb");
}

TEST(SharedTextTest, IsSearchedLikeWideText) {
  const SharedText text = L"E:\\data\\";
  EXPECT_TRUE(text.starts_with(L"E:"));
  EXPECT_FALSE(text.starts_with(L'e'));
  EXPECT_TRUE(text.ends_with(L'\\'));
  EXPECT_TRUE(text.ends_with(SharedText(L"data\\")));
  EXPECT_FALSE(text.ends_with(L"E:\\data"));
  EXPECT_EQ(text.find(L'\\'), 2u);
  EXPECT_EQ(text.find(L"\\", 3), 7u);
  EXPECT_EQ(text.find(std::wstring(L"temp")), SharedText::npos);
  EXPECT_EQ(text.substr(3), L"data\\");
  EXPECT_EQ(text.substr(3, 4), L"data");
  EXPECT_EQ(text.front(), L'E');
  EXPECT_EQ(text.back(), L'\\');
  EXPECT_EQ(text[1], L':');
}

TEST(SharedTextTest, AFailedExpectationShowsTheText) {
  EXPECT_EQ(testing::PrintToString(SharedText(L"E:\\data")), testing::PrintToString(std::wstring(L"E:\\data")));
}

TEST(RecentTextsTest, EqualTextsShareABlockWhileTheyAreAmongTheLastTwo) {
  RecentTexts texts;
  const SharedText first = texts.Share(L"server");
  const SharedText second = texts.Share(L"server\\database");
  EXPECT_EQ(texts.Share(L"server").c_str(), first.c_str());
  EXPECT_EQ(texts.Share(L"server\\database").c_str(), second.c_str());
  EXPECT_EQ(texts.Share(L"another"), L"another");
  EXPECT_EQ(texts.Share(L"server\\database").c_str(), second.c_str());
  EXPECT_EQ(texts.Share(L"server"), L"server");
  EXPECT_EQ(texts.Share(L""), L"");
  EXPECT_EQ(texts.Share(L"server"), L"server");
}

}  // namespace
}  // namespace varnel::test
