// The simulated host except its VSS objects: host files, documents, fault plan, live objects, and every question.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>

#include "platform/owners.h"
#include "simulator/host_file/documents.h"
#include "simulator/machine/result_names.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/host_fixture.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

using test::HostFixture;
using test::VolumeName;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr GUID kArrayProvider = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
constexpr GUID kSession = ParseGuid<GUID>("{00000000-0000-0000-0000-00000000a5a5}");
constexpr DWORD kFilenameExceedsRange = 206;
constexpr wchar_t kFirstCopyDevice[] = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";

std::filesystem::path SourceFolder() {
  return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
}

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The error of a host file with this text; empty when it is a good one.
std::string ErrorOf(const std::string& json, const std::filesystem::path& directory = {}) {
  try {
    ParseHostFile(json, "host.json", directory);
  } catch (const HostFileError& error) {
    return error.what();
  }
  return {};
}

std::string DocumentErrorOf(const std::string& xml) {
  try {
    ParseWriterMetadata(xml);
  } catch (const DocumentError& error) {
    return error.what();
  }
  return {};
}

// A folder of its own that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() / (std::string("varnel-") + info->test_suite_name() + info->name());
    std::filesystem::create_directories(path_);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
  }

 private:
  std::filesystem::path path_;
};

// ---- Texts and results

TEST(Patterns, StarsStandForAnyTextAndQuestionMarksForOneCharacter) {
  EXPECT_TRUE(ascii::MatchesPattern(L"eseutil.exe /k *", L"eseutil.exe /k \"E:\\MDB1\""));
  EXPECT_TRUE(ascii::MatchesPattern(L"*.EDB", L"mdb1.edb"));
  EXPECT_TRUE(ascii::MatchesPattern(L"a*b*c", L"a-b-b-c"));
  EXPECT_TRUE(ascii::MatchesPattern(L"E0?", L"e01"));
  EXPECT_TRUE(ascii::MatchesPattern(L"*", L""));
  EXPECT_FALSE(ascii::MatchesPattern(L"E0?", L"e0"));
  EXPECT_FALSE(ascii::MatchesPattern(L"a*b", L"a-b-c"));
  EXPECT_FALSE(ascii::MatchesPattern(L"", L"a"));
}

TEST(Patterns, ManyStarsDoNotTakeExponentialTime) {
  const std::wstring text(2000, L'a');
  EXPECT_FALSE(ascii::MatchesPattern(L"*a*a*a*a*a*a*a*a*a*a*a*a*b", text));
}

TEST(Results, KnownCodesHaveNamesAndOthersAreHexadecimal) {
  EXPECT_EQ(ResultName(S_OK), "S_OK");
  EXPECT_EQ(ResultName(VSS_E_BAD_STATE), "VSS_E_BAD_STATE");
  EXPECT_EQ(ResultName(VSS_S_ASYNC_FINISHED), "VSS_S_ASYNC_FINISHED");
  EXPECT_EQ(ResultName(VSS_E_WRITER_STATUS_NOT_AVAILABLE), "VSS_E_WRITER_STATUS_NOT_AVAILABLE");
  EXPECT_EQ(ResultName(E_INVALIDARG), "E_INVALIDARG");
  EXPECT_EQ(ResultName(static_cast<HRESULT>(0x80040e14)), "0x80040e14");
}

TEST(Results, AreReadFromNamesHexadecimalAndDecimalText) {
  EXPECT_EQ(ParseResult("VSS_E_PROVIDER_VETO"), 0x80042306u);
  EXPECT_EQ(ParseResult("VSS_E_FSS_TIMEOUT"), 0x80042417u);
  EXPECT_EQ(ParseResult("0x80040e14"), 0x80040e14u);
  EXPECT_EQ(ParseResult("5"), 5u);
  EXPECT_EQ(ParseResult("4294967295"), 0xFFFFFFFFu);
  for (const char* bad : {"", "VSS_E_NOPE", "0x", "0x123456789", "12x", "-1", "4294967296", " 5"}) {
    EXPECT_EQ(ParseResult(bad), std::nullopt) << bad;
  }
}

// ---- Fault plan, call log, live objects

TEST(FaultPlan, FailsOnlyTheOccurrenceThatWasPlanned) {
  FaultPlan plan;
  plan.FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
  EXPECT_EQ(plan.OnCall("CreateFileW"), std::nullopt);
  EXPECT_EQ(plan.OnCall("DeviceIoControl"), std::nullopt);
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(plan.OnCall("CreateFileW"), std::nullopt);
}

TEST(FaultPlan, OccurrenceZeroFailsEveryOne) {
  FaultPlan plan;
  plan.FailCall("CreateFileW", ERROR_ACCESS_DENIED, 0);
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
}

TEST(FaultPlan, CountsOccurrencesFromTheMomentTheFaultIsPlanned) {
  FaultPlan plan;
  plan.FailCall("A", 1, 1);
  plan.OnCall("A");
  plan.OnCall("A");
  plan.FailCall("A", 7, 1);
  EXPECT_EQ(plan.OnCall("A"), 7u);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
}

TEST(FaultPlan, TheNthCallFailsWhateverItIs) {
  FaultPlan plan;
  plan.FailNthCall(2, 5);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
  EXPECT_FALSE(plan.fired());
  EXPECT_EQ(plan.OnCall("B"), 5u);
  EXPECT_EQ(plan.OnCall("C"), std::nullopt);
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(plan.firedAt(), "B");
  EXPECT_EQ(plan.callCount(), 3);
}

TEST(FaultPlan, APersistentFaultFailsTheNthCallAndAllAfterIt) {
  FaultPlan plan;
  plan.FailNthCall(2, 5, true);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
  EXPECT_EQ(plan.OnCall("B"), 5u);
  EXPECT_EQ(plan.OnCall("C"), 5u);
  EXPECT_EQ(plan.firedAt(), "B");
}

TEST(FaultPlan, AsynchronousOperationsAndWritersFailByName) {
  FaultPlan plan;
  plan.FailAsync("DoSnapshotSet", VSS_E_HOLD_WRITES_TIMEOUT);
  plan.FailWriter({L"SqlServerWriter", WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT, 0, L"", {}});
  EXPECT_EQ(plan.OnAsync("PrepareForBackup"), std::nullopt);
  EXPECT_EQ(plan.OnAsync("DoSnapshotSet"), VSS_E_HOLD_WRITES_TIMEOUT);
  EXPECT_EQ(plan.OnAsync("DoSnapshotSet"), std::nullopt);
  ASSERT_NE(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::freeze), nullptr);
  EXPECT_EQ(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::freeze)->failure, VSS_E_WRITERERROR_TIMEOUT);
  EXPECT_EQ(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::thaw), nullptr);
  EXPECT_EQ(plan.OnWriterEvent(L"System Writer", WriterEvent::freeze), nullptr);
}

TEST(FaultPlan, DeletionsFailByTheDiskUntilThePlanIsReplaced) {
  FaultPlan plan;
  plan.FailDeletion({L"TSL0001", VSS_E_PROVIDER_VETO});
  EXPECT_EQ(plan.OnDeletion(L"TSL0002"), std::nullopt);
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), VSS_E_PROVIDER_VETO);
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), VSS_E_PROVIDER_VETO);
  plan.Load({});
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), std::nullopt);
}

TEST(CallLog, FindsTheLinesOfOneCall) {
  CallLog log;
  log.Add("A(1) = ok");
  log.Add("AB(2) = ok");
  log.Add("A(3) = ok");
  EXPECT_THAT(log.Of("A"), ElementsAre("A(1) = ok", "A(3) = ok"));
}

TEST(LiveObjects, AreCountedByKindAndDescribedInOrder) {
  LiveObjects live;
  live.Add("IVssAsync");
  live.Add("BSTR");
  live.Add("BSTR");
  EXPECT_EQ(live.Count(), 3);
  EXPECT_EQ(live.Count("BSTR"), 2);
  EXPECT_EQ(live.Describe(), "2 BSTR, 1 IVssAsync");
  live.Remove("IVssAsync");
  EXPECT_EQ(live.Describe(), "2 BSTR");
  EXPECT_THAT(live.misuses(), IsEmpty());
  live.Remove("IVssAsync");
  EXPECT_THAT(live.misuses(), ElementsAre("IVssAsync given back too often"));
}

TEST(Machine, MakesTheSameIdentifiersOnEveryRun) {
  const auto first = std::make_shared<Machine>(HostModel{});
  const auto second = std::make_shared<Machine>(HostModel{});
  const GUID a = first->NewId();
  const GUID b = first->NewId();
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(second->NewId() == a);
  EXPECT_TRUE(second->NewId() == b);
}

TEST(Machine, CountsTextsAndRefusesOnesItNeverHandedOut) {
  const auto machine = std::make_shared<Machine>(HostModel{});
  BSTR text = machine->MakeBstr(L"volume");
  EXPECT_EQ(machine->live.Describe(), "1 BSTR");
  machine->FreeTask(text);
  EXPECT_THAT(machine->live.misuses(), SizeIs(1));
  machine->FreeBstr(text);
  machine->FreeBstr(text);
  EXPECT_THAT(machine->live.misuses(), SizeIs(2));
  machine->FreeBstr(nullptr);
  wchar_t* task = machine->MakeTaskText(L"volume");
  EXPECT_STREQ(task, L"volume");
  EXPECT_EQ(machine->live.Describe(), "1 task memory");
  machine->FreeTask(task);
  EXPECT_EQ(machine->live.Describe(), "");
  EXPECT_THAT(machine->live.misuses(), SizeIs(2));
}

// ---- Writer Metadata Documents

const char kSmallDocument[] =
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.2\" backupSchema=\"881\">"
    "<IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" "
    "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" instanceName=\"SQL &amp; more\" "
    "friendlyName=\"SqlServerWriter\" usage=\"USER_DATA\" dataSource=\"TRANSACTION_DB\" majorVersion=\"1\" "
    "minorVersion=\"2\"/>"
    "<RESTORE_METHOD method=\"STOP_RESTORE_START\" service=\"svc\" userProcedure=\"proc\" writerRestore=\"always\" "
    "rebootRequired=\"yes\"/>"
    "<BACKUP_LOCATIONS>"
    "<FILE_GROUP logicalPath=\"SQL01\" componentName=\"sales\" caption=\"one&#13;&#10;two\" restoreMetadata=\"yes\" "
    "notifyOnBackupComplete=\"yes\" selectable=\"no\" selectableForRestore=\"yes\" componentFlags=\"2\">"
    "<FILE_LIST path=\"E:\\data\" filespec=\"*\" recursive=\"yes\" alternatePath=\"E:\\alt\" "
    "filespecBackupType=\"3855\"/>"
    "</FILE_GROUP>"
    "<DATABASE componentName=\"m\xC3\xBC\" restoreMetadata=\"no\" notifyOnBackupComplete=\"no\" selectable=\"yes\" "
    "selectableForRestore=\"no\" componentFlags=\"0\">"
    "<DATABASE_FILES path=\"E:\\\" filespec=\"a.mdf\" filespecBackupType=\"3855\"/>"
    "<DATABASE_LOGFILES path=\"F:\\\" filespec=\"a.ldf\" filespecBackupType=\"15\"/>"
    "</DATABASE>"
    "<EXCLUDE_FILES path=\"E:\\tmp\" filespec=\"*\" recursive=\"no\"/>"
    "<EXCLUDE_FILES_FROM_SNAPSHOT path=\"\\Heat\" filespec=\"*.*\" recursive=\"yes\"/>"
    "</BACKUP_LOCATIONS></WRITER_METADATA>";

