// The words of varnelctl's command line, read from the parser: what shells complete and the manual page lists.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace varnelctl {

/// What stands in the place of a value.
enum class ValueKind { None, Text, Words, File, Folder };

/// An option, or an argument that stands without one.
struct OptionWord {
  std::vector<std::string> names;  ///< "-h", "--help"; the argument's own name where it stands without an option
  std::string value;               ///< what follows it, as the help says it; empty for a flag
  std::string description;
  ValueKind kind = ValueKind::None;
  std::vector<std::string> words;  ///< of kind Words: all that is taken, or the part of it that can be named
  bool takesSeveral = false;
};

struct CommandWords {
  std::string name;  ///< empty for varnelctl itself
  std::string description;
  std::string footer;
  std::vector<OptionWord> options;
  std::vector<OptionWord> arguments;
};

/// varnelctl itself and then each of its commands, in the order of the help.
std::vector<CommandWords> ReadCommandWords(const CLI::App& app);

}  // namespace varnelctl
