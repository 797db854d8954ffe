// VarnelException: its code, its texts, and what() in every locale.
#include <clocale>
#include <limits>
#include <type_traits>

#include "tests/support/request_fixture.h"

#include "tests/support/foreign_text.h"

namespace varnel::test {
namespace {

// Text outside the basic plane, and text that no one-byte locale has.

class ScopedLocale {
 public:
  explicit ScopedLocale(const char* name)
      : previous_(std::setlocale(LC_ALL, nullptr)), installed_(std::setlocale(LC_ALL, name) != nullptr) {}
  ~ScopedLocale() { std::setlocale(LC_ALL, previous_.c_str()); }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;
  bool installed() const { return installed_; }

 private:
  std::string previous_;
  bool installed_;
};

TEST(VarnelExceptionTest, IsAStandardExceptionAndNoOtherOne) {
  static_assert(std::is_base_of_v<std::exception, VarnelException>);
  static_assert(std::has_virtual_destructor_v<VarnelException>);
  static_assert(!std::is_base_of_v<TesselCommonClasses::ExceptionCommon, VarnelException>);
  static_assert(std::is_copy_constructible_v<VarnelException>);
  EXPECT_THROW(throw VarnelException(602, L"wrong"), std::exception);
}

TEST(VarnelExceptionTest, TheDefaultOneIsEmpty) {
  const VarnelException exception;
  EXPECT_EQ(exception.GetAlertCode(), 0);
  EXPECT_EQ(exception.GetMessageText(), L"");
  EXPECT_THAT(exception.GetMessageList(), IsEmpty());
  EXPECT_STREQ(exception.what(), "Alert Code: 0");
}

TEST(VarnelExceptionTest, AMessageIsAlsoTheSingleEntryOfTheList) {
  const VarnelException exception(602, L"nothing to back up");
  EXPECT_EQ(exception.GetAlertCode(), 602);
  EXPECT_EQ(exception.GetMessageText(), L"nothing to back up");
  EXPECT_THAT(exception.GetMessageList(), ElementsAre(L"nothing to back up"));
}

TEST(VarnelExceptionTest, AnEmptyMessageIsAnEntryOfTheListToo) {
  EXPECT_THAT(VarnelException(603, L"").GetMessageList(), ElementsAre(L""));
}

TEST(VarnelExceptionTest, AListIsTakenAsItIs) {
  const std::vector<std::wstring> list = {L"db1", L"", L"db2"};
  const VarnelException exception(601, L"partly", list);
  EXPECT_EQ(exception.GetAlertCode(), 601);
  EXPECT_EQ(exception.GetMessageText(), L"partly");
  EXPECT_EQ(exception.GetMessageList(), list);
  EXPECT_THAT(VarnelException(600, L"all", {}).GetMessageList(), IsEmpty());
}

TEST(VarnelExceptionTest, ACopyHasEverythingAndOutlivesTheOriginal) {
  auto original = std::make_unique<VarnelException>(600, L"failed", std::vector<std::wstring>{L"a", L"b"});
  ASSERT_STREQ(original->what(), "failed");
  const VarnelException copy(*original);
  VarnelException assigned;
  assigned = *original;
  original.reset();
  for (const VarnelException* exception : {&copy, static_cast<const VarnelException*>(&assigned)}) {
    EXPECT_EQ(exception->GetAlertCode(), 600);
    EXPECT_EQ(exception->GetMessageText(), L"failed");
    EXPECT_THAT(exception->GetMessageList(), ElementsAre(L"a", L"b"));
    EXPECT_STREQ(exception->what(), "failed");
  }
}

TEST(VarnelExceptionTest, WithoutAMessageWhatNamesTheAlertCode) {
  EXPECT_STREQ(VarnelException(600, L"").what(), "Alert Code: 600");
  EXPECT_STREQ(VarnelException(600, L"", {L"an entry is no message"}).what(), "Alert Code: 600");
  EXPECT_STREQ(VarnelException(-1, L"").what(), "Alert Code: -1");
  EXPECT_STREQ(VarnelException(std::numeric_limits<int>::min(), L"").what(), "Alert Code: -2147483648");
}

TEST(VarnelExceptionTest, WithAMessageWhatIsItsNarrowForm) {
  EXPECT_STREQ(VarnelException(600, L"Writer failed: 100% \n").what(), "Writer failed: 100% \n");
  EXPECT_EQ(VarnelException(600, std::wstring(5000, L'x')).what(), std::string(5000, 'x'));
}

TEST(VarnelExceptionTest, WhatIsCaughtThroughTheBaseClass) {
  try {
    throw VarnelException(601, L"got through");
  } catch (const std::exception& exception) {
    EXPECT_STREQ(exception.what(), "got through");
  }
}

TEST(VarnelExceptionTest, WhatGivesTextThatTheLocaleCannotExpressInUtf8) {
  const ScopedLocale locale("C");
  EXPECT_EQ(VarnelException(600, L"db " + kForeign + L" failed").what(), "db " + kForeignUtf8 + " failed");
}

TEST(VarnelExceptionTest, WhatReplacesHalfASurrogatePair) {
  const ScopedLocale locale("C");
  const std::wstring broken = {L'a', static_cast<wchar_t>(0xD800), L'b'};
  EXPECT_STREQ(VarnelException(600, broken).what(),
               "a\xEF\xBF\xBD"
               "b");
}

TEST(VarnelExceptionTest, WhatIsBuiltOnEachCallInTheLocaleOfThatCall) {
  const VarnelException exception(600, L"5 \u20AC");
  {
    const ScopedLocale plain("C");
    EXPECT_STREQ(exception.what(), "5 \xE2\x82\xAC");
  }
  {
    const ScopedLocale western(".1252");
    EXPECT_STREQ(exception.what(), western.installed() ? "5 \x80" : "5 \xE2\x82\xAC");
  }
  const ScopedLocale utf8("C.UTF-8");
  EXPECT_STREQ(exception.what(), "5 \xE2\x82\xAC");
}

}  // namespace
}  // namespace varnel::test