TEST(WriterMetadataDocument, IsReadWithEveryAttribute) {
  const Writer writer = ParseWriterMetadata(kSmallDocument);
  EXPECT_EQ(writer.name, L"SqlServerWriter");
  EXPECT_EQ(FormatGuid(writer.writerId), L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_EQ(writer.instanceName, L"SQL & more");
  EXPECT_EQ(writer.usage, VSS_UT_USERDATA);
  EXPECT_EQ(writer.source, VSS_ST_TRANSACTEDDB);
  EXPECT_EQ(writer.backupSchema, 881u);
  ASSERT_TRUE(writer.restoreMethod);
  EXPECT_EQ(writer.restoreMethod->method, VSS_RME_STOP_RESTORE_START);
  EXPECT_EQ(writer.restoreMethod->writerRestore, VSS_WRE_ALWAYS);
  EXPECT_TRUE(writer.restoreMethod->rebootRequired);
  ASSERT_THAT(writer.components, SizeIs(2));
  const WriterComponent& group = writer.components[0];
  EXPECT_EQ(group.type, VSS_CT_FILEGROUP);
  EXPECT_EQ(FullPath(group), L"\\SQL01\\sales");
  EXPECT_EQ(group.caption, L"one\r\ntwo");
  EXPECT_FALSE(group.selectable);
  EXPECT_EQ(group.componentFlags, 2u);
  ASSERT_THAT(group.files, SizeIs(1));
  EXPECT_TRUE(group.files[0].recursive);
  EXPECT_EQ(group.files[0].alternatePath, L"E:\\alt");
  const WriterComponent& database = writer.components[1];
  EXPECT_EQ(database.type, VSS_CT_DATABASE);
  EXPECT_EQ(database.name, L"m\u00fc");
  EXPECT_EQ(database.logicalPath, std::nullopt);
  EXPECT_EQ(database.caption, std::nullopt);
  EXPECT_EQ(FullPath(database), L"\\m\u00fc");
  ASSERT_THAT(database.logFiles, SizeIs(1));
  EXPECT_EQ(database.logFiles[0].backupTypeMask, 15u);
  ASSERT_THAT(writer.excludeFilesFromSnapshot, SizeIs(1));
  EXPECT_EQ(writer.excludeFilesFromSnapshot[0].path, L"\\Heat");
}

TEST(WriterMetadataDocument, IsWrittenAsItWasRead) {
  EXPECT_EQ(FormatWriterMetadata(ParseWriterMetadata(kSmallDocument)), kSmallDocument);
}

TEST(WriterMetadataDocument, TakesWhiteSpaceCommentsAndUnknownContentInItsStride) {
  const Writer writer = ParseWriterMetadata(
      "<?xml version=\"1.0\"?>\r\n<!-- a > b --><WRITER_METADATA newer=\"1\">\r\n\t<NEWER><X/></NEWER>\r\n"
      "\t<BACKUP_LOCATIONS><FILE_GROUP componentName='a>b'/></BACKUP_LOCATIONS>\r\n"
      "\t<IDENTIFICATION writerId=\"A65FAA63-5EA8-4EBC-9DBD-A0C4DB26912A\" "
      "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" friendlyName=\"x\" "
      "another=\"\"/>\r\n</WRITER_METADATA>\r\n");
  EXPECT_EQ(FormatGuid(writer.writerId), L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_EQ(writer.restoreMethod, std::nullopt);
  ASSERT_THAT(writer.components, SizeIs(1));
  EXPECT_EQ(writer.components[0].name, L"a>b");
}

TEST(WriterMetadataDocument, SaysPreciselyWhyAnotherTextIsNone) {
  const std::string id =
      "<IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" "
      "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" friendlyName=\"x\"/>";
  const auto document = [&](const std::string& content) {
    return "<WRITER_METADATA>" + content + "</WRITER_METADATA>";
  };
  EXPECT_EQ(DocumentErrorOf(""), "not XML: there is no element");
  EXPECT_EQ(DocumentErrorOf("<a>\n<b></a>"), "not XML: line 2: </a> does not close the open element");
  EXPECT_EQ(DocumentErrorOf("<a>\n"), "not XML: line 2: <a> is not closed");
  EXPECT_EQ(DocumentErrorOf("<a/><b/>"), "not XML: there is more than one root element");
  EXPECT_THAT(DocumentErrorOf("<WRITER_METADATA>\n<a b=c/></WRITER_METADATA>"), StartsWith("not XML: line 2: "));
  EXPECT_EQ(DocumentErrorOf(std::string("<a/>\0", 5)), "not XML: it contains a NUL character");
  EXPECT_EQ(DocumentErrorOf("<BACKUP_COMPONENTS/>"), "the root element is BACKUP_COMPONENTS, not WRITER_METADATA");
  EXPECT_EQ(DocumentErrorOf(document("")), "no IDENTIFICATION");
  EXPECT_EQ(DocumentErrorOf(document(id + id)), "more than one IDENTIFICATION");
  EXPECT_EQ(DocumentErrorOf(document("<IDENTIFICATION friendlyName=\"x\"/>")), "IDENTIFICATION without writerId");
  EXPECT_EQ(DocumentErrorOf(document("<IDENTIFICATION writerId=\"{1}\"/>")),
            "IDENTIFICATION: writerId \"{1}\" is no GUID");
  EXPECT_EQ(DocumentErrorOf(document(id + "<RESTORE_METHOD method=\"SOMEHOW\"/>")),
            "RESTORE_METHOD: method \"SOMEHOW\" is unknown");
  EXPECT_EQ(DocumentErrorOf(document(id + "<BACKUP_LOCATIONS><FILE_GROUP/></BACKUP_LOCATIONS>")),
            "FILE_GROUP without componentName");
  EXPECT_EQ(DocumentErrorOf(document(
                id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"a\" selectable=\"maybe\"/></BACKUP_LOCATIONS>")),
            "FILE_GROUP: selectable \"maybe\" is unknown");
  EXPECT_EQ(DocumentErrorOf(document(
                id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"a\" componentFlags=\"-1\"/></BACKUP_LOCATIONS>")),
            "FILE_GROUP: componentFlags \"-1\" is out of range");
  EXPECT_EQ(DocumentErrorOf(document(id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"\xFF\"/></BACKUP_LOCATIONS>")),
            "not XML: it is not UTF-8");
}

TEST(WriterMetadataDocument, RefusesDeepNestingInsteadOfRunningOutOfStack) {
  std::string xml;
  for (int i = 0; i < 200000; ++i) xml += "<a>";
  EXPECT_EQ(DocumentErrorOf(xml), "not XML: line 1: elements nested deeper than 64");
}

TEST(WriterMetadataDocument, HoldsTwentyThousandFilesInOneComponent) {
  Writer writer = ParseWriterMetadata(kSmallDocument);
  writer.components[0].files.assign(20000, {L"C:\\Windows\\winsxs\\a-rather-long-folder-name-for-one-file", L"x.dll"});
  writer.components[0].files.back().filespec = L"last.dll";
  const Writer read = ParseWriterMetadata(FormatWriterMetadata(writer));
  ASSERT_THAT(read.components[0].files, SizeIs(20000));
  EXPECT_EQ(read.components[0].files.back().filespec, L"last.dll");
}

TEST(WriterMetadataDocument, CapturesOfARealServerAreReadWholly) {
  const char* folder = std::getenv("VARNEL_CAPTURES");
  const std::filesystem::path captures = folder == nullptr ? "" : folder;
  if (folder == nullptr || !std::filesystem::is_directory(captures)) {
    GTEST_SKIP() << "VARNEL_CAPTURES does not name a folder with captured documents";
  }
  std::size_t writers = 0;
  std::size_t groups = 0;
  std::size_t files = 0;
  std::size_t exclusions = 0;
  std::size_t snapshotExclusions = 0;
  for (const auto& entry : std::filesystem::directory_iterator(captures)) {
    if (!entry.path().filename().string().starts_with("WM")) continue;
    const Writer writer = ParseWriterMetadata(ReadText(entry.path()));
    const std::string written = FormatWriterMetadata(writer);
    EXPECT_EQ(FormatWriterMetadata(ParseWriterMetadata(written)), written);
    ++writers;
    groups += writer.components.size();
    for (const WriterComponent& component : writer.components) files += component.files.size();
    exclusions += writer.excludeFiles.size();
    snapshotExclusions += writer.excludeFilesFromSnapshot.size();
  }
  EXPECT_EQ(writers, 11u);
  EXPECT_EQ(groups, 24u);
  EXPECT_EQ(files, 18960u);
  EXPECT_EQ(exclusions, 8u);
  EXPECT_EQ(snapshotExclusions, 17u);
}

// ---- Host files

TEST(HostFile, NeedsOnlyItsDisks) {
  const HostModel model = ParseHostFile("{ \"disks\": [ { \"serial\": \"A\" }, { \"serial\": null } ] }", "h", {});
  ASSERT_THAT(model.disks, SizeIs(2));
  EXPECT_EQ(model.disks[0].serial, L"A");
  EXPECT_TRUE(model.disks[0].reportsSerial);
  EXPECT_EQ(model.disks[1].number, 1u);
  EXPECT_FALSE(model.disks[1].reportsSerial);
  EXPECT_EQ(model.computerName, L"HOST");
  EXPECT_THAT(model.providers, IsEmpty());
  EXPECT_FALSE(model.vssMessages);
  EXPECT_FALSE(model.cluster);
}

const char kFullHost[] = R"json({
  // every key once
  "computerName": "SQL01",
  "systemDirectory": "D:\\WinNT\\system32",
  "environment": { "Data": "E:\\data" },
  "os": { "server": false, "version": "6.3.9600", "servicePack": 1 },
  "cluster": { "name": "CLU01", "networkNames": { "sqlvirt": "sqlnet" } },
  "disks": [ { "serial": "TSL0001", "number": 4, "vendor": "Tessel", "system": true, "clustered": true,
               "volumes": [ { "name": "\\\\?\\Volume{00000004-0000-0000-0000-000000000000}\\",
                              "mountPoints": ["E:\\", "C:\\mnt\\"], "csv": true, "label": "data" } ] } ],
  "providers": [ { "id": "{374579AD-285c-49b9-ab8a-950e0e252de2}", "name": "P", "type": "hardware", "version": "1.0" } ],
  "writers": [ { "name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}", "instanceName": "I",
                 "usage": "systemService", "source": "nonTransactedDb", "majorVersion": 1, "minorVersion": 2,
                 "backupSchema": 3, "restoreMethod": "restoreStopStart", "service": "s", "userProcedure": "u",
                 "writerRestore": "ifReplaceFails", "rebootRequired": true,
                 "excludeFiles": [ { "path": "E:\\tmp", "filespec": "*", "recursive": true } ],
                 "excludeFilesFromSnapshot": [ { "path": "E:\\x", "filespec": "y" } ],
                 "components": [ { "type": "database", "logicalPath": "", "name": "c", "caption": "", "selectable": false,
                                   "restoreMetadata": true, "selectableForRestore": true, "componentFlags": 4,
                                   "databaseFiles": [ { "path": "E:\\", "filespec": "c.mdf", "backupType": 15 } ],
                                   "logFiles": [ { "path": "E:\\", "filespec": "c.ldf", "alternatePath": "F:\\" } ] } ] } ],
  "databases": { "TSL0001": "sales@sql01" },
  "iscsiSessions": [ { "targetName": "iqn", "devices": [ { "shadowOf": "TSL0001", "appearsAfter": 4 },
                                                     { "disk": "TSL0001" } ],
                       "busyQueries": 1, "failedLogouts": 2, "appearsAfter": 3 } ],
  "files": { "C:\\Vmms.exe": { "version": "6.3.9600.17120" } },
  "registry": { "HKEY_LOCAL_MACHINE\\A\\B": { "V": "text" } },
  "commands": [ { "match": "a *", "exitCode": 3 } ],
  "messages": { "0x80004005": "m", "5": "n" },
  "vssMessages": { "VSS_E_BAD_STATE": "v" },
  "faults": [ { "call": "IVssAsync::Wait", "occurrence": 2, "result": "VSS_E_PROVIDER_VETO" },
              { "call": "CreateFileW", "occurrence": 0, "result": 5 },
              { "async": "DoSnapshotSet", "result": "0x80042314" },
              { "writer": "W", "event": "postSnapshot", "failure": "VSS_E_WRITERERROR_PARTIAL_FAILURE",
                "applicationResult": "0x1", "applicationMessage": "log full",
                "components": [ { "fullPath": "\\c", "failure": "VSS_E_WRITERERROR_RETRYABLE" } ] },
              { "deleteShadowOf": "TSL0001", "result": "VSS_E_PROVIDER_VETO" } ],
  "timing": { "freezeMilliseconds": 100, "commitMilliseconds": 200 }
})json";

