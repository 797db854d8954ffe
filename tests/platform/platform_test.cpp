// The parts of platform/ that are the same everywhere: published values, the code page, and the current host.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/ansi.h"
#include "platform/host.h"
#include "platform/vss.h"
#include "tests/support/host_fixture.h"

namespace varnel {
namespace {

TEST(Ansi, KeepsLatinTextBothWays) {
  EXPECT_EQ(AnsiToWide("\\\\?\\Volume{0-1}\\"), L"\\\\?\\Volume{0-1}\\");
  EXPECT_EQ(WideToAnsi(L"TSL0001"), "TSL0001");
  EXPECT_EQ(AnsiToWide(""), L"");
  EXPECT_EQ(WideToAnsi(L""), "");
}

TEST(Ansi, KeepsNulCharactersInsideText) {
  EXPECT_EQ(AnsiToWide(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
  EXPECT_EQ(WideToAnsi(std::wstring_view(L"a\0b", 3)), std::string("a\0b", 3));
}

TEST(Ansi, NeverFailsOnACharacter) {
  EXPECT_EQ(AnsiToWide("a\xFFz").front(), L'a');
  EXPECT_EQ(AnsiToWide("a\xFFz").back(), L'z');
  EXPECT_EQ(WideToAnsi(L"a\U0001F680z").front(), 'a');
  EXPECT_EQ(WideToAnsi(L"a\U0001F680z").back(), 'z');
}

// ---- values of the platform ----

struct Code {
  const char* name;
  HRESULT value;
  std::uint32_t published;
};

constexpr Code kServiceResults[] = {
    {"VSS_E_BAD_STATE", VSS_E_BAD_STATE, 0x80042301},
    {"VSS_E_UNEXPECTED", VSS_E_UNEXPECTED, 0x80042302},
    {"VSS_E_PROVIDER_ALREADY_REGISTERED", VSS_E_PROVIDER_ALREADY_REGISTERED, 0x80042303},
    {"VSS_E_PROVIDER_NOT_REGISTERED", VSS_E_PROVIDER_NOT_REGISTERED, 0x80042304},
    {"VSS_E_PROVIDER_VETO", VSS_E_PROVIDER_VETO, 0x80042306},
    {"VSS_E_PROVIDER_IN_USE", VSS_E_PROVIDER_IN_USE, 0x80042307},
    {"VSS_E_OBJECT_NOT_FOUND", VSS_E_OBJECT_NOT_FOUND, 0x80042308},
    {"VSS_S_ASYNC_PENDING", VSS_S_ASYNC_PENDING, 0x00042309},
    {"VSS_S_ASYNC_FINISHED", VSS_S_ASYNC_FINISHED, 0x0004230A},
    {"VSS_S_ASYNC_CANCELLED", VSS_S_ASYNC_CANCELLED, 0x0004230B},
    {"VSS_E_VOLUME_NOT_SUPPORTED", VSS_E_VOLUME_NOT_SUPPORTED, 0x8004230C},
    {"VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER", VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, 0x8004230E},
    {"VSS_E_OBJECT_ALREADY_EXISTS", VSS_E_OBJECT_ALREADY_EXISTS, 0x8004230D},
    {"VSS_E_UNEXPECTED_PROVIDER_ERROR", VSS_E_UNEXPECTED_PROVIDER_ERROR, 0x8004230F},
    {"VSS_E_CORRUPT_XML_DOCUMENT", VSS_E_CORRUPT_XML_DOCUMENT, 0x80042310},
    {"VSS_E_INVALID_XML_DOCUMENT", VSS_E_INVALID_XML_DOCUMENT, 0x80042311},
    {"VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED", VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, 0x80042312},
    {"VSS_E_FLUSH_WRITES_TIMEOUT", VSS_E_FLUSH_WRITES_TIMEOUT, 0x80042313},
    {"VSS_E_HOLD_WRITES_TIMEOUT", VSS_E_HOLD_WRITES_TIMEOUT, 0x80042314},
    {"VSS_E_UNEXPECTED_WRITER_ERROR", VSS_E_UNEXPECTED_WRITER_ERROR, 0x80042315},
    {"VSS_E_SNAPSHOT_SET_IN_PROGRESS", VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0x80042316},
    {"VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED", VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED, 0x80042317},
    {"VSS_E_WRITER_INFRASTRUCTURE", VSS_E_WRITER_INFRASTRUCTURE, 0x80042318},
    {"VSS_E_WRITER_NOT_RESPONDING", VSS_E_WRITER_NOT_RESPONDING, 0x80042319},
    {"VSS_E_WRITER_ALREADY_SUBSCRIBED", VSS_E_WRITER_ALREADY_SUBSCRIBED, 0x8004231A},
    {"VSS_E_UNSUPPORTED_CONTEXT", VSS_E_UNSUPPORTED_CONTEXT, 0x8004231B},
    {"VSS_E_INSUFFICIENT_STORAGE", VSS_E_INSUFFICIENT_STORAGE, 0x8004231F},
    {"VSS_E_NO_SNAPSHOTS_IMPORTED", VSS_E_NO_SNAPSHOTS_IMPORTED, 0x80042320},
    {"VSS_E_REBOOT_REQUIRED", VSS_E_REBOOT_REQUIRED, 0x80042327},
    {"VSS_E_TRANSACTION_FREEZE_TIMEOUT", VSS_E_TRANSACTION_FREEZE_TIMEOUT, 0x80042328},
    {"VSS_E_TRANSACTION_THAW_TIMEOUT", VSS_E_TRANSACTION_THAW_TIMEOUT, 0x80042329},
    {"VSS_E_WRITERERROR_PARTIAL_FAILURE", VSS_E_WRITERERROR_PARTIAL_FAILURE, 0x80042336},
    {"VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT", VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT, 0x800423F0},
    {"VSS_E_WRITERERROR_OUTOFRESOURCES", VSS_E_WRITERERROR_OUTOFRESOURCES, 0x800423F1},
    {"VSS_E_WRITERERROR_TIMEOUT", VSS_E_WRITERERROR_TIMEOUT, 0x800423F2},
    {"VSS_E_WRITERERROR_RETRYABLE", VSS_E_WRITERERROR_RETRYABLE, 0x800423F3},
    {"VSS_E_WRITERERROR_NONRETRYABLE", VSS_E_WRITERERROR_NONRETRYABLE, 0x800423F4},
    {"VSS_E_WRITER_STATUS_NOT_AVAILABLE", VSS_E_WRITER_STATUS_NOT_AVAILABLE, 0x80042409},
};

TEST(PlatformValues, TheServicesResultsAreThePublishedOnes) {
  for (const Code& code : kServiceResults)
    EXPECT_EQ(static_cast<std::uint32_t>(code.value), code.published) << code.name;
}

TEST(PlatformValues, TheDeviceQueriesAreThePublishedOnes) {
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_STORAGE_QUERY_PROPERTY), 0x2D1400u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_STORAGE_GET_DEVICE_NUMBER), 0x2D1080u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS), 0x560000u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_DISK_IS_CLUSTERED), 0x700F8u);
  EXPECT_EQ(sizeof(STORAGE_PROPERTY_QUERY), 12u);
  EXPECT_EQ(sizeof(STORAGE_DEVICE_DESCRIPTOR), 40u);
  EXPECT_EQ(offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), 24u);
  EXPECT_EQ(sizeof(VOLUME_DISK_EXTENTS), 32u);
  EXPECT_EQ(offsetof(VOLUME_DISK_EXTENTS, Extents), 8u);
}

