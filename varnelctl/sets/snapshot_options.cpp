#include "varnelctl/sets/snapshot_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <charconv>
#include <string_view>

#include "core/configuration.h"
#include "core/provider.h"
#include "text/format.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/limits.h"
#include "varnelctl/sets/requested_disks.h"

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

template <class Value, std::size_t n>
std::optional<Value> ValueOf(std::string_view name, const Choice<Value> (&choices)[n]) {
  const auto* const found =
      std::find_if(std::begin(choices), std::end(choices), [&](const auto& choice) { return choice.name == name; });
  return found == std::end(choices) ? std::nullopt : std::optional(found->value);
}

template <class Value, std::size_t n>
std::vector<std::string> NamesOf(const Choice<Value> (&choices)[n]) {
  std::vector<std::string> names;
  for (const Choice<Value>& choice : choices) names.emplace_back(choice.name);
  return names;
}

template <class Value, std::size_t n>
std::string NameOf(Value value, const Choice<Value> (&choices)[n]) {
  const auto* const found =
      std::find_if(std::begin(choices), std::end(choices), [&](const auto& choice) { return choice.value == value; });
  return found == std::end(choices) ? std::string() : std::string(found->name);
}

// The context that has the most of these bits and no other one; null where none has any.
const Choice<DWORD>* LargestContextIn(DWORD bits) {
  const Choice<DWORD>* largest = nullptr;
  for (const Choice<DWORD>& choice : kContexts) {
    const bool fits = choice.value != 0 && (choice.value & ~bits) == 0;
    if (fits && (largest == nullptr || std::popcount(choice.value) > std::popcount(largest->value))) largest = &choice;
  }
  return largest;
}

