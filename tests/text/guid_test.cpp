#include "text/guid.h"

#include <gtest/gtest.h>

#include <string_view>

#include "platform/win32.h"
#include "text/format.h"

namespace varnel {
namespace {

TEST(GuidText, IsLowerCaseHexadecimalInBraces) {
  constexpr GUID kId = ParseGuid<GUID>("{374579AD-285C-49B9-AB8A-950E0E252DE2}");
  EXPECT_EQ(kId.Data1, 0x374579ADu);
  EXPECT_EQ(kId.Data2, 0x285C);
  EXPECT_EQ(kId.Data3, 0x49B9);
  EXPECT_EQ(kId.Data4[0], 0xAB);
  EXPECT_EQ(kId.Data4[7], 0xE2);
  EXPECT_EQ(FormatGuid(kId), L"{374579ad-285c-49b9-ab8a-950e0e252de2}");
  EXPECT_EQ(FormatBareGuid(kId), L"374579ad-285c-49b9-ab8a-950e0e252de2");
  EXPECT_EQ(FormatGuid(GUID{}), L"{00000000-0000-0000-0000-000000000000}");
}

TEST(GuidText, IsReadInEitherWidthAndCase) {
  constexpr GUID kId = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
  EXPECT_EQ(TryParseGuid<GUID>(std::wstring_view(L"{374579AD-285c-49b9-AB8A-950e0e252de2}")), kId);
  EXPECT_EQ(TryParseGuid<GUID>(std::string_view("{374579AD-285c-49b9-AB8A-950e0e252de2}")), kId);
  EXPECT_EQ(TryParseBareGuid<GUID>(std::wstring_view(L"374579ad-285c-49b9-ab8a-950e0e252de2")), kId);
}

TEST(GuidText, IsNothingWhenMalformed) {
  for (const std::wstring_view text :
       {L"", L"{}", L"374579ad-285c-49b9-ab8a-950e0e252de2", L"{374579ad-285c-49b9-ab8a-950e0e252de2",
        L"{374579ad-285c-49b9-ab8a-950e0e252de}", L"{374579ag-285c-49b9-ab8a-950e0e252de2}",
        L"{374579ad0285c-49b9-ab8a-950e0e252de2}", L"{374579ad-285c-49b9-ab8a-950e0e252de2} ",
        L"(374579ad-285c-49b9-ab8a-950e0e252de2)"}) {
    EXPECT_FALSE(TryParseGuid<GUID>(text)) << FormatNarrow("%S", {text});
  }
  EXPECT_FALSE(TryParseBareGuid<GUID>(std::wstring_view(L"{374579ad-285c-49b9-ab8a-950e0e252de2}")));
}

}  // namespace
}  // namespace varnel
