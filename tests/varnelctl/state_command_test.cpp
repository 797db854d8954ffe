// Commands one after the other on a simulated host whose state outlives them.
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

class StateCommand : public SnapshotCommand {
 protected:
  Arguments WithState(Arguments arguments) const {
    arguments.insert(arguments.end(), {"--state", folder.File("host.state")});
    return arguments;
  }
  nlohmann::json SnapshotWithState(const Arguments& arguments) { return SnapshotJson(WithState(arguments)); }
  std::vector<std::string> Disks() {
    std::vector<std::string> serials;
    const nlohmann::json document = Document(WithState({"disks"}));
    for (const nlohmann::json& disk : document.at("disks")) serials.push_back(disk.at("serialNumber"));
    return serials;
  }
};

TEST_F(StateCommand, APersistentSetIsThereForTheNextCommand) {
  SnapshotWithState({"--context", "app-rollback"});
  EXPECT_THAT(Disks(), ElementsAre("SYS", "TSL0001", "TSL0002", "SHADOW-TSL0001", "SHADOW-TSL0002"));
  SnapshotWithState({"--context", "app-rollback", "--disk", "TSL0001", "--accept-extra-volumes"});
  EXPECT_THAT(Disks(), SizeIs(6));
}

TEST_F(StateCommand, APlainSetGoesWithItsCommandAndADeletedOneWithIt) {
  SnapshotWithState({});
  EXPECT_THAT(Disks(), SizeIs(3));
  SnapshotWithState({"--context", "app-rollback", "--then", "delete"});
  EXPECT_THAT(Disks(), SizeIs(3));
}

TEST_F(StateCommand, MaskedDisksStayAwayAndBrokenOnesStay) {
  SnapshotWithState({"--context", "app-rollback", "--then", "mask"});
  EXPECT_THAT(Disks(), SizeIs(3));
  SnapshotWithState({"--context", "app-rollback", "--then", "break"});
  EXPECT_THAT(Disks(), SizeIs(5));
}

TEST_F(StateCommand, WithoutAStateFileEveryCommandFindsTheHostAsItsFileSays) {
  SnapshotJson({"--context", "app-rollback"});
  EXPECT_THAT(Document({"disks"}).at("disks"), SizeIs(3));
  EXPECT_FALSE(std::filesystem::exists(PathOf(folder.File("host.state"))));
}

TEST_F(StateCommand, AStateFileThatCannotBeUsedEndsWithStatus2AndTheNextStep) {
  const std::string file = folder.Write("host.state", "{\"version\":7}");
  ExpectRefused(
      Run(WithState({"disks"})),
      "varnelctl: " + file + ": /version: a state of version 7, and this program has version 1; name another");
  EXPECT_EQ(ReadFile(file), "{\"version\":7}");
  ExpectRefused(Run({"disks", "--state", folder.File("none/host.state")}),
                "varnelctl: " + folder.File("none/host.state") + ": cannot write ");
}

TEST_F(StateCommand, AStateThatCannotBeWrittenFailsTheCallThatChangedIt) {
  std::filesystem::create_directory(PathOf(folder.File("host.state.new")));
  const CliResult result = Snapshot(WithState({"--context", "app-rollback"}), 15);
  EXPECT_THAT(result.err, HasSubstr("(0x80070005)"));
  EXPECT_FALSE(std::filesystem::exists(PathOf(folder.File("host.state"))));
}

}  // namespace
}  // namespace varnel::test
