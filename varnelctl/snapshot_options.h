// What `varnelctl snapshot` was asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/vss.h"

namespace CLI {
class App;
}

namespace varnelctl {

struct SnapshotOptions {
  std::string application = "none";
  std::vector<std::string> disks;  ///< serial numbers, as the devices report them
  int writerCode = 0;
  DWORD context = 0;
  VSS_BACKUP_TYPE backupType = VSS_BT_FULL;
  DWORD testPoints = 0;
  bool acceptExtraVolumes = false;
  std::optional<std::string> documentFile;
  std::optional<std::string> catalogFile;
  std::optional<std::string> callsFile;
};

/// Declares the options; they are bound to `options`, which must outlive the parse.
void AddSnapshotOptions(CLI::App& app, SnapshotOptions& options);

/// The VSS context of "backup", "app-rollback+transportable", "0x29" or "41"; nothing for anything else.
std::optional<DWORD> ParseContext(const std::string& text);

}  // namespace varnelctl
