// What a snapshot was asked for. An option is a field here; its name, words, help and rules stand in the source.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/vss.h"
#include "varnelctl/application.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/report/header.h"

namespace CLI {
class App;
}

namespace varnelctl {

/// What becomes of a set that was taken.
enum class Then {
  Keep,    ///< it stays as long as its context says
  Break,   ///< its disks become ordinary disks of this host
  Mask,    ///< broken, and its disks are hidden from this host
  Delete,  ///< it goes at once
};

struct SnapshotOptions {
  Application application = Application::None;
  std::vector<std::string> disks;  ///< the values of --disk; ReadRequestedDisks makes serial numbers of them
  bool acceptUnknownDisks = false;
  std::vector<std::string> wanted;    ///< of a plan: names of objects whose disks are to be told
  std::vector<std::string> required;  ///< names of objects that must be in the set; "all" for every one
  DWORD writerCode = 0;
  DWORD context = 0;
  VSS_BACKUP_TYPE backupType = VSS_BT_FULL;
  DWORD testPoints = 0;
  bool verify = false;
  bool skipDbVerification = false;
  bool acceptExtraVolumes = false;
  Deadlines deadlines;
  Then then = Then::Keep;
  bool disconnect = false;
  DWORD waitForOthers = 600;  ///< seconds
  DWORD retries = 0;
  DWORD retryWait = 600;  ///< seconds
  std::optional<std::string> documentFile;
  std::optional<std::string> catalogFile;
  std::optional<std::string> callsFile;

  bool IsTransportable() const { return (context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0; }
};

/// What an examination of the host is to look at.
struct DoctorOptions {
  std::optional<Application> application;  ///< every one that has a writer here unless given
  std::vector<std::string> disks;          ///< the values of --disk
  bool acceptUnknownDisks = false;
};

/// Declares the options; they are bound to `options`, which must outlive the parse.
void AddSnapshotOptions(CLI::App& app, SnapshotOptions& options);

/// The options of a plan: those of them that decide what a set would hold.
void AddPlanOptions(CLI::App& app, SnapshotOptions& options);

/// Those of an examination, of which none must be given.
void AddExaminationOptions(CLI::App& app, DoctorOptions& options);

/// In the words of the command line.
RequestedSet Requested(const SnapshotOptions& options);

/// Refuses what cannot be asked for together, or not of this host. Throws UsageError.
void CheckSnapshotOptions(const SnapshotOptions& options, bool isSimulatedHost);

/// The VSS context of "backup", "app-rollback+transportable", "0x29" or "41"; nothing for anything else.
std::optional<DWORD> ParseContext(const std::string& text);

/// The text that ParseContext and the options understand: "app-rollback+transportable", "copy".
std::string ContextName(DWORD context);
std::string BackupTypeName(VSS_BACKUP_TYPE type);

}  // namespace varnelctl
