// Folders of evidence, and what is in them.
#pragma once

#include <map>
#include <string>

#include "tests/varnelctl/report_support.h"

namespace varnel::test {

/// The files of a folder by their names; none where there is no folder.
inline std::map<std::string, std::string> FilesIn(const std::string& folder) {
  std::map<std::string, std::string> files;
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(PathOf(folder), none)) {
    const std::u8string name = entry.path().filename().u8string();
    files[{name.begin(), name.end()}] = ReadFile(folder + "/" + std::string(name.begin(), name.end()));
  }
  return files;
}

inline std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& [name, content] : FilesIn(folder)) names.push_back(name);
  return names;
}

/// Why the index of the folder says that a file could not be had; empty where it does not say so.
inline std::string WhyNot(const std::string& folder, const std::string& file) {
  const std::string index = ReadFile(folder + "/index.html");
  const std::string begin = "<dt>" + file + "</dt><dd>";
  const std::size_t at = index.find(begin);
  if (at == index.npos) return {};
  return index.substr(at + begin.size(), index.find("</dd>", at) - at - begin.size());
}

/// Snapshots whose evidence goes to `evidence`.
class EvidenceFixture : public SnapshotCommand {
 protected:
  CliResult SnapshotWithEvidence(Arguments arguments = {}, int status = 0,
                                 varnelctl::InterruptionSource interruption = {}) {
    arguments.insert(arguments.end(), {"--evidence", evidence});
    return Snapshot(arguments, status, std::move(interruption));
  }
  std::string FileOfEvidence(const std::string& name) const { return ReadFile(evidence + "/" + name); }
  nlohmann::json JsonOfEvidence(const std::string& name) const { return nlohmann::json::parse(FileOfEvidence(name)); }
  void FailCallOfHost(const char* call, const char* result = "E_FAIL") {
    hostFile["faults"].push_back({{"call", call}, {"result", result}});
  }

  const std::string evidence = folder.File("evidence");
};

}  // namespace varnel::test
