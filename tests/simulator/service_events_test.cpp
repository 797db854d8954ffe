// What the service and its writers leave in the event log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

using simulator::EventLevel;
using simulator::LoggedEvent;

constexpr GUID kSqlWriterId = ParseGuid<GUID>("{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
constexpr GUID kHyperVWriter = ParseGuid<GUID>("{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}");

class ServiceEvents : public ShadowCopyService {
 protected:
  void SetUp() override {
    HostModel model = VssHost();
    model.seed = 1;
    Install(model);
  }

  std::vector<LoggedEvent> Events() { return host().machine().newEvents; }
  // "VSS 8193" and so on.
  std::vector<std::string> Numbers() {
    std::vector<std::string> numbers;
    for (const LoggedEvent& event : Events())
      numbers.push_back(WideToUtf8(event.source) + " " + std::to_string(event.id));
    return numbers;
  }
  // The only event.
  LoggedEvent Event() {
    const std::vector<LoggedEvent> events = Events();
    EXPECT_THAT(events, SizeIs(1));
    return events.empty() ? LoggedEvent() : events[0];
  }
  void ExpectEvent(const wchar_t* source, DWORD id, EventLevel level, const std::wstring& message,
                   const std::vector<std::wstring>& texts) {
    const LoggedEvent event = Event();
    EXPECT_EQ(event.channel, L"Application");
    EXPECT_EQ(event.source, source);
    EXPECT_EQ(event.id, id);
    EXPECT_EQ(event.level, level);
    EXPECT_EQ(event.time, host().machine().SystemTime());
    EXPECT_EQ(event.message, message);
    EXPECT_EQ(event.texts, texts);
  }
  // A host whose SQL writer has the class of this application's.
  void InstallApplication(const GUID& writerId) {
    HostModel model = VssHost();
    model.writers[0].writerId = writerId;
    Install(model);
  }
  HRESULT TakeOfAllWriters() {
    Backup backup(Phase::gathered);
    backup.StartSet(false);
    Expect(backup.AddVolume(L"E:\\"), S_OK);
    return backup.Prepare().Snapshot();
  }
};

const std::wstring kWriterContext =
    L"\r\n\r\nContext:\r\n   Execution Context: Writer\r\n   Writer Class Id: "
    L"{0000000a-0000-0000-0000-000000000000}\r\n"
    L"   Writer Name: SqlServerWriter\r\n   Writer Instance Name: \r\n"
    L"   Writer Instance ID: {0000000a-0001-0000-0000-000000000000}";

TEST_F(ServiceEvents, AGoodBackupLeavesNone) {
  Backup(Phase::complete).Release();
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(ServiceEvents, AWriterThatRejectsAnEventLeaves8229) {
  FailWriter(WriterEvent::prepareSnapshot, VSS_E_WRITERERROR_RETRYABLE);
  Backup backup(Phase::snapshotDone);
  const std::wstring error = L"0x800423f3, VSS_E_WRITERERROR_RETRYABLE";
  const std::wstring details = L"\r\n\r\nOperation:\r\n   PrepareForSnapshot Event" + kWriterContext;
  ExpectEvent(L"VSS", 8229, EventLevel::warning,
              L"A writer has rejected an event with the error " + error +
                  L". What it changed in its components is not available to the requestor. See the events of the "
                  L"application that has the writer." +
                  details,
              {error, details});
}

TEST_F(ServiceEvents, EachEventThatAWriterCanRejectHasItsName) {
  const std::pair<WriterEvent, const wchar_t*> events[] = {
      {WriterEvent::identify, L"OnIdentify event"},
      {WriterEvent::prepareBackup, L"PrepareForBackup event"},
      {WriterEvent::prepareSnapshot, L"PrepareForSnapshot Event"},
      {WriterEvent::freeze, L"Freeze Event"},
      {WriterEvent::thaw, L"Thaw Event"},
      {WriterEvent::postSnapshot, L"PostSnapshot Event"},
      {WriterEvent::backupComplete, L"BackupComplete Event"},
      {WriterEvent::backupShutdown, L"BackupShutdown Event"},
  };
  for (const auto& [event, name] : events) {
    SCOPED_TRACE(WideToUtf8(name));
    Install(VssHost());
    FailWriter(event, VSS_E_WRITERERROR_NONRETRYABLE);
    if (event == WriterEvent::identify) {
      Backup(Phase::gathered).Release();
    } else {
      Backup(Phase::complete).Release();
    }
    EXPECT_EQ(Event().texts.at(1).find(L"\r\n\r\nOperation:\r\n   " + std::wstring(name) + L"\r\n"), 0u);
  }
}

TEST_F(ServiceEvents, AWriterThatFreezesForTooLongLeaves8229) {
  model().freezeMilliseconds = 70000;
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(Numbers(), ElementsAre("VSS 8229"));
  EXPECT_EQ(Event().texts.at(0), L"0x800423f2, VSS_E_WRITERERROR_TIMEOUT");
}

TEST_F(ServiceEvents, AWriterThatDoesNotAnswerHasRejectedNothing) {
  host().faults().FailWriter({L"SqlServerWriter", WriterEvent::prepareBackup, S_OK, S_OK, L"", {}, {}, true});
  Backup backup(Phase::prepared);
  EXPECT_THAT(backup.Statuses().at(0).failure, Gives(VSS_E_WRITER_NOT_RESPONDING));
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(ServiceEvents, ARequestorThatMayNotBeCalledBackLeaves8194) {
  FailWriter(WriterEvent::prepareBackup, E_ACCESSDENIED);
  Backup backup(Phase::prepared);
  const std::wstring details = L"\r\n\r\nOperation:\r\n   PrepareForBackup event" + kWriterContext;
  ExpectEvent(L"VSS", 8194, EventLevel::error,
              L"The callback interface of a requestor could not be had. hr = 0x80070005, E_ACCESSDENIED. Often the "
              L"security settings of the process of the writer or of the requestor are wrong." +
                  details,
              {L"0x80070005, E_ACCESSDENIED", details});
}

TEST_F(ServiceEvents, AnUnexpectedErrorOfACallLeaves8193) {
  for (const HRESULT result : {VSS_E_UNEXPECTED, E_UNEXPECTED}) {
    Install(VssHost());
    Backup backup(Phase::gathered);
    FailCall("IVssBackupComponents::StartSnapshotSet", result);
    GUID set{};
    Expect(backup->StartSnapshotSet(&set), result);
    const std::wstring error = result == E_UNEXPECTED ? L"0x8000ffff, E_UNEXPECTED" : L"0x80042302, VSS_E_UNEXPECTED";
    const std::wstring details =
        L"\r\n\r\nOperation:\r\n   IVssBackupComponents::StartSnapshotSet\r\n\r\nContext:\r\n   Execution Context: "
        L"Requestor";
    ExpectEvent(L"VSS", 8193, EventLevel::error,
                L"An unexpected error occurred in the routine IVssBackupComponents::StartSnapshotSet. hr = " + error +
                    L"." + details,
                {L"IVssBackupComponents::StartSnapshotSet", error, details});
  }
}

TEST_F(ServiceEvents, OtherFailuresOfCallsLeaveNone) {
  FailCall("IVssBackupComponents::GatherWriterMetadata", E_OUTOFMEMORY);
  FailCall("IWbemServices::ExecQuery", E_UNEXPECTED);
  Backup backup(Phase::initialized);
  Expect(backup.Run(&IVssBackupComponents::GatherWriterMetadata), E_OUTOFMEMORY);
  std::vector<WmiDisk> disks;
  Expect(host().wmi().QueryDisks(disks), E_UNEXPECTED);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(ServiceEvents, AnUnexpectedErrorOfAnOperationLeaves12289) {
  host().faults().FailAsync("PrepareForBackup", VSS_E_UNEXPECTED);
  Backup backup(Phase::setStarted);
  Expect(backup.Run(&IVssBackupComponents::PrepareForBackup), VSS_E_UNEXPECTED);
  const std::wstring details =
      L"\r\n\r\nOperation:\r\n   Executing Asynchronous Operation\r\n\r\nContext:\r\n   Current State: "
      L"PrepareForBackup";
  ExpectEvent(L"VSS", 12289, EventLevel::error,
              L"Unexpected error PrepareForBackup. hr = 0x80042302, VSS_E_UNEXPECTED." + details,
              {L"PrepareForBackup", L"0x80042302, VSS_E_UNEXPECTED", details});
}

class ProviderEvents : public ServiceEvents {
 protected:
  void ExpectRoutine(const std::wstring& routine, const std::wstring& error = L"0x80042306, VSS_E_PROVIDER_VETO") {
    const std::wstring id = L"{374579ad-285c-49b9-ab8a-950e0e252de2}";
    const std::wstring details = L"\r\n\r\nOperation:\r\n   " + routine +
                                 L"\r\n\r\nContext:\r\n   Execution Context: Coordinator\r\n   Provider ID: " + id;
    ExpectEvent(L"VSS", 12293, EventLevel::error,
                L"A routine of the shadow copy provider " + id + L" failed. Routine: " + routine + L" [hr = " + error +
                    L"]." + details,
                {id, routine, error, details});
    host().machine().newEvents.clear();
  }
};

TEST_F(ProviderEvents, AStepThatAProviderRefusesLeaves12293) {
  model().providers[0].veto = simulator::ProviderStep::beginPrepare;
  {
    Backup backup(Phase::gathered);
    Expect(backup.StartSet().AddVolume(L"E:\\"), VSS_E_PROVIDER_VETO);
  }
  ExpectRoutine(L"BeginPrepareSnapshot");
  const std::pair<simulator::ProviderStep, const wchar_t*> steps[] = {
      {simulator::ProviderStep::endPrepare, L"EndPrepareSnapshots"},
      {simulator::ProviderStep::commit, L"CommitSnapshots"}};
  for (const auto& [step, routine] : steps) {
    model().providers[0].veto = step;
    Expect(Backup(Phase::prepared).Snapshot(), VSS_E_PROVIDER_VETO);
    ExpectRoutine(routine);
  }
}

TEST_F(ProviderEvents, AFailedDeletionLeaves12293) {
  host().faults().FailDeletion({L"TSL0001", VSS_E_UNEXPECTED_PROVIDER_ERROR});
  Backup backup(Phase::snapshotDone);
  Expect(backup.Delete(backup.setId, VSS_OBJECT_SNAPSHOT_SET), VSS_E_UNEXPECTED_PROVIDER_ERROR);
  ExpectRoutine(L"DeleteSnapshots", L"0x8004230f, VSS_E_UNEXPECTED_PROVIDER_ERROR");
}

TEST_F(ProviderEvents, APlannedFailureOfAProviderIsThatOfTheFirstOne) {
  model().providers.insert(model().providers.begin(), kSystemProvider);
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_UNEXPECTED_PROVIDER_ERROR);
  {
    Backup backup(Phase::gathered);
    Expect(backup.StartSet().AddVolume(L"E:\\"), VSS_E_UNEXPECTED_PROVIDER_ERROR);
  }
  ExpectRoutine(L"IVssBackupComponents::AddToSnapshotSet", L"0x8004230f, VSS_E_UNEXPECTED_PROVIDER_ERROR");
  host().faults().FailAsync("DoSnapshotSet", VSS_E_PROVIDER_VETO);
  Expect(Backup(Phase::prepared).Snapshot(), VSS_E_PROVIDER_VETO);
  ExpectRoutine(L"DoSnapshotSet");
}

TEST_F(ServiceEvents, WritesThatCannotBeHeldLeave12298AndVolsnap8) {
  model().commitMilliseconds = 10001;
  {
    Backup backup(Phase::setStarted);
    Expect(backup.AddVolume(L"F:\\"), S_OK);
    Expect(backup.Prepare().Snapshot(), VSS_E_HOLD_WRITES_TIMEOUT);
  }
  EXPECT_THAT(Numbers(), ElementsAre("VSS 12298", "volsnap 8", "VSS 12298", "volsnap 8"));
  const LoggedEvent vss = Events().at(2);
  EXPECT_EQ(vss.level, EventLevel::error);
  EXPECT_EQ(vss.message,
            L"Writes to the volume " + VolumeName(2) +
                L" could not be held while its shadow copy was made. Its place in the set is 1. Open[0x00000000], "
                L"Flush[0x00000000], Release[0x80042314], OnRun[0x00000000].\r\n\r\nOperation:\r\n   Executing "
                L"Asynchronous Operation\r\n\r\nContext:\r\n   Current State: DoSnapshotSet");
  const LoggedEvent volume = Events().at(3);
  EXPECT_EQ(volume.channel, L"System");
  EXPECT_EQ(volume.level, EventLevel::error);
  EXPECT_EQ(volume.message, L"Flushing and holding the writes to the volume " + VolumeName(2) +
                                L" took too long: nobody released them.");
  EXPECT_THAT(volume.texts, ElementsAre(VolumeName(2)));
}

TEST_F(ServiceEvents, WritesThatCannotBeFlushedLeave12297) {
  host().faults().FailAsync("DoSnapshotSet", VSS_E_FLUSH_WRITES_TIMEOUT);
  Expect(Backup(Phase::prepared).Snapshot(), VSS_E_FLUSH_WRITES_TIMEOUT);
  EXPECT_THAT(Numbers(), ElementsAre("VSS 12297"));
  EXPECT_EQ(Event().message->find(L"Writes to the volume " + VolumeName(1) +
                                  L" could not be flushed while its shadow copy was made. Its place in the set is 0. "
                                  L"Open[0x00000000], Flush[0x80042313], Release[0x00000000], OnRun[0x00000000]."),
            0u);
}

TEST_F(ServiceEvents, SqlServerTellsOfATornDatabase) {
  InstallApplication(kSqlWriterId);
  model().writers[0].components[0].files.push_back({L"F:\\log", L"sales.ldf"});
  model().writers[0].components[1].files = {{L"F:\\data", L"crm.mdf"}};
  Expect(TakeOfAllWriters(), VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(Numbers(), ElementsAre("SQLWRITER 24580", "VSS 8229"));
  EXPECT_EQ(Events().at(0).message,
            L"The database \\SQL01\\sales lies on several volumes, of which the shadow copy has only some. Database "
            L"sales is torn: F:\\log\\sales.ldf is on no volume of the set");
  EXPECT_EQ(Events().at(0).level, EventLevel::error);
}

TEST_F(ServiceEvents, SqlServerTellsItsOwnError) {
  InstallApplication(kSqlWriterId);
  FailWriter(WriterEvent::freeze, VSS_E_WRITERERROR_NONRETRYABLE);
  Expect(TakeOfAllWriters(), VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(Numbers(), ElementsAre("SQLWRITER 24583", "VSS 8229"));
  EXPECT_EQ(Events().at(0).message, L"SQL Server failed. hr = 0x00000040. Its message: log full");
}

TEST_F(ServiceEvents, HyperVTellsOfEachMachineThatFailed) {
  InstallApplication(kHyperVWriter);
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\SQL01\\sales", VSS_E_WRITERERROR_NONRETRYABLE, 1, L"Integration services are old."}});
  Expect(TakeOfAllWriters(), VSS_S_ASYNC_FINISHED);
  EXPECT_THAT(Numbers(), ElementsAre("Microsoft-Windows-Hyper-V-VMMS 10102", "VSS 8229"));
  EXPECT_EQ(Events().at(0).channel, L"Microsoft-Windows-Hyper-V-VMMS-Admin");
  EXPECT_EQ(Events().at(0).message,
            L"The backup of the virtual machine \"\\SQL01\\sales\" could not be made. Integration services are old.");
}

}  // namespace
}  // namespace varnel::test
