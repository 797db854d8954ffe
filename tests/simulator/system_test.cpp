// Names, environment and version of the machine, and its processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cwchar>

#include "tests/simulator/fixture.h"

namespace varnel::simulator {
namespace {

using test::HostFixture;
using testing::ElementsAre;

using SystemTest = HostFixture;

TEST_F(SystemTest, TheComputerNameNeedsRoomForItsEnd) {
  std::array<wchar_t, 8> name{};
  DWORD size = 4;
  EXPECT_THAT(host().system().GetComputerNameW(name.data(), &size), FailsWith(ERROR_BUFFER_OVERFLOW));
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(host().system().GetComputerNameW(name.data(), &size), TRUE);
  EXPECT_EQ(size, 4u);
  EXPECT_STREQ(name.data(), L"HOST");
}

TEST_F(SystemTest, TheComputerNameIsTheHostsInEveryFormat) {
  std::array<wchar_t, 8> name{};
  DWORD size = 4;
  EXPECT_THAT(host().system().GetComputerNameExW(ComputerNamePhysicalDnsHostname, name.data(), &size),
              FailsWith(ERROR_MORE_DATA));
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(host().system().GetComputerNameExW(ComputerNamePhysicalDnsHostname, name.data(), &size), TRUE);
  EXPECT_EQ(size, 4u);
  EXPECT_STREQ(name.data(), L"HOST");
}

TEST_F(SystemTest, TheDomainIsTheNameOfThatFormat) {
  std::array<wchar_t, 16> name{};
  DWORD size = name.size();
  EXPECT_EQ(host().system().GetComputerNameExW(ComputerNameDnsDomain, name.data(), &size), TRUE);
  EXPECT_EQ(size, 0u);
  model().domain = L"corp.example";
  size = name.size();
  EXPECT_EQ(host().system().GetComputerNameExW(ComputerNameDnsDomain, name.data(), &size), TRUE);
  EXPECT_EQ(size, 12u);
  EXPECT_STREQ(name.data(), L"corp.example");
}

TEST_F(SystemTest, TheSystemDirectoryTellsTheRoomItNeeds) {
  std::array<wchar_t, MAX_PATH> directory{};
  EXPECT_EQ(host().system().GetSystemDirectoryW(directory.data(), 5), 20u);
  EXPECT_EQ(host().system().GetSystemDirectoryW(directory.data(), MAX_PATH), 19u);
  EXPECT_STREQ(directory.data(), L"C:\\Windows\\system32");
}

TEST_F(SystemTest, ExpandsKnownNamesInAnyCaseAndLeavesOthers) {
  HostModel model = test::SmallHost();
  model.environment = {{L"Data", L"E:\\data"}, {L"ProgramData", L"P:\\"}};
  model.systemDirectory = L"D:\\WinNT\\system32";
  Install(model);
  const auto expand = [&](const wchar_t* text) {
    std::array<wchar_t, MAX_PATH> target{};
    const DWORD needed = host().system().ExpandEnvironmentStringsW(text, target.data(), MAX_PATH);
    EXPECT_EQ(needed, std::wcslen(target.data()) + 1);
    return std::wstring(target.data());
  };
  EXPECT_EQ(expand(L"%data%\\a%DATA%"), L"E:\\data\\aE:\\data");
  EXPECT_EQ(expand(L"%systemroot%|%WinDir%|%SystemDrive%|%ProgramData%"), L"D:\\WinNT|D:\\WinNT|D:|P:\\");
  EXPECT_EQ(expand(L"%nosuch%\\x"), L"%nosuch%\\x");
  EXPECT_EQ(expand(L"%nosuch%data%"), L"%nosuchE:\\data");
  EXPECT_EQ(expand(L"50% of %"), L"50% of %");
  EXPECT_EQ(expand(L""), L"");
  std::array<wchar_t, 4> small{};
  EXPECT_EQ(host().system().ExpandEnvironmentStringsW(L"%Data%", small.data(), 4), 8u);
}

class VersionTest : public HostFixture {
 protected:
  // Whether the host's version is at least this one, in the way of the version helper functions.
  bool IsAtLeast(DWORD major, DWORD minor, WORD servicePack) {
    OSVERSIONINFOEXW wanted{};
    wanted.dwOSVersionInfoSize = sizeof wanted;
    wanted.dwMajorVersion = major;
    wanted.dwMinorVersion = minor;
    wanted.wServicePackMajor = servicePack;
    ULONGLONG mask = 0;
    for (const DWORD type : {DWORD{VER_MAJORVERSION}, DWORD{VER_MINORVERSION}, DWORD{VER_SERVICEPACKMAJOR}}) {
      mask = host().system().VerSetConditionMask(mask, type, VER_GREATER_EQUAL);
    }
    return host().system().VerifyVersionInfoW(&wanted, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR,
                                              mask) != FALSE;
  }
  bool IsWorkstation() {
    OSVERSIONINFOEXW wanted{};
    wanted.wProductType = VER_NT_WORKSTATION;
    const ULONGLONG mask = host().system().VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
    return host().system().VerifyVersionInfoW(&wanted, VER_PRODUCT_TYPE, mask) != FALSE;
  }
};

TEST_F(VersionTest, VersionsCompareFromTheMostSignificantPart) {
  EXPECT_TRUE(IsAtLeast(6, 3, 0));
  EXPECT_TRUE(IsAtLeast(6, 3, 9));
  EXPECT_TRUE(IsAtLeast(10, 0, 0));
  EXPECT_FALSE(IsAtLeast(10, 0, 1));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_OLD_WIN_VERSION});
  EXPECT_FALSE(IsAtLeast(10, 1, 0));
  EXPECT_FALSE(IsAtLeast(11, 0, 0));
}

