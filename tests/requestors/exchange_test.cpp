// The requestor of Exchange databases: its writer, its catalogue, the verification of files on the snapshot with the
// server's own utility, where that utility is found, and whole requests.
#include "requestors/ExchReq.h"

#include <optional>

#include "tests/support/applications.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {
namespace {

using testing::Contains;
using testing::SizeIs;

const std::wstring kInstallationKey = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\ExchangeServer";
const std::wstring kDevice = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\";

// What asking for the text of a code leaves in the log where no message table has one.
const std::string kNoText = "W varnel: FormatMessage failed. Error 317";

VssFileDescriptor FileOf(std::wstring filespec) {
  VssFileDescriptor file;
  file.filespec = std::move(filespec);
  file.pathOnVolume = L"mail\\";
  file.snapshotDeviceName = kDevice;
  return file;
}

/// vsstrace.dll is there; neither it nor the system has any text, so that a text shows its code.
simulator::HostModel HostWithoutTexts() {
  simulator::HostModel model = SmallHost();
  model.vssMessages.emplace();
  return model;
}

// ---- writers ----

class ExchangeWriters : public HostFixture {
 protected:
  static bool IsEligible(const std::wstring& name, const std::wstring& writerId) {
    ExchangeReq requestor(0);
    CVarnel& base = requestor;
    VssWriter writer = WriterNamed(name, writerId);
    return base.IsWriterEligible(writer);
  }
};

TEST_F(ExchangeWriters, TheWriterIdOfExchangeIsAcceptedUnderAnyName) {
  EXPECT_TRUE(IsEligible(L"Microsoft Exchange Writer", L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}"));
  EXPECT_TRUE(IsEligible(L"Renamed", kExchangeWriterId));
  EXPECT_THAT(log.AllWithSources(), ElementsAre("I ExchReq: Found Exchange writer Microsoft Exchange Writer ",
                                                "I ExchReq: Found Exchange writer Renamed "));
}

TEST_F(ExchangeWriters, AnyOtherIdIsRejected) {
  EXPECT_FALSE(IsEligible(L"Microsoft Exchange Writer", L"{76FE1AC4-15F7-4BCD-987E-8E1ACB462FB7}"));
  EXPECT_FALSE(IsEligible(L"Microsoft Exchange Writer", kSqlServerWriterId));
  EXPECT_FALSE(IsEligible(L"", L""));
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

// ---- construction ----

class ExchangeConstruction : public HostFixture {};

TEST_F(ExchangeConstruction, TheFlagIsKept) {
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0)), 0u);
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0, false)), 0u);
  EXPECT_EQ(RequestorProbe::Flag(ExchangeReq(0, true)), 1u);
}

TEST_F(ExchangeConstruction, TheTestPointsReachTheBase) {
  ExchangeReq one(0x5);
  ExchangeReq two(0x6, true);
  EXPECT_EQ(RequestorProbe(one).testPoints(), 0x5u);
  EXPECT_EQ(RequestorProbe(two).testPoints(), 0x6u);
}

// ---- the catalogue ----

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

TEST_F(ExchangeComponents, TheCaptionIsTheNameAndTheFullPathTheId) {
  const ComponentCatalogingInfo info = InfoOf(L"Mailbox DB1", L"\\EX01\\DB1");
  EXPECT_EQ(info.appObjectName, L"Mailbox DB1");
  EXPECT_EQ(info.appObjectId, L"\\EX01\\DB1");
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(ExchangeComponents, AnEmptyCaptionIsAnUnknownName) {
  const ComponentCatalogingInfo info = InfoOf(L"", L"\\EX01\\DB1");
  EXPECT_EQ(info.appObjectName, L"UNKNOWN");
  EXPECT_EQ(info.appObjectId, L"\\EX01\\DB1");
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kEmptyCaption));
}

TEST_F(ExchangeComponents, AnEmptyFullPathIsAnUnknownId) {
  const ComponentCatalogingInfo info = InfoOf(L"Mailbox DB1", L"");
  EXPECT_EQ(info.appObjectName, L"Mailbox DB1");
  EXPECT_EQ(info.appObjectId, L"UNKNOWN");
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kEmptyPath));
}

