// The evidence of the run at hand: --evidence.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "varnelctl/console/output_folder.h"
#include "varnelctl/evidence/evidence_file.h"
#include "varnelctl/evidence/evidence_options.h"
#include "varnelctl/evidence/kept_log.h"
#include "varnelctl/evidence/names.h"
#include "varnelctl/session.h"

namespace varnelctl {

/// A folder for support, written at the end of a run however it ended.
class RunEvidence {
 public:
  /// Tries whether the folder can be made, and has the session keep what belongs into it. Without a folder nobody wants
  /// evidence. The session is borrowed, and so is the log of the run. Throws UsageError.
  RunEvidence(Session& session, const EvidenceOptions& options, const KeptLog& log);
  ~RunEvidence();
  RunEvidence(const RunEvidence&) = delete;
  RunEvidence& operator=(const RunEvidence&) = delete;

  bool isWanted() const { return folder_.has_value(); }
  /// Asks the current host for what belongs to a run on it that ended so. Belongs where its command is over.
  void AskHost(ExitStatus status);
  /// Writes what was found, then, with the document of the run as it is by then, what tells of the run itself and the
  /// index. \return how the run ends then that ended with `status`: NotAllDone for a success whose evidence is not
  /// whole, which is told.
  ExitStatus WriteFound(ExitStatus status);
  ExitStatus WriteRun(ExitStatus status);

 private:
  void FindNames();
  void TakeFiles(FoundEvidence& found);
  Json WholeRun(ExitStatus status) const;
  Json BareRun(const std::optional<Failure>& failure, ExitStatus status) const;
  bool ReplaceNamesInFiles(const Json& run, Anonymiser& names);
  bool WriteKey(Anonymiser& names);
  void WriteRunAndIndex(Json whole, Anonymiser* names);
  void Write(EvidenceFile& file);
  ExitStatus Tell(ExitStatus status);
  void WriteWithoutAnswer(const std::string& words, ExitStatus status);
  void WriteUnfinished(Json run);

  Session& session_;
  std::optional<OutputFolder> folder_;
  std::optional<Anonymiser> names_;  // where they are to be replaced
  std::filesystem::path key_;        // beside the folder
  std::string keyName_;              // for people
  bool isAsked_ = false;             // the host, for all that belongs to the run
  const KeptLog& log_;
  FoundEvidence found_;
  std::vector<EvidenceFile> files_;   // in the order of the index
  std::vector<std::string> missing_;  // what was not written and is not yet told
};

}  // namespace varnelctl
