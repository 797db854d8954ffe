// The requestor's records of writers, components and files, read from the simulated service's metadata.
#include "core/writer_metadata.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "simulator/vss/vss_metadata.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

using simulator::FileSpec;
using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;
using testing::SizeIs;

// The character is one wchar_t or a surrogate pair.
const std::wstring kForeign = L"\u00E9\u65E5\U0001F680";

// ---- Records ----

// Whether the addresses ascend.
bool Ascend(std::initializer_list<const void*> addresses) {
  std::uintptr_t previous = 0;
  for (const void* address : addresses) {
    const auto current = reinterpret_cast<std::uintptr_t>(address);
    if (current <= previous) return false;
    previous = current;
  }
  return true;
}

TEST(Records, AFileDescriptorStartsEmptyWithItsFieldsInOrder) {
  const VssFileDescriptor file;
  EXPECT_TRUE(Ascend({&file.path, &file.filespec, &file.pathOnVolume, &file.reserved, &file.recursive, &file.fileType,
                      &file.expandedPath, &file.volumeName, &file.snapshotDeviceName, &file.snapshotDiskName,
                      &file.snapshotSerialNumber}));
  EXPECT_FALSE(file.recursive);
  EXPECT_EQ(file.fileType, 0u);
}

TEST(Records, AComponentStartsNeitherExcludedNorAddedNorFailed) {
  const VssComponent component;
  EXPECT_TRUE(Ascend({&component.name, &component.writerName, &component.logicalPath, &component.caption,
                      &component.type, &component.selectable, &component.notifyOnBackupComplete, &component.fullPath,
                      &component.topLevel, &component.excluded, &component.added, &component.files,
                      &component.failureCode, &component.failed, &component.affectedSerialNumbers}));
  EXPECT_FALSE(component.excluded);
  EXPECT_FALSE(component.added);
  EXPECT_EQ(component.failureCode, 0u);
  EXPECT_FALSE(component.failed);
  EXPECT_THAT(component.affectedSerialNumbers, IsEmpty());
}

TEST(Records, AWriterStartsNotExcludedWithItsFieldsInOrder) {
  const VssWriter writer;
  EXPECT_TRUE(Ascend({&writer.name, &writer.writerId, &writer.instanceId, &writer.components, &writer.excludeFiles,
                      &writer.writerRestore, &writer.restoreInvolvesWriter, &writer.restoreMethod,
                      &writer.rebootRequiredAfterRestore, &writer.excluded}));
  EXPECT_FALSE(writer.excluded);
}

TEST(Records, TheKindsOfFilesHaveTheirNumbers) {
  EXPECT_EQ(VssFileDescriptor::ExcludeFile, 1);
  EXPECT_EQ(VssFileDescriptor::File, 2);
  EXPECT_EQ(VssFileDescriptor::DatabaseFile, 3);
  EXPECT_EQ(VssFileDescriptor::DatabaseLogFile, 4);
}

TEST(Texts, AnIdentifierIsLowerCaseHexadecimalInBraces) {
  EXPECT_EQ(FormatGuid(GUID{0xABCDEF01, 0x0203, 0xFEDC, {0, 1, 0x0F, 0xF0, 0xAA, 0xBB, 0xCC, 0xDD}}),
            L"{abcdef01-0203-fedc-0001-0ff0aabbccdd}");
  EXPECT_EQ(FormatGuid(GUID{}), L"{00000000-0000-0000-0000-000000000000}");
}

TEST(Texts, AnIdentifierComesBackFromItsText) {
  const GUID id{0xABCDEF01, 0x0203, 0xFEDC, {0, 1, 0x0F, 0xF0, 0xAA, 0xBB, 0xCC, 0xDD}};
  EXPECT_EQ(GuidOrNull<GUID>(FormatGuid(id)), id);
  EXPECT_EQ(GuidOrNull<GUID>(L"{ABCDEF01-0203-FEDC-0001-0FF0AABBCCDD}"), id);
  for (const wchar_t* text :
       {L"", L"abcdef01-0203-fedc-0001-0ff0aabbccdd", L"{abcdef01-0203-fedc-0001-0ff0aabbccdg}"}) {
    EXPECT_EQ(GuidOrNull<GUID>(text), GUID{});
  }
}

TEST(Texts, ABstrIsReadByItsLength) {
  EXPECT_EQ(ViewOf(nullptr), L"");
  const std::wstring text(L"a\0b", 3);
  const BSTR bstr = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  EXPECT_EQ(ViewOf(bstr), text);
  ::SysFreeString(bstr);
}

