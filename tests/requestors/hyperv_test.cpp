// The requestor of virtual machines: its writers, its catalogue, the checks of the host and of the volumes, and whole
// requests in which some machines fail.
#include "platform/ansi.h"
#include "requestors/HyperVReq.h"

#include <functional>
#include <stdexcept>

#include "tests/support/applications.h"
#include "tests/support/forwarding_host.h"
#include "text/format.h"

namespace varnel::test {
namespace {

static_assert(sizeof(HyperVReq) == sizeof(CVarnel), "it adds nothing to its base");

std::string Narrow(const std::wstring& text) {
  return WideToUtf8Lossy(text);
}

class HyperVWriters : public HostFixture {};

TEST_F(HyperVWriters, ThoseOfHyperVAndOfClusterSharedVolumesAreAccepted) {
  EXPECT_TRUE(IsEligible<HyperVReq>(L"Microsoft Hyper-V VSS Writer", L"{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}"));
  EXPECT_TRUE(IsEligible<HyperVReq>(L"Cluster Shared Volume VSS Writer", L"{1072ae1c-e5a7-4ea1-9e4a-6f7964656570}"));
  EXPECT_TRUE(IsEligible<HyperVReq>(L"Renamed", kHyperVWriterId));
  EXPECT_THAT(log.AllWithSources(), ElementsAre("I HyperVReq: Found Hyper-V writer Microsoft Hyper-V VSS Writer ",
                                                "I HyperVReq: Found CSV writer Cluster Shared Volume VSS Writer ",
                                                "I HyperVReq: Found Hyper-V writer Renamed "));
}

TEST_F(HyperVWriters, AnyOtherIdIsRejected) {
  EXPECT_FALSE(IsEligible<HyperVReq>(L"Microsoft Hyper-V VSS Writer", L"{66841CD4-6DED-4F4B-8F17-FD23F8DDC3DE}"));
  EXPECT_FALSE(IsEligible<HyperVReq>(L"Cluster Shared Volume VSS Writer", L"{1072AE1C-E5A7-4EA1-9E4A-6F7964656570}"));
  EXPECT_FALSE(IsEligible<HyperVReq>(L"Microsoft Hyper-V VSS Writer", kExchangeWriterId));
  EXPECT_FALSE(IsEligible<HyperVReq>(L"", L""));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("V HyperVReq: Writer Microsoft Hyper-V VSS Writer is not a Hyper-V or CSV writer ",
                          "V HyperVReq: Writer Cluster Shared Volume VSS Writer is not a Hyper-V or CSV writer ",
                          "V HyperVReq: Writer Microsoft Hyper-V VSS Writer is not a Hyper-V or CSV writer ",
                          "V HyperVReq: Writer  is not a Hyper-V or CSV writer "));
}

TEST_F(HyperVWriters, EitherOfThemIsLookedForOnTheHost) {
  Install(HostWithEveryApplication());
  std::string details;
  EXPECT_TRUE(HyperVReq(0).IsWriterPresent(details));
  model().writers.erase(model().writers.begin() + 4);
  EXPECT_TRUE(HyperVReq(0).IsWriterPresent(details));
  model().writers.pop_back();
  EXPECT_FALSE(HyperVReq(0).IsWriterPresent(details));
}

class HyperVComponents : public HostFixture {
 protected:
  static ComponentCatalogingInfo InfoOf(const std::wstring& writerName, const std::wstring& name,
                                        const std::wstring& caption) {
    HyperVReq requestor(0);
    VssComponent component;
    component.writerName = writerName;
    component.name = name;
    component.caption = caption;
    component.fullPath = L"\\a path that does not matter";
    ComponentCatalogingInfo info{L"left over", L"left over"};
    RequestorProbe(requestor).GetComponentInfoForCataloging(component, info);
    return info;
  }
};

struct CataloguedMachine {
  const wchar_t* writer;
  const wchar_t* name;
  const wchar_t* caption;
  const wchar_t* id;
  const wchar_t* machine;
  std::vector<std::string> errors;
};

std::string NoBackslash(const std::string& caption) {
  return "Did not find '\\' in component caption " + caption;
}
std::string NoMark(const std::string& name) {
  return "Did not find '<CSV>' in component name " + name;
}
std::string UnknownName(const std::string& caption) {
  return "Unexcpected app object name in Hyper-V requester! Component caption is " + caption + ".";
}
std::string UnknownId(const std::string& name) {
  return "Unexcpected app object id in Hyper-V requester! Component name is " + name + ".";
}

// The id stands before the first mark where the writer is not Hyper-V's, the machine after the caption's first
// backslash.
TEST_F(HyperVComponents, AreCataloguedByTheirNameAndTheirCaption) {
  const wchar_t* const csv = kCsvWriterName;
  const wchar_t* const plain = kHyperVWriterName;
  const CataloguedMachine machines[] = {
      {plain, L"6F96-19FF", L"Online\\vm1", L"6F96-19FF", L"vm1", {}},
      {csv, L"6F96-19FF<CSV>node2", L"Online\\vm1", L"6F96-19FF", L"vm1", {}},
      {csv, L"6F96<CSV>19FF<CSV>", L"Online\\vm\\1", L"6F96", L"vm\\1", {}},
      {plain, L"6F96<CSV>", L"Online\\vm1", L"6F96<CSV>", L"vm1", {}},
      {L"Some Hyper-V thing", L"a<CSV>", L"Online\\vm1", L"a<CSV>", L"vm1", {}},
      {L"some hyper-v thing", L"a<CSV>", L"Online\\vm1", L"a", L"vm1", {}},
      {L"", L"a<CSV>", L"Online\\vm1", L"a", L"vm1", {}},
      {plain, L"6F96-19FF", L"vm1", L"6F96-19FF", L"UNKNOWN", {NoBackslash("vm1"), UnknownName("vm1")}},
      {plain, L"6F96-19FF", L"Online\\", L"6F96-19FF", L"UNKNOWN", {UnknownName("Online\\")}},
      {csv, L"6F96-19FF", L"Online\\vm1", L"UNKNOWN", L"vm1", {NoMark("6F96-19FF"), UnknownId("6F96-19FF")}},
      {csv, L"6F96<csv>", L"Online\\vm1", L"UNKNOWN", L"vm1", {NoMark("6F96<csv>"), UnknownId("6F96<csv>")}},
      {csv, L"6F96<CSV", L"Online\\vm1", L"UNKNOWN", L"vm1", {NoMark("6F96<CSV"), UnknownId("6F96<CSV")}},
      {csv, L"<CSV>node2", L"Online\\vm1", L"UNKNOWN", L"vm1", {UnknownId("<CSV>node2")}},
      {csv, L"", L"", L"UNKNOWN", L"UNKNOWN", {NoBackslash(""), NoMark(""), UnknownName(""), UnknownId("")}},
      {plain, L"", L"Online\\vm1", L"UNKNOWN", L"vm1", {UnknownId("")}},
  };
  for (const CataloguedMachine& machine : machines) {
    SCOPED_TRACE(Narrow(machine.writer) + ", " + Narrow(machine.name) + ", " + Narrow(machine.caption));
    log.lines.clear();
    const ComponentCatalogingInfo info = InfoOf(machine.writer, machine.name, machine.caption);
    EXPECT_EQ(info.appObjectId, machine.id);
    EXPECT_EQ(info.appObjectName, machine.machine);
    EXPECT_EQ(log.Errors(), machine.errors);
    for (const RecordingLog::Line& line : log.lines) EXPECT_EQ(line.source, "HyperVReq");
    EXPECT_EQ(log.lines.size(), machine.errors.size());
  }
}

class HyperVHost : public HostFixture {
 protected:
  void SetUp() override { InstallSystem({true, 6, 3, 9600, 0}, L"6.3.9600.17120"); }
  // Without a version there is no such file.
  void InstallSystem(simulator::OperatingSystem os, const std::wstring& serviceVersion) {
    simulator::HostModel model = SmallHost();
    model.os = os;
    if (!serviceVersion.empty()) model.fileVersions[L"C:\\Windows\\system32\\Vmms.exe"] = serviceVersion;
    Install(std::move(model));
    log.lines.clear();
    details = "before,";
  }
  DWORD Validate() {
    HyperVReq requestor(0);
    CVarnel& base = requestor;
    return base.ValidateHostConfiguration(details);
  }
  void ExpectUnsupported() {
    EXPECT_EQ(Validate(), 254u);
    EXPECT_EQ(details, "before,Error, status=UnsupportedOSVersion, rc=ConfigError, ca=CheckHostOSVersion;\n");
    EXPECT_THAT(
        log.AllWithSources(),
        ElementsAre("E HyperVReq:   Error, status=UnsupportedOSVersion, rc=ConfigError, ca=CheckHostOSVersion"));
    EXPECT_THAT(Calls("GetSystemDirectoryW"), IsEmpty());
    EXPECT_THAT(Calls("GetFileVersionInfoW"), IsEmpty());
  }
  void ExpectSupported() {
    EXPECT_EQ(Validate(), 0u);
    EXPECT_EQ(details, "before,");
    EXPECT_THAT(log.Errors(), IsEmpty());
  }
  void ExpectMissingHotfix() {
    EXPECT_EQ(Validate(), 255u);
    EXPECT_EQ(details, "before,Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes;\n");
    EXPECT_EQ(log.Errors().back(), "  Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes");
    EXPECT_EQ(log.lines.back().source, "HyperVReq");
  }
  // The path that was looked at.
  std::string LookedAt() {
    const std::vector<std::string> lines = Calls("GetFileVersionInfoW");
    return lines.size() == 1 ? lines[0].substr(0, lines[0].find(") = ")) : std::string("not one file");
  }

