// Where varnelctl has Exchange's checker looked for: not in the current directory, and in the installation's folder
// last.
#include "requestors/ExchReq.h"
#include "tests/support/requestor_probe.h"
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/exchange_installation.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Each;
using testing::SizeIs;
using testing::StartsWith;

constexpr wchar_t kProgramFolder[] = L"C:\\Program Files\\Microsoft\\Exchange Server\\V15\\Bin\\";
constexpr wchar_t kVariable[] = L"NoDefaultCurrentDirectoryInExePath";

// The sample host whose checker lies in the folder of the installation alone.
class ProgramSearchTest : public SnapshotFixture {
 protected:
  void SetUp() override {
    Install(simulator::LoadHostFile(VARNEL_EXAMPLES "/hosts/exchange-no-utility.json"));
    model().currentDirectory = L"C:\\Users\\Public";
  }
  simulator::HostModel& model() { return host().model(); }
  CliResult Verify(int status) {
    return Snapshot({"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}, status);
  }
};

TEST_F(ProgramSearchTest, TheCheckerOfTheInstallationIsFound) {
  EXPECT_EQ(Verify(0).err, "");

  EXPECT_THAT(CallsOf("CreateProcessW"), AllOf(SizeIs(2), Each(StartsWith("CreateProcessW(eseutil.exe /k"))));
}

TEST_F(ProgramSearchTest, TheFolderOfTheInstallationIsTheLastOfPath) {
  model().environment[L"Path"] = L"C:\\Tools;D:\\Tools";
  Verify(0);

  EXPECT_THAT(
      CallsOf("SetEnvironmentVariableW"),
      ElementsAre("SetEnvironmentVariableW(NoDefaultCurrentDirectoryInExePath, 1) = ok",
                  "SetEnvironmentVariableW(PATH, C:\\Tools;D:\\Tools;" + WideToUtf8Lossy(kProgramFolder) + ") = ok",
                  "SetEnvironmentVariableW(PATH, C:\\Tools;D:\\Tools) = ok",
                  "SetEnvironmentVariableW(NoDefaultCurrentDirectoryInExePath, null) = ok"));
}

TEST_F(ProgramSearchTest, ACheckerOnThePathComesBeforeThatOfTheInstallation) {
  model().environment[L"PATH"] = L"C:\\Tools";
  model().commands.push_back({L"eseutil.exe *", 1, L"C:\\Tools"});

  Verify(13);
}

TEST_F(ProgramSearchTest, AProgramPlantedInTheCurrentDirectoryIsNotRun) {
  model().commands.insert(model().commands.begin(), {L"eseutil.exe *", 42, model().currentDirectory});

  EXPECT_EQ(Verify(0).err, "");
  EXPECT_THAT(CallsOf("SetCurrentDirectoryW"), ElementsAre("SetCurrentDirectoryW(C:\\Windows\\system32) = ok",
                                                           "SetCurrentDirectoryW(C:\\Users\\Public) = ok"));
}

TEST_F(ProgramSearchTest, EverythingIsAsItWasAfterwards) {
  model().environment[kVariable] = L"0";
  Verify(0);

  EXPECT_EQ(model().environment[kVariable], L"0");
  EXPECT_FALSE(model().environment.contains(L"PATH"));
  EXPECT_EQ(model().currentDirectory, L"C:\\Users\\Public");
}

TEST_F(ProgramSearchTest, NothingIsVerifiedWhereTheCurrentDirectoryCannotBeLeft) {
  Fail("SetCurrentDirectoryW", ERROR_ACCESS_DENIED);

  EXPECT_THAT(Verify(15).err, StartsWith("varnelctl: SetCurrentDirectoryW failed: "));
  EXPECT_THAT(CallsOf("CreateProcessW"), IsEmpty());
  EXPECT_FALSE(model().environment.contains(kVariable));
}

TEST_F(ProgramSearchTest, ACheckerThatIsMissingIsNamedWithTheFoldersLookedIn) {
  model().commands.clear();
  EXPECT_EQ(
      Verify(13).err,
      "varnelctl: the checker eseutil.exe was not found on the PATH nor in C:\\Program Files\\Microsoft\\Exchange "
      "Server\\V15\\Bin\\, where Exchange is installed: install it, or add its folder to the PATH\n"
      "  while verifying the snapshot\n"
      "  The system cannot find the file specified.\n");
}

TEST_F(ProgramSearchTest, AHostWithoutAnInstallationIsToldSo) {
  model().registry.clear();
  EXPECT_THAT(Verify(13).err, StartsWith("varnelctl: the checker eseutil.exe was not found on the PATH, and the "
                                         "registry knows no installation of Exchange: install it, or add its folder "
                                         "to the PATH\n"));
}

TEST_F(ProgramSearchTest, ACheckerThatEndsWithTheCodeOfAMissingFileIsNotMissing) {
  model().commands[0].exitCode = ERROR_FILE_NOT_FOUND;
  EXPECT_THAT(Verify(13).err, StartsWith("varnelctl: the checker eseutil.exe ended with exit code 2 on "));
}

TEST_F(ProgramSearchTest, WithoutVerifyNoProgramIsLookedFor) {
  Snapshot({"--app", "exchange", "--disk", "TSL1001", "TSL1002"});
  EXPECT_THAT(CallsOf("SetCurrentDirectoryW"), IsEmpty());
}

// The requestor looks the folder up for itself, after other codes. Both go by the same rules.
TEST_F(ProgramSearchTest, TheInstallationIsTheOneThatTheRequestorFinds) {
  using Keys = std::map<std::wstring, std::wstring>;  // the path that is installed to, by sub key
  const std::wstring root = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\ExchangeServer";
  const std::pair<Keys, std::wstring> cases[] = {
      {{}, L""},
      {{{L"v15\\Setup", L"C:\\Exchange"}}, L"C:\\Exchange\\Bin\\"},
      {{{L"V8\\Setup", L"C:/Exchange/"}}, L"C:/Exchange/Bin\\"},
      {{{L"v15\\Setup", L""}}, L""},
      {{{L"v15", L"C:\\Exchange"}}, L""},
      {{{L"v05\\Setup", L"C:\\Old"}, {L"Setup", L"C:\\Other"}, {L"v", L"C:\\V"}}, L""},
      {{{L"ADDRESSES\\Setup", L"C:\\A"}, {L"v14\\Setup", L"C:\\14"}, {L"v15\\Setup", L"C:\\15"}}, L"C:\\14\\Bin\\"},
  };
  for (const auto& [keys, expected] : cases) {
    model().registry.clear();
    for (const auto& [key, path] : keys) model().registry[root + L"\\" + key][L"MsiInstallPath"] = path;
    ExchangeReq requestor(0);
    std::wstring found;
    RequestorProbe::FindExchangeServerBinFolder(requestor, found);

    EXPECT_EQ(varnelctl::ExchangeProgramFolder(), expected);
    EXPECT_EQ(found, expected);
  }
}

// Any one call may fail. What comes of it, the process is left as it was, unless it was that call.
TEST_F(ProgramSearchTest, AnyCallMayFail) {
  const simulator::HostModel before = model();
  const Arguments arguments = Whole({"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify", "--json"});
  FailEachCall(before, arguments, [&](const CliResult& result) {
    ASSERT_FALSE(json::parse(result.out, nullptr, false).is_discarded()) << result.out;
    if (std::string(host().faults().firedAt()).find("Set") == std::string::npos) {
      EXPECT_EQ(model().currentDirectory, before.currentDirectory);
    }
  });
}

}  // namespace
}  // namespace varnel::test
