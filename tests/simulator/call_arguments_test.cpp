// Arguments that the call log's lines leave out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/owners.h"
#include "tests/support/host_fixture.h"

namespace varnel::simulator {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CallArgumentsTest : public test::HostFixture {
 protected:
  const CallArguments& arguments() { return host().calls().arguments(); }
};

TEST_F(CallArgumentsTest, TellHowAFileIsOpenedWhetherItSucceedsOrNot) {
  Storage& storage = host().storage();
  host().faults().FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
  const FileHandle open(storage.CreateFileW(L"\\\\.\\PhysicalDrive1", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  storage.CreateFileW(L"\\\\.\\PhysicalDrive2", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, 2, 0x20000000, nullptr);
  storage.CreateFileW(nullptr, 0, 0, nullptr, 0, 0, nullptr);
  ASSERT_THAT(arguments().createFile, SizeIs(3));
  const CallArguments::CreateFile& first = arguments().createFile[0];
  EXPECT_EQ(first.name, L"\\\\.\\PhysicalDrive1");
  EXPECT_EQ(first.access, DWORD{GENERIC_READ | GENERIC_WRITE});
  EXPECT_EQ(first.share, DWORD{FILE_SHARE_READ});
  EXPECT_EQ(first.disposition, DWORD{OPEN_EXISTING});
  EXPECT_EQ(first.flags, DWORD{FILE_ATTRIBUTE_NORMAL});
  const CallArguments::CreateFile& refused = arguments().createFile[1];
  EXPECT_EQ(refused.name, L"\\\\.\\PhysicalDrive2");
  EXPECT_EQ(refused.access, 0u);
  EXPECT_EQ(refused.share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
  EXPECT_EQ(refused.disposition, 2u);
  EXPECT_EQ(refused.flags, 0x20000000u);
  EXPECT_EQ(arguments().createFile[2].name, L"");
}

TEST_F(CallArgumentsTest, TellTheRoomForADevicesAnswer) {
  std::array<char, 64> out{};
  DWORD returned = 0;
  for (const DWORD room : {64u, 12u}) {
    host().storage().DeviceIoControl(INVALID_HANDLE_VALUE, IOCTL_DISK_IS_CLUSTERED, nullptr, 0, out.data(), room,
                                     &returned, nullptr);
  }
  ASSERT_THAT(arguments().deviceIoControl, SizeIs(2));
  EXPECT_EQ(arguments().deviceIoControl[0].code, DWORD{IOCTL_DISK_IS_CLUSTERED});
  EXPECT_EQ(arguments().deviceIoControl[0].outBytes, 64u);
  EXPECT_EQ(arguments().deviceIoControl[1].outBytes, 12u);
}

TEST_F(CallArgumentsTest, TellWhichObjectIsCreatedAndWhere) {
  ComPtr<IUnknown> object;
  host().vss().CoCreateInstance(kClsidVssCoordinator, nullptr, CLSCTX_ALL, kIidVssAdmin,
                                reinterpret_cast<void**>(object.Put()));
  host().vss().CoCreateInstance(kIidVssAsync, nullptr, 4, kIidUnknown, nullptr);
  ASSERT_THAT(arguments().coCreateInstance, SizeIs(2));
  EXPECT_EQ(arguments().coCreateInstance[0].classId, kClsidVssCoordinator);
  EXPECT_EQ(arguments().coCreateInstance[0].context, DWORD{CLSCTX_ALL});
  EXPECT_EQ(arguments().coCreateInstance[0].interfaceId, kIidVssAdmin);
  EXPECT_EQ(arguments().coCreateInstance[1].classId, kIidVssAsync);
  EXPECT_EQ(arguments().coCreateInstance[1].context, 4u);
  EXPECT_EQ(arguments().coCreateInstance[1].interfaceId, kIidUnknown);
}

TEST_F(CallArgumentsTest, TellHowAMessageIsAskedFor) {
  std::array<wchar_t, 8> text{};
  host().messages().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0x409, text.data(), 8, nullptr);
  ASSERT_THAT(arguments().formatMessage, SizeIs(1));
  EXPECT_EQ(arguments().formatMessage[0].id, 5u);
  EXPECT_EQ(arguments().formatMessage[0].flags, DWORD{FORMAT_MESSAGE_FROM_SYSTEM});
  EXPECT_EQ(arguments().formatMessage[0].language, 0x409u);
  EXPECT_EQ(arguments().formatMessage[0].characters, 8u);
}

TEST_F(CallArgumentsTest, AreKeptWithTheLinesOnlyAndLeaveThemAsTheyAre) {
  const auto open = [&] { host().storage().CreateFileW(L"\\\\.\\PhysicalDrive7", 1, 2, nullptr, 3, 4, nullptr); };
  open();
  EXPECT_THAT(host().calls().lines(), ElementsAre("CreateFileW(\\\\.\\PhysicalDrive7) = error 2"));
  host().calls().Clear();
  EXPECT_THAT(arguments().createFile, IsEmpty());
  host().calls().enabled = false;
  open();
  host().calls().enabled = true;
  host().calls().SendTo([](const std::string&) {});
  open();
  EXPECT_THAT(arguments().createFile, IsEmpty());
}

}  // namespace
}  // namespace varnel::simulator
