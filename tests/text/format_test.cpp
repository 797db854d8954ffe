#include "text/format.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include "platform/win32.h"
#include "tests/support/foreign_text.h"

namespace varnel::test {
namespace {

std::wstring FormatVariadic(const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::wstring text = FormatWideV(format, arguments);
  va_end(arguments);
  return text;
}

TEST(Format, WritesNumbersAs32Bits) {
  EXPECT_EQ(FormatNarrow("%d %i %ld", {-1, 7, 0x80042301}), "-1 7 -2147212543");
  EXPECT_EQ(FormatNarrow("%u %lu", {-1, 5}), "4294967295 5");
  EXPECT_EQ(FormatNarrow("%x %X %lx", {0xABCD, 0xABCD, static_cast<HRESULT>(0x8004230F)}), "abcd ABCD 8004230f");
  EXPECT_EQ(FormatNarrow("%d", {0x1'0000'0001}), "1");
  EXPECT_EQ(FormatNarrow("%d", {std::int32_t{-2147483647 - 1}}), "-2147483648");
}

TEST(Format, FillsAFieldToItsWidth) {
  EXPECT_EQ(FormatNarrow("%08lx|%8x|%-8x|", {0x2A, 0x2A, 0x2A}), "0000002a|      2a|2a      |");
  EXPECT_EQ(FormatNarrow("%05d|%5d|%-5d|", {-42, -42, -42}), "-0042|  -42|-42  |");
  EXPECT_EQ(FormatNarrow("%.4d|%6.4d|", {42, 42}), "0042|  0042|");
  EXPECT_EQ(FormatNarrow("%5s|%-5s|%2s|", {"abc", "abc", "abc"}), "  abc|abc  |abc|");
  EXPECT_EQ(FormatWide(L"%5s|%-5s|", {L"abc", L"abc"}), L"  abc|abc  |");
}

TEST(Format, ReadsEveryDigitOfAWidth) {
  EXPECT_EQ(FormatNarrow("%12d|%-12d|%012x|", {42, 42, 0xABC}), "          42|42          |000000000abc|");
  EXPECT_EQ(FormatNarrow("%.10d|%.10s|", {42, "0123456789abc"}), "0000000042|0123456789|");
  EXPECT_EQ(FormatWide(L"%12s|%-10S|", {L"abc", "abc"}), L"         abc|abc       |");
}

TEST(Format, WritesHexadecimalWithItsPrefix) {
  EXPECT_EQ(FormatNarrow("0x%X 0x%08X", {0xC0FFEE, 0xABCDEF}), "0xC0FFEE 0x00ABCDEF");
  EXPECT_EQ(FormatNarrow("0x%x %#x %#X %#x", {255, 255, 255, 0}), "0xff 0xff 0XFF 0");
}

TEST(Format, CutsTextAtItsPrecision) {
  EXPECT_EQ(FormatNarrow("%.2s|%.9s|%.0s|", {"abc", "abc", "abc"}), "ab|abc||");
  EXPECT_EQ(FormatWide(L"%.2s|", {L"abc"}), L"ab|");
}

TEST(Format, WritesSingleCharacters) {
  EXPECT_EQ(FormatNarrow("%c%c", {'o', 'k'}), "ok");
  EXPECT_EQ(FormatWide(L"%c", {L'E'}), L"E");
}

TEST(Format, TakesEitherWidthOfTextInEitherFormat) {
  EXPECT_EQ(FormatWide(L"%s %S %ws %hs %ls", {L"a", "b", L"c", "d", L"e"}), L"a b c d e");
  EXPECT_EQ(FormatNarrow("%s %S %ws %hs %ls", {"a", L"b", L"c", "d", L"e"}), "a b c d e");
  EXPECT_EQ(FormatNarrow("%s", {L"wide where narrow was named"}), "wide where narrow was named");
}

TEST(Format, TakesEveryKindOfText) {
  const std::string narrow = "n";
  const std::wstring wide = L"w";
  EXPECT_EQ(FormatNarrow("%s%s%s%s%s%s",
                         {narrow, wide, narrow.c_str(), wide.c_str(), std::string_view("v"), std::wstring_view(L"V")}),
            "nwnwvV");
}

TEST(Format, GivesNullTextAsTheEmptyText) {
  const char* narrow = nullptr;
  const wchar_t* wide = nullptr;
  EXPECT_EQ(FormatNarrow("<%s|%S>", {narrow, wide}), "<|>");
  EXPECT_EQ(FormatWide(L"<%s|%S>", {wide, narrow}), L"<|>");
  EXPECT_EQ(FormatVariadic(L"<%s|%S>", wide, narrow), L"<|>");
}

TEST(Format, WritesAPercentSign) {
  EXPECT_EQ(FormatNarrow("100%% of %d%%", {5}), "100% of 5%");
}

TEST(Format, CopiesWhatIsNoConversion) {
  EXPECT_EQ(FormatNarrow("50% done, %q, %", {1}), "50% done, %q, %");
  EXPECT_EQ(FormatWide(L"%-08y|%", {1}), L"%-08y|%");
}

TEST(Format, LeavesNothingForAMissingArgumentAndIgnoresOneTooMany) {
  EXPECT_EQ(FormatNarrow("<%s|%d>", {"only"}), "<only|>");
  EXPECT_EQ(FormatNarrow("<%s>", {"a", "b"}), "<a>");
  EXPECT_EQ(FormatNarrow("none", {}), "none");
}

TEST(Format, BoundsTheWidthOfAField) {
  EXPECT_EQ(FormatNarrow("%99999999999999999999s", {"x"}).size(), 65536u);
}

TEST(Format, KeepsCharactersOutsideTheBasicPlane) {
  EXPECT_EQ(FormatWide(L"%S|%s", {kRocketUtf8, kRocket}), kRocket + L"|" + kRocket);
  EXPECT_EQ(FormatNarrow("%S|%s", {kRocket, kRocketUtf8}), kRocketUtf8 + "|" + kRocketUtf8);
}

TEST(Format, ReplacesWhatCannotBeConverted) {
  EXPECT_EQ(FormatWide(L"%S", {"a\xFFz"}), L"a" + kReplaced + L"z");
  EXPECT_EQ(FormatWide(L"%S", {"cut\xE2\x82"}), L"cut" + kReplaced + kReplaced);
  const std::wstring loneSurrogate = {L'a', static_cast<wchar_t>(0xD800), L'z'};
  EXPECT_EQ(FormatNarrow("%S", {loneSurrogate}), "a" + kReplacedUtf8 + "z");
}

TEST(Format, KeepsNulCharactersInsideText) {
  EXPECT_EQ(FormatWide(L"%s", {std::wstring_view(L"a\0b", 3)}), std::wstring(L"a\0b", 3));
}

TEST(Format, ReadsVariadicArgumentsByTheirConversions) {
  EXPECT_EQ(FormatVariadic(L"%s=%S %d %08lx %c%%", L"wide", "narrow", -3, 0x80042301u, L'!'),
            L"wide=narrow -3 80042301 !%");
  EXPECT_EQ(FormatVariadic(L"%ws %hs %ls", L"a", "b", L"c"), L"a b c");
  EXPECT_EQ(FormatVariadic(L"%lS %hS", L"wide", "narrow"), L"wide narrow");
  EXPECT_EQ(FormatVariadic(L"no arguments"), L"no arguments");
}

TEST(FormatFields, MayBeTenCharactersWideAndMore) {
  EXPECT_EQ(FormatWide(L"%10d|%-10d|%010d|%12x|", {-42, -42, -42, 0xABC}),
            L"       -42|-42       |-000000042|         abc|");
  EXPECT_EQ(FormatNarrow("%10s|%-12s|%20s|", {"abc", L"abc", "abc"}), "       abc|abc         |                 abc|");
  EXPECT_EQ(FormatNarrow("%.10d|%12.10d|%.11x|", {7, 7, 7}), "0000000007|  0000000007|00000000007|");
  EXPECT_EQ(FormatNarrow("%.10s|%.12s|", {"abcdefghijklmnop", L"abcdefghijklmnop"}), "abcdefghij|abcdefghijkl|");
  EXPECT_EQ(FormatWide(L"%100d", {1}), std::wstring(99, L' ') + L"1");
}

TEST(FormatFields, HexadecimalDigitsAreLettersOfTheConversionsCase) {
  EXPECT_EQ(FormatNarrow("0x%X 0x%x", {0xABCDEF09u, 0xABCDEF09u}), "0xABCDEF09 0xabcdef09");
  EXPECT_EQ(FormatWide(L"0x%08X|%#X|%#10x|%-10X|", {0xBEEF, 0xFADE, 0xFADE, 0xC0FFEE}),
            L"0x0000BEEF|0XFADE|    0xfade|C0FFEE    |");
  EXPECT_EQ(FormatVariadic(L"0x%X %lX", 0x8004230Fu, 0xAu), L"0x8004230F A");
}

TEST(FormatText, IsWideAfterAnLAndNarrowAfterAnHWhateverItsLetter) {
  EXPECT_EQ(FormatVariadic(L"%ls %lS %ws %wS", L"a", L"b", L"c", L"d"), L"a b c d");
  EXPECT_EQ(FormatVariadic(L"%hs %hS", "a", "b"), L"a b");
  EXPECT_EQ(FormatVariadic(L"%s %S", L"wide", "narrow"), L"wide narrow");
  EXPECT_EQ(FormatVariadic(L"%10lS|%-10lS|%.2lS|", L"abc", L"abc", L"abc"), L"       abc|abc       |ab|");
  EXPECT_EQ(FormatNarrow("%lS %ls %hS", {L"a", L"b", "c"}), "a b c");
}

}  // namespace
}  // namespace varnel::test
