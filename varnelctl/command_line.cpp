#include "varnelctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "platform/tessel/FileLog.h"
#include "varnelctl/console/text.h"
#include "varnelctl/mistakes.h"
#include "varnelctl/shells/shells.h"

namespace varnelctl {
namespace {

constexpr char kDescription[] =
    "Drives the varnel requestor by hand: shows what a host's Volume Shadow Copy service offers and takes snapshots.\n"
    "Without --host it asks this machine on Windows, and a built-in sample host elsewhere.";

constexpr char kJson[] = "--json";
constexpr char kJsonLines[] = "--json-lines";

int CategoryOf(const std::string& level) {
  if (level == "error") return CFileLog::Error;
  if (level == "warning") return CFileLog::Warning;
  if (level == "info") return CFileLog::Information;
  return CFileLog::Verbose;
}

std::string ExitStatusFooter() {
  std::string footer = "Exit status:\n";
  for (const auto& [status, text] : kExitStatuses) {
    std::string number = std::to_string(static_cast<int>(status));
    number.insert(0, 4 - number.size(), ' ');
    footer.append(number).append("  ").append(text) += '\n';
  }
  return footer;
}

void AddProviderOption(CLI::App& app, GlobalOptions& options) {
  app.add_option("--provider-id", options.providerId,
                 "Take the VSS hardware provider of this identifier for the array's, in place of the built-in one "
                 "(varnelctl providers lists them)")
      ->type_name("GUID")
      ->check(RefuseNoGuid);
}

// Global options may also follow the command's name.
void AddGlobalOptions(CLI::App& app, GlobalOptions& options, std::string& logLevel) {
  app.set_help_flag("-h,--help", "Print this help, or after a command its own, and exit");
  app.set_version_flag("--version", "varnelctl " VARNELCTL_VERSION, "Print the version and exit");
  CLI::Option* host =
      app.add_option("--host", options.hostFile, "Ask the simulated host of this JSON file (--host sql-server.json)")
          ->type_name("FILE")
          ->check(RefuseEmpty);
  app.add_option("--state", options.stateFile,
                 "Keep what happens at that host in this file, for the next commands (--state host.state)")
      ->type_name("FILE")
      ->check(RefuseEmpty)
      ->needs(host);
  CLI::Option* journal =
      app.add_option("--journal", options.journalFolder,
                     "Remember requests in this folder, where sets and snapshot look for them (--journal D:\\varnel); "
                     "unless given one for all of this machine, and of a simulated host FILE.sets beside its state")
          ->type_name("DIR")
          ->check(RefuseEmpty);
  app.add_flag("--no-journal", options.noJournal,
               "Remember nothing: a set that a run leaves which is killed is then listed by nobody")
      ->excludes(journal);
  AddProviderOption(app, options);
  const auto asks = [&options](Format format) { return [&options, format] { options.format = format; }; };
  CLI::Option* json = app.add_flag_callback(kJson, asks(Format::OneDocument),
                                            "Print one JSON document instead of text (varnelctl --json disks)");
  app.add_flag_callback(kJsonLines, asks(Format::Lines),
                        "Print what happens as JSON, one document a line, the last of which holds the whole")
      ->excludes(json);
  app.add_flag("--verbose", options.verbose, "Tell more: the library's function beside each step of a snapshot");
  CLI::Option* log =
      app.add_option("--log", options.logFile, "Append the library's log to this file (--log varnel.log)")
          ->type_name("FILE");
  app.add_option("--log-level", logLevel, "Least important lines to log, else info (--log-level verbose)")
      ->type_name("LEVEL")
      ->check(CLI::IsMember({"error", "warning", "info", "verbose"}))
      ->needs(log);
}

void AddCommands(CLI::App& app, const std::vector<std::unique_ptr<Command>>& commands) {
  app.require_subcommand(1);
  for (const std::unique_ptr<Command>& command : commands) {
    CLI::App* sub = app.add_subcommand(command->name(), command->description());
    sub->footer("The options of varnelctl --help may follow too.\nExamples:\n" + std::string(command->examples()));
    command->AddOptions(*sub);
  }
  std::vector<std::string> names = {"help"};
  for (const std::unique_ptr<Command>& command : commands) names.emplace_back(command->name());
  app.add_subcommand("help", "Print this help, or that of a command")
      ->add_option("COMMAND")
      ->check(CLI::IsMember(std::move(names)))
      ->option_text("")
      ->description("The command, varnelctl itself unless given");
  // Not in the help: shells and those who make packages ask for it.
  app.add_subcommand("completion", "Print what completes the command line in a shell, or the manual page")
      ->group("")
      ->add_option("FORM")
      ->required()
      ->check(CLI::IsMember({"bash", "powershell", "man"}));
}

std::string CompletionText(const CLI::App& app, const std::string& form) {
  const std::vector<CommandWords> commands = ReadCommandWords(app);
  if (form == "bash") return BashCompletion(commands);
  return form == "man" ? ManualPage(commands, VARNELCTL_VERSION, VARNELCTL_RELEASED) : PowerShellCompletion(commands);
}

// A word that is wrong comes before what the parser misses.
UsageError Refusal(const CLI::App& app, const std::vector<std::string>& arguments, const char* parsersWord) {
  const Mistake mistake = FindMistake(app, arguments);
  return UsageError(OneLine(mistake.text.empty() ? parsersWord : mistake.text) + " (varnelctl " +
                    (mistake.command.empty() ? "" : mistake.command + " ") + "--help lists what there is)");
}

// False when the arguments asked for a text, which is then printed.
bool Parse(CLI::App& app, const std::vector<std::string>& arguments, Console& console) {
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));  // the order that the parser wants
    const CLI::App* const completion = app.get_subcommand("completion");
    if (completion->parsed()) {
      console.Text(CompletionText(app, completion->get_option("FORM")->results()[0]));
      return false;
    }
    const CLI::App* const help = app.get_subcommand("help");
    if (!help->parsed()) return true;
    const auto& names = help->get_option("COMMAND")->results();
    // Asked for its help, varnelctl itself gives that of the command at hand, which is this one.
    console.Text(names.empty() ? app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal)
                               : app.get_subcommand(names[0])->help(app.get_name()));
  } catch (const CLI::CallForHelp&) {
    console.Text(app.help());
  } catch (const CLI::CallForVersion& version) {
    console.Line(version.what());
  } catch (const CLI::ParseError& error) {
    throw Refusal(app, arguments, error.what());
  }
  return false;
}

}  // namespace

Format FormatAskedFor(const std::vector<std::string>& arguments) {
  const auto has = [&](const char* option) {
    return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
  };
  if (has(kJson)) return Format::OneDocument;
  return has(kJsonLines) ? Format::Lines : Format::Text;
}

Invocation ParseCommandLine(std::vector<std::string> arguments, Console& console) {
  Invocation invocation;
  std::string logLevel = "info";
  std::vector<std::unique_ptr<Command>> commands = MakeCommands();

  CLI::App app(kDescription, "varnelctl");
  app.allow_windows_style_options(false);  // '/' starts a path everywhere
  app.fallthrough();
  AddGlobalOptions(app, invocation.options, logLevel);
  AddCommands(app, commands);
  app.footer(ExitStatusFooter());
  if (!Parse(app, WithHelpAsOption(std::move(arguments)), console)) return invocation;

  invocation.options.lowestLogCategory = CategoryOf(logLevel);
  const auto chosen = std::find_if(commands.begin(), commands.end(),
                                   [&app](const auto& command) { return app.got_subcommand(command->name()); });
  invocation.command = std::move(*chosen);
  return invocation;
}

}  // namespace varnelctl