TEST(Texts, WideTextBecomesNarrow) {
  EXPECT_EQ(WideToLocale(L""), "");
  EXPECT_EQ(WideToLocale(L"plain"), "plain");
  EXPECT_EQ(WideToLocale(L"\u65E5"), "\xE6\x97\xA5");
}

// ---- Full paths and ancestors ----

TEST(FullPathTest, IsTheLogicalPathAndTheNameBehindOneBackslash) {
  EXPECT_EQ(ComponentFullPath(L"A\\B", L"c"), L"\\A\\B\\c");
  EXPECT_EQ(ComponentFullPath(L"\\A\\B\\", L"c"), L"\\A\\B\\c");
  EXPECT_EQ(ComponentFullPath(L"A", L"b\\c"), L"\\A\\b\\c");
  EXPECT_EQ(ComponentFullPath(L"SQL01\\" + kForeign, L"d b"), L"\\SQL01\\" + kForeign + L"\\d b");
}

TEST(FullPathTest, WithoutALogicalPathIsTheNameBehindABackslash) {
  EXPECT_EQ(ComponentFullPath(L"", L"db"), L"\\db");
  EXPECT_EQ(ComponentFullPath(L"", L"\\db"), L"\\\\db");
}

TEST(FullPathTest, WithoutANameEndsInABackslash) {
  EXPECT_EQ(ComponentFullPath(L"A", L""), L"\\A\\");
  EXPECT_EQ(ComponentFullPath(L"", L""), L"\\");
}

VssComponent At(std::wstring fullPath) {
  VssComponent component;
  component.fullPath = std::move(fullPath);
  return component;
}

bool IsAncestorPath(const std::wstring& a, const std::wstring& b) {
  return IsAncestor(At(a), At(b));
}

TEST(AncestorTest, APathIsTheAncestorOfThePathsBelowIt) {
  EXPECT_TRUE(IsAncestorPath(L"\\A", L"\\A\\B"));
  EXPECT_TRUE(IsAncestorPath(L"\\A", L"\\A\\B\\C"));
  EXPECT_TRUE(IsAncestorPath(L"\\A\\B", L"\\A\\B\\C"));
  EXPECT_FALSE(IsAncestorPath(L"\\A\\B", L"\\A"));
  EXPECT_FALSE(IsAncestorPath(L"\\A\\B", L"\\A\\C\\D"));
  EXPECT_FALSE(IsAncestorPath(L"\\B", L"\\A\\B\\C"));
}

TEST(AncestorTest, ACommonBeginningOfANameIsNoAncestor) {
  EXPECT_FALSE(IsAncestorPath(L"\\A", L"\\AB"));
  EXPECT_FALSE(IsAncestorPath(L"\\AB", L"\\A"));
  EXPECT_FALSE(IsAncestorPath(L"\\A", L"\\AB\\C"));
}

TEST(AncestorTest, CaseIsIgnored) {
  EXPECT_TRUE(IsAncestorPath(L"\\a", L"\\A\\B"));
  EXPECT_TRUE(IsAncestorPath(L"\\ABCxyz", L"\\abcXYZ\\db"));
}

TEST(AncestorTest, OnlyTheLettersOfAsciiHaveACase) {
  EXPECT_FALSE(IsAncestorPath(L"\\\u00C9", L"\\\u00E9\\db"));
  EXPECT_TRUE(IsAncestorPath(L"\\\u00E9", L"\\\u00E9\\db"));
  EXPECT_FALSE(IsAncestorPath(L"\\[", L"\\{\\db"));
  EXPECT_FALSE(IsAncestorPath(L"\\@", L"\\`\\db"));
}

TEST(AncestorTest, NoPathIsItsOwnAncestor) {
  EXPECT_FALSE(IsAncestorPath(L"\\A", L"\\A"));
  EXPECT_FALSE(IsAncestorPath(L"\\a", L"\\A"));
  EXPECT_FALSE(IsAncestorPath(L"\\", L"\\"));
  const VssComponent component = At(L"\\A");
  EXPECT_FALSE(IsAncestor(component, component));
}

