// Thousands of random hosts: what `plan` says is what `snapshot` then does, and of every component that is left out the
// reason is the one that plain rules over the writers' listing give.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "platform/tessel/TesselCommonClasses.h"
#include "tests/faults/reference_scenario.h"
#include "tests/faults/sample.h"
#include "tests/support/host_fixture.h"
#include "tests/support/random.h"
#include "tests/support/total.h"
#include "text/ascii_case.h"
#include "varnelctl/run.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using reference::Scenario;

constexpr unsigned kHosts = 3000;
constexpr wchar_t kSqlWriter[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";

struct Told {
  int status = 0;
  std::string err;
  json document;
};

using Arguments = std::vector<std::string>;

// A disk that is named twice is refused before anything is asked.
bool Names(const std::vector<std::wstring>& disks, const std::wstring& disk) {
  return std::any_of(disks.begin(), disks.end(),
                     [&](const std::wstring& other) { return ascii::EqualIgnoringCase(other, disk); });
}

class PlansOfRandomHosts : public HostFixture {
 protected:
  void Make(unsigned seed) {
    Scenario scenario = reference::RandomScenario(seed);
    input_.clear();
    for (const std::wstring& disk : scenario.inputSerialNumbers) {
      if (!disk.empty() && !Names(input_, disk)) input_.push_back(disk);
    }
    sql_ = seed % 3 == 0;
    if (sql_ && !scenario.host.writers.empty()) {
      scenario.host.writers.front().writerId = TryParseGuid<GUID>(std::wstring_view(kSqlWriter)).value();
    }
    writerCode_ = seed % 4 == 1 ? "2" : "0";
    context_ = scenario.context;
    model_ = scenario.host;
    model_.seed = seed + 1;
  }
  Arguments Request(const char* command) const {
    Arguments arguments = {
        "--json",        command,     "--app",     sql_ ? "sql" : "none",    "--accept-unknown-disks",
        "--writer-code", writerCode_, "--context", std::to_string(context_), "--disk"};
    for (const std::wstring& disk : input_) arguments.push_back(WideToUtf8Lossy(disk));
    return arguments;
  }
  // On a host of its own.
  Told Run(const Arguments& arguments) {
    Install(model_);
    std::ostringstream out;
    std::ostringstream err;
    const int status = varnelctl::RunVarnelctl(arguments, out, err);
    ExpectNothingLive();
    return {status, err.str(), json::parse(out.str(), nullptr, false)};
  }

  std::vector<std::wstring> input_;
  bool sql_ = false;
  std::string writerCode_;
  DWORD context_ = 0;
  simulator::HostModel model_;
};

std::vector<std::string> VolumesOf(const json& document, const char* key) {
  std::vector<std::string> volumes;
  for (const json& volume : document.at(key)) volumes.push_back(volume.at("volume"));
  return volumes;
}

// What a document says of each component, but for what became of it.
json PlacesOf(const json& document) {
  json places = json::array();
  for (const json& writer : document.at("writers")) {
    for (const json& component : writer.at("components")) {
      json place = json::array({component.at("fullPath")});
      for (const char* key : {"place", "reason", "because", "missingDisks"}) {
        if (component.contains(key)) place.push_back(component.at(key));
      }
      places.push_back(place);
    }
  }
  return places;
}

std::wstring LowerCase(const json& text) {
  return ascii::ToLower(Utf8ToWide(text.get<std::string>()));
}

// As the service reads it: a component without a name has the path of its logical path.
std::wstring ServicePath(const json& component) {
  std::wstring path = LowerCase(component.at("fullPath"));
  while (path.ends_with(L'\\')) path.pop_back();
  return path;
}

bool IsLeftOut(const json& component) {
  return component.contains("place") && component.at("place") == "leftOut";
}

// One without a name is, to the service, the parent of all below its logical path.
bool IsBelowNameless(const json& component, const json& captured) {
  const std::wstring parent = LowerCase(captured.at("fullPath"));
  return parent.ends_with(L'\\') && LowerCase(component.at("fullPath")).starts_with(parent);
}

// A writer may find files outside the set, and fails after the snapshot then, which no plan can know for sure: those of
// a parent that takes part for the sake of another, and those of a component that is left out and has the path of one
// that is not, or lies below one without a name.
bool AnyTorn(const json& plan) {
  for (const json& writer : plan.at("writers")) {
    std::vector<json> captured;
    for (const json& component : writer.at("components")) {
      if (!component.contains("place") || IsLeftOut(component)) continue;
      if (!component.at("reason").is_null()) return true;
      captured.push_back(component);
    }
    for (const json& component : writer.at("components")) {
      if (!IsLeftOut(component)) continue;
      for (const json& other : captured) {
        if (ServicePath(component) == ServicePath(other) || IsBelowNameless(component, other)) return true;
      }
    }
  }
  return false;
}

TEST_F(PlansOfRandomHosts, SayWhatTheSnapshotThenDoes) {
  const std::vector<unsigned> seeds = Sample().Of(Seeds(kHosts));
  std::map<int, unsigned> statuses;
  unsigned torn = 0;
  for (const unsigned seed : seeds) {
    SCOPED_TRACE(SeedText(seed));
    Make(seed);
    const Told plan = Run(Request("plan"));
    const Told snapshot = Run(Request("snapshot"));
    ++statuses[plan.status];
    if (plan.status == 2) {
      ASSERT_EQ(snapshot.status, 2);
      continue;
    }
    ASSERT_FALSE(plan.document.is_discarded()) << plan.err;
    if (AnyTorn(plan.document) && snapshot.status != plan.status) {
      ++torn;
      ASSERT_EQ(snapshot.status, 10) << snapshot.err;
      continue;
    }
    ASSERT_EQ(plan.status, snapshot.status) << plan.err << snapshot.err;
    ASSERT_EQ(plan.document["result"], snapshot.document["result"]);
    ASSERT_EQ(plan.document["errorDetails"], snapshot.document["errorDetails"]);
    ASSERT_EQ(PlacesOf(plan.document), PlacesOf(snapshot.document));
    if (snapshot.document["result"]["hresult"].is_null()) {
      ASSERT_EQ(VolumesOf(plan.document, "volumes"), VolumesOf(snapshot.document, "snapshots"));
    }
    ASSERT_EQ(plan.document["verdict"]["captured"], snapshot.document["verdict"]["captured"]);
    ASSERT_EQ(plan.document["verdict"]["of"], snapshot.document["verdict"]["of"]);
  }
  TellTotal(HostsText(seeds) + Sample::Text());
  for (const auto& [status, count] : statuses) std::printf("plans that end with %d: %u\n", status, count);
  std::printf("torn: %u\n", torn);
}

// The rules as they read, pair by pair.
class PlainRules {
 public:
  PlainRules(const json& planned, const json& listed, const std::set<std::string>& disks, const std::string& systemDisk)
      : planned_(planned.at("components")),
        listed_(listed.at("components")),
        discarded_(planned.at("excluded")),
        disks_(disks),
        systemDisk_(systemDisk) {}

  std::size_t size() const { return listed_.size(); }
  std::string PlaceAndReason(std::size_t i) const {
    if (IsCaptured(i)) return "captured";
    if (IsContainer(i)) return "container";
    return "leftOut " + ReasonOf(i);
  }

 private:
  bool IsAncestor(std::size_t a, std::size_t b) const {
    return LowerCase(listed_[b].at("fullPath")).starts_with(LowerCase(listed_[a].at("fullPath")) + L"\\");
  }
  bool IsExcluded(std::size_t i) const { return discarded_ || planned_[i].at("excluded"); }
  bool HasFiles(std::size_t i) const { return !listed_[i].at("files").empty(); }
  template <class Rule>
  bool Any(Rule rule) const {
    for (std::size_t j = 0; j < listed_.size(); ++j) {
      if (rule(j)) return true;
    }
    return false;
  }
  bool IsCaptured(std::size_t i) const {
    if (IsExcluded(i)) return false;
    return planned_[i].at("added") || Any([&](std::size_t j) { return planned_[j].at("added") && IsAncestor(j, i); });
  }
  bool IsContainer(std::size_t i) const {
    const auto isPart = [&](std::size_t j) { return IsAncestor(i, j) && HasFiles(j); };
    return !HasFiles(i) && Any(isPart) && !Any([&](std::size_t j) { return isPart(j) && !IsCaptured(j); });
  }
  std::string ReasonOf(std::size_t i) const {
    if (IsExcluded(i)) return ReasonOfFiles(i);
    if (Any([&](std::size_t j) { return IsAncestor(i, j) && planned_[j].at("excluded"); })) return "childMissing";
    const auto isSelectableParent = [&](std::size_t j) {
      return IsAncestor(j, i) && !IsExcluded(j) && listed_[j].at("selectable");
    };
    return listed_[i].at("selectable") || Any(isSelectableParent) ? "requestEnded" : "notSelectable";
  }
  std::string ReasonOfFiles(std::size_t i) const {
    const json& files = listed_[i].at("files");
    if (files.empty()) return "noFiles";
    if (!files[0].at("serialNumber").get<std::string>().empty() && planned_[i].at("disks").empty()) return "notNamed";
    std::set<std::string> reasons;
    for (const json& file : files) {
      const std::string serial = file.at("serialNumber");
      if (file.contains("severalDisks")) {
        reasons.insert("severalDisks");
      } else if (serial.empty()) {
        reasons.insert("diskUnknown");
      } else if (serial == systemDisk_) {
        reasons.insert("systemDisk");
      } else if (!disks_.contains(serial)) {
        reasons.insert("diskNotInSet");
      }
    }
    for (const char* reason : {"systemDisk", "severalDisks", "diskUnknown", "diskNotInSet"}) {
      if (reasons.contains(reason)) return reason;
    }
    return "none";
  }

  const json& planned_;
  const json& listed_;
  const bool discarded_;
  const std::set<std::string>& disks_;
  const std::string systemDisk_;
};

std::string PlaceAndReason(const json& component) {
  if (component.at("place") == "leftOut") return "leftOut " + component.at("reason").get<std::string>();
  return component.at("place") == "container" ? "container" : "captured";
}

TEST_F(PlansOfRandomHosts, GiveEveryComponentTheReasonOfThePlainRules) {
  std::map<std::string, unsigned> counts;
  for (const unsigned seed : Sample().Of(Seeds(kHosts))) {
    SCOPED_TRACE(SeedText(seed));
    Make(seed);
    const json plan = Run(Request("plan")).document;
    if (plan.is_discarded() || !plan.contains("writers") || plan.at("writers").empty()) continue;
    const json listed = Run({"--json", "writers"}).document.at("writers");
    const std::string systemDisk =
        WideToUtf8Lossy(TesselCommonClasses::DiskAndVolumeEnumerator::systemDriveSerialNumber);
    std::set<std::string> disks;
    for (const std::wstring& disk : input_) disks.insert(WideToUtf8Lossy(disk));
    ASSERT_EQ(plan.at("writers").size(), listed.size());
    for (std::size_t w = 0; w < listed.size(); ++w) {
      const json& writer = plan.at("writers")[w];
      const bool other = sql_ && writer.at("writerId") != WideToUtf8Lossy(kSqlWriter);
      ASSERT_EQ(writer.at("reason") == "otherApplication", other);
      if (other) continue;
      const PlainRules rules(writer, listed[w], disks, systemDisk);
      for (std::size_t c = 0; c < rules.size(); ++c) {
        const std::string told = PlaceAndReason(writer.at("components")[c]);
        ASSERT_EQ(told, rules.PlaceAndReason(c)) << writer.at("components")[c];
        ++counts[told];
      }
    }
  }
  for (const auto& [told, count] : counts) std::printf("%s: %u\n", told.c_str(), count);
}

}  // namespace
}  // namespace varnel::test