  std::string details;
};

TEST_F(HyperVHost, AServerOfVersion6_3WithTheHotfixIsFit) {
  ExpectSupported();
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_EQ(LookedAt(), "GetFileVersionInfoW(C:\\Windows\\system32\\Vmms.exe");
}

TEST_F(HyperVHost, AWorkstationIsRefusedWithoutALookAtTheFile) {
  InstallSystem({false, 10, 0, 19045, 0}, L"10.0.19041.1");
  ExpectUnsupported();
  EXPECT_THAT(Calls("VerifyVersionInfoW"), SizeIs(1));
}

TEST_F(HyperVHost, AServerOlderThanVersion6_3IsRefusedWithoutALookAtTheFile) {
  for (const simulator::OperatingSystem& os :
       {simulator::OperatingSystem{true, 6, 2, 9200, 0}, simulator::OperatingSystem{true, 6, 1, 7601, 1},
        simulator::OperatingSystem{true, 5, 9, 3790, 2}}) {
    InstallSystem(os, L"6.3.9600.17120");
    ExpectUnsupported();
    EXPECT_THAT(Calls("VerifyVersionInfoW"), SizeIs(2));
  }
}

TEST_F(HyperVHost, ALaterServerIsFit) {
  InstallSystem({true, 10, 0, 17763, 0}, L"10.0.17763.1");
  ExpectSupported();
  InstallSystem({true, 6, 4, 9800, 0}, L"6.4.0.0");
  ExpectSupported();
  InstallSystem({true, 6, 3, 9600, 1}, L"6.3.9600.17120");
  ExpectSupported();
}

TEST_F(HyperVHost, AFileThatIsOlderThanTheHotfixIsRefused) {
  for (const wchar_t* version : {L"6.3.9600.17119", L"6.3.9599.65535", L"6.2.9600.17120", L"5.9.9999.65535"}) {
    SCOPED_TRACE(Narrow(version));
    InstallSystem({true, 6, 3, 9600, 0}, version);
    ExpectMissingHotfix();
  }
}

TEST_F(HyperVHost, AFileOfTheHotfixOrNewerIsFit) {
  for (const wchar_t* version : {L"6.3.9600.17120", L"6.3.9600.17121", L"6.3.9601.0", L"6.4.0.0", L"10.0.0.0"}) {
    SCOPED_TRACE(Narrow(version));
    InstallSystem({true, 6, 3, 9600, 0}, version);
    ExpectSupported();
  }
}

TEST_F(HyperVHost, AMissingFileIsAMissingHotfix) {
  InstallSystem({true, 6, 3, 9600, 0}, L"");
  ExpectMissingHotfix();
  EXPECT_THAT(log.All(), ElementsAre("W GetFileVersionInfoW() Failed, File=C:\\Windows\\system32\\Vmms.exe, Error=2",
                                     "E   Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes"));
}

TEST_F(HyperVHost, AFileWhoseVersionCannotBeReadIsAMissingHotfix) {
  FailCall("GetFileVersionInfoW", ERROR_ACCESS_DENIED);
  ExpectMissingHotfix();
}

TEST_F(HyperVHost, TheSystemDirectoryGetsABackslashWhateverItEndsIn) {
  model().systemDirectory = L"D:\\";
  model().fileVersions = {{L"D:\\\\Vmms.exe", L"6.3.9600.17120"}};
  ExpectSupported();
  EXPECT_EQ(LookedAt(), "GetFileVersionInfoW(D:\\\\Vmms.exe");
}

TEST_F(HyperVHost, WithoutASystemDirectoryTheBareNameIsLookedAt) {
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  ExpectMissingHotfix();
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("E HyperVReq: Could not get the system directory. Error: 5",
                          "W VersionHelper: GetFileVersionInfoW() Failed, File=Vmms.exe, Error=2",
                          "E HyperVReq:   Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes"));
  EXPECT_EQ(LookedAt(), "GetFileVersionInfoW(Vmms.exe");
}