TEST(AncestorTest, ATrailingBackslashBelongsToTheName) {
  EXPECT_FALSE(IsAncestorPath(L"\\A\\", L"\\A\\B"));
  EXPECT_FALSE(IsAncestorPath(L"\\", L"\\A"));
  EXPECT_TRUE(IsAncestorPath(L"\\A\\", L"\\A\\\\B"));
  EXPECT_TRUE(IsAncestorPath(L"\\A", L"\\A\\"));
  EXPECT_TRUE(IsAncestorPath(L"\\", L"\\\\A"));
}

// The rule as it is stated, pair by pair.
bool StatedAncestor(std::wstring a, std::wstring b) {
  if (a.size() >= b.size()) return false;
  a += L'\\';
  b += L'\\';
  b.resize(a.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; };
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

// Component paths that often lie below each other; the same on every run.
class PathGenerator {
 public:
  explicit PathGenerator(std::uint32_t seed) : random_(seed) {}

  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::wstring Segment() {
    static const std::array<std::wstring, 9> kSegments = {L"a", L"A", L"b", L"ab", L"aB", L"", L"\u00C9", L" a", L"a."};
    return kSegments[Below(kSegments.size())];
  }
  std::wstring LogicalPath() {
    std::wstring path = Below(4) == 0 ? L"\\" : L"";
    for (std::size_t i = Below(4); i > 0; --i) path += Segment() + (i == 1 && Below(3) != 0 ? L"" : L"\\");
    return path;
  }

 private:
  std::mt19937 random_;
};

// The descendants of each component, and whether the tree agrees with them.
std::vector<std::vector<std::size_t>> DescendantsByComponent(const std::vector<VssComponent>& components) {
  const ComponentTree tree(components);
  const Descendants descendants(tree);
  std::vector<std::vector<std::size_t>> lists;
  std::vector<bool> below(components.size());
  for (std::size_t index = 0; index < tree.size(); ++index) {
    const auto list = descendants.Of(index);
    for (const std::size_t descendant : list) below[descendant] = true;
    lists.emplace_back(list.begin(), list.end());
  }
  for (std::size_t index = 0; index < tree.size(); ++index) EXPECT_EQ(tree.HasAncestor(index), below[index]) << index;
  EXPECT_EQ(tree.anyAncestor(), std::find(below.begin(), below.end(), true) != below.end());
  return lists;
}

TEST(AncestorTest, DescendantsAgreeWithThePairwiseRuleOnManyTrees) {
  std::size_t pairs = 0;
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    PathGenerator generator(seed);
    std::vector<VssComponent> components(generator.Below(30));
    for (VssComponent& component : components) {
      component.fullPath = ComponentFullPath(generator.LogicalPath(), generator.Segment());
    }
    const std::vector<std::vector<std::size_t>> descendants = DescendantsByComponent(components);
    ASSERT_THAT(descendants, SizeIs(components.size()));
    for (std::size_t a = 0; a < components.size(); ++a) {
      std::vector<std::size_t> expected;
      for (std::size_t b = 0; b < components.size(); ++b) {
        const bool stated = StatedAncestor(components[a].fullPath, components[b].fullPath);
        ASSERT_EQ(IsAncestor(components[a], components[b]), stated) << "seed " << seed << ", " << a << " and " << b;
        if (stated) expected.push_back(b);
      }
      pairs += expected.size();
      ASSERT_EQ(descendants[a], expected) << "seed " << seed << ", component " << a;
    }
  }
  EXPECT_GT(pairs, 1000u);
}

TEST(AncestorTest, DescendantsStandInListOrder) {
  const std::vector<VssComponent> components = {At(L"\\A\\z"), At(L"\\a"), At(L"\\A\\b\\c"), At(L"\\A"), At(L"\\a\\b")};
  EXPECT_THAT(DescendantsByComponent(components),
              ElementsAre(IsEmpty(), ElementsAre(0, 2, 4), IsEmpty(), ElementsAre(0, 2, 4), ElementsAre(2)));
  EXPECT_THAT(DescendantsByComponent({}), IsEmpty());
}

