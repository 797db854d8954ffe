// The requestor's records of writers, components and files, read from the simulated service's metadata.
#include <cstdint>

#include "tests/core/component_paths.h"
#include "tests/support/foreign_text.h"
#include "tests/support/forwarding_vss.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;

// The character is one wchar_t or a surrogate pair.

class WriterMetadataTest : public HostFixture {
 protected:
  std::vector<VssWriter> Read(HostModel model) {
    Install(std::move(model));
    log.lines.clear();
    GatheredRequest request;
    EXPECT_EQ(request.alerts(), "");
    return request.requestor.GetWriters();
  }
  VssWriter Read(Writer writer) {
    HostModel model = SmallHost();
    model.writers = {std::move(writer)};
    return Only(Read(std::move(model)));
  }
  VssComponent Read(WriterComponent component) {
    return Only(Read(MakeWriter(L"Writer", 1, {std::move(component)})).components);
  }
  /// The only file of a host with some more disks than usual.
  VssFileDescriptor ReadFile(std::wstring path) {
    HostModel model = SmallHost();
    model.disks.push_back(MakeDisk(L"TSL0003", 3, L"C:\\mnt\\data\\"));
    model.disks.push_back(MakeDisk(L"TSL0004", 4, L"C:\\mnt\\data\\deep\\"));
    model.environment[L"DATA"] = L"E:\\" + std::wstring(200, L'd');
    model.environment[L"FOREIGN"] = L"E:\\" + kForeign;
    model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"c", {std::move(path)})})};
    return Only(Only(Only(Read(std::move(model))).components).files);
  }

 private:
  template <class T>
  static T Only(const std::vector<T>& list) {
    EXPECT_THAT(list, SizeIs(1));
    return list.empty() ? T() : list.front();
  }
};

