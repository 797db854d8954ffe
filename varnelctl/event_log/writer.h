// What a run leaves in the event log: --event-log.
#pragma once

#include <string>

#include "platform/win32.h"
#include "varnelctl/explanation/exit_status.h"

namespace CLI {
class App;
}

namespace varnelctl {

/// Declares the option.
void AddEventLogOption(CLI::App& app, bool& isWanted);

/// All text is UTF-8.
struct RunEvents {
  DWORD command = 0;  ///< its verdicts' numbers: kSnapshotEvents and so on
  ExitStatus status = ExitStatus::Done;
  std::string verdict;       ///< one line
  std::string alertRecords;  ///< the error details of the run
  std::string commandLine;
};

/// How much a run matters that ended so: EVENTLOG_INFORMATION_TYPE, _WARNING_TYPE or _ERROR_TYPE.
WORD EventTypeOf(ExitStatus status);

/// Writes each alert record and then the verdict to the Application log of the current host, under the source
/// "varnel". Throws NotAllDone when they are not all there.
void WriteEvents(const RunEvents& run);

}  // namespace varnelctl
