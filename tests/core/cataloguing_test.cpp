// The application objects of a snapshot by disk, and the wrapper of the metadata bridge.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <type_traits>

#include "core/cataloguing.h"
#include "platform/tessel/MetadataWrapper.h"
#include "tests/support/request_fixture.h"

// The bridge library fills the wrapper's fields itself, so their places are part of the interface.
struct MetadataWrapperLayout {
  static_assert(std::is_standard_layout_v<MetadataWrapper>);
  static_assert(sizeof(MetadataWrapper) == 5 * sizeof(void*));
  static_assert(offsetof(MetadataWrapper, dbFilesToQuiesce) == 3 * sizeof(void*));
  static_assert(offsetof(MetadataWrapper, sqlClusterName) == 4 * sizeof(void*));
  static_assert(std::is_same_v<decltype(MetadataWrapper::dbFilesToQuiesce), char*>);
  static_assert(std::is_same_v<decltype(MetadataWrapper::sqlClusterName), char*>);

  static char*& SqlClusterName(MetadataWrapper& wrapper) { return wrapper.sqlClusterName; }
  // All five fields as they lie in memory.
  static std::vector<void*> Fields(const MetadataWrapper& wrapper) {
    std::vector<void*> fields(5);
    std::memcpy(fields.data(), &wrapper, sizeof wrapper);
    return fields;
  }
  static MetadataWrapper OfFields(const std::vector<void*>& fields) {
    MetadataWrapper wrapper;
    wrapper.service = fields[0];
    wrapper.session = fields[1];
    wrapper.errorDetails = static_cast<char*>(fields[2]);
    wrapper.dbFilesToQuiesce = static_cast<char*>(fields[3]);
    wrapper.sqlClusterName = static_cast<char*>(fields[4]);
    return wrapper;
  }
};

