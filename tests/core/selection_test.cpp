// Which writers and components take part in a backup, and the writer code that narrows them to named databases.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/host_fixture.h"
#include "tests/support/request.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using Names = std::set<std::wstring>;
using Lines = std::vector<std::string>;

const std::wstring kMessage113 =
    L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
    L"protection set configuration.";
const std::wstring kMessage114 =
    L"Protection set does not contain any application components for backup. Make sure that all the files to be "
    L"backed up reside on volumes in the protection set.";
const std::wstring kMessage126 = L"VSS writer is not present on the host.";
const std::string kNoComponentsRecord =
    "status=NoComponentsEligibleForBackup, rc=ConfigError, ca=CheckVolumeCollection, "
    "ca=CheckHostsVolumes/Connections";

std::string AddComponentFailedRecord(const std::string& component) {
  return "status=AddComponentFailed, Component=" + component +
         ", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes";
}

simulator::WriterComponent NotSelectable(simulator::WriterComponent component) {
  component.selectable = false;
  return component;
}

// What the log says of one file on array disk `number`.
std::string FileLine(const std::string& component, const std::string& file, int number) {
  return "I Component=" + component + ", File=" + file + ", AffectedVolume=" + WideToUtf8(VolumeName(number)) +
         ", SerialNumber=TSL000" + std::to_string(number);
}

class Selection : public HostFixture {
 protected:
  void InstallWriters(std::vector<simulator::Writer> writers) {
    simulator::HostModel model = SmallHost();
    model.writers = std::move(writers);
    Install(std::move(model));
  }
  /// One writer, "Files".
  void InstallComponents(std::vector<simulator::WriterComponent> components) {
    InstallWriters({MakeWriter(L"Files", 1, std::move(components))});
  }

  /// Selects with only its own lines in the log and only its own calls in the call log.
  template <class Requestor>
  void Select(Request<Requestor>& request, const std::string& requestText = "writer=0,") {
    log.lines.clear();
    host().calls().Clear();
    request.details = requestText;
    request.probe.SelectComponentsForBackup(request.details);
  }

  /// The paths in the order in which components were added: "logicalPath|name".
  Lines Added() {
    Lines added;
    for (const std::string& line : host().calls().Of("IVssBackupComponents::AddComponent")) {
      const std::string path = line.substr(0, line.rfind("\")"));
      const std::size_t name = path.rfind("\", \"");
      const std::size_t logical = path.rfind(", \"", name - 1) + 3;
      added.push_back(path.substr(logical, name - logical) + "|" + path.substr(name + 4));
    }
    return added;
  }
  Lines LinesWith(const std::string& part) {
    Lines lines;
    for (const std::string& line : log.All()) {
      if (line.find(part) != line.npos) lines.push_back(line);
    }
    return lines;
  }
};

// ---- the whole selection ----

TEST_F(Selection, AddsWhatLiesOnTheListedDisksAndLogsEveryStep) {
  InstallComponents({MakeComponent(L"db", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"E:\\two", L"F:\\log"})});
  Request request;
  request.Gather({L"TSL0001", L"TSL0002"});

  Select(request);

  EXPECT_THAT(log.All(),
              ElementsAre("I Writer code received from Array is: 0", FileLine("one", "E:\\one\\", 1),
                          FileLine("two", "E:\\two\\", 1), FileLine("two", "F:\\log\\", 2),
                          "I Including implicit components", "I VerifyComponentSelection", "I Discarding empty writers",
                          "I Selecting components", "I Add Component=\\db\\one ", "I Add Component=\\two ",
                          "I Number of components explicitly included in snapshot set = 2 "));
  EXPECT_EQ(request.details, "writer=0,");
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 0);
}

TEST_F(Selection, TellsTheServiceEachComponentByItsIdentifiersTypeAndNames) {
  simulator::WriterComponent database;
  database.type = VSS_CT_DATABASE;
  database.name = L"sales";
  database.databaseFiles = {{L"E:\\data", L"sales.mdf"}};
  database.logFiles = {{L"F:\\log", L"sales.ldf"}};
  InstallWriters({MakeWriter(L"Files", 1, {MakeComponent(L"a\\b", L"one", {L"E:\\one"})}),
                  MakeWriter(L"Databases", 2, {database})});
  Request request;
  request.Gather({L"TSL0001", L"TSL0002"});

  Select(request);

  EXPECT_THAT(host().calls().Of("IVssBackupComponents::AddComponent"),
              ElementsAre("IVssBackupComponents::AddComponent({00000001-0001-0000-0000-000000000000}, "
                          "{00000001-0000-0000-0000-000000000000}, 2, \"a\\b\", \"one\") = S_OK",
                          "IVssBackupComponents::AddComponent({00000002-0001-0000-0000-000000000000}, "
                          "{00000002-0000-0000-0000-000000000000}, 1, \"\", \"sales\") = S_OK"));
}

TEST_F(Selection, MarksWhatItAdded) {
  InstallComponents({MakeComponent(L"", L"in", {L"E:\\in"}), MakeComponent(L"", L"out", {L"F:\\out"})});
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  const VssWriter& writer = request.requestor.GetWriters().front();
  EXPECT_FALSE(writer.excluded);
  EXPECT_FALSE(writer.components[0].excluded);
  EXPECT_TRUE(writer.components[0].added);
  EXPECT_EQ(writer.components[0].affectedSerialNumbers, (Names{L"TSL0001"}));
  EXPECT_TRUE(writer.components[1].excluded);
  EXPECT_FALSE(writer.components[1].added);
}

TEST_F(Selection, DisksOfTheApplicationStandInTheOrderOfTheComponentsAndSortedWithinOne) {
  simulator::HostModel model = SmallHost();
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  model.writers = {
      MakeWriter(L"Files", 1,
                 {MakeComponent(L"", L"one", {L"G:\\1", L"F:\\1"}), MakeComponent(L"", L"two", {L"E:\\2", L"F:\\2"})})};
  Install(std::move(model));
  Request request;
  request.Gather({L"TSL0001", L"TSL0002", L"TSL0003"});

  Select(request);

  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L"TSL0002", L"TSL0003", L"TSL0001"));
}

