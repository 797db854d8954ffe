// How writers judge databases of which the set holds a part only.
#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

constexpr wchar_t kSqlWriter[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";
constexpr wchar_t kMailTorn[] = L"Database mail is torn: F:\\mail\\mail.log is on no volume of the set";

simulator::WriterComponent MakeDatabase(std::wstring path, std::wstring name, std::wstring files, std::wstring logs) {
  simulator::WriterComponent database = MakeComponent(std::move(path), name, {});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{std::move(files), name + L".edb"}};
  database.logFiles = {{std::move(logs), name + L".log"}};
  return database;
}

// E: holds all of "whole", half of "mail" and half of the file group; nothing of "away".
HostModel DatabaseHost() {
  HostModel model = SmallHost();
  model.environment[L"Logs"] = L"F:\\mail";
  simulator::WriterComponent store = MakeComponent(L"", L"Store", {});
  model.writers = {MakeWriter(L"Database Writer", 0xA,
                              {store, MakeDatabase(L"Store", L"whole", L"E:\\whole", L"E:\\whole"),
                               MakeDatabase(L"Store", L"mail", L"E:\\mail\\", L"%LOGS%"),
                               MakeDatabase(L"Other", L"away", L"F:\\away", L"F:\\away"),
                               MakeComponent(L"", L"group", {L"E:\\group", L"F:\\group"})})};
  return model;
}

class TornDatabases : public ShadowCopyService {
 protected:
  void SetUp() override { Install(DatabaseHost()); }

  static HRESULT AddDatabase(Backup& backup, LPCWSTR path, LPCWSTR name) {
    return backup->AddComponent(InstanceId(0xA), ClassId(0xA), VSS_CT_DATABASE, path, name);
  }
  static void Take(Backup& backup, bool selectComponents = true) {
    backup.StartSet(selectComponents);
    ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
    backup.Take();
  }
};

TEST_F(TornDatabases, ASelectedOneFailsItsWriterAfterTheSnapshot) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(AddDatabase(backup, L"Store", L"whole"), Gives(S_OK));
  ASSERT_THAT(AddDatabase(backup, L"Store", L"mail"), Gives(S_OK));
  Take(backup);

  const Backup::Status status = backup.Statuses().at(0);
  EXPECT_EQ(status.state, VSS_WS_FAILED_AT_POST_SNAPSHOT);
  EXPECT_THAT(status.failure, Gives(VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT));
  EXPECT_THAT(status.applicationResult, Gives(S_OK));
  EXPECT_EQ(status.applicationMessage, kMailTorn);
  EXPECT_THAT(Copies(), SizeIs(1)) << "a writer's failure is not the set's";
  EXPECT_THAT(Told(std::nullopt), IsEmpty());

  const BackupDocument document = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_THAT(document.writers.at(0).components.at(0).failure, Gives(S_OK));
  EXPECT_THAT(document.writers.at(0).components.at(1).failure, Gives(VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT));
  EXPECT_EQ(document.writers.at(0).components.at(1).applicationMessage, kMailTorn);
}

TEST_F(TornDatabases, OneBelowASelectedComponentIsSelected) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, nullptr, L"Store"), Gives(S_OK));
  Take(backup);
  EXPECT_EQ(backup.States().at(0), VSS_WS_FAILED_AT_POST_SNAPSHOT);
  EXPECT_EQ(backup.Statuses().at(0).applicationMessage, kMailTorn);
}

TEST_F(TornDatabases, OneThatWasNotSelectedIsNotTheWritersBusiness) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(AddDatabase(backup, L"Store", L"whole"), Gives(S_OK));
  Take(backup);
  EXPECT_EQ(backup.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
}

TEST_F(TornDatabases, ASelectedOneWithNothingInTheSetIsTornToo) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(AddDatabase(backup, L"Other", L"away"), Gives(S_OK));
  ASSERT_THAT(AddDatabase(backup, L"Store", L"mail"), Gives(S_OK));
  Take(backup);
  EXPECT_EQ(backup.Statuses().at(0).applicationMessage,
            std::wstring(kMailTorn) + L"; Database away is torn: F:\\away\\away.edb is on no volume of the set");
}

TEST_F(TornDatabases, FileGroupsAreNotJudged) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, nullptr, L"group"), Gives(S_OK));
  Take(backup);
  EXPECT_EQ(backup.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
}

TEST_F(TornDatabases, TheFileGroupsOfSqlServerAreDatabases) {
  host().model().writers = {MakeWriterOf(kSqlWriter, L"SqlServerWriter", 0xB,
                                         {MakeComponent(L"SQL01", L"sales", {L"E:\\data", L"F:\\log"})})};
  const simulator::Writer writer = host().model().writers.at(0);
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup->AddComponent(writer.instanceId, writer.writerId, VSS_CT_FILEGROUP, L"SQL01", L"sales"),
              Gives(S_OK));
  Take(backup);
  EXPECT_EQ(backup.States().at(0), VSS_WS_FAILED_AT_POST_SNAPSHOT);
}

TEST_F(TornDatabases, APlannedFailureOfTheWriterComesBeforeItsOwn) {
  host().faults().FailWriter(
      {L"Database Writer", WriterEvent::postSnapshot, VSS_E_WRITERERROR_RETRYABLE, 0x40, L"busy", {}});
  Backup backup(Phase::gathered);
  ASSERT_THAT(AddDatabase(backup, L"Store", L"mail"), Gives(S_OK));
  Take(backup);
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITERERROR_RETRYABLE));
  EXPECT_EQ(backup.Statuses().at(0).applicationMessage, L"busy");
}

TEST_F(TornDatabases, InVolumeModeOneThatIsThereInPartFailsTheWriterBeforeTheSnapshot) {
  Backup backup(Phase::gathered);
  Take(backup, false);

  const Backup::Status status = backup.Statuses().at(0);
  EXPECT_EQ(status.state, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT);
  EXPECT_THAT(status.failure, Gives(VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT));
  EXPECT_EQ(static_cast<DWORD>(status.applicationResult), 0x80780002);
  EXPECT_EQ(status.applicationMessage, kMailTorn) << "not the one that is elsewhere";
  EXPECT_THAT(Told(std::nullopt), ElementsAre(L"Database Writer"));
  EXPECT_THAT(Told(WriterEvent::freeze), IsEmpty());
  EXPECT_THAT(Copies(), SizeIs(1));
}

TEST_F(TornDatabases, InVolumeModeASetOfEveryVolumeTearsNothing) {
  Backup backup(Phase::gathered);
  backup.StartSet(false);
  ASSERT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
  ASSERT_THAT(backup.AddVolume(L"E:\\"), Gives(S_OK));
  backup.Take();
  EXPECT_EQ(backup.States().at(0), VSS_WS_WAITING_FOR_BACKUP_COMPLETE);
}

}  // namespace
}  // namespace varnel::test