TEST_F(WriterMetadataTest, AWriterHasItsNamesAndIdentifiers) {
  Writer writer = MakeWriter(L"Writer " + kForeign, 1, {});
  writer.writerId = ParseGuid<GUID>("{A65FAA63-5EA8-4EBC-9DBD-A0C4DB26912A}");
  writer.instanceId = ParseGuid<GUID>("{00000000-0000-0000-0000-0000000000FF}");
  const VssWriter record = Read(writer);
  EXPECT_EQ(record.name, L"Writer " + kForeign);
  EXPECT_EQ(record.writerId, L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_EQ(record.instanceId, L"{00000000-0000-0000-0000-0000000000ff}");
  EXPECT_FALSE(record.excluded);
}

TEST_F(WriterMetadataTest, AWriterWithoutComponentsIsKept) {
  HostModel model = SmallHost();
  model.writers = {MakeWriter(L"Empty", 1, {}), MakeWriter(L"Full", 2, {MakeComponent(L"", L"db", {})})};
  const std::vector<VssWriter> writers = Read(model);
  ASSERT_THAT(writers, SizeIs(2));
  EXPECT_EQ(writers[0].name, L"Empty");
  EXPECT_THAT(writers[0].components, IsEmpty());
  EXPECT_THAT(writers[0].excludeFiles, IsEmpty());
  ASSERT_THAT(writers[1].components, SizeIs(1));
  EXPECT_THAT(writers[1].components[0].files, IsEmpty());
}

TEST_F(WriterMetadataTest, AWriterMayHaveNoName) {
  EXPECT_EQ(Read(MakeWriter(L"", 1, {})).name, L"");
}

TEST_F(WriterMetadataTest, TheRestoreMethodIsKept) {
  Writer writer = MakeWriter(L"Writer", 1, {});
  writer.restoreMethod =
      simulator::RestoreMethod{VSS_RME_STOP_RESTORE_START, L"Service", L"Procedure", VSS_WRE_IF_REPLACE_FAILS, true};
  const VssWriter record = Read(writer);
  EXPECT_EQ(record.restoreMethod, static_cast<DWORD>(VSS_RME_STOP_RESTORE_START));
  EXPECT_EQ(record.writerRestore, static_cast<DWORD>(VSS_WRE_IF_REPLACE_FAILS));
  EXPECT_TRUE(record.rebootRequiredAfterRestore);
  EXPECT_TRUE(record.restoreInvolvesWriter);
}

TEST_F(WriterMetadataTest, OnlyNeverKeepsTheWriterOutOfARestore) {
  for (const auto& [writerRestore, involved] :
       {std::pair{VSS_WRE_UNDEFINED, true}, std::pair{VSS_WRE_NEVER, false}, std::pair{VSS_WRE_IF_REPLACE_FAILS, true},
        std::pair{VSS_WRE_ALWAYS, true}}) {
    Writer writer = MakeWriter(L"Writer", 1, {});
    writer.restoreMethod->writerRestore = writerRestore;
    const VssWriter record = Read(writer);
    EXPECT_EQ(record.writerRestore, static_cast<DWORD>(writerRestore));
    EXPECT_EQ(record.restoreInvolvesWriter, involved);
    EXPECT_FALSE(record.rebootRequiredAfterRestore);
  }
}

TEST_F(WriterMetadataTest, AWriterWithoutARestoreMethodIsNoFailure) {
  Writer writer = MakeWriter(L"Writer", 1, {});
  writer.restoreMethod.reset();
  const VssWriter record = Read(writer);
  EXPECT_THAT(Calls("IVssExamineWriterMetadata::GetRestoreMethod"),
              ElementsAre("IVssExamineWriterMetadata::GetRestoreMethod() = S_FALSE"));
  EXPECT_EQ(record.restoreMethod, 0u);
  EXPECT_EQ(record.writerRestore, 0u);
  EXPECT_TRUE(record.restoreInvolvesWriter);
  EXPECT_FALSE(record.rebootRequiredAfterRestore);
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(WriterMetadataTest, ExcludeFilesAreReadInOrder) {
  Writer writer = MakeWriter(L"Writer", 1, {});
  writer.excludeFiles = {{L"%SystemRoot%\\temp", L"*.tmp", true}, {L"E:\\pagefile", L"", false}};
  const VssWriter record = Read(writer);
  ASSERT_THAT(record.excludeFiles, SizeIs(2));
  EXPECT_EQ(record.excludeFiles[0].path, L"%SystemRoot%\\temp");
  EXPECT_EQ(record.excludeFiles[0].filespec, L"*.tmp");
  EXPECT_EQ(record.excludeFiles[0].expandedPath, L"C:\\Windows\\temp\\");
  EXPECT_EQ(record.excludeFiles[0].volumeName, VolumeName(0));
  EXPECT_EQ(record.excludeFiles[1].filespec, L"");
  for (const VssFileDescriptor& file : record.excludeFiles) EXPECT_EQ(file.fileType, 1u);
}

TEST_F(WriterMetadataTest, AComponentHasWhatItsInformationSays) {
  WriterComponent component = MakeComponent(L"SQL01\\" + kForeign, L"sales", {});
  component.caption = L"Sales\r\nsecond line " + kForeign;
  component.notifyOnBackupComplete = true;
  component.selectable = false;
  const VssComponent record = Read(component);
  EXPECT_EQ(record.name, L"sales");
  EXPECT_EQ(record.writerName, L"Writer");
  EXPECT_EQ(record.logicalPath, L"SQL01\\" + kForeign);
  EXPECT_EQ(record.caption, L"Sales\r\nsecond line " + kForeign);
  EXPECT_EQ(record.type, static_cast<DWORD>(VSS_CT_FILEGROUP));
  EXPECT_FALSE(record.selectable);
  EXPECT_TRUE(record.notifyOnBackupComplete);
  EXPECT_EQ(record.fullPath, L"\\SQL01\\" + kForeign + L"\\sales");
  EXPECT_TRUE(record.topLevel);
  EXPECT_FALSE(record.excluded);
  EXPECT_FALSE(record.added);
}

TEST_F(WriterMetadataTest, AComponentWithoutALogicalPathHasItsNameAsFullPath) {
  EXPECT_EQ(Read(MakeComponent(L"", L"db", {})).fullPath, L"\\db");
}

TEST_F(WriterMetadataTest, ATextThatIsMissingIsRecordedLikeAnEmptyOne) {
  WriterComponent missing = MakeComponent(L"", L"db", {});
  missing.logicalPath.reset();
  missing.caption.reset();
  WriterComponent empty = missing;
  empty.logicalPath = L"";
  empty.caption = L"";
  for (const WriterComponent& component : {missing, empty}) {
    const VssComponent record = Read(component);
    EXPECT_EQ(record.logicalPath, L"");
    EXPECT_EQ(record.caption, L"");
    EXPECT_EQ(record.fullPath, L"\\db");
  }
}

TEST_F(WriterMetadataTest, AComponentMayHaveNoNameAtAll) {
  const VssComponent record = Read(MakeComponent(L"", L"", {}));
  EXPECT_EQ(record.name, L"");
  EXPECT_EQ(record.fullPath, L"\\");
}

TEST_F(WriterMetadataTest, TheFilesOfAFileGroupAreFiles) {
  const VssComponent record = Read(MakeComponent(L"", L"db", {L"E:\\b", L"E:\\a", L"F:\\c"}));
  ASSERT_THAT(record.files, SizeIs(3));
  EXPECT_EQ(record.files[0].path, L"E:\\b");
  EXPECT_EQ(record.files[1].path, L"E:\\a");
  EXPECT_EQ(record.files[2].path, L"F:\\c");
  for (const VssFileDescriptor& file : record.files) EXPECT_EQ(file.fileType, 2u);
}

TEST_F(WriterMetadataTest, ADatabaseHasItsFilesBeforeItsLogs) {
  WriterComponent component = MakeComponent(L"", L"db", {});
  component.type = VSS_CT_DATABASE;
  component.databaseFiles = {{L"E:\\db", L"2.edb"}, {L"E:\\db", L"1.edb"}};
  component.logFiles = {{L"F:\\log", L"E00*.log"}, {L"F:\\log", L"E00.chk"}};
  const VssComponent record = Read(component);
  EXPECT_EQ(record.type, static_cast<DWORD>(VSS_CT_DATABASE));
  std::vector<std::pair<std::wstring, DWORD>> files;
  for (const VssFileDescriptor& file : record.files) files.emplace_back(file.filespec, file.fileType);
  EXPECT_THAT(files, ElementsAre(std::pair(L"2.edb", 3u), std::pair(L"1.edb", 3u), std::pair(L"E00*.log", 4u),
                                 std::pair(L"E00.chk", 4u)));
}

// A component with files of all three kinds, which no writer of the simulated host has: the files of one component, the
// database and log files of another.
class MixedComponent final : public OnMachine<ForwardingComponent> {
 public:
  MixedComponent(MachinePtr machine, ComPtr<IVssWMComponent> files, ComPtr<IVssWMComponent> database)
      : OnMachine(std::move(machine), std::move(files)), database_(std::move(database)) {}
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    PVSSCOMPONENTINFO database = nullptr;
    if (FAILED(inner().GetComponentInfo(&held_)) || FAILED(database_->GetComponentInfo(&database))) return E_FAIL;
    info_ = *held_;
    info_.cDatabases = database->cDatabases;
    info_.cLogFiles = database->cLogFiles;
    *info = &info_;
    return database_->FreeComponentInfo(database);
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    EXPECT_EQ(info, &info_);
    return inner().FreeComponentInfo(held_);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT index, IVssWMFiledesc** file) override {
    return database_->GetDatabaseFile(index, file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT index, IVssWMFiledesc** file) override {
    return database_->GetDatabaseLogFile(index, file);
  }

 private:
  ComPtr<IVssWMComponent> database_;
  PVSSCOMPONENTINFO held_ = nullptr;
  VSS_COMPONENTINFO info_{};
};

// Its one component is made of its writer's first two.
class MixedMetadata final : public OnMachine<ForwardingMetadata> {
 public:
  using OnMachine::OnMachine;
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    const HRESULT result = inner().GetFileCounts(includeFiles, excludeFiles, components);
    *components = 1;
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT, IVssWMComponent** component) override {
    ComPtr<IVssWMComponent> files;
    ComPtr<IVssWMComponent> database;
    if (FAILED(inner().GetComponent(0, files.Put())) || FAILED(inner().GetComponent(1, database.Put()))) return E_FAIL;
    *component = new MixedComponent(sharedMachine(), std::move(files), std::move(database));
    return S_OK;
  }
};

class MixedBackup final : public OnMachine<ForwardingBackup> {
 public:
  using OnMachine::OnMachine;
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    ComPtr<IVssExamineWriterMetadata> plain;
    const HRESULT result = inner().GetWriterMetadata(index, instance, plain.Put());
    if (SUCCEEDED(result)) *metadata = new MixedMetadata(sharedMachine(), std::move(plain));
    return result;
  }
};

