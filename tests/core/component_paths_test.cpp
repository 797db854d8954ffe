// The records of writers, components and files as they start, identifiers and texts, and paths of components.
#include <algorithm>
#include <cstdint>

#include "core/component_tree.h"
#include "core/metadata_reader.h"
#include "core/writer_metadata.h"
#include "tests/core/component_paths.h"
#include "tests/support/foreign_text.h"
#include "tests/support/request_fixture.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::test {
namespace {

// The character is one wchar_t or a surrogate pair.

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

TEST(FullPathTest, IsTheLogicalPathAndTheNameAfterOneBackslash) {
  EXPECT_EQ(ComponentFullPath(L"A\\B", L"c"), L"\\A\\B\\c");
  EXPECT_EQ(ComponentFullPath(L"\\A\\B\\", L"c"), L"\\A\\B\\c");
  EXPECT_EQ(ComponentFullPath(L"A", L"b\\c"), L"\\A\\b\\c");
  EXPECT_EQ(ComponentFullPath(L"SQL01\\" + kForeign, L"d b"), L"\\SQL01\\" + kForeign + L"\\d b");
}

TEST(FullPathTest, WithoutALogicalPathIsTheNameAfterABackslash) {
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

TEST(AncestorTest, APathIsTheAncestorOfThePathsBelowItInAnyCase) {
  const std::pair<const wchar_t*, const wchar_t*> related[] = {
      {L"\\A", L"\\A\\B"},
      {L"\\A", L"\\A\\B\\C"},
      {L"\\A\\B", L"\\A\\B\\C"},
      {L"\\a", L"\\A\\B"},
      {L"\\ABCxyz", L"\\abcXYZ\\db"},
      {L"\\\u00E9", L"\\\u00E9\\db"},
      {L"\\A\\", L"\\A\\\\B"},
      {L"\\A", L"\\A\\"},
      {L"\\", L"\\\\A"},
  };
  for (const auto& [a, b] : related) EXPECT_TRUE(IsAncestorPath(a, b)) << WideToUtf8(a) << " and " << WideToUtf8(b);
}

TEST(AncestorTest, AnyOtherPathIsNoAncestor) {
  const std::pair<const wchar_t*, const wchar_t*> unrelated[] = {
      {L"\\A\\B", L"\\A"},
      {L"\\A\\B", L"\\A\\C\\D"},
      {L"\\B", L"\\A\\B\\C"},
      // a common beginning of a name
      {L"\\A", L"\\AB"},
      {L"\\AB", L"\\A"},
      {L"\\A", L"\\AB\\C"},
      // only the letters of ASCII have a case
      {L"\\\u00C9", L"\\\u00E9\\db"},
      {L"\\[", L"\\{\\db"},
      {L"\\@", L"\\`\\db"},
      // no path is its own ancestor
      {L"\\A", L"\\A"},
      {L"\\a", L"\\A"},
      {L"\\", L"\\"},
      // a trailing backslash belongs to the name
      {L"\\A\\", L"\\A\\B"},
      {L"\\", L"\\A"},
  };
  for (const auto& [a, b] : unrelated) EXPECT_FALSE(IsAncestorPath(a, b)) << WideToUtf8(a) << " and " << WideToUtf8(b);
  const VssComponent component = At(L"\\A");
  EXPECT_FALSE(IsAncestor(component, component));
}

// The ancestors of a component by the tree: the components of the paths above it.
std::vector<std::size_t> AncestorsOf(const ComponentTree& tree, std::size_t component, std::size_t count) {
  std::vector<std::size_t> ancestors;
  tree.VisitAncestors(component, [&](std::size_t path) {
    for (std::size_t index = 0; index < count; ++index) {
      if (tree.PathOf(index) == path) ancestors.push_back(index);
    }
    return true;
  });
  std::sort(ancestors.begin(), ancestors.end());
  return ancestors;
}

TEST(AncestorTest, TheTreeAgreesWithThePairwiseRuleOnManyTrees) {
  std::size_t pairs = 0;
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    PathGenerator generator(seed);
    std::vector<VssComponent> components(generator.Below(30));
    for (VssComponent& component : components) {
      component.fullPath = ComponentFullPath(generator.LogicalPath(), generator.Segment());
    }
    const ComponentTree tree(components);
    for (std::size_t b = 0; b < components.size(); ++b) {
      std::vector<std::size_t> expected;
      for (std::size_t a = 0; a < components.size(); ++a) {
        const bool stated = PairwiseAncestor(components[a].fullPath, components[b].fullPath);
        ASSERT_EQ(IsAncestor(components[a], components[b]), stated) << "seed " << seed << ", " << a << " and " << b;
        if (stated) expected.push_back(a);
      }
      pairs += expected.size();
      ASSERT_EQ(AncestorsOf(tree, b, components.size()), expected) << "seed " << seed << ", component " << b;
      ASSERT_EQ(tree.HasAncestor(b), !expected.empty());
    }
  }
  EXPECT_GT(pairs, 1000u);
}

}  // namespace
}  // namespace varnel::test
