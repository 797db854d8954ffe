// Where the verification utility of Exchange is found when the system does not find it.

#include "tests/requestors/exchange_fixture.h"
#include "tests/support/forwarding_host.h"

namespace varnel::test {
namespace {

const std::wstring kInstallationKey = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\ExchangeServer";

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
    PlainCodeProcesses plain(host().processes(), code);
    const CurrentHostWith current(host(), plain);
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
  PlainCodeProcesses plain(host().processes(), 2);
  const CurrentHostWith current(host(), plain);
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

TEST_F(ExchangeInstallation, TheRegistryIsAskedForReadingAndForTextOnly) {
  WatchedRegistry watched(host().registry());
  const CurrentHostWith current(host(), watched);
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

TEST_F(ExchangeInstallation, APathWithoutASeparatorAtItsEndGetsABackslash) {
  const std::wstring longest = L"C:\\" + std::wstring(256, L'p');
  const std::pair<std::wstring, std::wstring> folders[] = {
      {L"C:\\Exchange\\", L"C:\\Exchange\\Bin\\"},
      {L"C:/Exchange/", L"C:/Exchange/Bin\\"},
      {L"\\", L"\\Bin\\"},
      {L"D:\\Program Files\\Exchange", L"D:\\Program Files\\Exchange\\Bin\\"},
      {L"C:/Exchange", L"C:/Exchange\\Bin\\"},
      {L"x", L"x\\Bin\\"},
      {longest, longest + L"\\Bin\\"},
  };
  for (const auto& [path, folder] : folders) {
    SetInstallPath(path);
    EXPECT_EQ(Folder(), folder);
  }
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

// A registry call before the path, and what its failure adds to the error text.
struct LookUpFailure {
  const char* call;
  int occurrence;
  const char* text;
};

TEST_F(ExchangeInstallation, AFailedCallBeforeThePathIsLoggedWithItsPlainCodeAndReturnedAsAnHResult) {
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

}  // namespace
}  // namespace varnel::test
