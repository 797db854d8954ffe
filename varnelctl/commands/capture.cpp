#include <CLI/CLI.hpp>
#include <system_error>

#include "text/unicode.h"
#include "varnelctl/anonymise/names_of_host.h"
#include "varnelctl/capture/capture_files.h"
#include "varnelctl/capture/evidence_reader.h"
#include "varnelctl/capture/host_reader.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/output_folder.h"
#include "varnelctl/console/text.h"
#include "varnelctl/mistakes.h"
#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

// What the captured host has, for people and programs.
struct Counts {
  explicit Counts(const varnel::simulator::HostModel& model)
      : disks(model.disks.size()), providers(model.providers.size()), writers(model.writers.size()) {
    for (const auto& disk : model.disks) volumes += disk.volumes.size();
    for (const auto& writer : model.writers) components += writer.components.size();
  }

  std::size_t disks;
  std::size_t volumes = 0;
  std::size_t providers;
  std::size_t writers;
  std::size_t components = 0;
};

// Nothing of the originals is left, in what could not be asked neither.
CapturedHost Anonymous(CapturedHost host, Anonymiser& names) {
  AddNames(host.model, names);
  for (std::string& line : host.unanswered) {
    AddVolumesIn(line, names);
    line = names.Replace(line);
  }
  if (!host.strays.empty()) {
    host.strays.clear();
    host.unanswered.emplace_back(
        "documents that no host file can hold are not in an anonymous capture: their names are not known");
  }
  host.model = WithoutNames(std::move(host.model), names);
  return host;
}

class CaptureCommand final : public Command {
 public:
  const char* name() const override { return "capture"; }
  const char* description() const override {
    return "Write this host as a host file with its writers' documents, to be replayed anywhere (--host DIR/host.json)";
  }
  const char* examples() const override {
    return "  varnelctl capture sql01\n"
           "  varnelctl capture --anonymise for-support\n"
           "  varnelctl capture --from case-4711 sql01\n"
           "  varnelctl --host sql01/host.json plan --app sql --disk TSL0001\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_option("folder", folder_, "The folder to write, which is made, or is there and empty")
        ->type_name("DIR")
        ->required()
        ->check(RefuseEmpty);
    app.add_option(
           "--from", evidence_,
           "Make the host of the evidence of a run, with the failure of the run as its fault plan, and ask this "
           "one nothing (--from case-4711)")
        ->type_name("EVIDENCE")
        ->check(RefuseEmpty);
    app.add_flag(
        "--anonymise", anonymise_,
        "Replace the names of hosts, databases, machines, disks, folders and files; the key to them is written "
        "beside the folder (DIR.key.json) and stays here");
  }
  bool NeedsHost() const override { return !evidence_; }
  // What is wrong with this process is part of what the host says.
  Fitness NeededFitness() const override { return Fitness::Examined; }

  ExitStatus Run(Session& session) override {
    const OutputFolder folder("capture", folder_);
    std::optional<OutputFile> key;
    if (anonymise_) {
      std::error_code ignored;
      if (std::filesystem::exists(PathOf(KeyFile(folder)), ignored)) RefuseKey(KeyFile(folder));
      key.emplace("the key", KeyFile(folder));
    }
    session.Begin("capture");
    CapturedHost host = evidence_ ? ReadEvidence(*evidence_) : ReadHost();
    const Counts counts(host.model);
    Anonymiser names;
    if (anonymise_) host = Anonymous(std::move(host), names);
    // In the evidence of a run, texts of codes may have been written by a writer.
    if (anonymise_ && evidence_) {
      for (auto& [code, text] : host.model.messages) text = names.Replace(text);
    }
    const CaptureFiles files = MakeFiles(host);
    // The key comes first: without it nobody could tell what the rest is about. The host file comes last: one that is
    // there has all that it names.
    if (key) WriteKey(KeyFile(folder), names);
    for (const auto& [file, document] : files.documents) folder.Write(file, document);
    folder.Write(kCapturedHostFile, files.hostFile);
    Tell(session, host, counts, files, key ? KeyFile(folder) : "");
    return ExitStatus::Done;
  }

 private:
  static std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
  }

  [[noreturn]] static void RefuseKey(const std::string& file) {
    throw UsageError("capture: " + Printable(varnel::Utf8ToWideLossy(file)) +
                     " is there already: it is the key to an earlier capture, put it away first");
  }

  // For its user alone, as the folder is.
  static void WriteKey(const std::string& file, Anonymiser& names) {
    try {
      ReplaceDurably(PathOf(file), Json{{"names", names.Key()}}.dump(2) + "\n");
    } catch (const std::system_error& failure) {
      throw NotAllDone("the key " + Printable(varnel::Utf8ToWideLossy(file)) +
                       " was not written: " + OneLine(failure.code().message()));
    }
  }

  static std::string KeyFile(const OutputFolder& folder) {
    std::filesystem::path path = folder.path();
    path += ".key.json";
    return Utf8(path);
  }

  void Tell(Session& session, const CapturedHost& host, const Counts& counts, const CaptureFiles& files,
            const std::string& key) const;

  std::string folder_;
  std::optional<std::string> evidence_;
  bool anonymise_ = false;
};

void CaptureCommand::Tell(Session& session, const CapturedHost& host, const Counts& counts, const CaptureFiles& files,
                          const std::string& key) const {
  for (const std::string& line : host.unanswered) session.Warn({"notTold", line});
  if (session.json) {
    const auto nameOf = [](const auto& file) { return file.first; };
    session.document.Set(name(), {{"folder", folder_},
                                  {"hostFile", kCapturedHostFile},
                                  {"documents", ArrayOf(files.documents, nameOf)},
                                  {"key", key.empty() ? Json() : Json(key)},
                                  {"disks", counts.disks},
                                  {"volumes", counts.volumes},
                                  {"providers", counts.providers},
                                  {"writers", counts.writers},
                                  {"components", counts.components},
                                  {"notTold", host.unanswered}});
    return;
  }
  const std::string shown = Printable(varnel::Utf8ToWideLossy(folder_));
  session.console.Line("captured " + Counted(counts.disks, "disk") + " with " + Counted(counts.volumes, "volume") +
                       ", " + Counted(counts.providers, "provider") + " and " + Counted(counts.writers, "writer") +
                       " with " + Counted(counts.components, "component") + " in " + shown);
  if (!key.empty()) session.console.Line("the key to its names is " + Printable(varnel::Utf8ToWideLossy(key)));
  session.console.Line("replay it with: varnelctl --host " + shown + "/" + kCapturedHostFile + " COMMAND");
}

}  // namespace

std::unique_ptr<Command> MakeCaptureCommand() {
  return std::make_unique<CaptureCommand>();
}

}  // namespace varnelctl
