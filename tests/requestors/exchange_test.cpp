// The requestor of Exchange databases: its writer, its catalogue, the verification of files on the snapshot with the
// server's own utility, and whole requests.

#include <cstdint>

#include "tests/requestors/exchange_fixture.h"

namespace varnel::test {
namespace {

using testing::SizeIs;  // ---- writers ----

class ExchangeWriters : public HostFixture {};

TEST_F(ExchangeWriters, TheWriterIdOfExchangeIsAcceptedUnderAnyName) {
  EXPECT_TRUE(IsEligible<ExchangeReq>(L"Microsoft Exchange Writer", L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}"));
  EXPECT_TRUE(IsEligible<ExchangeReq>(L"Renamed", kExchangeWriterId));
  EXPECT_THAT(log.AllWithSources(), ElementsAre("I ExchReq: Found Exchange writer Microsoft Exchange Writer ",
                                                "I ExchReq: Found Exchange writer Renamed "));
}

TEST_F(ExchangeWriters, AnyOtherIdIsRejected) {
  EXPECT_FALSE(IsEligible<ExchangeReq>(L"Microsoft Exchange Writer", L"{76FE1AC4-15F7-4BCD-987E-8E1ACB462FB7}"));
  EXPECT_FALSE(IsEligible<ExchangeReq>(L"Microsoft Exchange Writer", kSqlServerWriterId));
  EXPECT_FALSE(IsEligible<ExchangeReq>(L"", L""));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("V ExchReq: Writer Microsoft Exchange Writer is not an exchange writer ",
                          "V ExchReq: Writer Microsoft Exchange Writer is not an exchange writer ",
                          "V ExchReq: Writer  is not an exchange writer "));
}

TEST_F(ExchangeWriters, ThatOfExchangeIsLookedForOnTheHost) {
  Install(HostWithEveryApplication());
  std::string details;
  EXPECT_TRUE(ExchangeReq(0).IsWriterPresent(details));
  model().writers.erase(model().writers.begin() + 3);
  EXPECT_FALSE(ExchangeReq(0).IsWriterPresent(details));
}

class ExchangeConstruction : public HostFixture {};

TEST_F(ExchangeConstruction, TheFlagIsKept) {
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0)), 0u);
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0, false)), 0u);
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0, true)), 1u);
}

TEST_F(ExchangeConstruction, ItsTwoMembersFollowThoseOfTheBase) {
  ExchangeReq requestor(0);
  const auto address = [](const auto& place) { return reinterpret_cast<std::uintptr_t>(&place); };
  const std::uintptr_t baseEnd = address(RequestorProbe(requestor).testPoints()) + sizeof(DWORD);
  const std::uintptr_t flag = address(RequestorProbe::Flag(requestor));
  const std::uintptr_t end = address(requestor) + sizeof requestor;
  EXPECT_GE(flag, baseEnd);
  EXPECT_LT(flag, baseEnd + alignof(CVarnel));
  EXPECT_EQ(address(RequestorProbe::SkipDBVerification(requestor)), flag + sizeof(DWORD));
  EXPECT_LT(end, flag + 2 * sizeof(DWORD) + alignof(CVarnel));
}

TEST_F(ExchangeConstruction, TheTestPointsReachTheBase) {
  ExchangeReq one(0x5);
  ExchangeReq two(0x6, true);
  EXPECT_EQ(RequestorProbe(one).testPoints(), 0x5u);
  EXPECT_EQ(RequestorProbe(two).testPoints(), 0x6u);
}

class ExchangeComponents : public HostFixture {
 protected:
  static ComponentCatalogingInfo InfoOf(const std::wstring& caption, const std::wstring& fullPath) {
    ExchangeReq requestor(0);
    VssComponent component;
    component.name = L"a name that does not matter";
    component.caption = caption;
    component.fullPath = fullPath;
    ComponentCatalogingInfo info{L"left over", L"left over"};
    RequestorProbe(requestor).GetComponentInfoForCataloging(component, info);
    return info;
  }
};

const std::string kEmptyCaption =
    "E ExchReq: Unexcpected app object name in Exchange requester! The component caption was empty.";
