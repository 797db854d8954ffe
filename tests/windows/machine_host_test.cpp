// The machine's own host. What it answers depends on the machine, so the tests ask for what holds on every Windows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "core/varnel.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "platform/tessel/MetadataWrapper.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "tests/support/host_fixture.h"
#include "tests/support/snapshot_request.h"
#include "text/ascii_case.h"
#include "text/unicode.h"

namespace varnel {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::wstring SystemDirectory() {
  std::array<wchar_t, MAX_PATH> directory{};
  EXPECT_NE(CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH), 0u);
  return directory.data();
}

bool IsInSystemDirectory(const wchar_t* file) {
  return std::filesystem::exists(std::filesystem::path(SystemDirectory()) / file);
}

TEST(MachineHost, IsTheCurrentHostUntilAnotherIsInstalled) {
  EXPECT_EQ(&CurrentHost(), MachineHost());
}

// Wine has no event log that could be read: a query fails without a reason.
TEST(MachineEventLog, IsReadOrSaysThatItCannotBe) {
  EventLog& log = CurrentHost().eventLog();
  ::SetLastError(ERROR_GEN_FAILURE);
  const EventHandle results(log.EvtQuery(nullptr, L"Application", L"*[System[EventID=1]]", EvtQueryChannelPath));
  EXPECT_EQ(results ? DWORD{ERROR_SUCCESS} : CurrentHost().GetLastError(), DWORD{ERROR_SUCCESS});
}

TEST(MachineEventLog, TakesReports) {
  EventLog& log = CurrentHost().eventLog();
  const EventSource source(log.RegisterEventSourceW(nullptr, L"varnel test"));
  ASSERT_TRUE(source);
  std::array<LPCWSTR, 1> texts = {L"text"};
  EXPECT_TRUE(log.ReportEventW(source.Get(), EVENTLOG_INFORMATION_TYPE, 0, 1, nullptr, 1, 0, texts.data(), nullptr));
}

TEST(MachineSystem, ExpandsEnvironmentVariables) {
  ASSERT_TRUE(::SetEnvironmentVariableW(L"VARNEL_TEST_VALUE", L"E:\\data"));
  std::array<wchar_t, MAX_PATH> text{};
  const DWORD written =
      CurrentHost().system().ExpandEnvironmentStringsW(L"%VARNEL_TEST_VALUE%\\x", text.data(), MAX_PATH);
  EXPECT_STREQ(text.data(), L"E:\\data\\x");
  EXPECT_EQ(written, 10u);
}

TEST(MachineSystem, KnowsTheComputerName) {
  std::array<wchar_t, MAX_PATH> name{};
  DWORD characters = MAX_PATH;
  ASSERT_TRUE(CurrentHost().system().GetComputerNameW(name.data(), &characters));
  EXPECT_GT(characters, 0u);
  EXPECT_EQ(std::wstring(name.data()).size(), characters);
}

TEST(MachineSystem, TellsThatTheRoomForTheComputerNameIsTooSmall) {
  wchar_t name[1] = {};
  DWORD characters = 1;
  EXPECT_FALSE(CurrentHost().system().GetComputerNameW(name, &characters));
  EXPECT_EQ(CurrentHost().GetLastError(), ERROR_BUFFER_OVERFLOW);
}

TEST(MachineSystem, KnowsTheNameOfThePhysicalComputer) {
  std::array<wchar_t, MAX_PATH> name{};
  DWORD characters = MAX_PATH;
  ASSERT_TRUE(CurrentHost().system().GetComputerNameExW(ComputerNamePhysicalDnsHostname, name.data(), &characters));
  EXPECT_GT(characters, 0u);
  EXPECT_EQ(std::wstring(name.data()).size(), characters);
}

TEST(MachineProcesses, KnowThisOne) {
  EXPECT_EQ(CurrentHost().processes().GetCurrentProcessId(), ::GetCurrentProcessId());
}

TEST(MachineSystem, KnowsTheSystemDirectory) {
  EXPECT_TRUE(ascii::ToLower(SystemDirectory()).ends_with(L"\\system32")) << "not a system directory";
}