TEST(PlatformValues, AWin32CodeBecomesAnHresultOfItsOwnFacility) {
  EXPECT_EQ(HResultFromWin32(ERROR_SUCCESS), S_OK);
  EXPECT_EQ(HResultFromWin32(ERROR_ACCESS_DENIED), E_ACCESSDENIED);
  EXPECT_EQ(HResultFromWin32(0x80004005), E_FAIL);
  EXPECT_EQ(HResultFromWin32(0x1234007B), static_cast<HRESULT>(0x8007007B));
}

// ---- the current host ----

TEST(CurrentHost, IsTheMachineOrNoneWhenNoOtherIsInstalled) {
  EXPECT_EQ(CurrentHostOrNull(), MachineHost());
  if (MachineHost() == nullptr) {
    EXPECT_THROW(CurrentHost(), NoHostError);
  } else {
    EXPECT_EQ(&CurrentHost(), MachineHost());
  }
}

TEST(CurrentHost, IsTheInstalledOneUntilItsGuardEnds) {
  simulator::SimulatedHost outer{test::SmallHost()};
  simulator::SimulatedHost inner{test::SmallHost()};
  {
    const ScopedHost installOuter(outer);
    EXPECT_EQ(&CurrentHost(), &outer);
    {
      const ScopedHost installInner(inner);
      EXPECT_EQ(&CurrentHost(), &inner);
    }
    EXPECT_EQ(CurrentHostOrNull(), &outer);
  }
  EXPECT_EQ(CurrentHostOrNull(), MachineHost());
}

TEST(CurrentHost, SaysWhatToDoWhereThereIsNone) {
  EXPECT_STREQ(NoHostError().what(),
               "no host: this platform has no Volume Shadow Copy service; install a simulated host first");
}

}  // namespace
}  // namespace varnel
