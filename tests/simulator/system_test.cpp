// Names, environment and version of the machine, and its processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

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

}  // namespace
}  // namespace varnel::simulator
