// The end of a selection: discarding empty writers, adding components, and what it costs.
#include "tests/core/selection_fixture.h"

namespace varnel::test {
namespace {

class Steps : public HostFixture {
 protected:
  SnapshotRequest<> request;
};

TEST_F(Steps, WritersWithoutASelectedComponentAreDiscardedInOrder) {
  VssWriter alreadyExcluded = WriterOf({Unselected(L"\\A")});
  alreadyExcluded.name = L"Excluded before";
  alreadyExcluded.excluded = true;
  VssWriter empty = WriterOf({});
  empty.name = L"Without components";
  VssWriter unselected = WriterOf({Unselected(L"\\A"), Unselected(L"\\B")});
  unselected.name = L"Nothing selected";
  request.probe.writers() = {alreadyExcluded, empty, WriterOf({Unselected(L"\\A"), Selected(L"\\B")}), unselected};
  request.probe.DiscardEmptyWriters();
  EXPECT_THAT(log.All(), ElementsAre("I Discarding empty writers", "I Discarding writer. Writer=Without components",
                                     "I Discarding writer. Writer=Nothing selected"));
  EXPECT_TRUE(request.probe.writers()[1].excluded);
  EXPECT_FALSE(request.probe.writers()[2].excluded);
  EXPECT_TRUE(request.probe.writers()[3].excluded);
}

TEST_F(Steps, AWriterIsSelectedByItsExactInstanceWhileItIsNotExcluded) {
  const GUID instance = ParseGuid<GUID>("{0000000a-0001-0000-0000-000000000000}");
  VssWriter writer = WriterOf({});
  writer.writerId = L"{0000000b-0000-0000-0000-000000000000}";
  writer.instanceId = FormatGuid(instance);
  request.probe.writers() = {WriterOf({}), writer};
  EXPECT_TRUE(request.probe.IsWriterSelected(instance));
  EXPECT_FALSE(request.probe.IsWriterSelected(ParseGuid<GUID>("{0000000b-0000-0000-0000-000000000000}")));
  EXPECT_FALSE(request.probe.IsWriterSelected(GUID{}));
  request.probe.writers()[1].excluded = true;
  EXPECT_FALSE(request.probe.IsWriterSelected(instance));
  request.probe.writers()[1].excluded = false;
  request.probe.writers()[1].instanceId = L"{0000000A-0001-0000-0000-000000000000}";
  EXPECT_FALSE(request.probe.IsWriterSelected(instance));
}

TEST_F(Steps, OfTwoWritersWithOneInstanceTheOneThatIsNotExcludedCounts) {
  VssWriter writer = WriterOf({});
  writer.instanceId = FormatGuid(GUID{});
  VssWriter excluded = writer;
  excluded.excluded = true;
  request.probe.writers() = {excluded, writer};
  EXPECT_TRUE(request.probe.IsWriterSelected(GUID{}));
}

TEST_F(Steps, WithoutABackupComponentsObjectAddingFailsLikeACallOutOfOrder) {
  request.probe.writers() = {WriterOf({Selected(L"\\A")})};
  EXPECT_EQ(ThrownLong([&] { request.probe.AddSelectedComponents(request.details()); }), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), AddComponentFailedRecord("\\A") +
                                  ";\nm_pVssObject->AddComponent()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, "
                                  "ca=ContactTechSupport;\n");
}

TEST_F(Steps, ARecordOfAnOverlongPathKeepsItsReasonAndItsActions) {
  request.probe.writers() = {WriterOf({Selected(L"\\" + std::wstring(5000, L'x'))})};
  EXPECT_TRUE(ThrownLong([&] { request.probe.AddSelectedComponents(request.details()); }));
  const std::string record = request.alerts().substr(0, request.alerts().find(";\n"));
  EXPECT_EQ(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith("status=AddComponentFailed, Component=\\xxx"));
  EXPECT_THAT(record, EndsWith("xxx..., rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes"));
}

TEST_F(Steps, WithoutWritersNothingIsAddedAndTheRequestFails) {
  EXPECT_EQ(OutcomeOf([&] { request.probe.AddSelectedComponents(request.details()); }),
            Outcome::Exception(602, kMessage114));
  EXPECT_EQ(request.alerts(), kNoComponentsRecord + ";\n");
  EXPECT_THAT(log.All(), ElementsAre("I Selecting components", "E   " + kNoComponentsRecord));
}

TEST_F(Selection, ComponentsThatAreNotSelectableAreBackedUpThroughTheirParent) {
  InstallComponents({MakeComponent(L"", L"A", {L"E:\\a"}), NotSelectable(MakeComponent(L"A", L"B", {L"E:\\b"}))});
  SelectedRequest request(*this);
  EXPECT_THAT(Added(), ElementsAre("|A"));
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].excluded);
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), ElementsAre(EndsWith("= 1 ")));
}

