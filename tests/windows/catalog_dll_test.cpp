// The string table of the built varnel.dll against the portable table: both come from one list and must stay one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "core/varnel.h"
#include "platform/host.h"
#include "resources/catalog.h"
#include "tests/support/requestor_probe.h"

namespace varnel {
namespace {

class CatalogDllTest : public testing::Test {
 protected:
  void SetUp() override {
    module_ = ::LoadLibraryW(L"varnel.dll");
    ASSERT_NE(module_, nullptr) << "error " << ::GetLastError();
  }
  void TearDown() override {
    if (module_ != nullptr) ::FreeLibrary(module_);
  }

  std::wstring Load(UINT id) const {
    wchar_t text[1024] = {};
    const int length = ::LoadStringW(module_, id, text, 1024);
    return std::wstring(text, static_cast<std::size_t>(length));
  }

  HMODULE module_ = nullptr;
};

TEST_F(CatalogDllTest, EveryStringOfTheDllEqualsThePortableTableAndThereIsNoOther) {
  constexpr UINT kHighestId = 1000;
  std::map<UINT, std::wstring> portable;
  for (const CatalogEntry& entry : Catalog()) portable[static_cast<UINT>(entry.id)] = entry.text;
  EXPECT_EQ(portable.size(), 34u);
  for (UINT id = 0; id <= kHighestId; ++id) EXPECT_EQ(Load(id), portable[id]) << "id " << id;
}

TEST_F(CatalogDllTest, TheRequestorFindsItsMessagesByTheModulesName) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  std::wstring text;
  EXPECT_EQ(probe.GetErrorMessageFromCatalog(121, text, HRESULT{0x1f}, L"log full"), 0u);
  EXPECT_EQ(text, L" Application error code: 0x1f, Application error message: log full \n");
}

TEST_F(CatalogDllTest, AMessageThatTheTableLacksLeavesTheTextEmpty) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  std::wstring text = L"before";
  EXPECT_NE(probe.GetErrorMessageFromCatalog(101, text), 0u);
  EXPECT_EQ(text, L"");
}

}  // namespace
}  // namespace varnel
