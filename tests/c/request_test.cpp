// A whole request through the C interface: what it does, and what it tells.
#include <map>

#include "core/varnel.h"
#include "tests/c/c_fixture.h"
#include "tests/support/applications.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

class CRequest : public CInterfaceFixture {};

template <class Struct>
Struct Sized() {
  Struct structure = {};
  structure.size = sizeof structure;
  return structure;
}

TEST_F(CRequest, TakesCompletesAndFreesASet) {
  varnel_request* request = MakeReady();
  EXPECT_EQ(TextOf(request, varnel_request_get_set_id), "");
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_DONE);
  EXPECT_THAT(TextOf(request, varnel_request_get_set_id), StartsWith("{"));
  EXPECT_THAT(TextOf(request, varnel_request_get_document), HasSubstr("<BACKUP_COMPONENTS"));
  EXPECT_EQ(TextOf(request, varnel_request_get_databases), "ALL_DB");
  EXPECT_EQ(varnel_request_complete(request, 0), VARNEL_DONE);
  EXPECT_THAT(Calls("IVssBackupComponents::BackupComplete"), SizeIs(1));
  EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
  ExpectNothingLive();
}

TEST_F(CRequest, MakesTheCallsOfTheClassInterface) {
  {
    CVarnel requestor(0);
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    std::string details = "writer=0,";
    requestor.SetInputDriveSerialNos({L"TSL0001", L"TSL0002"});
    requestor.Initialize(0, L"", false, VSS_BT_FULL, details, &enumerator);
    requestor.CreateVssSnapshotSet(details);
    requestor.SetBackupStatus(0, details);
  }
  const std::vector<std::string> wanted = host().calls().lines();
  const std::vector<std::string> lines = log.All();
  SetUp();
  log.lines.clear();
  varnel_request* request = MakeTaken();
  varnel_request_complete(request, 0);
  varnel_request_free(request);
  EXPECT_EQ(host().calls().lines(), wanted);
  EXPECT_EQ(log.All(), lines);
}

TEST_F(CRequest, TellsTheVolumesOfTheSet) {
  varnel_request* request = MakeTaken();
  ASSERT_EQ(CountOf(request, varnel_request_get_snapshot_count), 2U);
  auto snapshot = Sized<varnel_snapshot>();
  ASSERT_EQ(varnel_request_get_snapshot(request, 1, &snapshot), VARNEL_DONE);
  EXPECT_EQ(snapshot.volume, WideToUtf8(VolumeName(2)));
  EXPECT_THAT(snapshot.snapshot_id, StartsWith("{"));
  EXPECT_THAT(snapshot.device, StartsWith("\\\\?\\GLOBALROOT\\Device\\"));
  EXPECT_EQ(varnel_request_get_snapshot(request, 2, &snapshot), VARNEL_BAD_ARGUMENT);
  varnel_request_complete(request, 0);
}

TEST_F(CRequest, TellsWritersComponentsAndFiles) {
  varnel_request* request = MakeTaken();
  ASSERT_EQ(CountOf(request, varnel_request_get_writer_count), 1U);
  auto writer = Sized<varnel_writer>();
  ASSERT_EQ(varnel_request_get_writer(request, 0, &writer), VARNEL_DONE);
  EXPECT_STREQ(writer.name, "Mail");
  EXPECT_STREQ(writer.writer_id, "{00000001-0000-0000-0000-000000000000}");
  EXPECT_EQ(writer.component_count, 2U);
  EXPECT_EQ(writer.excluded_file_count, 1U);
  EXPECT_EQ(writer.excluded, 0);
  auto component = Sized<varnel_component>();
  ASSERT_EQ(varnel_request_get_component(request, 0, 1, &component), VARNEL_DONE);
  EXPECT_STREQ(component.full_path, "\\mail\\größe");
  EXPECT_STREQ(component.logical_path, "mail");
  EXPECT_EQ(component.added, 1);
  ASSERT_EQ(component.disk_count, 1U);
  EXPECT_STREQ(component.disks[0], "TSL0002");
  ASSERT_EQ(component.file_count, 1U);
  auto file = Sized<varnel_file>();
  ASSERT_EQ(varnel_request_get_file(request, 0, 1, 0, &file), VARNEL_DONE);
  EXPECT_STREQ(file.path, "F:\\db2");
  EXPECT_STREQ(file.filespec, "data.bin");
  EXPECT_EQ(file.type, 2);
  EXPECT_THAT(file.snapshot_serial_number, Not(std::string()));
  EXPECT_STREQ(writer.name, "Mail") << "texts stay until the request does something";
  ASSERT_EQ(varnel_request_get_excluded_file(request, 0, 0, &file), VARNEL_DONE);
  EXPECT_STREQ(file.filespec, "*.tmp");
  EXPECT_EQ(file.type, 1);
  varnel_request_complete(request, 0);
}