class MixedService final : public ForwardingVss {
 public:
  explicit MixedService(simulator::SimulatedHost& host)
      : ForwardingVss(host.vss()), machine_(host.machine().shared_from_this()) {}

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new MixedBackup(machine_, std::move(backup));
  }
  MachinePtr machine_;
};

TEST_F(WriterMetadataTest, FilesComeBeforeDatabaseFilesAndThoseBeforeLogs) {
  WriterComponent database = MakeComponent(L"", L"database", {});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{L"E:\\db", L"db.edb"}};
  database.logFiles = {{L"E:\\db", L"db.log"}};
  model().writers = {
      MakeWriter(L"Writer", 1, {MakeComponent(L"", L"files", {L"E:\\1", L"E:\\2"}), std::move(database)})};
  MixedService mixed(host());
  const CurrentHostWith current(host(), mixed);
  GatheredRequest request;
  const VssComponent& record = request.component(0, 0);
  EXPECT_EQ(record.name, L"files");
  EXPECT_EQ(record.writerName, L"Writer");
  std::vector<DWORD> types;
  for (const VssFileDescriptor& file : record.files) types.push_back(file.fileType);
  EXPECT_THAT(types, ElementsAre(2u, 2u, 3u, 4u));
}

TEST_F(WriterMetadataTest, ComponentsKeepTheWritersOrder) {
  const VssWriter record = Read(MakeWriter(
      L"Writer", 1, {MakeComponent(L"z", L"1", {}), MakeComponent(L"a", L"2", {}), MakeComponent(L"m", L"0", {})}));
  std::vector<std::wstring> names;
  for (const VssComponent& component : record.components) names.push_back(component.name);
  EXPECT_THAT(names, ElementsAre(L"1", L"2", L"0"));
}