TEST(HostFile, FillsTheMachinePartOfTheModel) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_EQ(model.computerName, L"SQL01");
  EXPECT_EQ(model.systemDirectory, L"D:\\WinNT\\system32");
  EXPECT_EQ(model.environment.at(L"Data"), L"E:\\data");
  EXPECT_FALSE(model.os.server);
  EXPECT_EQ(model.os.major, 6u);
  EXPECT_EQ(model.os.build, 9600u);
  EXPECT_EQ(model.os.servicePack, 1);
  ASSERT_TRUE(model.cluster);
  EXPECT_EQ(model.cluster->networkNames.at(L"sqlvirt"), L"sqlnet");
  ASSERT_THAT(model.disks, SizeIs(1));
  EXPECT_EQ(model.disks[0].number, 4u);
  EXPECT_TRUE(model.disks[0].system && model.disks[0].clustered);
  EXPECT_THAT(model.disks[0].volumes.at(0).mountPoints, ElementsAre(L"E:\\", L"C:\\mnt\\"));
  EXPECT_TRUE(model.disks[0].volumes[0].csv);
  EXPECT_EQ(model.iscsiSessions.at(0).failedLogouts, 2);
  EXPECT_EQ(model.iscsiSessions[0].appearsAfter, 3);
  EXPECT_EQ(model.iscsiSessions[0].devices.at(0).appearsAfter, 4);
  EXPECT_EQ(model.iscsiSessions[0].devices.at(1).appearsAfter, 0);
  EXPECT_TRUE(model.iscsiSessions[0].devices.at(0).shadow);
  EXPECT_FALSE(model.iscsiSessions[0].devices.at(1).shadow);
  EXPECT_EQ(model.registry.at(L"HKEY_LOCAL_MACHINE\\A\\B").at(L"V"), L"text");
  EXPECT_EQ(model.commands.at(0).exitCode, 3u);
  EXPECT_EQ(model.messages.at(5), L"n");
  EXPECT_EQ(model.vssMessages->at(0x80042301), L"v");
  EXPECT_EQ(model.freezeMilliseconds, 100u);
  EXPECT_EQ(model.commitMilliseconds, 200u);
}

TEST(HostFile, FillsTheServicePartOfTheModel) {
  const HostModel model = ParseHostFile(kFullHost, "h", {});
  EXPECT_EQ(model.providers.at(0).type, VSS_PROV_HARDWARE);
  EXPECT_TRUE(model.providers[0].id == kArrayProvider);
  const Writer& writer = model.writers.at(0);
  EXPECT_EQ(writer.usage, VSS_UT_SYSTEMSERVICE);
  EXPECT_EQ(writer.source, VSS_ST_NONTRANSACTEDDB);
  ASSERT_TRUE(writer.restoreMethod);
  EXPECT_EQ(writer.restoreMethod->method, VSS_RME_RESTORE_STOP_START);
  EXPECT_EQ(writer.restoreMethod->writerRestore, VSS_WRE_IF_REPLACE_FAILS);
  const WriterComponent& component = writer.components.at(0);
  EXPECT_EQ(component.type, VSS_CT_DATABASE);
  EXPECT_EQ(component.logicalPath, L"");
  EXPECT_EQ(component.caption, L"");
  EXPECT_EQ(component.databaseFiles.at(0).backupTypeMask, 15u);
  EXPECT_EQ(component.logFiles.at(0).alternatePath, L"F:\\");
  EXPECT_EQ(writer.excludeFilesFromSnapshot.at(0).path, L"E:\\x");
  EXPECT_EQ(model.faults.calls.at(0).result, 0x80042306u);
  EXPECT_EQ(model.faults.calls.at(1).occurrence, 0);
  EXPECT_EQ(model.faults.asyncs.at(0).result, VSS_E_HOLD_WRITES_TIMEOUT);
  EXPECT_EQ(model.faults.writers.at(0).event, WriterEvent::postSnapshot);
  EXPECT_EQ(model.faults.writers[0].components.at(0).fullPath, L"\\c");
  EXPECT_EQ(model.faults.deletions.at(0).shadowOf, L"TSL0001");
  EXPECT_EQ(model.faults.deletions[0].result, VSS_E_PROVIDER_VETO);
}

TEST(HostFile, DerivesInstanceIdentifiersThatDifferAndStayTheSame) {
  const std::string json =
      R"({"disks": [], "writers": [ {"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}"},
                                    {"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}"} ]})";
  const HostModel once = ParseHostFile(json, "h", {});
  const HostModel again = ParseHostFile(json, "h", {});
  EXPECT_FALSE(once.writers[0].instanceId == once.writers[1].instanceId);
  EXPECT_TRUE(once.writers[0].instanceId == again.writers[0].instanceId);
  EXPECT_TRUE(once.writers[1].instanceId == again.writers[1].instanceId);
}

struct BadHostFile {
  const char* name;
  std::string json;
  const char* error;
};

class BadHostFiles : public testing::TestWithParam<BadHostFile> {};

TEST_P(BadHostFiles, AreErrorsThatNameFilePlaceAndReason) {
  EXPECT_EQ(ErrorOf(GetParam().json), GetParam().error);
}

// A host with one disk that holds these volumes; one with this writer and what else is given.
std::string WithVolumes(const std::string& volumes) {
  return R"({"disks": [{"serial": "a", "volumes": [)" + volumes + "]}]}";
}
std::string NamedVolume(int n, const std::string& more = "") {
  return R"({"name": "\\\\?\\Volume{0000000)" + std::to_string(n) + R"(-0000-0000-0000-000000000000}\\")" + more + "}";
}
std::string WithWriter(const std::string& writerKeys, const std::string& hostKeys = "") {
  return R"({"disks": [], "writers": [{"name": "W", "writerId": "{00000000-0000-0000-0000-000000000001}")" +
         writerKeys + "}]" + hostKeys + "}";
}