TEST_F(CRequest, TellsTheApplicationObjectsByDisk) {
  varnel_request* request = MakeTaken();
  EXPECT_EQ(CountOf(request, varnel_request_get_catalog_count), 0U);
  ASSERT_EQ(varnel_request_read_catalog(request), VARNEL_DONE);
  ASSERT_EQ(CountOf(request, varnel_request_get_catalog_count), 2U);
  auto disk = Sized<varnel_catalog_disk>();
  ASSERT_EQ(varnel_request_get_catalog_disk(request, 1, &disk), VARNEL_DONE);
  EXPECT_STREQ(disk.serial_number, "TSL0002");
  ASSERT_EQ(disk.object_count, 1U);
  EXPECT_STREQ(disk.object_ids[0], "\\mail\\größe");
  EXPECT_STREQ(disk.object_names[0], "größe");
  EXPECT_EQ(disk.other_count, 0U);
  varnel_request_complete(request, 0);
}

TEST_F(CRequest, AFailedCallIsACodeWithItsHresultAndItsRecord) {
  FailCall("IVssBackupComponents::AddToSnapshotSet", VSS_E_PROVIDER_VETO);
  varnel_request* request = MakeReady();
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_CALL_FAILED);
  const varnel_outcome outcome = OutcomeOf(request);
  EXPECT_EQ(outcome.code, VARNEL_CALL_FAILED);
  EXPECT_EQ(outcome.hresult, VSS_E_PROVIDER_VETO);
  EXPECT_EQ(outcome.backup_status, VSS_E_PROVIDER_VETO);
  EXPECT_STREQ(outcome.message, "VSS_E_PROVIDER_VETO (0x80042306)");
  EXPECT_THAT(outcome.alert_records, HasSubstr("m_pVssObject->AddToSnapshotSet()"));
  EXPECT_THAT(outcome.alert_records, Not(HasSubstr("writer=0")));
  EXPECT_EQ(varnel_request_complete(request, outcome.backup_status), VARNEL_DONE);
  EXPECT_THAT(TextOf(request, varnel_request_get_alert_records), HasSubstr("m_pVssObject->AddToSnapshotSet()"));
  EXPECT_STREQ(OutcomeOf(request).alert_records, "");
}

TEST_F(CRequest, AnAlertIsItsCodeWithItsMessageAndAnEntryForEachFailure) {
  FailWriter({L"Mail", simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT, S_OK, L"", {}});
  varnel_request* request = MakeReady();
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_WRITER_FAILURE);
  const varnel_outcome outcome = OutcomeOf(request);
  EXPECT_EQ(outcome.backup_status, VARNEL_WRITER_FAILURE);
  EXPECT_EQ(outcome.hresult, 0);
  EXPECT_THAT(outcome.message, HasSubstr("Mail failed to freeze"));
  EXPECT_THAT(DetailsOf(outcome), ElementsAre(HasSubstr("Failed application components: db1[\\mail\\db1],größe")));
  EXPECT_EQ(varnel_request_complete(request, outcome.backup_status), VARNEL_WRITER_FAILURE) << "it is still failed";
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"), SizeIs(1));
}

TEST_F(CRequest, ExtraVolumesMayBeAccepted) {
  simulator::HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
  Install(std::move(model));
  varnel_request* request = MakeReady();
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_EXTRA_VOLUMES);
  EXPECT_EQ(varnel_request_complete(request, 0), VARNEL_DONE);
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
}

TEST_F(CRequest, ADiskThatCannotBeToldIsTheCodeOfTheWindowsFailure) {
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  varnel_request* request = MakeReady();
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_CALL_FAILED);
  const varnel_outcome outcome = OutcomeOf(request);
  EXPECT_EQ(outcome.hresult, HResultFromWin32(ERROR_ACCESS_DENIED));
  EXPECT_THAT(outcome.message, HasSubstr("GetSystemDirectoryW"));
  EXPECT_EQ(outcome.backup_status, outcome.hresult);
  varnel_request_complete(request, outcome.backup_status);
}

TEST_F(CRequest, ASetIsBrokenMaskedDeletedAndDisconnected) {
  const std::map<const char*, int (*)(varnel_request*)> operations = {
      {"IVssBackupComponents::BreakSnapshotSet", varnel_request_break},
      {"IVssBackupComponentsEx2::BreakSnapshotSetEx", varnel_request_mask},
      {"IVssBackupComponents::DeleteSnapshots", varnel_request_delete},
      {"GetIScsiSessionListW", varnel_request_disconnect}};
  for (const auto& [call, operation] : operations) {
    varnel_request_options options = {};
    options.context = VARNEL_CONTEXT_APP_ROLLBACK;
    varnel_request* request = MakeTaken(options);
    varnel_request_complete(request, 0);
    EXPECT_EQ(operation(request), VARNEL_DONE) << call << " " << OutcomeOf(request).message;
    EXPECT_THAT(Calls(call), Not(IsEmpty())) << call;
  }
}

