// Failures: the exception, the names and texts of results, the message catalog, the alert records and the reports of
// failed calls.
#include "core/errors.h"

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "core/logging.h"
#include "resources/catalog.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::SizeIs;
using testing::StartsWith;

constexpr HRESULT kUnnamed = static_cast<HRESULT>(0x80042305);

// Text outside the basic plane, and text that no one-byte locale has.
const std::wstring kForeign = L"\u0416\u65E5\U0001F680";
const std::string kForeignUtf8 = "\xD0\x96\xE6\x97\xA5\xF0\x9F\x9A\x80";

class ScopedLocale {
 public:
  explicit ScopedLocale(const char* name) : previous_(std::setlocale(LC_ALL, nullptr)) {
    installed_ = std::setlocale(LC_ALL, name) != nullptr;
  }
  ~ScopedLocale() { std::setlocale(LC_ALL, previous_.c_str()); }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;
  bool installed() const { return installed_; }

 private:
  std::string previous_;
  bool installed_ = false;
};

// ---- VarnelException ----

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

// ---- Names of results ----

struct NamedResult {
  std::uint32_t value;
  const wchar_t* name;
};

constexpr NamedResult kNamedResults[] = {
    {0x00000000, L"S_OK"},
    {0x00000001, L"S_FALSE"},
    {0x00042309, L"VSS_S_ASYNC_PENDING"},
    {0x0004230A, L"VSS_S_ASYNC_FINISHED"},
    {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
    {0x00042321, L"VSS_S_SOME_SNAPSHOTS_NOT_IMPORTED"},
    {0x8000FFFF, L"E_UNEXPECTED"},
    {0x8007000E, L"E_OUTOFMEMORY"},
    {0x80042301, L"VSS_E_BAD_STATE"},
    {0x80042302, L"VSS_E_UNEXPECTED"},
    {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
    {0x80042304, L"VSS_E_PROVIDER_NOT_REGISTERED"},
    {0x80042306, L"VSS_E_PROVIDER_VETO"},
    {0x80042307, L"VSS_E_PROVIDER_IN_USE"},
    {0x80042308, L"VSS_E_OBJECT_NOT_FOUND"},
    {0x8004230C, L"VSS_E_VOLUME_NOT_SUPPORTED"},
    {0x8004230D, L"VSS_E_OBJECT_ALREADY_EXISTS"},
    {0x8004230E, L"VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER"},
    {0x8004230F, L"VSS_E_UNEXPECTED_PROVIDER_ERROR"},
    {0x80042311, L"VSS_E_INVALID_XML_DOCUMENT"},
    {0x80042312, L"VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"},
    {0x80042313, L"VSS_E_FLUSH_WRITES_TIMEOUT"},
    {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"},
    {0x80042315, L"VSS_E_UNEXPECTED_WRITER_ERROR"},
    {0x80042316, L"VSS_E_SNAPSHOT_SET_IN_PROGRESS"},
    {0x80042317, L"VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED"},
    {0x80042318, L"VSS_E_WRITER_INFRASTRUCTURE"},
    {0x80042319, L"VSS_E_WRITER_NOT_RESPONDING"},
    {0x8004231A, L"VSS_E_WRITER_ALREADY_SUBSCRIBED"},
    {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"},
    {0x8004231D, L"VSS_E_VOLUME_IN_USE"},
    {0x8004231E, L"VSS_E_MAXIMUM_DIFFAREA_ASSOCIATIONS_REACHED"},
    {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"},
    {0x80042320, L"VSS_E_NO_SNAPSHOTS_IMPORTED"},
    {0x80042322, L"VSS_E_MAXIMUM_NUMBER_OF_REMOTE_MACHINES_REACHED"},
    {0x80042323, L"VSS_E_REMOTE_SERVER_UNAVAILABLE"},
    {0x80042324, L"VSS_E_REMOTE_SERVER_UNSUPPORTED"},
    {0x80042325, L"VSS_E_REVERT_IN_PROGRESS"},
    {0x80042326, L"VSS_E_REVERT_VOLUME_LOST"},
    {0x80042327, L"VSS_E_REBOOT_REQUIRED"},
    {0x80042328, L"VSS_E_TRANSACTION_FREEZE_TIMEOUT"},
    {0x80042329, L"VSS_E_TRANSACTION_THAW_TIMEOUT"},
    {0x8004232A, L"VSS_E_UNSELECTED_VOLUME"},
    {0x8004232B, L"VSS_E_SNAPSHOT_NOT_IN_SET"},
    {0x8004232C, L"VSS_E_NESTED_VOLUME_LIMIT"},
    {0x80042336, L"VSS_E_WRITERERROR_PARTIAL_FAILURE"},
    {0x800423F0, L"VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT"},
    {0x800423F1, L"VSS_E_WRITERERROR_OUTOFRESOURCES"},
    {0x800423F2, L"VSS_E_WRITERERROR_TIMEOUT"},
    {0x800423F3, L"VSS_E_WRITERERROR_RETRYABLE"},
    {0x800423F4, L"VSS_E_WRITERERROR_NONRETRYABLE"},
    {0x800423F5, L"VSS_E_WRITERERROR_RECOVERY_FAILED"},
    {0x800423F6, L"VSS_E_BREAK_REVERT_ID_FAILED"},
    {0x800423F7, L"VSS_E_LEGACY_PROVIDER"},
    {0x800423F8, L"VSS_E_MISSING_DISK"},
    {0x800423F9, L"VSS_E_MISSING_HIDDEN_VOLUME"},
    {0x800423FA, L"VSS_E_MISSING_VOLUME"},
    {0x800423FB, L"VSS_E_AUTORECOVERY_FAILED"},
    {0x800423FC, L"VSS_E_DYNAMIC_DISK_ERROR"},
    {0x800423FD, L"VSS_E_NONTRANSPORTABLE_BCD"},
    {0x800423FE, L"VSS_E_CANNOT_REVERT_DISKID"},
    {0x800423FF, L"VSS_E_RESYNC_IN_PROGRESS"},
    {0x80042400, L"VSS_E_CLUSTER_ERROR"},
    {0x80042401, L"VSS_E_ASRERROR_DISK_ASSIGNMENT_FAILED"},
    {0x80042402, L"VSS_E_ASRERROR_DISK_RECREATION_FAILED"},
    {0x80042403, L"VSS_E_ASRERROR_NO_ARCPATH"},
    {0x80042404, L"VSS_E_ASRERROR_MISSING_DYNDISK"},
    {0x80042405, L"VSS_E_ASRERROR_SHARED_CRIDISK"},
    {0x80042406, L"VSS_E_ASRERROR_DATADISK_RDISK0"},
    {0x80042407, L"VSS_E_ASRERROR_RDISK0_TOOSMALL"},
    {0x80042408, L"VSS_E_ASRERROR_CRITICAL_DISKS_TOO_SMALL"},
    {0x80042409, L"VSS_E_WRITER_STATUS_NOT_AVAILABLE"},
};

class ErrorsTest : public HostFixture {};

TEST_F(ErrorsTest, SeventyTwoResultsHaveTheirNames) {
  EXPECT_EQ(std::size(kNamedResults), 72u);
  for (const NamedResult& result : kNamedResults) {
    EXPECT_EQ(CVarnel::HResult2String(static_cast<HRESULT>(result.value)), result.name) << std::hex << result.value;
  }
}

TEST_F(ErrorsTest, ANameDoesNotGiveWayToASystemText) {
  model().messages[0x80042301] = L"The system knows better.\r\n";
  EXPECT_EQ(CVarnel::HResult2String(VSS_E_BAD_STATE), L"VSS_E_BAD_STATE");
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(ErrorsTest, NoOtherResultOfTheServiceHasAName) {
  std::set<std::uint32_t> named;
  for (const NamedResult& result : kNamedResults) named.insert(result.value);
  for (const std::uint32_t first : {0x00042300u, 0x80042300u}) {
    for (std::uint32_t value = first; value < first + 0x200; ++value) {
      if (named.contains(value)) continue;
      EXPECT_EQ(CVarnel::HResult2String(static_cast<HRESULT>(value)), FormatWide(L"Error: 0x%x", {value}));
    }
  }
  for (const HRESULT hr : {E_NOTIMPL, E_FAIL, E_ACCESSDENIED, E_INVALIDARG, E_POINTER}) {
    EXPECT_THAT(CVarnel::HResult2String(hr), StartsWith(L"Error: 0x8")) << std::hex << hr;
  }
}

TEST_F(ErrorsTest, AResultWithoutANameIsShownByTheSystemsText) {
  model().messages[0x80042305] = L"The shadow copy has gone.\r\n";
  EXPECT_EQ(CVarnel::HResult2String(kUnnamed), L"The shadow copy has gone.\r\n");
  EXPECT_THAT(host().calls().lines(), ElementsAre("FormatMessageW(0x80042305) = ok"));
}

TEST_F(ErrorsTest, TheSystemsTextKeepsItsInserts) {
  model().messages[0x80042305] = L"Disk %1 of %2.\r\n";
  EXPECT_EQ(CVarnel::HResult2String(kUnnamed), L"Disk %1 of %2.\r\n");
}

TEST_F(ErrorsTest, AResultWithoutAnyTextIsShownByItsValue) {
  EXPECT_EQ(CVarnel::HResult2String(kUnnamed), L"Error: 0x80042305");
  EXPECT_EQ(CVarnel::HResult2String(0x2A), L"Error: 0x2a");
  EXPECT_EQ(CVarnel::HResult2String(E_FAIL), L"Error: 0x80004005");
  EXPECT_EQ(CVarnel::HResult2String(-1), L"Error: 0xffffffff");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(ErrorsTest, AFailingMessageTableCountsAsNoText) {
  model().messages[0x80042305] = L"The shadow copy has gone.\r\n";
  FailCall("FormatMessageW", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(CVarnel::HResult2String(kUnnamed), L"Error: 0x80042305");
}

TEST_F(ErrorsTest, OnlyTheLow32BitsOfAResultCount) {
  EXPECT_EQ(CVarnel::HResult2String(static_cast<long>(0x0000000080042301LL)), L"VSS_E_BAD_STATE");
  EXPECT_EQ(CVarnel::HResult2String(static_cast<long>(0x1234567880042301LL)), L"VSS_E_BAD_STATE");
  EXPECT_EQ(CVarnel::HResult2String(static_cast<long>(0x1234567800000000LL)), L"S_OK");
  EXPECT_EQ(CVarnel::HResult2String(static_cast<long>(0x7FFFFFFF80042305LL)), L"Error: 0x80042305");
}

TEST(ErrorsWithoutAHost, ResultsAreStillShown) {
  if (CurrentHostOrNull() != nullptr) GTEST_SKIP() << "this platform is a host of its own";
  EXPECT_EQ(CVarnel::HResult2String(VSS_E_PROVIDER_VETO), L"VSS_E_PROVIDER_VETO");
  EXPECT_EQ(CVarnel::HResult2String(kUnnamed), L"Error: 0x80042305");
}

TEST(ErrorsWithoutAHost, UserTextsDegradeToNames) {
  if (CurrentHostOrNull() != nullptr) GTEST_SKIP() << "this platform is a host of its own";
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  std::wstring text = L"old";
  probe.GetVSSErrorMessage(VSS_E_BAD_STATE, text);
  EXPECT_EQ(text, L"");
  requestor.GetErrorString(VSS_E_WRITERERROR_PARTIAL_FAILURE, text);
  EXPECT_EQ(text, L"VSS_E_WRITERERROR_PARTIAL_FAILURE");
  requestor.GetErrorString(kUnnamed, text);
  EXPECT_EQ(text, L"Error: 0x80042305");
  EXPECT_EQ(probe.GetErrorMessageFromCatalog(126, text), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(text, L"");
}

// ---- System texts ----

class SystemTextTest : public HostFixture {
 protected:
  std::wstring VssMessage(long hr) {
    std::wstring text = L"old";
    probe_.GetVSSErrorMessage(hr, text);
    return text;
  }
  std::wstring ErrorString(long hr) {
    std::wstring text = L"old";
    requestor_.GetErrorString(hr, text);
    return text;
  }

  CVarnel requestor_{0};
  RequestorProbe probe_{requestor_};
};

TEST_F(SystemTextTest, TheServicesTableIsSearchedFirst) {
  model().messages[0x80042301] = L"system\r\n";
  model().vssMessages = {{0x80042301, L"service\r\n"}};
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"service\r\n");
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(host().calls().lines(), ElementsAre("LoadLibraryW(vsstrace.dll) = ok",
                                                  "FormatMessageW(VSS_E_BAD_STATE) = ok", "FreeLibrary() = ok"));
}

TEST_F(SystemTextTest, TheSystemsTableServesWhereTheServicesHasNoText) {
  model().messages[0x80042301] = L"system\r\n";
  model().vssMessages.emplace();
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"system\r\n");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemTextTest, WithoutTheServicesModuleTheSystemsTableServesAlone) {
  model().messages[0x80042301] = L"system\r\n";
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"system\r\n");
  EXPECT_THAT(log.All(), ElementsAre("W Failed to load vsstrace.dll. Error 126"));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(SystemTextTest, AModuleThatCannotBeLoadedIsNamedWithItsError) {
  model().vssMessages = {{0x80042301, L"service\r\n"}};
  model().messages[0x80042301] = L"system\r\n";
  FailCall("LoadLibraryW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"system\r\n");
  EXPECT_THAT(log.All(), ElementsAre("W Failed to load vsstrace.dll. Error 5"));
}

TEST_F(SystemTextTest, NothingFoundLeavesTheTextEmpty) {
  model().vssMessages.emplace();
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"");
  EXPECT_THAT(log.All(), ElementsAre("W FormatMessage failed. Error 317"));
}

TEST_F(SystemTextTest, NothingFoundWithoutTheServicesModuleLeavesTwoWarnings) {
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"");
  EXPECT_THAT(log.All(), ElementsAre("W Failed to load vsstrace.dll. Error 126", "W FormatMessage failed. Error 317"));
}

TEST_F(SystemTextTest, AFailureWithoutAnErrorCodeCountsAsAGeneralOne) {
  FailCall("LoadLibraryW", 0);
  FailCall("FormatMessageW", 0);
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"");
  EXPECT_THAT(log.All(), ElementsAre("W Failed to load vsstrace.dll. Error 31", "W FormatMessage failed. Error 31"));
}

TEST_F(SystemTextTest, InsertsAreNotIgnored) {
  model().vssMessages = {{0x80042301, L"Volume %1 is busy.\r\n"}, {0x80042302, L"100%% full.%n"}};
  EXPECT_EQ(VssMessage(VSS_E_BAD_STATE), L"");
  EXPECT_THAT(log.All(), ElementsAre("W FormatMessage failed. Error 87"));
  EXPECT_EQ(VssMessage(VSS_E_UNEXPECTED), L"100% full.\r\n");
}

TEST_F(SystemTextTest, OnlyTheLow32BitsOfAResultCount) {
  model().vssMessages = {{0x80042301, L"service\r\n"}};
  EXPECT_EQ(VssMessage(static_cast<long>(0x1234567880042301LL)), L"service\r\n");
  EXPECT_EQ(ErrorString(static_cast<long>(0x1234567880042301LL)), L"service\r\n");
}

TEST_F(SystemTextTest, TheUserTextIsTheSystems) {
  model().vssMessages = {{0x80042306, L"The provider said no.\r\n"}};
  EXPECT_EQ(ErrorString(VSS_E_PROVIDER_VETO), L"The provider said no.\r\n");
}

TEST_F(SystemTextTest, TheUserTextOfAPartialFailureIsTheCatalogs) {
  model().messages[0x80042336] = L"system\r\n";
  model().vssMessages = {{0x80042336, L"service\r\n"}};
  constexpr wchar_t kExpected[] =
      L"The writer experienced a partial failure. Check the application event log on the application server to "
      L"determine application objects for which VSS synchronization failed.";
  EXPECT_EQ(ErrorString(static_cast<HRESULT>(0x80042336)), kExpected);
  EXPECT_EQ(ErrorString(static_cast<long>(0x1234567880042336LL)), kExpected);
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(Calls("FormatMessageW"), IsEmpty());
}

TEST_F(SystemTextTest, APartialFailureWithoutACatalogIsShownByItsName) {
  model().vssMessages = {{0x80042336, L"service\r\n"}};
  FailCall("GetModuleHandleExW", ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(ErrorString(VSS_E_WRITERERROR_PARTIAL_FAILURE), L"VSS_E_WRITERERROR_PARTIAL_FAILURE");
}

TEST_F(SystemTextTest, TheUserTextFallsBackToTheName) {
  model().vssMessages.emplace();
  EXPECT_EQ(ErrorString(VSS_E_PROVIDER_VETO), L"VSS_E_PROVIDER_VETO");
  EXPECT_EQ(ErrorString(S_OK), L"S_OK");
}

TEST_F(SystemTextTest, TheUserTextFallsBackToASystemTextThatNeedsArguments) {
  model().messages[0x80042305] = L"Disk %1.\r\n";
  EXPECT_EQ(ErrorString(kUnnamed), L"Disk %1.\r\n");
}

TEST_F(SystemTextTest, TheUserTextFallsBackToTheValue) {
  EXPECT_EQ(ErrorString(kUnnamed), L"Error: 0x80042305");
}

TEST_F(SystemTextTest, TheUserTextIsNeverEmptyWhateverFails) {
  model().vssMessages = {{0x80042306, L"service\r\n"}};
  for (const HRESULT hr : {VSS_E_PROVIDER_VETO, VSS_E_WRITERERROR_PARTIAL_FAILURE, kUnnamed, S_OK}) {
    for (const bool persistent : {false, true}) {
      for (int n = 1; n <= 6; ++n) {
        host().faults().FailNthCall(n, ERROR_NOT_ENOUGH_MEMORY, persistent);
        EXPECT_NE(ErrorString(hr), L"");
      }
    }
  }
  host().faults().FailNthCall(0, 0);
}

// ---- Message catalog ----

struct CatalogText {
  int id;
  const wchar_t* text;
};

constexpr CatalogText kCatalogTexts[] = {
    {102,
     L"The shadow copy provider timed out while holding writes to the volume being shadow copied. This is probably due "
     L"to excessive time taken to create snapshot. Try again later when activity on the volume is reduced. If the "
     L"problem persists, contact Tessel Support."},
    {103,
     L"The shadow copy provider encountered an error. Check the System and Application event logs on the application "
     L"server for more information."},
    {104,
     L"An expected hidden volume was not made available to the system by the shadow copy provider. Check the "
     L"Application event log on the application server for more information."},
    {105,
     L"An expected hidden volume was not made available to the system by the shadow copy provider. Check the "
     L"Application event log on the application server for more information."},
    {106,
     L"Incorrect shadow copy writer selection for given volume collection. Check your volume collection and select "
     L"appropriate shadow copy writer."},
    {107, L"%s failed to freeze the I/O operations. "},
    {108,
     L"%s has failed the Identify event. Check the Application event log on the application server for more "
     L"information. "},
    {109,
     L"%s has failed to prepare for backup. Check the Application event log on the application server for more "
     L"information. "},
    {110,
     L"%s has failed to prepare for snapshot. Check the Application event log on the application server for more "
     L"information. "},
    {111,
     L"%s has failed during thaw event. Check the Application event log on the application server for more "
     L"information. "},
    {112,
     L"Number of disks added in the snapshot set were different than listed in the protection set. This can happen due "
     L"to incorrect configuration or application objects in incorrect state. Check the protection set configuration "
     L"and ensure that objects being backed up are in correct state."},
    {113,
     L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
     L"protection set configuration."},
    {114,
     L"Protection set does not contain any application components for backup. Make sure that all the files to be "
     L"backed up reside on volumes in the protection set."},
    {115, L"%s has failed during post snapshot event. "},
    {116, L"%s has failed during backup complete event. "},
    {117, L"%s has failed during pre-restore event. "},
    {118, L"%s has failed during post-restore event. "},
    {119, L"%s failed during the shutdown of backup application. "},
    {120, L"%s failed with unknown error. "},
    {121, L" Application error code: 0x%x, Application error message: %s \n"},
    {122, L"Failed component: %s, Error: 0x%x, Application error code: 0x%x, Application error message: %s \n"},
    {123, L"\n Volumes in volume collection: %s \n Volumes containing application components eligible for backup: %s"},
    {124,
     L"Component %s needs to be in the protection set as parent %s is included. Make sure volumes affected by %s are "
     L"included in volume collection."},
    {125, L"Failed application components: %s \n"},
    {126, L"VSS writer is not present on the host."},
    {127,
     L"The writer experienced a partial failure. Check the application event log on the application server to "
     L"determine application objects for which VSS synchronization failed."},
    {128, L"Extra volumes found in the volume collection. "},
    {129, L"Extra volumes in the volume collection : %s"},
    {250, L"Combining cluster shared volumes (CSVs) and non-CSVs in same volume collection is not supported."},
    {251,
     L"One or more volumes in volume collection are clustered but not configured as CSV. Hyper-V VSS snapshot for "
     L"non-CSV clustered volume is not supported."},
    {252,
     L"An error occurred while validating volumes in volume collection. Please refer to logs on the host for more "
     L"details."},
    {253, L"Combining cluster and non-cluster Windows volumes in same volume collection is not supported."},
    {254, L"Version of operating system running on the host is not supported by this feature."},
    {255, L"Host is missing some of the hotfixes required for using this feature."},
};

const wchar_t* CatalogTextOf(int id) {
  for (const CatalogText& entry : kCatalogTexts) {
    if (entry.id == id) return entry.text;
  }
  return L"";
}

// `text` with each "%s" replaced in turn; those of a value stay.
std::wstring Filled(std::wstring text, const std::vector<std::wstring>& values) {
  std::size_t at = 0;
  for (const std::wstring& value : values) {
    at = text.find(L"%s", at);
    if (at == std::wstring::npos) break;
    text.replace(at, 2, value);
    at += value.size();
  }
  return text;
}

class CatalogTest : public HostFixture {
 protected:
  CVarnel requestor_{0};
  RequestorProbe probe_{requestor_};
  std::wstring text_ = L"old";
};

TEST_F(CatalogTest, HoldsTheseTextsAndNoOthers) {
  const auto catalog = Catalog();
  ASSERT_THAT(catalog, SizeIs(std::size(kCatalogTexts)));
  for (std::size_t i = 0; i < catalog.size(); ++i) {
    EXPECT_EQ(catalog[i].id, kCatalogTexts[i].id);
    EXPECT_EQ(std::wstring(catalog[i].text), kCatalogTexts[i].text) << catalog[i].id;
  }
}

TEST_F(CatalogTest, EveryIdIsLoadedAndFormatted) {
  const std::wstring one = L"SQL writer";
  const std::wstring two = L"\\a\\" + kForeign;
  const std::wstring three = L"100%s %n";
  for (const CatalogText& entry : kCatalogTexts) {
    if (entry.id == 121 || entry.id == 122) continue;  // they take numbers
    EXPECT_EQ(probe_.GetErrorMessageFromCatalog(entry.id, text_, one, two, three), ERROR_SUCCESS) << entry.id;
    EXPECT_EQ(text_, Filled(entry.text, {one, two, three})) << entry.id;
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(CatalogTest, NumbersAreFormattedIn32BitHexadecimal) {
  probe_.GetErrorMessageFromCatalog(121, text_, static_cast<HRESULT>(0x80040E14), L"log full");
  EXPECT_EQ(text_, L" Application error code: 0x80040e14, Application error message: log full \n");
  probe_.GetErrorMessageFromCatalog(122, text_, L"\\db", VSS_E_WRITERERROR_RETRYABLE, 0, std::wstring());
  EXPECT_EQ(text_,
            L"Failed component: \\db, Error: 0x800423f3, Application error code: 0x0, Application error message:  \n");
}

TEST_F(CatalogTest, AMissingArgumentLeavesNothing) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(124, text_, L"\\a"), ERROR_SUCCESS);
  EXPECT_EQ(text_, Filled(CatalogTextOf(124), {L"\\a", L"", L""}));
}

TEST_F(CatalogTest, TwoIdsHoldTheTextOfTheHiddenVolume) {
  std::wstring other;
  probe_.GetErrorMessageFromCatalog(104, text_);
  probe_.GetErrorMessageFromCatalog(105, other);
  EXPECT_EQ(text_, other);
  EXPECT_THAT(text_, StartsWith(L"An expected hidden volume was not made available"));
}

TEST_F(CatalogTest, LineBreaksStandWhereTheTextsHaveThem) {
  for (const int id : {121, 122, 125}) {
    const std::wstring text = CatalogTextOf(id);
    EXPECT_EQ(text.find(L'\n'), text.size() - 1) << id;
  }
  probe_.GetErrorMessageFromCatalog(125, text_, L"\\db");
  EXPECT_EQ(text_, L"Failed application components: \\db \n");
  probe_.GetErrorMessageFromCatalog(123, text_, L"a, b", L"a");
  EXPECT_EQ(text_,
            L"\n Volumes in volume collection: a, b \n Volumes containing application components eligible for "
            L"backup: a");
}

TEST_F(CatalogTest, IsReachedByTheModulesName) {
  host().calls().Clear();
  probe_.GetErrorMessageFromCatalog(126, text_);
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("GetModuleHandleExW(varnel) = ok", "LoadStringW(126) = ok", "FreeLibrary() = ok"));
}

TEST_F(CatalogTest, AnUnknownIdIsLoggedAndReturnsTheError) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(999, text_, L"a"), ERROR_RESOURCE_NAME_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E LoadString() Failed, StringID=999, Error = 1814"));
  EXPECT_EQ(log.lines.front().source, "varnel");
  for (const int id : {0, 101, 130, 249, 256, -1}) {
    EXPECT_NE(probe_.GetErrorMessageFromCatalog(id, text_), ERROR_SUCCESS) << id;
    EXPECT_EQ(text_, L"");
  }
}

TEST_F(CatalogTest, AMissingModuleIsLoggedAndReturnsTheError) {
  FailCall("GetModuleHandleExW", ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E GetModuleHandleEx() Failed, Resource=varnel, Error=126"));
  EXPECT_THAT(Calls("LoadStringW"), IsEmpty());
}

TEST_F(CatalogTest, AFailedReadIsLoggedAndReturnsTheError) {
  FailCall("LoadStringW", ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E LoadString() Failed, StringID=126, Error = 1812"));
}

TEST_F(CatalogTest, AFailureWithoutAnErrorCodeCountsAsAGeneralOne) {
  FailCall("GetModuleHandleExW", 0);
  FailCall("LoadStringW", 0);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_GEN_FAILURE);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_GEN_FAILURE);
  EXPECT_THAT(log.All(), ElementsAre("E GetModuleHandleEx() Failed, Resource=varnel, Error=31",
                                     "E LoadString() Failed, StringID=126, Error = 31"));
}

TEST_F(CatalogTest, AModuleThatCannotBeReleasedDoesNotSpoilTheText) {
  FailCall("FreeLibrary", ERROR_INVALID_HANDLE);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_SUCCESS);
  EXPECT_EQ(text_, L"VSS writer is not present on the host.");
}

TEST_F(CatalogTest, TheBufferIsMadeOnFirstUseAndKept) {
  EXPECT_EQ(probe_.messageBuffer(), nullptr);
  probe_.GetErrorMessageFromCatalog(126, text_);
  const wchar_t* const buffer = probe_.messageBuffer().get();
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::wstring(buffer), text_);
  probe_.GetErrorMessageFromCatalog(128, text_);
  EXPECT_EQ(probe_.messageBuffer().get(), buffer);
}

TEST_F(CatalogTest, TheBufferIsZeroedBeforeEachUse) {
  probe_.GetErrorMessageFromCatalog(107, text_, std::wstring(5000, L'x'));
  probe_.GetErrorMessageFromCatalog(999, text_);
  const wchar_t* const buffer = probe_.messageBuffer().get();
  EXPECT_TRUE(std::all_of(buffer, buffer + 65536, [](wchar_t c) { return c == L'\0'; }));
}

TEST_F(CatalogTest, TheBufferCutsAText) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(107, text_, std::wstring(70000, L'x')), ERROR_SUCCESS);
  EXPECT_EQ(text_, std::wstring(65535, L'x'));
  const std::wstring name(65535 - 38, L'x');
  probe_.GetErrorMessageFromCatalog(107, text_, name);
  EXPECT_EQ(text_.substr(name.size()), std::wstring(L" failed to freeze the I/O operations. ").substr(0, 38));
}