TEST_F(HyperVHost, AFailedSystemDirectoryIsNoReasonToRefuseTheHost) {
  model().fileVersions[L"Vmms.exe"] = L"6.3.9600.17120";
  FailCall("GetSystemDirectoryW", ERROR_SUCCESS);
  EXPECT_EQ(Validate(), 0u);
  EXPECT_EQ(details, "before,");
  EXPECT_THAT(log.All(), ElementsAre("E Could not get the system directory. Error: 31"));
}

TEST_F(HyperVHost, ASystemDirectoryThatIsTooLongCountsAsNone) {
  model().systemDirectory = L"C:\\" + std::wstring(256, L'd');
  ExpectMissingHotfix();
  EXPECT_EQ(LookedAt(), "GetFileVersionInfoW(C:\\" + std::string(256, 'd') + "\\Vmms.exe");
  model().systemDirectory += L"d";
  Forget();
  details = "before,";
  ExpectMissingHotfix();
  EXPECT_EQ(LookedAt(), "GetFileVersionInfoW(Vmms.exe");
  EXPECT_EQ(log.lines.front().text, "Could not get the system directory. Error: 122");
}

// ---- the volumes ----

const std::string kStarting = "I HyperVReq: HyperVReq::ValidateVolumes - starting";
const std::string kNoCluster =
    "I HyperVReq: HyperVReq::ValidateVolumes - this node does not belong to a cluster. Nothing more to validate";