TEST_F(Selection, WithoutAnyWriterIsAConfigurationError) {
  InstallWriters({});
  Request request;
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage126);
  EXPECT_THAT(thrown->GetMessageList(), ElementsAre(kMessage126));
  EXPECT_EQ(request.details, "writer=0,");
  EXPECT_THAT(log.All(), IsEmpty());
}

// Accepts the writers of some names, and remembers what it was asked.
class Choosy final : public CVarnel {
 public:
  Choosy(DWORD testPoints, Names accepted) : CVarnel(testPoints), accepted_(std::move(accepted)) {}
  bool IsWriterEligible(VssWriter& writer) override {
    asked.push_back(writer.name);
    return accepted_.contains(writer.name);
  }
  bool IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials) override {
    asked.push_back(component.fullPath);
    return CVarnel::IsComponentEligible(component, volumeSerials);
  }
  std::vector<std::wstring> asked;

 private:
  Names accepted_;
};

TEST_F(Selection, WithoutAnEligibleWriterIsAConfigurationErrorAndNothingElseHappens) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request<Choosy> request(Names{L"Other"});
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request, "no code here"); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage126);
  EXPECT_THAT(thrown->GetMessageList(), ElementsAre(kMessage126));
  EXPECT_TRUE(request.requestor.GetWriters().front().excluded);
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(Added(), IsEmpty());
}

TEST_F(Selection, AsksForEveryWriterOnceAndForTheComponentsOfEligibleWritersOnly) {
  InstallWriters(
      {MakeWriter(L"First", 1, {MakeComponent(L"", L"a", {L"E:\\a"})}),
       MakeWriter(L"Second", 2, {MakeComponent(L"", L"b", {L"E:\\b"}), MakeComponent(L"", L"c", {L"E:\\c"})}),
       MakeWriter(L"Third", 3, {MakeComponent(L"", L"d", {L"E:\\d"})})});
  Request<Choosy> request(Names{L"Second", L"Third"});
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(request.requestor.asked, ElementsAre(L"First", L"Second", L"\\b", L"\\c", L"Third", L"\\d"));
  EXPECT_THAT(Added(), ElementsAre("|b", "|c", "|d"));
  EXPECT_TRUE(request.requestor.GetWriters()[0].excluded);
  EXPECT_FALSE(request.requestor.GetWriters()[1].excluded);
}

TEST_F(Selection, NothingEligibleOfAListedSetIsAMismatchBeforeAnythingIsAdded) {
  InstallComponents({MakeComponent(L"", L"one", {L"F:\\one"})});
  Request request;
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_THAT(thrown->GetMessageText(), testing::HasSubstr(L"Number of disks added in the snapshot set"));
  EXPECT_THAT(request.details,
              StartsWith("writer=0,status=LunMismatch, VolCollVolumes=1, VolumesInvolvedInSnapshot=0,"));
  EXPECT_THAT(LinesWith("Selecting components"), IsEmpty());
}

TEST_F(Selection, WithoutAListOfDisksNothingIsEligibleAndNothingIsAdded) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetMessageText(), kMessage114);
  EXPECT_EQ(request.details, "writer=0," + kNoComponentsRecord + ";\n");
}

TEST_F(Selection, ASetLargerThanTheApplicationIsAddedAndTheWarningWaits) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL0001", L"TSL0002"});

  Select(request);

  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), ElementsAre(L"TSL0002"));
}

TEST_F(Selection, ADiskListedTwiceIsEligibleAndLeavesAWarning) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL0001", L"TSL0001"});

  Select(request);

  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_EQ(request.probe.lastException().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
}

// ---- eligible components ----

TEST_F(Selection, AComponentWithoutFilesIsLeftOutSilently) {
  InstallComponents({MakeComponent(L"", L"empty", {}), MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(Added(), ElementsAre("|one"));
  EXPECT_THAT(LinesWith("empty"), ElementsAre("I Discarding empty writers"));
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(Selection, AWriterWhoseComponentsAllLackFilesIsDiscardedWithoutAnError) {
  InstallWriters({MakeWriter(L"Empty", 1, {MakeComponent(L"", L"a", {}), MakeComponent(L"", L"b", {})}),
                  MakeWriter(L"Files", 2, {MakeComponent(L"", L"one", {L"E:\\one"})})});
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_TRUE(request.requestor.GetWriters()[0].excluded);
  EXPECT_THAT(LinesWith("Discarding"), ElementsAre("I Discarding empty writers", "I Discarding writer. Writer=Empty"));
  EXPECT_THAT(log.Errors(), IsEmpty());
  EXPECT_THAT(log.Warnings(), IsEmpty());
}

TEST_F(Selection, AFileOnAnUnlistedDiskEndsItsComponentWhichKeepsTheDisksSeen) {
  simulator::HostModel model = SmallHost();
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  model.writers = {MakeWriter(
      L"Files", 1,
      {MakeComponent(L"", L"torn", {L"E:\\1", L"F:\\2", L"G:\\3"}), MakeComponent(L"", L"one", {L"G:\\one"})})};
  Install(std::move(model));
  Request request;
  request.Gather({L"TSL0001", L"TSL0003"});

  Select(request);

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
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(log.Errors(),
              ElementsAre("GetDiskSerialNumberForVolume() Failed, Volume=Z:\\2\\, Component=Lost and found, "
                          "State=NotEligible"));
  const VssComponent& component = request.requestor.GetWriters()[0].components[0];
  EXPECT_TRUE(component.excluded);
  EXPECT_EQ(component.affectedSerialNumbers, (Names{L"TSL0001"}));
  EXPECT_THAT(Added(), ElementsAre("|one"));
}

TEST_F(Selection, ADiskWithoutASerialNumberEndsItsComponent) {
  simulator::HostModel model = SmallHost();
  model.disks[2].reportsSerial = false;
  model.writers = {
      MakeWriter(L"Files", 1, {MakeComponent(L"", L"two", {L"F:\\two"}), MakeComponent(L"", L"one", {L"E:\\one"})})};
  Install(std::move(model));
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(log.Errors(), ElementsAre("GetDiskSerialNumberForVolume() Failed, Volume=" + WideToUtf8(VolumeName(2)) +
                                        ", Component=two, State=NotEligible"));
  EXPECT_THAT(Added(), ElementsAre("|one"));
}

TEST_F(Selection, AnUnknownSerialNumberMatchesNoDisk) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL9999"});

  EXPECT_THROW(Select(request), VarnelException);

  EXPECT_THAT(log.Warnings(), ElementsAre("Volume not in input list, State=NotEligible"));
  EXPECT_THAT(request.details, testing::HasSubstr("status=LunMismatch"));
}

TEST_F(Selection, ASerialNumberInAnotherCaseMatchesNoDisk) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"tsl0001"});

  EXPECT_THROW(Select(request), VarnelException);

  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].excluded);
}

