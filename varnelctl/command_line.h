// What the arguments ask for.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "varnelctl/commands/command.h"
#include "varnelctl/console/console.h"

namespace varnelctl {

struct GlobalOptions {
  std::optional<std::string> hostFile;
  std::optional<std::string> stateFile;
  std::optional<std::string> journalFolder;
  bool noJournal = false;
  Format format = Format::Text;
  bool verbose = false;
  std::optional<std::string> providerId;  ///< a GUID in braces
  std::optional<std::string> logFile;
  int lowestLogCategory = 0;  ///< CFileLog::Category
};

struct Invocation {
  GlobalOptions options;
  std::unique_ptr<Command> command;  ///< null when help or the version was asked for and has been printed
};

/// How the results leave a program whose arguments could not be read.
Format FormatAskedFor(const std::vector<std::string>& arguments);

/// Reads the arguments (UTF-8, without the program's name). Throws UsageError.
Invocation ParseCommandLine(std::vector<std::string> arguments, Console& console);

}  // namespace varnelctl
