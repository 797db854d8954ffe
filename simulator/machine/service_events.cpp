#include "simulator/machine/service_events.h"

#include <initializer_list>
#include <utility>

#include "simulator/machine/machine.h"
#include "simulator/machine/result_names.h"
#include "simulator/machine/shared_state.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr GUID kSqlWriter = ParseGuid<GUID>("{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
constexpr GUID kHyperVWriter = ParseGuid<GUID>("{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}");

// A message of a source; "%1" to "%9" are its inserted texts.
struct EventMessage {
  const wchar_t* channel;
  const wchar_t* source;
  DWORD id;
  EventLevel level;
  const wchar_t* text;
};

constexpr EventMessage kUnexpectedInRoutine = {L"Application", L"VSS", 8193, EventLevel::error,
                                               L"An unexpected error occurred in the routine %1. hr = %2.%3"};
constexpr EventMessage kNoCallback = {
    L"Application", L"VSS", 8194, EventLevel::error,
    L"The callback interface of a requestor could not be had. hr = %1. Often the security settings of the process of "
    L"the writer or of the requestor are wrong.%2"};
constexpr EventMessage kRejected = {
    L"Application", L"VSS", 8229, EventLevel::warning,
    L"A writer has rejected an event with the error %1. What it changed in its components is not available to the "
    L"requestor. See the events of the application that has the writer.%2"};
constexpr EventMessage kUnexpected = {L"Application", L"VSS", 12289, EventLevel::error,
                                      L"Unexpected error %1. hr = %2.%3"};
constexpr EventMessage kProviderRoutine = {
    L"Application", L"VSS", 12293, EventLevel::error,
    L"A routine of the shadow copy provider %1 failed. Routine: %2 [hr = %3].%4"};
constexpr EventMessage kFlushTimeout = {
    L"Application", L"VSS", 12297, EventLevel::error,
    L"Writes to the volume %1 could not be flushed while its shadow copy was made. Its place in the set is %2. "
    L"Open[%3], Flush[%4], Release[%5], OnRun[%6].%7"};
constexpr EventMessage kHoldTimeout = {
    L"Application", L"VSS", 12298, EventLevel::error,
    L"Writes to the volume %1 could not be held while its shadow copy was made. Its place in the set is %2. "
    L"Open[%3], Flush[%4], Release[%5], OnRun[%6].%7"};
constexpr EventMessage kVolumeHoldTimeout = {
    L"System", L"volsnap", 8, EventLevel::error,
    L"Flushing and holding the writes to the volume %1 took too long: nobody released them."};
constexpr EventMessage kTornDatabase = {
    L"Application", L"SQLWRITER", 24580, EventLevel::error,
    L"The database %1 lies on several volumes, of which the shadow copy has only some. %2"};
constexpr EventMessage kSqlError = {L"Application", L"SQLWRITER", 24583, EventLevel::error,
                                    L"SQL Server failed. hr = %1. Its message: %2"};
constexpr EventMessage kMachineBackup = {L"Microsoft-Windows-Hyper-V-VMMS-Admin", L"Microsoft-Windows-Hyper-V-VMMS",
                                         10102, EventLevel::error,
                                         L"The backup of the virtual machine \"%1\" could not be made. %2"};

std::wstring Inserted(std::wstring_view message, const std::vector<std::wstring>& texts) {
  std::wstring result;
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (message[i] == L'%') {
      result += texts.at(static_cast<std::size_t>(message[++i] - L'1'));
    } else {
      result += message[i];
    }
  }
  return result;
}

void Write(Machine& machine, const EventMessage& message, std::vector<std::wstring> texts) {
  LoggedEvent event{message.channel, message.source, message.id, message.level, machine.SystemTime()};
  event.message = Inserted(message.text, texts);
  event.texts = std::move(texts);
  machine.newEvents.push_back(std::move(event));
  if (machine.shared != nullptr) machine.shared->NoticeChange();
}

std::wstring Hexadecimal(HRESULT result) {
  constexpr std::wstring_view kDigits = L"0123456789abcdef";
  std::wstring text = L"0x";
  for (int shift = 28; shift >= 0; shift -= 4) text += kDigits[static_cast<DWORD>(result) >> shift & 0xF];
  return text;
}

// "0x80042306, VSS_E_PROVIDER_VETO"
std::wstring Told(HRESULT result) {
  const std::wstring name = Utf8ToWide(ResultName(result));
  return name.starts_with(L"0x") ? name : Hexadecimal(result) + L", " + name;
}

using Context = std::initializer_list<std::pair<const wchar_t*, std::wstring>>;

// The paragraphs with which the service ends its messages.
std::wstring Details(std::wstring_view operation, const Context& context) {
  std::wstring text = L"\r\n\r\nOperation:\r\n   " + std::wstring(operation) + L"\r\n\r\nContext:";
  for (const auto& [name, value] : context) text += L"\r\n   " + std::wstring(name) + L": " + value;
  return text;
}

