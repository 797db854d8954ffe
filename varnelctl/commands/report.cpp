#include <CLI/CLI.hpp>
#include <algorithm>

#include "simulator/machine/utc_time.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/output_file.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/mistakes.h"
#include "varnelctl/report/fleet/fleet_data.h"
#include "varnelctl/report/fleet/fleet_page.h"
#include "varnelctl/report/html/page.h"

namespace varnelctl {
namespace {

std::string Utf8(const std::u8string& text) {
  return {text.begin(), text.end()};
}

// "run.html" beside "run.json", "fleet.html" in a folder.
std::string PageBeside(const std::string& file) {
  std::filesystem::path path = PathOf(file);
  if (fleet::IsFolder(file)) return Utf8((path / "fleet.html").u8string());
  return Utf8(path.replace_extension(".html").u8string());
}

// The path from the page's folder to another as a link has it; nothing where no such path is.
std::optional<std::string> LinkBase(const std::string& page, const std::filesystem::path& folder) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path from = fs::absolute(PathOf(page), error).lexically_normal().parent_path();
  const fs::path to = (fs::absolute(folder, error) / "").lexically_normal().parent_path();
  const fs::path base = to.lexically_relative(from);
  if (error || base.empty() || base.is_absolute()) return std::nullopt;
  return base == "." ? std::string() : Utf8(base.generic_u8string());
}

Json RunJson(const html::StoredRun& run) {
  const nlohmann::json& header = run.document["header"];
  return {{"file", run.name},
          {"kind", run.document["kind"]},
          {"host", header["host"]},
          {"start", header["start"]},
          {"status", run.document["status"]}};
}

// "2026-01-01T00:00:00Z"
std::string IsoText(LONGLONG time) {
  constexpr std::size_t kSeconds = 19;
  return varnel::simulator::FormatUtc(time).substr(0, kSeconds) + "Z";
}

Json FleetRunJson(const fleet::Summary& run) {
  return {{"folder", run.name},
          {"start", IsoText(run.startedAt)},
          {"end", run.endedAt ? Json(IsoText(*run.endedAt)) : Json()},
          {"isPlan", run.isPlan},
          {"hosts", {{"of", run.hosts}, {"protected", run.protectedHosts}, {"inPart", run.part}}},
          {"objects", {{"of", run.objects}, {"protected", run.protectedObjects}}}};
}

Json FleetJson(const fleet::Protection& protection) {
  Json hosts = Json::array();
  for (std::size_t i = 0; i < protection.results.size(); ++i) {
    const fleet::HostResult& result = protection.results[i];
    hosts.push_back({{"name", protection.run.hosts[i].name},
                     {"state", fleet::WordFor(result.state)},
                     {"why", result.why},
                     {"objects", {{"of", result.objects.size()}, {"protected", result.ProtectedCount()}}}});
  }
  return {{"name", protection.run.fleet},
          {"headline", fleet::HeadlineOf(protection)},
          {"runs", ArrayOf(protection.runs, FleetRunJson)},
          {"hosts", std::move(hosts)},
          {"unreadable", protection.unreadable}};
}

// What the page says itself is told those who do not look at it as well.
void WarnOfBroken(Session& session, const fleet::Protection& protection) {
  for (const std::string& run : protection.unreadable) session.Warn({"runUnreadable", run});
  const auto count = std::count_if(protection.results.begin(), protection.results.end(),
                                   [](const fleet::HostResult& result) { return result.hasBrokenDocument; });
  if (count == 0) return;
  session.Warn({"documentUnreadable", "documents of " + Counted(static_cast<std::size_t>(count), "host") +
                                          " cannot be read; the page names them"});
}

class ReportCommand final : public Command {
 public:
  const char* name() const override { return "report"; }
  const char* description() const override {
    return "Make one HTML page of a run or plan that --json or --json-lines printed; of several, what changed from "
           "each "
           "to the next; of a folder of a fleet's runs, what of the fleet is protected";
  }
  const char* examples() const override {
    return "  varnelctl report run.json\n"
           "  varnelctl report monday.json tuesday.json --output week.html\n"
           "  varnelctl report /srv/fleet\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_option("runs", runs_, "The documents of snapshots and plans, or one folder of a fleet's runs")
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
    for (const std::string& run : runs_) files.push_back({"RUN.json", IsFleet() ? run + "/fleet.json" : run});
    return files;
  }

  ExitStatus Run(Session& session) override {
    OutputFile output("--output", Page());
    return IsFleet() ? ReportFleet(session, output) : ReportRuns(session, output);
  }

 private:
  std::string Page() const { return output_ ? *output_ : PageBeside(runs_.back()); }
  bool IsFleet() const { return std::any_of(runs_.begin(), runs_.end(), fleet::IsFolder); }

  ExitStatus ReportRuns(Session& session, OutputFile& output) const {
    std::vector<html::StoredRun> runs;
    for (const std::string& file : runs_) runs.push_back(html::ReadRunFile(file));
    Json list = ArrayOf(runs, RunJson);
    output.Write(html::ReportPage(std::move(runs)));
    session.document.Set(name(), {{"page", Page()}, {"runs", std::move(list)}});
    if (!session.json) session.console.Line("wrote " + Printable(varnel::Utf8ToWideLossy(Page())));
    return ExitStatus::Done;
  }

  ExitStatus ReportFleet(Session& session, OutputFile& output) const {
    if (runs_.size() > 1) throw UsageError("a folder of a fleet's runs is reported by itself; name it alone");
    const fleet::Protection protection = fleet::ProtectionOf(fleet::ReadRuns(runs_.front()));
    WarnOfBroken(session, protection);
    output.Write(fleet::FleetPage(protection, LinkBase(Page(), protection.run.folder)));
    session.document.Set(name(), {{"page", Page()}, {"runs", Json::array()}, {"fleet", FleetJson(protection)}});
    if (session.json) return ExitStatus::Done;
    session.console.Line(Printable(varnel::Utf8ToWideLossy(fleet::HeadlineOf(protection))));
    session.console.Line("wrote " + Printable(varnel::Utf8ToWideLossy(Page())));
    return ExitStatus::Done;
  }

  std::vector<std::string> runs_;
  std::optional<std::string> output_;
};

}  // namespace

std::unique_ptr<Command> MakeReportCommand() {
  return std::make_unique<ReportCommand>();
}

}  // namespace varnelctl