std::optional<DWORD> ParseNumber(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  DWORD value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// What the requestor makes a difference for.
std::optional<DWORD> ParseWriterCode(std::string_view text) {
  constexpr DWORD kLargest = 4;
  const std::optional<DWORD> code = ParseNumber(text);
  return code && *code <= kLargest ? code : std::nullopt;
}

std::optional<DWORD> ParseTestPoints(std::string_view text) {
  constexpr DWORD kAll = varnel::kTestPointFailDoSnapshotSet | varnel::kTestPointFailFileVerification;
  const std::optional<DWORD> mask = ParseNumber(text);
  return mask && (*mask & ~kAll) == 0 ? mask : std::nullopt;
}

constexpr char kSecondsFault[] = "no number of seconds from 0 to 86400, a day";

std::optional<DWORD> ParseSeconds(std::string_view text) {
  constexpr DWORD kDay = 86400;
  const std::optional<DWORD> seconds = ParseNumber(text);
  return seconds && *seconds <= kDay ? seconds : std::nullopt;
}

std::optional<DWORD> ParseRetries(std::string_view text) {
  constexpr DWORD kMost = 3;
  const std::optional<DWORD> retries = ParseNumber(text);
  return retries && *retries <= kMost ? retries : std::nullopt;
}

// An option whose value `parse` understands; `fault` says what a text is that it does not.
template <class Parse>
CLI::Option* AddParsed(CLI::App& app, const char* option, DWORD& target, Parse parse, const std::string& fault,
                       const std::string& description) {
  const auto read = [=, &target](const std::string& text) {
    const std::optional<DWORD> value = parse(text);
    if (!value) throw CLI::ValidationError(option, "\"" + text + "\" is " + fault);
    target = *value;
  };
  return app.add_option_function<std::string>(option, read, description);
}

// An option whose value is one of these names.
template <class Target, class Value, std::size_t n>
CLI::Option* AddChoice(CLI::App& app, const char* option, Target& target, const Choice<Value> (&choices)[n],
                       const char* description) {
  const auto read = [&](const std::string& name) {
    if (const std::optional<Value> value = ValueOf(name, choices)) target = *value;
  };
  return app.add_option_function<std::string>(option, read, description)->check(CLI::IsMember(NamesOf(choices)));
}

// The parser ends a list at the next option, but takes the first value whatever it looks like.
std::string NoOption(const std::string& value) {
  const bool isOption = value.size() > 1 && value[0] == '-' && (value[1] < '0' || value[1] > '9');
  return isOption ? "no value stands before " + value : "";
}

CLI::Option* AddDisks(CLI::App& app, std::vector<std::string>& disks) {
  return app
      .add_option(
          "--disk", disks,
          "Serial numbers of the protection set's disks, as varnelctl disks shows them (--disk TSL0001 TSL0002)")
      ->type_name("SERIAL")
      ->expected(1, -1)
      ->check(NoOption);
}

void AddUnknownDisks(CLI::App& app, bool& accept) {
  app.add_flag("--accept-unknown-disks", accept,
               "Take serial numbers that no disk of this host has: the array's set spans several hosts");
}

// Of which application and disks.
CLI::Option* AddTarget(CLI::App& app, SnapshotOptions& options) {
  AddChoice(
      app, "--app", options.application, kApplications,
      "The application to quiesce, whose writers take part (--app sql): SQL Server, Exchange, Hyper-V; none takes "
      "every writer")
      ->option_text("none|sql|exchange|hyperv REQUIRED")
      ->required();
  return AddDisks(app, options.disks);
}

// Which set is taken.
void AddRequestOptions(CLI::App& app, SnapshotOptions& options) {
  AddUnknownDisks(app, options.acceptUnknownDisks);
  app.add_option("--require", options.required,
                 "Databases, mailbox databases or virtual machines that must be in the set whole, or all of the "
                 "application (--require sales crm): else nothing is taken, and no writer is asked to prepare")
      ->type_name("all|NAME")
      ->expected(1, -1)
      ->check(NoOption);
  AddParsed(app, "--writer-code", options.writerCode, ParseWriterCode,
            "no writer code: 0 and 1 ask for every component, 2, 3 and 4 for the databases that the array's metadata "
            "service names",
            "What the array asks for: with 2, 3 or 4 only the databases that its metadata service names "
            "(--writer-code 2); 0 unless given")
      ->type_name("0|1|2|3|4");
  std::string contexts;
  for (const std::string& name : NamesOf(kContexts)) contexts += (contexts.empty() ? "" : ", ") + name;
  AddParsed(app, "--context", options.context, ParseContext, "neither a number nor made of " + contexts,
            "The VSS context: a number, or names joined by + (--context app-rollback+transportable); backup unless "
            "given. Names: " +
                contexts)
      ->type_name("N|NAME+...");
  AddChoice(app, "--backup-type", options.backupType, kBackupTypes, "What the writers prepare for (--backup-type copy)")
      ->option_text("full|incremental|differential|log|copy|other, full unless given");
  app.add_flag("--accept-extra-volumes", options.acceptExtraVolumes,
               "Take a set with volumes that the application does not use for a success; it is deleted otherwise");
}

void AddTestPoints(CLI::App& app, SnapshotOptions& options) {
  AddParsed(app, "--test-points", options.testPoints, ParseTestPoints,
            "no mask of test points: 0x1 makes the snapshot fail, 0x2 the verification of Exchange files, 0x3 both",
            "Make steps fail on purpose: 0x1 the snapshot, after it was taken; 0x2 the verification of Exchange files "
            "(--test-points 0x1)")
      ->type_name("MASK");
}

void AddDeadlines(CLI::App& app, SnapshotOptions& options) {
  constexpr unsigned kMostSeconds = 86'400;
  app.add_option("--deadline", options.deadlines.seconds,
                 "Give the request up that is not done in so many seconds: it is cancelled and completed as a failure, "
                 "with exit status 17 (--deadline 1800)")
      ->option_text("SECONDS")
      ->check(CLI::Range(1U, kMostSeconds));
  const auto read = [&](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
      if (const std::string fault = ReadStepDeadline(text, options.deadlines); !fault.empty()) {
        throw CLI::ValidationError("--deadline-step", fault);
      }
    }
  };
  app.add_option_function<std::vector<std::string>>(
         "--deadline-step", read,
         "The same for a step, again for each (--deadline-step prepare=120). Steps: " + DeadlineStepNames())
      ->type_name("NAME=SECONDS")
      ->expected(1, -1)
      ->check(NoOption);
}

// What happens to a set after it was taken.
void AddCompletionOptions(CLI::App& app, SnapshotOptions& options) {
  app.add_flag("--verify", options.verify,
               "Have the application's files checked on the snapshot; a damaged one fails the request. Exchange's "
               "eseutil.exe is looked for on the PATH and in the folder of the installation. Not for transportable "
               "sets");
  app.add_flag("--skip-db-verification", options.skipDbVerification,
               "With --app exchange --verify: check the logs only, not the databases");
  AddChoice(app, "--then", options.then, kThen,
            "What becomes of the set (--then mask): keep it as long as its context says, break it into ordinary disks "
            "of this host, break it and mask its disks from this host, or delete it")
      ->option_text("keep|break|mask|delete, keep unless given");
  app.add_flag("--disconnect", options.disconnect,
               "Log this host out of the iSCSI sessions that carry the set's disks: before these are masked, after "
               "anything else. A deleted set has no disks left to disconnect");
}

