#include "varnelctl/capture/evidence_reader.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "simulator/host_file/host_words.h"
#include "simulator/machine/version.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/capture/evidence_failure.h"
#include "varnelctl/capture/questions.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/html/run_file.h"

namespace varnelctl {
namespace {

namespace fs = std::filesystem;
using Stored = nlohmann::json;
using varnel::Utf8ToWideLossy;
using varnel::simulator::Disk;
using varnel::simulator::HostModel;
using varnel::simulator::Volume;

class Evidence {
 public:
  explicit Evidence(const std::string& argument) : name_(argument), path_(PathOf(argument)) {
    std::error_code ignored;
    if (!fs::is_directory(path_, ignored)) Refuse("there is no such folder");
  }

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw UsageError("--from " + Printable(Utf8ToWideLossy(name_)) + ": " + reason);
  }

  Stored Run() const {
    if (!Has("run.json")) Refuse("there is no run.json in it: this is no evidence of a run");
    return html::ReadRunFile(name_ + "/run.json").document;
  }

  bool Has(const std::string& file) const {
    std::error_code ignored;
    return fs::is_regular_file(path_ / file, ignored);
  }

  /// Empty where there is no such file.
  std::string Text(const std::string& file) const {
    std::ifstream stream(path_ / PathOf(file), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }

  /// Calls `read` with what a file holds. Whatever is not there, or of another type, is an error of the file.
  template <class Read>
  void Json(const std::string& file, Read read) const {
    try {
      read(Stored::parse(Text(file)));
    } catch (const Stored::exception& error) {
      Refuse(file + ": " + OneLine(error.what()));
    }
  }

  /// The writers' documents by the names of their files.
  std::vector<std::string> Documents() const {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator at(path_, error), end; !error && at != end; at.increment(error)) {
      const std::u8string utf8 = at->path().filename().u8string();
      std::string file(utf8.begin(), utf8.end());
      if (file.starts_with("writer-") && file.ends_with(".xml")) files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end());
    return files;
  }