const std::string kEmptyPath =
    "E ExchReq: Unexcpected app object id in Exchange requester! The component full path was empty.";

TEST_F(ExchangeComponents, TheCaptionIsTheNameAndTheFullPathTheIdAndAnEmptyOneIsUnknown) {
  const std::tuple<const wchar_t*, const wchar_t*, std::vector<std::string>> components[] = {
      {L"Mailbox DB1", L"\\EX01\\DB1", {}},
      {L"", L"\\EX01\\DB1", {kEmptyCaption}},
      {L"Mailbox DB1", L"", {kEmptyPath}},
      {L"", L"", {kEmptyCaption, kEmptyPath}},
  };
  for (const auto& [caption, fullPath, lines] : components) {
    log.lines.clear();
    const ComponentCatalogingInfo info = InfoOf(caption, fullPath);
    EXPECT_EQ(info.appObjectName, *caption == 0 ? L"UNKNOWN" : caption);
    EXPECT_EQ(info.appObjectId, *fullPath == 0 ? L"UNKNOWN" : fullPath);
    EXPECT_EQ(log.AllWithSources(), lines);
  }
}

class ExchangeVerification : public HostFixture {
 protected:
  void SetUp() override { InstallUtility(0); }
  void InstallUtility(DWORD exitCode) {
    simulator::HostModel model = HostWithoutTexts();
    model.commands = {{L"eseutil.exe *", exitCode}};
    Install(std::move(model));
  }
  static Outcome Verify(ExchangeReq& requestor, VssFileDescriptor file) {
    return OutcomeOf([&] { requestor.VerifyComponentFile(file); });
  }
  static Outcome Verify(const std::wstring& filespec) {
    ExchangeReq requestor(0);
    return Verify(requestor, FileOf(filespec));
  }
  // The command line that the file is verified with; empty without a process.
  std::string CommandFor(VssFileDescriptor file) {
    host().calls().Clear();
    ExchangeReq requestor(0);
    EXPECT_EQ(Verify(requestor, std::move(file)), Outcome::Returned());
    const std::vector<std::string> started = Calls("CreateProcessW");
    if (started.empty()) return {};
    EXPECT_THAT(started, SizeIs(1));
    const std::string before = "CreateProcessW(";
    const std::string behind = ") = ok";
    EXPECT_TRUE(started[0].ends_with(behind));
    return started[0].substr(before.size(), started[0].size() - before.size() - behind.size());
  }
  std::string CommandFor(const std::wstring& filespec) { return CommandFor(FileOf(filespec)); }
};

// The base name of logs is what stands before the first star. What is several of them is a log before a database, and
// that before a checkpoint.
TEST_F(ExchangeVerification, LogsAreVerifiedByTheirBaseNameAndADatabaseByItsPath) {
  const std::string logs = R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\)";
  const std::string database = R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\)";
  const std::tuple<const wchar_t*, std::string, const char*> files[] = {
      {L"E00*.log", logs, "E00"},
      {L"E00.log", logs, "E00.log"},
      {L"E0*1*.log", logs, "E0"},
      {L"*.log", logs, ""},
      {L"DB1.edb.log", logs, "DB1.edb.log"},
      {L"E00.log.edb", logs, "E00.log.edb"},
      {L"E00.log.chk", logs, "E00.log.chk"},
      {L"DB1.edb", database, "DB1.edb"},
      {L"*.edb", database, "*.edb"},
      {L"DB1.chk.edb", database, "DB1.chk.edb"},
  };
  for (const auto& [filespec, command, name] : files) EXPECT_EQ(CommandFor(filespec), command + name + "\"");
}

TEST_F(ExchangeVerification, FilesInTheRootOfTheirVolumeHaveAnEmptyFolder) {
  VssFileDescriptor logs = FileOf(L"E00*.log");
  VssFileDescriptor database = FileOf(L"DB1.edb");
  logs.pathOnVolume.clear();
  database.pathOnVolume.clear();
  EXPECT_EQ(CommandFor(logs), R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\\E00")");
  EXPECT_EQ(CommandFor(database), R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\DB1.edb")");
}

