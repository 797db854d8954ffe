#include "core/hresult.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "core/checks.h"
#include "core/logging.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "text/format.h"

namespace varnel {
namespace {

struct HResultName {
  std::uint32_t value;
  const wchar_t* name;
};

// Ascending, so that a look-up is a binary search.
constexpr HResultName kHResultNames[] = {
    {0x00000000, L"S_OK"},
    {0x00000001, L"S_FALSE"},
    {0x00042309, L"VSS_S_ASYNC_PENDING"},
    {0x0004230A, L"VSS_S_ASYNC_FINISHED"},
    {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
    {0x00042321, L"VSS_S_SOME_SNAPSHOTS_NOT_IMPORTED"},
    {0x8000FFFF, L"E_UNEXPECTED"},
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
    {0x8007000E, L"E_OUTOFMEMORY"},
};

constexpr bool IsBelow(const HResultName& a, const HResultName& b) {
  return a.value < b.value;
}
static_assert(std::is_sorted(std::begin(kHResultNames), std::end(kHResultNames), IsBelow));

const wchar_t* FindHResultName(std::uint32_t value) {
  const auto* found =
      std::lower_bound(std::begin(kHResultNames), std::end(kHResultNames), HResultName{value, nullptr}, IsBelow);
  return found == std::end(kHResultNames) || found->value != value ? nullptr : found->name;
}

std::wstring SystemText(HRESULT hr) {
  constexpr DWORD kNeutralDefault = 0x0400;
  Host* host = CurrentHostOrNull();
  if (host == nullptr) return {};
  LocalText text;
  host->messages().FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
      static_cast<DWORD>(hr), kNeutralDefault, text.AsBuffer(), 0, nullptr);
  return text.Get() == nullptr ? std::wstring() : std::wstring(text.Get());
}

}  // namespace

std::wstring HResultText(HRESULT hr) {
  if (const wchar_t* name = FindHResultName(static_cast<std::uint32_t>(hr))) return name;
  std::wstring text = SystemText(hr);
  return text.empty() ? FormatWide(L"Error: 0x%x", {hr}) : text;
}

std::wstring MessageTableText(HRESULT hr) {
  constexpr DWORD kSmallestBuffer = 4096;
  Host* host = CurrentHostOrNull();
  if (host == nullptr) return {};
  DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  const Module module(host->messages().LoadLibraryW(L"vsstrace.dll"));
  if (module) {
    flags |= FORMAT_MESSAGE_FROM_HMODULE;
  } else {
    kLog.Warning(L"Failed to load vsstrace.dll. Error %d", LastErrorOrGeneric());
  }
  LocalText message;
  const DWORD length = host->messages().FormatMessageW(flags, module.Get(), static_cast<DWORD>(hr), 0,
                                                       message.AsBuffer(), kSmallestBuffer, nullptr);
  if (length == 0 || message.Get() == nullptr) {
    kLog.Warning(L"FormatMessage failed. Error %d", LastErrorOrGeneric());
    return {};
  }
  return message.Get();
}

void ThrowHResult(HRESULT hr) {
  throw static_cast<long>(hr);
}

}  // namespace varnel
