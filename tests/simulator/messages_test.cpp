// Message tables, modules and string tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/owners.h"
#include "tests/simulator/fixture.h"

namespace varnel::simulator {
namespace {

using test::HostFixture;

class MessagesTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.messages = {{5, L"Access is denied.\r\n"}, {0x80004005, L"Unspecified error\r\n"}, {7, L"100%% %1"}};
    model.vssMessages = {{{0x80042301, L"bad state%n"}}};
    Install(model);
  }
  Messages& messages() { return host().messages(); }
  std::wstring Allocated(DWORD flags, DWORD id, HMODULE module = nullptr) {
    LocalText text;
    const DWORD length =
        messages().FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | flags, module, id, 0, text.AsBuffer(), 0, nullptr);
    EXPECT_EQ(host().live().Count("LocalAlloc"), length == 0 ? 0 : 1);
    return text.Get() == nullptr ? L"" : text.Get();
  }
};

TEST_F(MessagesTest, SystemMessagesComeInAnAllocatedBuffer) {
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 0x80004005), L"Unspecified error\r\n");
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 0x80070005), L"Access is denied.\r\n");
  EXPECT_THAT(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 99), FailsWith(ERROR_MR_MID_NOT_FOUND));
}

TEST_F(MessagesTest, InsertsWithoutArgumentsAreAnErrorUnlessIgnored) {
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, 7), L"100%% %1");
  EXPECT_THAT(Allocated(FORMAT_MESSAGE_FROM_SYSTEM, 7), FailsWith(ERROR_INVALID_PARAMETER));
}

TEST_F(MessagesTest, TheVssMessageTableIsSearchedFirstWhileItsModuleIsLoaded) {
  {
    const Module module(messages().LoadLibraryW(L"VssTrace.dll"));
    ASSERT_TRUE(module);
    EXPECT_EQ(host().live().Describe(), "1 module");
    const DWORD flags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM;
    EXPECT_EQ(Allocated(flags, 0x80042301, module.Get()), L"bad state\r\n");
    EXPECT_EQ(Allocated(flags, 5, module.Get()), L"Access is denied.\r\n");
    EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_HMODULE, 5, module.Get()), L"");
  }
  EXPECT_EQ(Allocated(FORMAT_MESSAGE_FROM_HMODULE, 0x80042301), L"");
  EXPECT_THAT(messages().LoadLibraryW(L"other.dll"), FailsWith(ERROR_MOD_NOT_FOUND));
}

TEST_F(MessagesTest, WithoutATableTheVssModuleDoesNotExist) {
  Install(test::SmallHost());
  EXPECT_THAT(messages().LoadLibraryW(L"vsstrace.dll"), FailsWith(ERROR_MOD_NOT_FOUND));
}

TEST_F(MessagesTest, ACallersBufferMustHoldTheText) {
  std::array<wchar_t, 20> text{};
  EXPECT_THAT(messages().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text.data(), 19, nullptr),
              FailsWith(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(messages().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text.data(), 20, nullptr), 19u);
  EXPECT_STREQ(text.data(), L"Access is denied.\r\n");
}

TEST_F(MessagesTest, TheStringTableOfTheLibraryIsLoadedByItsName) {
  Module module;
  EXPECT_THAT(messages().GetModuleHandleExW(0, L"other", module.Put()), FailsWith(ERROR_MOD_NOT_FOUND));
  ASSERT_EQ(messages().GetModuleHandleExW(0, L"varnel", module.Put()), TRUE);
  std::array<wchar_t, 1024> text{};
  EXPECT_GT(messages().LoadStringW(module.Get(), 126, text.data(), 1024), 0);
  EXPECT_STREQ(text.data(), L"VSS writer is not present on the host.");
  EXPECT_EQ(messages().LoadStringW(module.Get(), 126, text.data(), 4), 3);
  EXPECT_STREQ(text.data(), L"VSS");
  EXPECT_THAT(messages().LoadStringW(module.Get(), 1, text.data(), 1024), FailsWith(ERROR_RESOURCE_NAME_NOT_FOUND));
  EXPECT_THAT(messages().LoadStringW(nullptr, 126, text.data(), 1024), FailsWith(ERROR_RESOURCE_DATA_NOT_FOUND));
}

}  // namespace
}  // namespace varnel::simulator