INSTANTIATE_TEST_SUITE_P(
    All, BadHostFiles,
    testing::Values(
        BadHostFile{"NoObject", "[]", "host.json: /: expected object, found array"},
        BadHostFile{"MissingDisks", "{}", "host.json: /: missing key \"disks\""},
        BadHostFile{"UnknownKey", R"({"disks": [], "disk": []})", "host.json: /disk: unknown key"},
        BadHostFile{"UnknownNestedKey", R"({"disks": [{"serial": "A", "a/b~": 1}]})",
                    "host.json: /disks/0/a~1b~0: unknown key"},
        BadHostFile{"DuplicateKey", R"({"disks": [{}, {"serial": "A", "serial": "B"}]})",
                    "host.json: /disks/1/serial: the key stands twice"},
        BadHostFile{"WrongType", R"({"disks": [], "computerName": 1})",
                    "host.json: /computerName: expected string, found number"},
        BadHostFile{"NegativeNumber", R"({"disks": [{"serial": "A", "number": -1}]})",
                    "host.json: /disks/0/number: expected a whole number from 0 to 4294967295"},
        BadHostFile{"NulCharacter", R"({"disks": [], "computerName": "a\u0000b"})",
                    "host.json: /computerName: the text contains a NUL character"},
        BadHostFile{"DiskWithoutSerial", R"({"disks": [{}]})", "host.json: /disks/0: missing key \"serial\""},
        BadHostFile{"DuplicateSerial", R"({"disks": [{"serial": "a"}, {"serial": "A"}]})",
                    "host.json: /disks/1/serial: duplicate disk serial \"A\""},
        BadHostFile{"DuplicateNumber", R"({"disks": [{"serial": "a", "number": 1}, {"serial": "b"}]})",
                    "host.json: /disks/1: duplicate disk number \"1\""},
        BadHostFile{"BadVolumeName", R"({"disks": [{"serial": "a", "volumes": [{"name": "E:\\"}]}]})",
                    "host.json: /disks/0/volumes/0/name: \"E:\\\" is no volume name (\\\\?\\Volume{GUID}\\)"},
        BadHostFile{"DuplicateVolume", WithVolumes(NamedVolume(1) + "," + NamedVolume(1)),
                    "host.json: /disks/0/volumes/1/name: duplicate volume name "
                    "\"\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\\""},
        BadHostFile{"BadMountPoint", WithVolumes(NamedVolume(1, R"(, "mountPoints": ["E:"])")),
                    "host.json: /disks/0/volumes/0/mountPoints/0: \"E:\" is no mount point (X:\\ or a folder, with a "
                    "backslash behind it)"},
        BadHostFile{"DuplicateMountPoint",
                    WithVolumes(NamedVolume(1, R"(, "mountPoints": ["E:\\"])") + "," +
                                NamedVolume(2, R"(, "mountPoints": ["e:\\"])")),
                    "host.json: /disks/0/volumes/1/mountPoints/0: duplicate mount point \"e:\\\""},
        BadHostFile{"BadVersion", R"({"disks": [], "os": {"version": "10"}})",
                    "host.json: /os/version: \"10\" is no version (major.minor.build)"},
        BadHostFile{"BadGuid", R"({"disks": [], "providers": [{"id": "374579ad"}]})",
                    "host.json: /providers/0/id: \"374579ad\" is no GUID in braces"},
        BadHostFile{"BadEnumWord",
                    R"({"disks": [], "providers": [{"id": "{374579ad-285c-49b9-ab8a-950e0e252de2}", "type": "disk"}]})",
                    "host.json: /providers/0/type: \"disk\" is none of system, software, hardware, fileshare, unknown"},
        BadHostFile{"WriterWithoutId", R"({"disks": [], "writers": [{"name": "W"}]})",
                    "host.json: /writers/0: missing key \"writerId\""},
        BadHostFile{"DocumentWithMore", R"({"disks": [], "writers": [{"document": "a.xml", "name": "W"}]})",
                    "host.json: /writers/0/name: unknown key"},
        BadHostFile{"MissingDocument", R"({"disks": [], "writers": [{"document": "no/such.xml"}]})",
                    "host.json: /writers/0/document: cannot read \"no/such.xml\""},
        BadHostFile{"DatabaseFilesOfAFileGroup",
                    WithWriter(R"(, "components": [{"name": "c", "logFiles": [{"path": "a", "filespec": "b"}]}])"),
                    "host.json: /writers/0/components/0/logFiles: a file group has files only"},
        BadHostFile{"DatabasesOfAnUnknownDisk", R"({"disks": [{"serial": "A"}], "databases": {"B": "x@y"}})",
                    "host.json: /databases/B: no disk has the serial \"B\""},
        BadHostFile{"DeviceOfAnUnknownDisk",
                    R"({"disks": [{"serial": "A"}], "iscsiSessions": [{"devices": [{"shadowOf": "B"}]}]})",
                    "host.json: /iscsiSessions/0/devices/0/shadowOf: no disk has the serial \"B\""},
        BadHostFile{"DeviceThatIsBoth",
                    R"({"disks": [{"serial": "A"}], "iscsiSessions": [{"devices": [{"shadowOf": "A", "disk": "A"}]}]})",
                    "host.json: /iscsiSessions/0/devices/0: expected one of disk, shadowOf"},
        BadHostFile{"BadFileVersion", R"({"disks": [], "files": {"C:\\a": {"version": "1.2.3"}}})",
                    "host.json: /files/C:\\a/version: \"1.2.3\" is no file version (four numbers)"},
        BadHostFile{"BadRegistryKey", R"({"disks": [], "registry": {"HKLM\\A": {}}})",
                    "host.json: /registry/HKLM\\A: a key stands below HKEY_LOCAL_MACHINE\\ or HKEY_CURRENT_USER\\"},
        BadHostFile{"BadMessageId", R"({"disks": [], "messages": {"five": "x"}})",
                    "host.json: /messages/five: \"five\" is no result name, \"0x\" number or decimal code"},
        BadHostFile{"SameMessageTwice", R"({"disks": [], "messages": {"5": "x", "0x5": "y"}})",
                    "host.json: /messages/5: duplicate message \"5\""},
        BadHostFile{"FaultOfNothing", R"({"disks": [], "faults": [{"result": 5}]})",
                    "host.json: /faults/0: expected one of call, async, writer, deleteShadowOf"},
        BadHostFile{"DeletionFaultOfAnUnknownDisk",
                    R"({"disks": [], "faults": [{"deleteShadowOf": "A", "result": "VSS_E_PROVIDER_VETO"}]})",
                    "host.json: /faults/0/deleteShadowOf: no disk has the serial \"A\""},
        BadHostFile{"DeletionFaultThatIsNone",
                    R"({"disks": [{"serial": "A"}], "faults": [{"deleteShadowOf": "A", "result": "S_FALSE"}]})",
                    "host.json: /faults/0/result: a deletion that fails needs a failure"},
        BadHostFile{"DeletionFaultWithAnOccurrence",
                    R"({"disks": [{"serial": "A"}],
                        "faults": [{"deleteShadowOf": "A", "occurrence": 1, "result": "E_FAIL"}]})",
                    "host.json: /faults/0/occurrence: unknown key"},
        BadHostFile{"SessionThatAppearsBeforeTheStart",
                    R"({"disks": [], "iscsiSessions": [{"devices": [], "appearsAfter": -1}]})",
                    "host.json: /iscsiSessions/0/appearsAfter: expected a whole number from 0 to 2147483647"},
        BadHostFile{"DeviceThatAppearsAfterAWord",
                    R"({"disks": [{"serial": "A"}],
                        "iscsiSessions": [{"devices": [{"disk": "A", "appearsAfter": "later"}]}]})",
                    "host.json: /iscsiSessions/0/devices/0/appearsAfter: expected number, found string"},
        BadHostFile{"FaultWithABadCall", R"({"disks": [], "faults": [{"call": "a b", "result": 5}]})",
                    "host.json: /faults/0/call: \"a b\" is no call (Interface::Method or a function's name)"},
        BadHostFile{"FaultWithABadResult", R"({"disks": [], "faults": [{"call": "A", "result": "VSS_E_NOPE"}]})",
                    "host.json: /faults/0/result: \"VSS_E_NOPE\" is no result name, \"0x\" number or decimal code"},
        BadHostFile{"FaultOfAnUnknownWriter",
                    R"({"disks": [], "faults": [{"writer": "V", "event": "freeze", "failure": 5}]})",
                    "host.json: /faults/0/writer: no writer is named \"V\""},
        BadHostFile{"FaultAtAnUnknownEvent",
                    WithWriter("", R"(, "faults": [{"writer": "W", "event": "lunch", "failure": 5}])"),
                    "host.json: /faults/0/event: \"lunch\" is none of identify, prepareBackup, prepareSnapshot, "
                    "freeze, thaw, postSnapshot, backupComplete, backupShutdown"},
        BadHostFile{"FaultOfAnUnknownComponent",
                    WithWriter(R"(, "components": [{"name": "c"}])",
                               R"(, "faults": [{"writer": "W", "event": "freeze", "failure": 5,
                        "components": [{"fullPath": "c", "failure": 5}]}])"),
                    "host.json: /faults/0/components/0/fullPath: the writer has no component \"c\""}),
    [](const testing::TestParamInfo<BadHostFile>& test) { return std::string(test.param.name); });

TEST(HostFile, TextThatIsNoJsonIsReportedWithLineAndColumn) {
  EXPECT_THAT(ErrorOf("{\n  \"disks\": [,]\n}"), StartsWith("host.json: /: no JSON: line 2, column 13: "));
  EXPECT_THAT(ErrorOf(""), StartsWith("host.json: /: no JSON: line 1, column 1: "));
  EXPECT_THAT(ErrorOf("{\"disks\": [1e999]}"), StartsWith("host.json: /: no JSON: "));
  EXPECT_THAT(ErrorOf("{\"disks\": [\"\xFF\"]}"), StartsWith("host.json: /: no JSON: line 1, "));
}

TEST(HostFile, AMissingFileIsReportedUnderItsName) {
  for (const std::filesystem::path& path : {std::filesystem::path("no-such-folder/host.json"), SourceFolder()}) {
    try {
      LoadHostFile(path);
      ADD_FAILURE() << "loaded";
    } catch (const HostFileError& error) {
      const std::u8string name = path.u8string();
      EXPECT_EQ(error.what(), std::string(name.begin(), name.end()) + ": /: cannot read the file");
    }
  }
}

TEST(HostFile, ReadsWriterDocumentsBesideIt) {
  const TemporaryFolder folder;
  folder.Write("sql.xml", kSmallDocument);
  folder.Write("host.json", R"({"disks": [], "writers": [{"document": "sql.xml"}]})");
  const HostModel model = LoadHostFile(folder.path() / "host.json");
  ASSERT_THAT(model.writers, SizeIs(1));
  EXPECT_EQ(FormatWriterMetadata(model.writers[0]), kSmallDocument);
}

TEST(HostFile, ADocumentThatIsNoneIsReportedWithItsReasonInOneLine) {
  const TemporaryFolder folder;
  folder.Write("bad.xml", "<WRITER_METADATA/>");
  folder.Write("sql.xml", kSmallDocument);
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "bad.xml"}]})", folder.path()),
            "host.json: /writers/0/document: \"bad.xml\" is no Writer Metadata Document: no IDENTIFICATION");
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "a\nb"}]})", folder.path()),
            "host.json: /writers/0/document: cannot read \"a b\"");
  EXPECT_EQ(ErrorOf(R"({"disks": [], "writers": [{"document": "sql.xml"}, {"document": "sql.xml"}]})", folder.path()),
            "host.json: /writers/1: duplicate writer instance \"{235435d9-34d6-41ea-8c08-5958a9982636}\"");
}

TEST(ExampleHosts, AllLoadAndHaveASystemDiskAndTheArraysProvider) {
  for (const char* name : {"sql-server.json", "exchange.json", "hyperv-cluster.json", "plain.json"}) {
    SCOPED_TRACE(name);
    const HostModel model = LoadHostFile(SourceFolder() / "examples" / "hosts" / name);
    EXPECT_GE(model.disks.size(), 3u);
    EXPECT_TRUE(model.disks.at(0).system);
    EXPECT_TRUE(model.providers.at(0).id == kArrayProvider);
    EXPECT_GE(model.writers.size(), 11u);
  }
}

TEST(ExampleHosts, TheBuiltInSampleIsTheSqlServer) {
  const HostModel file = LoadHostFile(SourceFolder() / "examples" / "hosts" / "sql-server.json");
  const HostModel sample = SampleHost();
  EXPECT_EQ(sample.computerName, L"SQL01");
  ASSERT_EQ(sample.disks.size(), file.disks.size());
  for (std::size_t i = 0; i < file.disks.size(); ++i) EXPECT_EQ(sample.disks[i].serial, file.disks[i].serial);
  ASSERT_EQ(sample.writers.size(), file.writers.size());
  for (std::size_t i = 0; i < file.writers.size(); ++i) {
    EXPECT_EQ(FormatWriterMetadata(sample.writers[i]), FormatWriterMetadata(file.writers[i]));
  }
  EXPECT_EQ(sample.databases, file.databases);
}

// ---- Storage

class StorageTest : public HostFixture {
 protected:
  Storage& storage() { return host().storage(); }