const std::string kAllStandard =
    "I HyperVReq: HyperVReq::ValidateVolumes - all disks specified are standard (non-clustered). Nothing more to "
    "validate";

std::string Completed(int result) {
  return "I HyperVReq: HyperVReq::ValidateVolumes - completed validation with status=" + std::to_string(result);
}

std::string Record(const std::string& status) {
  return "Error, status=" + status + ", rc=ConfigError, ca=CheckVolumeCollection";
}

// Something happens while the cluster is asked: by the number of the question, from 1.
class EventfulCluster final : public ForwardingCluster {
 public:
  using ForwardingCluster::ForwardingCluster;
  BOOL ClusterIsPathOnSharedVolume(LPCWSTR path) override {
    if (const auto event = events.find(++questions_); event != events.end()) event->second();
    return ForwardingCluster::ClusterIsPathOnSharedVolume(path);
  }
  std::map<int, std::function<void()>> events;

 private:
  int questions_ = 0;
};

// Volumes 1 and 2 are stand-alone; 3 and 4 cluster shared volumes; 5 and 6 clustered, but no CSVs.
class HyperVVolumes : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.vssMessages.emplace();
    model.cluster = simulator::ClusterNode{L"CLU01", {}};
    for (const DWORD number : {3u, 4u, 5u, 6u}) {
      model.disks.push_back(MakeDisk(L"TSL000" + std::to_wstring(number), number, std::wstring(1, kDrives[number])));
      model.disks.back().volumes[0].mountPoints[0] += L":\\";
      model.disks.back().clustered = true;
      model.disks.back().volumes[0].csv = number < 5;
    }
    Install(std::move(model));
  }

  DWORD Validate(const std::vector<int>& volumes) {
    std::vector<std::string> names;
    for (const int volume : volumes) names.push_back(Name(volume));
    return ValidateNames(names);
  }
  DWORD ValidateNames(const std::vector<std::string>& names) {
    log.lines.clear();
    HyperVReq requestor(0);
    if (hasEnumerator) requestor.SetDiskAndVolumeEnumeratorObj(&enumerator);
    CVarnel& base = requestor;
    return base.ValidateVolumes(names, status, details, {"not read"}, "not read");
  }
  static std::string Name(int volume) { return WideToAnsi(VolumeName(volume)); }
  void SetClustered(const std::set<DWORD>& numbers) {
    for (simulator::Disk& disk : model().disks) disk.clustered = numbers.contains(disk.number);
    enumerator.EnumerateDisks(true);
  }

  void ExpectUntouched() {
    EXPECT_EQ(status, "before");
    EXPECT_EQ(details, "writer=0,");
  }

  static constexpr wchar_t kDrives[] = L"CEFGHIJ";
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  bool hasEnumerator = true;
  std::string status = "before";
  std::string details = "writer=0,";
};

TEST_F(HyperVVolumes, OutsideAClusterEveryListIsValid) {
  model().cluster.reset();
  for (const std::vector<int>& volumes : {std::vector<int>{}, {1}, {1, 2, 3, 4, 5, 6}, {3, 5}, {99}}) {
    EXPECT_EQ(Validate(volumes), 0u);
    EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, kNoCluster));
  }
  ExpectUntouched();
  EXPECT_THAT(Calls("FindFirstVolumeW"), IsEmpty());
}

TEST_F(HyperVVolumes, AClusterWhoseStateCannotBeReadCountsAsNone) {
  FailCall("GetNodeClusterState", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Validate({1, 3, 5}), 0u);
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(kStarting, "W ClusterHelper: GetNodeClusterState() Failed, Error=5", kNoCluster));
}

