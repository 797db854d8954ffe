#include <CLI/CLI.hpp>
#include <algorithm>

#include "text/nearest_name.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/event_log/event_ids.h"
#include "varnelctl/event_log/writer.h"
#include "varnelctl/report/sets_report.h"
#include "varnelctl/sets/clean_up.h"
#include "varnelctl/sets/set_actions.h"

namespace varnelctl {
namespace {

constexpr char kActions[] = "list, show SET, break SET, mask SET, disconnect SET, delete SET or clean-up";

std::optional<SetAction> ActionCalled(const std::string& word) {
  for (const SetAction action : kSetActions) {
    if (WordFor(action) == word) return action;
  }
  return std::nullopt;
}

std::string NearestAction(const std::string& word) {
  std::vector<std::string_view> words = {"list", "show", "clean-up"};
  for (const SetAction action : kSetActions) words.emplace_back(WordFor(action));
  const std::string nearest = varnel::DidYouMean(word, words);
  return nearest.empty() ? "; it takes " : nearest + " It takes ";
}

class SetsCommand final : public Command {
 public:
  const char* name() const override { return "sets"; }
  const char* description() const override {
    return "Show the snapshot sets of this host and of the journal, and end them: also those of a run that died";
  }
  const char* examples() const override {
    return "  varnelctl sets list\n"
           "  varnelctl sets show {5c2d7a1e-4c3d-4a0b-9f6e-0d2b7a1e8c31}\n"
           "  varnelctl sets delete 5c2d7a1e-4c3d-4a0b-9f6e-0d2b7a1e8c31 --dry-run\n"
           "  varnelctl sets clean-up\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_option("action", words_, std::string("What to do: ") + kActions + "; SET is a set's identifier")
        ->type_name("list|show|break|mask|disconnect|delete|clean-up")
        ->expected(0, -1);
    app.add_flag("--dry-run", dryRun_, "Say what break, mask, disconnect, delete or clean-up would do, and do nothing");
    app.add_flag(
        "--force", force_,
        "Take a set that another program or product has made; with delete, have the journal forget one that this "
        "host does not see");
    AddEventLogOption(app, writesEvents_);
  }

  ExitStatus Run(Session& session) override {
    CheckWords();
    const std::string& word = words_[0];
    if (word == "list") return List(session);
    if (word == "show") return Show(session);
    if (word == "clean-up") return Clean(session);
    return Act(session, *ActionCalled(word));
  }
  std::string LastWord(const Session& /*session*/) const override { return lastWord_; }
  std::optional<DWORD> Events() const override { return writesEvents_ ? std::optional(kSetsEvents) : std::nullopt; }
  void Conclude(Session& session) override {
    if (!session.json && !lastWord_.empty()) session.console.Line(lastWord_, tone_);
  }

 private:
  void CheckWords() const {
    if (words_.empty()) throw UsageError(std::string("sets takes ") + kActions);
    const std::string& word = words_[0];
    const bool takesSet = word == "show" || ActionCalled(word);
    if (!takesSet && word != "list" && word != "clean-up") {
      throw UsageError("sets has no \"" + word + "\"" + NearestAction(word) + kActions);
    }
    if (takesSet != (words_.size() == 2) || words_.size() > 2) {
      throw UsageError(takesSet ? "sets " + word + " takes the identifier of one set (varnelctl sets list)"
                                : "sets " + word + " takes no set");
    }
    const bool changes = ActionCalled(word) || word == "clean-up";
    if (dryRun_ && !changes) throw UsageError("sets " + word + " changes nothing: it takes no --dry-run");
    if (writesEvents_ && !changes) throw UsageError("sets " + word + " changes nothing: it takes no --event-log");
    if (force_ && !ActionCalled(word)) throw UsageError("sets " + word + " takes no --force");
  }

  ExitStatus List(Session& session) const {
    const KnownSets known(SetService(), session.journal);
    Warn(session, known);
    if (session.json) {
      session.document.Set("sets", SetsDocument(known, session.journal));
    } else {
      PrintSets(session.console, known, session.journal);
    }
    return ExitStatus::Done;
  }

  ExitStatus Show(Session& session) const {
    const KnownSets known(SetService(), session.journal);
    const KnownSet& set = known.Find(words_[1]);
    Warn(session, known);
    ShownSet shown{set, {}};
    try {
      if (!set.Disks().empty()) shown.sessions = ReadSessions(set.Disks(), known.DisksOfOthers(set.id));
    } catch (const CallFailure& failure) {
      session.Warn({"sessionsUnknown", "the iSCSI sessions cannot be told: " + Describe(failure)});
    }
    std::erase_if(shown.sessions, [](const SessionOfSet& other) { return other.own.empty(); });
    if (session.json) {
      session.document.Set("set", SetDocument(shown, known));
    } else {
      PrintSet(session.console, shown, known);
    }
    return ExitStatus::Done;
  }

  ExitStatus Act(Session& session, SetAction action) {
    const auto run = dryRun_ ? PlanWithSet : DoWithSet;
    const ActionOutcome outcome = run(session, action, words_[1], force_);
    if (session.json) {
      session.document.Set("setAction", ActionDocument(outcome, dryRun_, session.errorDetails));
    } else {
      PrintPlan(session.console, outcome);
    }
    return Say(session, outcome.text, outcome.failure);
  }

  ExitStatus Clean(Session& session) {
    const std::vector<CleanUpOutcome> outcomes = CleanUp(session, dryRun_);
    if (session.json) {
      session.document.Set("cleanUp", CleanUpDocument(outcomes, dryRun_));
    } else {
      PrintCleanUp(session.console, outcomes);
    }
    return Say(session, DescribeCleanUp(outcomes, dryRun_), dryRun_ ? std::nullopt : FailureOf(outcomes));
  }

  ExitStatus Say(Session& session, std::string lastWord, const std::optional<Failure>& failure) {
    lastWord_ = std::move(lastWord);
    tone_ = failure ? Tone::Bad : dryRun_ ? Tone::Plain : Tone::Good;
    return failure ? session.ReportOutcome(*failure) : ExitStatus::Done;
  }

  static void Warn(Session& session, const KnownSets& known) {
    for (const Warning& warning : known.warnings()) session.Warn(warning);
  }

  std::vector<std::string> words_;
  bool dryRun_ = false;
  bool force_ = false;
  bool writesEvents_ = false;
  std::string lastWord_;  // of what changes something
  Tone tone_ = Tone::Plain;
};

}  // namespace

std::unique_ptr<Command> MakeSetsCommand() {
  return std::make_unique<SetsCommand>();
}

}  // namespace varnelctl
