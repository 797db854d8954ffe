// Which writers and components take part in a backup: the whole selection and what makes a component eligible.
#include <map>
#include <stdexcept>

#include "tests/core/selection_fixture.h"

namespace varnel::test {
namespace {

// ---- the whole selection ----

TEST_F(Selection, AddsWhatLiesOnTheListedDisksAndLogsEveryStep) {
  InstallComponents({MakeComponent(L"db", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"E:\\two", L"F:\\log"})});
  SelectedRequest request(*this, BothDisks());
  EXPECT_THAT(log.All(),
              ElementsAre("I Writer code received from Array is: 0", FileLine("one", "E:\\one\\", 1),
                          FileLine("two", "E:\\two\\", 1), FileLine("two", "F:\\log\\", 2),
                          "I Including implicit components", "I VerifyComponentSelection", "I Discarding empty writers",
                          "I Selecting components", "I Add Component=\\db\\one ", "I Add Component=\\two ",
                          "I Number of components explicitly included in snapshot set = 2 "));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 0);
}

TEST_F(Selection, TellsTheServiceEachComponentByItsIdentifiersTypeAndNames) {
  simulator::WriterComponent database;
  database.type = VSS_CT_DATABASE;
  database.name = L"sales";
  database.databaseFiles = {{L"E:\\data", L"sales.mdf"}};
  database.logFiles = {{L"F:\\log", L"sales.ldf"}};
  model().writers = {MakeWriter(L"Files", 1, {MakeComponent(L"a\\b", L"one", {L"E:\\one"})}),
                     MakeWriter(L"Databases", 2, {database})};
  SelectedRequest request(*this, BothDisks());
  EXPECT_THAT(Calls("IVssBackupComponents::AddComponent"),
              ElementsAre("IVssBackupComponents::AddComponent({00000001-0001-0000-0000-000000000000}, "
                          "{00000001-0000-0000-0000-000000000000}, 2, \"a\\b\", \"one\") = S_OK",
                          "IVssBackupComponents::AddComponent({00000002-0001-0000-0000-000000000000}, "
                          "{00000002-0000-0000-0000-000000000000}, 1, \"\", \"sales\") = S_OK"));
}

TEST_F(Selection, MarksWhatItAdded) {
  InstallComponents({MakeComponent(L"", L"in", {L"E:\\in"}), MakeComponent(L"", L"out", {L"F:\\out"})});
  SelectedRequest request(*this);
  const VssWriter& writer = request.requestor.GetWriters().front();
  EXPECT_FALSE(writer.excluded);
  EXPECT_FALSE(writer.components[0].excluded);
  EXPECT_TRUE(writer.components[0].added);
  EXPECT_EQ(writer.components[0].affectedSerialNumbers, (Names{L"TSL0001"}));
  EXPECT_TRUE(writer.components[1].excluded);
  EXPECT_FALSE(writer.components[1].added);
}

TEST_F(Selection, DisksOfTheApplicationStandInTheOrderOfTheComponentsAndSortedWithinOne) {
  model().disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  model().writers = {
      MakeWriter(L"Files", 1,
                 {MakeComponent(L"", L"one", {L"G:\\1", L"F:\\1"}), MakeComponent(L"", L"two", {L"E:\\2", L"F:\\2"})})};
  SelectedRequest request(*this, {.serialNumbers = {L"TSL0001", L"TSL0002", L"TSL0003"}});
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L"TSL0002", L"TSL0003", L"TSL0001"));
}

TEST_F(Selection, WithoutAnyWriterIsAConfigurationError) {
  model().writers = {};
  GatheredRequest request;
  EXPECT_EQ(OutcomeOf([&] { Select(request); }), Outcome::Exception(602, kMessage126));
  EXPECT_EQ(request.alerts(), "");
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(Selection, WithoutAnEligibleWriterIsAConfigurationErrorAndNothingElseHappens) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  GatheredRequest<Choosy> request({}, Names{L"Other"});
  EXPECT_EQ(OutcomeOf([&] { Select(request, "no code here"); }), Outcome::Exception(602, kMessage126));
  EXPECT_TRUE(request.requestor.GetWriters().front().excluded);
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(Added(), IsEmpty());
}

TEST_F(Selection, AsksForEveryWriterOnceAndForTheComponentsOfEligibleWritersOnly) {
  model().writers = {
      MakeWriter(L"First", 1, {MakeComponent(L"", L"a", {L"E:\\a"})}),
      MakeWriter(L"Second", 2, {MakeComponent(L"", L"b", {L"E:\\b"}), MakeComponent(L"", L"c", {L"E:\\c"})}),
      MakeWriter(L"Third", 3, {MakeComponent(L"", L"d", {L"E:\\d"})})};
  SelectedRequest<Choosy> request(*this, {}, Names{L"Second", L"Third"});
  EXPECT_THAT(request.requestor.asked, ElementsAre(L"First", L"Second", L"\\b", L"\\c", L"Third", L"\\d"));
  EXPECT_THAT(Added(), ElementsAre("|b", "|c", "|d"));
  EXPECT_TRUE(request.requestor.GetWriters()[0].excluded);
  EXPECT_FALSE(request.requestor.GetWriters()[1].excluded);
}