TEST_F(HyperVVolumes, AnEmptyListIsValid) {
  EXPECT_EQ(Validate({}), 0u);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, kAllStandard));
  ExpectUntouched();
}

TEST_F(HyperVVolumes, StandAloneVolumesAreValid) {
  EXPECT_EQ(Validate({2, 1}), 0u);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, kAllStandard));
  ExpectUntouched();
}

TEST_F(HyperVVolumes, ClusterSharedVolumesAreValid) {
  EXPECT_EQ(Validate({4, 3}), 0u);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, Completed(0)));
  ExpectUntouched();
}

TEST_F(HyperVVolumes, AClusteredWithAStandAloneVolumeIsRefusedAtOnce) {
  EXPECT_EQ(Validate({3, 1}), 253u);
  const std::string record = Record("TesselHyperVValidation_MixOfStandalone_ClusterVolumes");
  EXPECT_EQ(status, "TesselHyperVValidation_MixOfStandalone_ClusterVolumes");
  EXPECT_EQ(details, "writer=0," + record + "Clustered:" + Name(3) + "Standalone:" + Name(1) + ";\n");
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(kStarting, "E HyperVReq:   " + record, "E HyperVReq: Clustered:" + Name(3),
                          "E HyperVReq: Standalone:" + Name(1)));
}

TEST_F(HyperVVolumes, AMixIsListedInTheOrderOfTheCollection) {
  EXPECT_EQ(Validate({2, 6, 1, 3}), 253u);
  EXPECT_EQ(details, "writer=0," + Record("TesselHyperVValidation_MixOfStandalone_ClusterVolumes") +
                         "Clustered:" + Name(6) + "," + Name(3) + "Standalone:" + Name(2) + "," + Name(1) + ";\n");
  EXPECT_THAT(log.All(), Contains("E Clustered:" + Name(6) + "," + Name(3)));
  EXPECT_THAT(log.All(), Contains("E Standalone:" + Name(2) + "," + Name(1)));
}

TEST_F(HyperVVolumes, ClusterSharedWithOtherClusteredVolumesAreRefusedForTheMixOnly) {
  EXPECT_EQ(Validate({4, 5, 3}), 250u);
  const std::string record = Record("TesselHyperVValidation_MixOfCSV_NonCSVVolumes");
  EXPECT_EQ(status, "TesselHyperVValidation_MixOfCSV_NonCSVVolumes");
  EXPECT_EQ(details, "writer=0," + record + "CSV:" + Name(4) + "," + Name(3) + "Non CSV:" + Name(5) + ";\n");
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(kStarting, "E HyperVReq:   " + record, "E HyperVReq: CSV:" + Name(4) + "," + Name(3),
                          "E HyperVReq: Non CSV:" + Name(5), Completed(250)));
}

TEST_F(HyperVVolumes, ClusteredVolumesThatAreNotSharedAreRefused) {
  EXPECT_EQ(Validate({6, 5}), 251u);
  const std::string record = Record("TesselHyperVValidation_ClusterDiskFound");
  EXPECT_EQ(status, "TesselHyperVValidation_ClusterDiskFound");
  EXPECT_EQ(details, "writer=0," + record + "Cluster Disk:" + Name(6) + "," + Name(5) + ";\n");
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(kStarting, "E HyperVReq:   " + record, "E HyperVReq: Cluster Disk:" + Name(6) + "," + Name(5),
                          Completed(251)));
}

TEST_F(HyperVVolumes, VolumesAreGivenWithOrWithoutTheBackslashAndReportedAsGiven) {
  std::string shared = Name(3);
  shared.pop_back();
  std::string clustered = Name(5);
  clustered.replace(clustered.find("Volume"), 6, "VOLUME");
  EXPECT_EQ(ValidateNames({shared, clustered}), 250u);
  EXPECT_THAT(details, HasSubstr("CSV:" + shared + "Non CSV:" + clustered + ";\n"));
}

TEST_F(HyperVVolumes, AListOfManyVolumesIsNotCut) {
  EXPECT_EQ(Validate(std::vector<int>(200, 5)), 251u);
  std::string list = "Cluster Disk:";
  for (int i = 0; i < 200; ++i) list += Name(5) + ",";
  list.back() = ';';
  EXPECT_TRUE(details.ends_with("ca=CheckVolumeCollection" + list + "\n"));
}

TEST_F(HyperVVolumes, AVolumeWithoutADiskIsAnExceptionWithItsText) {
  EXPECT_EQ(Validate({3, 99}), 252u);
  const std::string record =
      "Error, status=TesselHyperVValidation_Exception, ErrMsg=Error: 0x2, rc=ConfigError, ca=CheckVolumeCollection";
  EXPECT_EQ(status, "TesselHyperVValidation_Exception");
  EXPECT_EQ(details, "writer=0," + record + ";\n");
  EXPECT_THAT(log.Errors(), ElementsAre("  " + record));
  EXPECT_EQ(log.AllWithSources().front(), kStarting);
  EXPECT_EQ(log.AllWithSources().back(), Completed(252));
}

