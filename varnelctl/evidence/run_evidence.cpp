#include "varnelctl/evidence/run_evidence.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <system_error>

#include "platform/host.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/console/watchdog.h"
#include "varnelctl/evidence/collectors.h"
#include "varnelctl/evidence/index_page.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/mistakes.h"
#include "varnelctl/report/html/page.h"
#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

using std::chrono::milliseconds;

constexpr char kLogFile[] = "log.txt";

// What the writers may take to answer once more; nothing after the deadline.
std::optional<unsigned long long> TimeForWriters(const Session& session) {
  constexpr unsigned long long kMost = 120'000;
  if (!session.deadline) return kMost;
  const unsigned long long now = varnel::CurrentHost().time().GetTickCount64();
  if (now >= *session.deadline) return std::nullopt;
  return std::min(kMost, *session.deadline - now);
}

// The same for all that the evidence asks: a minute more.
milliseconds TimeForHost(const std::optional<unsigned long long>& forWriters) {
  constexpr milliseconds kGrace{60'000};
  return milliseconds(forWriters.value_or(0)) + kGrace;
}

// The words that a process ends with at once, as a message.
std::string MessageIn(std::string_view words) {
  constexpr std::string_view kProgram = "varnelctl: ";
  words.remove_prefix(std::min(words.find_first_not_of('\n'), words.size()));
  words = words.substr(0, words.find('\n'));
  return std::string(words.starts_with(kProgram) ? words.substr(kProgram.size()) : words);
}

// As the folder was named: "DIR.key.json".
std::string KeyName(std::string folder) {
  while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
  return Printable(varnel::Utf8ToWideLossy(folder)) + ".key.json";
}

// As it was written, without the names that were to go.
std::string LogIn(const std::vector<EvidenceFile>& files) {
  for (const EvidenceFile& file : files) {
    if (file.name == kLogFile) return file.content;
  }
  return {};
}

// Where the host was not asked nobody knows which names these hold. What the header names is known.
void LeaveOutUnknownNames(std::vector<EvidenceFile>& files) {
  for (EvidenceFile& file : files) {
    if (!file.whyNot.empty() || file.name == "header.txt") continue;
    file.content.clear();
    file.whyNot = "the names in it could not be found out, as the host was not asked for them";
  }
}

}  // namespace

void AddEvidenceOptions(CLI::App& app, EvidenceOptions& options) {
  CLI::Option* const folder =
      app.add_option("--evidence", options.folder,
                     "However the run ends, save what support asks for in this folder, which must be new or empty "
                     "(--evidence case-4711)")
          ->type_name("DIR")
          ->check(RefuseEmpty);
  app.add_flag("--anonymise", options.anonymise,
               "Replace the names of hosts, databases, machines, disks, folders and files in all of it; the key to "
               "them is written beside the folder (DIR.key.json) and stays here")
      ->needs(folder);
}

RunEvidence::RunEvidence(Session& session, const EvidenceOptions& options, const KeptLog& log)
    : session_(session), log_(log) {
  if (!options.folder) return;
  folder_.emplace("--evidence", *options.folder);
  key_ = folder_->path();
  key_ += ".key.json";
  keyName_ = KeyName(*options.folder);
  if (options.anonymise) {
    std::error_code ignored;
    if (std::filesystem::exists(key_, ignored)) {
      throw UsageError("--anonymise: " + keyName_ +
                       " is there already: it is the key to earlier evidence, put it away first");
    }
    names_.emplace();
    found_.wantsNames = true;
  }
  session_.keepsDocument = true;
  session_.evidence = &found_;
  session_.beforeEnd = [this](const std::string& words) {
    Failure failure;
    failure.status = ExitStatus::Stopped;
    failure.message = MessageIn(words);
    failure.explain = advice::kPastDeadline;
    Advise(failure, {});
    WriteUnfinished(BareRun(failure, failure.status));
  };
}

RunEvidence::~RunEvidence() {
  session_.evidence = nullptr;
  session_.beforeEnd = {};
}

void RunEvidence::AskHost(ExitStatus status) {
  if (!folder_) return;
  const auto left = TimeForWriters(session_);
  const ExitStatus ifHung = status == ExitStatus::Done ? ExitStatus::NotAllDone : status;
  Watchdog watchdog([ifHung](const std::string& words) { EndProcess(words, static_cast<int>(ifHung)); });
  watchdog.DoFirst([this, ifHung](const std::string& words) { WriteWithoutAnswer(words, ifHung); });
  try {
    watchdog.Watch(Watchdog::Clock::now() + TimeForHost(left),
                   "\nvarnelctl: the host does not answer what the evidence of the run asks: the process ends now, "
                   "with exit status " +
                       std::to_string(static_cast<int>(ifHung)) + "\n");
    CollectFromHost(session_, status, left, found_);
    if (names_) FindNames();
    isAsked_ = true;
  } catch (const std::exception&) {
    // No memory or no thread: what is not there is told in the index.
  }
}

void RunEvidence::FindNames() {
  std::vector<EvidenceFile> files = found_.Take();
  ReadWriterDocuments(files, found_.writers);
  for (EvidenceFile& file : files) found_.Add(std::move(file));
  AddNamesOfHost(std::move(found_.writers), *names_);
}

