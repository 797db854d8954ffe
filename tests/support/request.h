// A requestor as the host agent drives it, up to the point where selection starts.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/varnel.h"
#include "tests/support/requestor_probe.h"

namespace varnel::test {

/// The `long` that a failed call throws for this HRESULT.
constexpr long Failure(HRESULT hr) {
  return static_cast<long>(hr);
}
/// The same for a Win32 code.
constexpr long Win32Failure(DWORD code) {
  return static_cast<long>(HResultFromWin32(code));
}

/// The VarnelException that `action` throws; nothing when it returns. Any other exception passes.
template <class Action>
std::optional<VarnelException> ThrownException(Action action) {
  try {
    action();
  } catch (const VarnelException& exception) {
    return exception;
  }
  return std::nullopt;
}

/// A requestor with its enumerator and error details. Lives inside a test: nothing of it may outlast the host's check.
template <class Requestor = CVarnel>
struct Request {
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  Requestor requestor;
  RequestorProbe probe{requestor};
  std::string details;

  template <class... Arguments>
  explicit Request(Arguments&&... arguments) : requestor(0, std::forward<Arguments>(arguments)...) {
    requestor.SetDiskAndVolumeEnumeratorObj(&enumerator);
  }

  /// Initialises for a full backup and reads the writers.
  void Gather(std::vector<std::wstring> serialNumbers) {
    if (!serialNumbers.empty()) requestor.SetInputDriveSerialNos(std::move(serialNumbers));
    requestor.Initialize(0, L"", false, VSS_BT_FULL, details, &enumerator);
    requestor.GatherWriterMetadata(details);
  }
};

}  // namespace varnel::test
