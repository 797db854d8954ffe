// Hosts for `varnelctl snapshot`, and the runs on them.
#pragma once

#include <string>
#include <vector>

#include "tests/varnelctl/cli_support.h"

namespace varnel::test {

inline nlohmann::json DiskJson(const std::string& serial, int number, const std::string& mountPoint) {
  using nlohmann::json;
  const std::string volume = "\\\\?\\Volume{0000000" + std::to_string(number) + "-0000-0000-0000-000000000000}\\";
  return {{"serial", serial},
          {"number", number},
          {"vendor", number == 0 ? "Local" : "Tessel"},
          {"system", number == 0},
          {"volumes", json::array({{{"name", volume}, {"mountPoints", json::array({mountPoint})}}})}};
}

/// A writer with one database on each of two array disks, one on the system disk and one without files.
inline nlohmann::json SmallHostJson() {
  nlohmann::json host = nlohmann::json::parse(R"({
    "providers": [ { "id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "name": "Tessel VSS Hardware Provider",
                     "type": "hardware", "version": "1.0" } ],
    "writers": [ { "name": "Demo Writer", "writerId": "{00000000-0000-0000-0000-00000000000a}",
      "instanceId": "{00000000-0000-0000-0000-0000000000aa}", "components": [
        { "type": "fileGroup", "logicalPath": "SQL01", "name": "sales", "caption": "sales",
          "files": [ { "path": "E:\\data", "filespec": "*" } ] },
        { "type": "fileGroup", "logicalPath": "SQL01", "name": "crm", "caption": "crm",
          "files": [ { "path": "E:\\data", "filespec": "*" }, { "path": "F:\\data", "filespec": "*" } ] },
        { "type": "fileGroup", "logicalPath": "SQL01", "name": "tools", "caption": "tools",
          "files": [ { "path": "C:\\tools", "filespec": "*" } ] },
        { "type": "fileGroup", "logicalPath": "SQL01", "name": "empty", "caption": "empty" } ] } ],
    "databases": { "TSL0001": "sales@sql01" }, "computerName": "SQL01", "seed": 1 })");
  host["disks"] = {DiskJson("SYS", 0, "C:\\"), DiskJson("TSL0001", 1, "E:\\"), DiskJson("TSL0002", 2, "F:\\")};
  return host;
}

/// The names of the phases of a snapshot's document.
inline std::vector<std::string> PhasesOf(const nlohmann::json& outcome) {
  std::vector<std::string> names;
  for (const nlohmann::json& phase : outcome.at("phases")) names.push_back(phase.at("name"));
  return names;
}

/// Snapshots of no application and of disks TSL0001 and TSL0002, unless the arguments name others.
class SnapshotFixture : public CliFixture {
 protected:
  /// A run that ends with this status.
  CliResult Snapshot(const Arguments& arguments = {}, int status = 0, varnelctl::InterruptionSource interruption = {}) {
    const CliResult result = Run(Whole(arguments), std::move(interruption));
    EXPECT_EQ(result.status, status) << result.err;
    return result;
  }
  nlohmann::json SnapshotJson(const Arguments& arguments = {}, int status = 0,
                              varnelctl::InterruptionSource interruption = {}) {
    return Document(Whole(arguments), status, std::move(interruption));
  }

  static Arguments Whole(const Arguments& arguments) {
    const auto has = [&](const char* option) {
      return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
    };
    Arguments whole = {"snapshot"};
    if (!has("--app")) whole.insert(whole.end(), {"--app", "none"});
    if (!has("--disk")) whole.insert(whole.end(), {"--disk", "TSL0001", "TSL0002"});
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    return whole;
  }
};

/// On the host file of SmallHostJson.
class SnapshotCommand : public SnapshotFixture {
 protected:
  SnapshotCommand() { hostFile = SmallHostJson(); }
};

}  // namespace varnel::test
