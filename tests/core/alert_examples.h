// An example of every alert record.
#pragma once

#include <string>
#include <vector>

#include "tests/support/alert_parts.h"

namespace varnel::test {

using Lines = std::vector<std::string>;

// The values of the page's examples, by the record's place.
inline const std::vector<std::vector<FormatArgument>>& ExampleValues() {
  constexpr auto kApplicationError = static_cast<HRESULT>(0x80040E14);
  static const std::vector<std::vector<FormatArgument>> kValues = {
      {"m_pVssObject->StartSnapshotSet()", L"VSS_E_BAD_STATE"},
      {L"SqlServerWriter", L"VSS_E_WRITERERROR_RETRYABLE", L"VSS_WS_FAILED_AT_FREEZE", kApplicationError, L"log full"},
      {L"\\HOST\\sales", L"VSS_E_WRITERERROR_NONRETRYABLE", kApplicationError, L"log full"},
      {L"E_OUTOFMEMORY"},
      {"pAsync->QueryStatus()", L"VSS_E_HOLD_WRITES_TIMEOUT"},
      {},
      {},
      {L"\\HOST\\sales"},
      {},
      {2, 0},
      {2, 1},
      {},
      {},
      {},
      {L"E_OUTOFMEMORY"},
      {},
      {},
  };
  return kValues;
}

}  // namespace varnel::test