TEST_F(CRequest, LooksForProviderWritersAndDisks) {
  varnel_request* request = Make();
  int found = 0;
  EXPECT_EQ(varnel_request_find_provider(request, &found), VARNEL_DONE);
  EXPECT_EQ(found, 1);
  EXPECT_EQ(varnel_request_set_provider(request, "{00000000-1111-2222-3333-444444444444}"), VARNEL_DONE);
  EXPECT_EQ(varnel_request_find_provider(request, &found), VARNEL_DONE);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(varnel_request_set_provider(request, nullptr), VARNEL_DONE);
  EXPECT_EQ(varnel_request_find_provider(request, &found), VARNEL_DONE);
  EXPECT_EQ(found, 1);
  EXPECT_EQ(varnel_request_find_writer(request, &found), VARNEL_DONE);
  EXPECT_EQ(found, 1);
  const char* const* disks = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(varnel_request_read_disks(request, &disks, &count), VARNEL_DONE);
  EXPECT_THAT(std::vector<std::string>(disks, disks + count), ElementsAre("TSL0001", "TSL0002"));
}

TEST_F(CRequest, ASetIsTakenWithTheProviderThatWasNamed) {
  constexpr char kSecond[] = "{5ec0d000-1111-2222-3333-444455556666}";
  model().providers.push_back(
      {ParseGuid<GUID>("{5ec0d000-1111-2222-3333-444455556666}"), L"Second", VSS_PROV_HARDWARE, L"1"});
  varnel_request_options options = {};
  options.provider_id = kSecond;
  varnel_request* request = MakeTaken(options);
  EXPECT_THAT(Calls("IVssBackupComponents::AddToSnapshotSet").at(0), HasSubstr(kSecond));
  varnel_request_complete(request, 0);
}

TEST_F(CRequest, ChecksHostAndVolumesOfTheApplication) {
  varnel_request* plain = Make();
  EXPECT_EQ(varnel_request_validate_host(plain), VARNEL_DONE);
  model().os.server = false;
  varnel_request_options options = {};
  options.application = VARNEL_HYPER_V;
  varnel_request* request = Make(options);
  EXPECT_EQ(varnel_request_validate_host(request), VARNEL_UNSUPPORTED_OS);
  const varnel_outcome outcome = OutcomeOf(request);
  EXPECT_THAT(outcome.message, HasSubstr("not supported"));
  EXPECT_THAT(outcome.alert_records, Not(std::string()));
  EXPECT_EQ(outcome.backup_status, -1);
  const char* const volumes[] = {"E:\\"};
  EXPECT_EQ(varnel_request_validate_volumes(request, volumes, 1), VARNEL_DONE);
}

TEST_F(CRequest, OnlyTheApplicationsWritersTakePart) {
  varnel_request_options options = {};
  for (const int application : {VARNEL_SQL_SERVER, VARNEL_EXCHANGE, VARNEL_HYPER_V}) {
    options.application = application;
    int found = 1;
    varnel_request* request = Make(options);
    EXPECT_EQ(varnel_request_find_writer(request, &found), VARNEL_DONE);
    EXPECT_EQ(found, 0);
  }
}

TEST_F(CRequest, GathersTheWritersWithoutASnapshot) {
  varnel_request* request = MakeReady();
  EXPECT_EQ(varnel_request_gather(request), VARNEL_DONE);
  EXPECT_EQ(CountOf(request, varnel_request_get_writer_count), 1U);
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_BAD_ORDER);
  varnel_request_complete(request, -1);
}

TEST_F(CRequest, TestPointsFailItOnPurpose) {
  varnel_request_options options = {};
  options.test_points = 1;
  varnel_request* request = MakeReady(options);
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_CALL_FAILED);
  EXPECT_EQ(OutcomeOf(request).hresult, VSS_E_UNEXPECTED_WRITER_ERROR);
  varnel_request_complete(request, OutcomeOf(request).backup_status);
}

TEST_F(CRequest, VerifiesTheFilesOfExchange) {
  simulator::HostModel model = HostWithEveryApplication();
  model.commands = {{L"eseutil.exe*", 1}};
  Install(std::move(model));
  varnel_request_options options = {};
  options.application = VARNEL_EXCHANGE;
  varnel_request* request = MakeReady(options, {"TSL0001"});
  ASSERT_EQ(varnel_request_snapshot(request), VARNEL_DONE) << OutcomeOf(request).message;
  EXPECT_EQ(varnel_request_verify(request), VARNEL_VERIFICATION_FAILURE);
  varnel_request_complete(request, OutcomeOf(request).backup_status);
}

}  // namespace
}  // namespace varnel::test