// When a request is made again.
void AddTryOptions(CLI::App& app, SnapshotOptions& options) {
  AddParsed(app, "--wait-for-others", options.waitForOthers, ParseSeconds, kSecondsFault,
            "While another backup of this host is in progress, try again for so many seconds (--wait-for-others 1800); "
            "600 unless given, 0 not at all")
      ->type_name("SECONDS");
  CLI::Option* retries =
      AddParsed(
          app, "--retries", options.retries, ParseRetries, "no number of retries from 0 to 3",
          "Make the request again, at most so many times, when it failed of what is known to pass: a writer of "
          "VSS_E_WRITERERROR_RETRYABLE, _TIMEOUT or _OUTOFRESOURCES, DoSnapshotSet of VSS_E_FLUSH_WRITES_TIMEOUT, "
          "VSS_E_HOLD_WRITES_TIMEOUT, VSS_E_PROVIDER_VETO or VSS_E_UNEXPECTED_PROVIDER_ERROR (--retries 2); 0 "
          "unless given. Each try costs an Identify of every writer; one whose set cannot be ended is the last")
          ->type_name("0|1|2|3");
  AddParsed(app, "--retry-wait", options.retryWait, ParseSeconds, kSecondsFault,
            "The seconds before each retry (--retries 2 --retry-wait 60); 600 unless given")
      ->type_name("SECONDS")
      ->needs(retries);
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
    const std::string_view word = std::string_view(text).substr(begin, end - begin);
    std::optional<DWORD> part = ValueOf(word, kContexts);
    if (!part) part = ParseNumber(word);
    if (!part) return std::nullopt;
    context |= *part;
    begin = end + 1;
  }
  return context;
}

std::string ContextName(DWORD context) {
  if (context == VSS_CTX_BACKUP) return NameOf(context, kContexts);
  std::string name;
  while (const Choice<DWORD>* const part = LargestContextIn(context)) {
    name.append(name.empty() ? "" : "+").append(part->name);
    context &= ~part->value;
  }
  if (context != 0) name.append(name.empty() ? "" : "+").append(varnel::FormatNarrow("0x%x", {context}));
  return name;
}

std::string BackupTypeName(VSS_BACKUP_TYPE type) {
  return NameOf(type, kBackupTypes);
}

void AddExaminationOptions(CLI::App& app, DoctorOptions& options) {
  AddChoice(app, "--app", options.application, kApplications,
            "The application whose snapshots are to succeed (--app sql); every one that has a writer here unless given")
      ->option_text("none|sql|exchange|hyperv");
  AddDisks(app, options.disks);
  AddUnknownDisks(app, options.acceptUnknownDisks);
}

RequestedSet Requested(const SnapshotOptions& options) {
  return {NameOf(options.application, kApplications), options.disks, BackupTypeName(options.backupType),
          ContextName(options.context), varnel::WideToUtf8Lossy(varnel::FormatGuid(varnel::ArrayProviderId()))};
}

void AddSnapshotOptions(CLI::App& app, SnapshotOptions& options) {
  AddTarget(app, options)->required();
  AddRequestOptions(app, options);
  AddTestPoints(app, options);
  AddDeadlines(app, options);
  AddCompletionOptions(app, options);
  AddTryOptions(app, options);
  AddOutputOptions(app, options);
}

void AddPlanOptions(CLI::App& app, SnapshotOptions& options) {
  AddTarget(app, options);
  AddRequestOptions(app, options);
  app.add_option("--for", options.wanted,
                 "In place of --disk: which disks hold these databases, mailbox databases or virtual machines wholly, "
                 "and what else lies on them (--for sales crm)")
      ->type_name("NAME")
      ->expected(1, -1)
      ->check(NoOption);
}

void CheckSnapshotOptions(const SnapshotOptions& options, bool isSimulatedHost) {
  const auto refuseIf = [](bool holds, const char* reason) {
    if (holds) throw UsageError(reason);
  };
  CheckDiskArguments(options.disks);
  refuseIf(options.verify && options.application != Application::Exchange,
           "--verify goes with --app exchange only: for other applications there is no check of their files");
  refuseIf(options.verify && options.IsTransportable(),
           "--verify does not go with a transportable context: there would be no snapshot to verify here");
  refuseIf(options.then != Then::Keep && options.IsTransportable(),
           "--then does not go with a transportable context: the set belongs to the array, not to this host");
  refuseIf(options.then == Then::Delete && options.disconnect,
           "--then delete does not go with --disconnect: a deleted set has no disks left to disconnect");
  refuseIf((options.testPoints & varnel::kTestPointFailFileVerification) != 0 &&
               options.application != Application::Exchange,
           "--test-points 0x2 goes with --app exchange only: it makes the verification of Exchange files fail");
  refuseIf(options.skipDbVerification && options.application != Application::Exchange,
           "--skip-db-verification goes with --app exchange only");
  refuseIf(options.callsFile && !isSimulatedHost,
           "--calls needs a simulated host: this machine keeps no log of its calls");
}

}  // namespace varnelctl