// ---- Reading ----

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
class MixedComponent final : public IVssWMComponent {
 public:
  MixedComponent(IVssWMComponent* files, IVssWMComponent* database) : files_(files), database_(database) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    PVSSCOMPONENTINFO database = nullptr;
    if (FAILED(files_->GetComponentInfo(&held_)) || FAILED(database_->GetComponentInfo(&database))) return E_FAIL;
    info_ = *held_;
    info_.cDatabases = database->cDatabases;
    info_.cLogFiles = database->cLogFiles;
    *info = &info_;
    return database_->FreeComponentInfo(database);
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    EXPECT_EQ(info, &info_);
    return files_->FreeComponentInfo(held_);
  }
  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override { return files_->GetFile(index, file); }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT index, IVssWMFiledesc** file) override {
    return database_->GetDatabaseFile(index, file);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT index, IVssWMFiledesc** file) override {
    return database_->GetDatabaseLogFile(index, file);
  }
  HRESULT STDMETHODCALLTYPE GetDependency(UINT, IVssWMDependency**) override { return VSS_E_OBJECT_NOT_FOUND; }

 private:
  IVssWMComponent* files_;
  IVssWMComponent* database_;
  PVSSCOMPONENTINFO held_ = nullptr;
  VSS_COMPONENTINFO info_{};
};

TEST_F(WriterMetadataTest, FilesComeBeforeDatabaseFilesAndThoseBeforeLogs) {
  WriterComponent database = MakeComponent(L"", L"database", {});
  database.type = VSS_CT_DATABASE;
  database.databaseFiles = {{L"E:\\db", L"db.edb"}};
  database.logFiles = {{L"E:\\db", L"db.log"}};
  const auto writer = std::make_shared<const Writer>(
      MakeWriter(L"Writer", 1, {MakeComponent(L"", L"files", {L"E:\\1", L"E:\\2"}), std::move(database)}));
  const auto metadata = ComPtr<IVssExamineWriterMetadata>::Attach(
      simulator::MakeWriterMetadata(host().machine().shared_from_this(), writer));
  ComPtr<IVssWMComponent> first;
  ComPtr<IVssWMComponent> second;
  ASSERT_EQ(metadata->GetComponent(0, first.Put()), S_OK);
  ASSERT_EQ(metadata->GetComponent(1, second.Put()), S_OK);
  MixedComponent mixed(first.Get(), second.Get());
  DirectoryResolver directories;
  RecentTexts logicalPaths;
  VssComponent record;
  BuildComponent(record, L"Some writer", &mixed, directories, logicalPaths);
  EXPECT_EQ(record.name, L"files");
  EXPECT_EQ(record.writerName, L"Some writer");
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
        topLevel = topLevel && !StatedAncestor(other.fullPath, component.fullPath);
      }
      ASSERT_EQ(component.topLevel, topLevel) << writer.writerId.c_str();
      if (!topLevel) ++below;
    }
  }
  EXPECT_GT(below, 100u);
}

// ---- Files and volumes ----

