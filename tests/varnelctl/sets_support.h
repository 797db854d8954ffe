// A host with sets that are remembered in a journal, and what `varnelctl sets` does with them.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/vss/snapshot_service.h"
#include "tests/varnelctl/open_sessions.h"
#include "tests/varnelctl/snapshot_support.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/sets/journal.h"

namespace varnel::test {

constexpr GUID kForeignProvider = ParseGuid<GUID>("{b5946137-7b9f-4925-af80-51abd60b20d5}");

class SetsFixture : public SnapshotFixture {
 protected:
  using Entry = varnelctl::JournalEntry;
  using Stage = varnelctl::JournalStage;
  using End = varnelctl::JournalEnd;

  /// Each shadow copy has an iSCSI session of its own, and so have the originals.
  static simulator::HostModel Model() {
    simulator::HostModel model = SmallHost();
    model.writers = {
        MakeWriter(L"Writer", 1, {MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"F:\\two"})})};
    model.iscsiSessions = {{.targetName = L"originals", .devices = {{L"TSL0001"}, {L"TSL0002"}}},
                           {.targetName = L"copy-1", .devices = {{L"TSL0001", true}}},
                           {.targetName = L"copy-2", .devices = {{L"TSL0002", true}}}};
    model.providers.push_back({kForeignProvider, L"In-box provider", VSS_PROV_SYSTEM, L"1.0.0.7"});
    return model;
  }
  void SetUp() override { Install(Model()); }

  Arguments Journalled(Arguments arguments) const {
    arguments.insert(arguments.end(), {"--journal", folder.File("sets")});
    return arguments;
  }
  CliResult Sets(Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), "sets");
    const CliResult result = Run(Journalled(std::move(arguments)));
    EXPECT_EQ(result.status, status) << result.out << result.err;
    return result;
  }
  nlohmann::json SetsJson(Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), "sets");
    return Document(Journalled(std::move(arguments)), status);
  }

  /// The identifier of a set of both disks that a request has kept. The next one's begins a second later.
  std::string KeptSet(const char* context = "app-rollback") {
    constexpr DWORD kSecond = 1000;
    const std::string setId = SnapshotJson(Journalled({"--context", context})).at("snapshotSetId");
    host().time().Sleep(kSecond);
    return setId;
  }
  /// One that another program has made with this provider and context.
  std::string ForeignSet(const GUID& provider = kForeignProvider, LONG context = VSS_CTX_APP_ROLLBACK) {
    simulator::SnapshotService& service = *host().machine().snapshots;
    const GUID session = ParseGuid<GUID>("{5f1c0a20-7d1e-4c55-9a60-1b2c3d4e5fff}");
    GUID setId{};
    GUID copyId{};
    EXPECT_EQ(service.StartSet(session, context, setId), S_OK);
    EXPECT_EQ(service.AddVolume(session, L"E:\\", provider, copyId), S_OK);
    EXPECT_EQ(service.CommitSet(session), S_OK);
    return WideToUtf8Lossy(FormatGuid(setId));
  }

  Entry EntryOf(const std::string& setId) const {
    for (const Entry& entry : journal.Read().entries) {
      if (WideToUtf8Lossy(entry.setId) == setId) return entry;
    }
    ADD_FAILURE() << "no entry of " << setId;
    return {};
  }
  bool IsJournalled(const std::string& setId) const {
    const auto entries = journal.Read().entries;
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Entry& entry) { return WideToUtf8Lossy(entry.setId) == setId; });
  }
  void Change(const std::string& setId, const std::function<void(Entry& entry)>& change) const {
    Entry entry = EntryOf(setId);
    change(entry);
    journal.Write(entry);
  }
  /// As a process leaves it that dies there: this one lives, but has not started then.
  void Leave(const std::string& setId, Stage stage, std::optional<End> end = {}) const {
    Change(setId, [&](Entry& entry) {
      entry.process = {4242, 1};
      entry.start = "2026-01-01T00:00:00.000Z";
      entry.stage = stage;
      entry.end = end;
    });
  }
  std::string LeftSet(Stage stage, std::optional<End> end = {}) {
    const std::string setId = KeptSet();
    Leave(setId, stage, end);
    return setId;
  }
  /// Without a word to the journal.
  void TakeAway(const std::string& setId) {
    host().machine().snapshots->Withdraw(GuidOrNull<GUID>(Utf8ToWideLossy(setId)));
  }
  std::size_t CopiesOf(const std::string& setId) {
    return host().machine().snapshots->CopiesOfSet(GuidOrNull<GUID>(Utf8ToWideLossy(setId))).size();
  }

  /// Looks before every call of the host, and may ask the host itself.
  void BeforeEachCall(std::function<void()> look) {
    host().faults().TellCallsTo([look = std::move(look), isLooking = false](int) mutable {
      if (std::exchange(isLooking, true)) return;
      look();
      isLooking = false;
    });
  }

  /// The calls that have changed something at the host.
  std::vector<std::string> Changes() {
    std::vector<std::string> changes;
    for (const char* call : {"IVssBackupComponents::DeleteSnapshots", "IVssBackupComponents::BreakSnapshotSet",
                             "IVssBackupComponentsEx2::BreakSnapshotSetEx", "LogoutIScsiTarget",
                             "IVssBackupComponents::StartSnapshotSet", "IVssBackupComponents::ImportSnapshots"}) {
      for (const std::string& line : CallsOf(call)) changes.push_back(line);
    }
    return changes;
  }
  /// Every file of the journal, byte for byte.
  std::map<std::string, std::string> JournalFiles() const {
    std::map<std::string, std::string> files;
    if (!std::filesystem::exists(journal.folder())) return files;
    for (const auto& file : std::filesystem::directory_iterator(journal.folder())) {
      files[file.path().filename().string()] = ReadFile(file.path().string());
    }
    return files;
  }
  /// Refused in these words, with nothing called and nothing written.
  void ExpectRefusal(const Arguments& arguments, const std::string& text) {
    host().calls().Clear();
    const auto files = JournalFiles();
    const CliResult result = Sets(arguments, 2);
    EXPECT_EQ(result.err, "varnelctl: " + text + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_EQ(JournalFiles(), files);
  }

  const varnelctl::Journal journal{PathOf(folder.File("sets"))};
};

}  // namespace varnel::test
