// A random host, what its service and its writers answer, and how a requestor is asked: everything that decides how a
// request goes.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/vss.h"
#include "simulator/machine/model.h"

namespace varnel::test::reference {

/// The answer to a call that hands out an object: its result, and whether there is an object.
struct Delivery {
  HRESULT result = S_OK;
  bool object = true;
};

/// A component of the backup components document, and what the questions about it answer.
struct DocumentComponent {
  Delivery delivery{};
  Delivery view{};  // the query for IVssComponentEx2
  HRESULT reading = S_OK;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  std::optional<std::wstring> applicationMessage{};
  HRESULT naming = S_OK;
  std::optional<std::wstring> name{};
  HRESULT locating = S_OK;
  std::optional<std::wstring> logicalPath{};
};

/// A writer of the backup components document.
struct DocumentWriter {
  Delivery delivery{};
  HRESULT identifying = S_OK;
  GUID instanceId{};
  HRESULT counting = S_OK;
  std::vector<DocumentComponent> components{};
};

/// An entry of the writers' status.
struct StatusEntry {
  HRESULT reading = S_OK;
  GUID instanceId{};
  std::optional<std::wstring> name{};
  VSS_WRITER_STATE state = VSS_WS_STABLE;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  std::optional<std::wstring> applicationMessage{};
};

/// What the writers and the service answer from one check of the status to the next.
struct Check {
  HRESULT counting = S_OK;
  Delivery view{};  // the query for IVssBackupComponentsEx3
  std::vector<StatusEntry> entries{};
  HRESULT freeing = S_OK;
  HRESULT countingDocument = S_OK;
  std::vector<DocumentWriter> document{};
};

struct Scenario {
  simulator::HostModel host;
  std::vector<std::wstring> inputSerialNumbers;
  std::string requestText;
  DWORD context = 0;
  DWORD testPoints = 0;
  std::vector<std::wstring> ineligibleWriters;  // by name
  bool partialFailures = false;
  std::array<Check, 3> checks;          // before the snapshot, after it, and after BackupComplete
  std::vector<HRESULT> addAnswers;      // of the AddComponent calls in order; S_OK after the last
  std::vector<HRESULT> successAnswers;  // of the SetBackupSucceeded calls, likewise
};

/// The same scenario for the same seed on every platform.
Scenario RandomScenario(unsigned seed);

}  // namespace varnel::test::reference
