#include "varnelctl/event_log/writer.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <optional>

#include "platform/host.h"
#include "platform/owners.h"
#include "platform/tessel/FileLog.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/event_log/event_ids.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/records.h"

namespace varnelctl {
namespace {

using varnel::CurrentHost;

constexpr wchar_t kSource[] = L"varnel";
// Of one inserted text; an event takes some 31,000 characters.
constexpr std::size_t kLongestText = 12000;

// Of each alert record, as the log has it.
constexpr int kCategories[] = {
#define VARNEL_ALERT(name, tag, ending, category, ...) category,
#include "core/alert_records.inc"
#undef VARNEL_ALERT
};

// A viewer takes a percent sign before a digit for the place of another text.
std::wstring Inserted(const std::string& text) {
  std::wstring wide = varnel::Utf8ToWideLossy(text);
  for (std::size_t at = wide.find(L'%'); at != wide.npos; at = wide.find(L'%', at + 1)) {
    const bool isPlace = at + 1 < wide.size() && wide[at + 1] >= L'0' && wide[at + 1] <= L'9';
    if (isPlace) wide.insert(at + 1, 1, L' ');
  }
  if (wide.size() > kLongestText) wide.replace(kLongestText, wide.npos, L"...");
  return wide;
}

[[noreturn]] void ThrowNotTaken(const std::string& what, DWORD error = CurrentHost().GetLastError()) {
  throw NotAllDone("--event-log: the event log did not take " + what + ": error " + std::to_string(error),
                   varnel::HResultFromWin32(error));
}

class Source {
 public:
  explicit Source(const std::string& commandLine) : commandLine_(Inserted(commandLine)) {
    if (!source_) ThrowNotTaken("the events of this run");
  }

  /// Whether the log took it; the last error is that of the call otherwise.
  bool Report(DWORD id, WORD type, const std::string& text) const {
    const std::wstring first = Inserted(text);
    std::array<LPCWSTR, 2> texts = {first.c_str(), commandLine_.c_str()};
    const auto count = static_cast<WORD>(texts.size());
    return CurrentHost().eventLog().ReportEventW(source_.Get(), type, 0, id, nullptr, count, 0, texts.data(),
                                                 nullptr) != FALSE;
  }

 private:
  varnel::EventSource source_{CurrentHost().eventLog().RegisterEventSourceW(nullptr, kSource)};
  std::wstring commandLine_;
};

// In one line, without what ended the record before it.
std::string TextOf(const RecordText& record) {
  return OneLine(record.text.substr(std::min(record.text.find_first_not_of(" ;\r\n"), record.text.size())));
}

WORD EventTypeOf(const RecordText& record) {
  return kCategories[record.number - 1] == CFileLog::Warning ? WORD{EVENTLOG_WARNING_TYPE} : WORD{EVENTLOG_ERROR_TYPE};
}

}  // namespace

void AddEventLogOption(CLI::App& app, bool& isWanted) {
  app.add_flag("--event-log", isWanted,
               "Write the verdict and each alert record to the Application event log, under the source varnel");
}

WORD EventTypeOf(ExitStatus status) {
  switch (status) {
    case ExitStatus::Done:
      return EVENTLOG_INFORMATION_TYPE;
    case ExitStatus::PartialSuccess:
    case ExitStatus::NotAllDone:
      return EVENTLOG_WARNING_TYPE;
    default:
      return EVENTLOG_ERROR_TYPE;
  }
}

void WriteEvents(const RunEvents& run) {
  const Source source(run.commandLine);
  std::optional<DWORD> recordError;  // of the first that was not taken; the verdict is tried all the same
  for (const RecordText& record : RecordsIn(run.alertRecords)) {
    const bool isTaken = source.Report(kAlertEvents + record.number, EventTypeOf(record), TextOf(record));
    if (!isTaken && !recordError) recordError = CurrentHost().GetLastError();
  }
  const DWORD verdict = run.command + static_cast<DWORD>(run.status);
  if (!source.Report(verdict, EventTypeOf(run.status), run.verdict)) ThrowNotTaken("the verdict");
  if (recordError) ThrowNotTaken("an alert record", *recordError);
}

}  // namespace varnelctl