TEST_F(ExchangeComponents, WithoutBothTheNameIsReportedBeforeTheId) {
  const ComponentCatalogingInfo info = InfoOf(L"", L"");
  EXPECT_EQ(info.appObjectName, L"UNKNOWN");
  EXPECT_EQ(info.appObjectId, L"UNKNOWN");
  EXPECT_THAT(log.AllWithSources(), ElementsAre(kEmptyCaption, kEmptyPath));
}

// ---- verification: which files, and with which command ----

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

TEST_F(ExchangeVerification, LogsAreVerifiedByTheirBaseName) {
  EXPECT_EQ(CommandFor(L"E00*.log"), R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00")");
}

TEST_F(ExchangeVerification, ALogWithoutAPatternIsVerifiedByItsWholeName) {
  EXPECT_EQ(CommandFor(L"E00.log"),
            R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00.log")");
}

TEST_F(ExchangeVerification, OnlyWhatStandsBeforeTheFirstStarIsTheBaseName) {
  EXPECT_EQ(CommandFor(L"E0*1*.log"), R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E0")");
  EXPECT_EQ(CommandFor(L"*.log"), R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\")");
}

TEST_F(ExchangeVerification, ADatabaseIsVerifiedByItsPath) {
  EXPECT_EQ(CommandFor(L"DB1.edb"),
            R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.edb")");
  EXPECT_EQ(CommandFor(L"*.edb"), R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\*.edb")");
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

TEST_F(ExchangeVerification, AFileThatIsLogAndDatabaseIsALog) {
  EXPECT_EQ(CommandFor(L"DB1.edb.log"),
            R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\DB1.edb.log")");
  EXPECT_EQ(CommandFor(L"E00.log.edb"),
            R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00.log.edb")");
  EXPECT_EQ(CommandFor(L"E00.log.chk"),
            R"(eseutil.exe /k "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00.log.chk")");
}

TEST_F(ExchangeVerification, AFileThatIsDatabaseAndCheckpointIsADatabase) {
  EXPECT_EQ(CommandFor(L"DB1.chk.edb"),
            R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.chk.edb")");
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
  EXPECT_THAT(log.Errors(), ElementsAre(testing::StartsWith("ERROR: Win32 call \"CreateProcessW("),
                                        "- GetLastError() == 2", "- Error text: Error: 0x80070002"));
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
  EXPECT_THAT(log.Of(CFileLog::Information), testing::Not(Contains(HasSubstr("attempt to find a full path"))));
}

TEST_F(ExchangeVerification, AFailedWaitIsAVerificationFailureAndClosesTheProcess) {
  FailCall("WaitForSingleObject", ERROR_INVALID_HANDLE);
  EXPECT_EQ(Verify(L"E00*.log"), Outcome::Exception(603, L"Error: 0x80070006"));
}

// ---- the utility of the installation ----

// Throws a plain code for a utility that would be looked for on the search path.
class PlainCodeProcesses final : public ForwardingProcesses {
 public:
  PlainCodeProcesses(Processes& inner, long code) : ForwardingProcesses(inner), code_(code) {}
  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    if (std::wstring_view(commandLine).starts_with(L"eseutil.exe")) throw code_;
    return ForwardingProcesses::CreateProcessW(application, commandLine, processSecurity, threadSecurity,
                                               inheritHandles, flags, environment, directory, startup, process);
  }

 private:
  long code_;
};

class PlainCodeHost final : public ForwardingHost {
 public:
  PlainCodeHost(Host& inner, long code) : ForwardingHost(inner), processes_(inner.processes(), code) {}
  Processes& processes() override { return processes_; }

 private:
  PlainCodeProcesses processes_;
};

constexpr char kLooksForInstallation[] =
    "I ExchReq: Since the verification utility is not found by system we attempt to find a full path of the installed "
    "MS Exchange and call the utiliy with full path.";
constexpr char kFirstCommand[] = R"(eseutil.exe /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.edb")";
constexpr char kSecondCommand[] =
    R"("C:\Exchange\Bin\eseutil.exe" /k /i "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\mail\\DB1.edb")";

std::string Executing(const char* command) {
  return std::string("I varnel: - Executing command = ") + command;
}

