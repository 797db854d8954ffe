#include <algorithm>
#include <sstream>

#include "varnelctl/shells/shells.h"

namespace varnelctl {
namespace {

// Text as it stands: a backslash, a dash and a line's first character mean something to the formatter.
std::string RoffText(const std::string& text) {
  std::string plain;
  for (const char character : text) {
    const bool isFirst = plain.empty() || plain.back() == '\n';
    if (isFirst && (character == '.' || character == '\'')) plain += "\\&";
    if (character == '\\') {
      plain += "\\e";
    } else if (character == '-') {
      plain += "\\-";
    } else {
      plain += character;
    }
  }
  return plain;
}

std::string RoffBold(const std::string& text) {
  return "\\fB" + RoffText(text) + "\\fR";
}

// Entries in the order of the alphabet, as a reader looks for them.
std::string RoffEntries(std::vector<OptionWord> options) {
  std::stable_sort(options.begin(), options.end(), [](const OptionWord& one, const OptionWord& other) {
    return one.names.back() < other.names.back();
  });
  std::string text;
  for (const OptionWord& option : options) {
    std::string names;
    for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + RoffBold(name);
    const std::string value = option.value.empty() ? "" : " \\fI" + RoffText(option.value) + "\\fR";
    text.append(".TP\n").append(names).append(value).append("\n").append(RoffText(option.description)) += '\n';
  }
  return text;
}

// The footer's lines as they stand.
std::string Verbatim(const std::string& text) {
  std::istringstream lines(text);
  std::string verbatim = ".nf\n";
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) verbatim += RoffText(line) + "\n";
  }
  return verbatim + ".fi\n";
}

std::string CommandSection(const CommandWords& command) {
  std::string arguments;
  for (const OptionWord& argument : command.arguments) arguments += " \\fI" + RoffText(argument.names.front()) + "\\fR";
  std::string text = ".SS " + command.name + "\n" + RoffBold("varnelctl " + command.name) + " [\\fIoption\\fR ...]" +
                     arguments + "\n.PP\n" + RoffText(command.description) + ".\n";
  text += RoffEntries(command.arguments) + RoffEntries(command.options);
  const std::size_t examples = command.footer.find("Examples:\n");
  return examples == command.footer.npos ? text : text + ".PP\n" + Verbatim(command.footer.substr(examples));
}

}  // namespace

std::string ManualPage(const std::vector<CommandWords>& commands, const std::string& version,
                       const std::string& released) {
  const CommandWords& program = commands.front();
  std::string text = ".\\\" Made by: varnelctl completion man\n.TH VARNELCTL 1 " + released + " \"varnel " + version +
                     "\" \"User Commands\"\n.SH NAME\nvarnelctl \\- take and look after application\\-consistent "
                     "snapshots of a host\n.SH SYNOPSIS\n" +
                     RoffBold("varnelctl") + " [\\fIoption\\fR ...] \\fIcommand\\fR [\\fIoption\\fR ...]\n" +
                     ".SH DESCRIPTION\n" + RoffText(program.description) + "\n.SH OPTIONS\n" +
                     "These stand before or after the command.\n" + RoffEntries(program.options) + ".SH COMMANDS\n";
  for (const CommandWords& command : commands) {
    if (!command.name.empty()) text += CommandSection(command);
  }
  return text + ".SH EXIT STATUS\n" + Verbatim(program.footer.substr(program.footer.find('\n') + 1));
}

}  // namespace varnelctl
