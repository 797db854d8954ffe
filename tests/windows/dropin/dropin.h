// The drop-in libraries as a requestor meets them. Every test has copies of its own, in a folder of its own, and so a
// machine of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/host.h"
#include "platform/vss.h"
#include "simulator/dropin/process_host.h"
#include "simulator/simulated_host.h"
#include "tests/support/golden.h"

namespace varnel::test {

/// Null when `module` does not export it.
template <class Function>
Function* EntryPoint(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(::GetProcAddress(module, name)));
}

inline std::filesystem::path FileOf(HMODULE module) {
  std::array<wchar_t, 1024> name{};
  EXPECT_NE(::GetModuleFileNameW(module, name.data(), static_cast<DWORD>(name.size())), 0u);
  return name.data();
}

/// vssapi.dll, by the names that a requestor links against.
class ServiceLibrary {
 public:
  using CreateFunction = HRESULT STDAPICALLTYPE(IVssBackupComponents**);
  using FreeFunction = void STDAPICALLTYPE(VSS_SNAPSHOT_PROP*);
  using ClassFunction = HRESULT STDAPICALLTYPE(REFCLSID, REFIID, void**);

  explicit ServiceLibrary(const std::filesystem::path& file) : module_(::LoadLibraryW(file.c_str())) {
    EXPECT_NE(module_, nullptr) << file << ": error " << ::GetLastError();
  }
  HMODULE module() const { return module_; }

  HRESULT Create(IVssBackupComponents** backup) const {
    return EntryPoint<CreateFunction>(module_, "CreateVssBackupComponentsInternal")(backup);
  }
  void Free(VSS_SNAPSHOT_PROP* properties) const {
    EntryPoint<FreeFunction>(module_, "VssFreeSnapshotPropertiesInternal")(properties);
  }
  HRESULT GetClassObject(REFCLSID classId, REFIID id, void** object) const {
    return EntryPoint<ClassFunction>(module_, "DllGetClassObject")(classId, id, object);
  }
  /// The machine behind the library. Library and test are of one build, so they see it alike.
  simulator::SimulatedHost& host() const {
    Host* host = nullptr;
    EXPECT_EQ(EntryPoint<simulator::HostExport>(module_, simulator::kHostExport)(&host), S_OK);
    return *static_cast<simulator::SimulatedHost*>(host);
  }

 private:
  HMODULE module_;
};

/// iscsidsc.dll, by its exports.
class InitiatorLibrary final : public IscsiInitiator {
 public:
  explicit InitiatorLibrary(const std::filesystem::path& file) : module_(::LoadLibraryW(file.c_str())) {
    EXPECT_NE(module_, nullptr) << file << ": error " << ::GetLastError();
  }
  HMODULE module() const { return module_; }

  DWORD GetIScsiSessionListW(ULONG* bytes, ULONG* sessions, iscsi::SessionInfo* list) override {
    using Function = DWORD WINAPI(ULONG*, ULONG*, iscsi::SessionInfo*);
    return EntryPoint<Function>(module_, "GetIScsiSessionListW")(bytes, sessions, list);
  }
  DWORD GetDevicesForIScsiSessionW(iscsi::UniqueSessionId* session, ULONG* devices,
                                   iscsi::DeviceOnSession* list) override {
    using Function = DWORD WINAPI(iscsi::UniqueSessionId*, ULONG*, iscsi::DeviceOnSession*);
    return EntryPoint<Function>(module_, "GetDevicesForIScsiSessionW")(session, devices, list);
  }
  DWORD LogoutIScsiTarget(iscsi::UniqueSessionId* session) override {
    using Function = DWORD WINAPI(iscsi::UniqueSessionId*);
    return EntryPoint<Function>(module_, "LogoutIScsiTarget")(session);
  }

 private:
  HMODULE module_;
};

class DropInFixture : public testing::Test {
 protected:
  void SetUp() override {
    static int folders = 0;
    folder_ = ProgramFolder() / L"scratch" / std::to_wstring(folders++);
    std::filesystem::remove_all(folder_);  // of an earlier run
    std::filesystem::create_directories(folder_);
    for (const wchar_t* library : {L"vssapi.dll", L"iscsidsc.dll"}) {
      std::filesystem::copy_file(ProgramFolder() / library, folder_ / library);
    }
    WriteHostFile(HostText());
    ::SetEnvironmentVariableW(simulator::kHostVariable, HostFile().c_str());
    ::SetEnvironmentVariableW(simulator::kCallsVariable, CallsFile().c_str());
  }
  void TearDown() override {
    ::SetEnvironmentVariableW(simulator::kHostVariable, nullptr);
    ::SetEnvironmentVariableW(simulator::kCallsVariable, nullptr);
    ::SetEnvironmentVariableW(simulator::kStateVariable, nullptr);
  }

  static std::filesystem::path ProgramFolder() { return FileOf(nullptr).parent_path(); }
  static std::string HostText() { return ReadText(VARNEL_DROPIN_HOST); }
  /// The same host with something else in a place, or with these faults.
  static std::string HostTextWith(const std::string& replacement, const std::string& place) {
    std::string text = HostText();
    return text.replace(text.find(place), place.size(), replacement);
  }
  static std::string WithFaults(const std::string& faults) {
    return HostTextWith("\"faults\": [" + faults + "]", "\"faults\": []");
  }
  std::filesystem::path ServiceFile() const { return folder_ / L"vssapi.dll"; }
  std::filesystem::path InitiatorFile() const { return folder_ / L"iscsidsc.dll"; }
  std::filesystem::path HostFile() const { return folder_ / L"host.json"; }
  std::filesystem::path StateFile() const { return folder_ / L"host.state"; }
  /// More copies of the library: a machine of its own, as another process has it.
  std::filesystem::path OtherServiceFile() const {
    std::filesystem::create_directory(folder_ / L"other");
    std::filesystem::copy_file(ServiceFile(), folder_ / L"other" / L"vssapi.dll");
    return folder_ / L"other" / L"vssapi.dll";
  }
  std::filesystem::path CallsFile() const { return folder_ / L"calls.txt"; }
  void WriteHostFile(const std::string& text) const { std::ofstream(HostFile(), std::ios::binary) << text; }
  /// The call log as it stands on the disk.
  std::vector<std::string> Calls() const { return LinesOf(ReadText(CallsFile())); }

 private:
  std::filesystem::path folder_;
};

}  // namespace varnel::test