TEST_F(HyperVVolumes, AnEmptyNameIsAVolumeWithoutADisk) {
  EXPECT_EQ(ValidateNames({""}), 252u);
}

TEST_F(HyperVVolumes, AFailingEnumerationIsAnExceptionWithTheTextOfItsCode) {
  model().messages[5] = L"Access is denied.\r\n";
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Validate({3}), 252u);
  const std::string record =
      "Error, status=TesselHyperVValidation_Exception, ErrMsg=Access is denied.\r\n, rc=ConfigError, "
      "ca=CheckVolumeCollection";
  EXPECT_EQ(status, "TesselHyperVValidation_Exception");
  EXPECT_EQ(details, "writer=0," + record + ";\n");
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, "E HyperVReq:   " + record, Completed(252)));
  ExpectNothingLive();
}

TEST_F(HyperVVolumes, ATextThatIsTooLongForTheRecordIsShortened) {
  model().messages[5] = std::wstring(2000, L'x');
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  details.clear();
  EXPECT_EQ(Validate({3}), 252u);
  EXPECT_EQ(details.size(), 1023u + 2u);
  EXPECT_TRUE(details.starts_with("Error, status=TesselHyperVValidation_Exception, ErrMsg=xxx"));
  EXPECT_TRUE(details.ends_with("xxx..., rc=ConfigError, ca=CheckVolumeCollection;\n"));
}

TEST_F(HyperVVolumes, EveryCallAddsToTheErrorDetails) {
  Validate({3, 1});
  const std::string first = details;
  Validate({5});
  EXPECT_EQ(details, first + Record("TesselHyperVValidation_ClusterDiskFound") + "Cluster Disk:" + Name(5) + ";\n");
  EXPECT_EQ(status, "TesselHyperVValidation_ClusterDiskFound");
}

// Each volume is asked for by both of its names: the fourth question comes when volume 5 counted as clustered.
TEST_F(HyperVVolumes, ADiskThatLeavesTheClusterMeanwhileIsNoReason) {
  EventfulCluster eventful(host().cluster());
  const CurrentHostWith current(host(), eventful);
  eventful.events[4] = [&] { SetClustered({6}); };
  EXPECT_EQ(Validate({5, 6}), 251u);
  EXPECT_THAT(details, EndsWith("Cluster Disk:" + Name(6) + ";\n"));
}

TEST_F(HyperVVolumes, DisksThatAllLeaveTheClusterMeanwhileAreValid) {
  EventfulCluster eventful(host().cluster());
  const CurrentHostWith current(host(), eventful);
  eventful.events[4] = [&] { enumerator.EnumerateDisks(true); };  // so that volume 5 is asked for once more
  eventful.events[5] = [&] { SetClustered({}); };
  EXPECT_EQ(Validate({5, 6}), 0u);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, Completed(0)));
  ExpectUntouched();
}

TEST_F(HyperVVolumes, ADiskThatGoesAwayMeanwhileIsAnException) {
  EventfulCluster eventful(host().cluster());
  const CurrentHostWith current(host(), eventful);
  eventful.events[1] = [&] {
    model().disks.pop_back();
    enumerator.EnumerateDisks(true);
  };
  EXPECT_EQ(Validate({5, 6}), 252u);
  EXPECT_EQ(status, "TesselHyperVValidation_Exception");
}

TEST_F(HyperVVolumes, AVolumeOnSeveralDisksIsAnException) {
  model().disks[1].volumes[0].otherDisks = {2};
  EXPECT_EQ(Validate({1}), 252u);
  EXPECT_THAT(details, HasSubstr("ErrMsg=Error: 0x32, "));
}

TEST_F(HyperVVolumes, MayBeGivenByTheirMountPoints) {
  EXPECT_EQ(ValidateNames({"G:\\", "E:\\"}), 253u);
  EXPECT_TRUE(details.ends_with("Clustered:G:\\Standalone:E:\\;\n"));
}

// Their disks answer nothing here, or that they belong to no cluster.
TEST_F(HyperVVolumes, ClusterSharedVolumesOfAnotherNodeAreValid) {
  for (simulator::Disk& disk : model().disks) disk.clustered = false;
  FailCall("DeviceIoControl", ERROR_ACCESS_DENIED, 4);
  EXPECT_EQ(Validate({3, 4}), 0u);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting, Completed(0)));
}