TEST_F(Selection, BlanksOfASerialNumberCount) {
  simulator::HostModel model = SmallHost();
  model.disks[1].serial = L" TSL0001 ";
  model.writers = {MakeWriter(L"Files", 1, {MakeComponent(L"", L"one", {L"E:\\one"})})};
  Install(model);
  {
    Request request;
    request.Gather({L"TSL0001"});
    EXPECT_THROW(Select(request), VarnelException);
  }
  Request request;
  request.Gather({L" TSL0001 "});
  Select(request);
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), ElementsAre(L" TSL0001 "));
}

TEST_F(Selection, AComponentOnTheSystemDiskIsLeftOutWithTwoWarnings) {
  InstallComponents({MakeComponent(L"", L"system", {L"C:\\data"}), MakeComponent(L"", L"one", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL0001", L"SYS"});

  Select(request);

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
  Request request;
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
  Request request;
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
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0002"});
  request.probe.setWriterCode("0");
  std::map<std::wstring, std::wstring> volumeSerials = {{VolumeName(1), L"TSL0002"}};
  VssComponent component = Component({VolumeName(1)});

  EXPECT_TRUE(request.requestor.IsComponentEligible(component, volumeSerials));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(Eligibility, BeforeAWriterCodeIsKnownNothingIsEligible) {
  Request request;
  std::map<std::wstring, std::wstring> volumeSerials;
  VssComponent component = Component({VolumeName(1)});

  EXPECT_THROW(request.requestor.IsComponentEligible(component, volumeSerials), std::invalid_argument);
  EXPECT_THAT(log.All(), ElementsAre("E Writer code is not a number: "));
}

// ---- the writer code ----

class NamedDatabases : public Selection {
 protected:
  /// Components \HOST\sales, \HOST\PROD\crm and \other, each on its own folder of E:.
  void InstallDatabases(const std::wstring& list) {
    simulator::HostModel model = SmallHost();
    model.databases = {{L"TSL0001", list}};
    model.writers = {
        MakeWriter(L"Databases", 1,
                   {MakeComponent(L"HOST", L"sales", {L"E:\\sales"}),
                    MakeComponent(L"HOST\\PROD", L"crm", {L"E:\\crm"}), MakeComponent(L"", L"other", {L"E:\\other"})})};
    Install(std::move(model));
  }
  Lines AddedWith(const std::string& requestText) {
    Request request;
    request.Gather({L"TSL0001"});
    Select(request, requestText);
    return Added();
  }
  std::size_t ListsFetched() { return host().calls().Of("MetadataService::FindDatabasesToQuiesce").size(); }
  /// The paths of a database list.
  Names PathsOf(const std::wstring& list) {
    host().model().databases = {{L"TSL0001", list}};
    Request request;
    request.requestor.SetInputDriveSerialNos({L"TSL0001"});
    Names paths;
    request.probe.GetComponentsList(paths);
    return paths;
  }
};

TEST_F(NamedDatabases, WithTheCodes0And1EveryComponentPassesAndTheListIsNeverFetched) {
  for (const char* text : {"writer=0,", "writer=1,"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");

    EXPECT_THAT(AddedWith(text), ElementsAre("HOST|sales", "HOST\\PROD|crm", "|other"));
    EXPECT_EQ(ListsFetched(), 0u);
  }
}

TEST_F(NamedDatabases, WithTheCodes2To4OnlyNamedComponentsPass) {
  for (const char* text : {"writer=2,", "writer=3,", "host=a,writer=4,x=1"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");

    EXPECT_THAT(AddedWith(text), ElementsAre("HOST|sales"));
    EXPECT_EQ(ListsFetched(), 1u);
    EXPECT_EQ(log.Warnings(), (Lines{"Component not in input file, State=NotEligible",
                                     "Component not in input file, State=NotEligible"}));
  }
}

TEST_F(NamedDatabases, AnyOtherNumberIsLike0) {
  for (const char* text : {"writer=5,", "writer=-2,", "writer=22,", "writer=0x2,"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");

    EXPECT_THAT(AddedWith(text), SizeIs(3));
    EXPECT_EQ(ListsFetched(), 0u);
  }
}

TEST_F(NamedDatabases, LeadingBlanksASignAndTrailingTextOfTheCodeDoNotCount) {
  for (const char* text : {"writer= 2,", "writer=+3,", "writer=4 databases,", "writer=02,"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");

    EXPECT_THAT(AddedWith(text), ElementsAre("HOST|sales"));
  }
}

TEST_F(NamedDatabases, ACodeThatIsNoNumberIsLoggedAndThrown) {
  for (const std::string code : {"all", "", "=2", "-"}) {
    SCOPED_TRACE(code);
    InstallDatabases(L"ALL_DB");

    EXPECT_THROW(AddedWith("writer=" + code + ","), std::invalid_argument);

    EXPECT_THAT(log.All(),
                ElementsAre("I Writer code received from Array is: " + code, "E Writer code is not a number: " + code));
    EXPECT_THAT(Added(), IsEmpty());
  }
}

TEST_F(NamedDatabases, ARequestWithoutACodeIsLoggedAndThrown) {
  InstallDatabases(L"ALL_DB");

  EXPECT_THROW(AddedWith("host=a,x=1"), std::invalid_argument);
  EXPECT_THAT(log.Errors(), ElementsAre("Writer code is not a number: "));
}

TEST_F(NamedDatabases, ACodeOutOfRangeIsLoggedAndThrown) {
  InstallDatabases(L"ALL_DB");

  EXPECT_THROW(AddedWith("writer=99999999999,"), std::out_of_range);
  EXPECT_THAT(log.Errors(), ElementsAre("Writer code is not a number: 99999999999"));
}

TEST_F(NamedDatabases, WithCode2AndTheListAllEveryComponentPasses) {
  InstallDatabases(L"ALL_DB");

  EXPECT_THAT(AddedWith("writer=2,"), ElementsAre("HOST|sales", "HOST\\PROD|crm", "|other"));
}

TEST_F(NamedDatabases, TheCodeIsReadAndTheListFetchedOncePerEligibleWriter) {
  simulator::HostModel model = SmallHost();
  model.databases = {{L"TSL0001", L"ALL_DB"}};
  model.writers = {MakeWriter(L"First", 1, {MakeComponent(L"", L"a", {L"E:\\a"})}), MakeWriter(L"Not asked", 2, {}),
                   MakeWriter(L"Second", 3, {MakeComponent(L"", L"b", {L"E:\\b"})})};
  Install(std::move(model));
  Request<Choosy> request(Names{L"First", L"Second"});
  request.Gather({L"TSL0001"});

  Select(request, "writer=2,");

  EXPECT_EQ(ListsFetched(), 2u);
  EXPECT_THAT(LinesWith("Writer code received"), SizeIs(2));
}

TEST_F(NamedDatabases, TheMetadataServiceIsAskedForTheFirstDiskOnly) {
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0002", L"TSL0001"});
  Names paths;

  request.probe.GetComponentsList(paths);

  EXPECT_THAT(host().calls().Of("MetadataService::FindDatabasesToQuiesce"),
              ElementsAre(StartsWith("MetadataService::FindDatabasesToQuiesce(TSL0002)")));
}

TEST_F(NamedDatabases, AServerOfTheHostsNameIsTheDefaultInstance) {
  EXPECT_EQ(PathsOf(L"Sales@HOST"), (Names{L"\\host\\sales"}));
}

TEST_F(NamedDatabases, AnyOtherServerIsANamedInstance) {
  EXPECT_EQ(PathsOf(L"Crm@PROD"), (Names{L"\\host\\prod\\crm"}));
}

TEST_F(NamedDatabases, EntriesStandBetweenTabs) {
  EXPECT_EQ(PathsOf(L"sales@host\tcrm@prod\tsales@host"), (Names{L"\\host\\sales", L"\\host\\prod\\crm"}));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(NamedDatabases, ATabAtTheEndAddsNothing) {
  EXPECT_EQ(PathsOf(L"sales@host\t"), (Names{L"\\host\\sales"}));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(NamedDatabases, AnEmptyListNamesNothing) {
  EXPECT_EQ(PathsOf(L""), Names{});
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(NamedDatabases, AnEntryWithoutAServerIsSkippedWithAWarning) {
  EXPECT_EQ(PathsOf(L"sales\tcrm@prod"), (Names{L"\\host\\prod\\crm"}));
  EXPECT_THAT(log.All(), ElementsAre("W Database entry without a server is skipped, Entry=sales"));
}

TEST_F(NamedDatabases, AllIsMeantOnlyInItsOwnSpellingAndAlone) {
  EXPECT_EQ(PathsOf(L"all_db"), Names{});
  EXPECT_EQ(PathsOf(L"ALL_DB\tcrm@prod"), (Names{L"\\host\\prod\\crm"}));
  EXPECT_THAT(log.Warnings(), SizeIs(2));
}

TEST_F(NamedDatabases, TheFirstSeparatorOfAnEntryCounts) {
  EXPECT_EQ(PathsOf(L"db@a@b"), (Names{L"\\host\\a@b\\db"}));
}

TEST_F(NamedDatabases, AnEntryMayLackItsNames) {
  EXPECT_EQ(PathsOf(L"@host"), (Names{L"\\host\\"}));
  EXPECT_EQ(PathsOf(L"db@"), (Names{L"\\host\\\\db"}));
}

TEST_F(NamedDatabases, OnAClusterTheNetworkNameOfTheServerCounts) {
  simulator::HostModel model = SmallHost();
  model.cluster = simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"SQLVIRT"}, {L"prod", L"SQLNET"}}};
  Install(std::move(model));

  EXPECT_EQ(PathsOf(L"sales@SqlVirt\tcrm@prod\thr@unknown"),
            (Names{L"\\sqlvirt\\sales", L"\\sqlnet\\prod\\crm", L"\\host\\unknown\\hr"}));
  EXPECT_THAT(log.All(), ElementsAre("I  GetClusterName failed. Falling back to local hostname"));
}

TEST_F(NamedDatabases, ListsAreAddedToTheComponentsAlreadyNamed) {
  host().model().databases = {{L"TSL0001", L"sales@host"}};
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths = {L"\\before"};

  request.probe.GetComponentsList(paths);

  EXPECT_EQ(paths, (Names{L"\\before", L"\\host\\sales"}));
}

TEST_F(NamedDatabases, TheListIsTheCallersListOfQuiescedDatabases) {
  host().model().databases = {{L"TSL0001", L"sales@host\tcrm@prod"}};
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths;

  request.probe.GetComponentsList(paths);

  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "sales@host\tcrm@prod");
}

TEST_F(NamedDatabases, ABridgeThatFindsNoListIsLoggedAndLeavesAll) {
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0009"});
  Names paths;

  request.probe.GetComponentsList(paths);

  EXPECT_EQ(paths, (Names{L"ALL_DB"}));
  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "ALL_DB");
  EXPECT_THAT(log.All(), ElementsAre("I  GetdbFilesToQuiescePtr failed with error =No protection set holds the disk "
                                     "TSL0009"));
}

TEST_F(NamedDatabases, ABridgeThatFailsLeavesTheListOfTheCallBefore) {
  host().model().databases = {{L"TSL0001", L"sales@host"}};
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths;
  request.probe.GetComponentsList(paths);
  host().faults().FailCall("MetadataService::FindDatabasesToQuiesce", static_cast<DWORD>(E_FAIL));
  paths.clear();

  request.probe.GetComponentsList(paths);

  EXPECT_EQ(paths, (Names{L"\\host\\sales"}));
  EXPECT_THAT(log.All(),
              ElementsAre(StartsWith("I  GetdbFilesToQuiescePtr failed with error =The metadata service failed")));
}

TEST_F(NamedDatabases, AListThatIsMissingAltogetherIsLoggedTwiceAndNamesNothing) {
  Request request;
  request.requestor.SetInputDriveSerialNos({L"TSL0009"});
  request.probe.successfulDBList() = nullptr;
  Names paths;

  request.probe.GetComponentsList(paths);

  EXPECT_THAT(paths, IsEmpty());
  ASSERT_THAT(log.All(), SizeIs(2));
  EXPECT_EQ(log.All()[1], "I  GetdbFilesToQuiescePtr failed ");
}

TEST_F(NamedDatabases, WithoutADiskTheListCannotBeFetched) {
  Request request;
  Names paths;

  EXPECT_EQ(ThrownLong([&] { request.probe.GetComponentsList(paths); }), Failure(E_INVALIDARG));

  EXPECT_THAT(log.All(), ElementsAre("E Invalid number of serial nos"));
  EXPECT_EQ(ListsFetched(), 0u);
}

TEST_F(NamedDatabases, WithCode2AndWithoutADiskTheSelectionFails) {
  InstallDatabases(L"ALL_DB");
  Request request;
  request.Gather({});

  EXPECT_EQ(ThrownLong([&] { Select(request, "writer=2,"); }), Failure(E_INVALIDARG));
}

TEST_F(NamedDatabases, AnEmptyListIsAMismatchOfTheProtectionSet) {
  InstallDatabases(L"");
  Request request;
  request.Gather({L"TSL0001"});

  EXPECT_THROW(Select(request, "writer=2,"), VarnelException);

  EXPECT_THAT(log.Warnings(), Contains("Component not in input file, State=NotEligible").Times(3));
  EXPECT_THAT(request.details, StartsWith("writer=2,status=LunMismatch"));
}

TEST_F(NamedDatabases, AComponentThatIsNotNamedIsRefusedOnceAndItsDisksAreNotLookedAt) {
  InstallDatabases(L"sales@host");
  host().model().writers[0].components[2].files.push_back({L"F:\\more", L"*"});

  EXPECT_THAT(AddedWith("writer=2,"), ElementsAre("HOST|sales"));

  EXPECT_THAT(log.Warnings(), SizeIs(2));
  EXPECT_THAT(LinesWith("Component=other"), IsEmpty());
}

class NamedComponents : public Selection {
 protected:
  static bool Passes(const std::string& writerCode, const Names& named, const std::wstring& fullPath) {
    CVarnel requestor(0);
    RequestorProbe probe(requestor);
    probe.setWriterCode(writerCode);
    return probe.checkComponents(named, fullPath);
  }
};

TEST_F(NamedComponents, EveryComponentPassesWithoutANamingCode) {
  for (const char* code : {"0", "1", "5", "-1"}) EXPECT_TRUE(Passes(code, {}, L"\\host\\sales")) << code;
}

TEST_F(NamedComponents, NoComponentPassesWhenNothingIsNamed) {
  for (const char* code : {"2", "3", "4"}) EXPECT_FALSE(Passes(code, {}, L"\\host\\sales")) << code;
}

TEST_F(NamedComponents, EveryComponentPassesWhenAllAreNamed) {
  EXPECT_TRUE(Passes("2", {L"ALL_DB"}, L"\\host\\sales"));
  EXPECT_TRUE(Passes("2", {L"ALL_DB", L"\\host\\crm"}, L"\\host\\sales"));
}

TEST_F(NamedComponents, OnlyTheFirstNameMayMeanAll) {
  EXPECT_FALSE(Passes("2", {L"A", L"ALL_DB"}, L"\\host\\sales"));
}

TEST_F(NamedComponents, AComponentsPathIsLowerCasedAndComparedExactly) {
  const Names named = {L"\\host\\sales", L"\\HOST\\CRM"};

  EXPECT_TRUE(Passes("3", named, L"\\HOST\\Sales"));
  EXPECT_FALSE(Passes("3", named, L"\\HOST\\CRM"));
  EXPECT_FALSE(Passes("3", named, L"\\host\\sales2"));
  EXPECT_FALSE(Passes("3", named, L"host\\sales"));
}

TEST_F(NamedComponents, TheCodeMustBeANumber) {
  EXPECT_THROW(Passes("", {}, L"\\a"), std::invalid_argument);
  EXPECT_THROW(Passes("x", {}, L"\\a"), std::invalid_argument);
  EXPECT_THROW(Passes("3000000000", {}, L"\\a"), std::out_of_range);
}

// ---- parents and children ----

// A component that is selected, by its full path.
VssComponent Selected(const std::wstring& fullPath, Names disks = {}) {
  VssComponent component;
  component.fullPath = fullPath;
  component.caption = L"the " + fullPath;
  component.selectable = true;
  component.affectedSerialNumbers = std::move(disks);
  return component;
}

VssComponent Unselected(const std::wstring& fullPath, Names disks = {}) {
  VssComponent component = Selected(fullPath, std::move(disks));
  component.excluded = true;
  return component;
}

VssWriter WriterOf(std::vector<VssComponent> components) {
  VssWriter writer;
  writer.name = L"Files";
  writer.components = std::move(components);
  return writer;
}

class Family : public HostFixture {
 protected:
  Request<> request;

  std::vector<VssComponent>& Include(std::vector<VssComponent> components) {
    request.probe.writers() = {WriterOf(std::move(components))};
    request.probe.IncludeImplicitComponents();
    return request.probe.writers()[0].components;
  }
  std::optional<VarnelException> Verify(std::vector<VssComponent> components) {
    request.probe.writers() = {WriterOf(std::move(components))};
    return ThrownException([&] { request.probe.VerifyComponentSelection(); });
  }
};

TEST_F(Family, AParentIsIncludedBecauseOfItsChild) {
  const auto& components = Include({Unselected(L"\\A", {L"1"}), Selected(L"\\a\\B", {L"2"})});

  EXPECT_FALSE(components[0].excluded);
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_EQ(components[1].affectedSerialNumbers, (Names{L"2"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A, BecauseOf='\\a\\B"));
}

TEST_F(Family, AComponentThatOnlyBeginsAlikeIsNoParent) {
  const auto& components = Include({Unselected(L"\\A"), Selected(L"\\AB")});

  EXPECT_TRUE(components[0].excluded);
  EXPECT_THAT(log.All(), SizeIs(1));
}

TEST_F(Family, AnUnselectedChildIncludesNobody) {
  EXPECT_TRUE(Include({Unselected(L"\\A"), Unselected(L"\\A\\B")})[0].excluded);
}

TEST_F(Family, AChildIsNotIncludedBecauseOfItsParent) {
  EXPECT_TRUE(Include({Selected(L"\\A"), Unselected(L"\\A\\B")})[1].excluded);
}

TEST_F(Family, WholeChainsOfParentsAreIncluded) {
  const auto& components = Include({Unselected(L"\\A"), Unselected(L"\\A\\B"), Selected(L"\\A\\B\\C", {L"1"})});

  EXPECT_FALSE(components[0].excluded);
  EXPECT_FALSE(components[1].excluded);
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1"}));
  EXPECT_EQ(components[1].affectedSerialNumbers, (Names{L"1"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A, BecauseOf='\\A\\B\\C",
                          "I Including, Component='\\A\\B, BecauseOf='\\A\\B\\C"));
}

TEST_F(Family, AParentJustIncludedCountsAsAChildOfLaterParents) {
  const auto& components =
      Include({Unselected(L"\\A\\B", {L"1"}), Selected(L"\\A\\B\\C", {L"2"}), Unselected(L"\\A", {L"3"})});

  EXPECT_EQ(components[2].affectedSerialNumbers, (Names{L"1", L"2", L"3"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A\\B, BecauseOf='\\A\\B\\C",
                          "I Including, Component='\\A, BecauseOf='\\A\\B"));
}

TEST_F(Family, AParentIsIncludedOnceAndJoinsTheDisksOfAllItsChildren) {
  const auto& components = Include(
      {Unselected(L"\\A"), Selected(L"\\A\\B", {L"1"}), Selected(L"\\A\\C", {L"2"}), Unselected(L"\\A\\D", {L"3"})});

  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_THAT(log.All(), SizeIs(2));
}

TEST_F(Family, AParentThatWasIncludedAnywayJoinsItsChildrensDisksSilently) {
  const auto& components = Include({Selected(L"\\A", {L"1"}), Selected(L"\\A\\B", {L"2"})});

  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_THAT(log.All(), ElementsAre("I Including implicit components"));
}

TEST_F(Family, DisksThatParentsTakeOverAreNoDisksOfTheApplication) {
  Include({Unselected(L"\\A", {L"1"}), Selected(L"\\A\\B", {L"2"})});

  EXPECT_THAT(request.probe.eligibleSerialNumbers(), IsEmpty());
}

TEST_F(Family, ExcludedWritersAreLeftAlone) {
  VssWriter excluded = WriterOf({Unselected(L"\\A"), Selected(L"\\A\\B")});
  excluded.excluded = true;
  request.probe.writers() = {excluded};

  request.probe.IncludeImplicitComponents();
  EXPECT_TRUE(request.probe.writers()[0].components[0].excluded);

  request.probe.writers()[0].components = {Selected(L"\\A"), Unselected(L"\\A\\B")};
  EXPECT_NO_THROW(request.probe.VerifyComponentSelection());
}

TEST_F(Family, ComponentsOfDifferentWritersAreNotRelated) {
  request.probe.writers() = {WriterOf({Unselected(L"\\A")}), WriterOf({Selected(L"\\A\\B")})};

  request.probe.IncludeImplicitComponents();
  EXPECT_TRUE(request.probe.writers()[0].components[0].excluded);

  request.probe.writers() = {WriterOf({Selected(L"\\A")}), WriterOf({Unselected(L"\\A\\B")})};
  EXPECT_NO_THROW(request.probe.VerifyComponentSelection());
}

TEST_F(Family, AnExcludedChildUnderAnIncludedParentIsAConfigurationError) {
  const auto thrown = Verify({Selected(L"\\A"), Unselected(L"\\A\\B")});

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage113);
  EXPECT_THAT(thrown->GetMessageList(),
              ElementsAre(kMessage113 +
                          L"Component the \\A\\B needs to be in the protection set as parent the \\A is included. Make "
                          L"sure volumes affected by the \\A\\B are included in volume collection."));
  EXPECT_THAT(log.All(), ElementsAre("I VerifyComponentSelection",
                                     "E IncludedParent=the \\A, ExcludedChild=the \\A\\B. Ensure that protection set "
                                     "is complete"));
}

TEST_F(Family, TheFirstPairInListOrderIsReported) {
  Verify({Unselected(L"\\A\\B\\D"), Selected(L"\\X"), Selected(L"\\A\\B"), Selected(L"\\A"), Unselected(L"\\A\\C"),
          Unselected(L"\\X\\Y")});

  EXPECT_THAT(log.Errors(),
              ElementsAre("IncludedParent=the \\X, ExcludedChild=the \\X\\Y. Ensure that protection set is complete"));
}

TEST_F(Family, TheFirstChildOfAParentInListOrderIsReported) {
  Verify({Selected(L"\\A\\C"), Selected(L"\\A"), Unselected(L"\\A\\B\\D"), Unselected(L"\\A\\B")});

  EXPECT_THAT(log.Errors(), ElementsAre("IncludedParent=the \\A, ExcludedChild=the \\A\\B\\D. Ensure that protection "
                                        "set is complete"));
}

TEST_F(Family, AnExcludedParentMayHaveExcludedChildren) {
  EXPECT_FALSE(Verify({Unselected(L"\\A"), Unselected(L"\\A\\B"), Selected(L"\\C")}));
  EXPECT_THAT(log.All(), ElementsAre("I VerifyComponentSelection"));
}

TEST_F(Selection, AChildOnAListedDiskIncludesItsParentOnAnUnlistedOne) {
  InstallComponents({MakeComponent(L"", L"A", {L"F:\\a"}), MakeComponent(L"A", L"B", {L"E:\\b"})});
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(Added(), ElementsAre("|A", "A|B"));
  EXPECT_THAT(LinesWith("Including,"), ElementsAre("I Including, Component='\\A, BecauseOf='\\A\\B"));
  EXPECT_EQ(request.requestor.GetWriters()[0].components[0].affectedSerialNumbers, (Names{L"TSL0001", L"TSL0002"}));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(Selection, AParentOnAListedDiskWithItsChildOnAnUnlistedOneIsAConfigurationError) {
  InstallComponents({MakeComponent(L"", L"A", {L"E:\\a"}), MakeComponent(L"A", L"B", {L"F:\\b"})});
  Request request;
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage113);
  EXPECT_THAT(log.Errors(), ElementsAre("IncludedParent=A, ExcludedChild=B. Ensure that protection set is complete"));
  EXPECT_THAT(Added(), IsEmpty());
  EXPECT_EQ(request.details, "writer=0,");
}

TEST_F(Selection, AParentIncludedBecauseOfOneChildWithAnExcludedSiblingIsAConfigurationError) {
  InstallComponents(
      {MakeComponent(L"", L"A", {}), MakeComponent(L"A", L"B", {L"E:\\b"}), MakeComponent(L"A", L"C", {L"F:\\c"})});
  Request request;
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetMessageText(), kMessage113);
  EXPECT_THAT(log.Errors(), ElementsAre("IncludedParent=A, ExcludedChild=C. Ensure that protection set is complete"));
}

// The pairwise rules as they are stated, every component against every other one.
class Pairwise {
 public:
  static bool IsAncestor(const VssComponent& a, const VssComponent& b) {
    if (a.fullPath.size() >= b.fullPath.size()) return false;
    const std::wstring parent = Folded(a.fullPath + L'\\');
    return Folded(b.fullPath + L'\\').substr(0, parent.size()) == parent;
  }

  static void Include(std::vector<VssWriter>& writers, Lines& lines) {
    lines.push_back("I Including implicit components");
    for (VssWriter& writer : writers) {
      if (writer.excluded) continue;
      for (VssComponent& p : writer.components) {
        for (const VssComponent& c : writer.components) {
          if (!IsAncestor(p, c) || c.excluded) continue;
          if (p.excluded) {
            lines.push_back("I Including, Component='" + WideToUtf8(p.fullPath) + ", BecauseOf='" +
                            WideToUtf8(c.fullPath));
            p.excluded = false;
          }
          for (const std::wstring& serial : c.affectedSerialNumbers) p.affectedSerialNumbers.insert(serial);
        }
      }
    }
  }

  /// The parent and the child that end the check.
  static std::optional<std::pair<std::wstring, std::wstring>> Verify(const std::vector<VssWriter>& writers) {
    for (const VssWriter& writer : writers) {
      if (writer.excluded) continue;
      for (const VssComponent& p : writer.components) {
        for (const VssComponent& c : writer.components) {
          if (IsAncestor(p, c) && !p.excluded && c.excluded) return std::pair(p.caption, c.caption);
        }
      }
    }
    return std::nullopt;
  }

 private:
  static std::wstring Folded(std::wstring text) {
    for (wchar_t& c : text) {
      if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
    return text;
  }
};

// Trees with few names, so that components are often related, equal, or alike but for their case or an empty name.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::vector<VssWriter> Writers() {
    std::vector<VssWriter> writers(1 + Number(3));
    for (VssWriter& writer : writers) {
      writer.excluded = Number(5) == 0;
      const unsigned components = Number(14);
      for (unsigned i = 0; i < components; ++i) writer.components.push_back(Component(i));
    }
    return writers;
  }

 private:
  unsigned Number(unsigned below) { return static_cast<unsigned>(random_() % below); }

  VssComponent Component(unsigned index) {
    static const wchar_t* const kNames[] = {L"a", L"A", L"b", L"ab", L"", L"a b", L"\u00C4", L"\u00E4"};
    VssComponent component;
    const unsigned depth = 1 + Number(4);
    for (unsigned i = 0; i < depth; ++i) {
      component.fullPath += L'\\';
      component.fullPath += kNames[Number(8)];
    }
    component.caption = std::to_wstring(index) + L" " + component.fullPath;
    component.excluded = Number(3) != 0;
    for (unsigned disks = Number(3); disks > 0; --disks) {
      component.affectedSerialNumbers.insert(L"TSL000" + std::to_wstring(Number(6)));
    }
    return component;
  }

  std::mt19937 random_;
};

class FamilyReference : public HostFixture {};

TEST_F(FamilyReference, IncludingGivesTheResultsAndTheLinesOfThePairwiseRules) {
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    Request request;
    request.probe.writers() = Generator(seed).Writers();
    std::vector<VssWriter> expected = request.probe.writers();
    Lines expectedLines;
    Pairwise::Include(expected, expectedLines);
    log.lines.clear();

    request.probe.IncludeImplicitComponents();

    ASSERT_EQ(log.All(), expectedLines) << "seed " << seed;
    for (std::size_t w = 0; w < expected.size(); ++w) {
      for (std::size_t c = 0; c < expected[w].components.size(); ++c) {
        const VssComponent& wanted = expected[w].components[c];
        const VssComponent& found = request.probe.writers()[w].components[c];
        ASSERT_EQ(found.excluded, wanted.excluded) << "seed " << seed << ", component " << c;
        ASSERT_EQ(found.affectedSerialNumbers, wanted.affectedSerialNumbers) << "seed " << seed << ", component " << c;
      }
    }
  }
}

TEST_F(FamilyReference, VerifyingReportsTheFirstPairOfThePairwiseRules) {
  int failures = 0;
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    Request request;
    request.probe.writers() = Generator(seed).Writers();
    const auto expected = Pairwise::Verify(request.probe.writers());
    Lines expectedLines = {"I VerifyComponentSelection"};
    if (expected) {
      expectedLines.push_back("E IncludedParent=" + WideToUtf8(expected->first) + ", ExcludedChild=" +
                              WideToUtf8(expected->second) + ". Ensure that protection set is complete");
      ++failures;
    }
    log.lines.clear();

    const auto thrown = ThrownException([&] { request.probe.VerifyComponentSelection(); });

    ASSERT_EQ(thrown.has_value(), expected.has_value()) << "seed " << seed;
    ASSERT_EQ(log.All(), expectedLines) << "seed " << seed;
  }
  EXPECT_GT(failures, 100);
  EXPECT_LT(failures, 1900);
}

TEST_F(FamilyReference, TheAncestorTestIsThatOfThePairwiseRules) {
  int ancestors = 0;
  for (unsigned seed = 1; seed <= 200; ++seed) {
    for (const VssWriter& writer : Generator(seed).Writers()) {
      for (const VssComponent& a : writer.components) {
        for (const VssComponent& b : writer.components) {
          ASSERT_EQ(IsAncestor(a, b), Pairwise::IsAncestor(a, b))
              << WideToUtf8(a.fullPath) << " and " << WideToUtf8(b.fullPath);
          ancestors += IsAncestor(a, b) ? 1 : 0;
        }
      }
    }
  }
  EXPECT_GT(ancestors, 100);
}

// ---- discarding and adding ----

class Steps : public HostFixture {
 protected:
  Request<> request;
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

  EXPECT_EQ(ThrownLong([&] { request.probe.AddSelectedComponents(request.details); }), Failure(VSS_E_BAD_STATE));

  EXPECT_EQ(request.details, AddComponentFailedRecord("\\A") +
                                 ";\nm_pVssObject->AddComponent()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, "
                                 "ca=ContactTechSupport;\n");
}

TEST_F(Steps, ARecordOfAnOverlongPathKeepsItsReasonAndItsActions) {
  request.probe.writers() = {WriterOf({Selected(L"\\" + std::wstring(5000, L'x'))})};

  EXPECT_TRUE(ThrownLong([&] { request.probe.AddSelectedComponents(request.details); }));

  const std::string record = request.details.substr(0, request.details.find(";\n"));
  EXPECT_EQ(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith("status=AddComponentFailed, Component=\\xxx"));
  EXPECT_THAT(record, EndsWith("xxx..., rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes"));
}

TEST_F(Steps, WithoutWritersNothingIsAddedAndTheRequestFails) {
  const auto thrown = ThrownException([&] { request.probe.AddSelectedComponents(request.details); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage114);
  EXPECT_THAT(thrown->GetMessageList(), ElementsAre(kMessage114));
  EXPECT_EQ(request.details, kNoComponentsRecord + ";\n");
  EXPECT_THAT(log.All(), ElementsAre("I Selecting components", "E   " + kNoComponentsRecord));
}

TEST_F(Selection, ComponentsThatAreNotSelectableAreBackedUpThroughTheirParent) {
  InstallComponents({MakeComponent(L"", L"A", {L"E:\\a"}), NotSelectable(MakeComponent(L"A", L"B", {L"E:\\b"}))});
  Request request;
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(Added(), ElementsAre("|A"));
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].excluded);
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), ElementsAre(EndsWith("= 1 ")));
}

TEST_F(Selection, OnlyComponentsThatAreNotSelectableAddNothingAndTheRequestFails) {
  InstallComponents({NotSelectable(MakeComponent(L"", L"one", {L"E:\\one"}))});
  Request request;
  request.Gather({L"TSL0001"});

  const auto thrown = ThrownException([&] { Select(request); });

  ASSERT_TRUE(thrown);
  EXPECT_EQ(thrown->GetAlertCode(), 602);
  EXPECT_EQ(thrown->GetMessageText(), kMessage114);
  EXPECT_EQ(request.details, "writer=0," + kNoComponentsRecord + ";\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + kNoComponentsRecord));
  EXPECT_THAT(Added(), IsEmpty());
}

TEST_F(Selection, AComponentThatTheServiceRefusesEndsTheRequestWithTwoRecords) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"db", L"two", {L"E:\\two"}),
                     MakeComponent(L"", L"three", {L"E:\\three"})});
  Request request;
  request.Gather({L"TSL0001"});
  host().faults().FailCall("IVssBackupComponents::AddComponent", static_cast<DWORD>(VSS_E_OBJECT_NOT_FOUND), 2);

  EXPECT_EQ(ThrownLong([&] { Select(request); }), Failure(VSS_E_OBJECT_NOT_FOUND));

  const std::string comRecord =
      "m_pVssObject->AddComponent()=Failed, error=VSS_E_OBJECT_NOT_FOUND, rc=COMMError, ca=ContactTechSupport;";
  EXPECT_EQ(request.details, "writer=0," + AddComponentFailedRecord("\\db\\two") + ";\n" + comRecord + "\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + AddComponentFailedRecord("\\db\\two"), " " + comRecord));
  EXPECT_THAT(Added(), ElementsAre("|one", "db|two"));
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].added);
  EXPECT_FALSE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), IsEmpty());
}