TEST_F(WriterMetadataTest, AComponentBelowAnotherIsNotTopLevel) {
  const VssWriter record = Read(MakeWriter(L"Writer", 1,
                                           {MakeComponent(L"A\\B", L"c", {}), MakeComponent(L"", L"a", {}),
                                            MakeComponent(L"", L"AB", {}), MakeComponent(L"x", L"y", {})}));
  std::vector<bool> topLevel;
  for (const VssComponent& component : record.components) topLevel.push_back(component.topLevel);
  EXPECT_THAT(topLevel, ElementsAre(false, true, true, true));
}

TEST_F(WriterMetadataTest, ComponentsOfOtherWritersAreNoAncestors) {
  HostModel model = SmallHost();
  model.writers = {MakeWriter(L"One", 1, {MakeComponent(L"", L"a", {})}),
                   MakeWriter(L"Two", 2, {MakeComponent(L"a", L"b", {})})};
  const std::vector<VssWriter> writers = Read(model);
  EXPECT_TRUE(writers[1].components[0].topLevel);
}

TEST_F(WriterMetadataTest, TwoComponentsOfOnePathAreBothTopLevel) {
  const VssWriter record = Read(MakeWriter(L"Writer", 1, {MakeComponent(L"", L"a", {}), MakeComponent(L"", L"A", {})}));
  EXPECT_TRUE(record.components[0].topLevel);
  EXPECT_TRUE(record.components[1].topLevel);
}

