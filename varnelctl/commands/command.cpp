#include "varnelctl/commands/command.h"

namespace varnelctl {

std::vector<std::unique_ptr<Command>> MakeCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(MakeWritersCommand());
  commands.push_back(MakeProvidersCommand());
  commands.push_back(MakeDisksCommand());
  commands.push_back(MakeDoctorCommand());
  commands.push_back(MakePlanCommand());
  commands.push_back(MakeSnapshotCommand());
  commands.push_back(MakeSetsCommand());
  commands.push_back(MakeReportCommand());
  commands.push_back(MakeCaptureCommand());
  commands.push_back(MakeExplainCommand());
  return commands;
}

}  // namespace varnelctl
