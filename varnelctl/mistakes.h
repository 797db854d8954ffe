// Typing errors on the command line, and what was meant.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace varnelctl {

struct Mistake {
  std::string text;     ///< one line of UTF-8; empty when every word is one that there is
  std::string command;  ///< the one that was given before it; empty without one
};

/// The first word that is no command and no option of `app`, with the nearest right one. For arguments that the parser
/// refuses: it says what is missing sooner than what is wrong. \param arguments UTF-8, without the program's name.
Mistake FindMistake(const CLI::App& app, const std::vector<std::string>& arguments);

/// The arguments with the usual ways to ask for help ("/?", "-?", "-help") as --help.
std::vector<std::string> WithHelpAsOption(std::vector<std::string> arguments);

/// What is wrong with the identifier of a provider; empty when nothing is.
std::string RefuseNoGuid(const std::string& text);

/// What is wrong with the name of a file that is to be read, before anybody looks for it; empty when nothing is.
std::string RefuseEmpty(const std::string& name);

}  // namespace varnelctl
