// State files that cannot be used, and changes that cannot be written.
#include "simulator/machine/win32_codes.h"
#include "tests/simulator/state_support.h"

namespace varnel::test {
namespace {

using simulator::StateFileError;
using testing::IsEmpty;

const HRESULT kDenied = HResultFromWin32(ERROR_ACCESS_DENIED);

class RefusedState : public StateFixture {
 protected:
  /// Why a host cannot be opened over this text, which must stay.
  std::string ReasonFor(const std::string& text, HostModel model = VssHost()) {
    WriteState(text);
    try {
      Process(std::move(model), StatePath());
    } catch (const StateFileError& error) {
      EXPECT_EQ(StateText(), text);
      const std::string reason = error.what();
      EXPECT_THAT(reason, StartsWith(Name() + ": "));
      return reason.substr(Name().size() + 2);
    }
    return "none";
  }
  std::string Name() const {
    const std::u8string utf8 = StatePath().u8string();
    return std::string(utf8.begin(), utf8.end());
  }
  /// A good state with something else in a place.
  std::string With(const std::string& replacement, const std::string& place) {
    if (good_.empty()) {
      { Backup().TakeBoth(); }
      Backup open(Phase::setStarted);
      good_ = StateText();
    }
    std::string text = good_;
    EXPECT_NE(text.find(place), text.npos) << place;
    return text.replace(text.find(place), place.size(), replacement);
  }