TEST_F(WriterMetadataTest, TopLevelAgreesWithThePairwiseRuleOnManyTrees) {
  HostModel model = SmallHost();
  for (std::uint32_t seed = 0; seed < 100; ++seed) {
    PathGenerator generator(seed);
    Writer writer = MakeWriter(L"Writer", seed + 1, {});
    for (std::size_t i = generator.Below(25); i > 0; --i) {
      writer.components.push_back(MakeComponent(generator.LogicalPath(), generator.Segment(), {}));
    }
    model.writers.push_back(std::move(writer));
  }
  std::size_t below = 0;
  for (const VssWriter& writer : Read(model)) {
    for (const VssComponent& component : writer.components) {
      bool topLevel = true;
      for (const VssComponent& other : writer.components) {
        topLevel = topLevel && !PairwiseAncestor(other.fullPath, component.fullPath);
      }
      ASSERT_EQ(component.topLevel, topLevel) << writer.writerId;
      if (!topLevel) ++below;
    }
  }
  EXPECT_GT(below, 100u);
}

// ---- Files and volumes ----

struct Place {
  std::wstring path;
  std::wstring expandedPath;
  std::wstring volume;
  std::wstring pathOnVolume;
};

TEST_F(WriterMetadataTest, AFileKnowsItsVolumeAndItsPlaceThere) {
  const std::wstring foreign = L"Windows\\Temp\\E:\\" + kForeign + L"\\";
  const std::wstring longName = std::wstring(200, L'd') + L"\\" + std::wstring(100, L'x') + L"\\";
  const Place places[] = {
      {L"E:\\data\\db", L"E:\\data\\db\\", VolumeName(1), L"data\\db\\"},
      {L"E:\\data\\", L"E:\\data\\", VolumeName(1), L"data\\"},
      {L"E:\\", L"E:\\", VolumeName(1), L""},
      {L"E:", L"E:\\", VolumeName(1), L""},
      {L"e:\\DaTa", L"e:\\DaTa\\", VolumeName(1), L"DaTa\\"},
      {L"E:\\" + kForeign, L"E:\\" + kForeign + L"\\", VolumeName(1), kForeign + L"\\"},
      // mounted folders, of which the deepest counts
      {L"C:\\mnt", L"C:\\mnt\\", VolumeName(0), L"mnt\\"},
      {L"C:\\mnt\\data", L"C:\\mnt\\data\\", VolumeName(3), L""},
      {L"C:\\mnt\\data\\db\\x", L"C:\\mnt\\data\\db\\x\\", VolumeName(3), L"db\\x\\"},
      {L"C:\\mnt\\data\\deeper", L"C:\\mnt\\data\\deeper\\", VolumeName(3), L"deeper\\"},
      {L"C:\\mnt\\data\\deep\\db", L"C:\\mnt\\data\\deep\\db\\", VolumeName(4), L"db\\"},
      // a volume by its name, and a path that the system looks for
      {VolumeName(1) + L"Boot", VolumeName(1) + L"Boot\\", VolumeName(1), L"Boot\\"},
      {L"temp", L"temp\\", VolumeName(0), L"temp\\"},
      // an unknown volume
      {L"X:\\data", L"X:\\data\\", L"X:\\data\\", L""},
      {VolumeName(99) + L"x", VolumeName(99) + L"x\\", VolumeName(99) + L"x\\", L""},
      {L"\\\\server\\share", L"\\\\server\\share\\", L"\\\\server\\share\\", L""},
      // variables
      {L"%systemroot%\\Temp\\%FOREIGN%", L"C:\\" + foreign, VolumeName(0), foreign},
      {L"%DATA%\\" + std::wstring(100, L'x'), L"E:\\" + longName, VolumeName(1), longName},
      {L"E:\\%NOSUCH%\\x", L"E:\\%NOSUCH%\\x\\", VolumeName(1), L"%NOSUCH%\\x\\"},
      {L"E:\\100%", L"E:\\100%\\", VolumeName(1), L"100%\\"},
  };
  for (const Place& place : places) {
    SCOPED_TRACE(WideToUtf8(place.path));
    const VssFileDescriptor file = ReadFile(place.path);
    EXPECT_EQ(file.path, place.path);
    EXPECT_EQ(file.filespec, L"data.bin");
    EXPECT_EQ(file.expandedPath, place.expandedPath);
    EXPECT_EQ(file.volumeName, place.volume);
    EXPECT_EQ(file.pathOnVolume, place.pathOnVolume);
    EXPECT_THAT(log.Errors(), IsEmpty());
  }
}

