#include "varnelctl/shells/shells.h"

namespace varnelctl {
namespace {

// A native completer hears of the words as PowerShell has parsed them. Files it completes itself where it is told
// nothing.
constexpr char kPowerShellEnd[] = R"(
Register-ArgumentCompleter -Native -CommandName varnelctl, varnelctl.exe -ScriptBlock {
    param($word, $ast, $position)
    $before = @($ast.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $position } | ForEach-Object { $_.ToString() })
    $command = ''
    $takes = 0
    $option = $null
    foreach ($part in $before) {
        if ($part.StartsWith('-')) {
            $option = $varnelctlWords[$command].Options[$part]
            if (-not $option) { $option = $varnelctlWords[''].Options[$part] }
            $takes = if ($option) { $option.Takes } else { 0 }
        } elseif ($takes -gt 0) {
            if ($takes -eq 1) { $takes = 0 }
        } elseif ($command -eq '' -and $varnelctlWords.ContainsKey($part)) {
            $command = $part
        }
    }
    $found = [ordered]@{}
    if ($takes -gt 0 -and -not $word.StartsWith('-')) {
        foreach ($value in $option.Words) { $found[$value] = $option.Text }
    } elseif ($word.StartsWith('-')) {
        foreach ($owner in @($command, '') | Select-Object -Unique) {
            foreach ($name in $varnelctlWords[$owner].Options.Keys) {
                $found[$name] = $varnelctlWords[$owner].Options[$name].Text
            }
        }
    } elseif ($command -eq '') {
        foreach ($name in $varnelctlWords.Keys) { if ($name) { $found[$name] = $varnelctlWords[$name].Text } }
    } else {
        foreach ($value in $varnelctlWords[$command].Words) { $found[$value] = $varnelctlWords[$command].Text }
    }
    foreach ($text in $found.Keys) {
        if ($text.StartsWith($word, [StringComparison]::OrdinalIgnoreCase)) {
            [System.Management.Automation.CompletionResult]::new($text, $text, 'ParameterValue', $found[$text])
        }
    }
}.GetNewClosure()
)";

// In single quotes nothing is special but the quote itself; a tool tip is one line.
std::string PowerShellText(const std::string& text) {
  std::string quoted = "'";
  for (const char character : text) {
    quoted += character == '\n' ? ' ' : character;
    if (character == '\'') quoted += '\'';
  }
  return quoted + "'";
}

std::string PowerShellList(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + PowerShellText(word);
  return "@(" + list + ")";
}

std::string OptionEntry(const OptionWord& option) {
  const char* const takes = option.kind == ValueKind::None ? "0" : option.takesSeveral ? "2" : "1";
  const std::string entry = std::string("@{ Takes = ") + takes + "; Words = " + PowerShellList(option.words) +
                            "; Text = " + PowerShellText(option.description) + " }\n";
  std::string text;
  for (const std::string& name : option.names) text += "            " + PowerShellText(name) + " = " + entry;
  return text;
}

std::string CommandEntry(const CommandWords& command) {
  std::vector<std::string> words;
  for (const OptionWord& argument : command.arguments) {
    words.insert(words.end(), argument.words.begin(), argument.words.end());
  }
  std::string text = "    " + PowerShellText(command.name) +
                     " = @{\n        Text = " + PowerShellText(command.description) +
                     "\n        Words = " + PowerShellList(words) + "\n        Options = [ordered]@{\n";
  for (const OptionWord& option : command.options) text += OptionEntry(option);
  return text + "        }\n    }\n";
}

}  // namespace

std::string PowerShellCompletion(const std::vector<CommandWords>& commands) {
  std::string text =
      "# Completes varnelctl in PowerShell; made by: varnelctl completion powershell\n"
      "# In a profile: varnelctl completion powershell | Out-String | Invoke-Expression\n"
      "$varnelctlWords = @{\n";
  for (const CommandWords& command : commands) text += CommandEntry(command);
  return text + "}\n" + kPowerShellEnd;
}

}  // namespace varnelctl
