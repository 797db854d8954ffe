#include "varnelctl/run.h"

#include <memory>
#include <optional>
#include <system_error>

#include "core/provider.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/log_sink.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/command_line.h"
#include "varnelctl/console/console.h"
#include "varnelctl/console/output_file.h"
#include "varnelctl/console/printable_log.h"
#include "varnelctl/console/shared_watch.h"
#include "varnelctl/console/text.h"
#include "varnelctl/event_log/writer.h"
#include "varnelctl/evidence/run_evidence.h"
#include "varnelctl/report/html/run_report.h"
#include "varnelctl/session.h"
#include "varnelctl/target_host.h"

namespace varnelctl {
namespace {

// The process's log while a command runs, if one was asked for. The lines that varnelctl itself puts into it tell where
// a run begins and how it ends, whatever the lowest category is.
class LogOfRun {
 public:
  /// \param kept takes all of it; null where nobody does.
  LogOfRun(const std::optional<std::string>& file, int lowestCategory, KeptLog* kept) {
    if (file) Open(*file, lowestCategory);
    if (kept != nullptr) sink_ = MakeKeepingLog(std::move(sink_), *kept);
    if (!sink_) return;
    sink_ = MakePrintableLog(std::move(sink_));
    current_.emplace(*sink_);
  }

  bool isOpen() const { return sink_ != nullptr; }

  void Begin(const Header& header) const {
    Write(CFileLog::Information, std::string(kRuler, '-'));
    for (const std::string& line : HeaderLines(header)) Write(CFileLog::Information, line);
  }

  /// The status of the run that ended with `status`: what is missing from its log makes a success one no more.
  ExitStatus End(Session& session, ExitStatus status, const std::string& lastWord) const {
    if (!isOpen()) return status;
    const bool isDone = status == ExitStatus::Done;
    Write(isDone ? CFileLog::Information : CFileLog::Error,
          "ends with exit status " + std::to_string(static_cast<int>(status)) + ": " + lastWord);
    const varnel::LostLines lost = sink_->Lost();
    if (lost.count == 0) return status;
    return session.ReportUndone(
        "the log " + name_ + " lost " + Counted(lost.count, "line") + ": " + lost.reason.message(), status);
  }

 private:
  static constexpr std::size_t kRuler = 80;

  void Open(const std::string& file, int lowestCategory) {
    name_ = Printable(varnel::Utf8ToWideLossy(file));
    if (name_.empty()) throw UsageError("--log: a file name is missing");
    try {
      sink_ = varnel::OpenLogFile(PathOf(file), lowestCategory);
    } catch (const std::system_error& error) {
      throw UsageError(OneLine(error.what()));
    }
  }
  void Write(int category, const std::string& text) const {
    sink_->Write(category, L"varnelctl", 0, varnel::Utf8ToWideLossy(text));
  }

