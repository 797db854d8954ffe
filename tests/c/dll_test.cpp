// The product's varnel-c.dll, loaded as a program of another compiler loads it: on this machine, without a simulated
// host. And the catalog of a module that has the library in itself, which this program is with the DLL's own answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "c/varnel-c.h"
#include "core/varnel.h"
#include "platform/com_security.h"
#include "platform/host.h"
#include "resources/catalog.h"
#include "text/unicode.h"

namespace varnel {
namespace {

class CDll : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(module_, nullptr) << "error " << ::GetLastError(); }
  void TearDown() override {
    if (module_ != nullptr) ::FreeLibrary(module_);
  }

  template <class Function>
  Function* Find(const char* name) const {
    const FARPROC address = ::GetProcAddress(module_, name);
    EXPECT_NE(address, nullptr) << name;
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(address));
  }
  std::string Load(int id) const {
    wchar_t text[1024] = {};
    const int length = ::LoadStringW(module_, static_cast<UINT>(id), text, 1024);
    return WideToUtf8(std::wstring(text, static_cast<std::size_t>(length)));
  }

  HMODULE module_ = ::LoadLibraryW(L"varnel-c.dll");
};
#define DLL(function) Find<decltype(function)>(#function)

TEST_F(CDll, TellsItsVersion) {
  EXPECT_STREQ(DLL(varnel_version_text)(), VARNEL_VERSION);
  EXPECT_EQ(DLL(varnel_interface)(), VARNEL_C_INTERFACE);
}

TEST_F(CDll, HasTheMessagesOfTheLibrary) {
  for (const CatalogEntry& entry : Catalog()) EXPECT_EQ(Load(entry.id), WideToUtf8(entry.text)) << entry.id;
}

TEST_F(CDll, WhatThisMachineDoesNotDoIsACode) {
  varnel_request* request = nullptr;
  ASSERT_EQ(DLL(varnel_request_create)(nullptr, &request), VARNEL_DONE);
  const int code = DLL(varnel_request_initialize)(request);
  varnel_outcome outcome = {};
  outcome.size = sizeof outcome;
  ASSERT_EQ(DLL(varnel_request_get_outcome)(request, &outcome), VARNEL_DONE);
  EXPECT_EQ(outcome.code, code);
  EXPECT_EQ(code == VARNEL_DONE, *outcome.message == '\0');
  EXPECT_EQ(DLL(varnel_request_complete)(request, outcome.backup_status), VARNEL_DONE);
  EXPECT_EQ(DLL(varnel_request_free)(request), VARNEL_DONE);
  EXPECT_EQ(DLL(varnel_request_free)(request), VARNEL_BAD_HANDLE);
}

TEST_F(CDll, SecurityThatSomebodyElseHasSetIsTooLate) {
  ASSERT_GE(::CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
  ASSERT_EQ(SetComSecurity(*MachineHost()), S_OK);
  const HRESULT again = SetComSecurity(*MachineHost());  // Wine takes it again and again
  int hresult = -1;
  const int code = DLL(varnel_initialize_com)(&hresult);
  EXPECT_EQ(hresult, again);
  EXPECT_EQ(code, again == RPC_E_TOO_LATE ? VARNEL_COM_TOO_LATE : VARNEL_DONE);
  EXPECT_EQ(DLL(varnel_uninitialize_com)(), VARNEL_DONE);
  EXPECT_EQ(DLL(varnel_uninitialize_com)(), VARNEL_BAD_ORDER) << "that of the program is its own";
  ::CoUninitialize();
}

TEST(CatalogInThisModule, IsFoundWhateverTheModulesName) {
  HMODULE module = nullptr;
  ASSERT_TRUE(MachineHost()->messages().GetModuleHandleExW(0, L"varnel", &module));
  EXPECT_EQ(module, ::GetModuleHandleW(nullptr));
  std::wstring text;
  CVarnel(0).GetErrorString(static_cast<long>(VSS_E_WRITERERROR_PARTIAL_FAILURE), text);
  EXPECT_THAT(WideToUtf8(text), testing::StartsWith("The writer experienced a partial failure."));
}

}  // namespace
}  // namespace varnel
