#include "varnelctl/capture/evidence_failure.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "core/configuration.h"
#include "simulator/machine/call_names.h"
#include "simulator/machine/result_names.h"
#include "text/unicode.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/records.h"

namespace varnelctl {
namespace {

using Stored = nlohmann::json;
using varnel::Utf8ToWideLossy;
using varnel::simulator::HostModel;
using varnel::simulator::WriterEvent;
using varnel::simulator::WriterFault;

struct FailedState {
  std::string_view name;
  WriterEvent event;
};

constexpr FailedState kFailedStates[] = {
    {"VSS_WS_FAILED_AT_IDENTIFY", WriterEvent::identify},
    {"VSS_WS_FAILED_AT_PREPARE_BACKUP", WriterEvent::prepareBackup},
    {"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT", WriterEvent::prepareSnapshot},
    {"VSS_WS_FAILED_AT_FREEZE", WriterEvent::freeze},
    {"VSS_WS_FAILED_AT_THAW", WriterEvent::thaw},
    {"VSS_WS_FAILED_AT_POST_SNAPSHOT", WriterEvent::postSnapshot},
    {"VSS_WS_FAILED_AT_BACKUP_COMPLETE", WriterEvent::backupComplete},
    {"VSS_WS_FAILED_AT_BACKUPSHUTDOWN", WriterEvent::backupShutdown},
};

// What a step of the run waits for.
struct StepOperation {
  std::string_view step;
  const char* async;
};

constexpr StepOperation kOperations[] = {
    {"gathering", "GatherWriterMetadata"}, {"preparing", "PrepareForBackup"}, {"snapshot", "DoSnapshotSet"},
    {"reading", "GatherWriterStatus"},     {"completing", "BackupComplete"},
};

HRESULT ResultOf(std::string_view text) {
  return static_cast<HRESULT>(varnel::simulator::ParseResult(text).value_or(0));
}

bool HasWriter(const HostModel& host, const std::wstring& name) {
  return std::any_of(host.writers.begin(), host.writers.end(), [&](const auto& writer) { return writer.name == name; });
}

// A code whose text the run tells has that text again.
void AddText(DWORD code, std::string_view text, HostModel& host) {
  if (!text.empty()) host.messages[code] = Utf8ToWideLossy(text) + L"\r\n";
}

// What follows the first sentence of "SqlServerWriter failed to freeze the I/O operations. The writer exceeded ...".
std::string_view TextAfterSentence(std::string_view message, std::string_view writer) {
  if (!message.starts_with(writer)) return {};
  constexpr std::string_view kEnd = ". ";
  const std::size_t end = message.find(kEnd, writer.size());
  return end == message.npos ? std::string_view() : message.substr(end + kEnd.size());
}

// "RequestStatus=WriterFailure, WriterName=..., WriterError=..., WriterStatus=..."
void AddWriterFailure(const Stored& run, const RecordText& record, HostModel& host) {
  WriterFault fault;
  const std::string writer(FieldOf(record, "WriterName"));
  fault.writer = Utf8ToWideLossy(writer);
  const std::string_view stood = FieldOf(record, "WriterStatus");
  const auto* const state = std::find_if(std::begin(kFailedStates), std::end(kFailedStates),
                                         [&](const FailedState& known) { return known.name == stood; });
  fault.failure = ResultOf(FieldOf(record, "WriterError"));
  const bool known = std::any_of(host.faults.writers.begin(), host.faults.writers.end(),
                                 [&](const WriterFault& other) { return other.writer == fault.writer; });
  if (state == std::end(kFailedStates) || fault.failure == 0 || known || !HasWriter(host, fault.writer)) return;
  fault.event = state->event;
  fault.applicationResult = ResultOf(FieldOf(record, "ApplicationError"));
  fault.applicationMessage = Utf8ToWideLossy(FieldOf(record, "ApplicationMsg"));
  const std::string message = run.at("result").at("message");
  const std::string_view text = TextAfterSentence(message, writer);
  if (text != FieldOf(record, "WriterError")) AddText(static_cast<DWORD>(fault.failure), text, host);
  host.faults.writers.push_back(std::move(fault));
}

bool HasComponent(const HostModel& host, const std::wstring& writer, const std::wstring& fullPath) {
  return std::any_of(host.writers.begin(), host.writers.end(), [&](const auto& one) {
    return one.name == writer && std::any_of(one.components.begin(), one.components.end(),
                                             [&](const auto& component) { return FullPath(component) == fullPath; });
  });
}

// "RequestStatus=ComponentLevelFailure, Component=...", which follows its writer's.
void AddComponentFailure(const RecordText& record, HostModel& host) {
  const std::wstring component = Utf8ToWideLossy(FieldOf(record, "Component"));
  const HRESULT failure = ResultOf(FieldOf(record, "ComponentLevelError"));
  if (host.faults.writers.empty() || failure == 0) return;
  WriterFault& fault = host.faults.writers.back();
  const bool known = std::any_of(fault.components.begin(), fault.components.end(),
                                 [&](const auto& other) { return other.fullPath == component; });
  if (known || !HasComponent(host, fault.writer, component)) return;
  fault.components.push_back({component, failure, ResultOf(FieldOf(record, "ApplicationError")),
                              Utf8ToWideLossy(FieldOf(record, "ApplicationMsg"))});
}

// How often the call had been made when it failed so; the first time where the calls are not known.
int OccurrenceOf(const std::string& call, HRESULT failure, const std::string& calls) {
  const std::string end = " = " + varnel::simulator::ResultName(failure);
  std::istringstream lines(calls);
  int count = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(call + "(")) continue;
    ++count;
    if (line.ends_with(end)) return count;
  }
  return 1;
}