class ExchangeInstallation : public HostFixture {
 protected:
  void SetUp() override { InstallUtility(0); }
  void InstallUtility(DWORD exitCode) {
    simulator::HostModel model = HostWithoutTexts();
    model.commands = {{L"\"C:\\Exchange\\Bin\\eseutil.exe\" *", exitCode}};
    model.registry = {{kInstallationKey + L"\\v15\\Setup", {{L"MsiInstallPath", L"C:\\Exchange"}}}};
    Install(std::move(model));
  }
  // The registry below the Exchange key, where that exists.
  void SetSubKeys(const std::vector<std::wstring>& names) {
    auto& registry = host().model().registry;
    registry.clear();
    registry[kInstallationKey];
    for (const std::wstring& name : names) {
      registry[kInstallationKey + L"\\" + name + L"\\Setup"][L"MsiInstallPath"] = L"C:\\" + name;
    }
  }
  void SetInstallPath(const std::wstring& path) {
    host().model().registry[kInstallationKey + L"\\v15\\Setup"][L"MsiInstallPath"] = path;
  }
  // Verifies a database on a host that throws `code` for the utility without a path.
  Outcome Verify(long code) {
    PlainCodeHost plain(host(), code);
    const ScopedHost scope(plain);
    ExchangeReq requestor(0);
    VssFileDescriptor file = FileOf(L"DB1.edb");
    return OutcomeOf([&] { requestor.VerifyComponentFile(file); });
  }
  long FindFolder(std::wstring& folder) {
    ExchangeReq requestor(0);
    const long code = RequestorProbe::FindExchangeServerBinFolder(requestor, folder);
    ExpectNothingLive();
    return code;
  }
  long FindFolder() {
    std::wstring folder = L"left over";
    const long code = FindFolder(folder);
    EXPECT_EQ(folder, L"");
    return code;
  }
  std::wstring Folder() {
    std::wstring folder;
    EXPECT_EQ(FindFolder(folder), 0);
    return folder;
  }
};

TEST_F(ExchangeInstallation, ThePlainCodes2And3LeadToTheUtilityOfTheInstallation) {
  for (const long code : {2L, 3L}) {
    log.lines.clear();
    host().calls().Clear();
    EXPECT_EQ(Verify(code), Outcome::Returned());
    EXPECT_THAT(log.AllWithSources(),
                ElementsAre(Executing(kFirstCommand), kLooksForInstallation,
                            "I ExchReq: ExchangeServer subkey name #0 is v15.", "I ExchReq: Found Exchange version 15.",
                            "I ExchReq: Exchange inslallation path is \"C:\\Exchange\"", Executing(kSecondCommand),
                            std::string("I varnel: Successfully completed execution of command = ") + kSecondCommand));
    EXPECT_THAT(Calls("CreateProcessW"), ElementsAre(std::string("CreateProcessW(") + kSecondCommand + ") = ok"));
    ExpectNothingLive();
  }
}

TEST_F(ExchangeInstallation, LogsAreVerifiedWithItTheSameWay) {
  PlainCodeHost plain(host(), 2);
  const ScopedHost scope(plain);
  ExchangeReq requestor(0);
  VssFileDescriptor file = FileOf(L"E00*.log");
  EXPECT_EQ(OutcomeOf([&] { requestor.VerifyComponentFile(file); }), Outcome::Returned());
  const std::string utility = R"("C:\Exchange\Bin\eseutil.exe")";
  const std::string logs = R"("\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy1\\mail\\E00")";
  EXPECT_THAT(Calls("CreateProcessW"), ElementsAre("CreateProcessW(" + utility + " /k " + logs + ") = ok"));
}

TEST_F(ExchangeInstallation, AnyOtherPlainCodeIsAVerificationFailure) {
  for (const long code : {4L, 5L, 774L}) {
    log.lines.clear();
    const std::wstring text = L"Error: 0x" + std::wstring(code == 774 ? L"306" : std::to_wstring(code));
    EXPECT_EQ(Verify(code), Outcome::Exception(603, text));
    EXPECT_THAT(log.AllWithSources(), ElementsAre(Executing(kFirstCommand), kNoText));
  }
  EXPECT_THAT(Calls("RegOpenKeyExW"), IsEmpty());
}

