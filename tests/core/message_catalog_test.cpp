// The texts of the message catalog.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>

#include "resources/catalog.h"
#include "tests/support/foreign_text.h"
#include "tests/support/forwarding_host.h"
#include "tests/support/request_fixture.h"

namespace {
// Lets requests for blocks as large as the catalog's buffer fail that may fail without an exception.
bool failLargeBlocks = false;
}  // namespace

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  constexpr std::size_t kLargeBlock = 65536 * sizeof(wchar_t);
  if (failLargeBlocks && bytes >= kLargeBlock) return nullptr;
  try {
    return ::operator new[](bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace varnel::test {
namespace {

// Text outside the basic plane, and text that no one-byte locale has.

struct CatalogText {
  int id;
  const wchar_t* text;
};

constexpr CatalogText kCatalogTexts[] = {
    {102,
     L"The shadow copy provider timed out while holding writes to the volume being shadow copied. This is probably due "
     L"to excessive time taken to create snapshot. Try again later when activity on the volume is reduced. If the "
     L"problem persists, contact Tessel Support."},
    {103,
     L"The shadow copy provider encountered an error. Check the System and Application event logs on the application "
     L"server for more information."},
    {104,
     L"An expected hidden volume was not made available to the system by the shadow copy provider. Check the "
     L"Application event log on the application server for more information."},
    {105,
     L"An expected hidden volume was not made available to the system by the shadow copy provider. Check the "
     L"Application event log on the application server for more information."},
    {106,
     L"Incorrect shadow copy writer selection for given volume collection. Check your volume collection and select "
     L"appropriate shadow copy writer."},
    {107, L"%s failed to freeze the I/O operations. "},
    {108,
     L"%s has failed the Identify event. Check the Application event log on the application server for more "
     L"information. "},
    {109,
     L"%s has failed to prepare for backup. Check the Application event log on the application server for more "
     L"information. "},
    {110,
     L"%s has failed to prepare for snapshot. Check the Application event log on the application server for more "
     L"information. "},
    {111,
     L"%s has failed during thaw event. Check the Application event log on the application server for more "
     L"information. "},
    {112,
     L"Number of disks added in the snapshot set were different than listed in the protection set. This can happen due "
     L"to incorrect configuration or application objects in incorrect state. Check the protection set configuration "
     L"and ensure that objects being backed up are in correct state."},
    {113,
     L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
     L"protection set configuration."},
    {114,
     L"Protection set does not contain any application components for backup. Make sure that all the files to be "
     L"backed up reside on volumes in the protection set."},
    {115, L"%s has failed during post snapshot event. "},
    {116, L"%s has failed during backup complete event. "},
    {117, L"%s has failed during pre-restore event. "},
    {118, L"%s has failed during post-restore event. "},
    {119, L"%s failed during the shutdown of backup application. "},
    {120, L"%s failed with unknown error. "},
    {121, L" Application error code: 0x%x, Application error message: %s \n"},
    {122, L"Failed component: %s, Error: 0x%x, Application error code: 0x%x, Application error message: %s \n"},
    {123, L"\n Volumes in volume collection: %s \n Volumes containing application components eligible for backup: %s"},
    {124,
     L"Component %s needs to be in the protection set as parent %s is included. Make sure volumes affected by %s are "
     L"included in volume collection."},
    {125, L"Failed application components: %s \n"},
    {126, L"VSS writer is not present on the host."},
    {127,
     L"The writer experienced a partial failure. Check the application event log on the application server to "
     L"determine application objects for which VSS synchronization failed."},
    {128, L"Extra volumes found in the volume collection. "},
    {129, L"Extra volumes in the volume collection : %s"},
    {250, L"Combining cluster shared volumes (CSVs) and non-CSVs in same volume collection is not supported."},
    {251,
     L"One or more volumes in volume collection are clustered but not configured as CSV. Hyper-V VSS snapshot for "
     L"non-CSV clustered volume is not supported."},
    {252,
     L"An error occurred while validating volumes in volume collection. Please refer to logs on the host for more "
     L"details."},
    {253, L"Combining cluster and non-cluster Windows volumes in same volume collection is not supported."},
    {254, L"Version of operating system running on the host is not supported by this feature."},
    {255, L"Host is missing some of the hotfixes required for using this feature."},
};

const wchar_t* CatalogTextOf(int id) {
  for (const CatalogText& entry : kCatalogTexts) {
    if (entry.id == id) return entry.text;
  }
  return L"";
}

// `text` with each "%s" replaced in turn; those of a value stay.
std::wstring Filled(std::wstring text, const std::vector<std::wstring>& values) {
  std::size_t at = 0;
  for (const std::wstring& value : values) {
    at = text.find(L"%s", at);
    if (at == std::wstring::npos) break;
    text.replace(at, 2, value);
    at += value.size();
  }
  return text;
}

class CatalogTest : public HostFixture {
 protected:
  CVarnel requestor_{0};
  RequestorProbe probe_{requestor_};
  std::wstring text_ = L"old";
};

TEST_F(CatalogTest, HoldsTheseTextsAndNoOthers) {
  const auto catalog = Catalog();
  ASSERT_THAT(catalog, SizeIs(std::size(kCatalogTexts)));
  for (std::size_t i = 0; i < catalog.size(); ++i) {
    EXPECT_EQ(catalog[i].id, kCatalogTexts[i].id);
    EXPECT_EQ(std::wstring(catalog[i].text), kCatalogTexts[i].text) << catalog[i].id;
  }
}

TEST_F(CatalogTest, EveryIdIsLoadedAndFormatted) {
  const std::wstring one = L"SQL writer";
  const std::wstring two = L"\\a\\" + kForeign;
  const std::wstring three = L"100%s %n";
  for (const CatalogText& entry : kCatalogTexts) {
    if (entry.id == 121 || entry.id == 122) continue;  // they take numbers
    EXPECT_EQ(probe_.GetErrorMessageFromCatalog(entry.id, text_, one, two, three), ERROR_SUCCESS) << entry.id;
    EXPECT_EQ(text_, Filled(entry.text, {one, two, three})) << entry.id;
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(CatalogTest, NumbersAreFormattedIn32BitHexadecimal) {
  probe_.GetErrorMessageFromCatalog(121, text_, static_cast<HRESULT>(0x80040E14), L"log full");
  EXPECT_EQ(text_, L" Application error code: 0x80040e14, Application error message: log full \n");
  probe_.GetErrorMessageFromCatalog(122, text_, L"\\db", VSS_E_WRITERERROR_RETRYABLE, 0, std::wstring());
  EXPECT_EQ(text_,
            L"Failed component: \\db, Error: 0x800423f3, Application error code: 0x0, Application error message:  \n");
}

TEST_F(CatalogTest, AMissingArgumentLeavesNothing) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(124, text_, L"\\a"), ERROR_SUCCESS);
  EXPECT_EQ(text_, Filled(CatalogTextOf(124), {L"\\a", L"", L""}));
}

TEST_F(CatalogTest, TwoIdsHoldTheTextOfTheHiddenVolume) {
  std::wstring other;
  probe_.GetErrorMessageFromCatalog(104, text_);
  probe_.GetErrorMessageFromCatalog(105, other);
  EXPECT_EQ(text_, other);
  EXPECT_THAT(text_, StartsWith(L"An expected hidden volume was not made available"));
}

TEST_F(CatalogTest, LineBreaksStandWhereTheTextsHaveThem) {
  for (const int id : {121, 122, 125}) {
    const std::wstring text = CatalogTextOf(id);
    EXPECT_EQ(text.find(L'\n'), text.size() - 1) << id;
  }
  probe_.GetErrorMessageFromCatalog(125, text_, L"\\db");
  EXPECT_EQ(text_, L"Failed application components: \\db \n");
  probe_.GetErrorMessageFromCatalog(123, text_, L"a, b", L"a");
  EXPECT_EQ(text_,
            L"\n Volumes in volume collection: a, b \n Volumes containing application components eligible for "
            L"backup: a");
}

TEST_F(CatalogTest, IsReachedByTheModulesName) {
  host().calls().Clear();
  probe_.GetErrorMessageFromCatalog(126, text_);
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("GetModuleHandleExW(varnel) = ok", "LoadStringW(126) = ok", "FreeLibrary() = ok"));
}

TEST_F(CatalogTest, AnUnknownIdIsLoggedAndReturnsTheError) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(999, text_, L"a"), ERROR_RESOURCE_NAME_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E LoadString() Failed, StringID=999, Error = 1814"));
  EXPECT_EQ(log.lines.front().source, "varnel");
  for (const int id : {0, 101, 130, 249, 256, -1}) {
    EXPECT_NE(probe_.GetErrorMessageFromCatalog(id, text_), ERROR_SUCCESS) << id;
    EXPECT_EQ(text_, L"");
  }
}

TEST_F(CatalogTest, AMissingModuleIsLoggedAndReturnsTheError) {
  FailCall("GetModuleHandleExW", ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E GetModuleHandleEx() Failed, Resource=varnel, Error=126"));
  EXPECT_THAT(Calls("LoadStringW"), IsEmpty());
}

TEST_F(CatalogTest, AFailedReadIsLoggedAndReturnsTheError) {
  FailCall("LoadStringW", ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(text_, L"");
  EXPECT_THAT(log.All(), ElementsAre("E LoadString() Failed, StringID=126, Error = 1812"));
}

TEST_F(CatalogTest, AFailureWithoutAnErrorCodeCountsAsAGeneralOne) {
  FailCall("GetModuleHandleExW", 0);
  FailCall("LoadStringW", 0);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_GEN_FAILURE);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_GEN_FAILURE);
  EXPECT_THAT(log.All(), ElementsAre("E GetModuleHandleEx() Failed, Resource=varnel, Error=31",
                                     "E LoadString() Failed, StringID=126, Error = 31"));
}

TEST_F(CatalogTest, AModuleThatCannotBeReleasedDoesNotSpoilTheText) {
  FailCall("FreeLibrary", ERROR_INVALID_HANDLE);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_SUCCESS);
  EXPECT_EQ(text_, L"VSS writer is not present on the host.");
}

TEST_F(CatalogTest, TheBufferIsMadeOnFirstUseAndKept) {
  EXPECT_EQ(probe_.messageBuffer(), nullptr);
  probe_.GetErrorMessageFromCatalog(126, text_);
  const wchar_t* const buffer = probe_.messageBuffer().get();
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::wstring(buffer), text_);
  probe_.GetErrorMessageFromCatalog(128, text_);
  EXPECT_EQ(probe_.messageBuffer().get(), buffer);
}

