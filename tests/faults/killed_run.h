// Runs of varnelctl on a host with a state file and a journal, which are killed in their middle.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/simulated_host.h"
#include "tests/support/host_model.h"
#include "text/unicode.h"

namespace varnel::test {

/// "plain" goes with its process; the others are persistent, and kept, deleted or masked and disconnected at the end.
/// Those whose name ends in "-complete" are on a host that completes what was under way.
inline constexpr const char* kKilledRuns[] = {"plain",          "kept",          "deleted",          "masked",
                                              "plain-complete", "kept-complete", "deleted-complete", "masked-complete"};

/// Sessions: of the data, of the run's own copies alone, and of copies of the run and of somebody else's.
enum KilledRunSession : std::size_t { kDataSession, kOwnSession, kMixedSession };

inline simulator::HostModel KilledRunHost(std::string_view scenario) {
  simulator::HostModel model = SmallHost();
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})}),
                   MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"F:\\web"})}),
                   MakeWriter(L"Files", 3, {MakeComponent(L"", L"share", {L"G:\\share"})})};
  model.iscsiSessions = {{L"iqn.2007-11.example:data", {{L"TSL0001"}, {L"TSL0002"}}},
                         {L"iqn.2007-11.example:own", {{L"TSL0001", true}}},
                         {L"iqn.2007-11.example:mixed", {{L"TSL0002", true}, {L"TSL0003", true}}}};
  if (scenario.ends_with("-complete")) model.orphanedSnapshot = simulator::OrphanedSnapshot::complete;
  return model;
}

inline std::vector<std::string> KilledRunArguments(std::string_view scenario, const std::filesystem::path& journal) {
  const std::u8string folder = journal.u8string();
  std::vector<std::string> arguments = {
      "--journal", std::string(folder.begin(), folder.end()), "snapshot", "--app", "none", "--disk", "TSL0001",
      "TSL0002"};
  const auto add = [&](std::initializer_list<const char*> more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
  };
  if (!scenario.starts_with("plain")) add({"--context", "app-rollback"});
  if (scenario.starts_with("deleted")) add({"--then", "delete"});
  if (scenario.starts_with("masked")) add({"--then", "mask", "--disconnect"});
  return arguments;
}

}  // namespace varnel::test
