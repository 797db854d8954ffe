// The writer code that narrows a selection to named databases.
#include <stdexcept>

#include "tests/core/selection_fixture.h"

namespace varnel::test {
namespace {

class NamedDatabases : public Selection {
 protected:
  /// Components \HOST\sales, \HOST\PROD\crm and \other, each on its own folder of E:.
  void InstallDatabases(const std::wstring& list) {
    StartOver();
    model().databases = {{L"TSL0001", list}};
    model().writers = {
        MakeWriter(L"Databases", 1,
                   {MakeComponent(L"HOST", L"sales", {L"E:\\sales"}),
                    MakeComponent(L"HOST\\PROD", L"crm", {L"E:\\crm"}), MakeComponent(L"", L"other", {L"E:\\other"})})};
  }
  Lines AddedWith(const std::string& requestText) {
    GatheredRequest request;
    Select(request, requestText);
    return Added();
  }
  std::size_t ListsFetched() { return Calls("MetadataService::FindDatabasesToQuiesce").size(); }
  /// The paths of a database list.
  Names PathsOf(const std::wstring& list) {
    host().model().databases = {{L"TSL0001", list}};
    SnapshotRequest request;
    request.requestor.SetInputDriveSerialNos({L"TSL0001"});
    Names paths;
    request.probe.GetComponentsList(paths);
    return paths;
  }
};

TEST_F(NamedDatabases, WithAnyCodeBut2To4EveryComponentPassesAndTheListIsNeverFetched) {
  for (const char* text : {"writer=0,", "writer=1,", "writer=5,", "writer=-2,", "writer=22,", "writer=0x2,"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");
    EXPECT_THAT(AddedWith(text), ElementsAre("HOST|sales", "HOST\\PROD|crm", "|other"));
    EXPECT_EQ(ListsFetched(), 0u);
  }
}

// Leading blanks and zeros, a sign and trailing text of the code do not count.
TEST_F(NamedDatabases, WithTheCodes2To4OnlyNamedComponentsPass) {
  for (const char* text : {"writer=2,", "writer=3,", "host=a,writer=4,x=1", "writer= 2,", "writer=+3,",
                           "writer=4 databases,", "writer=02,"}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"sales@host");
    EXPECT_THAT(AddedWith(text), ElementsAre("HOST|sales"));
    EXPECT_EQ(ListsFetched(), 1u);
    EXPECT_EQ(log.Warnings(), (Lines{"Component not in input file, State=NotEligible",
                                     "Component not in input file, State=NotEligible"}));
  }
}

TEST_F(NamedDatabases, ACodeThatIsNoNumberIsLoggedAndThrown) {
  for (const auto& [text, code] : {std::pair<std::string, std::string>{"writer=all,", "all"},
                                   {"writer=,", ""},
                                   {"writer==2,", "=2"},
                                   {"writer=-,", "-"},
                                   {"host=a,x=1", ""}}) {
    SCOPED_TRACE(text);
    InstallDatabases(L"ALL_DB");
    EXPECT_THROW(AddedWith(text), std::invalid_argument);
    EXPECT_THAT(log.All(),
                ElementsAre("I Writer code received from Array is: " + code, "E Writer code is not a number: " + code));
    EXPECT_THAT(Added(), IsEmpty());
  }
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
  model().databases = {{L"TSL0001", L"ALL_DB"}};
  model().writers = {MakeWriter(L"First", 1, {MakeComponent(L"", L"a", {L"E:\\a"})}), MakeWriter(L"Not asked", 2, {}),
                     MakeWriter(L"Second", 3, {MakeComponent(L"", L"b", {L"E:\\b"})})};
  GatheredRequest<Choosy> request({}, Names{L"First", L"Second"});
  Select(request, "writer=2,");
  EXPECT_EQ(ListsFetched(), 2u);
  EXPECT_THAT(LinesWith("Writer code received"), SizeIs(2));
}

TEST_F(NamedDatabases, TheMetadataServiceIsAskedForTheFirstDiskOnly) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0002", L"TSL0001"});
  Names paths;
  request.probe.GetComponentsList(paths);
  EXPECT_THAT(Calls("MetadataService::FindDatabasesToQuiesce"),
              ElementsAre(StartsWith("MetadataService::FindDatabasesToQuiesce(TSL0002)")));
}

struct DatabaseList {
  const wchar_t* list;
  Names paths;
};

TEST_F(NamedDatabases, AListNamesComponentsByTheirPaths) {
  const DatabaseList lists[] = {
      {L"", {}},
      {L"Sales@HOST", {L"\\host\\sales"}},    // the host's name is the default instance
      {L"Crm@PROD", {L"\\host\\prod\\crm"}},  // any other a named one
      {L"sales@host\tcrm@prod\tsales@host", {L"\\host\\sales", L"\\host\\prod\\crm"}},
      {L"sales@host\t", {L"\\host\\sales"}},  // a tab at the end adds nothing
      {L"db@a@b", {L"\\host\\a@b\\db"}},      // the first separator counts
      {L"@host", {L"\\host\\"}},
      {L"db@", {L"\\host\\\\db"}},
  };
  for (const DatabaseList& entry : lists) EXPECT_EQ(PathsOf(entry.list), entry.paths) << WideToUtf8(entry.list);
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

TEST_F(NamedDatabases, OnAClusterTheNetworkNameOfTheServerCounts) {
  model().cluster = simulator::ClusterNode{L"CLU01", {{L"sqlvirt", L"SQLVIRT"}, {L"prod", L"SQLNET"}}};
  EXPECT_EQ(PathsOf(L"sales@SqlVirt\tcrm@prod\thr@unknown"),
            (Names{L"\\sqlvirt\\sales", L"\\sqlnet\\prod\\crm", L"\\host\\unknown\\hr"}));
  EXPECT_THAT(log.All(), ElementsAre("I  GetClusterName failed. Falling back to local hostname"));
}

TEST_F(NamedDatabases, ListsAreAddedToTheComponentsAlreadyNamed) {
  model().databases = {{L"TSL0001", L"sales@host"}};
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths = {L"\\before"};
  request.probe.GetComponentsList(paths);
  EXPECT_EQ(paths, (Names{L"\\before", L"\\host\\sales"}));
}

TEST_F(NamedDatabases, TheListIsTheCallersListOfQuiescedDatabases) {
  model().databases = {{L"TSL0001", L"sales@host\tcrm@prod"}};
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths;
  request.probe.GetComponentsList(paths);
  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "sales@host\tcrm@prod");
}

TEST_F(NamedDatabases, ABridgeThatFindsNoListIsLoggedAndLeavesAll) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0009"});
  Names paths;
  request.probe.GetComponentsList(paths);
  EXPECT_EQ(paths, (Names{L"ALL_DB"}));
  EXPECT_STREQ(request.requestor.getSuccesfulDBList(), "ALL_DB");
  EXPECT_THAT(log.All(), ElementsAre("I  GetdbFilesToQuiescePtr failed with error =No protection set holds the disk "
                                     "TSL0009"));
}

