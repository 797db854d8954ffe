#include "simulator/machine/result_names.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>

namespace varnel::simulator {
namespace {

struct NamedResult {
  DWORD code;
  std::string_view name;
};

// By ascending code. Numbers and not the headers' names: SDKs differ in which of these they have.
constexpr NamedResult kResults[] = {
    {0x00000000, "S_OK"},
    {0x00000001, "S_FALSE"},
    {0x00042309, "VSS_S_ASYNC_PENDING"},
    {0x0004230A, "VSS_S_ASYNC_FINISHED"},
    {0x0004230B, "VSS_S_ASYNC_CANCELLED"},
    {0x00042321, "VSS_S_SOME_SNAPSHOTS_NOT_IMPORTED"},
    {0x80004001, "E_NOTIMPL"},
    {0x80004002, "E_NOINTERFACE"},
    {0x80004003, "E_POINTER"},
    {0x80004004, "E_ABORT"},
    {0x80004005, "E_FAIL"},
    {0x8000FFFF, "E_UNEXPECTED"},
    {0x80040110, "CLASS_E_NOAGGREGATION"},
    {0x80040154, "REGDB_E_CLASSNOTREG"},
    {0x800401F0, "CO_E_NOTINITIALIZED"},
    {0x80042301, "VSS_E_BAD_STATE"},
    {0x80042302, "VSS_E_UNEXPECTED"},
    {0x80042303, "VSS_E_PROVIDER_ALREADY_REGISTERED"},
    {0x80042304, "VSS_E_PROVIDER_NOT_REGISTERED"},
    {0x80042306, "VSS_E_PROVIDER_VETO"},
    {0x80042307, "VSS_E_PROVIDER_IN_USE"},
    {0x80042308, "VSS_E_OBJECT_NOT_FOUND"},
    {0x8004230C, "VSS_E_VOLUME_NOT_SUPPORTED"},
    {0x8004230D, "VSS_E_OBJECT_ALREADY_EXISTS"},
    {0x8004230E, "VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER"},
    {0x8004230F, "VSS_E_UNEXPECTED_PROVIDER_ERROR"},
    {0x80042310, "VSS_E_CORRUPT_XML_DOCUMENT"},
    {0x80042311, "VSS_E_INVALID_XML_DOCUMENT"},
    {0x80042312, "VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"},
    {0x80042313, "VSS_E_FLUSH_WRITES_TIMEOUT"},
    {0x80042314, "VSS_E_HOLD_WRITES_TIMEOUT"},
    {0x80042315, "VSS_E_UNEXPECTED_WRITER_ERROR"},
    {0x80042316, "VSS_E_SNAPSHOT_SET_IN_PROGRESS"},
    {0x80042317, "VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED"},
    {0x80042318, "VSS_E_WRITER_INFRASTRUCTURE"},
    {0x80042319, "VSS_E_WRITER_NOT_RESPONDING"},
    {0x8004231A, "VSS_E_WRITER_ALREADY_SUBSCRIBED"},
    {0x8004231B, "VSS_E_UNSUPPORTED_CONTEXT"},
    {0x8004231D, "VSS_E_VOLUME_IN_USE"},
    {0x8004231E, "VSS_E_MAXIMUM_DIFFAREA_ASSOCIATIONS_REACHED"},
    {0x8004231F, "VSS_E_INSUFFICIENT_STORAGE"},
    {0x80042320, "VSS_E_NO_SNAPSHOTS_IMPORTED"},
    {0x80042321, "VSS_E_SOME_SNAPSHOTS_NOT_IMPORTED"},
    {0x80042322, "VSS_E_MAXIMUM_NUMBER_OF_REMOTE_MACHINES_REACHED"},
    {0x80042323, "VSS_E_REMOTE_SERVER_UNAVAILABLE"},
    {0x80042324, "VSS_E_REMOTE_SERVER_UNSUPPORTED"},
    {0x80042325, "VSS_E_REVERT_IN_PROGRESS"},
    {0x80042326, "VSS_E_REVERT_VOLUME_LOST"},
    {0x80042327, "VSS_E_REBOOT_REQUIRED"},
    {0x80042328, "VSS_E_TRANSACTION_FREEZE_TIMEOUT"},
    {0x80042329, "VSS_E_TRANSACTION_THAW_TIMEOUT"},
    {0x8004232A, "VSS_E_UNSELECTED_VOLUME"},
    {0x8004232B, "VSS_E_SNAPSHOT_NOT_IN_SET"},
    {0x8004232C, "VSS_E_NESTED_VOLUME_LIMIT"},
    {0x8004232D, "VSS_E_VOLUME_NOT_LOCAL"},
    {0x8004232E, "VSS_E_CLUSTER_TIMEOUT"},
    {0x8004232F, "VSS_E_NOT_SUPPORTED"},
    {0x80042336, "VSS_E_WRITERERROR_PARTIAL_FAILURE"},
    {0x800423F0, "VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT"},
    {0x800423F1, "VSS_E_WRITERERROR_OUTOFRESOURCES"},
    {0x800423F2, "VSS_E_WRITERERROR_TIMEOUT"},
    {0x800423F3, "VSS_E_WRITERERROR_RETRYABLE"},
    {0x800423F4, "VSS_E_WRITERERROR_NONRETRYABLE"},
    {0x800423F5, "VSS_E_WRITERERROR_RECOVERY_FAILED"},
    {0x800423F6, "VSS_E_BREAK_REVERT_ID_FAILED"},
    {0x800423F7, "VSS_E_LEGACY_PROVIDER"},
    {0x800423F8, "VSS_E_MISSING_DISK"},
    {0x800423F9, "VSS_E_MISSING_HIDDEN_VOLUME"},
    {0x800423FA, "VSS_E_MISSING_VOLUME"},
    {0x800423FB, "VSS_E_AUTORECOVERY_FAILED"},
    {0x800423FC, "VSS_E_DYNAMIC_DISK_ERROR"},
    {0x800423FD, "VSS_E_NONTRANSPORTABLE_BCD"},
    {0x800423FE, "VSS_E_CANNOT_REVERT_DISKID"},
    {0x800423FF, "VSS_E_RESYNC_IN_PROGRESS"},
    {0x80042400, "VSS_E_CLUSTER_ERROR"},
    {0x80042401, "VSS_E_ASRERROR_DISK_ASSIGNMENT_FAILED"},
    {0x80042402, "VSS_E_ASRERROR_DISK_RECREATION_FAILED"},
    {0x80042403, "VSS_E_ASRERROR_NO_ARCPATH"},
    {0x80042404, "VSS_E_ASRERROR_MISSING_DYNDISK"},
    {0x80042405, "VSS_E_ASRERROR_SHARED_CRIDISK"},
    {0x80042406, "VSS_E_ASRERROR_DATADISK_RDISK0"},
    {0x80042407, "VSS_E_ASRERROR_RDISK0_TOOSMALL"},
    {0x80042408, "VSS_E_ASRERROR_CRITICAL_DISKS_TOO_SMALL"},
    {0x80042409, "VSS_E_WRITER_STATUS_NOT_AVAILABLE"},
    {0x8004240A, "VSS_E_ASRERROR_DYNAMIC_VHD_NOT_SUPPORTED"},
    {0x80042417, "VSS_E_FSS_TIMEOUT"},
    {0x80070005, "E_ACCESSDENIED"},
    {0x80070006, "E_HANDLE"},
    {0x8007000E, "E_OUTOFMEMORY"},
    {0x80070057, "E_INVALIDARG"},
};

static_assert(std::is_sorted(std::begin(kResults), std::end(kResults),
                             [](const NamedResult& a, const NamedResult& b) { return a.code < b.code; }));

std::string Hexadecimal(DWORD code) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(code));
  return text;
}

