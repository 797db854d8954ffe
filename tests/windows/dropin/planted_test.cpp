// The product in a folder that holds libraries of the names that it loads at run time. It loads none of them.
#include "tests/windows/dropin/dropin.h"

#include "platform/owners.h"
#include "text/ascii_case.h"

namespace varnel::test {
namespace {

// Not version.dll, which parts of Wine itself look for beside the program.
constexpr const wchar_t* kNames[] = {L"vssapi.dll", L"iscsidsc.dll", L"clusapi.dll", L"resutils.dll", L"vsstrace.dll"};

std::filesystem::path Planted(const wchar_t* name) {
  return FileOf(nullptr).replace_filename(name);
}

std::wstring SystemFile(const wchar_t* name) {
  std::array<wchar_t, MAX_PATH> directory{};
  EXPECT_NE(::GetSystemDirectoryW(directory.data(), MAX_PATH), 0u);
  return ascii::ToLower((std::filesystem::path(directory.data()) / name).wstring());
}

// Every question whose answer comes from a library that is loaded for it.
void AskEverything() {
  IVssBackupComponents* backup = nullptr;
  CurrentHost().vss().CreateVssBackupComponents(&backup);
  EXPECT_EQ(backup, nullptr) << "the planted service made an object";
  ULONG bytes = 0;
  ULONG sessions = 0;
  CurrentHost().iscsi().GetIScsiSessionListW(&bytes, &sessions, nullptr);
  EXPECT_EQ(sessions, 0u) << "the planted initiator has sessions";
  DWORD state = 0;
  EXPECT_EQ(CurrentHost().cluster().GetNodeClusterState(nullptr, &state), DWORD{ERROR_SUCCESS});
  CurrentHost().cluster().ClusterIsPathOnSharedVolume(L"C:\\");
  const Module trace(CurrentHost().messages().LoadLibraryW(L"vsstrace.dll"));
}

class PlantedLibraries : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(&CurrentHost(), MachineHost());
    ::SetEnvironmentVariableW(simulator::kHostVariable, std::filesystem::path(VARNEL_DROPIN_HOST).c_str());
  }
  void TearDown() override { ::SetEnvironmentVariableW(simulator::kHostVariable, nullptr); }
};

TEST_F(PlantedLibraries, AreNotLoaded) {
  for (const wchar_t* name : kNames) ASSERT_TRUE(std::filesystem::exists(Planted(name))) << Planted(name);
  AskEverything();
  for (const wchar_t* name : kNames) EXPECT_EQ(::GetModuleHandleW(Planted(name).c_str()), nullptr) << Planted(name);
  for (const wchar_t* name : {L"vssapi.dll", L"clusapi.dll", L"resutils.dll"}) {
    const HMODULE loaded = ::GetModuleHandleW(SystemFile(name).c_str());
    ASSERT_NE(loaded, nullptr) << name;
    EXPECT_EQ(ascii::ToLower(FileOf(loaded).wstring()), SystemFile(name));
  }
}

// By its name alone the system hands out any library of that name that the process has.
TEST_F(PlantedLibraries, AreNotTakenForTheSystemsWhenTheProcessHasLoadedThem) {
  for (const wchar_t* name : kNames) {
    const HMODULE planted = ::LoadLibraryW(Planted(name).c_str());
    ASSERT_NE(planted, nullptr) << name;
    const Module module(CurrentHost().messages().LoadLibraryW(name));
    EXPECT_NE(module.Get(), planted) << name;
    EXPECT_EQ(static_cast<bool>(module), std::filesystem::exists(SystemFile(name))) << name;
    ::FreeLibrary(planted);
  }
}

TEST_F(PlantedLibraries, AreNotReachedByAPathForAName) {
  const std::wstring path = Planted(L"iscsidsc.dll").wstring();
  for (const std::wstring& name : {path, std::wstring(L"..\\iscsidsc.dll"), std::wstring(MAX_PATH, L'a')}) {
    const Module module(CurrentHost().messages().LoadLibraryW(name.c_str()));
    EXPECT_FALSE(module) << path;
    EXPECT_EQ(CurrentHost().GetLastError(), DWORD{ERROR_INVALID_NAME});
  }
}

}  // namespace
}  // namespace varnel::test