ExitStatus RunEvidence::WriteFound(ExitStatus status) {
  if (!folder_) return status;
  CollectWithoutHost(session_, found_);  // what is still not there
  TakeFiles(found_);
  if (names_) {
    if (!isAsked_) LeaveOutUnknownNames(files_);
    const bool hasKey = ReplaceNamesInFiles(WholeRun(status), *names_);
    if (hasKey) {
      session_.Warn({"evidenceKey",
                     "the key to the names in the evidence is " + keyName_ + "; it stays with you, do not send it"});
    }
  }
  for (EvidenceFile& file : files_) Write(file);
  return Tell(status);
}

void RunEvidence::TakeFiles(FoundEvidence& found) {
  files_ = found.Take();
  files_.insert(files_.begin(), {kLogFile, "The log at full detail", log_.Text(), {}});
}

Json RunEvidence::WholeRun(ExitStatus status) const {
  if (names_ && !isAsked_) return BareRun(session_.document.failure(), status);
  return session_.document.Whole(status);
}

// Without anything that the run has found. Reads nothing that changes while the run is under way.
Json RunEvidence::BareRun(const std::optional<Failure>& failure, ExitStatus status) const {
  Document bare(session_.console, Format::Text);
  bare.Begin(*session_.document.header());
  if (failure) bare.Fail(*failure, {});
  return bare.Whole(status);
}

// \return whether there is a key to them.
bool RunEvidence::ReplaceNamesInFiles(const Json& run, Anonymiser& names) {
  AddNamesOfRun(*session_.document.header(), run, names);
  for (const EvidenceFile& file : files_) names.Avoid(file.content);
  const bool hasKey = WriteKey(names);
  for (EvidenceFile& file : files_) ReplaceNames(file, names);
  return hasKey;
}

// Before the rest: without it nobody could tell what that is about.
bool RunEvidence::WriteKey(Anonymiser& names) {
  try {
    ReplaceDurably(key_, Json{{"names", names.Key()}}.dump(2) + "\n");
    return true;
  } catch (const std::system_error& failure) {
    missing_.push_back("the key " + keyName_ + " was not written: " + OneLine(failure.code().message()));
    return false;
  }
}

ExitStatus RunEvidence::WriteRun(ExitStatus status) {
  if (!folder_) return status;
  WriteRunAndIndex(WholeRun(status), names_ ? &*names_ : nullptr);
  return Tell(status);
}

void RunEvidence::WriteRunAndIndex(Json whole, Anonymiser* names) {
  if (names != nullptr) whole = WithoutNames(std::move(whole), *names);
  const std::string text = EscapeUnprintable(whole.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
  EvidenceFile run{"run.json", "The document of the run, as --json prints it", text, {}};
  Write(run);
  EvidenceFile page{"report.html", "The page of the run", {}, {}};
  try {
    html::StoredRun stored = html::ReadRun("this run", text);
    stored.log = LogIn(files_);
    page.content = html::ReportPage({std::move(stored)});
  } catch (const UsageError& failure) {
    page.whyNot = failure.what();
    missing_.push_back("report.html was not made: " + page.whyNot);
  }
  Write(page);
  files_.insert(files_.begin(), {std::move(page), std::move(run)});
  EvidenceFile index{"index.html", "", EvidenceIndex(nlohmann::json::parse(text), files_, names != nullptr), {}};
  Write(index);
}

// A file that cannot be written is as one that could not be had.
void RunEvidence::Write(EvidenceFile& file) {
  if (!file.whyNot.empty()) return;
  try {
    folder_->Write(file.name, file.content);
  } catch (const NotAllDone& failure) {
    file.whyNot = failure.what();
    missing_.emplace_back(failure.what());
  }
}

// In one line, however many there are.
ExitStatus RunEvidence::Tell(ExitStatus status) {
  if (missing_.empty()) return status;
  const std::size_t more = missing_.size() - 1;
  const std::string told =
      missing_.front() + (more == 0 ? "" : (more == 1 ? "; nor was " : "; nor were ") + Counted(more, "other file"));
  missing_.clear();
  return session_.ReportUndone(told, status);
}

// The run has ended so but for its evidence: its document is complete, and its thread does not get past AskHost.
void RunEvidence::WriteWithoutAnswer(const std::string& words, ExitStatus status) {
  Failure failure;
  failure.status = status;
  failure.message = MessageIn(words);
  failure.explain = advice::kOutputLost;
  Advise(failure, {});
  if (names_) return WriteUnfinished(BareRun(failure, status));
  session_.document.Fail(failure, {});
  WriteUnfinished(session_.document.Whole(status));
}

// On another thread than that of the run, which hangs in a call or has just got out of it: what that may be changing is
// left alone. Nobody is told anything, as the console may be in use, too.
void RunEvidence::WriteUnfinished(Json run) {
  FoundEvidence found;
  for (EvidenceFile& file : found_.Close()) found.Add(std::move(file));
  CollectWhileHung(session_, found);
  TakeFiles(found);
  std::optional<Anonymiser> names;  // without those that the host is being asked for
  if (names_) {
    LeaveOutUnknownNames(files_);
    ReplaceNamesInFiles(run, names.emplace());
  }
  for (EvidenceFile& file : files_) Write(file);
  WriteRunAndIndex(std::move(run), names ? &*names : nullptr);
}

}  // namespace varnelctl