  HANDLE Open(const std::wstring& name) {
    return storage().CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  DWORD OpenError(const std::wstring& name) {
    EXPECT_EQ(Open(name), INVALID_HANDLE_VALUE) << WideToUtf8(name);
    return host().GetLastError();
  }
  std::vector<char> Ask(HANDLE handle, DWORD code, std::size_t room = 4096) {
    std::vector<char> out(room);
    STORAGE_PROPERTY_QUERY query{};
    DWORD returned = 0;
    const bool property = code == IOCTL_STORAGE_QUERY_PROPERTY;
    const BOOL ok = storage().DeviceIoControl(handle, code, property ? &query : nullptr, property ? sizeof query : 0,
                                              out.data(), static_cast<DWORD>(out.size()), &returned, nullptr);
    out.resize(ok ? returned : 0);
    return out;
  }
  template <class Record>
  Record AskFor(HANDLE handle, DWORD code) {
    Record record{};
    const std::vector<char> bytes = Ask(handle, code);
    EXPECT_GE(bytes.size(), sizeof record);
    if (bytes.size() >= sizeof record) std::memcpy(&record, bytes.data(), sizeof record);
    return record;
  }
  std::string SerialOf(HANDLE handle) {
    const std::vector<char> bytes = Ask(handle, IOCTL_STORAGE_QUERY_PROPERTY);
    STORAGE_DEVICE_DESCRIPTOR descriptor{};
    std::memcpy(&descriptor, bytes.data(), sizeof descriptor);
    EXPECT_EQ(descriptor.Size, bytes.size());
    if (descriptor.SerialNumberOffset >= bytes.size()) return "none";
    return bytes.data() + descriptor.SerialNumberOffset;
  }
  std::wstring MountPointOf(const std::wstring& path) {
    std::array<wchar_t, MAX_PATH> mountPoint{};
    return storage().GetVolumePathNameW(path.c_str(), mountPoint.data(), MAX_PATH) ? mountPoint.data() : L"";
  }
  std::wstring VolumeNameOf(const std::wstring& mountPoint) {
    std::array<wchar_t, MAX_PATH> name{};
    return storage().GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), name.data(), MAX_PATH) ? name.data() : L"";
  }
  std::vector<std::wstring> Serials() {
    std::vector<WmiDisk> disks;
    EXPECT_EQ(host().wmi().QueryDisks(disks), S_OK);
    std::vector<std::wstring> serials;
    for (const WmiDisk& disk : disks) serials.push_back(disk.serialNumber);
    return serials;
  }
  // Makes a shadow copy of a volume through the service behind the objects.
  void Snapshot(std::initializer_list<const wchar_t*> volumes) {
    SnapshotService& service = *host().machine().snapshots;
    GUID set{};
    GUID copy{};
    ASSERT_EQ(service.StartSet(kSession, VSS_CTX_APP_ROLLBACK, set), S_OK);
    for (const wchar_t* volume : volumes) ASSERT_EQ(service.AddVolume(kSession, volume, kArrayProvider, copy), S_OK);
    ASSERT_EQ(service.CommitSet(kSession), S_OK);
  }
};

TEST_F(StorageTest, OpensDrivesVolumesAndDriveLettersInAnyCase) {
  const std::wstring volume = VolumeName(1);
  for (const std::wstring& name : {std::wstring(L"\\\\.\\PhysicalDrive1"), std::wstring(L"\\\\.\\physicaldrive1"),
                                   volume.substr(0, volume.size() - 1), std::wstring(L"\\\\.\\e:")}) {
    const FileHandle handle(Open(name));
    ASSERT_TRUE(handle) << WideToUtf8(name);
    EXPECT_EQ(host().live().Describe(), "1 file handle");
    EXPECT_EQ(AskFor<STORAGE_DEVICE_NUMBER>(handle.Get(), IOCTL_STORAGE_GET_DEVICE_NUMBER).DeviceNumber, 1u);
  }
}

