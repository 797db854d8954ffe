// This machine, captured and replayed.
#include "tests/varnelctl/cli_support.h"

namespace varnel::test {
namespace {

std::string Told(Arguments arguments) {
  const CliResult result = RunCli(std::move(arguments));
  return std::to_string(result.status) + "\n" + result.out;
}

TEST(CaptureOfThisMachine, ReplaysItsDisksAndNamesItself) {
  const TemporaryFolder folder;
  const CliResult result = RunCli({"capture", folder.File("captured"), "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json document = nlohmann::json::parse(result.out);
  const std::string hostFile = folder.File("captured/host.json");
  EXPECT_THAT(ReadFile(hostFile), testing::HasSubstr("\"computerName\": "));
  const std::string disks = Told({"disks"});
  if (disks.starts_with("0\n")) EXPECT_EQ(Told({"--host", hostFile, "disks"}), disks);
  // What the machine did not tell is told in the file.
  EXPECT_EQ(ReadFile(hostFile).starts_with("// What this host did not tell:\n"), !document["notTold"].empty());
}

TEST(CaptureOfThisMachine, IsTheSameTwiceAndOfItsCapture) {
  const TemporaryFolder folder;
  ASSERT_EQ(RunCli({"capture", folder.File("one")}).status, 0);
  ASSERT_EQ(RunCli({"capture", folder.File("two")}).status, 0);
  const auto withoutRoom = [&](const std::string& name) {  // others write to the disks meanwhile
    nlohmann::json host = nlohmann::json::parse(ReadFile(folder.File(name)), nullptr, true, true);
    for (auto& disk : host["disks"]) {
      if (!disk.contains("volumes")) continue;
      for (auto& volume : disk["volumes"]) volume.erase("freeMegabytes");
    }
    return host.dump();
  };
  EXPECT_EQ(withoutRoom("one/host.json"), withoutRoom("two/host.json"));
  ASSERT_EQ(RunCli({"--host", folder.File("one/host.json"), "capture", folder.File("again")}).status, 0);
  EXPECT_EQ(withoutRoom("again/host.json"), withoutRoom("one/host.json"));
}

TEST(CaptureOfThisMachine, HasNoNameOfItWhereThatIsWanted) {
  const TemporaryFolder folder;
  ASSERT_EQ(RunCli({"capture", folder.File("captured"), "--anonymise"}).status, 0);
  const nlohmann::json key = nlohmann::json::parse(ReadFile(folder.File("captured.key.json")));
  ASSERT_FALSE(key["names"].empty());
  const std::string host =
      nlohmann::json::parse(ReadFile(folder.File("captured/host.json")), nullptr, true, true).dump();
  EXPECT_EQ(host.find("\"" + key["names"][0]["original"].get<std::string>() + "\""), host.npos);
}

}  // namespace
}  // namespace varnel::test
