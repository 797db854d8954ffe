#include "varnelctl/snapshot_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <string_view>

namespace varnelctl {
namespace {

struct NamedContext {
  std::string_view name;
  DWORD value;
};

constexpr std::array kContexts = {
    NamedContext{"backup", VSS_CTX_BACKUP},
    NamedContext{"file-share-backup", VSS_CTX_FILE_SHARE_BACKUP},
    NamedContext{"app-rollback", VSS_CTX_APP_ROLLBACK},
    NamedContext{"nas-rollback", VSS_CTX_NAS_ROLLBACK},
    NamedContext{"client-accessible", VSS_CTX_CLIENT_ACCESSIBLE},
    NamedContext{"client-accessible-writers", VSS_CTX_CLIENT_ACCESSIBLE_WRITERS},
    NamedContext{"transportable", VSS_VOLSNAP_ATTR_TRANSPORTABLE},
    NamedContext{"no-autorecovery", VSS_VOLSNAP_ATTR_NO_AUTORECOVERY},
    NamedContext{"rollback-recovery", VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY},
    NamedContext{"differential", VSS_VOLSNAP_ATTR_DIFFERENTIAL},
    NamedContext{"plex", VSS_VOLSNAP_ATTR_PLEX},
};

std::optional<DWORD> ParseNumber(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  DWORD value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<DWORD> ParseContextWord(std::string_view word) {
  for (const NamedContext& context : kContexts) {
    if (context.name == word) return context.value;
  }
  return ParseNumber(word);
}

std::string ContextNames() {
  std::string names;
  for (const NamedContext& context : kContexts) names.append(names.empty() ? "" : ", ").append(context.name);
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
         "Make steps fail on purpose: 0x1 the snapshot, after it was taken (--test-points 0x1)")
      ->type_name("MASK");
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
  static const std::map<std::string, VSS_BACKUP_TYPE> kBackupTypes = {{"full", VSS_BT_FULL},
                                                                      {"incremental", VSS_BT_INCREMENTAL},
                                                                      {"differential", VSS_BT_DIFFERENTIAL},
                                                                      {"log", VSS_BT_LOG},
                                                                      {"copy", VSS_BT_COPY},
                                                                      {"other", VSS_BT_OTHER}};
  app.add_option("--app", options.application, "The application to quiesce (--app none): none takes every writer")
      ->type_name("NAME")
      ->check(CLI::IsMember({"none"}))
      ->required();
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
  app.add_option("--backup-type", options.backupType, "What the writers prepare for (--backup-type copy)")
      ->type_name("TYPE")
      ->transform(CLI::CheckedTransformer(kBackupTypes))
      ->option_text("full|incremental|differential|log|copy|other, full unless given");
  AddTestPointOption(app, options);
  app.add_flag("--accept-extra-volumes", options.acceptExtraVolumes,
               "Take a set with volumes that the application does not use for a success");
  AddOutputOptions(app, options);
}

}  // namespace varnelctl
