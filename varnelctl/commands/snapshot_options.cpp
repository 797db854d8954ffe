#include "varnelctl/commands/snapshot_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

// A word that an option takes.
template <class Value>
struct Choice {
  std::string_view name;
  Value value;
};

constexpr Choice<DWORD> kContexts[] = {
    {"backup", VSS_CTX_BACKUP},
    {"file-share-backup", VSS_CTX_FILE_SHARE_BACKUP},
    {"app-rollback", VSS_CTX_APP_ROLLBACK},
    {"nas-rollback", VSS_CTX_NAS_ROLLBACK},
    {"client-accessible", VSS_CTX_CLIENT_ACCESSIBLE},
    {"client-accessible-writers", VSS_CTX_CLIENT_ACCESSIBLE_WRITERS},
    {"transportable", VSS_VOLSNAP_ATTR_TRANSPORTABLE},
    {"no-autorecovery", VSS_VOLSNAP_ATTR_NO_AUTORECOVERY},
    {"rollback-recovery", VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY},
    {"differential", VSS_VOLSNAP_ATTR_DIFFERENTIAL},
    {"plex", VSS_VOLSNAP_ATTR_PLEX},
};

constexpr Choice<Application> kApplications[] = {{"none", Application::None},
                                                 {"sql", Application::Sql},
                                                 {"exchange", Application::Exchange},
                                                 {"hyperv", Application::HyperV}};

constexpr Choice<Then> kThen[] = {
    {"keep", Then::Keep}, {"break", Then::Break}, {"mask", Then::Mask}, {"delete", Then::Delete}};

constexpr Choice<VSS_BACKUP_TYPE> kBackupTypes[] = {{"full", VSS_BT_FULL},
                                                    {"incremental", VSS_BT_INCREMENTAL},
                                                    {"differential", VSS_BT_DIFFERENTIAL},
                                                    {"log", VSS_BT_LOG},
                                                    {"copy", VSS_BT_COPY},
                                                    {"other", VSS_BT_OTHER}};