TEST_F(Selection, OnlyComponentsThatAreNotSelectableAddNothingAndTheRequestFails) {
  InstallComponents({NotSelectable(MakeComponent(L"", L"one", {L"E:\\one"}))});
  GatheredRequest request;
  EXPECT_EQ(OutcomeOf([&] { Select(request); }), Outcome::Exception(602, kMessage114));
  EXPECT_EQ(request.alerts(), kNoComponentsRecord + ";\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + kNoComponentsRecord));
  EXPECT_THAT(Added(), IsEmpty());
}

TEST_F(Selection, AComponentThatTheServiceRefusesEndsTheRequestWithTwoRecords) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"db", L"two", {L"E:\\two"}),
                     MakeComponent(L"", L"three", {L"E:\\three"})});
  GatheredRequest request;
  FailCall("IVssBackupComponents::AddComponent", VSS_E_OBJECT_NOT_FOUND, 2);
  EXPECT_EQ(ThrownLong([&] { Select(request); }), Failure(VSS_E_OBJECT_NOT_FOUND));
  const std::string comRecord =
      "m_pVssObject->AddComponent()=Failed, error=VSS_E_OBJECT_NOT_FOUND, rc=COMMError, ca=ContactTechSupport;";
  EXPECT_EQ(request.alerts(), AddComponentFailedRecord("\\db\\two") + ";\n" + comRecord + "\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + AddComponentFailedRecord("\\db\\two"), " " + comRecord));
  EXPECT_THAT(Added(), ElementsAre("|one", "db|two"));
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].added);
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), IsEmpty());
}

TEST_F(Selection, AComponentThatTheServiceTakesWithAPositiveCodeIsReportedAndCounts) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"E:\\two"})});
  GatheredRequest request;
  FailCall("IVssBackupComponents::AddComponent", S_FALSE);
  Select(request);
  EXPECT_EQ(request.alerts(), AddComponentFailedRecord("\\one") + ";\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + AddComponentFailedRecord("\\one")));
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].added);
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), ElementsAre(EndsWith("= 2 ")));
}

TEST_F(Selection, AComponentThatTheServiceHasAlreadyIsAFailure) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"ONE", {L"E:\\one"})});
  GatheredRequest request;
  EXPECT_EQ(ThrownLong([&] { Select(request); }), Failure(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(request.alerts(), HasSubstr("Component=\\ONE,"));
}

class SelectionCost : public Selection {
 protected:
  /// What selecting `count` components with four files each, half of them children, asks of the host.
  int CallsFor(int count) {
    std::vector<simulator::WriterComponent> components;
    for (int i = 0; i < count; i += 2) {
      const std::wstring name = std::to_wstring(i);
      const std::wstring folder = L"E:\\" + name;
      components.push_back(MakeComponent(L"", name, {folder, folder + L"\\a", L"F:\\" + name, L"F:\\log"}));
      components.push_back(MakeComponent(name, L"child", {folder + L"\\b", folder, L"E:\\x", L"F:\\log"}));
    }
    InstallComponents(std::move(components));
    GatheredRequest request(BothDisks());
    const int before = host().faults().callCount();
    Select(request);
    EXPECT_THAT(Added(), SizeIs(static_cast<std::size_t>(count)));
    return host().faults().callCount() - before;
  }
};

TEST_F(SelectionCost, EveryFurtherComponentCostsOneCall) {
  const int few = CallsFor(20);
  EXPECT_EQ(CallsFor(120), few + 100);
  EXPECT_EQ(CallsFor(220), few + 200);
}

TEST_F(SelectionCost, OfALargeWriterEveryComponentIsLookedAtOnce) {
  constexpr int kComponents = 400;
  std::vector<simulator::WriterComponent> components;
  for (int i = 0; i < kComponents; ++i) {
    components.push_back(MakeComponent(L"", L"db" + std::to_wstring(i), {L"E:\\data"}));
  }
  InstallComponents(std::move(components));
  SelectedRequest<Choosy> request(*this, {}, Names{L"Files"});
  EXPECT_THAT(request.requestor.asked, SizeIs(kComponents + 1));
  EXPECT_THAT(LinesWith("AffectedVolume="), SizeIs(kComponents));
  EXPECT_THAT(log.All(), SizeIs(2 * kComponents + 6));
}

}  // namespace
}  // namespace varnel::test
