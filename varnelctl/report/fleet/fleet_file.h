// A fleet's runs as the collection leaves them in a folder. docs/fleet.schema.json describes fleet.json.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace varnelctl::fleet {

enum class Mode { Together, Rolling };
enum class OnFailure { End, Keep };
enum class GroupOutcome { Taken, Incomplete, Ended, Stopped, Planned, NotRun };
enum class Outcome { Taken, Failed, Ended, Planned, Refused, Unreachable, Hung, NotRun };

/// Hosts whose sets were to be taken in one way.
struct Group {
  std::string name;
  Mode mode = Mode::Together;
  OnFailure onFailure = OnFailure::Keep;
  GroupOutcome outcome = GroupOutcome::Taken;
  std::string message;
};

struct Host {
  std::string name;
  std::string group;  ///< empty for none
  Outcome outcome = Outcome::Taken;
  std::string message;
  std::optional<double> seconds;                 ///< of its last step
  std::map<std::string, std::string> documents;  ///< by step: a path in the folder of the run, with '/'
  std::optional<std::string> evidence;           ///< the same of the folder with its evidence
};

struct Run {
  std::string name;                 ///< of its folder, for people
  std::filesystem::path folder;     ///< what the paths of its hosts are in
  std::string fleet;                ///< name of the inventory
  LONGLONG startedAt = 0;           ///< FILETIME, as every time here
  std::optional<LONGLONG> endedAt;  ///< nothing for one that broke off
  bool isPlan = false;              ///< nothing was to be taken
  std::vector<Group> groups;
  std::vector<Host> hosts;
};

struct Runs {
  std::vector<Run> runs;                ///< by their start, at least one
  std::vector<std::string> unreadable;  ///< of each other run its file, the place and the reason
};

/// Whether the argument names a folder.
bool IsFolder(const std::string& argument);

/// Of the text of a fleet.json. Keys that are not known are skipped. Throws UsageError, which names the place.
/// \param name of the file, for people.
Run ReadRun(const std::string& name, std::string_view text);

/// The run of a folder that has a fleet.json, or the runs of the folders in it that have one. Throws UsageError where
/// none of them can be read.
Runs ReadRuns(const std::string& folder);

}  // namespace varnelctl::fleet