TEST_F(ExchangeInstallation, DamageFoundWithItIsAVerificationFailure) {
  InstallUtility(1);
  EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x80070001"));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(Executing(kFirstCommand), kLooksForInstallation,
                          "I ExchReq: ExchangeServer subkey name #0 is v15.", "I ExchReq: Found Exchange version 15.",
                          "I ExchReq: Exchange inslallation path is \"C:\\Exchange\"", Executing(kSecondCommand),
                          std::string("E varnel: Command Failed, Command=") + kSecondCommand + ", Error=0x1", kNoText));
}

TEST_F(ExchangeInstallation, AnInstallationWithoutTheUtilityIsAVerificationFailure) {
  model().commands.clear();
  EXPECT_EQ(Verify(3), Outcome::Exception(603, L"Error: 0x80070002"));
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(1));
}

TEST_F(ExchangeInstallation, AHostWithoutExchangeIsAVerificationFailure) {
  model().registry.clear();
  EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x80070002"));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(Executing(kFirstCommand), kLooksForInstallation,
                          "E ExchReq: Failed to find Exchange Server setup folder. Error code: 0x2. .", kNoText));
  EXPECT_THAT(Calls("CreateProcessW"), IsEmpty());
}

TEST_F(ExchangeInstallation, AVersionWithoutAnInstallationPathIsAVerificationFailureWithThePlainCode3) {
  model().registry = {{kInstallationKey + L"\\v15\\Setup", {}}};
  EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x3"));
  EXPECT_THAT(
      log.AllWithSources(),
      ElementsAre(Executing(kFirstCommand), kLooksForInstallation, "I ExchReq: ExchangeServer subkey name #0 is v15.",
                  "I ExchReq: Found Exchange version 15.", "E ExchReq: Failed retrieving Exchange installation path.",
                  "I ExchReq: MS Exchange installation path is not found in the registry.", kNoText));
}

TEST_F(ExchangeInstallation, AnExchangeKeyWithoutAVersionIsAVerificationFailureWithItsCode) {
  SetSubKeys({L"AdminTools"});
  EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x80070306"));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre(Executing(kFirstCommand), kLooksForInstallation,
                          "I ExchReq: ExchangeServer subkey name #0 is AdminTools.",
                          "E ExchReq: Failed to find Exchange Server setup folder. Error code: 0x306. Error in finding "
                          "Exchange version key. Failed to retrieve version key..",
                          kNoText));
}

// ---- where the installation is ----

TEST_F(ExchangeInstallation, TheRegistryIsAskedInThisOrderAndEveryKeyIsClosed) {
  EXPECT_EQ(Folder(), L"C:\\Exchange\\Bin\\");
  const std::string key = WideToUtf8Lossy(kInstallationKey);
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("RegOpenKeyExW(" + key + ") = ok", "RegQueryInfoKeyW(" + key + ") = ok",
                          "RegEnumKeyExW(" + key + ", 0) = ok", "RegOpenKeyExW(" + key + "\\v15) = ok",
                          "RegGetValueW(" + key + "\\v15\\Setup, MsiInstallPath) = ok",
                          "RegCloseKey(" + key + "\\v15) = ok", "RegCloseKey(" + key + ") = ok"));
}

// What the registry is asked with.
class WatchedRegistry final : public ForwardingRegistry {
 public:
  using ForwardingRegistry::ForwardingRegistry;
  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result) override {
    EXPECT_EQ(options, 0u);
    EXPECT_EQ(access, REGSAM{KEY_READ});
    return ForwardingRegistry::RegOpenKeyExW(key, subKey, options, access, result);
  }
  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD* reserved, LPWSTR className,
                        DWORD* classCharacters, FILETIME* lastWrite) override {
    EXPECT_EQ(*characters, 256u);
    return ForwardingRegistry::RegEnumKeyExW(key, index, name, characters, reserved, className, classCharacters,
                                             lastWrite);
  }
  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override {
    EXPECT_EQ(flags, DWORD{RRF_RT_REG_SZ});
    EXPECT_EQ(*bytes, 260 * sizeof(wchar_t));
    return ForwardingRegistry::RegGetValueW(key, subKey, value, flags, type, data, bytes);
  }
};