TEST_F(Selection, AComponentThatTheServiceTakesWithAPositiveCodeIsReportedAndCounts) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"two", {L"E:\\two"})});
  Request request;
  request.Gather({L"TSL0001"});
  host().faults().FailCall("IVssBackupComponents::AddComponent", static_cast<DWORD>(S_FALSE));

  Select(request);

  EXPECT_EQ(request.details, "writer=0," + AddComponentFailedRecord("\\one") + ";\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + AddComponentFailedRecord("\\one")));
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[0].added);
  EXPECT_TRUE(request.requestor.GetWriters()[0].components[1].added);
  EXPECT_THAT(LinesWith("explicitly"), ElementsAre(EndsWith("= 2 ")));
}

TEST_F(Selection, AComponentThatTheServiceHasAlreadyIsAFailure) {
  InstallComponents({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"ONE", {L"E:\\one"})});
  Request request;
  request.Gather({L"TSL0001"});

  EXPECT_EQ(ThrownLong([&] { Select(request); }), Failure(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_THAT(request.details, testing::HasSubstr("Component=\\ONE,"));
}

// ---- cost ----

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
    Request request;
    request.Gather({L"TSL0001", L"TSL0002"});
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
  Request<Choosy> request(Names{L"Files"});
  request.Gather({L"TSL0001"});

  Select(request);

  EXPECT_THAT(request.requestor.asked, SizeIs(kComponents + 1));
  EXPECT_THAT(LinesWith("AffectedVolume="), SizeIs(kComponents));
  EXPECT_THAT(log.All(), SizeIs(2 * kComponents + 6));
}

}  // namespace
}  // namespace varnel::test