TEST_F(HyperVVolumes, WithoutAnEnumeratorThePointerErrorPasses) {
  hasEnumerator = false;
  EXPECT_EQ(ThrownLong([&] { Validate({3}); }), Failure(E_POINTER));
  EXPECT_EQ(log.AllWithSources().front(), kStarting);
  EXPECT_THAT(log.Errors(), SizeIs(1));
  EXPECT_THAT(log.Of(CFileLog::Information), SizeIs(1));
  ExpectUntouched();
}

TEST_F(HyperVVolumes, AnEmptyListNeedsNoEnumerator) {
  hasEnumerator = false;
  EXPECT_EQ(Validate({}), 0u);
}

class ThrowingStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;
  HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, void*, DWORD, DWORD, HANDLE) override {
    throw std::runtime_error("broken");
  }
};

TEST_F(HyperVVolumes, AnyOtherExceptionPasses) {
  ThrowingStorage throwing(host().storage());
  const CurrentHostWith current(host(), throwing);
  EXPECT_THROW(Validate({3}), std::runtime_error);
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kStarting));
  ExpectUntouched();
}

// ---- whole requests ----

std::string FailedAtPostSnapshot(const std::string& name, const std::string& error) {
  return WriterRecord(name, error, "VSS_WS_FAILED_AT_POST_SNAPSHOT");
}

class HyperVRequests : public HostFixture {
 protected:
  void SetUp() override { Install(HostWithEveryApplication()); }
  void FailWriter(const std::wstring& writer, HRESULT failure, std::vector<simulator::ComponentFault> components = {}) {
    WriterFault fault = Fault(writer, WriterEvent::postSnapshot, failure);
    fault.components = std::move(components);
    HostFixture::FailWriter(std::move(fault));
  }
  void FailSecondMachine() {
    FailWriter(kHyperVWriterName, VSS_E_WRITERERROR_PARTIAL_FAILURE,
               {{L"\\ID-2", VSS_E_WRITERERROR_RETRYABLE, static_cast<HRESULT>(0x80041001), L"vm2 is busy"}});
  }
};

TEST_F(HyperVRequests, OnlyTheWritersOfMachinesTakePart) {
  CreatedRequest<HyperVReq> request;
  EXPECT_THAT(SelectedWriters(request.requestor), ElementsAre(kHyperVWriterName, kCsvWriterName));
  EXPECT_THAT(Calls("IVssBackupComponents::AddComponent"),
              ElementsAre(AddedLine(5, kHyperVWriterId, "", "ID-1"), AddedLine(5, kHyperVWriterId, "", "ID-2"),
                          AddedLine(5, kHyperVWriterId, "", "ID-3"),
                          AddedLine(6, kClusterSharedVolumeWriterId, "", "ID-4<CSV>node2")));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(HyperVRequests, TheCatalogueHoldsTheMachinesOfBothWriters) {
  CreatedRequest<HyperVReq> request;
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 id ID-1", "TSL0001 id ID-2", "TSL0001 id ID-3", "TSL0001 id ID-4",
                          "TSL0001 name vm1", "TSL0001 name vm2", "TSL0001 name vm3", "TSL0001 name vm4"));
}

TEST_F(HyperVRequests, AFailedMachineLetsTheSnapshotStandAndIsReported) {
  FailSecondMachine();
  SnapshotRequest<HyperVReq> request;
  const Outcome outcome = request.StartAndCreate();
  const std::wstring text =
      L"Microsoft Hyper-V VSS Writer has failed during post snapshot event. " + Utf8ToWideLossy(kPartialText);
  EXPECT_EQ(outcome, Outcome::Exception(601, text,
                                        {text + L" Application error code: 0x0, Application error message:  \n"
                                                L"Failed component: \\ID-2, Error: 0x800423f3, Application error code: "
                                                L"0x80041001, Application error message: vm2 is busy \n"}));
  EXPECT_EQ(
      request.alerts(),
      FailedAtPostSnapshot("Microsoft Hyper-V VSS Writer", "VSS_E_WRITERERROR_PARTIAL_FAILURE") +
          "RequestStatus=ComponentLevelFailure, Component=\\ID-2, ComponentLevelError=VSS_E_WRITERERROR_RETRYABLE, "
          "ApplicationError=0x80041001, ApplicationMsg=vm2 is busy, rc=VssPartialWriterError, "
          "ca=CheckWriterState;\n");
  EXPECT_TRUE(request.probe.snapshotDone());
  EXPECT_THAT(request.requestor.GetSnapshotVolumes(), SizeIs(1));
}