 private:
  std::string name_;
  fs::path path_;
};

std::wstring WideOf(const Stored& text) {
  return Utf8ToWideLossy(text.get<std::string>());
}

// Cluster shared volumes are mounted nowhere else.
Volume VolumeOf(const Stored& told) {
  Volume volume{WideOf(told.at("name")), {}, false, {}};
  for (const Stored& mountPoint : told.at("mountPoints")) {
    volume.mountPoints.push_back(WideOf(mountPoint));
    volume.csv = volume.csv || volume.mountPoints.back().find(L"\\ClusterStorage\\") != std::wstring::npos;
  }
  return volume;
}

void AddDisks(const Stored& told, CapturedHost& captured) {
  HostModel& host = captured.model;
  for (const Stored& one : told.at("disks")) {
    Disk disk;
    disk.number = one.at("number").get<DWORD>();
    disk.serial = WideOf(one.at("serialNumber"));
    disk.reportsSerial = !disk.serial.empty();
    disk.system = one.at("system").get<bool>();
    disk.clustered = one.at("clustered").get<bool>();
    for (const Stored& volume : one.at("volumes")) disk.volumes.push_back(VolumeOf(volume));
    host.disks.push_back(std::move(disk));
  }
  for (const Stored& one : told.at("volumesOnSeveralDisks")) {
    Volume volume = VolumeOf(one);
    volume.otherDisks = one.at("severalDisks").get<std::vector<DWORD>>();
    const auto first = std::find_if(host.disks.begin(), host.disks.end(), [&](const Disk& disk) {
      return !volume.otherDisks.empty() && disk.number == volume.otherDisks.front();
    });
    if (first == host.disks.end()) {
      capture::NoteLeftOut(captured,
                           "volume " + varnel::WideToUtf8Lossy(volume.name) + " left out: its disk is not known");
      continue;
    }
    volume.otherDisks.erase(volume.otherDisks.begin());
    first->volumes.push_back(std::move(volume));
  }
  const bool clustered = std::any_of(host.disks.begin(), host.disks.end(), [](const Disk& disk) {
    return disk.clustered ||
           std::any_of(disk.volumes.begin(), disk.volumes.end(), [](const Volume& v) { return v.csv; });
  });
  if (clustered) host.cluster.emplace();
}

// The disks of the array are those that a set was asked of.
void MarkArrayDisks(const Stored& run, HostModel& host) {
  constexpr wchar_t kManufacturer[] = L"Tessel";
  for (const Stored& serial : run.at("header").at("disks")) {
    for (Disk& disk : host.disks) {
      if (disk.serial == WideOf(serial)) disk.vendor = kManufacturer;
    }
  }
}

void AddProviders(const Stored& told, HostModel& host) {
  for (const Stored& one : told.at("providers")) {
    varnel::simulator::Provider provider;
    const std::wstring id = WideOf(one.at("id"));
    provider.id = varnel::TryParseGuid<GUID>(std::wstring_view(id)).value_or(GUID{});
    provider.name = WideOf(one.at("name"));
    const std::string type = one.at("type");
    provider.type = varnel::simulator::ValueOf(varnel::simulator::kProviderTypes, type).value_or(VSS_PROV_UNKNOWN);
    provider.version = WideOf(one.at("version"));
    host.providers.push_back(std::move(provider));
  }
}

void AddSessions(const Stored& told, HostModel& host) {
  for (const Stored& one : told.at("sessions")) {
    varnel::simulator::IscsiSession session{WideOf(one.at("targetName")), {}};
    for (const Stored& device : one.at("devices")) {
      for (const Disk& disk : host.disks) {
        const bool carried = device.contains("disk") && device["disk"].is_number() && device["disk"] == disk.number;
        if (carried && !disk.serial.empty()) session.devices.push_back({disk.serial});
      }
    }
    host.iscsiSessions.push_back(std::move(session));
  }
}

// A file that was too old for the check of the host, with the version of the system that it belongs to.
void AddOldFiles(const std::string& log, HostModel& host) {
  constexpr std::string_view kBefore = "File is older than required, File=";
  constexpr std::string_view kBetween = ", Version=";
  for (std::size_t at = log.find(kBefore); at != log.npos; at = log.find(kBefore, at + 1)) {
    const std::string line = log.substr(at + kBefore.size(), log.find_first_of("\r\n", at) - at - kBefore.size());
    const std::size_t between = line.find(kBetween);
    if (between == line.npos) continue;
    const std::string text = line.substr(between + kBetween.size());
    const auto version = varnel::simulator::ParseFileVersion(text);
    if (!version) continue;
    host.fileVersions[Utf8ToWideLossy(line.substr(0, between))] = Utf8ToWideLossy(text);
    host.os.major = (*version)[0];
    host.os.minor = (*version)[1];
    host.os.build = (*version)[2];
  }
}

// A run for Hyper-V that got beyond the check of the host is of one whose management service is new enough.
void AddNewFiles(const Stored& run, CapturedHost& host) {
  if (run.at("header").at("application") != "hyperv" || run.at("result").value("step", Stored()) == "checkingHost") {
    return;
  }
  const std::wstring file = host.model.systemDirectory + L"\\Vmms.exe";
  host.model.fileVersions.emplace(file, L"10.0.17763.1");
  capture::NoteLeftOut(host, "the version of " + varnel::WideToUtf8Lossy(file) + ", taken for new enough");
}

// The names of the databases that the array's metadata service told, as it told them of the first disk.
void AddDatabases(const Stored& run, HostModel& host) {
  const Stored& disks = run.at("header").at("disks");
  const std::string databases = run.value("databases", std::string());
  if (!databases.empty() && !disks.empty()) host.databases[WideOf(disks.front())] = Utf8ToWideLossy(databases);
}

}  // namespace

CapturedHost ReadEvidence(const std::string& folder) {
  const Evidence evidence(folder);
  const Stored run = evidence.Run();
  CapturedHost host;
  if (!evidence.Has("disks.json")) evidence.Refuse("there is no disks.json in it, and no host without disks");
  evidence.Json("disks.json", [&](const Stored& told) { AddDisks(told, host); });
  const auto addFrom = [&](const char* file, auto add) {
    if (evidence.Has(file)) {
      evidence.Json(file, [&](const Stored& told) { add(told, host.model); });
    } else {
      capture::NoteLeftOut(host, std::string(file) + " is not in the evidence");
    }
  };
  addFrom("providers.json", AddProviders);
  addFrom("iscsi.json", AddSessions);
  for (const std::string& file : evidence.Documents()) capture::AddWriter(host, evidence.Text(file));
  if (host.model.writers.empty()) capture::NoteLeftOut(host, "no writer's document is in the evidence");
  try {
    const Stored& name = run.at("header").at("host");
    if (!name.is_null()) host.model.computerName = WideOf(name);
    MarkArrayDisks(run, host.model);
    AddDatabases(run, host.model);
    AddOldFiles(evidence.Text("log.txt"), host.model);
    AddNewFiles(run, host);
    AddFailure(run, evidence.Text("calls.txt"), host.model);
  } catch (const Stored::exception& error) {
    evidence.Refuse("run.json: " + OneLine(error.what()));
  }
  return host;
}

}  // namespace varnelctl
