#include "text/ascii_case.h"

#include <gtest/gtest.h>

namespace varnel {
namespace {

TEST(AsciiCase, FoldsTheLettersAToZOnly) {
  EXPECT_EQ(ascii::ToLower(L"\\\\?\\Volume{AZ[`\u00C4}"), L"\\\\?\\volume{az[`\u00C4}");
  EXPECT_TRUE(ascii::EqualIgnoringCase(L"TSL0001", L"tsl0001"));
  EXPECT_FALSE(ascii::EqualIgnoringCase(L"TSL0001", L"TSL00010"));
  EXPECT_FALSE(ascii::EqualIgnoringCase(L"\u00C4", L"\u00E4"));
  EXPECT_TRUE(ascii::EqualIgnoringCase(L"", L""));
}

}  // namespace
}  // namespace varnel