class WatchedHost final : public ForwardingHost {
 public:
  explicit WatchedHost(Host& inner) : ForwardingHost(inner), registry_(inner.registry()) {}
  Registry& registry() override { return registry_; }

 private:
  WatchedRegistry registry_;
};

TEST_F(ExchangeInstallation, TheRegistryIsAskedForReadingAndForTextOnly) {
  WatchedHost watched(host());
  const ScopedHost scope(watched);
  EXPECT_EQ(Folder(), L"C:\\Exchange\\Bin\\");
}

TEST_F(ExchangeInstallation, TheFirstVersionThatIsEnumeratedIsTaken) {
  SetSubKeys({L"AdminTools", L"v14", L"v15"});
  EXPECT_EQ(Folder(), L"C:\\v14\\Bin\\");
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("I ExchReq: ExchangeServer subkey name #0 is AdminTools.",
                          "I ExchReq: ExchangeServer subkey name #1 is v14.", "I ExchReq: Found Exchange version 14.",
                          "I ExchReq: Exchange inslallation path is \"C:\\v14\""));
}

TEST_F(ExchangeInstallation, AVersionIsTheLetterVAndADigitFrom1To9) {
  for (const wchar_t* name : {L"v1", L"V9", L"v15", L"V8.0", L"v1x", L"v9 old"}) {
    SetSubKeys({name});
    EXPECT_EQ(Folder(), L"C:\\" + std::wstring(name) + L"\\Bin\\");
  }
  EXPECT_THAT(log.All(), Contains("I Found Exchange version 9 old."));
}

TEST_F(ExchangeInstallation, AnyOtherNameIsNoVersion) {
  SetSubKeys({L"v", L"V", L"1", L"v0", L"v05", L"V0", L"vx", L"VV1", L"x15", L"15", L"v-1", L"Setup"});
  log.lines.clear();
  EXPECT_EQ(FindFolder(), static_cast<long>(HResultFromWin32(774)));
  EXPECT_THAT(log.Errors(), ElementsAre("Failed to find Exchange Server setup folder. Error code: 0x306. Error in "
                                        "finding Exchange version key. Failed to retrieve version key.."));
  // The registry knows no case, so v and V as well as v0 and V0 are one key each.
  EXPECT_THAT(log.Of(CFileLog::Information), SizeIs(10));
}

TEST_F(ExchangeInstallation, AnExchangeKeyWithoutSubKeysHasNoVersion) {
  SetSubKeys({});
  EXPECT_EQ(FindFolder(), static_cast<long>(HResultFromWin32(774)));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("E ExchReq: Failed to find Exchange Server setup folder. Error code: 0x306. Error in finding "
                          "Exchange version key. Exchange Server key does not have subkeys.."));
  EXPECT_THAT(Calls("RegEnumKeyExW"), IsEmpty());
}

TEST_F(ExchangeInstallation, TheLongestNameOfAKeyIsReadWhole) {
  const std::wstring name = L"v1" + std::wstring(253, L'x');
  SetSubKeys({name});
  EXPECT_EQ(Folder(), L"C:\\" + name + L"\\Bin\\");
}

TEST_F(ExchangeInstallation, APathThatEndsInASeparatorGetsNoOther) {
  SetInstallPath(L"C:\\Exchange\\");
  EXPECT_EQ(Folder(), L"C:\\Exchange\\Bin\\");
  SetInstallPath(L"C:/Exchange/");
  EXPECT_EQ(Folder(), L"C:/Exchange/Bin\\");
  SetInstallPath(L"\\");
  EXPECT_EQ(Folder(), L"\\Bin\\");
}

TEST_F(ExchangeInstallation, APathWithoutASeparatorAtItsEndGetsABackslash) {
  SetInstallPath(L"D:\\Program Files\\Exchange");
  EXPECT_EQ(Folder(), L"D:\\Program Files\\Exchange\\Bin\\");
  SetInstallPath(L"C:/Exchange");
  EXPECT_EQ(Folder(), L"C:/Exchange\\Bin\\");
  SetInstallPath(L"x");
  EXPECT_EQ(Folder(), L"x\\Bin\\");
}