// "m_pVssObject->AddToSnapshotSet()=Failed, error=VSS_E_PROVIDER_VETO": false where no such call is known.
bool AddCallFailure(const RecordText& record, HRESULT failure, const std::string& calls, HostModel& host) {
  const std::string method(MethodOf(CallOf(record)));
  if (method.empty()) return false;
  for (const std::string& call : {"IVssBackupComponents::" + method, method}) {
    const auto names = varnel::simulator::CallNames();
    if (std::find(names.begin(), names.end(), call) == names.end()) continue;
    host.faults.calls.push_back({call, OccurrenceOf(call, failure, calls), static_cast<DWORD>(failure)});
    return true;
  }
  return false;
}

void AddThrownFailure(const Stored& run, const std::vector<RecordText>& records, const std::string& calls,
                      HostModel& host) {
  const Stored& result = run.at("result");
  if (!result.at("hresult").is_string()) return;
  const HRESULT failure = ResultOf(result.at("hresult").get<std::string>());
  for (const RecordText& record : records) {
    if (AddCallFailure(record, failure, calls, host)) return;
  }
  const std::string step = result.at("step").is_string() ? result.at("step").get<std::string>() : std::string();
  for (const StepOperation& operation : kOperations) {
    if (operation.step == step) host.faults.asyncs.push_back({operation.async, 1, failure});
  }
}

// The number after "ended with exit code ".
DWORD ExitCodeIn(const std::string& message) {
  constexpr std::string_view kBefore = "exit code ";
  const std::size_t at = message.find(kBefore);
  return at == message.npos ? 1 : static_cast<DWORD>(std::strtoul(message.c_str() + at + kBefore.size(), nullptr, 10));
}

// Copies have other numbers the next time.
std::wstring AnyCopy(std::wstring commandLine) {
  constexpr std::wstring_view kCopy = L"HarddiskVolumeShadowCopy";
  const std::size_t at = commandLine.find(kCopy);
  if (at == commandLine.npos) return commandLine;
  const std::size_t start = at + kCopy.size();
  const std::size_t end = std::min(commandLine.find_first_not_of(L"0123456789", start), commandLine.size());
  return commandLine.replace(start, end - start, L"*");
}

// The text of what the checker's end or its absence means to the system is the second of three details.
void AddCheckerText(const Stored& result, DWORD code, HostModel& host) {
  if (result.at("details").size() < 2) return;
  const std::string text = result.at("details")[1];
  if (!text.starts_with("Error: ")) AddText(code, text, host);
}

// The checker is there unless the run says that it is not, and fails where it failed.
void AddChecker(const Stored& run, HostModel& host) {
  const Stored& arguments = run.at("header").at("commandLine");
  const Stored& result = run.at("result");
  const std::string cause = result.value("explain", std::string());
  if (std::find(arguments.begin(), arguments.end(), "--verify") == arguments.end()) return;
  if (cause == advice::kCheckerMissing) return AddCheckerText(result, ERROR_FILE_NOT_FOUND, host);
  if (cause == advice::kCheckerFailed && !result.at("details").empty()) {
    const std::wstring line = Utf8ToWideLossy(result.at("details").back().get<std::string>());
    const DWORD exitCode = ExitCodeIn(result.at("message").get<std::string>());
    host.commands.push_back({AnyCopy(line), exitCode});
    AddCheckerText(result, exitCode, host);
  }
  host.commands.push_back({std::wstring(varnel::kDatabaseChecker) + L" *", 0});
}

}  // namespace

void AddFailure(const Stored& run, const std::string& calls, HostModel& host) {
  const std::string details = run.value("errorDetails", std::string());
  const std::vector<RecordText> records = RecordsIn(details);
  for (const RecordText& record : records) {
    AddWriterFailure(run, record, host);
    AddComponentFailure(record, host);
  }
  AddThrownFailure(run, records, calls, host);
  AddChecker(run, host);
}

}  // namespace varnelctl