std::optional<DWORD> ParseNumber(std::string_view digits, int base) {
  DWORD value = 0;
  const char* end = digits.data() + digits.size();
  const auto [at, error] = std::from_chars(digits.data(), end, value, base);
  if (error != std::errc() || at != end) return std::nullopt;
  return value;
}

}  // namespace

std::string ResultName(HRESULT result) {
  const DWORD code = static_cast<DWORD>(result);
  const auto* found = std::lower_bound(std::begin(kResults), std::end(kResults), code,
                                       [](const NamedResult& entry, DWORD wanted) { return entry.code < wanted; });
  if (found != std::end(kResults) && found->code == code) return std::string(found->name);
  return Hexadecimal(code);
}

std::vector<std::string_view> ResultNames() {
  std::vector<std::string_view> names;
  for (const NamedResult& result : kResults) names.push_back(result.name);
  return names;
}

std::optional<DWORD> ParseResult(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) return ParseNumber(text.substr(2), 16);
  if (!text.empty() && text.front() >= '0' && text.front() <= '9') return ParseNumber(text, 10);
  const auto* found = std::find_if(std::begin(kResults), std::end(kResults),
                                   [&](const NamedResult& entry) { return entry.name == text; });
  if (found == std::end(kResults)) return std::nullopt;
  return found->code;
}

std::string ErrorName(DWORD code) {
  return code <= 0xFFFF ? std::to_string(code) : Hexadecimal(code);
}

}  // namespace varnel::simulator