TEST_F(StorageTest, RefusesNamesThatAreNoDevices) {
  EXPECT_EQ(OpenError(VolumeName(1)), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive9"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive01"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\.\\Q:"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"E:"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(L""), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(StorageTest, RecordsEachCallWithItsResult) {
  { const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1")); }
  Open(L"\\\\.\\PhysicalDrive7");
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("CreateFileW(\\\\.\\PhysicalDrive1) = ok", "CloseHandle(\\\\.\\PhysicalDrive1) = ok",
                          "CreateFileW(\\\\.\\PhysicalDrive7) = error 2"));
}

TEST_F(StorageTest, FailsACallWithTheCodeOfTheFaultPlan) {
  host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive1"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_THAT(host().calls().lines(), ElementsAre("CreateFileW(\\\\.\\PhysicalDrive1) = error 5"));
  const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_TRUE(handle);
}

TEST_F(StorageTest, ACloseThatIsMadeToFailHasClosedTheHandle) {
  HANDLE handle = Open(L"\\\\.\\PhysicalDrive1");
  host().faults().FailCall("CloseHandle", ERROR_GEN_FAILURE);
  EXPECT_EQ(storage().CloseHandle(handle), FALSE);
  EXPECT_EQ(host().live().Describe(), "");
}

TEST(StorageMisuse, ClosingAHandleTwiceIsRecorded) {
  SimulatedHost host(test::SmallHost());
  HANDLE handle = host.storage().CreateFileW(L"\\\\.\\PhysicalDrive1", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(host.storage().CloseHandle(handle), TRUE);
  EXPECT_EQ(host.storage().CloseHandle(handle), FALSE);
  EXPECT_EQ(host.GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_THAT(host.live().misuses(), ElementsAre("CloseHandle of a handle that is not open"));
  EXPECT_EQ(host.storage().FindVolumeClose(handle), FALSE);
  EXPECT_EQ(host.registry().RegCloseKey(reinterpret_cast<HKEY>(handle)), LSTATUS{ERROR_INVALID_HANDLE});
  EXPECT_EQ(host.messages().FreeLibrary(nullptr), FALSE);
  EXPECT_THAT(host.live().misuses(), SizeIs(4));
}

TEST_F(StorageTest, DescribesADiskWithVendorAndSerialNumber) {
  const FileHandle handle(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(SerialOf(handle.Get()), "TSL0001");
  const std::vector<char> bytes = Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY);
  STORAGE_DEVICE_DESCRIPTOR descriptor{};
  std::memcpy(&descriptor, bytes.data(), sizeof descriptor);
  EXPECT_STREQ(bytes.data() + descriptor.VendorIdOffset, "Tessel");
  EXPECT_THAT(Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY, 8), SizeIs(8));
  EXPECT_THAT(Ask(handle.Get(), IOCTL_STORAGE_QUERY_PROPERTY, 7), IsEmpty());
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(StorageTest, ADiskWithoutASerialNumberHasNoOffset) {
  HostModel model = test::SmallHost();
  model.disks[1].reportsSerial = false;
  model.disks[2].serial.clear();
  Install(model);
  const FileHandle none(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(SerialOf(none.Get()), "none");
  const FileHandle empty(Open(L"\\\\.\\PhysicalDrive2"));
  EXPECT_EQ(SerialOf(empty.Get()), "");
}

TEST_F(StorageTest, TellsExtentsOfVolumesOnlyAndWhetherADiskIsClustered) {
  HostModel model = test::SmallHost();
  model.disks[2].clustered = true;
  Install(model);
  const std::wstring name = VolumeName(2);
  const FileHandle volume(Open(name.substr(0, name.size() - 1)));
  const auto extents = AskFor<VOLUME_DISK_EXTENTS>(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS);
  EXPECT_EQ(extents.NumberOfDiskExtents, 1u);
  EXPECT_EQ(extents.Extents[0].DiskNumber, 2u);
  EXPECT_EQ(AskFor<BOOL>(volume.Get(), IOCTL_DISK_IS_CLUSTERED), TRUE);
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive1"));
  EXPECT_THAT(Ask(disk.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS), IsEmpty());
  EXPECT_EQ(AskFor<BOOL>(disk.Get(), IOCTL_DISK_IS_CLUSTERED), FALSE);
  EXPECT_THAT(Ask(disk.Get(), 0x12345), IsEmpty());
  EXPECT_THAT(Ask(disk.Get(), IOCTL_STORAGE_GET_DEVICE_NUMBER, 4), IsEmpty());
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_THAT(Ask(INVALID_HANDLE_VALUE, IOCTL_DISK_IS_CLUSTERED), IsEmpty());
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(StorageTest, FindsTheLongestMountPointInThePathsOwnSpelling) {
  HostModel model = test::SmallHost();
  model.disks[2].volumes[0].mountPoints = {L"C:\\Mounts\\Data\\", L"F:\\"};
  Install(model);
  EXPECT_EQ(MountPointOf(L"e:\\data\\sales.mdf"), L"e:\\");
  EXPECT_EQ(MountPointOf(L"E:"), L"E:\\");
  EXPECT_EQ(MountPointOf(L"C:\\mounts\\DATA\\x"), L"C:\\mounts\\DATA\\");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts\\Data"), L"C:\\Mounts\\Data\\");
  EXPECT_EQ(MountPointOf(L"C:\\Mounts\\Data2\\x"), L"C:\\");
  EXPECT_EQ(MountPointOf(L"C:/Mounts/Data/x"), L"C:/Mounts/Data\\");
  EXPECT_EQ(MountPointOf(L"\\\\?\\E:\\x"), L"\\\\?\\E:\\");
  EXPECT_EQ(MountPointOf(VolumeName(1) + L"Boot"), VolumeName(1));
  EXPECT_EQ(MountPointOf(L"\\System Volume Information\\Heat"), L"C:\\");
}

TEST_F(StorageTest, RefusesPathsOnNoVolumeAndBuffersThatAreTooSmall) {
  EXPECT_EQ(MountPointOf(L"Q:\\x"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(MountPointOf(VolumeName(9) + L"x"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(MountPointOf(L"\\\\server\\share\\x"), L"");
  EXPECT_EQ(MountPointOf(L""), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_NAME});
  std::array<wchar_t, 3> small{};
  EXPECT_EQ(storage().GetVolumePathNameW(L"E:\\x", small.data(), 3), FALSE);
  EXPECT_EQ(host().GetLastError(), kFilenameExceedsRange);
}

TEST_F(StorageTest, NamesTheVolumeOfAMountPoint) {
  EXPECT_EQ(VolumeNameOf(L"e:\\"), VolumeName(1));
  EXPECT_EQ(VolumeNameOf(VolumeName(1)), VolumeName(1));
  EXPECT_EQ(VolumeNameOf(L"E:"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_NAME});
  EXPECT_EQ(VolumeNameOf(L"Q:\\"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(VolumeNameOf(L"E:\\folder\\"), L"");
  EXPECT_EQ(host().GetLastError(), 4390u);
}

TEST_F(StorageTest, EnumeratesVolumesInDiskOrder) {
  HostModel model = test::SmallHost();
  std::swap(model.disks[0], model.disks[2]);
  Install(model);
  std::array<wchar_t, MAX_PATH> name{};
  HANDLE search = storage().FindFirstVolumeW(name.data(), MAX_PATH);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  EXPECT_EQ(host().live().Describe(), "1 volume search");
  std::vector<std::wstring> names = {name.data()};
  while (storage().FindNextVolumeW(search, name.data(), MAX_PATH)) names.emplace_back(name.data());
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_NO_MORE_FILES});
  EXPECT_THAT(names, ElementsAre(VolumeName(0), VolumeName(1), VolumeName(2)));
  EXPECT_EQ(storage().FindVolumeClose(search), TRUE);
}

TEST_F(StorageTest, AHostWithoutVolumesHasNoneToEnumerate) {
  Install(HostModel{});
  std::array<wchar_t, MAX_PATH> name{};
  EXPECT_EQ(storage().FindFirstVolumeW(name.data(), MAX_PATH), INVALID_HANDLE_VALUE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_NO_MORE_FILES});
}

TEST_F(StorageTest, ListsTheMountPointsOfAVolume) {
  HostModel model = test::SmallHost();
  model.disks[1].volumes[0].mountPoints = {L"E:\\", L"C:\\m\\"};
  Install(model);
  std::array<wchar_t, 16> names{};
  DWORD needed = 0;
  EXPECT_EQ(storage().GetVolumePathNamesForVolumeNameW(VolumeName(1).c_str(), names.data(), 10, &needed), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(needed, 11u);
  EXPECT_EQ(storage().GetVolumePathNamesForVolumeNameW(VolumeName(1).c_str(), names.data(), needed, &needed), TRUE);
  EXPECT_EQ(std::wstring(names.data(), needed), std::wstring(L"E:\\\0C:\\m\\\0\0", 11));
  EXPECT_EQ(storage().GetVolumePathNamesForVolumeNameW(VolumeName(8).c_str(), names.data(), 16, &needed), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(StorageTest, AShadowCopyHasADeviceADiskAndASerialNumber) {
  Snapshot({L"E:\\"});
  const std::wstring device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1";
  EXPECT_EQ(MountPointOf(device + L"\\data\\x.mdf"), device + L"\\");
  EXPECT_EQ(OpenError(device + L"\\"), DWORD{ERROR_PATH_NOT_FOUND});
  const FileHandle volume(Open(ascii::ToLower(device)));
  ASSERT_TRUE(volume);
  const auto extents = AskFor<VOLUME_DISK_EXTENTS>(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS);
  EXPECT_EQ(extents.Extents[0].DiskNumber, 3u);
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(disk);
  EXPECT_EQ(SerialOf(disk.Get()), "SHADOW-TSL0001");
}

TEST_F(StorageTest, WmiListsAllDisksInTheOrderOfTheirNumbers) {
  Snapshot({L"F:\\"});
  std::vector<WmiDisk> disks;
  EXPECT_EQ(host().wmi().QueryDisks(disks), S_OK);
  std::vector<std::wstring> serials;
  for (const WmiDisk& disk : disks) serials.push_back(disk.serialNumber);
  EXPECT_THAT(serials, ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0002"));
  EXPECT_TRUE(disks[0].isSystem);
  EXPECT_EQ(disks[3].manufacturer, L"Tessel");
  host().faults().FailCall("IWbemServices::ExecQuery", 0x80041010);
  EXPECT_EQ(host().wmi().QueryDisks(disks), static_cast<HRESULT>(0x80041010));
  EXPECT_THAT(disks, IsEmpty());
}

TEST_F(StorageTest, ABrokenCopyStaysAsAnOrdinaryDisk) {
  Snapshot({L"E:\\"});
  const GUID set = host().machine().snapshots->SurfacedCopies().at(0)->setId;
  ASSERT_EQ(host().machine().snapshots->Break(set, 0), S_OK);
  EXPECT_THAT(Serials(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002", L"SHADOW-TSL0001"));
  const FileHandle disk(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(disk);
  EXPECT_EQ(SerialOf(disk.Get()), "SHADOW-TSL0001");
  EXPECT_TRUE(FileHandle(Open(kFirstCopyDevice)));
  // Its number stays taken.
  Snapshot({L"E:\\"});
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().at(1)->diskNumber, 4u);
}

TEST_F(StorageTest, AMaskedDiskIsGoneFromEveryListAndGivesItsNumberBack) {
  Snapshot({L"E:\\"});
  const GUID set = host().machine().snapshots->SurfacedCopies().at(0)->setId;
  const FileHandle open(Open(L"\\\\.\\PhysicalDrive3"));
  ASSERT_TRUE(open);
  ASSERT_EQ(host().machine().snapshots->Break(set, VSS_BREAKEX_FLAG_MASK_LUNS), S_OK);
  EXPECT_THAT(Serials(), ElementsAre(L"SYS", L"TSL0001", L"TSL0002"));
  EXPECT_EQ(OpenError(L"\\\\.\\PhysicalDrive3"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(OpenError(kFirstCopyDevice), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(MountPointOf(std::wstring(kFirstCopyDevice) + L"\\data"), L"");
  EXPECT_THAT(Ask(open.Get(), IOCTL_STORAGE_QUERY_PROPERTY), IsEmpty());
  EXPECT_EQ(host().GetLastError(), DWORD{1167}) << "the device is not connected any more";
  Snapshot({L"F:\\"});
  EXPECT_EQ(host().machine().snapshots->SurfacedCopies().at(0)->diskNumber, 3u);
}

// ---- System information

using SystemTest = HostFixture;

TEST_F(SystemTest, TheComputerNameNeedsRoomForItsEnd) {
  std::array<wchar_t, 8> name{};
  DWORD size = 4;
  EXPECT_EQ(host().system().GetComputerNameW(name.data(), &size), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_BUFFER_OVERFLOW});
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(host().system().GetComputerNameW(name.data(), &size), TRUE);
  EXPECT_EQ(size, 4u);
  EXPECT_STREQ(name.data(), L"HOST");
}

TEST_F(SystemTest, TheSystemDirectoryTellsTheRoomItNeeds) {
  std::array<wchar_t, MAX_PATH> directory{};
  EXPECT_EQ(host().system().GetSystemDirectoryW(directory.data(), 5), 20u);
  EXPECT_EQ(host().system().GetSystemDirectoryW(directory.data(), MAX_PATH), 19u);
  EXPECT_STREQ(directory.data(), L"C:\\Windows\\system32");
}

TEST_F(SystemTest, ExpandsKnownNamesInAnyCaseAndLeavesOthers) {
  HostModel model = test::SmallHost();
  model.environment = {{L"Data", L"E:\\data"}, {L"ProgramData", L"P:\\"}};
  model.systemDirectory = L"D:\\WinNT\\system32";
  Install(model);
  const auto expand = [&](const wchar_t* text) {
    std::array<wchar_t, MAX_PATH> target{};
    const DWORD needed = host().system().ExpandEnvironmentStringsW(text, target.data(), MAX_PATH);
    EXPECT_EQ(needed, std::wcslen(target.data()) + 1);
    return std::wstring(target.data());
  };
  EXPECT_EQ(expand(L"%data%\\a%DATA%"), L"E:\\data\\aE:\\data");
  EXPECT_EQ(expand(L"%systemroot%|%WinDir%|%SystemDrive%|%ProgramData%"), L"D:\\WinNT|D:\\WinNT|D:|P:\\");
  EXPECT_EQ(expand(L"%nosuch%\\x"), L"%nosuch%\\x");
  EXPECT_EQ(expand(L"%nosuch%data%"), L"%nosuchE:\\data");
  EXPECT_EQ(expand(L"50% of %"), L"50% of %");
  EXPECT_EQ(expand(L""), L"");
  std::array<wchar_t, 4> small{};
  EXPECT_EQ(host().system().ExpandEnvironmentStringsW(L"%Data%", small.data(), 4), 8u);
}

class VersionTest : public HostFixture {
 protected:
  // Whether the host's version is at least this one, in the way of the version helper functions.
  bool IsAtLeast(DWORD major, DWORD minor, WORD servicePack) {
    OSVERSIONINFOEXW wanted{};
    wanted.dwOSVersionInfoSize = sizeof wanted;
    wanted.dwMajorVersion = major;
    wanted.dwMinorVersion = minor;
    wanted.wServicePackMajor = servicePack;
    ULONGLONG mask = 0;
    for (const DWORD type : {DWORD{VER_MAJORVERSION}, DWORD{VER_MINORVERSION}, DWORD{VER_SERVICEPACKMAJOR}}) {
      mask = host().system().VerSetConditionMask(mask, type, VER_GREATER_EQUAL);
    }
    return host().system().VerifyVersionInfoW(&wanted, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR,
                                              mask) != FALSE;
  }
  bool IsWorkstation() {
    OSVERSIONINFOEXW wanted{};
    wanted.wProductType = VER_NT_WORKSTATION;
    const ULONGLONG mask = host().system().VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
    return host().system().VerifyVersionInfoW(&wanted, VER_PRODUCT_TYPE, mask) != FALSE;
  }
};

TEST_F(VersionTest, VersionsCompareFromTheMostSignificantPart) {
  EXPECT_TRUE(IsAtLeast(6, 3, 0));
  EXPECT_TRUE(IsAtLeast(6, 3, 9));
  EXPECT_TRUE(IsAtLeast(10, 0, 0));
  EXPECT_FALSE(IsAtLeast(10, 0, 1));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_OLD_WIN_VERSION});
  EXPECT_FALSE(IsAtLeast(10, 1, 0));
  EXPECT_FALSE(IsAtLeast(11, 0, 0));
}

TEST_F(VersionTest, TheProductTypeIsComparedOnItsOwn) {
  EXPECT_FALSE(IsWorkstation());
  HostModel model = test::SmallHost();
  model.os.server = false;
  Install(model);
  EXPECT_TRUE(IsWorkstation());
}

TEST_F(VersionTest, TheConditionMaskHasTheLayoutOfWindows) {
  SystemInformation& system = host().system();
  EXPECT_EQ(system.VerSetConditionMask(0, VER_MINORVERSION, VER_GREATER_EQUAL), 3u);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL), 3u << 3);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_BUILDNUMBER, VER_EQUAL), 1u << 6);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_SERVICEPACKMINOR, VER_LESS), 4u << 12);
  EXPECT_EQ(system.VerSetConditionMask(1, VER_SERVICEPACKMAJOR, VER_GREATER), (2u << 15) | 1u);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL), 1u << 21);
}

TEST_F(VersionTest, ATestWithoutConditionsIsABadArgument) {
  OSVERSIONINFOEXW wanted{};
  EXPECT_EQ(host().system().VerifyVersionInfoW(&wanted, VER_MAJORVERSION, 0), FALSE);
  EXPECT_EQ(host().GetLastError(), 160u);
  EXPECT_EQ(host().system().VerifyVersionInfoW(&wanted, 0, 1), FALSE);
  EXPECT_EQ(host().GetLastError(), 160u);
}

// ---- Messages

class MessagesTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.messages = {{5, L"Access is denied.\r\n"}, {0x80004005, L"Unspecified error\r\n"}, {7, L"100%% %1"}};
    model.vssMessages = {{{0x80042301, L"bad state%n"}}};
    Install(model);
  }
  Messages& messages() { return host().messages(); }
  std::wstring Allocated(DWORD flags, DWORD id, HMODULE module = nullptr) {
    LocalText text;
    const DWORD length =
        messages().FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | flags, module, id, 0, text.AsBuffer(), 0, nullptr);
    EXPECT_EQ(host().live().Count("LocalAlloc"), length == 0 ? 0 : 1);
    return text.Get() == nullptr ? L"" : text.Get();
  }
};

TEST_F(MessagesTest, SystemMessagesComeInAnAllocatedBuffer) {
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 0x80004005), L"Unspecified error\r\n");
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 0x80070005), L"Access is denied.\r\n");
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 99), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_MR_MID_NOT_FOUND});
}

