#include "varnelctl/shells/shells.h"

namespace varnelctl {
namespace {

// `takes` is what the word before may still be followed by: nothing, 1 or several values.
constexpr char kBashBegin[] = R"(# Completes varnelctl in bash; made by: varnelctl completion bash
_varnelctl() {
  local word=${COMP_WORDS[COMP_CWORD]} command= option= takes=0 i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      =) ;;
      -*)
        option=${COMP_WORDS[i]}
        _varnelctl_takes
        ;;
      *)
        if ((takes > 0)); then
          ((takes -= takes == 1))
        elif [[ -z $command ]]; then
          command=${COMP_WORDS[i]}
        fi
        ;;
    esac
  done
  [[ $word != = ]] || word=
  COMPREPLY=()
  if ((takes > 0)) && [[ $word != -* ]]; then
    _varnelctl_values "$command $option"
  elif [[ $word == -* ]]; then
    _varnelctl_options
  elif [[ -z $command ]]; then
    _varnelctl_words )";

constexpr char kBashEnd[] = R"(
  else
    _varnelctl_values "$command"
  fi
}
_varnelctl_words() {
  mapfile -t COMPREPLY < <(compgen -W "$*" -- "$word")
}
_varnelctl_paths() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "$1" -- "$word")
}
complete -F _varnelctl varnelctl varnelctl.exe
)";

std::string Joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

std::string CommandNames(const std::vector<CommandWords>& commands) {
  std::vector<std::string> names;
  for (const CommandWords& command : commands) {
    if (!command.name.empty()) names.push_back(command.name);
  }
  return Joined(names, " ");
}

// The patterns under which a case knows an option: a global one stands after any command.
std::string Patterns(const CommandWords& command, const OptionWord& option) {
  std::vector<std::string> patterns;
  for (const std::string& name : option.names) {
    patterns.push_back((command.name.empty() ? "*" : "'" + command.name) + (command.name.empty() ? "' " : " ") + name +
                       "'");
  }
  return Joined(patterns, " | ");
}

std::string Answer(const OptionWord& option) {
  switch (option.kind) {
    case ValueKind::Words:
      return "_varnelctl_words " + Joined(option.words, " ");
    case ValueKind::File:
      return "_varnelctl_paths -f";
    case ValueKind::Folder:
      return "_varnelctl_paths -d";
    default:
      return {};
  }
}

// How many values each option takes: 1, or 2 for any number of them.
std::string TakesFunction(const std::vector<CommandWords>& commands) {
  std::string text = "_varnelctl_takes() {\n  case \"$command $option\" in\n";
  for (const CommandWords& command : commands) {
    for (const OptionWord& option : command.options) {
      if (option.kind == ValueKind::None) continue;
      text += "    " + Patterns(command, option) + ") takes=" + (option.takesSeveral ? "2" : "1") + " ;;\n";
    }
  }
  return text + "    *) takes=0 ;;\n  esac\n}\n";
}

std::string ValuesFunction(const std::vector<CommandWords>& commands) {
  std::string text = "_varnelctl_values() {\n  case $1 in\n";
  for (const CommandWords& command : commands) {
    for (const OptionWord& option : command.options) {
      const std::string answer = Answer(option);
      if (!answer.empty()) text += "    " + Patterns(command, option) + ") " + answer + " ;;\n";
    }
    for (const OptionWord& argument : command.arguments) {
      const std::string answer = Answer(argument);
      if (!answer.empty()) text += "    '" + command.name + "') " + answer + " ;;\n";
    }
  }
  return text + "  esac\n}\n";
}

std::string OptionsFunction(const std::vector<CommandWords>& commands) {
  std::string text = "_varnelctl_options() {\n  local own=\n  case $command in\n";
  std::string global;
  for (const CommandWords& command : commands) {
    std::vector<std::string> names;
    for (const OptionWord& option : command.options) names.push_back(option.names.back());
    if (command.name.empty()) {
      global = Joined(names, " ");
    } else if (!names.empty()) {
      text += "    " + command.name + ") own='" + Joined(names, " ") + "' ;;\n";
    }
  }
  return text + "  esac\n  _varnelctl_words \"$own\" " + global + "\n}\n";
}

}  // namespace

std::string BashCompletion(const std::vector<CommandWords>& commands) {
  return kBashBegin + CommandNames(commands) + kBashEnd + TakesFunction(commands) + ValuesFunction(commands) +
         OptionsFunction(commands);
}

}  // namespace varnelctl