TEST_F(NamedDatabases, ABridgeThatFailsLeavesTheListOfTheCallBefore) {
  model().databases = {{L"TSL0001", L"sales@host"}};
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  Names paths;
  request.probe.GetComponentsList(paths);
  FailCall("MetadataService::FindDatabasesToQuiesce", E_FAIL);
  paths.clear();
  request.probe.GetComponentsList(paths);
  EXPECT_EQ(paths, (Names{L"\\host\\sales"}));
  EXPECT_THAT(log.All(),
              ElementsAre(StartsWith("I  GetdbFilesToQuiescePtr failed with error =The metadata service failed")));
}

TEST_F(NamedDatabases, AListThatIsMissingAltogetherIsLoggedTwiceAndNamesNothing) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0009"});
  request.probe.successfulDBList() = nullptr;
  Names paths;
  request.probe.GetComponentsList(paths);
  EXPECT_THAT(paths, IsEmpty());
  ASSERT_THAT(log.All(), SizeIs(2));
  EXPECT_EQ(log.All()[1], "I  GetdbFilesToQuiescePtr failed ");
}

TEST_F(NamedDatabases, WithoutADiskTheListCannotBeFetched) {
  SnapshotRequest request;
  Names paths;
  EXPECT_EQ(ThrownLong([&] { request.probe.GetComponentsList(paths); }), Failure(E_INVALIDARG));
  EXPECT_THAT(log.All(), ElementsAre("E Invalid number of serial nos"));
  EXPECT_EQ(ListsFetched(), 0u);
}

TEST_F(NamedDatabases, WithCode2AndWithoutADiskTheSelectionFails) {
  InstallDatabases(L"ALL_DB");
  GatheredRequest request({.serialNumbers = {}});
  EXPECT_EQ(ThrownLong([&] { Select(request, "writer=2,"); }), Failure(E_INVALIDARG));
}

TEST_F(NamedDatabases, AnEmptyListIsAMismatchOfTheProtectionSet) {
  InstallDatabases(L"");
  GatheredRequest request;
  EXPECT_THROW(Select(request, "writer=2,"), VarnelException);
  EXPECT_THAT(log.Warnings(), Contains("Component not in input file, State=NotEligible").Times(3));
  EXPECT_THAT(request.alerts(), StartsWith("status=LunMismatch"));
}

TEST_F(NamedDatabases, AComponentThatIsNotNamedIsRefusedOnceAndItsDisksAreNotLookedAt) {
  InstallDatabases(L"sales@host");
  model().writers[0].components[2].files.push_back({L"F:\\more", L"*"});
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

TEST_F(NamedComponents, OnlyNamedOnesPassUnlessTheCodeNamesNoneOrTheFirstNameMeansAll) {
  for (const char* code : {"0", "1", "5", "-1"}) EXPECT_TRUE(Passes(code, {}, L"\\host\\sales")) << code;
  for (const char* code : {"2", "3", "4"}) EXPECT_FALSE(Passes(code, {}, L"\\host\\sales")) << code;
  EXPECT_TRUE(Passes("2", {L"ALL_DB"}, L"\\host\\sales"));
  EXPECT_TRUE(Passes("2", {L"ALL_DB", L"\\host\\crm"}, L"\\host\\sales"));
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

}  // namespace
}  // namespace varnel::test
