#include "varnelctl/shells/command_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace varnelctl {
namespace {

std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

// "sql" is typed as it stands; "NAME" stands for something else.
bool IsTypedAsItStands(const std::string& word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](char character) {
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') || character == '-';
  });
}

// Of "TEXT:{none,sql}", which a check of the value makes, or of "all|NAME".
std::vector<std::string> TypedWords(const std::string& type) {
  const std::size_t begin = type.find('{');
  std::vector<std::string> words =
      begin == type.npos ? SplitAt(type, '|') : SplitAt(type.substr(begin + 1, type.find('}') - begin - 1), ',');
  std::erase_if(words, [](const std::string& word) { return !IsTypedAsItStands(word); });
  return words;
}

ValueKind ValueKindOf(const std::string& type, const std::vector<std::string>& words) {
  if (!words.empty()) return ValueKind::Words;
  if (type == "DIR") return ValueKind::Folder;
  return type.starts_with("FILE") || type.ends_with(".json") ? ValueKind::File : ValueKind::Text;
}

// "FILE", or "keep|break|mask|delete, keep unless given".
std::string ShownValue(const CLI::Option& option) {
  const std::string text = option.get_option_text().empty() ? option.get_type_name() : option.get_option_text();
  return text.substr(0, text.find(':')) + (option.get_items_expected_max() > 1 ? " ..." : "");
}

OptionWord ReadOptionWord(const CLI::Option& option) {
  OptionWord word;
  for (const std::string& name : option.get_snames()) word.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) word.names.push_back("--" + name);
  if (option.get_positional()) word.names = {option.get_name(true)};
  word.description = option.get_description();
  word.takesSeveral = option.get_items_expected_max() > 1;
  if (option.get_items_expected_max() == 0) return word;
  word.value = ShownValue(option);
  word.words = TypedWords(option.get_type_name());
  word.kind = ValueKindOf(option.get_type_name(), word.words);
  return word;
}

CommandWords ReadCommand(const CLI::App& app, const std::string& name) {
  CommandWords command{name, app.get_description(), app.get_footer(), {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!name.empty() && option == app.get_help_ptr()) continue;  // every command has varnelctl's own
    (option->get_positional() ? command.arguments : command.options).push_back(ReadOptionWord(*option));
  }
  return command;
}

}  // namespace

std::vector<CommandWords> ReadCommandWords(const CLI::App& app) {
  std::vector<CommandWords> commands = {ReadCommand(app, "")};
  for (const CLI::App* command : app.get_subcommands({})) {
    if (!command->get_group().empty()) commands.push_back(ReadCommand(*command, command->get_name()));
  }
  return commands;
}

}  // namespace varnelctl