TEST_F(ExchangeVerification, ADeviceWithoutABackslashAtItsEndGetsOne) {
  VssFileDescriptor logs = FileOf(L"E00*.log");
  VssFileDescriptor database = FileOf(L"DB1.edb");
  logs.snapshotDeviceName = logs.snapshotDeviceName.substr(0, logs.snapshotDeviceName.size() - 1);
  database.snapshotDeviceName.clear();
  EXPECT_EQ(CommandFor(logs), R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00")");
  EXPECT_EQ(CommandFor(database), R"(eseutil.exe /k /i "\mail\\DB1.edb")");
}

TEST_F(ExchangeVerification, ACheckpointIsPassedOverSilently) {
  EXPECT_EQ(CommandFor(L"E00.chk"), "");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(ExchangeVerification, AnyOtherFileIsLoggedAndPassedOver) {
  for (const wchar_t* filespec : {L"data.bin", L"", L"*", L"E00*.LOG", L"DB1.EDB", L"E00.CHK", L"log", L"DB1.ed"}) {
    EXPECT_EQ(CommandFor(filespec), "");
  }
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("E ExchReq: Invalid file descriptor data.bin ", "E ExchReq: Invalid file descriptor  ",
                          "E ExchReq: Invalid file descriptor * ", "E ExchReq: Invalid file descriptor E00*.LOG ",
                          "E ExchReq: Invalid file descriptor DB1.EDB ", "E ExchReq: Invalid file descriptor E00.CHK ",
                          "E ExchReq: Invalid file descriptor log ", "E ExchReq: Invalid file descriptor DB1.ed "));
}

TEST_F(ExchangeVerification, ThePathIsNotVerifiedAsIfItWereTheFile) {
  VssFileDescriptor file = FileOf(L"data.bin");
  file.pathOnVolume = L"mail.log\\x.edb\\";
  EXPECT_EQ(CommandFor(file), "");
}

TEST_F(ExchangeVerification, TheUtilityRunsThroughAnExternalCommand) {
  EXPECT_EQ(Verify(L"E00*.log"), Outcome::Returned());
  const std::string command = R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00")";
  EXPECT_THAT(log.AllWithSources(), ElementsAre("I varnel: - Executing command = " + command,
                                                "I varnel: Successfully completed execution of command = " + command));
}

// ---- verification: databases may be left out ----

TEST_F(ExchangeVerification, DatabasesAreLeftOutOnRequest) {
  ExchangeReq requestor(0);
  requestor.SetSkipDBVerification();
  EXPECT_EQ(Verify(requestor, FileOf(L"DB1.edb")), Outcome::Returned());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_THAT(
      log.AllWithSources(),
      ElementsAre(
          R"(I ExchReq: Skipping verification for: "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.edb" )"));
}

TEST_F(ExchangeVerification, LogsAreVerifiedAlthoughDatabasesAreLeftOut) {
  ExchangeReq requestor(0, true);
  requestor.SetSkipDBVerification();
  requestor.SetSkipDBVerification();
  EXPECT_EQ(Verify(requestor, FileOf(L"E00*.log")), Outcome::Returned());
  EXPECT_EQ(Verify(requestor, FileOf(L"DB1.edb.log")), Outcome::Returned());
  EXPECT_EQ(Verify(requestor, FileOf(L"E00.chk")), Outcome::Returned());
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(2));
}

TEST_F(ExchangeVerification, TheConstructorsFlagLeavesNothingOut) {
  ExchangeReq requestor(0, true);
  EXPECT_EQ(Verify(requestor, FileOf(L"DB1.edb")), Outcome::Returned());
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(1));
}

// ---- verification: the test point ----