TEST_F(WriterMetadataTest, WhatOnlyLaterStepsFillStaysEmpty) {
  HostModel model = SmallHost();
  WriterComponent component = MakeComponent(L"", L"c", {});
  component.files = {{L"E:\\data", L"*", true, L"F:\\elsewhere"}};
  const VssFileDescriptor file = Read(component).files.at(0);
  EXPECT_FALSE(file.recursive);
  EXPECT_EQ(file.reserved, L"");
  EXPECT_EQ(file.snapshotDeviceName, L"");
  EXPECT_EQ(file.snapshotDiskName, L"");
  EXPECT_EQ(file.snapshotSerialNumber, L"");
  EXPECT_EQ(file.expandedPath, L"E:\\data\\");
}

TEST_F(WriterMetadataTest, AVolumeThatCannotBeAskedForIsUnknown) {
  for (const char* call : {"GetVolumePathNameW", "GetVolumeNameForVolumeMountPointW"}) {
    HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Writer", 1, {MakeComponent(L"", L"c", {L"E:\\data"})})};
    model.faults.calls = {{call, 1, ERROR_ACCESS_DENIED}};
    const std::vector<VssWriter> writers = Read(model);
    const VssFileDescriptor& file = writers.at(0).components.at(0).files.at(0);
    EXPECT_EQ(file.volumeName, L"E:\\data\\");
    EXPECT_EQ(file.pathOnVolume, L"");
  }
}

TEST_F(WriterMetadataTest, AnEmptyPathBecomesABackslash) {
  const VssFileDescriptor file = ReadFile(L"");
  EXPECT_EQ(file.path, L"");
  EXPECT_EQ(file.expandedPath, L"\\");
}

TEST_F(WriterMetadataTest, ALongPathIsExpandedWithTheRoomItNeeds) {
  const std::wstring directory(30000, L'x');
  const VssFileDescriptor file = ReadFile(L"E:\\" + directory);
  EXPECT_EQ(file.expandedPath, L"E:\\" + directory + L"\\");
  EXPECT_EQ(file.volumeName, VolumeName(1));
  EXPECT_EQ(file.pathOnVolume, directory + L"\\");
  EXPECT_THAT(Calls("ExpandEnvironmentStringsW"), SizeIs(2));
}

TEST_F(WriterMetadataTest, OnlyAPathThatDoesNotFitIsExpandedTwice) {
  for (const auto& [length, calls] : {std::pair<std::size_t, std::size_t>{259, 1}, {260, 2}}) {
    const std::wstring path = L"E:\\" + std::wstring(length - 3, L'x');
    EXPECT_EQ(ReadFile(path).expandedPath, path + L"\\");
    EXPECT_THAT(Calls("ExpandEnvironmentStringsW"), SizeIs(calls));
  }
}