  std::string name_;
  std::unique_ptr<varnel::LogSink> sink_;
  std::optional<varnel::ScopedLog> current_;
};

// Once: as soon as the host is there, whose own words are in it, or when there will be none.
void TellHeader(Session& session, const Invocation& invocation, const LogOfRun& log) {
  if (session.document.header() || !(session.keepsDocument || log.isOpen())) return;
  const Header& header = session.TellHeader(invocation.command->Requested());
  if (log.isOpen()) log.Begin(header);
}

void RequireDifferentFiles(const Invocation& invocation) {
  const GlobalOptions& options = invocation.options;
  std::vector<FileOption> files = {{"--host", options.hostFile},
                                   {"--state", options.stateFile},
                                   {"--log", options.logFile},
                                   {"--report", invocation.command->ReportFile()},
                                   {"--evidence", invocation.command->Evidence().folder}};
  for (FileOption& file : invocation.command->Files()) files.push_back(std::move(file));
  RequireDifferentFiles(files);
  RequireOutside(invocation.command->Evidence().folder, files);
}

// Ends every exception: `action`'s status, or that of the failure, which is then printed.
template <class Action>
ExitStatus Guarded(Session& session, Action action) {
  try {
    return action();
  } catch (...) {
    return session.Report(DescribeFailure(std::current_exception(), session.call()));
  }
}

std::optional<Journal> JournalOf(const GlobalOptions& options, const TargetHost& host) {
  if (options.noJournal) return std::nullopt;
  if (options.journalFolder) return Journal(std::filesystem::absolute(PathOf(*options.journalFolder)));
  return host.journalFolder() ? std::optional(Journal(*host.journalFolder())) : std::nullopt;
}

// \param host is made for the run and outlives it, unless the command needs none.
ExitStatus RunOnHost(const Invocation& invocation, Session& session, const LogOfRun& log, RunEvidence& evidence,
                     std::optional<TargetHost>& host) {
  if (!invocation.command->NeedsHost()) return invocation.command->Run(session);
  host.emplace(invocation.options.hostFile, invocation.options.stateFile, invocation.command->NeededFitness());
  session.calls = host->calls();
  session.writerEvents = host->writerEvents();
  session.journal = JournalOf(invocation.options, *host);
  session.requestLock = host->requestLock();
  TellHeader(session, invocation, log);
  // A failure of the command is described while its host is still there.
  const ExitStatus status = Guarded(session, [&] { return invocation.command->Run(session); });
  if (session.keepsDocument) invocation.command->NoteLastWord(session);  // the evidence may never come to its end
  evidence.AskHost(status);
  return status;
}

std::string LastWord(const Invocation& invocation, const Session& session) {
  if (std::string word = invocation.command->LastWord(session); !word.empty()) return word;
  return session.document.failure() ? session.document.failure()->message : "done";
}

// How the run ends whose events are in the log of its host; without one, of this machine.
ExitStatus WriteEventsOf(const Invocation& invocation, Session& session, ExitStatus status, bool hasHost) {
  const std::optional<DWORD> events = invocation.command->Events();
  const bool isOnMachine = !invocation.options.hostFile && varnel::CurrentHostOrNull() != nullptr;
  if (!events || !(hasHost || isOnMachine)) return status;
  try {
    WriteEvents(
        {*events, status, LastWord(invocation, session), FromLibrary(session.errorDetails), session.CommandLine()});
    return status;
  } catch (const NotAllDone& failure) {
    return session.ReportUndone(failure.what(), status);
  }
}

ExitStatus RunCommand(const Invocation& invocation, Session& session) {
  return Guarded(session, [&] {
    RequireDifferentFiles(invocation);
    KeptLog kept;
    RunReport report(session, invocation.command->ReportFile(), kept);
    RunEvidence evidence(session, invocation.command->Evidence(), kept);
    const bool keepsLog = report.isWanted() || evidence.isWanted();
    const LogOfRun log(invocation.options.logFile, invocation.options.lowestLogCategory, keepsLog ? &kept : nullptr);
    std::optional<TargetHost> host;
    ExitStatus status = Guarded(session, [&] { return RunOnHost(invocation, session, log, evidence, host); });
    TellHeader(session, invocation, log);
    status = log.End(session, status, LastWord(invocation, session));
    status = WriteEventsOf(invocation, session, status, host.has_value());
    status = evidence.WriteFound(status);
    if (session.keepsDocument) invocation.command->NoteLastWord(session);
    status = report.Write(status);
    status = evidence.WriteRun(status);
    session.console.Flush();  // on a terminal trouble comes before the last word
    invocation.command->Conclude(session);
    return status;
  });
}

// Nothing is printed for people where a document is wanted.
ExitStatus Finish(Session& session, const Invocation& invocation, ExitStatus status) {
  if (!session.json) return status;
  session.TellHeader(invocation.command ? invocation.command->Requested() : std::nullopt);
  session.document.End(status);
  return status;
}

ExitStatus ParseAndRun(const std::vector<std::string>& arguments, Console& console, InterruptionSource interruption,
                       Invocation& invocation) {
  try {
    invocation = ParseCommandLine(arguments, console);
  } catch (const UsageError&) {
    Session session(console, FormatAskedFor(arguments), false, arguments, {});
    const Failure failure = DescribeFailure(std::current_exception(), session.call());
    return Finish(session, invocation, session.Report(failure));
  }
  if (!invocation.command) return ExitStatus::Done;
  const GlobalOptions& options = invocation.options;
  std::optional<varnel::ScopedProvider> provider;
  if (options.providerId) provider.emplace(varnel::TryParseGuid<GUID>(std::string_view(*options.providerId)).value());
  Session session(console, options.format, options.verbose, arguments, SharedWatch(std::move(interruption)));
  return Finish(session, invocation, RunCommand(invocation, session));
}

}  // namespace

int RunVarnelctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& err, const Terminals& terminals,
                 InterruptionSource interruption) {
  Console console(out, err, terminals);
  Invocation invocation;
  ExitStatus status = ParseAndRun(arguments, console, std::move(interruption), invocation);
  if (!console.Flush()) {
    const std::string stands = invocation.command ? invocation.command->WhatStands() : std::string();
    if (!console.IsAbandoned()) console.Error("standard output did not take everything");
    if (!console.IsAbandoned() && !stands.empty()) console.Detail("  " + stands);
    if (!console.IsAbandoned()) PrintNextStep(console, *FindAdvice(advice::kOutputLost));
    if (status == ExitStatus::Done) status = stands.empty() ? ExitStatus::Unexpected : ExitStatus::NotAllDone;
  }
  return static_cast<int>(status);
}

}  // namespace varnelctl