TEST_F(ExchangeVerification, TheTestPointThrowsBeforeItLooksAtTheFile) {
  for (const DWORD testPoints : {0x2u, 0x3u, 0xFFFFFFFFu}) {
    for (const wchar_t* filespec : {L"E00*.log", L"DB1.edb", L"E00.chk", L"data.bin", L""}) {
      log.lines.clear();
      ExchangeReq requestor(testPoints, false);
      requestor.SetSkipDBVerification();
      EXPECT_EQ(Verify(requestor, FileOf(filespec)), Outcome::Exception(603, L"E_UNEXPECTED"));
      EXPECT_THAT(
          log.AllWithSources(),
          ElementsAre("E ExchReq: ***Testpoint enabled. Throwing error from ExchangeReq::VerifyComponentFile***",
                      kNoText));
    }
  }
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

TEST_F(ExchangeVerification, TheTestPointThrowsTheSystemsTextOfItsCode) {
  model().messages[0x8000FFFF] = L"Catastrophic failure\r\n";
  ExchangeReq requestor(0x2);
  EXPECT_EQ(Verify(requestor, FileOf(L"DB1.edb")), Outcome::Exception(603, L"Catastrophic failure\r\n"));
}

TEST_F(ExchangeVerification, OtherTestPointsAreIgnored) {
  ExchangeReq requestor(~DWORD{0x2});
  EXPECT_EQ(Verify(requestor, FileOf(L"DB1.edb")), Outcome::Returned());
}

// ---- verification: the utility fails ----

TEST_F(ExchangeVerification, DamageIsAVerificationFailureWithTheTextOfTheExitCode) {
  InstallUtility(1);
  model().messages[1] = L"Incorrect function.\r\n";
  EXPECT_EQ(Verify(L"DB1.edb"), Outcome::Exception(603, L"Incorrect function.\r\n"));
  const std::string command = R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.edb")";
  EXPECT_THAT(log.AllWithSources(), ElementsAre("I varnel: - Executing command = " + command,
                                                "E varnel: Command Failed, Command=" + command + ", Error=0x1"));
}

TEST_F(ExchangeVerification, ACodeWithoutATextIsShownAsItIs) {
  InstallUtility(0xFFFFFC04);  // -1020
  EXPECT_EQ(Verify(L"E00*.log"), Outcome::Exception(603, L"Error: 0xfffffc04"));
}

TEST_F(ExchangeVerification, AUtilityThatCannotBeStartedIsAVerificationFailure) {
  Install(HostWithoutTexts());
  EXPECT_EQ(Verify(L"DB1.edb"), Outcome::Exception(603, L"Error: 0x80070002"));
  EXPECT_THAT(log.Errors(), ElementsAre(StartsWith("ERROR: Win32 call \"CreateProcessW("), "- GetLastError() == 2",
                                        "- Error text: Error: 0x80070002"));
}

// The codes 2 and 3 of a process arrive as HRESULTs, which are no reason to look for an installation.
TEST_F(ExchangeVerification, TheInstallationIsNotLookedForWhenTheUtilityIsMissingOrSaysSo) {
  for (const DWORD code : {DWORD{ERROR_FILE_NOT_FOUND}, DWORD{ERROR_PATH_NOT_FOUND}}) {
    InstallUtility(code);
    EXPECT_EQ(Verify(L"DB1.edb").alertCode, 603);
    EXPECT_THAT(Calls("RegOpenKeyExW"), IsEmpty());
    InstallUtility(0);
    FailCall("CreateProcessW", code);
    EXPECT_EQ(Verify(L"DB1.edb").alertCode, 603);
    EXPECT_THAT(Calls("RegOpenKeyExW"), IsEmpty());
  }
  EXPECT_THAT(log.Of(CFileLog::Information), Not(Contains(HasSubstr("attempt to find a full path"))));
}

TEST_F(ExchangeVerification, AFailedWaitIsAVerificationFailureAndClosesTheProcess) {
  FailCall("WaitForSingleObject", ERROR_INVALID_HANDLE);
  EXPECT_EQ(Verify(L"E00*.log"), Outcome::Exception(603, L"Error: 0x80070006"));
}

class ExchangeRequests : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = HostWithEveryApplication();
    model.vssMessages.emplace();
    model.commands = {{L"eseutil.exe *", 0}};
    Install(std::move(model));
  }
};

TEST_F(ExchangeRequests, OnlyTheWriterOfExchangeTakesPart) {
  CreatedRequest<ExchangeReq> request;
  EXPECT_THAT(SelectedWriters(request.requestor), ElementsAre(L"Microsoft Exchange Writer"));
  EXPECT_THAT(Calls("IVssBackupComponents::AddComponent"),
              ElementsAre(AddedLine(4, kExchangeWriterId, "Information Store\\EX01", "DB1"),
                          AddedLine(4, kExchangeWriterId, "Information Store\\EX01", "DB2")));
  EXPECT_THAT(log.All(), Contains("I Found Exchange writer Microsoft Exchange Writer "));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(ExchangeRequests, TheCatalogueHoldsThePathsAndTheCaptions) {
  CreatedRequest<ExchangeReq> request;
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 id \\Information Store\\EX01\\DB1", "TSL0001 id \\Information Store\\EX01\\DB2",
                          "TSL0001 name Mailbox DB1", "TSL0001 name Mailbox DB2"));
}