TEST_F(WriterMetadataTest, AFileOnADriveKnowsItsVolumeAndItsPlaceThere) {
  const VssFileDescriptor file = ReadFile(L"E:\\data\\db");
  EXPECT_EQ(file.path, L"E:\\data\\db");
  EXPECT_EQ(file.filespec, L"data.bin");
  EXPECT_EQ(file.expandedPath, L"E:\\data\\db\\");
  EXPECT_EQ(file.volumeName, VolumeName(1));
  EXPECT_EQ(file.pathOnVolume, L"data\\db\\");
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

TEST_F(WriterMetadataTest, ABackslashAtTheEndIsNotDoubled) {
  const VssFileDescriptor file = ReadFile(L"E:\\data\\");
  EXPECT_EQ(file.path, L"E:\\data\\");
  EXPECT_EQ(file.expandedPath, L"E:\\data\\");
  EXPECT_EQ(file.pathOnVolume, L"data\\");
}

TEST_F(WriterMetadataTest, TheRootOfADriveHasNoPathOnItsVolume) {
  for (const wchar_t* path : {L"E:\\", L"E:"}) {
    const VssFileDescriptor file = ReadFile(path);
    EXPECT_EQ(file.expandedPath, L"E:\\");
    EXPECT_EQ(file.volumeName, VolumeName(1));
    EXPECT_EQ(file.pathOnVolume, L"");
  }
}

TEST_F(WriterMetadataTest, TheCaseOfADriveDoesNotMatterAndThePathKeepsItsOwn) {
  const VssFileDescriptor file = ReadFile(L"e:\\DaTa");
  EXPECT_EQ(file.expandedPath, L"e:\\DaTa\\");
  EXPECT_EQ(file.volumeName, VolumeName(1));
  EXPECT_EQ(file.pathOnVolume, L"DaTa\\");
}

TEST_F(WriterMetadataTest, AMountedFolderIsCutFromThePath) {
  const VssFileDescriptor file = ReadFile(L"C:\\mnt\\data\\db\\x");
  EXPECT_EQ(file.volumeName, VolumeName(3));
  EXPECT_EQ(file.pathOnVolume, L"db\\x\\");
  EXPECT_EQ(ReadFile(L"C:\\mnt\\data").pathOnVolume, L"");
}

TEST_F(WriterMetadataTest, TheDeepestMountedFolderCounts) {
  const VssFileDescriptor file = ReadFile(L"C:\\mnt\\data\\deep\\db");
  EXPECT_EQ(file.volumeName, VolumeName(4));
  EXPECT_EQ(file.pathOnVolume, L"db\\");
  EXPECT_EQ(ReadFile(L"C:\\mnt\\data\\deeper").volumeName, VolumeName(3));
  EXPECT_EQ(ReadFile(L"C:\\mnt").volumeName, VolumeName(0));
}

TEST_F(WriterMetadataTest, APathMayNameItsVolume) {
  const VssFileDescriptor file = ReadFile(VolumeName(1) + L"Boot");
  EXPECT_EQ(file.expandedPath, VolumeName(1) + L"Boot\\");
  EXPECT_EQ(file.volumeName, VolumeName(1));
  EXPECT_EQ(file.pathOnVolume, L"Boot\\");
}

TEST_F(WriterMetadataTest, AFileOfAnUnknownVolumeKeepsItsExpandedPathAsVolume) {
  for (const std::wstring& path :
       {std::wstring(L"X:\\data"), VolumeName(99) + L"x", std::wstring(L"\\\\server\\share")}) {
    const VssFileDescriptor file = ReadFile(path);
    EXPECT_EQ(file.expandedPath, path + L"\\");
    EXPECT_EQ(file.volumeName, path + L"\\");
    EXPECT_EQ(file.pathOnVolume, L"");
    EXPECT_THAT(log.Errors(), IsEmpty());
  }
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

TEST_F(WriterMetadataTest, APathWithoutADriveLiesWhereTheSystemLooksForIt) {
  const VssFileDescriptor file = ReadFile(L"temp");
  EXPECT_EQ(file.expandedPath, L"temp\\");
  EXPECT_EQ(file.volumeName, VolumeName(0));
  EXPECT_EQ(file.pathOnVolume, L"temp\\");
}

TEST_F(WriterMetadataTest, AnEmptyPathBecomesABackslash) {
  const VssFileDescriptor file = ReadFile(L"");
  EXPECT_EQ(file.path, L"");
  EXPECT_EQ(file.expandedPath, L"\\");
}

TEST_F(WriterMetadataTest, EnvironmentVariablesAreExpandedInTheExpandedPathOnly) {
  const VssFileDescriptor file = ReadFile(L"%systemroot%\\Temp\\%FOREIGN%");
  EXPECT_EQ(file.path, L"%systemroot%\\Temp\\%FOREIGN%");
  EXPECT_EQ(file.expandedPath, L"C:\\Windows\\Temp\\E:\\" + kForeign + L"\\");
  EXPECT_EQ(file.volumeName, VolumeName(0));
  EXPECT_EQ(file.pathOnVolume, L"Windows\\Temp\\E:\\" + kForeign + L"\\");
}

TEST_F(WriterMetadataTest, AnUnknownVariableStaysAsItStands) {
  EXPECT_EQ(ReadFile(L"E:\\%NOSUCH%\\x").expandedPath, L"E:\\%NOSUCH%\\x\\");
  EXPECT_EQ(ReadFile(L"E:\\100%").expandedPath, L"E:\\100%\\");
}

TEST_F(WriterMetadataTest, TextOutsideTheBasicPlaneIsKept) {
  const VssFileDescriptor file = ReadFile(L"E:\\" + kForeign);
  EXPECT_EQ(file.path, L"E:\\" + kForeign);
  EXPECT_EQ(file.pathOnVolume, kForeign + L"\\");
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

TEST_F(WriterMetadataTest, AVariableMayMakeAPathLong) {
  const VssFileDescriptor file = ReadFile(L"%DATA%\\" + std::wstring(100, L'x'));
  EXPECT_EQ(file.expandedPath, L"E:\\" + std::wstring(200, L'd') + L"\\" + std::wstring(100, L'x') + L"\\");
  EXPECT_EQ(file.volumeName, VolumeName(1));
}

TEST_F(WriterMetadataTest, ADirectoryIsResolvedOnceByAResolver) {
  DirectoryResolver directories;
  const DirectoryResolver::Directory first = directories.Resolve(L"E:\\data");
  EXPECT_EQ(first.path, L"E:\\data");
  EXPECT_EQ(first.expandedPath, L"E:\\data\\");
  EXPECT_EQ(first.volumeName, VolumeName(1));
  EXPECT_EQ(first.pathOnVolume, L"data\\");
  const DirectoryResolver::Directory lost = directories.Resolve(L"X:\\data\\");
  EXPECT_EQ(lost.volumeName, L"X:\\data\\");
  EXPECT_EQ(lost.pathOnVolume, L"");
  EXPECT_EQ(directories.Resolve(L"E:\\data\\").volumeName.c_str(), first.volumeName.c_str());
  EXPECT_EQ(directories.Resolve(L"X:\\data").volumeName.c_str(), lost.volumeName.c_str());
  EXPECT_THAT(Calls("GetVolumePathNameW"), SizeIs(2));
}

TEST_F(WriterMetadataTest, DirectoriesOfOneVolumeShareItsName) {
  DirectoryResolver directories;
  const SharedText first = directories.Resolve(L"E:\\data").volumeName;
  EXPECT_EQ(directories.Resolve(L"E:\\log").volumeName.c_str(), first.c_str());
  EXPECT_EQ(directories.Resolve(L"C:\\").volumeName, VolumeName(0));
}

TEST_F(WriterMetadataTest, APathThatWasReportedInAnotherSpellingIsKeptAsItStands) {
  const std::vector<VssFileDescriptor> files = Read(MakeComponent(L"", L"a", {L"E:\\data", L"E:\\data\\"})).files;
  ASSERT_THAT(files, SizeIs(2));
  EXPECT_EQ(files[0].path, L"E:\\data");
  EXPECT_EQ(files[1].path, L"E:\\data\\");
  EXPECT_EQ(files[0].expandedPath.c_str(), files[1].expandedPath.c_str());
}

TEST(RecentTextsTest, EqualTextsShareABlockWhileTheyAreAmongTheLastTwo) {
  RecentTexts texts;
  const SharedText first = texts.Share(L"server");
  const SharedText second = texts.Share(L"server\\database");
  EXPECT_EQ(texts.Share(L"server").c_str(), first.c_str());
  EXPECT_EQ(texts.Share(L"server\\database").c_str(), second.c_str());
  EXPECT_EQ(texts.Share(L"another"), L"another");
  EXPECT_EQ(texts.Share(L"server\\database").c_str(), second.c_str());
  EXPECT_EQ(texts.Share(L"server"), L"server");
  EXPECT_EQ(texts.Share(L""), L"");
  EXPECT_EQ(texts.Share(L"server"), L"server");
}

// ---- Failures ----

struct MetadataCall {
  const char* call;
  const char* text;
  bool deliversAnObject;
};

constexpr MetadataCall kMetadataCalls[] = {
    {"IVssExamineWriterMetadata::GetIdentity",
     "pMetadata->GetIdentity(&idInstance, &idWriter, &bstrWriterName, &usage, &source)", false},
    {"IVssExamineWriterMetadata::GetRestoreMethod",
     "pMetadata->GetRestoreMethod(&restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, "
     "&rebootRequiredAfterRestore, &iMappings)",
     false},
    {"IVssExamineWriterMetadata::GetFileCounts",
     "pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)", false},
    {"IVssExamineWriterMetadata::GetExcludeFile", "pMetadata->GetExcludeFile(i, &pFileDesc)", true},
    {"IVssExamineWriterMetadata::GetComponent", "pMetadata->GetComponent(iComponent, &pComponent)", true},
    {"IVssWMComponent::GetComponentInfo", "pComponent->GetComponentInfo(&pInfo)", true},
    {"IVssWMComponent::GetFile", "pComponent->GetFile(i, &pFileDesc)", true},
    {"IVssWMComponent::GetDatabaseFile", "pComponent->GetDatabaseFile(i, &pFileDesc)", true},
    {"IVssWMComponent::GetDatabaseLogFile", "pComponent->GetDatabaseLogFile(i, &pFileDesc)", true},
    {"IVssWMFiledesc::GetPath", "pFileDesc->GetPath(&bstrPath)", false},
    {"IVssWMFiledesc::GetFilespec", "pFileDesc->GetFilespec(&bstrFilespec)", false},
    {"IVssWMFiledesc::GetRecursive", "pFileDesc->GetRecursive(&bRecursive)", false},
    {"IVssWMFiledesc::GetAlternateLocation", "pFileDesc->GetAlternateLocation(&bstrAlternate)", false},
};

struct Code {
  HRESULT value;
  const char* digits;
  const char* text;
};

constexpr Code kCodes[] = {
    {E_UNEXPECTED, "0x8000ffff", "E_UNEXPECTED"},
    {E_OUTOFMEMORY, "0x8007000e", "E_OUTOFMEMORY"},
    {E_ACCESSDENIED, "0x80070005", "Access is denied.\r\n"},
    {VSS_E_BAD_STATE, "0x80042301", "VSS_E_BAD_STATE"},
    {VSS_E_OBJECT_NOT_FOUND, "0x80042308", "VSS_E_OBJECT_NOT_FOUND"},
    {VSS_E_INVALID_XML_DOCUMENT, "0x80042311", "VSS_E_INVALID_XML_DOCUMENT"},
    {static_cast<HRESULT>(0x80000000), "0x80000000", "Error: 0x80000000"},
};

class MetadataFailureTest : public HostFixture {
 protected:
  /// Two writers with everything that can be read, then an empty one.
  static HostModel Model() {
    HostModel model = SmallHost();
    model.messages[5] = L"Access is denied.\r\n";
    for (const DWORD n : {1u, 2u}) {
      WriterComponent files = MakeComponent(L"", L"files", {L"E:\\1", L"E:\\2"});
      files.files[0].alternatePath = L"F:\\1";
      WriterComponent database = MakeComponent(L"a", L"database", {});
      database.type = VSS_CT_DATABASE;
      database.databaseFiles = {{L"E:\\3", L"3"}};
      database.logFiles = {{L"F:\\4", L"4"}};
      Writer writer = MakeWriter(L"Writer", n, {std::move(files), std::move(database)});
      writer.restoreMethod->service = L"service";
      writer.restoreMethod->userProcedure = L"procedure";
      writer.restoreMethod->method = VSS_RME_STOP_RESTORE_START;
      writer.excludeFiles = {{L"E:\\5", L"5"}};
      model.writers.push_back(std::move(writer));
    }
    model.writers.push_back(MakeWriter(L"Empty", 3, {}));
    return model;
  }

  /// Makes one call fail (or succeed without doing anything) and reads. The end of the reading is looked at; what the
  /// requestor held must be gone afterwards. False when the call was not made so often.
  bool ReadWithFault(const MetadataCall& call, int occurrence, HRESULT injected, const Code& expected) {
    Install(Model());
    log.lines.clear();
    FailCall(call.call, injected, occurrence);
    bool failed = false;
    {
      SnapshotRequest<> request;
      const std::optional<long> thrown = ThrownLong([&] { request.Gather(); });
      failed = thrown.has_value();
      if (failed) {
        EXPECT_EQ(thrown, Failure(expected.value));
        EXPECT_THAT(log.Errors(), ElementsAre(std::string("ERROR: COM call \"") + call.text + "\" failed.",
                                              std::string("- Returned HRESULT = ") + expected.digits,
                                              std::string("- Error text: ") + expected.text));
        ExpectWritersReadSoFar(request.requestor);
        EXPECT_TRUE(request.probe.metadataGathered());
      }
      EXPECT_EQ(request.alerts(), "");
    }
    ExpectNothingLive();
    EXPECT_THAT(host().live().misuses(), IsEmpty());
    return failed;
  }

 private:
  // Every writer but the one whose reading failed.
  void ExpectWritersReadSoFar(const CVarnel& requestor) {
    const std::size_t asked = Calls("IVssBackupComponents::GetWriterMetadata").size();
    ASSERT_THAT(requestor.GetWriters(), SizeIs(asked - 1));
    for (const VssWriter& writer : requestor.GetWriters()) {
      EXPECT_EQ(writer.name, L"Writer");
      EXPECT_THAT(writer.components, SizeIs(2));
      EXPECT_THAT(writer.excludeFiles, SizeIs(1));
    }
  }
};

TEST_F(MetadataFailureTest, EveryGetterMayFailAnyTimeWithEveryCode) {
  for (const MetadataCall& call : kMetadataCalls) {
    for (const Code& code : kCodes) {
      SCOPED_TRACE(std::string(call.call) + " " + code.digits);
      int failures = 0;
      while (failures < 100 && ReadWithFault(call, failures + 1, code.value, code)) ++failures;
      EXPECT_GE(failures, 2);
      EXPECT_LT(failures, 100);
    }
  }
}

TEST_F(MetadataFailureTest, ASuccessWithoutAnObjectIsUnexpected) {
  constexpr Code kUnexpected = {E_UNEXPECTED, "0x8000ffff", "E_UNEXPECTED"};
  for (const MetadataCall& call : kMetadataCalls) {
    if (!call.deliversAnObject) continue;
    for (const HRESULT success : {S_OK, S_FALSE}) {
      SCOPED_TRACE(call.call);
      EXPECT_TRUE(ReadWithFault(call, 1, success, kUnexpected));
      EXPECT_TRUE(ReadWithFault(call, 2, success, kUnexpected));
    }
  }
}

TEST_F(MetadataFailureTest, ASuccessWithoutATextIsTheEmptyText) {
  for (const char* call : {"IVssExamineWriterMetadata::GetIdentity", "IVssExamineWriterMetadata::GetRestoreMethod",
                           "IVssWMFiledesc::GetPath", "IVssWMFiledesc::GetFilespec", "IVssWMFiledesc::GetRecursive",
                           "IVssWMFiledesc::GetAlternateLocation"}) {
    Install(Model());
    FailCall(call, S_FALSE, 0);
    GatheredRequest request;
    ASSERT_THAT(request.requestor.GetWriters(), SizeIs(3));
    const VssWriter& writer = request.requestor.GetWriters()[0];
    const bool isIdentity = std::string_view(call).ends_with("GetIdentity");
    EXPECT_EQ(writer.name, isIdentity ? L"" : L"Writer");
    EXPECT_EQ(writer.excludeFiles.at(0).filespec, std::string_view(call).ends_with("GetFilespec") ? L"" : L"5");
    EXPECT_EQ(writer.excludeFiles.at(0).path, std::string_view(call).ends_with("GetPath") ? L"" : L"E:\\5");
  }
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(MetadataFailureTest, TheLinesAreErrorsOfTheCore) {
  ReadWithFault(kMetadataCalls[0], 1, E_UNEXPECTED, kCodes[0]);
  ASSERT_GE(log.lines.size(), 3u);
  for (std::size_t i = log.lines.size() - 3; i < log.lines.size(); ++i) {
    EXPECT_EQ(log.lines[i].source, "varnel");
    EXPECT_EQ(log.lines[i].category, 4);
  }
}

// The environment of a path that cannot be expanded.
class ExpansionFailureTest : public HostFixture {
 protected:
  std::optional<long> Read(std::wstring path, int occurrence, DWORD error) {
    HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Before", 1, {}),
                     MakeWriter(L"Writer", 2, {MakeComponent(L"", L"c", {std::move(path)})})};
    model.faults.calls = {{"ExpandEnvironmentStringsW", occurrence, error}};
    Install(std::move(model));
    log.lines.clear();
    SnapshotRequest<> request;
    const std::optional<long> thrown = ThrownLong([&] { request.Gather(); });
    EXPECT_EQ(request.alerts(), "");
    EXPECT_THAT(request.requestor.GetWriters(), SizeIs(1));
    return thrown;
  }
};

TEST_F(ExpansionFailureTest, IsLoggedWithThePathAsItWasReported) {
  EXPECT_EQ(Read(L"%SystemRoot%\\temp", 1, ERROR_NOT_ENOUGH_MEMORY), Win32Failure(ERROR_NOT_ENOUGH_MEMORY));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=%SystemRoot%\\temp, Error=0x8"));
}

TEST_F(ExpansionFailureTest, WithoutAnErrorCodeCountsAsAGeneralOne) {
  EXPECT_EQ(Read(L"E:\\x", 1, 0), Win32Failure(31));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=E:\\x, Error=0x1f"));
}

TEST_F(ExpansionFailureTest, MayHappenAtTheSecondAttempt) {
  const std::wstring path = L"E:\\" + std::wstring(300, L'x');
  EXPECT_EQ(Read(path, 2, ERROR_ACCESS_DENIED), Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.Errors(),
              ElementsAre("ExpandEnvironmentStringsW() Failed, Path=" + WideToUtf8(path) + ", Error=0x5"));
}

TEST_F(ExpansionFailureTest, AnHresultAsErrorCodeStaysAsItIs) {
  EXPECT_EQ(Read(L"E:\\x", 1, static_cast<DWORD>(E_ACCESSDENIED)), Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=E:\\x, Error=0x80070005"));
}

}  // namespace
}  // namespace varnel::test