namespace varnel::test {
namespace {

using testing::Key;
using testing::Pair;

using Catalog = std::map<std::string, ApplicationObjectMeatadataInfo>;

// The four lists of an entry.
testing::Matcher<const ApplicationObjectMeatadataInfo&> Entry(const std::vector<std::string>& appIds,
                                                              const std::vector<std::string>& appNames,
                                                              const std::vector<std::string>& otherIds = {},
                                                              const std::vector<std::string>& otherNames = {}) {
  using Info = ApplicationObjectMeatadataInfo;
  return testing::AllOf(testing::Field("appObjectIds", &Info::appObjectIds, ElementsAreArray(appIds)),
                        testing::Field("appObjectNames", &Info::appObjectNames, ElementsAreArray(appNames)),
                        testing::Field("otherObjectIds", &Info::otherObjectIds, ElementsAreArray(otherIds)),
                        testing::Field("otherObjectNames", &Info::otherObjectNames, ElementsAreArray(otherNames)));
}

VssComponent Component(const std::wstring& name, std::set<std::wstring> disks) {
  VssComponent component;
  component.name = name;
  component.logicalPath = L"SQL01";
  component.fullPath = L"\\SQL01\\" + name;
  component.affectedSerialNumbers = std::move(disks);
  return component;
}

class Cataloguing : public HostFixture {
 protected:
  template <class Requestor>
  Catalog Read(SnapshotRequest<Requestor>& request) {
    Catalog catalog;
    request.requestor.GetSnapshotMeatadata(catalog);
    return catalog;
  }
  /// What a requestor with these writers catalogues.
  Catalog CatalogOf(std::vector<VssWriter> writers, std::vector<std::wstring> extraDisks = {}) {
    SnapshotRequest request;
    request.probe.writers() = std::move(writers);
    request.probe.extraSerialNumbers() = std::move(extraDisks);
    return Read(request);
  }
};

TEST_F(Cataloguing, WithoutSelectedComponentsAndExtraDisksTheMapIsEmpty) {
  EXPECT_THAT(CatalogOf({WriterOf({})}), IsEmpty());
  EXPECT_THAT(log.All(), ElementsAre("I Getting snapshot meatadata"));
}

TEST_F(Cataloguing, WhatTheMapHeldBeforeIsGone) {
  SnapshotRequest request;
  Catalog catalog = {{"OLD", {{"id"}, {"name"}, {}, {}}}};
  request.requestor.GetSnapshotMeatadata(catalog);
  EXPECT_THAT(catalog, IsEmpty());
}

TEST_F(Cataloguing, AComponentIsNamedByItsNameAndIdentifiedByItsFullPath) {
  SnapshotRequest request;
  ComponentCatalogingInfo info;
  request.probe.GetComponentInfoForCataloging(Component(L"sales", {}), info);
  EXPECT_EQ(info.appObjectName, L"sales");
  EXPECT_EQ(info.appObjectId, L"\\SQL01\\sales");
}

TEST_F(Cataloguing, AComponentOnTwoDisksAppearsUnderBothKeys) {
  EXPECT_THAT(CatalogOf({WriterOf({Component(L"sales", {L"TSL0001", L"TSL0002"})})}),
              ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"})),
                          Pair("TSL0002", Entry({"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, ObjectsOfOneDiskStandInTheOrderOfTheWritersAndTheirComponents) {
  EXPECT_THAT(
      CatalogOf({WriterOf({Component(L"sales", {L"TSL0001"}), Component(L"crm", {L"TSL0001"})}),
                 WriterOf({Component(L"a", {L"TSL0001"})})}),
      ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales", "\\SQL01\\crm", "\\SQL01\\a"}, {"sales", "crm", "a"}))));
}

TEST_F(Cataloguing, AnExcludedWriterContributesNothingEvenForSelectedComponents) {
  VssWriter excluded = WriterOf({Component(L"sales", {L"TSL0001"})});
  excluded.excluded = true;
  EXPECT_THAT(CatalogOf({excluded, WriterOf({Component(L"crm", {L"TSL0002"})})}),
              ElementsAre(Pair("TSL0002", Entry({"\\SQL01\\crm"}, {"crm"}))));
}

TEST_F(Cataloguing, AnExcludedComponentContributesNothing) {
  VssComponent excluded = Component(L"sales", {L"TSL0001"});
  excluded.excluded = true;
  EXPECT_THAT(CatalogOf({WriterOf({excluded, Component(L"crm", {L"TSL0001"})})}),
              ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\crm"}, {"crm"}))));
}

TEST_F(Cataloguing, ASelectedComponentCountsWhetherOrNotItWasAdded) {
  VssComponent added = Component(L"added", {L"TSL0001"});
  added.added = true;
  EXPECT_THAT(CatalogOf({WriterOf({added, Component(L"implicit", {L"TSL0001"})})}),
              ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\added", "\\SQL01\\implicit"}, {"added", "implicit"}))));
}

TEST_F(Cataloguing, AComponentWithoutDisksMakesNoEntry) {
  EXPECT_THAT(CatalogOf({WriterOf({Component(L"sales", {})})}), IsEmpty());
}

TEST_F(Cataloguing, AFailedComponentIsAnOtherObject) {
  VssComponent failed = Component(L"sales", {L"TSL0001"});
  failed.failed = true;
  failed.failureCode = static_cast<DWORD>(VSS_E_WRITERERROR_TIMEOUT);
  EXPECT_THAT(CatalogOf({WriterOf({failed, Component(L"crm", {L"TSL0001"})})}),
              ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\crm"}, {"crm"}, {"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, AComponentThatFailedWithTheCode0IsAnApplicationObject) {
  VssComponent component = Component(L"sales", {L"TSL0001"});
  component.failed = true;
  EXPECT_THAT(CatalogOf({WriterOf({component})}), ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, AFailureCodeWithoutTheFailureMarkIsNoFailure) {
  VssComponent component = Component(L"sales", {L"TSL0001"});
  component.failureCode = static_cast<DWORD>(VSS_E_WRITERERROR_TIMEOUT);
  EXPECT_THAT(CatalogOf({WriterOf({component})}), ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, ObjectTextsAreUtf8) {
  EXPECT_THAT(
      CatalogOf({WriterOf({Component(L"K\u00f6ln \U0001F680", {L"TSL0001"})})}),
      ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\K\xC3\xB6ln \xF0\x9F\x9A\x80"}, {"K\xC3\xB6ln \xF0\x9F\x9A\x80"}))));
}

// A requestor that describes components its own way.
class Describing final : public CVarnel {
 public:
  Describing(DWORD testPoints, ComponentCatalogingInfo info) : CVarnel(testPoints), info_(std::move(info)) {}

 private:
  void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) override {
    info = info_;
    if (component.name == L"throws") throw std::runtime_error("cannot describe it");
  }
  ComponentCatalogingInfo info_;
};

TEST_F(Cataloguing, ASubclassDescribesTheComponents) {
  SnapshotRequest<Describing> request({}, ComponentCatalogingInfo{L"the id", L"the name"});
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  EXPECT_THAT(Read(request), ElementsAre(Pair("TSL0001", Entry({"the id"}, {"the name"}))));
}

TEST_F(Cataloguing, AnEmptyNameIsNotAppendedButItsIdIs) {
  SnapshotRequest<Describing> request({}, ComponentCatalogingInfo{L"the id", L""});
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  EXPECT_THAT(Read(request), ElementsAre(Pair("TSL0001", Entry({"the id"}, {}))));
}

TEST_F(Cataloguing, AnEmptyIdIsNotAppendedButItsNameIs) {
  SnapshotRequest<Describing> request({}, ComponentCatalogingInfo{L"", L"the name"});
  VssComponent failed = Component(L"sales", {L"TSL0001"});
  failed.failed = true;
  failed.failureCode = 1;
  request.probe.writers() = {WriterOf({failed})};
  EXPECT_THAT(Read(request), ElementsAre(Pair("TSL0001", Entry({}, {}, {}, {"the name"}))));
}

TEST_F(Cataloguing, AComponentWithoutAnyTextStillMakesItsEntry) {
  SnapshotRequest<Describing> request({}, ComponentCatalogingInfo{});
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  EXPECT_THAT(Read(request), ElementsAre(Pair("TSL0001", Entry({}, {}))));
}

// ---- extra disks ----

TEST_F(Cataloguing, TheVolumesOfAnExtraDiskAreOtherObjectsUnderTheLowerCaseKey) {
  EXPECT_THAT(CatalogOf({}, {L"TSL0001"}),
              ElementsAre(Pair("tsl0001", Entry({}, {}, {WideToUtf8(VolumeName(1))}, {"E:\\"}))));
}

TEST_F(Cataloguing, AnExtraDiskKeyInUpperCaseIsLowerCasedAndAComponentsDiskKeyStaysAsItIs) {
  EXPECT_THAT(CatalogOf({WriterOf({Component(L"sales", {L"TSL0001"})})}, {L"TSL0001"}),
              ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"})),
                          Pair("tsl0001", Entry({}, {}, {WideToUtf8(VolumeName(1))}, {"E:\\"}))));
}

TEST_F(Cataloguing, EveryVolumeOfAnExtraDiskIsListedAndAMissingMountPointIsTheEmptyText) {
  model().disks[1].volumes.push_back({VolumeName(11), {}, false, L""});
  model().disks[1].volumes.push_back({VolumeName(12), {L"E:\\mnt\\", L"G:\\"}, false, L""});
  EXPECT_THAT(
      CatalogOf({}, {L"TSL0001"}),
      ElementsAre(Pair(
          "tsl0001", Entry({}, {}, {WideToUtf8(VolumeName(1)), WideToUtf8(VolumeName(11)), WideToUtf8(VolumeName(12))},
                           {"E:\\", "", "E:\\mnt\\"}))));
}

TEST_F(Cataloguing, AnExtraDiskWithoutVolumesMakesNoEntry) {
  model().disks[1].volumes.clear();
  EXPECT_THAT(CatalogOf({}, {L"TSL0001", L"unknown", L"TSL0002"}), ElementsAre(Key("tsl0002")));
}

TEST_F(Cataloguing, TheSystemDiskIsListedLikeAnyOtherExtraDisk) {
  EXPECT_THAT(CatalogOf({}, {L"SYS"}), ElementsAre(Pair("sys", Entry({}, {}, {WideToUtf8(VolumeName(0))}, {"C:\\"}))));
}

TEST_F(Cataloguing, AnExtraDiskListedTwiceIsCataloguedTwice) {
  const std::string volume = WideToUtf8(VolumeName(1));
  EXPECT_THAT(CatalogOf({}, {L"TSL0001", L"tsl0001"}),
              ElementsAre(Pair("tsl0001", Entry({}, {}, {volume, volume}, {"E:\\", "E:\\"}))));
}

// ---- failures ----

TEST_F(Cataloguing, WithoutAnEnumeratorExtraDisksFailAndTheMapHoldsTheComponents) {
  SnapshotRequest request;
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  request.probe.extraSerialNumbers() = {L"TSL0002"};
  Catalog catalog;
  EXPECT_EQ(ThrownLong([&] { request.requestor.GetSnapshotMeatadata(catalog); }), Failure(E_POINTER));
  EXPECT_THAT(catalog, ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"}))));
  EXPECT_THAT(log.Errors(), ElementsAre("No disk and volume enumerator has been set"));
}

TEST_F(Cataloguing, WithoutAnEnumeratorComponentsAloneAreCatalogued) {
  SnapshotRequest request;
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  EXPECT_THAT(Read(request), ElementsAre(Key("TSL0001")));
}

TEST_F(Cataloguing, WhatTheEnumeratorThrowsPassesAndTheMapHoldsTheComponents) {
  FailCall("FindFirstVolumeW", ERROR_ACCESS_DENIED);
  SnapshotRequest request;
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"})})};
  request.probe.extraSerialNumbers() = {L"TSL0002"};
  Catalog catalog;
  EXPECT_THROW(request.requestor.GetSnapshotMeatadata(catalog), TesselCommonClasses::ExceptionCommon);
  EXPECT_THAT(catalog, ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, ATextThatIsNoUnicodePassesItsFailureAndTheMapHoldsWhatWasFilled) {
  SnapshotRequest request;
  const std::wstring loneSurrogate(1, static_cast<wchar_t>(0xD800));
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"}), Component(loneSurrogate, {L"TSL0002"})})};
  Catalog catalog;
  EXPECT_THROW(request.requestor.GetSnapshotMeatadata(catalog), std::range_error);
  EXPECT_THAT(catalog, ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"}))));
}

TEST_F(Cataloguing, WhatASubclassThrowsPassesAndTheMapHoldsWhatWasFilled) {
  SnapshotRequest<Describing> request({}, ComponentCatalogingInfo{L"id", L"name"});
  request.probe.writers() = {WriterOf({Component(L"sales", {L"TSL0001"}), Component(L"throws", {L"TSL0002"})})};
  Catalog catalog;
  EXPECT_THROW(request.requestor.GetSnapshotMeatadata(catalog), std::runtime_error);
  EXPECT_THAT(catalog, ElementsAre(Pair("TSL0001", Entry({"id"}, {"name"}))));
}

// ---- after a snapshot ----

TEST_F(Cataloguing, ASnapshotWithAnExtraDiskListsTheApplicationsObjectsAndTheExtraVolumes) {
  model().writers = {MakeWriter(L"Files", 1, {MakeComponent(L"SQL01", L"sales", {L"E:\\data"})})};
  SnapshotRequest request(BothDisks());
  EXPECT_EQ(request.StartAndCreate().alertCode, 701);
  EXPECT_THAT(Read(request), ElementsAre(Pair("TSL0001", Entry({"\\SQL01\\sales"}, {"sales"})),
                                         Pair("tsl0002", Entry({}, {}, {WideToUtf8(VolumeName(2))}, {"F:\\"}))));
}

// ---- the bridge's wrapper ----

char* AllocatedText(const char* text) {
  char* copy = static_cast<char*>(std::malloc(std::strlen(text) + 1));
  if (copy == nullptr) throw std::bad_alloc();
  std::strcpy(copy, text);
  return copy;
}

TEST(BridgeWrapper, StartsWithoutTexts) {
  MetadataWrapper wrapper;
  EXPECT_THAT(MetadataWrapperLayout::Fields(wrapper), testing::Each(testing::IsNull()));
  EXPECT_EQ(wrapper.GetdbFilesToQuiescePtr(), nullptr);
}

TEST(BridgeWrapper, KeepsTheDatabaseListInItsFourthFieldAndTheClusterNameInItsFifth) {
  MetadataWrapper wrapper;
  char* databases = AllocatedText("sales@sql01");
  char* cluster = AllocatedText("clu01");
  wrapper.SetDbFilesToQuiescePtr(databases);
  wrapper.SetSqlClusterNamePtr(cluster);
  EXPECT_THAT(MetadataWrapperLayout::Fields(wrapper), ElementsAre(nullptr, nullptr, nullptr, databases, cluster));
  EXPECT_EQ(wrapper.GetdbFilesToQuiescePtr(), databases);
  wrapper.SetDbFilesToQuiescePtr(nullptr);
  wrapper.SetSqlClusterNamePtr(nullptr);
}

// A text freed twice, or not at all, ends the run of the sanitized build.
TEST(BridgeWrapper, ReplacingTheDatabaseListTwiceFreesTheFirstOnce) {
  MetadataWrapper wrapper;
  wrapper.SetDbFilesToQuiescePtr(AllocatedText("first"));
  wrapper.SetDbFilesToQuiescePtr(AllocatedText("second"));
  wrapper.SetDbFilesToQuiescePtr(AllocatedText("third"));
  EXPECT_STREQ(wrapper.GetdbFilesToQuiescePtr(), "third");
  wrapper.SetDbFilesToQuiescePtr(nullptr);
  EXPECT_EQ(wrapper.GetdbFilesToQuiescePtr(), nullptr);
}

TEST(BridgeWrapper, ReplacingTheClusterNameTwiceFreesTheFirstOnce) {
  MetadataWrapper wrapper;
  wrapper.SetSqlClusterNamePtr(AllocatedText("first"));
  wrapper.SetSqlClusterNamePtr(AllocatedText("second"));
  EXPECT_STREQ(MetadataWrapperLayout::SqlClusterName(wrapper), "second");
  wrapper.SetSqlClusterNamePtr(nullptr);
}

TEST(BridgeWrapper, SettingTheHeldTextAgainKeepsIt) {
  MetadataWrapper wrapper;
  char* text = AllocatedText("sales@sql01");
  wrapper.SetDbFilesToQuiescePtr(text);
  wrapper.SetDbFilesToQuiescePtr(text);
  EXPECT_STREQ(wrapper.GetdbFilesToQuiescePtr(), "sales@sql01");
  wrapper.SetDbFilesToQuiescePtr(nullptr);
}

TEST(BridgeWrapper, AssignmentLeavesBothPointingAtTheSameTexts) {
  MetadataWrapper source;
  source.SetDbFilesToQuiescePtr(AllocatedText("sales@sql01"));
  source.SetSqlClusterNamePtr(AllocatedText("clu01"));
  MetadataWrapper target;
  target = source;
  EXPECT_EQ(target.GetdbFilesToQuiescePtr(), source.GetdbFilesToQuiescePtr());
  EXPECT_EQ(MetadataWrapperLayout::SqlClusterName(target), MetadataWrapperLayout::SqlClusterName(source));
  target.SetDbFilesToQuiescePtr(nullptr);
  target.SetSqlClusterNamePtr(nullptr);
}

TEST(BridgeWrapper, AssignmentCopiesTheBridgesOwnFieldsToo) {
  int places[5] = {};
  const std::vector<void*> fields = {&places[0], &places[1], &places[2], &places[3], &places[4]};
  MetadataWrapper target;
  target = MetadataWrapperLayout::OfFields(fields);
  EXPECT_EQ(MetadataWrapperLayout::Fields(target), fields);
}

TEST(BridgeWrapper, AssignmentDoesNotFreeTheTextThatItReplaces) {
  MetadataWrapper target;
  char* text = AllocatedText("still readable");
  target.SetDbFilesToQuiescePtr(text);
  target = MetadataWrapper();
  EXPECT_STREQ(text, "still readable");
  std::free(text);
}

TEST_F(Cataloguing, TheDatabaseListIsAllUntilTheBridgeNamesOthers) {
  SnapshotRequest request;
  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "ALL_DB");
}

}  // namespace
}  // namespace varnel::test
