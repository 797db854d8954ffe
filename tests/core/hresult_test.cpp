// The names and the texts of results.
#include <cstdint>
#include <iterator>
#include <set>

#include "tests/support/forwarding_host.h"
#include "tests/support/request_fixture.h"
#include "text/format.h"

namespace varnel::test {
namespace {

constexpr HRESULT kUnnamed = static_cast<HRESULT>(0x80042305);

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

// How the texts of results are asked for.
class WatchedMessages final : public ForwardingMessages {
 public:
  using ForwardingMessages::ForwardingMessages;
  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void* arguments) override {
    asked.push_back(FormatNarrow("flags %x, %s, language %x, %d characters",
                                 {flags, source == nullptr ? "system" : "module", language, characters}));
    EXPECT_EQ(arguments, nullptr);
    return ForwardingMessages::FormatMessageW(flags, source, id, language, text, characters, arguments);
  }
  std::vector<std::string> asked;
};

TEST_F(SystemTextTest, AResultsTextIsAskedForInTheDefaultLanguageAndAUsersInAny) {
  WatchedMessages watched(host().messages());
  const CurrentHostWith current(host(), watched);
  CVarnel::HResult2String(kUnnamed);
  VssMessage(kUnnamed);  // without the service's module
  model().vssMessages.emplace();
  VssMessage(kUnnamed);
  EXPECT_THAT(watched.asked, ElementsAre("flags 1300, system, language 400, 0 characters",
                                         "flags 1100, system, language 0, 4096 characters",
                                         "flags 1900, module, language 0, 4096 characters"));
}

}  // namespace
}  // namespace varnel::test