TEST_F(HyperVRequests, AFailedMachineIsCataloguedAmongTheOtherObjects) {
  FailSecondMachine();
  SnapshotRequest<HyperVReq> request;
  ASSERT_EQ(request.StartAndCreate().alertCode, 601);
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 id ID-1", "TSL0001 id ID-3", "TSL0001 id ID-4", "TSL0001 name vm1",
                          "TSL0001 name vm3", "TSL0001 name vm4", "TSL0001 other id ID-2", "TSL0001 other name vm2"));
}

TEST_F(HyperVRequests, OnlyTheFailedMachineIsToldToHaveFailed) {
  FailSecondMachine();
  SnapshotRequest<HyperVReq> request;
  const Outcome outcome = request.StartAndCreate();
  // What the writers said stands after the completion too.
  EXPECT_EQ(request.Complete(outcome.alertCode), outcome);
  EXPECT_THAT(Calls("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"ID-1\", true) = S_OK"), HasSubstr("\"ID-2\", false) = S_OK"),
                          HasSubstr("\"ID-3\", true) = S_OK"), HasSubstr("\"ID-4<CSV>node2\", true) = S_OK")));
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"), IsEmpty());
}

TEST_F(HyperVRequests, AWriterThatFailsAltogetherLetsTheSnapshotOfTheOtherStand) {
  FailWriter(kCsvWriterName, VSS_E_WRITERERROR_NONRETRYABLE);
  SnapshotRequest<HyperVReq> request;
  const Outcome outcome = request.StartAndCreate();
  EXPECT_EQ(outcome.alertCode, 601);
  ASSERT_THAT(outcome.list, SizeIs(1));
  EXPECT_THAT(Narrow(outcome.list[0]), EndsWith("Failed application components: vm4[ID-4] \n"));
  EXPECT_EQ(request.alerts(),
            FailedAtPostSnapshot("Cluster Shared Volume VSS Writer", "VSS_E_WRITERERROR_NONRETRYABLE"));
  EXPECT_THAT(CatalogueLines(request.requestor), Contains("TSL0001 other id ID-4"));
}

TEST_F(HyperVRequests, WithoutAWriterThatCameThroughTheRequestFails) {
  FailWriter(kHyperVWriterName, VSS_E_WRITERERROR_TIMEOUT);
  FailWriter(kCsvWriterName, VSS_E_WRITERERROR_TIMEOUT);
  SnapshotRequest<HyperVReq> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
}

TEST_F(HyperVRequests, AWriterOfWhichEveryMachineFailedCameThroughAllTheSame) {
  model().writers.pop_back();
  FailWriter(kHyperVWriterName, VSS_E_WRITERERROR_PARTIAL_FAILURE,
             {{L"\\ID-1", VSS_E_WRITERERROR_RETRYABLE, S_OK, L""},
              {L"\\ID-2", VSS_E_WRITERERROR_RETRYABLE, S_OK, L""},
              {L"\\ID-3", VSS_E_WRITERERROR_RETRYABLE, S_OK, L""}});
  SnapshotRequest<HyperVReq> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 601);
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 other id ID-1", "TSL0001 other id ID-2", "TSL0001 other id ID-3",
                          "TSL0001 other name vm1", "TSL0001 other name vm2", "TSL0001 other name vm3"));
}

TEST_F(HyperVRequests, AMachineOnTwoDisksIsCataloguedOnBoth) {
  model().writers[4].components[0].files.push_back({L"F:\\vm1", L"data.vhdx"});
  CreatedRequest<HyperVReq> request(BothDisks());
  EXPECT_THAT(CatalogueLines(request.requestor), Contains("TSL0001 id ID-1"));
  EXPECT_THAT(CatalogueLines(request.requestor), Contains("TSL0002 id ID-1"));
}

TEST_F(HyperVRequests, VerifyingTheSnapshotRunsNoProgram) {
  CreatedRequest<HyperVReq> request;
  EXPECT_EQ(request.Verify(), Outcome::Returned());
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

TEST_F(HyperVRequests, TheVolumesOfARequestThatWasValidatedAreSnapshotted) {
  Install(HostWithEveryApplication());
  model().cluster = simulator::ClusterNode{L"CLU01", {}};
  model().disks[1].clustered = true;
  model().disks[1].volumes[0].csv = true;
  model().fileVersions[L"C:\\Windows\\system32\\vmms.exe"] = L"10.0.17763.1";
  SnapshotRequest<HyperVReq> request;
  std::string status;
  EXPECT_EQ(request.requestor.ValidateHostConfiguration(request.details()), 0u);
  EXPECT_EQ(request.requestor.ValidateVolumes({WideToAnsi(VolumeName(1))}, status, request.details(), {"TSL0001"}, ""),
            0u);
  EXPECT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_EQ(request.alerts(), "");
  EXPECT_EQ(request.requestor.GetSnapshotVolumes().at(0).volumeName, VolumeName(1));
}

}  // namespace
}  // namespace varnel::test
