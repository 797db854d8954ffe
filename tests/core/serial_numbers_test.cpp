// The set of serial numbers that components share.
#include "core/serial_numbers.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::wstring>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SerialNumbersTest, EachIsKeptOnceAndInOrder) {
  SerialNumbers numbers;
  EXPECT_TRUE(numbers.empty());
  for (const wchar_t* number : {L"TSL0002", L"TSL0001", L"TSL0002"}) numbers.insert(std::wstring(number));
  EXPECT_THAT(numbers, ElementsAre(L"TSL0001", L"TSL0002"));
  EXPECT_EQ(numbers.size(), 2U);
  EXPECT_FALSE(numbers.empty());
  EXPECT_TRUE(numbers.contains(L"TSL0001"));
  EXPECT_FALSE(numbers.contains(L"tsl0001"));
  numbers.clear();
  EXPECT_THAT(numbers, IsEmpty());
}

TEST(SerialNumbersTest, ACopySharesTheSetUntilOneOfThemChanges) {
  SerialNumbers first = {L"TSL0001"};
  SerialNumbers second = first;
  EXPECT_EQ(&first.Get(), &second.Get());
  second.insert(L"TSL0001");  // changes nothing
  EXPECT_EQ(&first.Get(), &second.Get());
  second.insert(L"TSL0002");
  EXPECT_THAT(first, ElementsAre(L"TSL0001"));
  EXPECT_THAT(second, ElementsAre(L"TSL0001", L"TSL0002"));
}

TEST(SerialNumbersTest, AnotherSetIsJoinedAndSharedWhereNothingElseIsHeld) {
  const SerialNumbers others = {L"TSL0002", L"TSL0003"};
  SerialNumbers numbers;
  numbers.insert(SerialNumbers());
  EXPECT_TRUE(numbers.empty());
  numbers.insert(others);
  EXPECT_EQ(&numbers.Get(), &others.Get());
  numbers.insert(others);
  EXPECT_EQ(&numbers.Get(), &others.Get());

  SerialNumbers one = {L"TSL0001"};
  one.insert(others);
  EXPECT_THAT(one, ElementsAre(L"TSL0001", L"TSL0002", L"TSL0003"));
  EXPECT_EQ(others.size(), 2U);
  one.insert(SerialNumbers());
  EXPECT_EQ(one.size(), 3U);
}

TEST(SerialNumbersTest, TheWholeOfWhatItHoldsDecidesEqualityAndOrder) {
  const SerialNumbers one = {L"TSL0001"};
  EXPECT_EQ(one, SerialNumbers({L"TSL0001"}));
  EXPECT_EQ(one, SerialNumbers::Set({L"TSL0001"}));
  EXPECT_NE(one, SerialNumbers({L"TSL0002"}));
  EXPECT_NE(one, SerialNumbers());
  EXPECT_EQ(SerialNumbers(SerialNumbers::Set()), SerialNumbers());

  const SerialNumbers::ByContent before;
  EXPECT_TRUE(before(one, Texts{L"TSL0001", L"TSL0002"}));
  EXPECT_FALSE(before(one, Texts{L"TSL0001"}));
  EXPECT_TRUE(before(Texts{}, one));
}

}  // namespace
