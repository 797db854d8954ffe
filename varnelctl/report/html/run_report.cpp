#include "varnelctl/report/html/run_report.h"

#include <CLI/CLI.hpp>

#include "varnelctl/mistakes.h"
#include "varnelctl/report/html/page.h"

namespace varnelctl {

void AddReportOption(CLI::App& app, std::optional<std::string>& file) {
  app.add_option("--report", file, "Save one HTML page that shows the run (--report run.html)")
      ->type_name("FILE.html")
      ->check(RefuseEmpty);
}

RunReport::RunReport(Session& session, const std::optional<std::string>& file, const KeptLog& log)
    : session_(session), log_(log), file_("--report", file), isWanted_(file.has_value()) {
  session_.keepsDocument = session_.json || isWanted_;
}

ExitStatus RunReport::Write(ExitStatus status) {
  if (!isWanted_) return status;
  // From the text that --json prints, so that a stored run gives the same page.
  const std::string text = session_.document.Whole(status).dump(-1, ' ', false, Json::error_handler_t::replace);
  try {
    html::StoredRun run = html::ReadRun("this run", text);
    run.log = log_.Text();
    file_.Write(html::ReportPage({std::move(run)}));
    return status;
  } catch (const NotAllDone& failure) {
    const ExitStatus now = session_.ReportUndone(failure.what(), status);
    if (const std::string told = file_.RemoveEarlier(); !told.empty()) session_.Warn({"earlierFile", told});
    return now;
  }
}

}  // namespace varnelctl