TEST_F(MessagesTest, InsertsWithoutArgumentsAreAnErrorUnlessIgnored) {
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, 7), L"100%% %1");
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 7), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(MessagesTest, TheVssMessageTableIsSearchedFirstWhileItsModuleIsLoaded) {
  {
    const Module module(messages().LoadLibraryW(L"VssTrace.dll"));
    ASSERT_TRUE(module);
    EXPECT_EQ(host().live().Describe(), "1 module");
    const DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM;
    EXPECT_EQ(Allocated(flags, 0x80042301, module.Get()), L"bad state\r\n");
    EXPECT_EQ(Allocated(flags, 5, module.Get()), L"Access is denied.\r\n");
    EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_HMODULE, 5, module.Get()), L"");
  }
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_HMODULE, 0x80042301), L"");
  EXPECT_EQ(messages().LoadLibraryW(L"other.dll"), nullptr);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
}

TEST_F(MessagesTest, WithoutATableTheVssModuleDoesNotExist) {
  Install(test::SmallHost());
  EXPECT_EQ(messages().LoadLibraryW(L"vsstrace.dll"), nullptr);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
}

TEST_F(MessagesTest, ACallersBufferMustHoldTheText) {
  std::array<wchar_t, 20> text{};
  EXPECT_EQ(messages().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text.data(), 19, nullptr), 0u);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(messages().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text.data(), 20, nullptr), 19u);
  EXPECT_STREQ(text.data(), L"Access is denied.\r\n");
}

TEST_F(MessagesTest, TheStringTableOfTheLibraryIsLoadedByItsName) {
  Module module;
  EXPECT_EQ(messages().GetModuleHandleExW(0, L"other", module.Put()), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
  ASSERT_EQ(messages().GetModuleHandleExW(0, L"varnel", module.Put()), TRUE);
  std::array<wchar_t, 1024> text{};
  EXPECT_GT(messages().LoadStringW(module.Get(), 126, text.data(), 1024), 0);
  EXPECT_STREQ(text.data(), L"VSS writer is not present on the host.");
  EXPECT_EQ(messages().LoadStringW(module.Get(), 126, text.data(), 4), 3);
  EXPECT_STREQ(text.data(), L"VSS");
  EXPECT_EQ(messages().LoadStringW(module.Get(), 1, text.data(), 1024), 0);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_RESOURCE_NAME_NOT_FOUND});
  EXPECT_EQ(messages().LoadStringW(nullptr, 126, text.data(), 1024), 0);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_RESOURCE_DATA_NOT_FOUND});
}

// ---- Processes

class ProcessesTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.commands = {{L"eseutil.exe /k *", 0}, {L"eseutil.exe *", 1}};
    Install(model);
  }
  BOOL Start(std::wstring command) {
    STARTUPINFOW startup{};
    return host().processes().CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                             &startup, &process);
  }
  // Waits for the process, closes its handles and tells its exit code.
  DWORD Finish() {
    DWORD code = 99;
    EXPECT_EQ(host().processes().WaitForSingleObject(process.hProcess, INFINITE), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(host().processes().GetExitCodeProcess(process.hProcess, &code), TRUE);
    EXPECT_EQ(host().processes().CloseHandle(process.hThread), TRUE);
    EXPECT_EQ(host().processes().CloseHandle(process.hProcess), TRUE);
    return code;
  }
  PROCESS_INFORMATION process{};
};

TEST_F(ProcessesTest, TheFirstCommandThatMatchesRuns) {
  ASSERT_EQ(Start(L"ESEUTIL.EXE /k \"E:\\MDB1\""), TRUE);
  EXPECT_EQ(host().live().Describe(), "1 process handle, 1 thread handle");
  EXPECT_EQ(Finish(), 0u);
  ASSERT_EQ(Start(L"eseutil.exe /p x"), TRUE);
  EXPECT_EQ(Finish(), 1u);
  EXPECT_THAT(host().calls().Of("CreateProcessW"),
              ElementsAre("CreateProcessW(ESEUTIL.EXE /k \"E:\\MDB1\") = ok", "CreateProcessW(eseutil.exe /p x) = ok"));
}

TEST_F(ProcessesTest, ACommandThatMatchesNothingIsNotFound) {
  EXPECT_EQ(Start(L"notepad.exe"), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(host().processes().WaitForSingleObject(nullptr, 0), DWORD{WAIT_FAILED});
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

// ---- Registry

class RegistryTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.registry = {{L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exch\\v15\\Setup", {{L"MsiInstallPath", L"C:\\Exchange"}}},
                      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exch\\AdminTools", {}},
                      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exchange2", {}}};
    Install(model);
  }
  Registry& registry() { return host().registry(); }
  HKEY Open(const wchar_t* path) {
    HKEY key = nullptr;
    EXPECT_EQ(registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key), LSTATUS{ERROR_SUCCESS});
    return key;
  }
};

TEST_F(RegistryTest, KeysOpenInAnyCaseAndParentsExist) {
  HKEY key = Open(L"software\\EXCH");
  EXPECT_EQ(host().live().Describe(), "1 registry key");
  HKEY child = nullptr;
  EXPECT_EQ(registry().RegOpenKeyExW(key, L"v15", 0, KEY_READ, &child), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegCloseKey(child), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegOpenKeyExW(key, L"v16", 0, KEY_READ, &child), LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Exc", 0, KEY_READ, &child),
            LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegCloseKey(HKEY_LOCAL_MACHINE), LSTATUS{ERROR_SUCCESS});
}

TEST_F(RegistryTest, SubKeysAreEnumeratedInSortedOrder) {
  HKEY key = Open(L"SOFTWARE\\Exch");
  DWORD subKeys = 0;
  DWORD longest = 0;
  EXPECT_EQ(registry().RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, &longest, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, nullptr),
            LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(subKeys, 2u);
  EXPECT_EQ(longest, 10u);
  std::array<wchar_t, 256> name{};
  DWORD size = 10;
  EXPECT_EQ(registry().RegEnumKeyExW(key, 0, name.data(), &size, nullptr, nullptr, nullptr, nullptr),
            LSTATUS{ERROR_MORE_DATA});
  size = 256;
  EXPECT_EQ(registry().RegEnumKeyExW(key, 0, name.data(), &size, nullptr, nullptr, nullptr, nullptr),
            LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(name.data(), L"AdminTools");
  EXPECT_EQ(size, 10u);
  size = 256;
  EXPECT_EQ(registry().RegEnumKeyExW(key, 1, name.data(), &size, nullptr, nullptr, nullptr, nullptr),
            LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(name.data(), L"v15");
  EXPECT_EQ(registry().RegEnumKeyExW(key, 2, name.data(), &size, nullptr, nullptr, nullptr, nullptr),
            LSTATUS{ERROR_NO_MORE_ITEMS});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
}

TEST_F(RegistryTest, ValuesAreTextWithTheirSizeInBytes) {
  HKEY key = Open(L"SOFTWARE\\Exch\\v15");
  DWORD type = 0;
  DWORD bytes = 0;
  const auto get = [&](const wchar_t* value, DWORD flags, void* data) {
    return registry().RegGetValueW(key, L"setup", value, flags, &type, data, &bytes);
  };
  EXPECT_EQ(get(L"msiinstallpath", RRF_RT_REG_SZ, nullptr), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(bytes, 12 * sizeof(wchar_t));
  EXPECT_EQ(type, DWORD{REG_SZ});
  std::array<wchar_t, 260> text{};
  bytes = 4;
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_MORE_DATA});
  EXPECT_EQ(bytes, 12 * sizeof(wchar_t));
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(text.data(), L"C:\\Exchange");
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_DWORD, text.data()), LSTATUS{1630});
  EXPECT_EQ(get(L"Other", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
}

// ---- iSCSI

class IscsiTest : public StorageTest {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.iscsiSessions = {{L"iqn:one", {{L"TSL0001", true}, {L"TSL0001", false}}, 1, 2},
                           {L"iqn:two", {{L"TSL0002", true}}, 0, 0}};
    Install(model);
  }
  IscsiInitiator& iscsi() { return host().iscsi(); }

  // The sessions by the two calls that a caller makes.
  std::vector<std::pair<std::wstring, iscsi::UniqueSessionId>> Sessions() {
    ULONG bytes = 0;
    ULONG count = 0;
    if (iscsi().GetIScsiSessionListW(&bytes, &count, nullptr) != ERROR_INSUFFICIENT_BUFFER) return {};
    std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
    EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::pair<std::wstring, iscsi::UniqueSessionId>> sessions;
    for (ULONG i = 0; i < count; ++i) sessions.emplace_back(buffer[i].TargetName, buffer[i].SessionId);
    return sessions;
  }
  std::vector<std::wstring> Devices(iscsi::UniqueSessionId session) {
    ULONG count = 0;
    if (iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr) != ERROR_INSUFFICIENT_BUFFER) return {};
    std::vector<iscsi::DeviceOnSession> devices(count);
    EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
    std::vector<std::wstring> names;
    for (const iscsi::DeviceOnSession& device : devices) names.emplace_back(device.LegacyName);
    return names;
  }
};

TEST_F(IscsiTest, SessionsAreListedInOneBufferWithTheirTexts) {
  const auto sessions = Sessions();
  ASSERT_THAT(sessions, SizeIs(2));
  EXPECT_EQ(sessions[0].first, L"iqn:one");
  EXPECT_EQ(sessions[1].first, L"iqn:two");
  Install(test::SmallHost());
  ULONG bytes = 0;
  ULONG count = 7;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(count, 0u);
}

TEST_F(IscsiTest, ASessionIsBusyForItsFirstQueriesWithABuffer) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  std::vector<iscsi::DeviceOnSession> devices(count);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
  EXPECT_STREQ(devices[0].LegacyName, L"\\\\.\\PhysicalDrive1");
  EXPECT_STREQ(devices[0].TargetName, L"iqn:one");
  EXPECT_THAT(host().calls().Of("GetDevicesForIScsiSessionW"),
              ElementsAre("GetDevicesForIScsiSessionW(iqn:one) = error 122",
                          "GetDevicesForIScsiSessionW(iqn:one) = error 0xefff0040",
                          "GetDevicesForIScsiSessionW(iqn:one) = ok"));
}

