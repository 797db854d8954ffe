#include <CLI/CLI.hpp>

#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/output_file.h"
#include "varnelctl/console/text.h"
#include "varnelctl/mistakes.h"
#include "varnelctl/report/html/page.h"

namespace varnelctl {
namespace {

// "run.html" beside "run.json".
std::string PageBeside(const std::string& file) {
  std::filesystem::path path = PathOf(file);
  path.replace_extension(".html");
  const std::u8string name = path.u8string();
  return {name.begin(), name.end()};
}

Json RunJson(const html::StoredRun& run) {
  const nlohmann::json& header = run.document["header"];
  return {{"file", run.name},
          {"kind", run.document["kind"]},
          {"host", header["host"]},
          {"start", header["start"]},
          {"status", run.document["status"]}};
}

class ReportCommand final : public Command {
 public:
  const char* name() const override { return "report"; }
  const char* description() const override {
    return "Make one HTML page of a run or plan that --json or --json-lines printed; of several, what changed from "
           "each "
           "to the next";
  }
  const char* examples() const override {
    return "  varnelctl report run.json\n"
           "  varnelctl report monday.json tuesday.json --output week.html\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_option("runs", runs_, "The documents of snapshots and plans")
        ->type_name("RUN.json")
        ->required()
        ->check(RefuseEmpty);
    app.add_option("--output", output_, "Write the page here, else beside the last of them (--output run.html)")
        ->type_name("FILE.html")
        ->check(RefuseEmpty);
  }
  bool NeedsHost() const override { return false; }
  std::vector<FileOption> Files() const override {
    std::vector<FileOption> files = {{"--output", Page()}};
    if (!runs_.empty() && !output_) files.front().option = "the page";
    for (const std::string& run : runs_) files.push_back({"RUN.json", run});
    return files;
  }

  ExitStatus Run(Session& session) override {
    OutputFile output("--output", Page());
    std::vector<html::StoredRun> runs;
    for (const std::string& file : runs_) runs.push_back(html::ReadRunFile(file));
    Json list = ArrayOf(runs, RunJson);
    output.Write(html::ReportPage(std::move(runs)));
    session.document.Set(name(), {{"page", Page()}, {"runs", std::move(list)}});
    if (!session.json) session.console.Line("wrote " + Printable(varnel::Utf8ToWideLossy(Page())));
    return ExitStatus::Done;
  }

 private:
  std::string Page() const { return output_ ? *output_ : PageBeside(runs_.back()); }

  std::vector<std::string> runs_;
  std::optional<std::string> output_;
};

}  // namespace

std::unique_ptr<Command> MakeReportCommand() {
  return std::make_unique<ReportCommand>();
}

}  // namespace varnelctl
