// Folders of a fleet's runs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/varnelctl/report_support.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/fleet/fleet_data.h"
#include "varnelctl/report/fleet/fleet_file.h"
#include "varnelctl/report/fleet/fleet_page.h"
#include "varnelctl/report/fleet/protection.h"

namespace varnel::test {

/// A run with one group, of the given day of January 2026, that took a minute.
inline nlohmann::json FleetRunJson(int day = 1) {
  const std::string date = "2026-01-" + std::string(day < 10 ? "0" : "") + std::to_string(day);
  return {{"schemaVersion", 1},
          {"fleet", "production"},
          {"startedAt", date + "T00:00:00Z"},
          {"endedAt", date + "T00:01:00Z"},
          {"groups",
           {{{"name", "erp"},
             {"mode", "together"},
             {"onFailure", "keep"},
             {"outcome", "taken"},
             {"message", ""},
             {"consistent", "host"}}}},
          {"hosts", nlohmann::json::array()}};
}

inline nlohmann::json FleetHostJson(const std::string& name, const std::string& outcome = "taken",
                                    const std::string& message = {}) {
  return {{"name", name},
          {"group", "erp"},
          {"application", "sql"},
          {"outcome", outcome},
          {"message", message},
          {"seconds", 12.3},
          {"documents", nlohmann::json::object()},
          {"evidence", nullptr}};
}

/// The fleet's folder is "fleet"; its runs are in folders of their own there.
class FleetFixture : public SnapshotFixture {
 protected:
  FleetFixture() { hostFile = SmallHostJson(); }

  /// A snapshot that stands: of three components it has two.
  nlohmann::json TakenJson() {
    if (taken_.is_null()) taken_ = SnapshotJson({"--context", "app-rollback"});
    return taken_;
  }
  /// The same without the third.
  nlohmann::json WholeJson() {
    nlohmann::json document = TakenJson();
    document["objects"].erase(2);
    document["verdict"]["of"] = 2;
    return document;
  }
  /// Of the given day of January 2026, by the clock of the host.
  static nlohmann::json OnDay(nlohmann::json document, int day) {
    document["header"]["start"] = FleetRunJson(day)["startedAt"].get<std::string>().substr(0, 19) + ".000Z";
    return document;
  }

  std::string Fleet() const { return folder.File("fleet"); }

  void Store(const std::string& file, const std::string& text) const {
    const std::filesystem::path path = PathOf(folder.File("fleet/" + file));
    std::filesystem::create_directories(path.parent_path());
    folder.Write("fleet/" + file, text);
  }
  void StoreRun(const std::string& name, const nlohmann::json& run) const { Store(name + "/fleet.json", run.dump()); }
  /// Adds a host to the run, with this document of that step.
  void AddHost(nlohmann::json& run, const std::string& runName, nlohmann::json host, const nlohmann::json& document,
               const std::string& step = "snapshot") const {
    const std::string path = "hosts/" + host["name"].get<std::string>() + "/" + step + ".json";
    host["documents"][step] = path;
    Store(runName + "/" + path, document.dump());
    run["hosts"].push_back(std::move(host));
  }
  /// The page of the fleet, and what a program is told of it.
  std::string Page() {
    const CliResult result = RunCli({"report", Fleet(), "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    told = nlohmann::json::parse(result.out);
    return ReadFile(folder.File("fleet/fleet.html"));
  }
  std::string Headline() {
    Page();
    return told["fleet"]["headline"];
  }
  /// Of the host in the last run.
  std::string StateOf(const std::string& name) const {
    for (const nlohmann::json& host : told["fleet"]["hosts"]) {
      if (host["name"] == name) return host["state"];
    }
    return "not there";
  }
  std::string WhyOf(const std::string& name) const {
    for (const nlohmann::json& host : told["fleet"]["hosts"]) {
      if (host["name"] == name) return host["why"];
    }
    return "not there";
  }

  nlohmann::json told;

 private:
  nlohmann::json taken_;
};

/// What the tables of a page are made of.
inline nlohmann::json FleetDataOf(const std::string& page) {
  constexpr std::string_view kBegin = "<script type=\"application/json\" class=\"fleet-data\">";
  const std::size_t begin = page.find(kBegin) + kBegin.size();
  return nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

/// "HOST NAME: STATE, WHY, since or until", a row each, of the table of objects.
inline std::vector<std::string> ObjectRowsOf(const std::string& page) {
  const nlohmann::json data = FleetDataOf(page);
  std::vector<std::string> rows;
  for (const nlohmann::json& row : data["objects"]) {
    std::string text = data["hosts"][row[0].get<std::size_t>()][0].get<std::string>() + " " +
                       row[1].get<std::string>() + ": " +
                       data["states"][row[2].get<std::size_t>()][1].get<std::string>();
    for (std::size_t i = 3; i < row.size(); ++i) {
      if (!row[i].is_null()) text += ", " + data["texts"][row[i].get<std::size_t>()].get<std::string>();
    }
    rows.push_back(text);
  }
  return rows;
}

/// What people read of a page without its script, a line for each part.
inline std::string TextOfPage(const std::string& page) {
  std::string text;
  bool isScript = false;
  for (std::size_t at = page.find("<main>"); at < page.find("</main>");) {
    const std::size_t tag = page.find('<', at);
    const std::string part = page.substr(at, tag - at);
    if (!isScript && part.find_first_not_of(" \n") != part.npos) text += part + "\n";
    isScript = page.compare(tag, 7, "<script") == 0 || (isScript && page.compare(tag, 9, "</script>") != 0);
    at = page.find('>', tag) + 1;
  }
  return text;
}

}  // namespace varnel::test
