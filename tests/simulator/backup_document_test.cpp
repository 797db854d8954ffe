// The Backup Components Document.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "simulator/vss/backup_document.h"
#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, ListsAddedComponentsByWriter) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  backup.StartSet().Prepare();
  UINT count = 0;
  ASSERT_THAT(backup->GetWriterComponentsCount(&count), Gives(S_OK));
  ASSERT_EQ(count, 2U);
  ComPtr<IVssWriterComponentsExt> writer;
  EXPECT_THAT(backup->GetWriterComponents(2, writer.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(backup->GetWriterComponents(1, writer.Put()), Gives(S_OK));
  GUID instance{};
  GUID id{};
  EXPECT_THAT(writer->GetWriterInfo(&instance, &id), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(id, ClassId(0xA));
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(S_OK));
  EXPECT_EQ(count, 2U);
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(2, component.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  ASSERT_THAT(writer->GetComponent(0, component.Put()), Gives(S_OK));
  Bstr text;
  VSS_COMPONENT_TYPE type{};
  EXPECT_EQ(Got(*component, &IVssComponent::GetLogicalPath), L"SQL01");
  EXPECT_EQ(Got(*component, &IVssComponent::GetComponentName), L"crm");
  EXPECT_THAT(component->GetComponentType(&type), Gives(S_OK));
  EXPECT_EQ(type, VSS_CT_FILEGROUP);

  ASSERT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
  ASSERT_THAT(writer->GetComponent(0, component.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetLogicalPath(text.Put()), Gives(S_FALSE));
  EXPECT_FALSE(text);
}

TEST_F(ShadowCopyService, GivesWriterComponentsTwoBasesAndCountsThemThroughUnknown) {
  Backup backup(Phase::prepared);
  IVssWriterComponentsExt* writer = nullptr;
  ASSERT_THAT(backup->GetWriterComponents(0, &writer), Gives(S_OK));
  IUnknown* unknown = writer;
  EXPECT_EQ(reinterpret_cast<char*>(unknown), reinterpret_cast<char*>(writer) + sizeof(void*));
  void* same = nullptr;
  EXPECT_THAT(unknown->QueryInterface(kIidUnknown, &same), Gives(S_OK));
  EXPECT_EQ(same, unknown);
  EXPECT_EQ(host().live().Count("IVssWriterComponentsExt"), 1);
  EXPECT_EQ(unknown->Release(), 1U);
  EXPECT_EQ(unknown->Release(), 0U);
}

TEST_F(ShadowCopyService, MakesWriterComponentsStaleWithEveryPhase) {
  Backup backup(Phase::prepared);
  const auto fetch = [&] {
    ComPtr<IVssWriterComponentsExt> writer;
    EXPECT_THAT(backup->GetWriterComponents(0, writer.Put()), Gives(S_OK));
    return writer;
  };
  UINT count = 0;
  GUID id{};
  ComPtr<IVssWriterComponentsExt> writer = fetch();
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(S_OK));
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(writer->GetComponentCount(&count), Gives(VSS_E_BAD_STATE));
  writer = fetch();
  EXPECT_THAT(writer->GetWriterInfo(&id, &id), Gives(S_OK));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(writer->GetWriterInfo(&id, &id), Gives(VSS_E_BAD_STATE));
  ComPtr<IVssComponent> component;
  EXPECT_THAT(writer->GetComponent(0, component.Put()), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(fetch()->GetComponent(0, component.Put()), Gives(S_OK));
}

TEST_F(ShadowCopyService, KnowsSuccessFromTheRequestorAndFailureFromItsSilence) {
  Backup backup(Phase::gathered);
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xA, L"SQL01", L"crm"), Gives(S_OK));
  backup.StartSet().Take();
  VssBool succeeded = true;
  EXPECT_THAT(AddedComponent(backup, 0)->GetBackupSucceeded(&succeeded), Gives(S_FALSE));
  ASSERT_THAT(backup.Mark(0xA, L"SQL01", L"sales"), Gives(S_OK));
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_TRUE(Got(*AddedComponent(backup, 0), &IVssComponent::GetBackupSucceeded));
  EXPECT_FALSE(Got(*AddedComponent(backup, 1), &IVssComponent::GetBackupSucceeded));
}

TEST_F(ShadowCopyService, SavesWhatBecameOfEachComponent) {
  FailWriter(WriterEvent::backupComplete, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\SQL01\\crm", VSS_E_WRITERERROR_NONRETRYABLE, 0x41, L"log kept"}});
  Backup backup(Phase::gathered);
  for (const wchar_t* name : {L"sales", L"crm"}) ASSERT_THAT(backup.Add(0xA, L"SQL01", name), Gives(S_OK));
  ASSERT_THAT(backup.Add(0xB, nullptr, L"Server"), Gives(S_OK));
  backup.StartSet().Take();
  ASSERT_THAT(backup.Mark(0xA, L"SQL01", L"sales", false), Gives(S_OK));
  ASSERT_THAT(backup.Mark(0xA, L"SQL01", L"sales", true), Gives(S_OK)) << "the last mark counts";
  ASSERT_THAT(backup.Mark(0xB, nullptr, L"Server", false), Gives(S_OK));
  const BackupDocument before = ParseBackupDocument(WideToUtf8(backup.Document()));
  EXPECT_EQ(before.writers.at(0).components.at(0).succeeded, true);
  EXPECT_EQ(before.writers[0].components.at(1).succeeded, std::nullopt);
  ASSERT_THAT(backup.Complete(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_THAT(backup.Mark(0xA, L"SQL01", L"crm", true), Gives(VSS_E_BAD_STATE));

  const BackupDocument after = ParseBackupDocument(WideToUtf8(backup.Document()));
  const auto& sql = after.writers.at(0);
  EXPECT_TRUE(sql.changedByWriter);
  EXPECT_EQ(sql.components.at(0).succeeded, true);
  EXPECT_THAT(sql.components[0].failure, Gives(S_OK));
  EXPECT_EQ(sql.components.at(1).succeeded, false) << "never marked";
  EXPECT_THAT(sql.components[1].failure, Gives(VSS_E_WRITERERROR_NONRETRYABLE));
  EXPECT_EQ(sql.components[1].applicationResult, 0x41);
  EXPECT_EQ(sql.components[1].applicationMessage, L"log kept");
  EXPECT_EQ(after.writers.at(1).components.at(0).succeeded, false);
  EXPECT_EQ(backup.Statuses().at(0).state, VSS_WS_FAILED_AT_BACKUP_COMPLETE);
}

TEST_F(ShadowCopyService, AnswersWhatABackupDoesNotFill) {
  Backup backup(Phase::prepared);
  const ComPtr<IVssComponentEx2> component = AddedComponent(backup, 0);
  Bstr text;
  UINT count = 9;
  EXPECT_THAT(component->GetBackupStamp(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetBackupMetadata(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPrepareForBackupFailureMsg(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPostSnapshotFailureMsg(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetRestoreName(text.Put()), Gives(S_FALSE));
  EXPECT_THAT(component->GetPartialFileCount(&count), Gives(S_OK));
  EXPECT_EQ(count, 0U);
  EXPECT_THAT(component->GetPartialFile(0, text.Put(), nullptr, nullptr, nullptr), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->SetBackupMetadata(L"x"), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(component->SetBackupStamp(L"x"), Gives(VSS_E_BAD_STATE));
}

// The usual host, whose SQL writer leaves something in the components document for each database.
HostModel HostWithLeavings() {
  HostModel model = VssHost();
  for (simulator::WriterComponent& component : model.writers[0].components) {
    component.backupStamp = component.name + L"-stamp";
    component.backupMetadata = L"bWV0YQ==";
  }
  return model;
}

TEST_F(ShadowCopyService, FindsWhatTheWritersLeaveForTheirComponents) {
  Install(HostWithLeavings());
  Backup backup(Phase::prepared);
  EXPECT_EQ(Got(*AddedComponent(backup, 0), &IVssComponent::GetBackupStamp), L"sales-stamp");
  Bstr text;
  EXPECT_THAT(AddedComponent(backup, 0)->GetBackupMetadata(text.Put()), Gives(S_FALSE)) << "not before the snapshot";
  ASSERT_THAT(backup.Snapshot(), Gives(VSS_S_ASYNC_FINISHED));
  EXPECT_EQ(Got(*AddedComponent(backup, 0), &IVssComponent::GetBackupMetadata), L"bWV0YQ==");

  const std::string document = WideToUtf8(backup.Document());
  EXPECT_THAT(document, HasSubstr("<WRITER_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" instanceId="));
  EXPECT_THAT(document,
              HasSubstr("<COMPONENT logicalPath=\"SQL01\" componentName=\"sales\" componentType=\"filegroup\" "
                        "backupStamp=\"sales-stamp\"><BACKUP_METADATA xmlns=\"\" metadata=\"bWV0YQ==\"/>"
                        "</COMPONENT>"));
  EXPECT_THAT(document, Not(HasSubstr("crm"))) << "it was not added";
}

TEST_F(ShadowCopyService, FindsNothingOfAWriterThatFailed) {
  Install(HostWithLeavings());
  FailWriter(WriterEvent::postSnapshot, VSS_E_WRITERERROR_NONRETRYABLE);
  Backup backup(Phase::snapshotDone);
  EXPECT_EQ(Got(*AddedComponent(backup, 0), &IVssComponent::GetBackupStamp), L"sales-stamp");
  Bstr text;
  EXPECT_THAT(AddedComponent(backup, 0)->GetBackupMetadata(text.Put()), Gives(S_FALSE));
  backup.Release();

  Install(HostWithLeavings());
  FailWriter(WriterEvent::prepareBackup, VSS_E_WRITERERROR_NONRETRYABLE);
  Backup unprepared(Phase::snapshotDone);
  EXPECT_THAT(AddedComponent(unprepared, 0)->GetBackupStamp(text.Put()), Gives(S_FALSE));
}

TEST_F(ShadowCopyService, WritesTheDocumentInTheServicesOwnForm) {
  Backup backup(Phase::prepared);
  const std::wstring setId = FormatBareGuid(backup.setId);
  EXPECT_EQ(WideToUtf8(backup.Document()),
            WideToUtf8(L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\" "
                       L"bootableSystemStateBackup=\"yes\" selectComponents=\"yes\" backupType=\"full\" "
                       L"partialFileSupport=\"no\" snapshotSetId=\"" +
                       setId +
                       L"\"><WRITER_COMPONENTS instanceId=\"0000000a-0001-0000-0000-000000000000\" "
                       L"writerId=\"0000000a-0000-0000-0000-000000000000\" backupSchema=\"0\">"
                       L"<COMPONENT logicalPath=\"SQL01\" componentName=\"sales\" componentType=\"filegroup\"/>"
                       L"</WRITER_COMPONENTS></BACKUP_COMPONENTS>"));
}

simulator::DocumentComponent FullComponent() {
  simulator::DocumentComponent component;
  component.logicalPath = L"a<b>&c\r\n\t'";
  component.name = L"\u00e9\u4e2d";
  component.type = VSS_CT_DATABASE;
  component.backupStamp = L"stamp";
  component.previousBackupStamp = L"";
  component.backupOptions = L"options";
  component.backupMetadata = L"bWV0YQ==";
  component.prepareForBackupFailure = L"p";
  component.postSnapshotFailure = L"q";
  component.restoreOptions = L"o";
  component.restore = {true,
                       InstanceId(3),
                       true,
                       {{L"E:\\", L"*", true, L"F:\\"}},
                       {{L"E:\\", L"a", false, L"G:\\"}},
                       {{L"p", L"n"}, {std::nullopt, L"m"}},
                       VSS_RS_FAILED,
                       L"pre",
                       L"post"};
  component.succeeded = false;
  component.failure = VSS_E_WRITERERROR_TIMEOUT;
  component.applicationResult = E_FAIL;
  component.applicationMessage = L"message";
  return component;
}

BackupDocument FullDocument() {
  BackupDocument document;
  document.bootableSystemState = true;
  document.backupType = VSS_BT_COPY;
  document.partialFileSupport = true;
  document.restoreType = VSS_RTYPE_IMPORT;
  document.snapshotSetId = ClassId(5);
  simulator::DocumentWriter writer{InstanceId(1), ClassId(1), L"SQL \"1\"", 0x371, true, {}};
  writer.components = {FullComponent(), {}};
  writer.components[1].name = L"plain";
  document.writers = {writer, {InstanceId(2), ClassId(2), L"", 0, false, {}}};
  ShadowCopy copy;
  copy.id = ClassId(7);
  copy.setId = ClassId(5);
  copy.providerId = kHardware;
  copy.attributes = kTransportable;
  copy.timestamp = 134116992000000000;
  copy.copiesInSet = 1;
  copy.originatingMachine = L"SQL01";
  copy.originalVolume = VolumeName(1);
  copy.originalSerial = L"TSL0001";
  copy.serial = L"SHADOW-TSL0001";
  document.transportableCopies = {copy};
  return document;
}

TEST(BackupDocuments, KeepEverythingWhenReadBack) {
  const std::string written = FormatBackupDocument(FullDocument());
  const BackupDocument read = ParseBackupDocument(written);
  EXPECT_EQ(FormatBackupDocument(read), written);
  const simulator::DocumentComponent& component = read.writers.at(0).components.at(0);
  const BackupDocument expected = FullDocument();
  EXPECT_EQ(component.logicalPath, expected.writers[0].components[0].logicalPath);
  EXPECT_EQ(component.name, expected.writers[0].components[0].name);
  EXPECT_EQ(component.previousBackupStamp, L"");
  EXPECT_EQ(component.succeeded, false);
  EXPECT_THAT(component.failure, Gives(VSS_E_WRITERERROR_TIMEOUT));
  EXPECT_EQ(component.backupMetadata, L"bWV0YQ==");
  EXPECT_EQ(component.restore.newTargets.at(0).alternatePath, L"F:\\");
  EXPECT_EQ(component.restore.fileStatus, VSS_RS_FAILED);
  EXPECT_EQ(component.restore.instanceId, InstanceId(3));
  EXPECT_EQ(read.restoreType, VSS_RTYPE_IMPORT);
  EXPECT_EQ(read.transportableCopies.at(0).timestamp, 134116992000000000);
  EXPECT_EQ(read.backupType, VSS_BT_COPY);
}

TEST(BackupDocuments, AreReadInTheIndentedFormToo) {
  const BackupDocument document = ParseBackupDocument(
      "<?xml version=\"1.0\"?>\r\n<BACKUP_COMPONENTS backupType='full'>\r\n\t<!-- note -->\r\n\t<WRITER_COMPONENTS "
      "instanceId='00000001-0001-0000-0000-000000000000' writerId='0000000A-0000-0000-0000-000000000000'>\r\n\t\t"
      "<COMPONENT componentName='a &gt; b' componentType='database'></COMPONENT>\r\n\t</WRITER_COMPONENTS>\r\n"
      "</BACKUP_COMPONENTS>\r\n");
  EXPECT_EQ(document.writers.at(0).writerId, ClassId(0xA));
  EXPECT_EQ(document.writers.at(0).components.at(0).name, L"a > b");
  EXPECT_EQ(document.writers.at(0).components.at(0).type, VSS_CT_DATABASE);
}

std::string Nested(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<BACKUP_COMPONENTS>";
  for (int i = 0; i < depth; ++i) xml += "</BACKUP_COMPONENTS>";
  return xml;
}

TEST(BackupDocuments, RefuseRubbish) {
  const std::string writer = "instanceId=\"00000001-0001-0000-0000-000000000000\" ";
  const std::string rubbish[] = {
      "",
      "text",
      "<BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS></WRITER>",
      "<WRITER_METADATA/>",
      "<BACKUP_COMPONENTS/><BACKUP_COMPONENTS/>",
      "<BACKUP_COMPONENTS backupType=\"weekly\"/>",
      "<BACKUP_COMPONENTS selectComponents=\"perhaps\"/>",
      "<BACKUP_COMPONENTS snapshotSetId=\"5\"/>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS/></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer + "writerId=\"x\"/></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer +
          "writerId=\"00000001-0000-0000-0000-000000000000\"><COMPONENT componentName=\"a\"/></WRITER_COMPONENTS>"
          "</BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><WRITER_COMPONENTS " + writer +
          "writerId=\"00000001-0000-0000-0000-000000000000\"><COMPONENT componentType=\"filegroup\"/>"
          "</WRITER_COMPONENTS></BACKUP_COMPONENTS>",
      "<BACKUP_COMPONENTS><TRANSPORTABLE_SNAPSHOT/></BACKUP_COMPONENTS>",
      std::string("<BACKUP_COMPONENTS a=\"\xff\"/>").replace(19, 1, "instanceId").append("<"),
      Nested(100000),
      std::string("<BACKUP_COMPONENTS/>\0", 21),
  };
  for (const std::string& xml : rubbish) {
    SCOPED_TRACE(xml.substr(0, 120));
    EXPECT_THROW(ParseBackupDocument(xml), simulator::DocumentError);
  }
}

TEST_F(ShadowCopyService, RefusesDocumentsThatItCannotRead) {
  for (const wchar_t* xml : {L"rubbish", L"<BACKUP_COMPONENTS>", L"<WRITER_METADATA/>"}) {
    const Bstr document{std::wstring_view(xml)};
    Backup backup;
    EXPECT_THAT(backup->InitializeForBackup(document.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
    EXPECT_THAT(backup->InitializeForRestore(document.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
    EXPECT_THAT(backup->InitializeForBackup(nullptr), Gives(S_OK)) << "a failed call leaves the object as it was";
  }
  Backup backup;
  const Bstr empty{std::wstring_view(L"")};
  EXPECT_THAT(backup->InitializeForRestore(empty.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_THAT(backup->InitializeForRestore(nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, ReadsTheComponentsOfASavedDocument) {
  Backup saved(Phase::complete);
  const Bstr xml(saved.Document());
  saved.Release();
  for (const bool restoring : {false, true}) {
    Backup backup;
    ASSERT_THAT(restoring ? backup->InitializeForRestore(xml.Get()) : backup->InitializeForBackup(xml.Get()),
                Gives(S_OK));
    EXPECT_EQ(backup.Document(), xml.View());
    EXPECT_EQ(Got(*AddedComponent(backup, 0), &IVssComponent::GetComponentName), L"sales");
    EXPECT_FALSE(Got(*AddedComponent(backup, 0), &IVssComponent::GetBackupSucceeded));
  }
}

TEST_F(ShadowCopyService, RefusesTheCallsOfABackupDuringARestore) {
  Backup backup;
  ASSERT_THAT(backup->InitializeForRestore(LoadableDocument().Get()), Gives(S_OK));
  GUID id{};
  EXPECT_THAT(backup->SetContext(VSS_CTX_APP_ROLLBACK), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->StartSnapshotSet(&id), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Delete(id, VSS_OBJECT_SNAPSHOT), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.PropertiesOf(id), Gives(VSS_E_BAD_STATE));
  backup.Gather();
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->AbortBackup(), Gives(S_OK));
}

TEST(BackupDocuments, OfARealHostAreReadAndWrittenBackUnchanged) {
  const char* captures = std::getenv("VARNEL_CAPTURES");
  if (captures == nullptr) GTEST_SKIP() << "VARNEL_CAPTURES names no folder with a BCDocument.xml";
  std::ifstream file(std::filesystem::path(captures) / "BCDocument.xml", std::ios::binary);
  ASSERT_TRUE(file.is_open());
  std::string xml{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  while (!xml.empty() && (xml.back() == '\n' || xml.back() == '\r' || xml.back() == '\0')) xml.pop_back();
  const BackupDocument document = ParseBackupDocument(xml);
  EXPECT_FALSE(document.writers.empty());
  EXPECT_EQ(FormatBackupDocument(document), xml);
}

}  // namespace
}  // namespace varnel::test
