// The page of the run at hand: --report.
#pragma once

#include <optional>
#include <string>

#include "varnelctl/console/output_file.h"
#include "varnelctl/evidence/kept_log.h"
#include "varnelctl/session.h"

namespace CLI {
class App;
}

namespace varnelctl {

/// Declares the option.
void AddReportOption(CLI::App& app, std::optional<std::string>& file);

class RunReport {
 public:
  /// Tries whether the file can be written, and has the session keep its document. Without a file nobody wants the
  /// page. The session is borrowed, and so is the log of the run. Throws UsageError.
  RunReport(Session& session, const std::optional<std::string>& file, const KeptLog& log);

  bool isWanted() const { return isWanted_; }

  /// Writes the page of the session's document. \return how the run ends then that ended with `status`: NotAllDone for
  /// a success whose page is not whole, which is told.
  ExitStatus Write(ExitStatus status);

 private:
  Session& session_;
  const KeptLog& log_;
  OutputFile file_;
  const bool isWanted_;
};

}  // namespace varnelctl