// The version as the kernel knows it, whatever the program's manifest says.
OSVERSIONINFOEXW TrueVersion() {
  using GetVersion = LONG WINAPI(OSVERSIONINFOEXW*);
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  const FARPROC address = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
  EXPECT_NE(address, nullptr);
  if (address != nullptr) reinterpret_cast<GetVersion*>(reinterpret_cast<void (*)()>(address))(&version);
  return version;
}

bool IsVersion(OSVERSIONINFOEXW version, BYTE condition) {
  SystemInformation& system = CurrentHost().system();
  constexpr DWORD kMask = VER_MAJORVERSION | VER_MINORVERSION;
  ULONGLONG conditions = system.VerSetConditionMask(0, VER_MAJORVERSION, condition);
  conditions = system.VerSetConditionMask(conditions, VER_MINORVERSION, condition);
  return system.VerifyVersionInfoW(&version, kMask, conditions) != FALSE;
}

TEST(MachineSystem, HasAManifestThatNamesTheWindowsVersionsItSupports) {
  const HRSRC resource = ::FindResourceW(nullptr, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
  ASSERT_NE(resource, nullptr);
  const auto* text = static_cast<const char*>(::LockResource(::LoadResource(nullptr, resource)));
  const std::string manifest(text, ::SizeofResource(nullptr, resource));
  EXPECT_THAT(manifest, HasSubstr("{1f676c76-80e1-4239-95bb-83d0f6d0da78}"));
  EXPECT_THAT(manifest, HasSubstr("{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"));
  EXPECT_THAT(manifest, HasSubstr("longPathAware>true<"));
  EXPECT_THAT(manifest, Not(HasSubstr("activeCodePage")));
}

TEST(MachineSystem, VerifiesTheTrueVersionBecauseTheProgramHasAManifest) {
  EXPECT_TRUE(IsVersion(TrueVersion(), VER_EQUAL));
}

TEST(MachineSystem, RefusesALaterVersion) {
  OSVERSIONINFOEXW later = TrueVersion();
  ++later.dwMajorVersion;
  EXPECT_FALSE(IsVersion(later, VER_GREATER_EQUAL));
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_OLD_WIN_VERSION));
}

TEST(MachineSystem, SetsReadsAndTakesAwayAVariable) {
  constexpr wchar_t kName[] = L"VARNEL_TEST_VARIABLE";
  SystemInformation& system = CurrentHost().system();
  wchar_t value[8] = L"";
  ASSERT_TRUE(system.SetEnvironmentVariableW(kName, L"one"));
  EXPECT_EQ(system.GetEnvironmentVariableW(kName, nullptr, 0), 4u);
  EXPECT_EQ(system.GetEnvironmentVariableW(kName, value, 8), 3u);
  EXPECT_STREQ(value, L"one");
  ASSERT_TRUE(system.SetEnvironmentVariableW(kName, nullptr));
  EXPECT_EQ(system.GetEnvironmentVariableW(kName, nullptr, 0), 0u);
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_ENVVAR_NOT_FOUND));
}

TEST(MachineSystem, ChangesTheCurrentDirectory) {
  SystemInformation& system = CurrentHost().system();
  wchar_t before[MAX_PATH] = L"";
  ASSERT_NE(system.GetCurrentDirectoryW(MAX_PATH, before), 0u);
  ASSERT_TRUE(system.SetCurrentDirectoryW(SystemDirectory().c_str()));
  wchar_t directory[MAX_PATH] = L"";
  EXPECT_EQ(system.GetCurrentDirectoryW(MAX_PATH, directory), SystemDirectory().size());
  EXPECT_EQ(directory, SystemDirectory());
  ASSERT_TRUE(system.SetCurrentDirectoryW(before));
}