 private:
  std::string good_;
};

constexpr char kNext[] = "; name another file, or delete this one to begin with a host without shadow copies";

TEST_F(RefusedState, AGoodOneIsTaken) {
  EXPECT_EQ(ReasonFor(With("", "")), "none");
}

TEST_F(RefusedState, NoJsonIsRefused) {
  EXPECT_THAT(ReasonFor(""), testing::AllOf(StartsWith("/: the file is empty"), EndsWith(kNext)));
  EXPECT_THAT(ReasonFor("{\"version\":1"), testing::AllOf(StartsWith("/: no JSON: line 1"), EndsWith(kNext)));
  EXPECT_THAT(ReasonFor("[]"), StartsWith("/: expected object, found array"));
  EXPECT_THAT(ReasonFor("{}"), StartsWith("/: missing key \"version\""));
}

TEST_F(RefusedState, WrongValuesAreNamedByTheirPlace) {
  EXPECT_THAT(ReasonFor(With("\"masked\":0", "\"masked\":false")),
              StartsWith("/copies/0/masked: expected boolean, found number"));
  EXPECT_THAT(ReasonFor(With("\"marked\":", "\"masked\":")), StartsWith("/copies/0: missing key \"masked\""));
  EXPECT_THAT(ReasonFor(With("\"more\":1,\"masked\":", "\"masked\":")), StartsWith("/copies/0/more: unknown key"));
  EXPECT_THAT(ReasonFor(With("\"timestamp\":\"soon", "\"timestamp\":\"134")),
              StartsWith("/copies/0/timestamp: \"soon116992000000000\" is no whole number"));
  EXPECT_THAT(ReasonFor(With("\"diskNumber\":-", "\"diskNumber\":")),
              StartsWith("/copies/0/diskNumber: expected a whole number from 0 to"));
  EXPECT_THAT(ReasonFor(With("\"openSet\":{\"session\":\"x\",\"was\":", "\"openSet\":{\"session\":")),
              StartsWith("/openSet/session: \"x\" is no GUID in braces"));
}

TEST_F(RefusedState, AnotherVersionIsRefusedWhateverItHolds) {
  EXPECT_THAT(ReasonFor("{\"new\":true,\"version\":2}"),
              StartsWith("/version: a state of version 2, and this program has version 1"));
}

TEST_F(RefusedState, AnotherHostIsRefused) {
  const std::string good = With("", "");
  HostModel renamed = VssHost();
  renamed.computerName = L"SQL02";
  EXPECT_THAT(ReasonFor(good, renamed),
              StartsWith("/host/computerName: the state is of another host: \"SQL01\", and this one has \"SQL02\""));
  HostModel exchanged = VssHost();
  exchanged.disks[1].serial = L"TSL9999";
  EXPECT_THAT(ReasonFor(good, exchanged), StartsWith("/host/disks/1: the state is of another host: \"1 TSL0001 "));
  HostModel larger = VssHost();
  larger.disks.push_back(MakeDisk(L"TSL0003", 9, L"G:\\"));
  EXPECT_THAT(ReasonFor(good, larger),
              StartsWith("/host/disks/3: the state is of another host: \"no disk\", and this one has \"9 TSL0003 "));
}

TEST_F(RefusedState, AnEndedSessionThatTheHostDoesNotHaveIsRefused) {
  EXPECT_THAT(ReasonFor(With("\"endedSessions\":[{\"session\":0,\"targetName\":\"iqn\"}]", "\"endedSessions\":[]")),
              StartsWith("/endedSessions/0: the host has no such iSCSI session"));
}

TEST_F(RefusedState, AFolderThatIsNotThereIsRefused) {
  const std::filesystem::path path = StatePath().parent_path() / "none" / "host.state";
  try {
    const Process refused(VssHost(), path);
    FAIL() << "taken";
  } catch (const StateFileError& error) {
    EXPECT_THAT(error.what(), HasSubstr("host.state: cannot write "));
    EXPECT_THAT(error.what(), EndsWith("; name a file in a folder that exists and that you may write"));
  }
}

TEST_F(RefusedState, AFolderInPlaceOfTheFileIsRefused) {
  std::filesystem::create_directory(StatePath());
  EXPECT_THROW(Process(VssHost(), StatePath()), StateFileError);
  EXPECT_TRUE(std::filesystem::is_directory(StatePath()));
}

// The file as it was, and the service as it was: what failed can be done again.
class UnwrittenState : public StateFixture {
 protected:
  /// `change` fails with what the write gave, changes nothing, and then succeeds.
  template <class Change>
  void ExpectFailsOnce(Change change, HRESULT success = S_OK) {
    const std::string before = std::filesystem::exists(StatePath()) ? StateText() : "";
    BlockWrites();
    EXPECT_THAT(change(), Gives(kDenied));
    EXPECT_EQ(std::filesystem::exists(StatePath()) ? StateText() : "", before);
    AllowWrites();
    EXPECT_THAT(change(), Gives(success));
    EXPECT_NE(StateText(), before);
  }
};

TEST_F(UnwrittenState, EveryCallOfABackupThatChangesItFailsAndCanBeMadeAgain) {
  Backup backup(Phase::gathered, kPersistent);
  Expect(backup.Add(0xA, L"SQL01", L"sales"), S_OK);
  Expect(backup->SetBackupState(true, true, VSS_BT_FULL, false), S_OK);
  ExpectFailsOnce([&] { return backup->StartSnapshotSet(&backup.setId); });
  ExpectFailsOnce([&] { return backup.AddVolume(L"E:\\"); });
  ExpectFailsOnce([&] { return backup.Run(&IVssBackupComponents::PrepareForBackup); }, VSS_S_ASYNC_FINISHED);
  ExpectFailsOnce([&] { return backup.Snapshot(); }, VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(Listed(), SizeIs(1));
  ExpectFailsOnce([&] { return backup->BreakSnapshotSet(backup.setId); });
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(UnwrittenState, ASetThatIsNotDeletedIsThereWhole) {
  Backup backup;
  backup.TakeBoth();
  LONG deleted = 0;
  GUID left{};
  const auto remove = [&] {
    return backup->DeleteSnapshots(backup.setId, VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &left);
  };
  BlockWrites();
  Expect(remove(), kDenied);
  EXPECT_EQ(deleted, 0);
  EXPECT_EQ(left, backup.copyIds[0]);
  EXPECT_THAT(Listed(), SizeIs(2));
  InSecond();
  EXPECT_THAT(Listed(), SizeIs(2));
  InFirst();
  AllowWrites();
  Expect(remove(), S_OK);
  EXPECT_EQ(deleted, 2);
  InSecond();
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(UnwrittenState, AnAbortThatIsNotWrittenLeavesTheSetUnderConstruction) {
  Backup backup(Phase::prepared);
  ExpectFailsOnce([&] { return backup->AbortBackup(); });
  Expect(StartSet(), S_OK);
}

// A release cannot fail: the next call makes up for it.
TEST_F(UnwrittenState, TheEndOfASessionIsWrittenLater) {
  Backup backup;
  backup.TakeBoth(VSS_CTX_BACKUP);
  BlockWrites();
  backup.Release();
  EXPECT_THAT(Listed(), IsEmpty());
  InSecond();
  EXPECT_THAT(Listed(), SizeIs(2));
  InFirst();
  AllowWrites();
  EXPECT_THAT(Listed(), IsEmpty());
  InSecond();
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(UnwrittenState, ALogoutThatIsNotWrittenDidNotHappen) {
  HostModel model = VssHost();
  model.iscsiSessions = {{L"iqn.2007-11.example:a", {{L"TSL0001"}}}};
  Begin(model);
  ULONG bytes = 0;
  ULONG count = 0;
  CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &count, nullptr);
  std::vector<char> buffer(bytes);
  auto* list = reinterpret_cast<iscsi::SessionInfo*>(buffer.data());
  CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &count, list);
  BlockWrites();
  EXPECT_EQ(CurrentHost().iscsi().LogoutIScsiTarget(&list[0].SessionId), DWORD{ERROR_ACCESS_DENIED});
  AllowWrites();
  EXPECT_EQ(CurrentHost().iscsi().LogoutIScsiTarget(&list[0].SessionId), DWORD{ERROR_SUCCESS});
  EXPECT_NE(CurrentHost().iscsi().LogoutIScsiTarget(&list[0].SessionId), DWORD{ERROR_SUCCESS});
}

TEST_F(UnwrittenState, WhatAProcessWroteInPartIsNotSeen) {
  { Backup().TakeBoth(); }
  std::ofstream(NewFile()) << "{\"version\":1,";
  Begin(VssHost());
  EXPECT_THAT(Listed(), SizeIs(2));
  Expect(StartSet(), S_OK);
  EXPECT_FALSE(std::filesystem::exists(NewFile()));
}

TEST_F(UnwrittenState, ARelativeNameStaysThatOfTheFileWhateverTheCurrentDirectoryIs) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(StatePath().parent_path());
  Process process(VssHost(), "relative.state");
  std::filesystem::current_path(before);
  Use(process);
  Expect(StartSet(), S_OK);
  InFirst();
  EXPECT_TRUE(std::filesystem::exists(StatePath().parent_path() / "relative.state"));
}

TEST_F(UnwrittenState, AStateThatSomeoneBrokeWhileItIsUsedStaysAndChangesFail) {
  Backup backup(Phase::gathered);
  InSecond();
  Expect(StartSet(), S_OK);  // writes, so that the first process reads again
  WriteState("{");
  InFirst();
  GUID id{};
  for (int attempt = 0; attempt < 2; ++attempt) {
    Expect(backup->StartSnapshotSet(&id), HResultFromWin32(simulator::kErrorFileCorrupt));
    EXPECT_EQ(StateText(), "{");
  }
}

#ifndef _WIN32
TEST_F(UnwrittenState, AFullDiskIsCalledSo) {
  Backup backup(Phase::gathered);
  GUID id{};
  std::filesystem::create_symlink("/dev/full", NewFile());
  Expect(backup->StartSnapshotSet(&id), HResultFromWin32(simulator::kErrorDiskFull));
  EXPECT_FALSE(std::filesystem::exists(StatePath()));
  EXPECT_FALSE(std::filesystem::exists(NewFile()));
  Expect(backup->StartSnapshotSet(&id), S_OK);
}
#endif

}  // namespace
}  // namespace varnel::test
