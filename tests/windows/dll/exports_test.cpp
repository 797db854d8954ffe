// The export table, the version resource and the imports of the built varnel.dll.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "platform/host.h"

namespace varnel {
namespace {

// Reads the loaded image's own tables.
class Image {
 public:
  explicit Image(HMODULE module) : base_(reinterpret_cast<const BYTE*>(module)) {}

  std::vector<std::string> Exports() const {
    const auto* table = At<IMAGE_EXPORT_DIRECTORY>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT));
    const auto* names = At<DWORD>(table->AddressOfNames);
    std::vector<std::string> found;
    for (DWORD i = 0; i < table->NumberOfNames; ++i) found.emplace_back(At<char>(names[i]));
    return found;
  }
  std::set<std::string> ImportedModules() const {
    std::set<std::string> found;
    const auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT));
    for (; entry->Name != 0; ++entry) found.insert(At<char>(entry->Name));
    return found;
  }

 private:
  template <class T>
  const T* At(DWORD address) const {
    return reinterpret_cast<const T*>(base_ + address);
  }
  DWORD Directory(std::size_t index) const {
    const auto offset = static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew);
    return At<IMAGE_NT_HEADERS64>(offset)->OptionalHeader.DataDirectory[index].VirtualAddress;
  }

  const BYTE* base_;
};

// A mangled name belongs to the interface when it names one of its classes or functions.
bool IsInterface(const std::string& name) {
  static constexpr const char* kNames[] = {
      "7CVarnel",          "15VarnelException",     "6SqlReq", "11ExchangeReq", "9HyperVReq", "8CFileLog",
      "15MetadataWrapper", "19TesselCommonClasses", "6varnel",
  };
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [&](const char* part) { return name.find(part) != std::string::npos; });
}

class ExportsTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(module_, nullptr); }
  HMODULE module_ = ::GetModuleHandleW(L"varnel.dll");
};

TEST_F(ExportsTest, OnlyTheInterfaceIsExported) {
  const std::vector<std::string> names = Image(module_).Exports();
  EXPECT_GT(names.size(), 50u);
  for (const std::string& name : names) {
    EXPECT_TRUE(IsInterface(name)) << name;
    // Nothing of the standard library that was merely compiled in.
    EXPECT_NE(name.rfind("_ZNSt", 0), 0u) << name;
    EXPECT_NE(name.rfind("_ZSt", 0), 0u) << name;
  }
}

TEST_F(ExportsTest, TheRuntimeIsSharedWithTheCallers) {
  const std::set<std::string> modules = Image(module_).ImportedModules();
  EXPECT_TRUE(modules.contains("libstdc++-6.dll"));
  EXPECT_TRUE(modules.contains("libgcc_s_seh-1.dll"));
  EXPECT_EQ(modules.count("vssapi.dll"), 0u) << "a host without the service must still load the library";
}

// The system takes these from its own directory whatever lies beside the program (its list of known libraries);
// everything else that the library needs of the system it loads by its path there.
TEST_F(ExportsTest, NothingBesideTheProgramComesBeforeALibraryOfTheSystem) {
  const std::set<std::string> safe = {"advapi32.dll", "kernel32.dll", "msvcrt.dll",
                                      "ole32.dll",    "oleaut32.dll", "user32.dll"};
  const std::set<std::string> runtime = {"libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll"};
  for (std::string name : Image(module_).ImportedModules()) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    EXPECT_TRUE(safe.contains(name) || runtime.contains(name)) << name;
  }
}

TEST_F(ExportsTest, TheVersionResourceTellsTheProjectsVersion) {
  wchar_t path[MAX_PATH] = {};
  ASSERT_NE(::GetModuleFileNameW(module_, path, MAX_PATH), 0u);
  VS_FIXEDFILEINFO version{};
  ASSERT_TRUE(MachineHost()->files().GetFileVersion(path, &version));
  const std::string text = std::to_string(version.dwFileVersionMS >> 16) + "." +
                           std::to_string(version.dwFileVersionMS & 0xFFFF) + "." +
                           std::to_string(version.dwFileVersionLS >> 16);
  EXPECT_EQ(text, VARNEL_VERSION);
  EXPECT_EQ(version.dwFileType, 2u);  // a DLL
}

}  // namespace
}  // namespace varnel