TEST_F(ExchangeInstallation, APathMayHave259Characters) {
  const std::wstring path = L"C:\\" + std::wstring(256, L'p');
  SetInstallPath(path);
  EXPECT_EQ(Folder(), path + L"\\Bin\\");
}

TEST_F(ExchangeInstallation, ALongerPathIsNotFound) {
  SetInstallPath(L"C:\\" + std::wstring(257, L'p'));
  EXPECT_EQ(FindFolder(), 3);
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("I ExchReq: ExchangeServer subkey name #0 is v15.", "I ExchReq: Found Exchange version 15.",
                          "E ExchReq: Failed retrieving Exchange installation path.",
                          "I ExchReq: MS Exchange installation path is not found in the registry."));
}

TEST_F(ExchangeInstallation, AnEmptyPathIsNotFound) {
  SetInstallPath(L"");
  EXPECT_EQ(FindFolder(), 3);
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("I ExchReq: ExchangeServer subkey name #0 is v15.", "I ExchReq: Found Exchange version 15.",
                          "I ExchReq: Exchange inslallation path is \"\"",
                          "I ExchReq: MS Exchange installation path is not found in the registry."));
}

TEST_F(ExchangeInstallation, AMissingValueAndAMissingSetupKeyAreNotFound) {
  model().registry = {{kInstallationKey + L"\\v15\\Setup", {{L"Other", L"C:\\Exchange"}}}};
  EXPECT_EQ(FindFolder(), 3);
  model().registry = {{kInstallationKey + L"\\v15", {{L"MsiInstallPath", L"C:\\Exchange"}}}};
  EXPECT_EQ(FindFolder(), 3);
}

TEST_F(ExchangeInstallation, AnyFailureToReadThePathEndsInThePlainCode3) {
  constexpr DWORD kUnsupportedType = 1630;
  for (const DWORD code : {DWORD{3}, DWORD{774}, DWORD{5}, kUnsupportedType}) {
    log.lines.clear();
    FailCall("RegGetValueW", code);
    EXPECT_EQ(FindFolder(), 3);
    EXPECT_THAT(log.AllWithSources(),
                ElementsAre("I ExchReq: ExchangeServer subkey name #0 is v15.", "I ExchReq: Found Exchange version 15.",
                            "E ExchReq: Failed retrieving Exchange installation path.",
                            "I ExchReq: MS Exchange installation path is not found in the registry."));
  }
}

// A registry call in front of the path, and what its failure adds to the error text.
struct LookUpFailure {
  const char* call;
  int occurrence;
  const char* text;
};

TEST_F(ExchangeInstallation, AFailedCallInFrontOfThePathIsLoggedWithItsPlainCodeAndReturnedAsAnHResult) {
  const LookUpFailure failures[] = {
      {"RegOpenKeyExW", 1, ""},
      {"RegQueryInfoKeyW", 1, "Error in finding Exchange version key. Failed quering info for Exchange Server key."},
      {"RegEnumKeyExW", 1, "Error in finding Exchange version key. Failed to retrieve subkey."},
      {"RegOpenKeyExW", 2, "Error in finding Exchange version key. Failed to retrieve version key."},
  };
  const std::pair<DWORD, std::string> codes[] = {{3, "3"}, {774, "306"}, {5, "5"}};
  for (const LookUpFailure& failure : failures) {
    for (const auto& [code, shown] : codes) {
      SCOPED_TRACE(std::string(failure.call) + " " + shown);
      log.lines.clear();
      FailCall(failure.call, code, failure.occurrence);
      EXPECT_EQ(FindFolder(), static_cast<long>(HResultFromWin32(code)));
      EXPECT_THAT(log.Errors(), ElementsAre("Failed to find Exchange Server setup folder. Error code: 0x" + shown +
                                            ". " + failure.text + "."));
      EXPECT_EQ(log.lines.back().source, "ExchReq");
    }
  }
}