TEST_F(WriterMetadataTest, ADirectoryIsResolvedOnce) {
  const std::vector<VssFileDescriptor> files =
      Read(MakeComponent(L"", L"c", {L"E:\\data", L"X:\\data\\", L"E:\\data\\", L"X:\\data", L"E:\\log"})).files;
  ASSERT_THAT(files, SizeIs(5));
  for (const std::size_t place : {0u, 2u}) {
    EXPECT_EQ(files[place].expandedPath, L"E:\\data\\");
    EXPECT_EQ(files[place].volumeName, VolumeName(1));
    EXPECT_EQ(files[place].pathOnVolume, L"data\\");
  }
  for (const std::size_t place : {1u, 3u}) {
    EXPECT_EQ(files[place].volumeName, L"X:\\data\\");
    EXPECT_EQ(files[place].pathOnVolume, L"");
  }
  EXPECT_EQ(files[4].volumeName, VolumeName(1));
  EXPECT_THAT(Calls("GetVolumePathNameW"), Contains("GetVolumePathNameW(E:\\data\\) = ok").Times(1));
}

TEST_F(WriterMetadataTest, APathThatWasReportedInAnotherSpellingIsKeptAsItStands) {
  const std::vector<VssFileDescriptor> files = Read(MakeComponent(L"", L"a", {L"E:\\data", L"E:\\data\\"})).files;
  ASSERT_THAT(files, SizeIs(2));
  EXPECT_EQ(files[0].path, L"E:\\data");
  EXPECT_EQ(files[1].path, L"E:\\data\\");
  EXPECT_EQ(files[0].expandedPath, files[1].expandedPath);
}

TEST_F(WriterMetadataTest, SpellingsOfOneDirectoryLeadToOneVolume) {
  model().environment[L"MailData"] = L"E:\\mail";
  model().writers = {MakeWriter(L"Writer", 1,
                                {MakeComponent(L"", L"c",
                                               {L"%MailData%\\db", L"%MAILDATA%\\db", L"%maildata%\\db\\",
                                                L"E:\\mail\\db", L"e:\\MAIL\\DB", L"E:\\Mail\\db\\"})})};
  GatheredRequest request;
  const std::vector<VssFileDescriptor>& files = request.component(0, 0).files;
  ASSERT_THAT(files, SizeIs(6));
  for (const VssFileDescriptor& file : files) EXPECT_EQ(file.volumeName, VolumeName(1)) << WideToUtf8(file.path);
  for (const std::size_t place : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(files[place].expandedPath, L"E:\\mail\\db\\");
    EXPECT_EQ(files[place].pathOnVolume, L"mail\\db\\");
  }
  EXPECT_EQ(files[4].expandedPath, L"e:\\MAIL\\DB\\");
  EXPECT_EQ(files[4].pathOnVolume, L"MAIL\\DB\\");
}

// Today a failed look-up is remembered.
TEST_F(WriterMetadataTest, ALookUpThatFailedIsAskedAgainForTheNextFile) {
  for (const char* call : {"GetVolumePathNameW", "GetVolumeNameForVolumeMountPointW"}) {
    SCOPED_TRACE(call);
    StartOver();
    model().writers = {
        MakeWriter(L"Writer", 1, {MakeComponent(L"", L"c", {L"E:\\data", L"E:\\data", L"E:\\data\\", L"E:\\data"})})};
    FailCall(call, ERROR_NOT_ENOUGH_MEMORY);
    GatheredRequest request;
    const std::vector<VssFileDescriptor>& files = request.component(0, 0).files;
    EXPECT_EQ(files[0].volumeName, L"E:\\data\\");
    EXPECT_EQ(files[0].pathOnVolume, L"");
    for (const std::size_t place : {1u, 2u, 3u}) {
      EXPECT_EQ(files[place].volumeName, VolumeName(1));
      EXPECT_EQ(files[place].pathOnVolume, L"data\\");
    }
    EXPECT_THAT(Calls("GetVolumePathNameW"), SizeIs(2)) << "what was found is remembered";
  }
}

}  // namespace
}  // namespace varnel::test