std::optional<DWORD> ParseNumber(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  DWORD value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<DWORD> ParseContextWord(std::string_view word) {
  for (const Choice<DWORD>& context : kContexts) {
    if (context.name == word) return context.value;
  }
  return ParseNumber(word);
}

std::string ContextNames() {
  std::string names;
  for (const Choice<DWORD>& context : kContexts) names.append(names.empty() ? "" : ", ").append(context.name);
  return names;
}

void AddContextOption(CLI::App& app, SnapshotOptions& options) {
  app.add_option_function<std::string>(
         "--context",
         [&options](const std::string& text) {
           const std::optional<DWORD> context = ParseContext(text);
           if (!context) {
             throw CLI::ValidationError("--context",
                                        "\"" + text + "\" is neither a number nor made of " + ContextNames());
           }
           options.context = *context;
         },
         "The VSS context: a number, or names joined by + (--context app-rollback+transportable); backup unless given. "
         "Names: " +
             ContextNames())
      ->type_name("N|NAME+...");
}

void AddTestPointOption(CLI::App& app, SnapshotOptions& options) {
  app.add_option_function<std::string>(
         "--test-points",
         [&options](const std::string& text) {
           const std::optional<DWORD> mask = ParseNumber(text);
           if (!mask) throw CLI::ValidationError("--test-points", "\"" + text + "\" is no number");
           options.testPoints = *mask;
         },
         "Make steps fail on purpose: 0x1 the snapshot, after it was taken; 0x2 the verification of Exchange files "
         "(--test-points 0x1)")
      ->type_name("MASK");
}

// An option whose value is one of these names.
template <class Value, std::size_t n>
CLI::Option* AddChoice(CLI::App& app, const char* option, Value& target, const Choice<Value> (&choices)[n],
                       const char* description) {
  std::vector<std::string> names;
  for (const Choice<Value>& choice : choices) names.emplace_back(choice.name);
  return app
      .add_option_function<std::string>(
          option,
          [&target, &choices](const std::string& name) {
            for (const Choice<Value>& choice : choices) {
              if (choice.name == name) target = choice.value;
            }
          },
          description)
      ->check(CLI::IsMember(names));
}

void AddApplicationOption(CLI::App& app, SnapshotOptions& options) {
  AddChoice(
      app, "--app", options.application, kApplications,
      "The application to quiesce, whose writers take part (--app sql): SQL Server, Exchange, Hyper-V; none takes "
      "every writer")
      ->option_text("none|sql|exchange|hyperv REQUIRED")
      ->required();
}

// What happens to a set after it was taken.
void AddCompletionOptions(CLI::App& app, SnapshotOptions& options) {
  app.add_flag("--verify", options.verify,
               "Have the application's files checked on the snapshot; a damaged one fails the request. Not for "
               "transportable sets");
  app.add_flag("--skip-db-verification", options.skipDbVerification,
               "With --app exchange --verify: check the logs only, not the databases");
  app.add_flag("--accept-extra-volumes", options.acceptExtraVolumes,
               "Take a set with volumes that the application does not use for a success; it is deleted otherwise");
  AddChoice(app, "--then", options.then, kThen,
            "What becomes of the set (--then mask): keep it as long as its context says, break it into ordinary disks "
            "of this host, break it and mask its disks from this host, or delete it")
      ->option_text("keep|break|mask|delete, keep unless given");
  app.add_flag("--disconnect", options.disconnect,
               "Log this host out of the iSCSI sessions that carry the set's disks: before these are masked, behind "
               "anything else. A deleted set has no disks left to disconnect");
}

void AddOutputOptions(CLI::App& app, SnapshotOptions& options) {
  app.add_option("--document", options.documentFile,
                 "Write the backup components document there (--document backup.xml)")
      ->type_name("FILE");
  app.add_option("--catalog", options.catalogFile,
                 "Write the application objects by disk there, as JSON (--catalog catalog.json)")
      ->type_name("FILE");
  app.add_option("--calls", options.callsFile,
                 "Write every call to the simulated host there (--calls calls.txt); only on simulated hosts")
      ->type_name("FILE");
}

}  // namespace

std::optional<DWORD> ParseContext(const std::string& text) {
  DWORD context = 0;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('+', begin), text.size());
    const std::optional<DWORD> part = ParseContextWord(std::string_view(text).substr(begin, end - begin));
    if (!part) return std::nullopt;
    context |= *part;
    begin = end + 1;
  }
  return context;
}

void AddSnapshotOptions(CLI::App& app, SnapshotOptions& options) {
  AddApplicationOption(app, options);
  app.add_option("--disk", options.disks,
                 "Serial numbers of the protection set's disks, as varnelctl disks shows them (--disk TSL0001 TSL0002)")
      ->type_name("SERIAL")
      ->expected(1, -1)
      ->required();
  app.add_option("--writer-code", options.writerCode,
                 "What the array asks for: with 2, 3 or 4 only the databases that its metadata service names "
                 "(--writer-code 2); 0 unless given")
      ->type_name("N");
  AddContextOption(app, options);
  AddChoice(app, "--backup-type", options.backupType, kBackupTypes, "What the writers prepare for (--backup-type copy)")
      ->option_text("full|incremental|differential|log|copy|other, full unless given");
  AddTestPointOption(app, options);
  AddCompletionOptions(app, options);
  AddOutputOptions(app, options);
}

void CheckSnapshotOptions(const SnapshotOptions& options) {
  if (options.verify && options.IsTransportable()) {
    throw UsageError("--verify does not go with a transportable context: there would be no snapshot to verify here");
  }
  if (options.then != Then::Keep && options.IsTransportable()) {
    throw UsageError("--then does not go with a transportable context: the set belongs to the array, not to this host");
  }
  if (options.skipDbVerification && options.application != Application::Exchange) {
    throw UsageError("--skip-db-verification goes with --app exchange only");
  }
}

}  // namespace varnelctl