TEST_F(ExchangeInstallation, AFailedLookUpIsAVerificationFailureWithItsCode) {
  for (const char* call : {"RegOpenKeyExW", "RegQueryInfoKeyW", "RegEnumKeyExW"}) {
    FailCall(call, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x80070005")) << call;
  }
  FailCall("RegGetValueW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Verify(2), Outcome::Exception(603, L"Error: 0x3"));
}

TEST_F(ExchangeInstallation, AFailureThatIsAnHResultAlreadyIsReturnedAsItIs) {
  FailCall("RegQueryInfoKeyW", 0x80070005);
  EXPECT_EQ(FindFolder(), static_cast<long>(static_cast<HRESULT>(0x80070005)));
  EXPECT_THAT(log.Errors(), ElementsAre(HasSubstr("Error code: 0x80070005. ")));
}

TEST_F(ExchangeInstallation, SubKeysThatWentAwayMeanwhileAreAFailure) {
  SetSubKeys({L"AdminTools", L"v15"});
  FailCall("RegEnumKeyExW", ERROR_NO_MORE_ITEMS, 2);
  EXPECT_EQ(FindFolder(), static_cast<long>(HResultFromWin32(ERROR_NO_MORE_ITEMS)));
  EXPECT_THAT(log.AllWithSources(),
              ElementsAre("I ExchReq: ExchangeServer subkey name #0 is AdminTools.",
                          "E ExchReq: Failed to find Exchange Server setup folder. Error code: 0x103. Error in finding "
                          "Exchange version key. Failed to retrieve subkey.."));
}

// ---- whole requests ----

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
  SnapshotRequest<ExchangeReq> request;
  EXPECT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_THAT(SelectedWriters(request.requestor), ElementsAre(L"Microsoft Exchange Writer"));
  EXPECT_THAT(Calls("IVssBackupComponents::AddComponent"),
              ElementsAre(AddedLine(4, kExchangeWriterId, "Information Store\\EX01", "DB1"),
                          AddedLine(4, kExchangeWriterId, "Information Store\\EX01", "DB2")));
  EXPECT_THAT(log.All(), Contains("I Found Exchange writer Microsoft Exchange Writer "));
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(ExchangeRequests, TheCatalogueHoldsThePathsAndTheCaptions) {
  SnapshotRequest<ExchangeReq> request;
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_THAT(CatalogueLines(request.requestor),
              ElementsAre("TSL0001 id \\Information Store\\EX01\\DB1", "TSL0001 id \\Information Store\\EX01\\DB2",
                          "TSL0001 name Mailbox DB1", "TSL0001 name Mailbox DB2"));
}

TEST_F(ExchangeRequests, TheFilesOfTheSnapshotAreVerifiedOneAfterTheOther) {
  SnapshotRequest<ExchangeReq> request;
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
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
  SnapshotRequest<ExchangeReq> request;
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  EXPECT_EQ(request.Verify(), Outcome::Exception(603, L"Error: 0x80070001"));
  EXPECT_THAT(Calls("CreateProcessW"), SizeIs(3));
  for (const VssComponent& component : request.probe.writers()[3].components) EXPECT_FALSE(component.failed);
}

TEST_F(ExchangeRequests, ASnapshotThatFailedItsVerificationIsDeletedAndItsDatabasesFail) {
  model().commands = {{L"*", 1}};
  SnapshotRequest<ExchangeReq> request;
  ASSERT_EQ(request.StartAndCreate(), Outcome::Returned());
  const Outcome outcome = request.Verify();
  host().calls().Clear();
  EXPECT_EQ(request.Complete(outcome.alertCode), Outcome::Returned());
  EXPECT_THAT(Calls("IVssBackupComponents::DeleteSnapshots"), SizeIs(1));
  EXPECT_THAT(Calls("IVssBackupComponents::SetBackupSucceeded"),
              ElementsAre(HasSubstr("\"DB1\", false) = S_OK"), HasSubstr("\"DB2\", false) = S_OK")));
}

TEST_F(ExchangeRequests, TheTestPointFailsTheVerificationAndNotTheSnapshot) {
  SnapshotRequest<ExchangeReq> request({.testPoints = kTestPointFailFileVerification});
  EXPECT_EQ(request.StartAndCreate(), Outcome::Returned());
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
