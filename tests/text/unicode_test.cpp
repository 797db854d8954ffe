#include "text/unicode.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/support/foreign_text.h"

namespace varnel::test {
namespace {

TEST(Unicode, ConvertsBothWays) {
  const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC" + kRocketUtf8;
  const std::wstring wide = L"a\u00E9\u20AC" + kRocket;
  EXPECT_EQ(Utf8ToWide(utf8), wide);
  EXPECT_EQ(WideToUtf8(wide), utf8);
  EXPECT_EQ(Utf8ToWideLossy(utf8), wide);
  EXPECT_EQ(WideToUtf8Lossy(wide), utf8);
  EXPECT_EQ(Utf8ToWide(""), L"");
}

TEST(Unicode, KnowsTheLimitsOfEverySequenceLength) {
  for (const char32_t c : {0x0u, 0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xE000u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    std::wstring wide;
    if (sizeof(wchar_t) == 2 && c >= 0x10000) {
      wide = {static_cast<wchar_t>(0xD7C0 + (c >> 10)), static_cast<wchar_t>(0xDC00 + (c & 0x3FF))};
    } else {
      wide = {static_cast<wchar_t>(c)};
    }
    EXPECT_EQ(Utf8ToWide(WideToUtf8(wide)), wide) << std::hex << static_cast<unsigned>(c);
  }
}

TEST(Unicode, RefusesOrReplacesInvalidUtf8) {
  for (const char* text :
       {"\x80", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8", "\xC3", "\xE2\x82"}) {
    EXPECT_THROW(Utf8ToWide(text), std::range_error) << testing::PrintToString(std::string(text));
    const std::wstring replaced = Utf8ToWideLossy(text);
    EXPECT_EQ(replaced, std::wstring(replaced.size(), L'\uFFFD'));
    EXPECT_FALSE(replaced.empty());
  }
}

TEST(Unicode, GoesOnAfterInvalidUtf8) {
  EXPECT_EQ(Utf8ToWideLossy("a\xC3(b"), L"a\uFFFD(b");
}

TEST(Unicode, RefusesOrReplacesLoneSurrogates) {
  const std::wstring high = {L'a', static_cast<wchar_t>(0xD83D), L'b'};
  const std::wstring low = {static_cast<wchar_t>(0xDE80)};
  EXPECT_THROW(WideToUtf8(high), std::range_error);
  EXPECT_THROW(WideToUtf8(low), std::range_error);
  EXPECT_EQ(WideToUtf8Lossy(high), "a" + kReplacedUtf8 + "b");
  EXPECT_EQ(WideToUtf8Lossy(low), kReplacedUtf8);
}

TEST(Unicode, JoinsASurrogatePairOnEveryPlatform) {
  const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE80)};
  EXPECT_EQ(WideToUtf8(pair), kRocketUtf8);
}

}  // namespace
}  // namespace varnel::test