TEST_F(Selection, NothingEligibleOfAListedSetIsAMismatchBeforeAnythingIsAdded) {
  InstallComponents({MakeComponent(L"", L"one", {L"F:\\one"})});
  GatheredRequest request;
  const Outcome outcome = OutcomeOf([&] { Select(request); });
  EXPECT_EQ(outcome.alertCode, 602);
  EXPECT_THAT(outcome.message, HasSubstr(L"Number of disks added in the snapshot set"));
  EXPECT_THAT(request.alerts(), StartsWith("status=LunMismatch, VolCollVolumes=1, VolumesInvolvedInSnapshot=0,"));
  EXPECT_THAT(LinesWith("Selecting components"), IsEmpty());
}

TEST_F(Selection, WithoutAListOfDisksNothingIsEligibleAndNothingIsAdded) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  GatheredRequest request({.serialNumbers = {}});
  EXPECT_EQ(OutcomeOf([&] { Select(request); }), Outcome::Exception(602, kMessage114));
  EXPECT_EQ(request.alerts(), kNoComponentsRecord + ";\n");
}

TEST_F(Selection, ASetLargerThanTheApplicationIsAddedAndTheWarningWaits) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  SelectedRequest request(*this, BothDisks());
  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), ElementsAre(L"TSL0002"));
}

TEST_F(Selection, ADiskListedTwiceIsEligibleAndLeavesAWarning) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  SelectedRequest request(*this, {.serialNumbers = {L"TSL0001", L"TSL0001"}});
  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
}

// ---- eligible components ----

TEST_F(Selection, AComponentWithoutFilesIsLeftOutSilently) {
  InstallComponents({MakeComponent(L"", L"empty", {}), MakeComponent(L"", L"one", {L"E:\\one"})});
  SelectedRequest request(*this);
  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_THAT(LinesWith("empty"), ElementsAre("I Discarding empty writers"));
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(Selection, AWriterWhoseComponentsAllLackFilesIsDiscardedWithoutAnError) {
  model().writers = {MakeWriter(L"Empty", 1, {MakeComponent(L"", L"a", {}), MakeComponent(L"", L"b", {})}),
                     MakeWriter(L"Files", 2, {MakeComponent(L"", L"one", {L"E:\\one"})})};
  SelectedRequest request(*this);
  EXPECT_TRUE(request.requestor.GetWriters()[0].excluded);
  EXPECT_THAT(LinesWith("Discarding"), ElementsAre("I Discarding empty writers", "I Discarding writer. Writer=Empty"));
  EXPECT_THAT(log.Errors(), IsEmpty());
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(Selection, AFileOnAnUnlistedDiskEndsItsComponentWhichKeepsTheDisksSeen) {
  model().disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  model().writers = {MakeWriter(
      L"Files", 1,
      {MakeComponent(L"", L"torn", {L"E:\\1", L"F:\\2", L"G:\\3"}), MakeComponent(L"", L"one", {L"G:\\one"})})};
  SelectedRequest request(*this, {.serialNumbers = {L"TSL0001", L"TSL0003"}});
  const VssComponent& torn = request.requestor.GetWriters()[0].components[0];
  EXPECT_TRUE(torn.excluded);
  EXPECT_EQ(torn.affectedSerialNumbers, (Names{L"TSL0001", L"TSL0002"}));
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L"TSL0003"));
  EXPECT_THAT(log.Warnings(), Contains("Volume not in input list, State=NotEligible").Times(1));
  EXPECT_THAT(LinesWith("Component=torn"), ElementsAre(FileLine("torn", "E:\\1\\", 1), FileLine("torn", "F:\\2\\", 2)));
}

TEST_F(Selection, AFileOnNoKnownVolumeEndsItsComponent) {
  simulator::WriterComponent lost = MakeComponent(L"", L"lost", {L"E:\\1", L"Z:\\2", L"F:\\3"});
  lost.caption = L"Lost and found";
  InstallComponents({lost, MakeComponent(L"", L"one", {L"E:\\one"})});
  SelectedRequest request(*this);
  EXPECT_THAT(log.Errors(),
              ElementsAre("GetDiskSerialNumberForVolume() Failed, Volume=Z:\\2\\, Component=Lost and found, "
                          "State=NotEligible"));
  const VssComponent& component = request.requestor.GetWriters()[0].components[0];
  EXPECT_TRUE(component.excluded);
  EXPECT_EQ(component.affectedSerialNumbers, (Names{L"TSL0001"}));
  EXPECT_THAT(Added(), ElementsAre("|one"));
}