TEST_F(ExchangeRequests, TheFilesOfTheSnapshotAreVerifiedOneAfterTheOther) {
  CreatedRequest<ExchangeReq> request;
  EXPECT_EQ(request.Verify(), Outcome::Returned());
  const std::string device = R"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\)";
  const std::string database = "CreateProcessW(eseutil.exe /k /i \"" + device + "mail\\\\";
  const std::string logs = "CreateProcessW(eseutil.exe /k \"" + device + "\\mail\\logs\\\\E00\") = ok";
  EXPECT_THAT(Calls("CreateProcessW"),
              ElementsAre(database + "DB1.edb\") = ok", logs, database + "DB2.edb\") = ok", logs));
}

TEST_F(ExchangeRequests, OnlyTheLogsAreVerifiedWhenDatabasesAreLeftOut) {
  SnapshotRequest<ExchangeReq> request;
  request.requestor.SetSkipDBVerification();
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_EQ(request.Verify(), Outcome::Returned());
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(2));
  EXPECT_THAT(
      log.All(),
      Contains(R"(I Skipping verification for: "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB2.edb" )"));
}

TEST_F(ExchangeRequests, TheFirstDamagedFileEndsTheVerificationAndMarksNoComponent) {
  model().commands = {{L"*DB2.edb*", 1}, {L"eseutil.exe *", 0}};
  CreatedRequest<ExchangeReq> request;
  EXPECT_EQ(request.Verify(), Outcome::Exception(603, L"Error: 0x80070001"));
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(3));
  for (const VssComponent& component : request.probe.writers()[3].components) EXPECT_FALSE(component.failed);
}

TEST_F(ExchangeRequests, ASnapshotThatFailedItsVerificationIsDeletedAndItsDatabasesFail) {
  model().commands = {{L"*", 1}};
  CreatedRequest<ExchangeReq> request;
  const Outcome outcome = request.Verify();
  host().calls().Clear();
  EXPECT_EQ(request.Complete(outcome.alertCode), Outcome::Returned());
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"), SizeIs(1));
  EXPECT_THAT(Calls("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"DB1\", false) = S_OK"), HasSubstr("\"DB2\", false) = S_OK")));
}

TEST_F(ExchangeRequests, TheTestPointFailsTheVerificationAndNotTheSnapshot) {
  CreatedRequest<ExchangeReq> request({.testPoints = kTestPointFailFileVerification});
  EXPECT_EQ(request.Verify(), Outcome::Exception(603, L"E_UNEXPECTED"));
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

TEST_F(ExchangeRequests, AWriterThatFailsFailsTheRequestAndNamesItsDatabases) {
  FailWriter(Fault(kExchangeWriterName, WriterEvent::postSnapshot, VSS_E_WRITERERROR_NONRETRYABLE));
  SnapshotRequest<ExchangeReq> request;
  const std::wstring text =
      L"Microsoft Exchange Writer has failed during post snapshot event. VSS_E_WRITERERROR_NONRETRYABLE";
  EXPECT_EQ(request.StartAndCreate(),
            Outcome::Exception(600, text,
                               {text + L" Application error code: 0x0, Application error message:  \n"
                                       L"Failed application components: Mailbox DB1[\\Information Store\\EX01\\DB1],"
                                       L"Mailbox DB2[\\Information Store\\EX01\\DB2] \n"}));
}

TEST_F(ExchangeRequests, APartialFailureFailsTheRequestToo) {
  FailWriter(Fault(kExchangeWriterName, WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE));
  SnapshotRequest<ExchangeReq> request;
  EXPECT_EQ(request.StartAndCreate().alertCode, 600);
}

}  // namespace
}  // namespace varnel::test
