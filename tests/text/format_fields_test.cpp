// The formatter's fields and conversions in every combination that a log line may hold.
#include "text/format.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

namespace varnel::test {
namespace {

std::wstring Variadic(const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::wstring text = FormatWideV(format, arguments);
  va_end(arguments);
  return text;
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
  EXPECT_EQ(Variadic(L"0x%X %lX", 0x8004230Fu, 0xAu), L"0x8004230F A");
}

TEST(FormatText, IsWideAfterAnLAndNarrowAfterAnHWhateverItsLetter) {
  EXPECT_EQ(Variadic(L"%ls %lS %ws %wS", L"a", L"b", L"c", L"d"), L"a b c d");
  EXPECT_EQ(Variadic(L"%hs %hS", "a", "b"), L"a b");
  EXPECT_EQ(Variadic(L"%s %S", L"wide", "narrow"), L"wide narrow");
  EXPECT_EQ(Variadic(L"%10lS|%-10lS|%.2lS|", L"abc", L"abc", L"abc"), L"       abc|abc       |ab|");
  EXPECT_EQ(FormatNarrow("%lS %ls %hS", {L"a", L"b", "c"}), "a b c");
}

}  // namespace
}  // namespace varnel::test