TEST_F(CatalogTest, TheBufferIsZeroedBeforeEachUse) {
  probe_.GetErrorMessageFromCatalog(107, text_, std::wstring(5000, L'x'));
  probe_.GetErrorMessageFromCatalog(999, text_);
  const wchar_t* const buffer = probe_.messageBuffer().get();
  EXPECT_TRUE(std::all_of(buffer, buffer + 65536, [](wchar_t c) { return c == L'\0'; }));
}

TEST_F(CatalogTest, TheBufferCutsAText) {
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(107, text_, std::wstring(70000, L'x')), ERROR_SUCCESS);
  EXPECT_EQ(text_, std::wstring(65535, L'x'));
  const std::wstring name(65535 - 38, L'x');
  probe_.GetErrorMessageFromCatalog(107, text_, name);
  EXPECT_EQ(text_.substr(name.size()), std::wstring(L" failed to freeze the I/O operations. ").substr(0, 38));
}

// A string table that has a long text under every number.
class LongTexts final : public ForwardingMessages {
 public:
  using ForwardingMessages::ForwardingMessages;
  int LoadStringW(HMODULE, UINT, LPWSTR text, int characters) override {
    EXPECT_EQ(characters, 1024);
    std::fill_n(text, characters - 1, L't');
    text[characters - 1] = L'\0';
    return characters - 1;
  }
};

TEST_F(CatalogTest, ATextOfTheModuleIsCutAt1023Characters) {
  LongTexts texts(host().messages());
  const CurrentHostWith current(host(), texts);
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_SUCCESS);
  EXPECT_EQ(text_, std::wstring(1023, L't'));
}

TEST_F(CatalogTest, WithoutMemoryForTheBufferThereIsNoText) {
  failLargeBlocks = true;
  const DWORD code = probe_.GetErrorMessageFromCatalog(126, text_);
  failLargeBlocks = false;
  EXPECT_EQ(code, DWORD{ERROR_NOT_ENOUGH_MEMORY});
  EXPECT_EQ(text_, L"");
  EXPECT_EQ(probe_.messageBuffer(), nullptr);
  EXPECT_THAT(log.All(), ElementsAre("E Memory allocation failed, Function=GetErrorMessageFromCatalog"));
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_EQ(probe_.GetErrorMessageFromCatalog(126, text_), ERROR_SUCCESS);
  EXPECT_EQ(text_, L"VSS writer is not present on the host.");
}

}  // namespace
}  // namespace varnel::test