TEST_F(VersionTest, TheProductTypeIsComparedOnItsOwn) {
  EXPECT_FALSE(IsWorkstation());
  HostModel model = test::SmallHost();
  model.os.server = false;
  Install(model);
  EXPECT_TRUE(IsWorkstation());
}

TEST_F(VersionTest, TheConditionMaskHasTheLayoutOfWindows) {
  SystemInformation& system = host().system();
  EXPECT_EQ(system.VerSetConditionMask(0, VER_MINORVERSION, VER_GREATER_EQUAL), 3u);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL), 3u << 3);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_BUILDNUMBER, VER_EQUAL), 1u << 6);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_SERVICEPACKMINOR, VER_LESS), 4u << 12);
  EXPECT_EQ(system.VerSetConditionMask(1, VER_SERVICEPACKMAJOR, VER_GREATER), (2u << 15) | 1u);
  EXPECT_EQ(system.VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL), 1u << 21);
}

TEST_F(VersionTest, ATestWithoutConditionsIsABadArgument) {
  OSVERSIONINFOEXW wanted{};
  EXPECT_THAT(host().system().VerifyVersionInfoW(&wanted, VER_MAJORVERSION, 0), FailsWith(160));
  EXPECT_THAT(host().system().VerifyVersionInfoW(&wanted, 0, 1), FailsWith(160));
}

class ProcessesTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.commands = {{L"eseutil.exe /k *", 0}, {L"eseutil.exe *", 1}};
    Install(model);
  }
  BOOL Start(std::wstring command) {
    STARTUPINFOW startup{};
    return host().processes().CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                             &startup, &process);
  }
  // Waits for the process, closes its handles and tells its exit code.
  DWORD Finish() {
    DWORD code = 99;
    EXPECT_EQ(host().processes().WaitForSingleObject(process.hProcess, INFINITE), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(host().processes().GetExitCodeProcess(process.hProcess, &code), TRUE);
    EXPECT_EQ(host().processes().CloseHandle(process.hThread), TRUE);
    EXPECT_EQ(host().processes().CloseHandle(process.hProcess), TRUE);
    return code;
  }
  PROCESS_INFORMATION process{};
};

TEST_F(ProcessesTest, TheFirstCommandThatMatchesRuns) {
  ASSERT_EQ(Start(L"ESEUTIL.EXE /k \"E:\\MDB1\""), TRUE);
  EXPECT_EQ(host().live().Describe(), "1 process handle, 1 thread handle");
  EXPECT_EQ(Finish(), 0u);
  ASSERT_EQ(Start(L"eseutil.exe /p x"), TRUE);
  EXPECT_EQ(Finish(), 1u);
  EXPECT_THAT(host().calls().Of("CreateProcessW"),
              ElementsAre("CreateProcessW(ESEUTIL.EXE /k \"E:\\MDB1\") = ok", "CreateProcessW(eseutil.exe /p x) = ok"));
}