const wchar_t* NameOf(WriterEvent event) {
  switch (event) {
    case WriterEvent::identify:
      return L"OnIdentify event";
    case WriterEvent::prepareBackup:
      return L"PrepareForBackup event";
    case WriterEvent::prepareSnapshot:
      return L"PrepareForSnapshot Event";
    case WriterEvent::freeze:
      return L"Freeze Event";
    case WriterEvent::thaw:
      return L"Thaw Event";
    case WriterEvent::postSnapshot:
      return L"PostSnapshot Event";
    case WriterEvent::backupComplete:
      return L"BackupComplete Event";
    case WriterEvent::backupShutdown:
      return L"BackupShutdown Event";
    case WriterEvent::preRestore:
      return L"PreRestore Event";
    case WriterEvent::postRestore:
      return L"PostRestore Event";
  }
  return L"";
}

bool IsUnexpected(HRESULT result) {
  return result == VSS_E_UNEXPECTED || result == E_UNEXPECTED;
}

// Of which provider a failure is that nobody of them came to: the first that is no part of the system.
GUID UsualProvider(const HostModel& model) {
  for (const Provider& provider : model.providers) {
    if (provider.type == VSS_PROV_HARDWARE || provider.type == VSS_PROV_SOFTWARE) return provider.id;
  }
  return {};
}

bool LogFailureOfProvider(Machine& machine, std::wstring_view routine, HRESULT result) {
  if (result != VSS_E_PROVIDER_VETO && result != VSS_E_UNEXPECTED_PROVIDER_ERROR) return false;
  LogProviderFailure(machine, UsualProvider(machine.model()), routine, result);
  return true;
}

void LogTimeout(Machine& machine, HRESULT result, const std::vector<std::wstring>& volumes) {
  const bool hold = result == VSS_E_HOLD_WRITES_TIMEOUT;
  const std::wstring good = Hexadecimal(S_OK);
  const std::wstring bad = Hexadecimal(result);
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    Write(machine, hold ? kHoldTimeout : kFlushTimeout,
          {volumes[i], std::to_wstring(i), good, hold ? good : bad, hold ? bad : good, good,
           Details(L"Executing Asynchronous Operation", {{L"Current State", L"DoSnapshotSet"}})});
    if (hold) Write(machine, kVolumeHoldTimeout, {volumes[i]});
  }
}

// What the application of a writer writes of its own.
void LogOfApplication(Machine& machine, const Writer& writer, HRESULT failure, const WriterFault& fault) {
  if (writer.writerId == kSqlWriter && failure == VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT) {
    for (const ComponentFault& component : fault.components) {
      Write(machine, kTornDatabase, {component.fullPath, component.applicationMessage});
    }
  } else if (writer.writerId == kSqlWriter && !fault.applicationMessage.empty()) {
    Write(machine, kSqlError, {Told(fault.applicationResult), fault.applicationMessage});
  } else if (writer.writerId == kHyperVWriter) {
    for (const ComponentFault& component : fault.components) {
      Write(machine, kMachineBackup, {component.fullPath, component.applicationMessage});
    }
  }
}

}  // namespace

void LogCallFailure(Machine& machine, std::string_view call, HRESULT result) {
  if (!call.starts_with("IVss") && !call.starts_with("CreateVss")) return;
  const std::wstring routine = Utf8ToWide(call);
  if (LogFailureOfProvider(machine, routine, result) || !IsUnexpected(result)) return;
  Write(machine, kUnexpectedInRoutine,
        {routine, Told(result), Details(routine, {{L"Execution Context", L"Requestor"}})});
}

void LogOperationFailure(Machine& machine, std::string_view operation, HRESULT result,
                         const std::vector<std::wstring>& volumes) {
  const std::wstring name = Utf8ToWide(operation);
  if (result == VSS_E_HOLD_WRITES_TIMEOUT || result == VSS_E_FLUSH_WRITES_TIMEOUT) {
    LogTimeout(machine, result, volumes);
  } else if (!LogFailureOfProvider(machine, name, result) && IsUnexpected(result)) {
    Write(machine, kUnexpected,
          {name, Told(result), Details(L"Executing Asynchronous Operation", {{L"Current State", name}})});
  }
}

void LogProviderFailure(Machine& machine, const GUID& provider, std::wstring_view routine, HRESULT result) {
  const std::wstring id = FormatGuid(provider);
  Write(machine, kProviderRoutine,
        {id, std::wstring(routine), Told(result),
         Details(routine, {{L"Execution Context", L"Coordinator"}, {L"Provider ID", id}})});
}

void LogRejection(Machine& machine, const Writer& writer, WriterEvent event, HRESULT failure,
                  const WriterFault* fault) {
  // The service finds out by itself that a writer does not answer: nobody rejected anything.
  if (failure == VSS_E_WRITER_NOT_RESPONDING) return;
  if (fault != nullptr) LogOfApplication(machine, writer, failure, *fault);
  const EventMessage& message = failure == E_ACCESSDENIED ? kNoCallback : kRejected;
  Write(machine, message,
        {Told(failure), Details(NameOf(event), {{L"Execution Context", L"Writer"},
                                                {L"Writer Class Id", FormatGuid(writer.writerId)},
                                                {L"Writer Name", writer.name},
                                                {L"Writer Instance Name", writer.instanceName},
                                                {L"Writer Instance ID", FormatGuid(writer.instanceId)}})});
}

}  // namespace varnel::simulator
