// Database lists from anywhere: what the metadata service tells becomes component paths by the rule, and a list that is
// no text is refused and adds nothing.
// Input: a line with the host's name; a line "server=network name" of the cluster, or an empty one where there is none;
// the list, as the bytes that the service hands over.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/varnel.h"
#include "fuzz/fuzz_support.h"
#include "platform/forwarding_host.h"
#include "simulator/simulated_host.h"
#include "tests/support/recording_log.h"
#include "tests/support/requestor_probe.h"
#include "text/ascii_case.h"
#include "text/unicode.h"

namespace {

using namespace varnel;
using fuzz::Require;

using Paths = std::set<std::wstring>;

// Tells any bytes; a host file could only describe text.
class ListHost final : public ForwardingHost, private MetadataService {
 public:
  using ForwardingHost::ForwardingHost;
  MetadataService& metadata() override { return *this; }

  std::string list;

 private:
  bool FindDatabasesToQuiesce(const std::string& /*serialNumber*/, std::string& databases,
                              std::string& /*error*/) override {
    databases = list;
    return true;
  }
  std::string GetClusterName(const std::string& name) override {
    return ForwardingHost::metadata().GetClusterName(name);
  }
};

// The bridge hands texts over as C strings.
std::string_view AsCString(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

struct Names {
  std::wstring host;
  std::wstring server;   // the one that the cluster knows
  std::wstring network;  // its network name; empty: no cluster

  static Names From(std::string_view hostLine, std::string_view clusterLine) {
    const std::size_t equals = std::min(clusterLine.find('='), clusterLine.size());
    const std::string_view network = clusterLine.substr(std::min(equals + 1, clusterLine.size()));
    return {Utf8ToWideLossy(AsCString(hostLine)), Utf8ToWideLossy(AsCString(clusterLine.substr(0, equals))),
            Utf8ToWideLossy(AsCString(network))};
  }
  std::wstring NetworkNameOf(const std::wstring& asked) const {
    const bool known = !network.empty() && ascii::EqualIgnoringCase(asked, server);
    return ascii::ToLower(known ? network : host);
  }
};

// The paths by the rule, and the entries that name no server.
struct Expected {
  Paths paths;
  std::size_t skipped = 0;
};

Expected ExpectedPaths(const std::wstring& list, const Names& names) {
  if (list == L"ALL_DB") return {{L"ALL_DB"}, 0};
  Expected expected;
  for (std::size_t begin = 0, end = 0; begin < list.size(); begin = end + 1) {
    end = std::min(list.find(L'\t', begin), list.size());
    const std::wstring entry = list.substr(begin, end - begin);
    const std::size_t at = entry.find(L'@');
    if (at == entry.npos) {
      ++expected.skipped;
      continue;
    }
    const std::wstring database = ascii::ToLower(entry.substr(0, at));
    const std::wstring server = ascii::ToLower(entry.substr(at + 1));
    const std::wstring network = names.NetworkNameOf(server);
    std::wstring path = L"\\" + network + L"\\";
    if (server != network) path += server + L"\\";
    expected.paths.insert(path + database);
  }
  return expected;
}

// What GetComponentsList adds; nothing when it refuses the list.
std::optional<Paths> PathsOf(RequestorProbe& probe) {
  const Paths before = {L"\\before"};
  Paths paths = before;
  try {
    probe.GetComponentsList(paths);
  } catch (const std::range_error&) {
    Require(paths == before, "a list that is refused adds nothing");
    return std::nullopt;
  }
  Require(paths.contains(L"\\before"), "what was there stays");
  return paths;
}

// Each path is looked for by itself, for the requestor copies the set that it is given; the last one among all.
void CheckMatches(RequestorProbe& probe, const Paths& paths) {
  for (const std::wstring& path : paths) {
    if (path == L"ALL_DB") continue;
    Require(path == ascii::ToLower(path), "paths are lower case");
    Require(probe.checkComponents({path}, path), "a component of that path passes");
  }
  Require(probe.checkComponents(paths, *paths.rbegin()), "so does one among others");
  const bool all = *paths.begin() == L"ALL_DB";
  Require(probe.checkComponents(paths, L"\\no such component\t") == all, "no other component passes");
}

// Made once; an input changes the names and the list.
struct Agent {
  Agent() {
    requestor.SetInputDriveSerialNos({L"TSL0001"});
    probe.setWriterCode("2");
  }

  void Tell(const Names& names, std::string_view list) {
    simulated.model().computerName = names.host;
    simulated.model().cluster.reset();
    if (!names.network.empty()) {
      simulated.model().cluster = simulator::ClusterNode{L"CLU01", {{names.server, names.network}}};
    }
    host.list = list;
    simulated.calls().Clear();
    log.lines.clear();
  }

  simulator::SimulatedHost simulated{simulator::HostModel{}};
  ListHost host{simulated};
  ScopedHost current{host};
  test::RecordingLog log;
  ScopedLog scopedLog{log};
  CVarnel requestor{0};
  RequestorProbe probe{requestor};
};

void Check(Agent& agent, std::string_view list, const Names& names) {
  const std::optional<Paths> paths = PathsOf(agent.probe);
  Require(agent.requestor.getSuccesfulDBList() == AsCString(list), "the list is handed to the agent as it came");
  const std::optional<std::wstring> text = fuzz::Decoded(AsCString(list));
  Require(paths.has_value() == text.has_value(), "a list is refused when it is not UTF-8");
  if (!text) return;
  Expected expected = ExpectedPaths(*text, names);
  expected.paths.insert(L"\\before");
  Require(*paths == expected.paths, "entries become paths by the rule");
  Require(agent.log.Warnings().size() == expected.skipped, "an entry without a server is skipped with a warning");
  CheckMatches(agent.probe, *paths);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Agent agent;
  fuzz::Input input(data, size);
  const std::string_view hostLine = input.Line();
  const Names names = Names::From(hostLine, input.Line());
  const std::string_view list = input.Rest();
  agent.Tell(names, list);
  Check(agent, list, names);
  agent.Tell({}, {});
  return 0;
}
