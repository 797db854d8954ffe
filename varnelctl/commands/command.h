// The commands. Each lives in a file of its own and is listed in command.cpp.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "varnelctl/console/output_file.h"
#include "varnelctl/evidence/evidence_options.h"
#include "varnelctl/explanation/exit_status.h"
#include "varnelctl/machine_session.h"
#include "varnelctl/session.h"

namespace CLI {
class App;
}

namespace varnelctl {

class Command {
 public:
  virtual ~Command() = default;
  virtual const char* name() const = 0;
  virtual const char* description() const = 0;
  /// Command lines for the help, one per line.
  virtual const char* examples() const = 0;
  /// Declares the command's own options; they are bound to this object.
  virtual void AddOptions(CLI::App& /*app*/) {}
  /// The set that its options ask for; nothing for a command that asks for none.
  virtual std::optional<RequestedSet> Requested() const { return std::nullopt; }
  /// Whether it asks anything of a host.
  virtual bool NeedsHost() const { return true; }
  /// Whether it runs where the service would answer this process nothing.
  virtual Fitness NeededFitness() const { return Fitness::Required; }
  /// Runs against the current host. A failure leaves as an exception, before anything was printed.
  virtual ExitStatus Run(Session& session) = 0;
  /// What the run comes to, in one line; what went wrong since Run ended is in the session. Empty for a command that
  /// says no such thing.
  virtual std::string LastWord(const Session& /*session*/) const { return {}; }
  /// The file that the page of the run goes to; nothing where nobody wants one.
  virtual std::optional<std::string> ReportFile() const { return std::nullopt; }
  /// The folder that the evidence of the run goes to.
  virtual EvidenceOptions Evidence() const { return {}; }
  /// The numbers of its verdicts in the event log (event_log/event_ids.h); nothing where nobody wants events.
  virtual std::optional<DWORD> Events() const { return std::nullopt; }
  /// Puts the last word into the document of the run.
  virtual void NoteLastWord(Session& /*session*/) const {}
  /// Says the last word, when nothing more can go wrong.
  virtual void Conclude(Session& /*session*/) {}
  /// The files that its options name.
  virtual std::vector<FileOption> Files() const { return {}; }
  /// What the run leaves behind, in words, for somebody who does not see what it printed; empty when it is nothing.
  virtual std::string WhatStands() const { return {}; }
};

std::unique_ptr<Command> MakeCaptureCommand();
std::unique_ptr<Command> MakeDisksCommand();
std::unique_ptr<Command> MakeDoctorCommand();
std::unique_ptr<Command> MakeExplainCommand();
std::unique_ptr<Command> MakePlanCommand();
std::unique_ptr<Command> MakeProvidersCommand();
std::unique_ptr<Command> MakeSetsCommand();
std::unique_ptr<Command> MakeReportCommand();
std::unique_ptr<Command> MakeSnapshotCommand();
std::unique_ptr<Command> MakeWritersCommand();

/// Every command, in the order of the help.
std::vector<std::unique_ptr<Command>> MakeCommands();

}  // namespace varnelctl
