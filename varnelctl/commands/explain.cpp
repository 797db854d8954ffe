#include <CLI/CLI.hpp>

#include "text/format.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/explanation/look_up.h"

namespace varnelctl {
namespace {

struct Kind {
  AdviceKind kind;
  std::string_view word;     // in documents
  std::string_view heading;  // of the list
};

constexpr Kind kKinds[] = {
    {AdviceKind::ExitStatus, "exitStatus", "Exit statuses"},
    {AdviceKind::Alert, "alert", "Alert codes and results of a validation"},
    {AdviceKind::Record, "record", "Alert records"},
    {AdviceKind::Code, "code", "Codes of the service, of Windows and of the iSCSI initiator"},
    {AdviceKind::Case, "case", "Cases that no code tells alone"},
};

const Kind& Of(AdviceKind kind) {
  return kKinds[static_cast<std::size_t>(kind)];
}

Json ExplainedJson(const Explained& explained) {
  const Advice& advice = *explained.advice;
  const bool isKnownCode = advice.kind == AdviceKind::Code;
  return {{"explain", explained.key},
          {"kind", isKnownCode || explained.key.starts_with("0x") ? "code" : Of(advice.kind).word},
          {"title", explained.title},
          {"code", isKnownCode ? Json(varnel::FormatNarrow("0x%08x", {advice.number})) : Json(nullptr)},
          {"meaning", advice.meaning},
          {"remedy", advice.remedy},
          {"ask", advice.ask},
          {"particulars", explained.particulars}};
}

void Print(Console& console, const Explained& explained) {
  console.Line(explained.title);
  console.Line("  meaning: " + std::string(explained.advice->meaning));
  console.Line("  what to do: " + std::string(explained.advice->remedy));
  console.Line("  whom to ask: " + std::string(explained.advice->ask));
  for (const std::string& line : explained.particulars) console.Line("  " + line);
}

void PrintList(Console& console) {
  for (const Kind& kind : kKinds) {
    console.Line(kind.heading);
    for (const Advice& advice : AllAdvice()) {
      if (advice.kind == kind.kind) console.Line("  " + advice.Key() + "  " + std::string(advice.meaning));
    }
  }
}

Json ListJson() {
  return {{"explained", ArrayOf(AllAdvice(), [](const Advice& advice) { return ExplainedJson(AsExplained(advice)); })}};
}

class ExplainCommand final : public Command {
 public:
  const char* name() const override { return "explain"; }
  const char* description() const override {
    return "Tell what an exit status, alert code, HRESULT or alert record means, what to do, and whom to ask";
  }
  const char* examples() const override {
    return "  varnelctl explain exit:12\n"
           "  varnelctl explain 602\n"
           "  varnelctl explain 0x80042314\n"
           "  varnelctl explain VSS_E_BAD_STATE\n"
           "  varnelctl explain LunMismatch\n"
           "  varnelctl explain \"status=LunMismatch, ...\"\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_option("question", words_,
                   "A number (an exit status up to 19, an alert code, an HRESULT, a Win32 code), a name, or a whole "
                   "line of error details in quotes; without it everything that can be explained is listed")
        ->type_name("CODE|NAME|RECORD")
        ->expected(0, -1);
  }
  bool NeedsHost() const override { return false; }

  ExitStatus Run(Session& session) override {
    if (words_.empty()) {
      session.json ? session.document.Set(name(), ListJson()) : PrintList(session.console);
      return ExitStatus::Done;
    }
    std::string question;
    for (const std::string& word : words_) question += (question.empty() ? "" : " ") + word;
    const std::vector<Explained> all = LookUpOrRefuse(question);
    if (session.json) {
      session.document.Set(name(), {{"explained", ArrayOf(all, ExplainedJson)}});
    } else {
      for (const Explained& explained : all) Print(session.console, explained);
    }
    return ExitStatus::Done;
  }

 private:
  std::vector<std::string> words_;
};

}  // namespace

std::unique_ptr<Command> MakeExplainCommand() {
  return std::make_unique<ExplainCommand>();
}

}  // namespace varnelctl