TEST_F(IscsiTest, TheDiskOfAShadowCopyAppearsWithTheCopy) {
  const iscsi::UniqueSessionId session = Sessions().at(1).second;
  EXPECT_THAT(Devices(session), IsEmpty());
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
}

TEST_F(IscsiTest, LogoutFailsAsOftenAsPlannedAndThenEndsTheSession) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
  EXPECT_THAT(Sessions(), SizeIs(2));
  EXPECT_EQ(iscsi().LogoutIScsiTarget(&session), 0u);
  ASSERT_THAT(Sessions(), SizeIs(1));
  EXPECT_EQ(Sessions()[0].first, L"iqn:two");
  EXPECT_NE(iscsi().LogoutIScsiTarget(&session), 0u);
}

TEST_F(IscsiTest, ASessionThatWasLoggedOutOfHasNoDevices) {
  iscsi::UniqueSessionId session = Sessions().at(1).second;
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), SizeIs(1));
  EXPECT_EQ(iscsi().LogoutIScsiTarget(&session), 0u);
  ULONG count = 5;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{0xEFFF0012});
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(host().calls().lines().back(), "GetDevicesForIScsiSessionW(unknown session) = error 0xefff0012");
}

TEST_F(IscsiTest, QueriesWithoutABufferAreNeverBusy) {
  iscsi::UniqueSessionId session = Sessions().at(0).second;
  ULONG count = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  }
  iscsi::DeviceOnSession device{};
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, &device), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(device.LegacyName[0], L'\0');
}

TEST_F(IscsiTest, DisksOfABrokenSetStayOnTheirSessionsAndMaskedOnesDoNot) {
  const iscsi::UniqueSessionId session = Sessions().at(1).second;
  Snapshot({L"F:\\"});
  SnapshotService& service = *host().machine().snapshots;
  ASSERT_EQ(service.Break(service.SurfacedCopies().at(0)->setId, 0), S_OK);
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
  Snapshot({L"F:\\"});
  EXPECT_THAT(Devices(session), SizeIs(2));
  ASSERT_EQ(service.Break(service.SurfacedCopies().at(1)->setId, VSS_BREAKEX_FLAG_MASK_LUNS), S_OK);
  EXPECT_THAT(Devices(session), ElementsAre(L"\\\\.\\PhysicalDrive3"));
}

TEST_F(IscsiTest, ASessionThatAppearsBetweenTwoListsNeedsMoreRoom) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {}}, {L"iqn:two", {}, 0, 0, 1}, {L"iqn:three", {}, 0, 0, 3}};
  Install(model);
  ULONG bytes = 0;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  const ULONG first = bytes;
  std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 2u);
  EXPECT_GT(bytes, first);
  buffer.resize(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(count, 2u);
  EXPECT_STREQ(buffer[1].TargetName, L"iqn:two");
  iscsi::UniqueSessionId third = buffer[1].SessionId;
  ++third.AdapterSpecific;
  ULONG devices = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&third, &devices, nullptr), DWORD{ERROR_SUCCESS}) << "there by now";
  EXPECT_THAT(Sessions(), SizeIs(3));
}

TEST_F(IscsiTest, AListCallThatIsMadeToFailBringsNoSessionCloser) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {}, 0, 0, 1}};
  Install(model);
  host().faults().FailCall("GetIScsiSessionListW", ERROR_ACCESS_DENIED);
  ULONG bytes = 0;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(iscsi().GetIScsiSessionListW(&bytes, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(IscsiTest, ADeviceThatAppearsBetweenTwoQueriesNeedsMoreRoom) {
  HostModel model = test::SmallHost();
  model.iscsiSessions = {{L"iqn:one", {{L"TSL0002", false, 2}, {L"TSL0001", false}}, 1},
                         {L"iqn:two", {{L"SYS", false, 1}}}};
  Install(model);
  const auto sessions = Sessions();
  iscsi::UniqueSessionId session = sessions.at(0).second;
  ULONG count = 0;
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 1u);
  std::array<iscsi::DeviceOnSession, 2> devices{};
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), iscsi::kDeviceBusyOnSession);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(iscsi().GetDevicesForIScsiSessionW(&session, &count, devices.data()), DWORD{ERROR_SUCCESS});
  EXPECT_STREQ(devices[0].LegacyName, L"\\\\.\\PhysicalDrive2");
  EXPECT_STREQ(devices[1].LegacyName, L"\\\\.\\PhysicalDrive1");
  EXPECT_THAT(Devices(sessions.at(1).second), IsEmpty()) << "each session counts its own queries";
  EXPECT_THAT(Devices(sessions.at(1).second), SizeIs(1));
}

// ---- Cluster, files, time, metadata, memory

class OtherQuestionsTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.cluster = ClusterNode{L"CLU01", {{L"SqlVirt", L"sqlnet"}}};
    model.disks[1].volumes[0].mountPoints = {L"C:\\ClusterStorage\\Volume1\\"};
    model.disks[1].volumes[0].csv = true;
    model.fileVersions = {{L"C:\\Windows\\system32\\Vmms.exe", L"6.3.9600.17120"}};
    model.databases = {{L"TSL0001", L"sales@sql01"}};
    Install(model);
  }
};

TEST_F(OtherQuestionsTest, ANodeOfARunningClusterSaysSo) {
  DWORD state = 99;
  EXPECT_EQ(host().cluster().GetNodeClusterState(nullptr, &state), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(state, 0x13u);
  Install(test::SmallHost());
  EXPECT_EQ(host().cluster().GetNodeClusterState(nullptr, &state), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(state, 0u);
}

TEST_F(OtherQuestionsTest, OnlyPathsOnClusterSharedVolumesAreShared) {
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"c:\\clusterstorage\\volume1\\vm"), TRUE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(VolumeName(1).c_str()), TRUE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"C:\\ClusterStorage\\Volume12"), FALSE);
  EXPECT_EQ(host().cluster().ClusterIsPathOnSharedVolume(L"F:\\"), FALSE);
}

TEST_F(OtherQuestionsTest, AFileTellsItsFixedVersion) {
  VS_FIXEDFILEINFO version{};
  ASSERT_EQ(host().files().GetFileVersion(L"c:\\windows\\system32\\vmms.exe", &version), TRUE);
  EXPECT_EQ(version.dwFileVersionMS, 6u << 16 | 3u);
  EXPECT_EQ(version.dwFileVersionLS, 9600u << 16 | 17120u);
  EXPECT_EQ(host().files().GetFileVersion(L"Vmms.exe", &version), FALSE);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(OtherQuestionsTest, SleepingMovesTheVirtualClock) {
  const ULONGLONG before = host().time().GetTickCount64();
  host().time().Sleep(500);
  EXPECT_EQ(host().time().GetTickCount64() - before, 500u);
  EXPECT_THAT(host().calls().lines(), ElementsAre("Sleep(500)"));
}

TEST_F(OtherQuestionsTest, TimeSpentInSleepIsToldApartFromOtherTime) {
  host().machine().now = 1000;
  host().time().Sleep(500);
  host().time().Sleep(10);
  EXPECT_EQ(host().machine().now, 1510u);
  EXPECT_EQ(host().machine().slept, 510u);
}

TEST_F(OtherQuestionsTest, TheHeapCountsItsBlocks) {
  void* block = host().heap().Malloc(100);
  void* empty = host().heap().Malloc(0);
  ASSERT_NE(block, nullptr);
  ASSERT_NE(empty, nullptr);
  std::memset(block, 1, 100);
  EXPECT_EQ(host().live().Describe(), "2 heap block");
  host().heap().Free(block);
  host().heap().Free(empty);
  host().heap().Free(nullptr);
  EXPECT_EQ(host().live().Describe(), "");
  EXPECT_THAT(host().calls().lines(), ElementsAre("malloc() = ok", "malloc() = ok"));
}

TEST_F(OtherQuestionsTest, TheHeapRunsOutOfMemoryOnDemand) {
  host().faults().FailCall("malloc", ERROR_NOT_ENOUGH_MEMORY, 2);
  const HeapBlock first(10);
  const HeapBlock second(10);
  EXPECT_TRUE(first);
  EXPECT_FALSE(second);
  EXPECT_EQ(host().live().Count("heap block"), 1);
  EXPECT_THAT(host().calls().lines(), ElementsAre("malloc() = ok", "malloc() = error 8"));
}

TEST(HeapMisuse, ABlockFreedTwiceOrOfAnotherKindIsRecorded) {
  SimulatedHost host{HostModel{}};
  const ScopedHost scope(host);
  void* block = host.heap().Malloc(10);
  BSTR text = host.vss().SysAllocStringLen(L"abc", 3);
  host.heap().Free(text);
  EXPECT_THAT(host.live().misuses(), ElementsAre("heap block given back that the caller does not hold"));
  host.heap().Free(block);
  host.heap().Free(block);
  EXPECT_THAT(host.live().misuses(), SizeIs(2));
  EXPECT_EQ(host.live().Describe(), "1 BSTR");
  host.vss().SysFreeString(text);
}

TEST_F(OtherQuestionsTest, TheMetadataServiceKnowsDatabasesByTheExactSerialNumber) {
  std::string databases;
  std::string error;
  EXPECT_TRUE(host().metadata().FindDatabasesToQuiesce("TSL0001", databases, error));
  EXPECT_EQ(databases, "sales@sql01");
  EXPECT_FALSE(host().metadata().FindDatabasesToQuiesce("tsl0001", databases, error));
  EXPECT_EQ(error, "No protection set holds the disk tsl0001");
  host().faults().FailCall("MetadataService::FindDatabasesToQuiesce", static_cast<DWORD>(E_FAIL));
  EXPECT_FALSE(host().metadata().FindDatabasesToQuiesce("TSL0001", databases, error));
  EXPECT_EQ(error, "The metadata service failed: E_FAIL");
}

TEST_F(OtherQuestionsTest, TheMetadataServiceKnowsNetworkNamesOfTheCluster) {
  EXPECT_EQ(host().metadata().GetClusterName("sqlvirt"), "sqlnet");
  EXPECT_THROW(host().metadata().GetClusterName("other"), std::runtime_error);
  Install(test::SmallHost());
  EXPECT_THROW(host().metadata().GetClusterName("sqlvirt"), std::runtime_error);
}

TEST_F(OtherQuestionsTest, TextsOfTheCallerAreCountedLikeTheServicesOwn) {
  BSTR text = host().vss().SysAllocStringLen(L"abc", 3);
  EXPECT_EQ(host().live().Describe(), "1 BSTR");
  host().vss().SysFreeString(text);
  host().faults().FailCall("SysAllocStringLen", static_cast<DWORD>(E_OUTOFMEMORY));
  EXPECT_EQ(host().vss().SysAllocStringLen(L"abc", 3), nullptr);
}

TEST_F(OtherQuestionsTest, ASuccessLeavesTheLastErrorAlone) {
  host().files().GetFileVersion(L"none", nullptr);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  std::array<wchar_t, MAX_PATH> directory{};
  host().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
}  // namespace varnel::simulator