TEST_F(ProcessesTest, ACommandThatMatchesNothingIsNotFound) {
  EXPECT_THAT(Start(L"notepad.exe"), FailsWith(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(host().processes().WaitForSingleObject(nullptr, 0), DWORD{WAIT_FAILED});
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(ProcessesTest, AProgramInAFolderIsFoundThroughPathAndByItsFullPathOnly) {
  host().model().commands = {{L"eseutil.exe /k *", 3, L"C:\\Exchange\\Bin"}};
  EXPECT_THAT(Start(L"eseutil.exe /k a"), FailsWith(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(Start(L"\"C:\\Bin\\eseutil.exe\" /k a"), FailsWith(ERROR_FILE_NOT_FOUND));
  ASSERT_EQ(Start(L"\"C:\\Exchange\\Bin\\eseutil.exe\" /k a"), TRUE);
  EXPECT_EQ(Finish(), 3u);
  ASSERT_EQ(Start(L"c:\\exchange\\bin\\ESEUTIL.EXE /k a"), TRUE);
  EXPECT_EQ(Finish(), 3u);

  host().model().environment[L"Path"] = L"C:\\Tools;;c:\\exchange\\BIN\\";
  ASSERT_EQ(Start(L"eseutil.exe /k a"), TRUE);
  EXPECT_EQ(Finish(), 3u);
  EXPECT_THAT(Start(L"eseutil.exe /p a"), FailsWith(ERROR_FILE_NOT_FOUND));
}

TEST_F(ProcessesTest, TheCurrentDirectoryIsSearchedFirstAndPathLast) {
  host().model().commands = {{L"tool.exe*", 1, L"C:\\Path"},
                             {L"tool.exe*", 2, L"C:\\Windows"},
                             {L"tool.exe*", 3, L"C:\\Windows\\system32"},
                             {L"tool.exe*", 4, L"C:\\Current"}};
  host().model().environment[L"PATH"] = L"C:\\Path";
  host().model().currentDirectory = L"C:\\Current";
  for (const DWORD exitCode : {4u, 3u, 2u, 1u}) {
    ASSERT_EQ(Start(L"tool.exe"), TRUE);
    EXPECT_EQ(Finish(), exitCode);
    host().model().commands.pop_back();
  }
  EXPECT_THAT(Start(L"tool.exe"), FailsWith(ERROR_FILE_NOT_FOUND));
}

TEST_F(ProcessesTest, ASearchTellsWhereAProgramLies) {
  host().model().commands = {{L"tool.exe *", 0, L"C:\\Path"}, {L"\"C:\\Other\\other.exe\" *"}, {L"everywhere.exe *"}};
  host().model().environment[L"PATH"] = L"C:\\Other;C:\\Path";
  const auto search = [&](LPCWSTR path, LPCWSTR file) {
    wchar_t found[MAX_PATH] = L"";
    const DWORD length = host().processes().SearchPathW(path, file, nullptr, MAX_PATH, found, nullptr);
    EXPECT_EQ(length, std::wcslen(found));
    return std::wstring(found);
  };
  EXPECT_EQ(search(nullptr, L"TOOL.exe"), L"C:\\Path\\TOOL.exe");
  EXPECT_EQ(search(nullptr, L"other.exe"), L"C:\\Other\\other.exe");
  EXPECT_EQ(search(nullptr, L"everywhere.exe"), L"C:\\everywhere.exe") << "in the current directory already";
  EXPECT_EQ(search(L"C:\\Other", L"tool.exe"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(host().processes().SearchPathW(nullptr, L"tool.exe", nullptr, 0, nullptr, nullptr), 17u) << "with the NUL";
}

class EnvironmentTest : public HostFixture {
 protected:
  std::wstring Value(LPCWSTR name) {
    wchar_t value[MAX_PATH] = L"";
    const DWORD length = host().system().GetEnvironmentVariableW(name, value, MAX_PATH);
    EXPECT_EQ(length, std::wcslen(value));
    return value;
  }
};

TEST_F(EnvironmentTest, AVariableIsSetReadAndTakenAway) {
  SystemInformation& system = host().system();
  EXPECT_THAT(BOOL(system.GetEnvironmentVariableW(L"Tool", nullptr, 0)), FailsWith(ERROR_ENVVAR_NOT_FOUND));
  EXPECT_EQ(system.SetEnvironmentVariableW(L"Tool", L"one"), TRUE);
  EXPECT_EQ(system.SetEnvironmentVariableW(L"TOOL", L"three"), TRUE);
  EXPECT_EQ(Value(L"tool"), L"three");
  EXPECT_EQ(system.GetEnvironmentVariableW(L"tool", nullptr, 0), 6u) << "with the NUL";
  wchar_t expanded[MAX_PATH] = L"";
  system.ExpandEnvironmentStringsW(L"%tool%", expanded, MAX_PATH);
  EXPECT_STREQ(expanded, L"three");

  EXPECT_EQ(system.SetEnvironmentVariableW(L"tool", L""), TRUE);
  EXPECT_EQ(system.GetEnvironmentVariableW(L"tool", nullptr, 0), 1u) << "empty, but there";
  EXPECT_EQ(system.SetEnvironmentVariableW(L"tool", nullptr), TRUE);
  EXPECT_EQ(Value(L"tool"), L"");
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
  EXPECT_THAT(system.SetEnvironmentVariableW(L"", L"x"), FailsWith(ERROR_INVALID_PARAMETER));
}

TEST_F(EnvironmentTest, TheUsualVariablesAreThere) {
  EXPECT_EQ(Value(L"windir"), L"C:\\Windows");
}

TEST_F(EnvironmentTest, TheCurrentDirectoryIsTheOneThatWasSet) {
  SystemInformation& system = host().system();
  wchar_t directory[MAX_PATH] = L"";
  EXPECT_EQ(system.GetCurrentDirectoryW(MAX_PATH, directory), 3u);
  EXPECT_STREQ(directory, L"C:\\");
  EXPECT_EQ(system.SetCurrentDirectoryW(L"D:\\work"), TRUE);
  EXPECT_EQ(system.GetCurrentDirectoryW(2, directory), 8u) << "with the NUL";
  EXPECT_EQ(system.GetCurrentDirectoryW(MAX_PATH, directory), 7u);
  EXPECT_STREQ(directory, L"D:\\work");
  EXPECT_THAT(system.SetCurrentDirectoryW(L""), FailsWith(ERROR_INVALID_PARAMETER));
}

}  // namespace
}  // namespace varnel::simulator