TEST_F(Selection, ADiskWithoutASerialNumberEndsItsComponent) {
  model().disks[2].reportsSerial = false;
  model().writers = {
      MakeWriter(L"Files", 1, {MakeComponent(L"", L"two", {L"F:\\two"}), MakeComponent(L"", L"one", {L"E:\\one"})})};
  SelectedRequest request(*this);
  EXPECT_THAT(log.Errors(), ElementsAre("GetDiskSerialNumberForVolume() Failed, Volume=" + WideToUtf8(VolumeName(2)) +
                                        ", Component=two, State=NotEligible"));
  EXPECT_THAT(Added(), ElementsAre("|one"));
}

TEST_F(Selection, AnUnknownSerialNumberMatchesNoDisk) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  GatheredRequest request({.serialNumbers = {L"TSL9999"}});
  EXPECT_THROW(Select(request), VarnelException);
  EXPECT_THAT(log.Warnings(), ElementsAre("Volume not in input list, State=NotEligible"));
  EXPECT_THAT(request.alerts(), HasSubstr("status=LunMismatch"));
}

TEST_F(Selection, ASerialNumberInAnotherCaseMatchesNoDisk) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  GatheredRequest request({.serialNumbers = {L"tsl0001"}});
  EXPECT_THROW(Select(request), VarnelException);
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].excluded);
}

TEST_F(Selection, BlanksOfASerialNumberCount) {
  model().disks[1].serial = L" TSL0001 ";
  model().writers = {MakeWriter(L"Files", 1, {MakeComponent(L"", L"one", {L"E:\\one"})})};
  {
    GatheredRequest request;
    EXPECT_THROW(Select(request), VarnelException);
  }
  SelectedRequest request(*this, {.serialNumbers = {L" TSL0001 "}});
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L" TSL0001 "));
}

TEST_F(Selection, AComponentOnTheSystemDiskIsLeftOutWithTwoWarnings) {
  InstallComponents({MakeComponent(L"", L"system", {L"C:\\data"}), MakeComponent(L"", L"one", {L"E:\\one"})});
  SelectedRequest request(*this, {.serialNumbers = {L"TSL0001", L"SYS"}});
  EXPECT_THAT(log.Warnings(),
              testing::IsSupersetOf({"Affected volume SYS of file descriptor is a system volume. Hence not including "
                                     "in the snapshot set.",
                                     "Volume not in input list, State=NotEligible"}));
  EXPECT_THAT(Added(), ElementsAre("|one"));
}

class Eligibility : public Selection {
 protected:
  static VssComponent Component(std::vector<std::wstring> volumes) {
    VssComponent component;
    component.caption = L"caption";
    component.fullPath = L"\\one";
    for (const std::wstring& volume : volumes) component.files.emplace_back().volumeName = volume;
    return component;
  }
};

TEST_F(Eligibility, AVolumeMetInTwoComponentsIsLookedUpOnce) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  request.probe.setWriterCode("0");
  std::map<std::wstring, std::wstring> volumeSerials;
  VssComponent first = Component({VolumeName(1), VolumeName(1)});
  VssComponent second = Component({VolumeName(1)});
  EXPECT_TRUE(request.requestor.IsComponentEligible(first, volumeSerials));
  EXPECT_THAT(volumeSerials, ElementsAre(testing::Pair(VolumeName(1), L"TSL0001")));
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);  // every further look-up fails
  EXPECT_TRUE(request.requestor.IsComponentEligible(second, volumeSerials));
  EXPECT_EQ(second.affectedSerialNumbers, (Names{L"TSL0001"}));
}

TEST_F(Eligibility, AVolumeWithoutASerialNumberIsLookedUpAgain) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  request.probe.setWriterCode("0");
  std::map<std::wstring, std::wstring> volumeSerials;
  VssComponent component = Component({VolumeName(1)});
  EXPECT_FALSE(request.requestor.IsComponentEligible(component, volumeSerials));
  EXPECT_THAT(volumeSerials, IsEmpty());
  request.requestor.SetDiskAndVolumeEnumeratorObj(&request.enumerator);
  EXPECT_TRUE(request.requestor.IsComponentEligible(component, volumeSerials));
}

TEST_F(Eligibility, AKnownVolumeIsNotAskedFor) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0002"});
  request.probe.setWriterCode("0");
  std::map<std::wstring, std::wstring> volumeSerials = {{VolumeName(1), L"TSL0002"}};
  VssComponent component = Component({VolumeName(1)});
  EXPECT_TRUE(request.requestor.IsComponentEligible(component, volumeSerials));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(Eligibility, BeforeAWriterCodeIsKnownNothingIsEligible) {
  SnapshotRequest request;
  std::map<std::wstring, std::wstring> volumeSerials;
  VssComponent component = Component({VolumeName(1)});
  EXPECT_THROW(request.requestor.IsComponentEligible(component, volumeSerials), std::invalid_argument);
  EXPECT_THAT(log.All(), ElementsAre("E Writer code is not a number: "));
}

}  // namespace
}  // namespace varnel::test