TEST(MachineMessages, DoNotLoadALibraryThatIsNotThere) {
  EXPECT_EQ(CurrentHost().messages().LoadLibraryW(L"varnel-no-such-library.dll"), nullptr);
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

TEST(MachineMessages, LoadVsstraceOnlyWhereTheSystemHasIt) {
  const Module module(CurrentHost().messages().LoadLibraryW(L"vsstrace.dll"));
  const DWORD error = CurrentHost().GetLastError();
  EXPECT_EQ(static_cast<bool>(module), IsInSystemDirectory(L"vsstrace.dll"));
  if (!module) {
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
  }
}

TEST(MachineMessages, DoNotLoadALibraryFromBesideTheProgram) {
  std::array<wchar_t, MAX_PATH> program{};
  ASSERT_NE(::GetModuleFileNameW(nullptr, program.data(), MAX_PATH), 0u);
  const std::filesystem::path beside = std::filesystem::path(program.data()).replace_filename(L"varnel-beside.dll");
  std::filesystem::copy_file(std::filesystem::path(SystemDirectory()) / L"version.dll", beside,
                             std::filesystem::copy_options::overwrite_existing);
  const Module module(CurrentHost().messages().LoadLibraryW(L"varnel-beside.dll"));
  EXPECT_FALSE(module);
  std::error_code ignored;
  std::filesystem::remove(beside, ignored);
}

TEST(MachineMessages, HaveTheSystemsTextOfAnErrorCode) {
  LocalText text;
  const DWORD characters = CurrentHost().messages().FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      ERROR_ACCESS_DENIED, 0, text.AsBuffer(), 0, nullptr);
  ASSERT_NE(text.Get(), nullptr);
  EXPECT_GT(characters, 0u);
  EXPECT_EQ(std::wstring(text.Get()).size(), characters);
}

TEST(MachineMessages, HaveNoTextForAnUnknownCode) {
  LocalText text;
  EXPECT_EQ(CurrentHost().messages().FormatMessageW(
                FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                0x2FFFFFFF, 0, text.AsBuffer(), 0, nullptr),
            0u);
  EXPECT_EQ(text.Get(), nullptr);
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_MR_MID_NOT_FOUND));
}

TEST(MachineMessages, HandOutAndTakeBackTheProgramsOwnModule) {
  Module module;
  ASSERT_TRUE(CurrentHost().messages().GetModuleHandleExW(0, nullptr, module.Put()));
  EXPECT_EQ(module.Get(), ::GetModuleHandleW(nullptr));
  std::array<wchar_t, 16> text{};
  EXPECT_EQ(CurrentHost().messages().LoadStringW(module.Get(), 54321, text.data(), 16), 0);
}

TEST(MachineStorage, FindsTheVolumeOfTheSystemDriveAmongAllVolumes) {
  Storage& storage = CurrentHost().storage();
  const std::wstring drive = SystemDirectory().substr(0, 3);
  std::array<wchar_t, MAX_PATH> systemVolume{};
  ASSERT_TRUE(storage.GetVolumeNameForVolumeMountPointW(drive.c_str(), systemVolume.data(), MAX_PATH));
  EXPECT_THAT(std::wstring(systemVolume.data()), StartsWith(L"\\\\?\\Volume{"));

  std::array<wchar_t, MAX_PATH> name{};
  const HANDLE search = storage.FindFirstVolumeW(name.data(), MAX_PATH);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  std::vector<std::wstring> names;
  do {
    names.emplace_back(name.data());
  } while (storage.FindNextVolumeW(search, name.data(), MAX_PATH));
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
  EXPECT_TRUE(storage.FindVolumeClose(search));
  EXPECT_THAT(names, Contains(std::wstring(systemVolume.data())));
}

TEST(MachineStorage, KnowsTheMountPointsOfTheSystemVolume) {
  Storage& storage = CurrentHost().storage();
  const std::wstring drive = SystemDirectory().substr(0, 3);
  std::array<wchar_t, MAX_PATH> volume{};
  ASSERT_TRUE(storage.GetVolumeNameForVolumeMountPointW(drive.c_str(), volume.data(), MAX_PATH));
  std::array<wchar_t, MAX_PATH> names{};
  DWORD needed = 0;
  ASSERT_TRUE(storage.GetVolumePathNamesForVolumeNameW(volume.data(), names.data(), MAX_PATH, &needed));
  EXPECT_TRUE(ascii::EqualIgnoringCase(names.data(), drive));
}

