#include "varnelctl/mistakes.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "platform/win32.h"
#include "text/guid.h"
#include "text/nearest_name.h"

namespace varnelctl {
namespace {

// "-5" is a value.
bool LooksLikeOption(std::string_view word) {
  return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
}

std::string DidYouMeanOneOf(std::string_view wrong, const std::vector<std::string>& names) {
  return varnel::DidYouMean(wrong, std::vector<std::string_view>(names.begin(), names.end()));
}

std::vector<std::string> CommandsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (!command->get_group().empty()) names.push_back(command->get_name());
  }
  return names;
}

// Reads the arguments as the parser does.
class Reader {
 public:
  Reader(const CLI::App& app, const std::vector<std::string>& arguments) : app_(app), arguments_(arguments) {}

  Mistake Find() {
    std::string text;
    while (text.empty() && at_ < arguments_.size()) text = Read(arguments_[at_++]);
    if (text.empty() && command_ == nullptr) text = "no command was given; there are " + List(CommandsOf(app_));
    return {text, command_ == nullptr ? "" : command_->get_name()};
  }

 private:
  static std::string List(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
  }

  // What is wrong with this word; empty when nothing is.
  std::string Read(const std::string& word) {
    if (LooksLikeOption(word)) return ReadOption(word);
    const CLI::App* const command = CommandNamed(word);
    const bool wanted = command_ == nullptr || command_->get_name() == "help";
    if (wanted && command == nullptr) return word.starts_with('/') ? UnknownOption(word) : UnknownCommand(word);
    if (!wanted && command == nullptr) return TakesWords() ? std::string() : UnknownArgument(word);
    if (!wanted) return OneAtATime(*command);
    if (command_ == nullptr) command_ = command;
    return {};
  }

  std::string ReadOption(const std::string& word) {
    const CLI::Option* const option = OptionNamed(word.substr(0, word.find('=')));
    if (option == nullptr) return UnknownOption(word);
    if (word.find('=') == word.npos) SkipValues(*option);
    return {};
  }

  // The parser takes as many as must be, whatever they look like.
  void SkipValues(const CLI::Option& option) {
    const auto least = static_cast<std::size_t>(std::max(option.get_items_expected_min(), 0));
    const auto most = static_cast<std::size_t>(std::max(option.get_items_expected_max(), 0));
    for (std::size_t taken = 0; taken < most && at_ < arguments_.size(); ++taken, ++at_) {
      if (taken >= least && LooksLikeOption(arguments_[at_])) return;
    }
  }

  const CLI::App* CommandNamed(const std::string& name) const {
    const auto commands = app_.get_subcommands({});
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CLI::App* command) { return command->get_name() == name; });
    return found == commands.end() ? nullptr : *found;
  }

  const CLI::Option* OptionNamed(const std::string& name) const {
    const CLI::Option* const own = command_ == nullptr ? nullptr : command_->get_option_no_throw(name);
    return own != nullptr ? own : app_.get_option_no_throw(name);
  }

  // The command says itself what is wrong with its words.
  bool TakesWords() const {
    const std::vector<const CLI::Option*> options = command_->get_options();
    return std::any_of(options.begin(), options.end(),
                       [](const CLI::Option* option) { return option->get_positional(); });
  }

  // With two dashes each.
  std::vector<std::string> Options() const {
    std::vector<std::string> names;
    for (const CLI::App* app : {command_, &app_}) {
      if (app == nullptr) continue;
      for (const CLI::Option* option : app->get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
      }
    }
    return names;
  }

  std::string UnknownOption(const std::string& word) const {
    const std::string name = word.substr(0, word.find('='));
    const std::string text =
        command_ == nullptr ? "there is no option " + name : command_->get_name() + " has no option " + name;
    std::string commands;
    for (const CLI::App* command : app_.get_subcommands({})) {
      if (command->get_option_no_throw(name) == nullptr) continue;
      commands += (commands.empty() ? "" : " and of ") + command->get_name();
    }
    if (!commands.empty()) {
      return text + "; it is one of " + commands + (command_ == nullptr ? " and stands after it" : "");
    }
    const std::string letters = name.substr(std::min(name.find_first_not_of("-/"), name.size()));
    return text + (letters.size() == 1 ? StartingWith(letters) : DidYouMeanOneOf("--" + letters, Options()));
  }

  std::string StartingWith(const std::string& letter) const {
    std::string list;
    for (const std::string& name : Options()) {
      if (name.substr(2).starts_with(letter)) list += (list.empty() ? "\"" : " or \"") + name + "\"";
    }
    return list.empty() ? list : "; did you mean " + list + "?";
  }

  std::string UnknownCommand(const std::string& word) const {
    const std::string nearest = DidYouMeanOneOf(word, CommandsOf(app_));
    return "there is no command \"" + word + "\"" +
           (nearest.empty() ? "; there are " + List(CommandsOf(app_)) : nearest);
  }

  std::string UnknownArgument(const std::string& word) const {
    if (word.starts_with('/')) return UnknownOption(word);
    return command_->get_name() + " takes no argument \"" + word + "\"" + DidYouMeanOneOf("--" + word, Options());
  }

  std::string OneAtATime(const CLI::App& second) const {
    return "one command at a time: " + command_->get_name() + " or " + second.get_name();
  }

  const CLI::App& app_;
  const std::vector<std::string>& arguments_;
  std::size_t at_ = 0;
  const CLI::App* command_ = nullptr;  // the one that was given; null before it
};

}  // namespace

Mistake FindMistake(const CLI::App& app, const std::vector<std::string>& arguments) {
  return Reader(app, arguments).Find();
}

std::vector<std::string> WithHelpAsOption(std::vector<std::string> arguments) {
  for (std::string& argument : arguments) {
    if (argument == "/?" || argument == "-?" || argument == "-help") argument = "--help";
  }
  return arguments;
}

std::string RefuseNoGuid(const std::string& text) {
  if (varnel::TryParseGuid<GUID>(std::string_view(text))) return {};
  return "no identifier in braces ({374579ad-285c-49b9-ab8a-950e0e252de2}): \"" + text + "\"";
}

std::string RefuseEmpty(const std::string& name) {
  return name.empty() ? "a file name is missing" : "";
}

}  // namespace varnelctl
