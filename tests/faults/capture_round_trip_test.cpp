// A simulated host is captured, and the host file that comes of it means the same: for the samples, random hosts and
// documents of a real server. A capture of the capture is the same byte for byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "simulator/host_file/documents.h"
#include "simulator/simulated_host.h"
#include "tests/faults/reference_scenario.h"
#include "tests/faults/sample.h"
#include "tests/support/files.h"
#include "tests/support/random.h"
#include "tests/support/same_host.h"
#include "varnelctl/capture/capture_files.h"
#include "varnelctl/capture/host_reader.h"

namespace varnel::test {
namespace {

namespace fs = std::filesystem;
using varnelctl::CaptureFiles;

constexpr unsigned kHosts = 1000;

CaptureFiles Capture(simulator::HostModel model) {
  simulator::SimulatedHost host(std::move(model));
  const ScopedHost current(host);
  CaptureFiles files = MakeFiles(varnelctl::ReadHost());
  EXPECT_EQ(host.live().Describe(), "");
  return files;
}

// The folder of one test.
class Folder {
 public:
  Folder() : path_(fs::temp_directory_path() / "varnel-capture-round-trip") { fs::remove_all(path_); }
  ~Folder() { fs::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  simulator::HostModel Load(const CaptureFiles& files) const {
    fs::remove_all(path_);
    fs::create_directories(path_ / "writers");
    for (const auto& [name, text] : files.documents) std::ofstream(path_ / name, std::ios::binary) << text;
    return simulator::ParseHostFile(files.hostFile, "captured", path_);
  }

 private:
  fs::path path_;
};

bool IsWhole(const CaptureFiles& files) {
  return !files.hostFile.starts_with("//");
}

void ExpectSame(const CaptureFiles& files, const CaptureFiles& again) {
  EXPECT_TRUE(again.hostFile == files.hostFile);
  EXPECT_TRUE(again.documents == files.documents);
}

// What a host does not tell, and documents that no host file can hold, are told in a comment; the capture of such a
// capture is what stays the same.
void ExpectRoundTrip(const Folder& folder, const simulator::HostModel& model) {
  const CaptureFiles files = Capture(model);
  const simulator::HostModel captured = folder.Load(files);
  EXPECT_EQ(Difference(AsCaptured(captured), AsCaptured(model)), "");
  const CaptureFiles again = Capture(captured);
  EXPECT_TRUE(IsWhole(again)) << again.hostFile.substr(0, 200);
  ExpectSame(IsWhole(files) ? files : Capture(folder.Load(again)), again);
}

TEST(CaptureRoundTrip, EverySampleHostIsWhatItsFileSays) {
  const Folder folder;
  int hosts = 0;
  for (const auto& entry : fs::directory_iterator(VARNEL_EXAMPLES "/hosts")) {
    if (entry.path().extension() != ".json") continue;
    SCOPED_TRACE(entry.path().filename().string());
    ExpectRoundTrip(folder, simulator::LoadHostFile(entry.path()));
    ++hosts;
  }
  EXPECT_GE(hosts, 12);
}

TEST(CaptureRoundTrip, RandomHostsAreWhatTheyWere) {
  const Folder folder;
  const std::vector<unsigned> seeds = Sample().Of(Seeds(kHosts));
  for (const unsigned seed : seeds) {
    SCOPED_TRACE(SeedText(seed));
    simulator::HostModel model = reference::RandomScenario(seed).host;
    model.faults = {};
    ExpectRoundTrip(folder, model);
    if (HasFailure()) return;
  }
  std::printf("%zu hosts%s\n", seeds.size(), Sample::Text().c_str());
}

TEST(CaptureRoundTrip, DocumentsOfARealServerComeBackAsTheyAre) {
  const char* captures = std::getenv("VARNEL_CAPTURES");
  if (captures == nullptr) GTEST_SKIP() << "VARNEL_CAPTURES names no folder with captured documents";
  simulator::HostModel model;
  for (const auto& entry : fs::directory_iterator(captures)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with("WM")) continue;
    model.writers.push_back(simulator::ReadWriterDocument(ReadFile(entry.path())));
  }
  ASSERT_GE(model.writers.size(), 11u);
  model.disks.push_back({L"TSL0001", true, 0, L"Tessel", true, false, {}});
  model.disks[0].volumes.push_back({L"\\\\?\\Volume{6f1c0a20-0000-0000-0000-000000000001}\\", {L"C:\\"}, false, {}});
  const Folder folder;
  ExpectRoundTrip(folder, model);
  const CaptureFiles files = Capture(model);
  for (std::size_t i = 0; i < model.writers.size(); ++i) {
    EXPECT_EQ(files.documents[i].second, *model.writers[i].document);
  }
}

}  // namespace
}  // namespace varnel::test