TEST(MachineStorage, OpensAndClosesAFile) {
  const std::wstring file = SystemDirectory() + L"\\kernel32.dll";
  const FileHandle handle(CurrentHost().storage().CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_TRUE(handle);
}

TEST(MachineStorage, ReportsADeviceThatIsNotThere) {
  const FileHandle handle(CurrentHost().storage().CreateFileW(L"\\\\.\\PhysicalDrive9999", 0,
                                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_FALSE(handle);
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(MachineStorage, PassesADeviceQueryOnAndReportsThatAFileHasNoExtents) {
  const FileHandle handle(CurrentHost().storage().CreateFileW((SystemDirectory() + L"\\kernel32.dll").c_str(),
                                                              GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                              FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(handle);
  VOLUME_DISK_EXTENTS extents{};
  DWORD returned = 0;
  EXPECT_FALSE(CurrentHost().storage().DeviceIoControl(handle.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0,
                                                       &extents, sizeof extents, &returned, nullptr));
}

// Wine answers the question for the system volume's disks without one.
TEST(MachineStorage, LetsTheCommonClassesEnumerateTheMachineOrSayWhatCannotBeTold) {
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  TesselCommonClasses::WindowsDiskDevice device;
  try {
    enumerator.GetDiskDeviceForUniqueVolume(L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy9999\\", device);
  } catch (const TesselCommonClasses::ExceptionCommon& error) {
    EXPECT_EQ(error.GetErrorCode(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_THAT(error.what(), StartsWith("The disk of the system volume \\\\?\\Volume{"));
  }
  EXPECT_TRUE(device.serialNumber.empty());
}

TEST(MachineStorage, LetsTheCommonClassesFindTheVolumeOfAPath) {
  std::wstring volume;
  std::wstring mountPoint;
  ASSERT_TRUE(TesselCommonClasses::UtilityClass::GetUniqueVolumeNameForPathNoThrow(SystemDirectory() + L"\\", volume,
                                                                                   mountPoint));
  EXPECT_THAT(volume, StartsWith(L"\\\\?\\Volume{"));
  EXPECT_EQ(mountPoint, SystemDirectory().substr(0, 3));
}

TEST(MachineStorage, LetsTheCommonClassesFindTheVolumeOfALongDirectory) {
  const std::wstring anyLength = L"\\\\?\\";
  std::vector<std::wstring> folders = {SystemDirectory().substr(0, 3) + L"varnel-long\\"};
  for (wchar_t letter = L'a'; letter < L'g'; ++letter) {
    folders.push_back(folders.back() + std::wstring(50, letter) + L"\\");
  }
  for (const std::wstring& made : folders) ::CreateDirectoryW((anyLength + made).c_str(), nullptr);
  const std::wstring& folder = folders.back();
  ASSERT_GT(folder.size(), 300u);
  ASSERT_NE(::GetFileAttributesW((anyLength + folder).c_str()), INVALID_FILE_ATTRIBUTES);
  std::wstring volume;
  std::wstring mountPoint;
  EXPECT_TRUE(TesselCommonClasses::UtilityClass::GetUniqueVolumeNameForPathNoThrow(folder, volume, mountPoint));
  EXPECT_THAT(volume, StartsWith(L"\\\\?\\Volume{"));
  EXPECT_EQ(mountPoint, SystemDirectory().substr(0, 3));
  for (; !folders.empty(); folders.pop_back()) ::RemoveDirectoryW((anyLength + folders.back()).c_str());
}

TEST(MachineProcesses, RunAProgramAndTellItsExitCode) {
  Processes& processes = CurrentHost().processes();
  std::wstring commandLine = L"cmd.exe /c exit 3";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ASSERT_TRUE(processes.CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                                       nullptr, &startup, &process));
  EXPECT_EQ(processes.WaitForSingleObject(process.hProcess, INFINITE), WAIT_OBJECT_0);
  DWORD exitCode = 0;
  EXPECT_TRUE(processes.GetExitCodeProcess(process.hProcess, &exitCode));
  EXPECT_EQ(exitCode, 3u);
  EXPECT_TRUE(processes.CloseHandle(process.hThread));
  EXPECT_TRUE(processes.CloseHandle(process.hProcess));
}

TEST(MachineProcesses, ReportAProgramThatIsNotThere) {
  std::wstring commandLine = L"varnel-no-such-program.exe";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  EXPECT_FALSE(CurrentHost().processes().CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0,
                                                        nullptr, nullptr, &startup, &process));
  EXPECT_EQ(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(MachineProcesses, TellWhereAProgramLies) {
  wchar_t found[MAX_PATH] = L"";
  const DWORD length = CurrentHost().processes().SearchPathW(nullptr, L"cmd.exe", nullptr, MAX_PATH, found, nullptr);
  EXPECT_EQ(length, std::wcslen(found));
  EXPECT_THAT(std::wstring(found), testing::EndsWith(L"\\cmd.exe"));
  EXPECT_EQ(CurrentHost().processes().SearchPathW(nullptr, L"varnel-no-such-program.exe", nullptr, 0, nullptr, nullptr),
            0u);
}

TEST(MachineProcesses, RunACommandOfTheRequestorToItsEnd) {
  test::RecordingLog log;
  const ScopedLog scopedLog(log);

  EXPECT_NO_THROW(CVarnel(0).ExecCommand(L"cmd.exe /c exit 0"));

  EXPECT_EQ(log.All(), (std::vector<std::string>{"I - Executing command = cmd.exe /c exit 0",
                                                 "I Successfully completed execution of command = cmd.exe /c exit 0"}));
}

TEST(MachineProcesses, TellTheRequestorThatItsCommandFailed) {
  test::RecordingLog log;
  const ScopedLog scopedLog(log);

  EXPECT_EQ(test::ThrownLong([] { CVarnel(0).ExecCommand(L"cmd.exe /c exit 1"); }), test::Win32Failure(1));

  EXPECT_EQ(log.Errors(), std::vector<std::string>{"Command Failed, Command=cmd.exe /c exit 1, Error=0x1"});
}

TEST(MachineProcesses, TellTheRequestorThatItsCommandCannotBeStarted) {
  EXPECT_EQ(test::ThrownLong([] { CVarnel(0).ExecCommand(L"varnel-no-such-program.exe /k"); }),
            test::Win32Failure(ERROR_FILE_NOT_FOUND));
}

// A key of this test's own, gone with it.
class TestKey {
 public:
  TestKey() {
    EXPECT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_, nullptr),
              ERROR_SUCCESS);
  }
  TestKey(const TestKey&) = delete;
  TestKey& operator=(const TestKey&) = delete;
  ~TestKey() {
    ::RegCloseKey(key_);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kPath);
  }
  HKEY Get() const { return key_; }
  static constexpr wchar_t kPath[] = L"Software\\VarnelMachineHostTest";

 private:
  HKEY key_ = nullptr;
};

TEST(MachineRegistry, ReadsTextsAndSubKeys) {
  const TestKey testKey;
  constexpr wchar_t kText[] = L"D:\\Exchange";
  ASSERT_EQ(::RegSetKeyValueW(testKey.Get(), L"v15\\Setup", L"MsiInstallPath", REG_SZ, kText, sizeof kText),
            ERROR_SUCCESS);

  Registry& registry = CurrentHost().registry();
  HKEY key = nullptr;
  ASSERT_EQ(registry.RegOpenKeyExW(HKEY_CURRENT_USER, TestKey::kPath, 0, KEY_READ, &key), ERROR_SUCCESS);
  DWORD subKeys = 0;
  EXPECT_EQ(registry.RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(subKeys, 1u);
  std::array<wchar_t, MAX_PATH> name{};
  DWORD characters = MAX_PATH;
  EXPECT_EQ(registry.RegEnumKeyExW(key, 0, name.data(), &characters, nullptr, nullptr, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_STREQ(name.data(), L"v15");
  characters = MAX_PATH;
  EXPECT_EQ(registry.RegEnumKeyExW(key, 1, name.data(), &characters, nullptr, nullptr, nullptr, nullptr),
            ERROR_NO_MORE_ITEMS);
  std::array<wchar_t, MAX_PATH> text{};
  DWORD bytes = sizeof text;
  EXPECT_EQ(registry.RegGetValueW(key, L"v15\\Setup", L"MsiInstallPath", RRF_RT_REG_SZ, nullptr, text.data(), &bytes),
            ERROR_SUCCESS);
  EXPECT_STREQ(text.data(), kText);
  EXPECT_EQ(registry.RegCloseKey(key), ERROR_SUCCESS);
}

// The Exchange key of a registry that consists of the test's key only.
class ExchangeRegistry : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, key_.Get()), ERROR_SUCCESS); }
  void TearDown() override { EXPECT_EQ(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr), ERROR_SUCCESS); }

  void Set(const std::wstring& subKey, DWORD type, const void* data, std::size_t bytes) {
    const std::wstring path = L"SOFTWARE\\Microsoft\\ExchangeServer\\" + subKey;
    ASSERT_EQ(::RegSetKeyValueW(key_.Get(), path.c_str(), L"MsiInstallPath", type, data, static_cast<DWORD>(bytes)),
              ERROR_SUCCESS);
  }
  void SetText(const std::wstring& subKey, const std::wstring& text, DWORD type = REG_SZ) {
    Set(subKey, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  long FindFolder() {
    ExchangeReq requestor(0);
    folder_ = L"left over";
    return RequestorProbe::FindExchangeServerBinFolder(requestor, folder_);
  }

  const TestKey key_;
  std::wstring folder_;
};

TEST_F(ExchangeRegistry, HoldsTheFolderOfTheFirstVersion) {
  SetText(L"AdminTools\\Setup", L"C:\\Tools");
  SetText(L"v14\\Setup", L"C:\\Exchange 2010");
  SetText(L"v15\\Setup", L"C:\\Exchange\\");
  EXPECT_EQ(FindFolder(), 0);
  EXPECT_EQ(folder_, L"C:\\Exchange 2010\\Bin\\");
}

TEST_F(ExchangeRegistry, WithoutTheExchangeKeyIsNotFound) {
  EXPECT_EQ(FindFolder(), test::Win32Failure(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(folder_, L"");
}

TEST_F(ExchangeRegistry, WithoutAVersionIsNotFound) {
  SetText(L"v0\\Setup", L"C:\\Exchange");
  EXPECT_EQ(FindFolder(), test::Win32Failure(774));
}

TEST_F(ExchangeRegistry, HoldsAPathOf259CharactersAndNoLongerOne) {
  const std::wstring path = L"C:\\" + std::wstring(256, L'p');
  SetText(L"v15\\Setup", path);
  EXPECT_EQ(FindFolder(), 0);
  EXPECT_EQ(folder_, path + L"\\Bin\\");
  SetText(L"v15\\Setup", path + L"p");
  EXPECT_EQ(FindFolder(), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(folder_, L"");
}

TEST_F(ExchangeRegistry, HoldsNoPathInAValueThatIsNoText) {
  const DWORD number = 15;
  Set(L"v15\\Setup", REG_DWORD, &number, sizeof number);
  EXPECT_EQ(FindFolder(), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(folder_, L"");
}

TEST_F(ExchangeRegistry, HoldsAPathWithItsVariablesExpanded) {
  ASSERT_TRUE(::SetEnvironmentVariableW(L"VARNEL_TEST_VALUE", L"D:\\Exchange"));
  SetText(L"v15\\Setup", L"%VARNEL_TEST_VALUE%\\15", REG_EXPAND_SZ);
  EXPECT_EQ(FindFolder(), 0);
  EXPECT_EQ(folder_, L"D:\\Exchange\\15\\Bin\\");
}

TEST(MachineRegistry, ReportsAKeyThatIsNotThere) {
  HKEY key = nullptr;
  EXPECT_EQ(CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VarnelNoSuchKey", 0, KEY_READ, &key),
            ERROR_FILE_NOT_FOUND);
}

TEST(MachineIscsi, HasNoSessionsWhereTheInitiatorIsAbsent) {
  if (IsInSystemDirectory(L"iscsidsc.dll")) GTEST_SKIP() << "this machine has the iSCSI initiator";
  ULONG bytes = 0;
  ULONG sessions = 7;
  EXPECT_EQ(CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &sessions, nullptr), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(sessions, 0u);
  iscsi::UniqueSessionId session{};
  ULONG devices = 0;
  EXPECT_EQ(CurrentHost().iscsi().GetDevicesForIScsiSessionW(&session, &devices, nullptr),
            static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
  EXPECT_EQ(CurrentHost().iscsi().LogoutIScsiTarget(&session), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

TEST(MachineCluster, AMachineOutsideAClusterIsNoClusterNode) {
  DWORD state = 99;
  ASSERT_EQ(CurrentHost().cluster().GetNodeClusterState(nullptr, &state), static_cast<DWORD>(ERROR_SUCCESS));
  if (state > 1) GTEST_SKIP() << "this machine is a cluster node";
  EXPECT_FALSE(TesselCommonClasses::ClusterHelper().IsCluster(true));
  EXPECT_FALSE(TesselCommonClasses::ClusterHelper().IsCluster(false));
}

TEST(MachineFileVersions, ReadTheVersionOfASystemLibrary) {
  VS_FIXEDFILEINFO version{};
  ASSERT_TRUE(CurrentHost().files().GetFileVersion((SystemDirectory() + L"\\kernel32.dll").c_str(), &version));
  EXPECT_EQ(version.dwSignature, 0xFEEF04BDu);
  EXPECT_GT(version.dwFileVersionMS, 0u);
}

TEST(MachineFileVersions, ReportAFileThatIsNotThere) {
  VS_FIXEDFILEINFO version{};
  EXPECT_FALSE(CurrentHost().files().GetFileVersion(L"C:\\varnel-no-such-file.exe", &version));
  EXPECT_NE(CurrentHost().GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST(MachineFileVersions, AreComparedByTheCommonClasses) {
  using TesselCommonClasses::Version;
  using TesselCommonClasses::VersionHelper;
  const std::wstring file = SystemDirectory() + L"\\kernel32.dll";
  EXPECT_TRUE(VersionHelper::VerifyFileVersions({{file, Version(0, 0, 0, 1)}}));
  EXPECT_FALSE(VersionHelper::VerifyFileVersions({{file, Version(0xFFFF, 0, 0, 0)}}));
  EXPECT_FALSE(VersionHelper::VerifyFileVersions({{L"C:\\varnel-no-such-file.exe", Version(0, 0, 0, 0)}}));
}

TEST(MachineSystem, IsFitForVirtualMachinesOnlyAsAServer) {
  HyperVReq requestor(0);
  std::string details;
  const DWORD result = requestor.ValidateHostConfiguration(details);
  if (TrueVersion().wProductType == VER_NT_WORKSTATION) {
    EXPECT_EQ(result, 254u);
    EXPECT_EQ(details, "Error, status=UnsupportedOSVersion, rc=ConfigError, ca=CheckHostOSVersion;\n");
  } else {
    EXPECT_EQ(result == 0, IsInSystemDirectory(L"Vmms.exe")) << details;
  }
}

TEST(MachineWmi, NeedsAProcessThatInitialisedCom) {
  std::vector<WmiDisk> disks = {WmiDisk{}};
  EXPECT_EQ(CurrentHost().wmi().QueryDisks(disks), CO_E_NOTINITIALIZED);
  EXPECT_TRUE(disks.empty());
}

TEST(MachineWmi, AnswersWithDisksOrWithAFailureAndNone) {
  ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
  std::vector<WmiDisk> disks = {WmiDisk{}};
  const HRESULT hr = CurrentHost().wmi().QueryDisks(disks);
  ::CoUninitialize();
  if (FAILED(hr)) {
    EXPECT_TRUE(disks.empty());
  } else {
    for (const WmiDisk& disk : disks) EXPECT_LT(disk.number, 10000u);
  }
}

TEST(MachineServices, AnswerOrSayWhyNot) {
  ServiceManager& services = CurrentHost().services();
  const ServiceHandle manager(services.OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  ASSERT_TRUE(manager) << ::GetLastError();
  EXPECT_FALSE(ServiceHandle(services.OpenServiceW(manager.Get(), L"varnel-is-no-service", SERVICE_QUERY_STATUS)));
  EXPECT_EQ(::GetLastError(), DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
  SERVICE_STATUS status{};
  EXPECT_FALSE(services.QueryServiceStatus(nullptr, &status));
  DWORD needed = 0;
  EXPECT_FALSE(services.QueryServiceConfigW(nullptr, nullptr, 0, &needed));
}

TEST(MachineSecurity, KnowsThisProcess) {
  BOOL elevated = -1;
  ASSERT_TRUE(CurrentHost().security().GetTokenElevation(&elevated));
  EXPECT_TRUE(elevated == TRUE || elevated == FALSE);
  BOOL wow64 = -1;
  ASSERT_TRUE(CurrentHost().security().IsWow64Process(&wow64));
  EXPECT_EQ(wow64, FALSE) << "a 64-bit test";
}

TEST(MachineSpace, KnowsTheRoomOfTheSystemDrive) {
  ULARGE_INTEGER size{};
  ULARGE_INTEGER free{};
  const std::wstring drive = SystemDirectory().substr(0, 3);
  ASSERT_TRUE(CurrentHost().space().GetDiskFreeSpaceExW(drive.c_str(), nullptr, &size, &free));
  EXPECT_GE(size.QuadPart, free.QuadPart);
  EXPECT_FALSE(CurrentHost().space().GetDiskFreeSpaceExW(L"?:\\", nullptr, &size, &free));
}

TEST(MachineTime, GoesForwardWhileTheProcessSleeps) {
  Time& time = CurrentHost().time();
  const ULONGLONG before = time.GetTickCount64();
  const auto begin = std::chrono::steady_clock::now();
  time.Sleep(20);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(19));
  // On a busy machine the count comes late.
  for (int tries = 0; tries < 500 && time.GetTickCount64() < before + 20; ++tries) time.Sleep(20);
  EXPECT_GE(time.GetTickCount64(), before + 20);
}

TEST(MachineTime, KnowsTheTimeOfTheSystem) {
  const auto ticks = [](const FILETIME& time) {
    return static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
  };
  FILETIME before{};
  FILETIME told{};
  FILETIME after{};
  ::GetSystemTimeAsFileTime(&before);
  CurrentHost().time().GetSystemTimeAsFileTime(&told);
  ::GetSystemTimeAsFileTime(&after);
  EXPECT_LE(ticks(before), ticks(told));
  EXPECT_LE(ticks(told), ticks(after));
}

TEST(MachineVss, FreesAnEmptyPropertyStructureWithoutTheServicesHelp) {
  VSS_SNAPSHOT_PROP properties{};
  CurrentHost().vss().VssFreeSnapshotProperties(&properties);
  EXPECT_EQ(properties.m_pwszSnapshotDeviceObject, nullptr);
}

TEST(MachineVss, HandsOutAndTakesBackCountedText) {
  const Bstr text(std::wstring_view(L"a\0b", 3));
  EXPECT_EQ(text.View(), std::wstring_view(L"a\0b", 3));
}

TEST(MachineVss, RefusesAnUnknownClass) {
  ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
  constexpr GUID kNoSuchClass = ParseGuid<GUID>("{0f0f0f0f-0000-4000-8000-000000000000}");
  ComPtr<IUnknown> object;
  EXPECT_EQ(CurrentHost().vss().CoCreateInstance(kNoSuchClass, nullptr, CLSCTX_ALL, kIidUnknown,
                                                 reinterpret_cast<void**>(object.Put())),
            REGDB_E_CLASSNOTREG);
  ::CoUninitialize();
}

TEST(MachineMetadata, IsNotAvailableAndSaysSo) {
  std::string databases = "kept";
  std::string error;
  EXPECT_FALSE(CurrentHost().metadata().FindDatabasesToQuiesce("TSL0001", databases, error));
  EXPECT_EQ(databases, "kept");
  EXPECT_THAT(error, HasSubstr("metadata service is not available"));
  EXPECT_THROW(CurrentHost().metadata().GetClusterName("sqlvirt"), std::runtime_error);
}

}  // namespace
}  // namespace varnel
