// The records of writers, components and files as an agent's own requestor uses them: plain values.
#include <map>
#include <set>
#include <type_traits>

#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

TEST(RecordTypes, AreTheOnesAnAgentIsCompiledWith) {
  static_assert(std::is_same_v<decltype(VssFileDescriptor::path), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::filespec), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::pathOnVolume), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::reserved), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::recursive), bool>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::fileType), DWORD>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::expandedPath), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::volumeName), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::snapshotDeviceName), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::snapshotDiskName), std::wstring>);
  static_assert(std::is_same_v<decltype(VssFileDescriptor::snapshotSerialNumber), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::name), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::writerName), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::logicalPath), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::caption), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::fullPath), std::wstring>);
  static_assert(std::is_same_v<decltype(VssComponent::files), std::vector<VssFileDescriptor>>);
  static_assert(std::is_same_v<decltype(VssComponent::affectedSerialNumbers), std::set<std::wstring>>);
  static_assert(std::is_same_v<decltype(VssWriter::name), std::wstring>);
  static_assert(std::is_same_v<decltype(VssWriter::writerId), std::wstring>);
  static_assert(std::is_same_v<decltype(VssWriter::instanceId), std::wstring>);
  static_assert(std::is_same_v<decltype(VssWriter::components), std::vector<VssComponent>>);
  static_assert(std::is_same_v<decltype(VssWriter::excludeFiles), std::vector<VssFileDescriptor>>);
  SUCCEED();
}

// Reads and changes every kind of field in its own way, as the language allows for its type.
class Agent final : public CVarnel {
 public:
  using CVarnel::CVarnel;

  bool IsWriterEligible(VssWriter& writer) override {
    std::wstring& name = writer.name;
    name += L" (seen)";
    return name.rfind(L"Mail", 0) == 0 && writer.instanceId < L"{1" && writer.writerId.substr(0, 1) == L"{";
  }
  bool IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials) override {
    component.caption.append(L"!").insert(0, L"<");
    for (VssFileDescriptor& file : component.files) {
      std::wstring& volume = file.volumeName;
      volumeSerials[volume] = L"TSL0001";
      file.reserved = file.path + file.filespec;
      paths.push_back(file.expandedPath);
    }
    const bool eligible = CVarnel::IsComponentEligible(component, volumeSerials);
    std::set<std::wstring>& disks = component.affectedSerialNumbers;
    found = disks.count(L"TSL0001");
    disks.insert(L"EXTRA");
    erased = disks.erase(L"EXTRA");
    return eligible;
  }

  std::vector<std::wstring> paths;
  std::size_t found = 0;
  std::size_t erased = 0;
};

class RecordsTest : public HostFixture {
 protected:
  void SetUp() override { Install(HostOfThreeWriters()); }
};

TEST_F(RecordsTest, AnAgentReadsAndChangesThemInPlace) {
  CreatedRequest<Agent> request;
  EXPECT_EQ(request.probe.writers()[0].name, L"Mail (seen)");
  EXPECT_TRUE(request.probe.writers()[1].excluded);
  const VssComponent& component = request.component(0, 0);
  EXPECT_EQ(component.caption, L"<db1!");
  EXPECT_EQ(component.files[0].reserved, L"E:\\db1data.bin");
  EXPECT_THAT(request.requestor.paths, ElementsAre(L"E:\\db1\\", L"E:\\db2\\"));
  EXPECT_EQ(request.requestor.found, 1u);
  EXPECT_EQ(request.requestor.erased, 1u);
  EXPECT_THAT(component.affectedSerialNumbers, ElementsAre(L"TSL0001"));
}

TEST_F(RecordsTest, ACopyIsAValueOfItsOwn) {
  GatheredRequest request;
  const VssWriter original = request.probe.writers()[0];
  VssWriter copy = original;
  copy.name += L"2";
  copy.components[0].files[0].volumeName.clear();
  copy.components[0].affectedSerialNumbers = {L"b", L"a"};
  EXPECT_EQ(original.name, L"Mail");
  EXPECT_EQ(original.components[0].files[0].volumeName, VolumeName(1));
  EXPECT_THAT(original.components[0].affectedSerialNumbers, IsEmpty());
  EXPECT_THAT(copy.components[0].affectedSerialNumbers, ElementsAre(L"a", L"b"));
}

}  // namespace
}  // namespace varnel::test
