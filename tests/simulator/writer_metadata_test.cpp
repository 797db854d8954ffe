// The objects through which a requestor examines a writer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "simulator/host_file/documents.h"
#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, ListsTheWritersThatAnswerIdentify) {
  FailWriter(WriterEvent::identify, VSS_E_WRITERERROR_NONRETRYABLE);
  Backup backup(Phase::gathered);
  EXPECT_EQ(Got(*backup, &IVssBackupComponents::GetWriterMetadataCount), 2U);
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(backup.Statuses(), SizeIs(2));
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  EXPECT_THAT(backup->GetWriterMetadata(2, &instance, metadata.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(metadata);
}

TEST_F(ShadowCopyService, KeepsEnabledWritersFirstAndThenDropsDisabledOnes) {
  Backup backup(Phase::initialized);
  const GUID enabled[] = {ClassId(0xA), ClassId(0xB), ClassId(0xC)};
  const GUID disabledClass = ClassId(0xB);
  const GUID disabledInstance = InstanceId(0xC);
  ASSERT_THAT(backup->DisableWriterClasses(&disabledClass, 1), Gives(S_OK));
  ASSERT_THAT(backup->EnableWriterClasses(enabled, 3), Gives(S_OK));
  ASSERT_THAT(backup->DisableWriterInstances(&disabledInstance, 1), Gives(S_OK));
  backup.Gather();
  ASSERT_EQ(Got(*backup, &IVssBackupComponents::GetWriterMetadataCount), 1U);
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  ASSERT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
}

TEST_F(ShadowCopyService, ForgetsMetadataThatWasFreedButKeepsWhatIsReferenced) {
  Backup backup(Phase::gathered);
  GUID instance{};
  ComPtr<IVssExamineWriterMetadata> metadata;
  ASSERT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
  ASSERT_THAT(backup->FreeWriterMetadata(), Gives(S_OK));
  UINT count = 0;
  EXPECT_THAT(backup->GetWriterMetadataCount(&count), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup->FreeWriterMetadata(), Gives(VSS_E_BAD_STATE));
  EXPECT_THAT(backup.Add(0xA, L"SQL01", L"sales"), Gives(S_OK));
  host().model().writers.clear();
  backup.Release();
  Bstr name;
  GUID writer{};
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  EXPECT_THAT(metadata->GetIdentity(&instance, &writer, name.Put(), &usage, &source), Gives(S_OK));
  EXPECT_EQ(name.View(), L"SqlServerWriter");
}

// The metadata of one writer of a host that has just this one.
class WriterMetadata : public ShadowCopyService {
 protected:
  ComPtr<IVssExamineWriterMetadataEx2> Examine(simulator::Writer writer) {
    HostModel model = SmallHost();
    model.writers = {std::move(writer)};
    Install(std::move(model));
    Backup backup(Phase::gathered);
    GUID instance{};
    ComPtr<IVssExamineWriterMetadata> metadata;
    EXPECT_THAT(backup->GetWriterMetadata(0, &instance, metadata.Put()), Gives(S_OK));
    ComPtr<IVssExamineWriterMetadataEx2> extended;
    EXPECT_THAT(QueryFor(metadata.Get(), kIidVssExamineWriterMetadataEx2, extended), Gives(S_OK));
    return extended;
  }

  static ComPtr<IVssWMComponent> ComponentOf(IVssExamineWriterMetadata& metadata, UINT index = 0) {
    ComPtr<IVssWMComponent> component;
    EXPECT_THAT(metadata.GetComponent(index, component.Put()), Gives(S_OK));
    return component;
  }
};

TEST_F(WriterMetadata, TellsTheIdentityInFull) {
  simulator::Writer writer = MakeWriter(L"SqlServerWriter", 0xA, {});
  writer.instanceName = L"SQL:SQLWriter";
  writer.source = VSS_ST_TRANSACTEDDB;
  writer.majorVersion = 2;
  writer.minorVersion = 3;
  writer.backupSchema = 0x371;
  const auto metadata = Examine(writer);
  GUID instance{};
  GUID id{};
  Bstr name;
  Bstr instanceName;
  VSS_USAGE_TYPE usage{};
  VSS_SOURCE_TYPE source{};
  EXPECT_THAT(metadata->GetIdentityEx(&instance, &id, name.Put(), instanceName.Put(), &usage, &source), Gives(S_OK));
  EXPECT_EQ(instance, InstanceId(0xA));
  EXPECT_EQ(id, ClassId(0xA));
  EXPECT_EQ(name.View(), L"SqlServerWriter");
  EXPECT_EQ(instanceName.View(), L"SQL:SQLWriter");
  EXPECT_EQ(usage, VSS_UT_USERDATA);
  EXPECT_EQ(source, VSS_ST_TRANSACTEDDB);
  DWORD major = 0;
  DWORD minor = 0;
  EXPECT_THAT(metadata->GetVersion(&major, &minor), Gives(S_OK));
  EXPECT_EQ(major, 2U);
  EXPECT_EQ(minor, 3U);
  EXPECT_EQ(Got(*metadata, &IVssExamineWriterMetadataEx2::GetBackupSchema), 0x371U);
}

TEST_F(WriterMetadata, CountsFilesAndRefusesIndexesAfterThem) {
  simulator::Writer writer = MakeWriter(L"W", 1, {MakeComponent(L"p", L"c", {L"E:\\a", L"E:\\b"})});
  writer.excludeFiles = {{L"E:\\tmp", L"*", true}};
  writer.excludeFilesFromSnapshot = {{L"E:\\cache", L"*", false}};
  const auto metadata = Examine(writer);
  UINT include = 9;
  UINT exclude = 0;
  UINT components = 0;
  EXPECT_THAT(metadata->GetFileCounts(&include, &exclude, &components), Gives(S_OK));
  EXPECT_EQ(include, 0U);
  EXPECT_EQ(exclude, 1U);
  EXPECT_EQ(components, 1U);
  EXPECT_EQ(Got(*metadata, &IVssExamineWriterMetadataEx2::GetExcludeFromSnapshotCount), 1U);

  ComPtr<IVssWMFiledesc> file;
  ComPtr<IVssWMComponent> component;
  ComPtr<IVssWMDependency> dependency;
  EXPECT_THAT(metadata->GetExcludeFile(0, file.Put()), Gives(S_OK));
  EXPECT_THAT(metadata->GetExcludeFromSnapshotFile(0, file.Put()), Gives(S_OK));
  EXPECT_THAT(metadata->GetExcludeFile(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetExcludeFromSnapshotFile(1, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetIncludeFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetAlternateLocationMapping(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(metadata->GetComponent(1, component.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  component = ComponentOf(*metadata);
  EXPECT_THAT(component->GetFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetFile(2, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDatabaseFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDependency(0, dependency.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_FALSE(file);
}

TEST_F(WriterMetadata, ToldOfAFileGivesPathSpecAndAlternateLocation) {
  simulator::WriterComponent component = MakeComponent(L"", L"c", {});
  component.files = {{L"E:\\a", L"*.mdf", true, L"F:\\alt", 0x101}, {L"E:\\b", L"x", false}};
  const auto metadata = Examine(MakeWriter(L"W", 1, {component}));
  const auto examined = ComponentOf(*metadata);
  ComPtr<IVssWMFiledesc> file;
  ASSERT_THAT(examined->GetFile(0, file.Put()), Gives(S_OK));
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetPath), L"E:\\a");
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetFilespec), L"*.mdf");
  EXPECT_TRUE(Got(*file, &IVssWMFiledesc::GetRecursive));
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetAlternateLocation), L"F:\\alt");
  EXPECT_EQ(Got(*file, &IVssWMFiledesc::GetBackupTypeMask), 0x101U);
  Bstr alternate;
  ASSERT_THAT(examined->GetFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(file->GetAlternateLocation(alternate.Put()), Gives(S_FALSE));
  EXPECT_FALSE(alternate);
  EXPECT_THAT(file->GetPath(nullptr), Gives(E_INVALIDARG));
}

TEST_F(WriterMetadata, DistinguishesAMissingTextFromAnEmptyOne) {
  simulator::WriterComponent none = MakeComponent(L"", L"none", {});
  none.caption.reset();
  simulator::WriterComponent empty = none;
  empty.name = L"empty";
  empty.logicalPath = L"";
  empty.caption = L"";
  const auto metadata = Examine(MakeWriter(L"W", 1, {none, empty}));
  for (UINT i = 0; i < 2; ++i) {
    const auto component = ComponentOf(*metadata, i);
    PVSSCOMPONENTINFO info = nullptr;
    ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
    EXPECT_EQ(info->bstrLogicalPath == nullptr, i == 0);
    EXPECT_EQ(info->bstrCaption == nullptr, i == 0);
    EXPECT_NE(info->bstrComponentName, nullptr);
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(S_OK));
  }
}

TEST_F(WriterMetadata, CountsFilesOfDatabasesApartFromThoseOfFileGroups) {
  simulator::WriterComponent database = MakeComponent(L"S", L"d", {L"E:\\ignored"});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{L"E:\\d", L"a"}, {L"E:\\d", L"b"}};
  database.logFiles = {{L"E:\\l", L"c"}};
  database.restoreMetadata = true;
  database.notifyOnBackupComplete = true;
  database.componentFlags = 2;
  const auto metadata = Examine(MakeWriter(L"W", 1, {database}));
  const auto component = ComponentOf(*metadata);
  PVSSCOMPONENTINFO info = nullptr;
  ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
  EXPECT_EQ(info->type, VSS_CT_DATABASE);
  EXPECT_EQ(info->cFileCount, 0U);
  EXPECT_EQ(info->cDatabases, 2U);
  EXPECT_EQ(info->cLogFiles, 1U);
  EXPECT_EQ(info->cDependencies, 0U);
  EXPECT_EQ(info->dwComponentFlags, 2U);
  EXPECT_TRUE(info->bRestoreMetadata);
  EXPECT_TRUE(info->bNotifyOnBackupComplete);
  EXPECT_TRUE(info->bSelectable);
  EXPECT_FALSE(info->bSelectableForRestore);
  component->FreeComponentInfo(info);
  ComPtr<IVssWMFiledesc> file;
  EXPECT_THAT(component->GetFile(0, file.Put()), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(component->GetDatabaseFile(1, file.Put()), Gives(S_OK));
  EXPECT_THAT(component->GetDatabaseLogFile(0, file.Put()), Gives(S_OK));
}

TEST_F(WriterMetadata, SaysWhetherThereIsARestoreMethod) {
  VSS_RESTOREMETHOD_ENUM method{};
  VSS_WRITERRESTORE_ENUM writerRestore{};
  Bstr service;
  Bstr procedure;
  VssBool reboot = false;
  UINT mappings = 9;
  simulator::Writer writer = MakeWriter(L"W", 1, {});
  const auto read = [&] {
    service.Reset();
    procedure.Reset();
    return Examine(writer)->GetRestoreMethod(&method, service.Put(), procedure.Put(), &writerRestore, &reboot,
                                             &mappings);
  };
  writer.restoreMethod = {VSS_RME_STOP_RESTORE_START, L"svc", L"http://help", VSS_WRE_ALWAYS, true};
  EXPECT_THAT(read(), Gives(S_OK));
  EXPECT_EQ(method, VSS_RME_STOP_RESTORE_START);
  EXPECT_EQ(service.View(), L"svc");
  EXPECT_EQ(procedure.View(), L"http://help");
  EXPECT_EQ(writerRestore, VSS_WRE_ALWAYS);
  EXPECT_TRUE(reboot);
  EXPECT_EQ(mappings, 0U);

  writer.restoreMethod->method = VSS_RME_RESTORE_IF_CAN_REPLACE;
  EXPECT_THAT(read(), Gives(S_OK));
  EXPECT_FALSE(service) << "only methods that stop a service name it";

  writer.restoreMethod.reset();
  EXPECT_THAT(read(), Gives(S_FALSE));
  EXPECT_EQ(method, VSS_RME_UNDEFINED);
  EXPECT_FALSE(procedure);
}

TEST_F(WriterMetadata, SavesAndLoadsItsDocument) {
  const auto metadata = Examine(MakeWriter(L"W <&> \"1\"", 1, {MakeComponent(L"p", L"c", {L"E:\\a"})}));
  Bstr xml;
  ASSERT_THAT(metadata->SaveAsXML(xml.Put()), Gives(S_OK));
  EXPECT_EQ(xml.View().substr(0, 16), L"<WRITER_METADATA");
  const Bstr rubbish(L"<WRITER_METADATA>");
  EXPECT_THAT(metadata->LoadFromXML(rubbish.Get()), Gives(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_THAT(metadata->LoadFromXML(nullptr), Gives(E_INVALIDARG));
  EXPECT_THAT(metadata->LoadFromXML(xml.Get()), Gives(S_OK));
  Bstr again;
  ASSERT_THAT(metadata->SaveAsXML(again.Put()), Gives(S_OK));
  EXPECT_EQ(xml.View(), again.View());
  IXMLDOMDocument* document = nullptr;
  EXPECT_THAT(metadata->GetDocument(&document), Gives(E_NOTIMPL));
}

// Everything that a rebuilt document would have otherwise: case, order, defaults, line breaks, a comment.
constexpr std::string_view kOwnText =
    "<!-- kept -->\r\n<WRITER_METADATA version='1.2' xmlns=\"x-schema:#VssWriterMetadataInfo\">\r\n"
    "\t<RESTORE_METHOD rebootRequired=\"no\" method=\"REPLACE_AT_REBOOT\" writerRestore=\"never\"/>\n"
    "\t<IDENTIFICATION instanceId=\"0000000A-0001-0000-0000-000000000000\" friendlyName=\"W\" "
    "writerId=\"0000000A-0000-0000-0000-000000000000\"/>\n"
    "\t<BACKUP_LOCATIONS><FILE_GROUP componentName=\"m\xC3\xBC\" selectable=\"yes\"></FILE_GROUP></BACKUP_LOCATIONS>"
    "\n</WRITER_METADATA>\n";

TEST_F(WriterMetadata, GivesTheWritersOwnTextAsItCame) {
  const auto metadata = Examine(simulator::ReadWriterDocument(std::string(kOwnText)));
  EXPECT_EQ(WideToUtf8(Got(*metadata, &IVssExamineWriterMetadataEx2::SaveAsXML)), kOwnText);
}

TEST_F(WriterMetadata, GivesBackTheTextThatItLoaded) {
  const auto metadata = Examine(MakeWriter(L"Other", 1, {}));
  const Bstr text(Utf8ToWide(kOwnText));
  ASSERT_THAT(metadata->LoadFromXML(text.Get()), Gives(S_OK));
  EXPECT_EQ(WideToUtf8(Got(*metadata, &IVssExamineWriterMetadataEx2::SaveAsXML)), kOwnText);
  EXPECT_EQ(Got(*metadata, &IVssExamineWriterMetadataEx2::GetBackupSchema), 0U);
}

TEST_F(WriterMetadata, GivesCapturesOfARealServerByteForByte) {
  const char* folder = std::getenv("VARNEL_CAPTURES");
  if (folder == nullptr) GTEST_SKIP() << "VARNEL_CAPTURES does not name a folder with captured documents";
  int documents = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.path().filename().string().starts_with("WM")) continue;
    SCOPED_TRACE(entry.path().filename().string());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto metadata = Examine(simulator::ReadWriterDocument(text));
    EXPECT_TRUE(WideToUtf8(Got(*metadata, &IVssExamineWriterMetadataEx2::SaveAsXML)) == text);
    ++documents;
  }
  EXPECT_EQ(documents, 11);
}

TEST_F(WriterMetadata, TakesComponentInformationBackOnceAndOnlyItsOwn) {
  {
    const auto metadata = Examine(MakeWriter(L"W", 1, {MakeComponent(L"", L"c", {}), MakeComponent(L"", L"d", {})}));
    const auto component = ComponentOf(*metadata);
    const auto other = ComponentOf(*metadata, 1);
    PVSSCOMPONENTINFO info = nullptr;
    ASSERT_THAT(component->GetComponentInfo(&info), Gives(S_OK));
    EXPECT_EQ(host().live().Count("VSS_COMPONENTINFO"), 1);
    EXPECT_THAT(other->FreeComponentInfo(info), Gives(E_INVALIDARG));
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(S_OK));
    EXPECT_THAT(component->FreeComponentInfo(info), Gives(E_INVALIDARG));
    EXPECT_THAT(component->FreeComponentInfo(nullptr), Gives(S_OK));
    EXPECT_EQ(host().live().Count("VSS_COMPONENTINFO"), 0);
    EXPECT_THAT(host().live().misuses(), SizeIs(2));
  }
  Install(SmallHost());
}

}  // namespace
}  // namespace varnel::test
