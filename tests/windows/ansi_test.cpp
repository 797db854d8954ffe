// Text in the thread's code page and in code pages at all.
#include <gtest/gtest.h>

#include <string>

#include "platform/ansi.h"
#include "platform/windows/code_page.h"
#include "text/unicode.h"

namespace varnel {
namespace {

std::string InUtf8(std::wstring_view text) {
  return WideToUtf8(text);
}

class ThreadLocale {
 public:
  ThreadLocale(WORD language, WORD sublanguage) : before_(::GetThreadLocale()) {
    EXPECT_TRUE(::SetThreadLocale(MAKELCID(MAKELANGID(language, sublanguage), SORT_DEFAULT)));
  }
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;
  ~ThreadLocale() { ::SetThreadLocale(before_); }

 private:
  LCID before_;
};

TEST(MachineText, IsConvertedInTheCodePageOfTheThread) {
  {
    const ThreadLocale russian(LANG_RUSSIAN, SUBLANG_DEFAULT);
    EXPECT_EQ(AnsiToWide("\xC0\xE0"), L"\u0410\u0430");
    EXPECT_EQ(WideToAnsi(L"\u0410\u0430"), "\xC0\xE0");
  }
  const ThreadLocale english(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  EXPECT_EQ(AnsiToWide("\xC0\xE0"), L"\u00C0\u00E0");
}

TEST(MachineText, OfAnotherAlphabetIsGivenWholeInUtf8) {
  const ThreadLocale english(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  EXPECT_EQ(WideToAnsi(L"C:\\Donn\u00e9es\\"),
            "C:\\Donn\xE9"
            "es\\");
  EXPECT_EQ(AnsiToWide(WideToAnsi(L"C:\\Donn\u00e9es\\")), L"C:\\Donn\u00e9es\\");
  for (const wchar_t* text : {L"C:\\\u0414\u0430\u043d\u043d\u044b\u0435\\", L"\u00e9\u0416", L"a\U0001F680z"}) {
    EXPECT_EQ(WideToAnsi(text), InUtf8(text));
  }
}

TEST(MachineText, HasNoCharacterReplacedByOneThatLooksLikeIt) {
  const ThreadLocale english(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  for (const wchar_t* text : {L"\u0100", L"C:\uFF3Cx", L"\u2215", L"\uFF0C"}) EXPECT_EQ(WideToAnsi(text), InUtf8(text));
}

TEST(MachineText, IsItsCodePagesWhereThatHasTwoBytesForACharacter) {
  const ThreadLocale japanese(LANG_JAPANESE, SUBLANG_DEFAULT);
  EXPECT_EQ(WideToAnsi(L"E:\\\u8868"), "E:\\\x95\\");
  EXPECT_EQ(AnsiToWide("E:\\\x95\\"), L"E:\\\u8868");
  EXPECT_EQ(WideToAnsi(L"\u00a5"), InUtf8(L"\u00a5"));  // no backslash
}

TEST(MachineText, OfALanguageWithoutACodePageIsNotLost) {
  const ThreadLocale hindi(LANG_HINDI, SUBLANG_DEFAULT);
  EXPECT_EQ(WideToAnsi(L"E:\\\u0939\u093f"), InUtf8(L"E:\\\u0939\u093f"));
}

TEST(MachineText, IsConvertedToEveryCodePageThatTheSystemHasAndElseToUtf8) {
  const std::wstring text = L"C:\\Donn\u00e9es\\\u0416\U0001F680";
  EXPECT_EQ(windows::WideToCodePage(CP_UTF8, text), InUtf8(text));
  EXPECT_EQ(windows::CodePageToWide(CP_UTF8, InUtf8(text)), text);
  EXPECT_EQ(windows::WideToCodePage(CP_UTF8, L"a\xD800z"), "a\xEF\xBF\xBDz");
  EXPECT_EQ(windows::WideToCodePage(1252, text), InUtf8(text));
  EXPECT_EQ(windows::WideToCodePage(1251, L"\u0416"), "\xC6");
  constexpr UINT kNoCodePage = 12345;
  EXPECT_EQ(windows::WideToCodePage(kNoCodePage, text), InUtf8(text));
  EXPECT_EQ(windows::CodePageToWide(kNoCodePage, InUtf8(text)), text);
  EXPECT_EQ(windows::WideToCodePage(kNoCodePage, L""), "");
}

}  // namespace
}  // namespace varnel