// ---- CheckCommError ----

class CheckCommErrorTest : public HostFixture {
 protected:
  std::optional<long> Check(long hr, std::string call) {
    return ThrownLong([&] { requestor_.CheckCommError(hr, std::move(call), details_); });
  }

  CVarnel requestor_{0};
  std::string details_;
};

TEST_F(CheckCommErrorTest, SuccessCodesReturnWithoutWritingAnything) {
  details_ = "writer=1,";
  for (const HRESULT hr : {S_OK, S_FALSE, VSS_S_ASYNC_PENDING, VSS_S_ASYNC_CANCELLED, HRESULT{0x7FFFFFFF}}) {
    EXPECT_EQ(Check(hr, "X()"), std::nullopt) << hr;
  }
  EXPECT_EQ(details_, "writer=1,");
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(CheckCommErrorTest, AFailureIsLoggedAppendedAndThrown) {
  details_ = "writer=1,";
  EXPECT_EQ(Check(static_cast<HRESULT>(0x80042301), "X()"), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(details_, "writer=1,X()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n");
  EXPECT_THAT(log.All(), ElementsAre("E  X()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;"));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(CheckCommErrorTest, RecordsAreAppendedOldestFirst) {
  Check(VSS_E_BAD_STATE, "m_pVssObject->StartSnapshotSet()");
  Check(E_OUTOFMEMORY, "DoSnapshotSet()");
  EXPECT_EQ(details_,
            "m_pVssObject->StartSnapshotSet()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n"
            "DoSnapshotSet()=Failed, error=E_OUTOFMEMORY, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CheckCommErrorTest, TheThrownLongIsNegativeHoweverTheResultWasWidened) {
  const long expected = -2147212543L;  // 0x80042301
  EXPECT_EQ(Check(VSS_E_BAD_STATE, "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0x0000000080042301LL), "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0x1234567880042301LL), "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0xFFFFFFFF00000001LL), "X()"), std::nullopt);
}

TEST_F(CheckCommErrorTest, WhatIsThrownIsABareLongAndNothingElse) {
  try {
    requestor_.CheckCommError(E_FAIL, "X()", details_);
    FAIL() << "returned";
  } catch (const std::exception&) {
    FAIL() << "an exception object";
  } catch (int) {
    static_assert(!std::is_same_v<int, long>);
    FAIL() << "an int";
  } catch (long hr) {
    EXPECT_EQ(hr, Failure(E_FAIL));
  }
}

TEST_F(CheckCommErrorTest, ASystemTextIsTakenAsItStands) {
  model().messages[0x80004005] = L"Unspecified error\r\n";
  Check(E_FAIL, "X()");
  EXPECT_EQ(details_, "X()=Failed, error=Unspecified error\r\n, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CheckCommErrorTest, PercentSignsInTheCallAreText) {
  Check(E_UNEXPECTED, "100%s%n()");
  EXPECT_EQ(details_, "100%s%n()=Failed, error=E_UNEXPECTED, rc=COMMError, ca=ContactTechSupport;\n");
}

// ---- Alert records ----

struct ExpectedRecord {
  const char* format;
  const char* tag;
  const char* ending;
  int category;
  const wchar_t* logFormat;
  std::size_t bytes;
};

constexpr char kHyperVFormat[] = "Error, status=%s, rc=ConfigError, ca=CheckVolumeCollection";

constexpr ExpectedRecord kExpectedRecords[] = {
    {"%s=Failed, error=%S, rc=COMMError, ca=ContactTechSupport;", nullptr, "\n", 4, L" %S", 2048},
    {"%s, WriterName=%S, WriterError=%S, WriterStatus=%S, ApplicationError=0x%x, ApplicationMsg=%S, "
     "rc=VssWriterStatusError, ca=CheckWriterState;\n",
     "RequestStatus=WriterFailure", "", 4, L"  %S", 2048},
    {"%s, Component=%S, ComponentLevelError=%S, ApplicationError=0x%x, ApplicationMsg=%S, rc=VssPartialWriterError, "
     "ca=CheckWriterState;\n",
     "RequestStatus=ComponentLevelFailure", "", 4, L"  %S", 2048},
    {"%s, rc=SystemError, error=%S, ca=ContactTechSupport;\n", "RequestStatus=GetDiskSerialNumberForVolume()_failed",
     "", 4, L"  %S", 2048},
    {"%s, Function=%s, Error=%S, rc=SystemError, ca=ContactSupport", "RequestStatus=QueryStatus()", "", 4, L"  %S",
     2048},
    {"malloc() Failed, Variable=SessionInfo, %s, rc=SystemError, ca=CallSupport;\n", "RequestStatus=LowMemory", "", 4,
     L"  %S", 2048},
    {"%s, rc=SystemError, ca=CallSupport;\n", "RequestStatus=LowMemory", "", 3, L"  %S", 2048},
    {"status=%s, Component=%S, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes", "AddComponentFailed",
     ";\n", 4, L"  %S", 2048},
    {"status=%s, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
     "NoComponentsEligibleForBackup", ";\n", 4, L"  %S", 2048},
    {"status=%s, VolCollVolumes=%d, VolumesInvolvedInSnapshot=%d, rc=ConfigError, ca=CheckVolumeCollection, "
     "ca=CheckHostsVolumes/Connections",
     "LunMismatch", ";\n", 4, L" %S", 2048},
    {"status=%s, VolumesInvolvedInSnapshot =%d , ExtraVolumes =%d, rc=ConfigWarning, ca=CheckVolumeCollection, "
     "ca=CheckHostsVolumes/Connections",
     "ExtarVolumesInVolColl", ";\n", 3, L"%S", 2048},
    {kHyperVFormat, "TesselHyperVValidation_MixOfStandalone_ClusterVolumes", "", 4, L"  %S", 1024},
    {kHyperVFormat, "TesselHyperVValidation_MixOfCSV_NonCSVVolumes", "", 4, L"  %S", 1024},
    {kHyperVFormat, "TesselHyperVValidation_ClusterDiskFound", "", 4, L"  %S", 1024},
    {"Error, status=%s, ErrMsg=%ws, rc=ConfigError, ca=CheckVolumeCollection", "TesselHyperVValidation_Exception",
     ";\n", 4, L"  %S", 1024},
    {"Error, status=%s, rc=ConfigError, ca=VerifyRequiredHotfixes", "MissingHotfixes", ";\n", 4, L"  %S", 1024},
    {"Error, status=%s, rc=ConfigError, ca=CheckHostOSVersion", "UnsupportedOSVersion", ";\n", 4, L"  %S", 1024},
};

class AlertTest : public HostFixture {
 protected:
  std::string Write(const AlertRecord& record, std::initializer_list<FormatArgument> arguments) {
    std::string details;
    WriteAlert(record, arguments, details);
    return details;
  }
};

TEST_F(AlertTest, TheRecordsAreTheseAndNoOthers) {
  const auto records = alert::All();
  ASSERT_THAT(records, SizeIs(std::size(kExpectedRecords)));
  for (std::size_t i = 0; i < records.size(); ++i) {
    const AlertRecord& record = *records[i];
    const ExpectedRecord& expected = kExpectedRecords[i];
    SCOPED_TRACE(expected.format);
    EXPECT_STREQ(record.format, expected.format);
    EXPECT_STREQ(record.tag, expected.tag);
    EXPECT_STREQ(record.ending, expected.ending);
    EXPECT_EQ(record.category, expected.category);
    EXPECT_STREQ(record.logFormat, expected.logFormat);
    EXPECT_EQ(record.bytes, expected.bytes);
  }
}

TEST_F(AlertTest, EveryRecordUsesTheClosedVocabulary) {
  const std::set<std::string> reasons = {"COMMError",   "VssWriterStatusError", "VssPartialWriterError",
                                         "SystemError", "ConfigError",          "ConfigWarning"};
  const std::set<std::string> actions = {"ContactTechSupport",
                                         "ContactSupport",
                                         "CallSupport",
                                         "CheckWriterState",
                                         "CheckVolumeCollection",
                                         "CheckHostsVolumes",
                                         "CheckHostsVolumes/Connections",
                                         "VerifyRequiredHotfixes",
                                         "CheckHostOSVersion"};
  for (const AlertRecord* record : alert::All()) {
    const std::string format = record->format;
    SCOPED_TRACE(format);
    std::size_t found = 0;
    for (std::size_t at = format.find("="); at != std::string::npos; at = format.find("=", at + 1)) {
      const std::size_t end = format.find_first_of(",;", at);
      const std::string value = format.substr(at + 1, end == std::string::npos ? end : end - at - 1);
      const std::string key = format.substr(at < 2 ? 0 : at - 2, 2);
      if (key != "rc" && key != "ca") continue;
      EXPECT_THAT(key == "rc" ? reasons : actions, Contains(value));
      ++found;
    }
    EXPECT_GE(found, 2u);
  }
}

TEST_F(AlertTest, ARecordIsLoggedAndAppendedWithItsEnding) {
  std::string details = "old;\n";
  WriteAlert(alert::kAddComponentFailed, {L"\\db\\" + kForeign}, details);
  const std::string record = "status=AddComponentFailed, Component=\\db\\" + kForeignUtf8 +
                             ", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes";
  EXPECT_EQ(details, "old;\n" + record + ";\n");
  EXPECT_THAT(log.All(), ElementsAre("E   " + record));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(AlertTest, TheWarningsAreLoggedAsWarnings) {
  EXPECT_EQ(Write(alert::kExtraVolumes, {2, 0}),
            "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =0, rc=ConfigWarning, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n");
  EXPECT_EQ(Write(alert::kDeviceMemory, {}), "RequestStatus=LowMemory, rc=SystemError, ca=CallSupport;\n");
  EXPECT_THAT(log.Warnings(), SizeIs(2));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(AlertTest, TheAsynchronousRecordHasNeitherSemicolonNorLineEnd) {
  EXPECT_EQ(Write(alert::kQueryStatus, {"f()", L"E_UNEXPECTED"}),
            "RequestStatus=QueryStatus(), Function=f(), Error=E_UNEXPECTED, rc=SystemError, ca=ContactSupport");
}

TEST_F(AlertTest, NumbersOfARecordAre32Bits) {
  EXPECT_EQ(Write(alert::kWriterFailure, {L"w", L"e", L"s", static_cast<HRESULT>(0x80040E14), L"m"}),
            "RequestStatus=WriterFailure, WriterName=w, WriterError=e, WriterStatus=s, ApplicationError=0x80040e14, "
            "ApplicationMsg=m, rc=VssWriterStatusError, ca=CheckWriterState;\n");
  EXPECT_THAT(Write(alert::kLunMismatch, {3, -1}), HasSubstr("VolCollVolumes=3, VolumesInvolvedInSnapshot=-1, rc="));
}

TEST_F(AlertTest, ValuesAreNeitherEscapedNorTrimmed) {
  EXPECT_THAT(Write(alert::kAddComponentFailed, {L" a,b;c=%d\n"}), HasSubstr("Component= a,b;c=%d\n, rc="));
}

TEST_F(AlertTest, FormattingAloneNeitherLogsNorAppends) {
  EXPECT_EQ(FormatAlert(alert::kMissingHotfixes, {}),
            "Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(AlertTest, ARecordThatJustFitsIsWhole) {
  const std::size_t fixed = FormatAlert(alert::kAddComponentFailed, {L""}).size();
  const std::wstring fits(2047 - fixed, L'x');
  EXPECT_EQ(FormatAlert(alert::kAddComponentFailed, {fits}).size(), 2047u);
  EXPECT_THAT(FormatAlert(alert::kAddComponentFailed, {fits}), testing::Not(HasSubstr("...")));
  const std::string shortened = FormatAlert(alert::kAddComponentFailed, {fits + L"y"});
  EXPECT_EQ(shortened.size(), 2047u);
  EXPECT_THAT(shortened, HasSubstr("xx..., rc=ConfigError"));
}

// A record whose values are far too long.
struct LongRecord {
  std::size_t bytes;
  std::string text;
  std::string start;
  std::string end;
};

TEST_F(AlertTest, ValuesThatAreTooLongGiveWayToTheFieldsThatTheArrayReads) {
  const std::wstring wide(5000, L'w');
  const std::string narrow(5000, 'n');
  const std::vector<LongRecord> records = {
      {2048, FormatAlert(alert::kComError, {"f()", wide}), "f()=Failed, error=www",
       "www..., rc=COMMError, ca=ContactTechSupport;"},
      {2048, FormatAlert(alert::kWriterFailure, {wide, wide, wide, 1, wide}),
       "RequestStatus=WriterFailure, WriterName=", ", rc=VssWriterStatusError, ca=CheckWriterState;\n"},
      {2048, FormatAlert(alert::kComponentFailure, {L"c", L"e", 1, wide}),
       "RequestStatus=ComponentLevelFailure, Component=c, ComponentLevelError=e, ApplicationError=0x1, "
       "ApplicationMsg=www",
       "www..., rc=VssPartialWriterError, ca=CheckWriterState;\n"},
      {2048, FormatAlert(alert::kDiskSerialNumber, {wide}),
       "RequestStatus=GetDiskSerialNumberForVolume()_failed, rc=SystemError, error=www",
       "www..., ca=ContactTechSupport;\n"},
      {2048, FormatAlert(alert::kQueryStatus, {narrow, wide}),
       "RequestStatus=QueryStatus(), Function=", ", rc=SystemError, ca=ContactSupport"},
      {2048, FormatAlert(alert::kAddComponentFailed, {wide}), "status=AddComponentFailed, Component=www",
       "www..., rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes"},
      {1024, FormatAlert(alert::kValidationException, {wide}),
       "Error, status=TesselHyperVValidation_Exception, ErrMsg=www",
       "www..., rc=ConfigError, ca=CheckVolumeCollection"},
  };
  for (const LongRecord& record : records) {
    EXPECT_LE(record.text.size(), record.bytes - 1);
    EXPECT_THAT(record.text, StartsWith(record.start));
    EXPECT_THAT(record.text, EndsWith(record.end));
  }
}

TEST_F(AlertTest, TheLongestValueGivesWayFirst) {
  const std::wstring name(300, L'n');
  const std::string record = FormatAlert(alert::kWriterFailure, {name, L"e", L"s", 1, std::wstring(3000, L'm')});
  EXPECT_EQ(record.size(), 2047u);
  EXPECT_THAT(record, HasSubstr("WriterName=" + std::string(300, 'n') + ", WriterError=e"));
  EXPECT_THAT(record, HasSubstr("mm..., rc="));
}

TEST_F(AlertTest, ALongCallStaysWholeWhileTheErrorTextCanGiveWay) {
  const std::string call(1500, 'c');
  const std::string record = FormatAlert(alert::kComError, {call, std::wstring(1000, L'e')});
  EXPECT_LE(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith(call + "=Failed, error=eee"));
  EXPECT_THAT(record, EndsWith("e..., rc=COMMError, ca=ContactTechSupport;"));
}

TEST_F(AlertTest, ACallThatAloneIsTooLongIsShortenedToo) {
  const std::string record = FormatAlert(alert::kComError, {std::string(5000, 'c'), L"E_FAIL"});
  EXPECT_LE(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith("ccc"));
  EXPECT_THAT(record, HasSubstr("c...=Failed, error="));
  EXPECT_THAT(record, EndsWith(", rc=COMMError, ca=ContactTechSupport;"));
}

TEST_F(AlertTest, ATextThatIsNoLongerThanTheDotsStaysWhole) {
  const std::string call(5000, 'c');
  for (const std::size_t length : {0u, 1u, 2u, 3u}) {
    const std::string end = "...=Failed, error=" + std::string(length, 'e') + ", rc=COMMError, ca=ContactTechSupport;";
    EXPECT_EQ(FormatAlert(alert::kComError, {call, std::wstring(length, L'e')}),
              std::string(2047 - end.size(), 'c') + end);
  }
  EXPECT_THAT(FormatAlert(alert::kComError, {call, L"eeee"}), HasSubstr("c...=Failed, error=..., rc=COMMError"));
}

TEST_F(AlertTest, ACharacterIsNeverCutInHalf) {
  for (const std::wstring& character :
       {std::wstring(L"\u00E9"), std::wstring(L"\u65E5"), std::wstring(L"\U0001F680")}) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      std::wstring value(shift, L'x');
      for (int i = 0; i < 3000; ++i) value += character;
      for (const AlertRecord* record : {&alert::kAddComponentFailed, &alert::kValidationException}) {
        const std::string text = FormatAlert(*record, {value});
        EXPECT_NO_THROW(Utf8ToWide(text));
        EXPECT_LE(text.size(), record->bytes - 1);
        EXPECT_GE(text.size(), record->bytes - 4);
        EXPECT_THAT(text, testing::Not(HasSubstr("\xEF\xBF\xBD")));
      }
    }
  }
}

TEST_F(AlertTest, AnUnreadableCharacterIsReplaced) {
  const std::wstring broken = {L'a', static_cast<wchar_t>(0xDC00), L'b'};
  EXPECT_THAT(FormatAlert(alert::kAddComponentFailed, {broken}), HasSubstr("Component=a\xEF\xBF\xBD"
                                                                           "b, rc="));
}

TEST_F(AlertTest, TheShortenedRecordIsWhatIsLoggedAndAppended) {
  std::string details;
  WriteAlert(alert::kAddComponentFailed, {std::wstring(5000, L'x')}, details);
  EXPECT_EQ(details.size(), 2047u + 2);
  ASSERT_THAT(log.lines, SizeIs(1));
  EXPECT_EQ("  " + details, log.lines[0].text + ";\n");
}

TEST_F(AlertTest, TheConfigurationChecksOfHyperVHaveTheSmallerBuffer) {
  EXPECT_EQ(FormatAlert(alert::kValidationException, {std::wstring(5000, L'x')}).size(), 1023u);
  EXPECT_EQ(FormatAlert(alert::kAddComponentFailed, {std::wstring(5000, L'x')}).size(), 2047u);
}

// ---- Reports of failed calls ----

class ReportTest : public HostFixture {};

TEST_F(ReportTest, AFailedComCallLeavesThreeLinesAndThrows) {
  EXPECT_EQ(ThrownLong([] { CheckComCall(VSS_E_OBJECT_NOT_FOUND, L"\"pX->Y(&z)\""); }),
            Failure(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(log.All(), ElementsAre("E ERROR: COM call \"pX->Y(&z)\" failed.", "E - Returned HRESULT = 0x80042308",
                                     "E - Error text: VSS_E_OBJECT_NOT_FOUND"));
  for (const RecordingLog::Line& line : log.lines) EXPECT_EQ(line.source, "varnel");
}

TEST_F(ReportTest, AResultIsShownWithEightDigits) {
  ReportComFailure(L"f()", E_FAIL);
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: COM call f() failed.", "- Returned HRESULT = 0x80004005",
                                        "- Error text: Error: 0x80004005"));
}

TEST_F(ReportTest, ASuccessfulComCallLeavesNothing) {
  for (const HRESULT hr : {S_OK, S_FALSE, VSS_S_ASYNC_FINISHED}) {
    ReportComFailure(L"f()", hr);
    EXPECT_EQ(ThrownLong([&] { CheckComCall(hr, L"f()"); }), std::nullopt);
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(ReportTest, AFailedWin32CallLeavesThreeLinesAndThrowsItsHresult) {
  model().messages[5] = L"Access is denied.\r\n";
  EXPECT_EQ(ThrownLong([] { ThrowWin32Failure(L"GetComputerNameW(buffer, &size)", ERROR_ACCESS_DENIED); }),
            Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.All(), ElementsAre("E ERROR: Win32 call GetComputerNameW(buffer, &size) failed.",
                                     "E - GetLastError() == 5", "E - Error text: Access is denied.\r\n"));
}

TEST_F(ReportTest, AnotherSourceReportsUnderItsOwnName) {
  const Logger other(L"ExchReq");
  EXPECT_EQ(ThrownLong([&] { CheckComCall(E_UNEXPECTED, L"f()", other); }), Failure(E_UNEXPECTED));
  EXPECT_EQ(ThrownLong([&] { ThrowWin32Failure(L"g()", ERROR_ACCESS_DENIED, other); }), Failure(E_ACCESSDENIED));
  ASSERT_THAT(log.lines, SizeIs(6));
  for (const RecordingLog::Line& line : log.lines) EXPECT_EQ(line.source, "ExchReq");
}

TEST_F(ReportTest, AFailureWithoutAnErrorCodeCountsAsAGeneralOne) {
  EXPECT_EQ(ThrownLong([] { ThrowWin32Failure(L"f()", 0); }), Win32Failure(31));
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: Win32 call f() failed.", "- GetLastError() == 31",
                                        "- Error text: Error: 0x8007001f"));
  host().machine().lastError = 0;
  EXPECT_EQ(LastErrorOrGeneric(), ERROR_GEN_FAILURE);
  host().machine().lastError = 5;
  EXPECT_EQ(LastErrorOrGeneric(), ERROR_ACCESS_DENIED);
}

TEST_F(ReportTest, AnHresultIsThrownAsASignExtendedLong) {
  EXPECT_EQ(ThrownLong([] { ThrowHResult(E_FAIL); }), -2147467259L);
  static_assert(AsHResult(static_cast<long>(0x1234567880042301LL)) == VSS_E_BAD_STATE);
  static_assert(AsHResult(-1) == -1);
}

TEST_F(ReportTest, ASuccessThatDeliversNothingIsUnexpected) {
  const int* nothing = nullptr;
  const int object = 1;
  EXPECT_EQ(Delivered(S_OK, nothing), E_UNEXPECTED);
  EXPECT_EQ(Delivered(S_FALSE, nothing), E_UNEXPECTED);
  EXPECT_EQ(Delivered(S_FALSE, &object), S_FALSE);
  EXPECT_EQ(Delivered(E_FAIL, nothing), E_FAIL);
}

TEST(ReportsWithoutAListener, ChangeNothing) {
  simulator::SimulatedHost host(SmallHost());
  const ScopedHost current(host);
  EXPECT_EQ(ThrownLong([] { CheckComCall(E_FAIL, L"f()"); }), Failure(E_FAIL));
  EXPECT_EQ(ThrownLong([] { ThrowWin32Failure(L"f()", 5); }), Failure(E_ACCESSDENIED));
  CVarnel requestor(0);
  std::string details;
  EXPECT_EQ(ThrownLong([&] { requestor.CheckCommError(E_UNEXPECTED, "f()", details); }), Failure(E_UNEXPECTED));
  EXPECT_EQ(details, "f()=Failed, error=E_UNEXPECTED, rc=COMMError, ca=ContactTechSupport;\n");
}

}  // namespace
}  // namespace varnel::test
