// Disks by serial number, and the comparison of the protection set with the disks that the application uses.

#include <cstddef>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "tests/support/forwarding_host.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using Serials = std::vector<std::wstring>;

const std::string kExtraVolumesRecord =
    "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =1 , ExtraVolumes =2, rc=ConfigWarning, "
    "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections";
const std::wstring kMessage112 =
    L"Number of disks added in the snapshot set were different than listed in the protection set. This can happen due "
    L"to incorrect configuration or application objects in incorrect state. Check the protection set configuration and "
    L"ensure that objects being backed up are in correct state.";

// What a device answers to the question for its descriptor.
struct Descriptor {
  std::vector<char> bytes;
  DWORD returned = 0;
  void SetSerialNumberOffset(DWORD offset) {
    std::memcpy(bytes.data() + offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), &offset, sizeof offset);
  }
};

// Drive 1 answers with an edited descriptor.
class OddStorage final : public ForwardingStorage {
 public:
  OddStorage(Storage& inner, std::function<void(Descriptor&)> edit)
      : ForwardingStorage(inner), edit_(std::move(edit)) {}
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    edits_ = std::wstring(name).ends_with(L'1');
    return ForwardingStorage::CreateFileW(name, access, share, security, disposition, flags, templateFile);
  }
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    const BOOL answered =
        ForwardingStorage::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
    if (!edits_) return answered;
    auto* bytes = static_cast<char*>(out);
    Descriptor descriptor{std::vector<char>(bytes, bytes + outBytes), *returned};
    edit_(descriptor);
    std::memcpy(out, descriptor.bytes.data(), outBytes);
    *returned = descriptor.returned;
    return answered;
  }

 private:
  std::function<void(Descriptor&)> edit_;
  bool edits_ = false;
};

class DriveScan : public HostFixture {
 protected:
  /// The serial numbers that a scan finds.
  Serials Scan() {
    SnapshotRequest request;
    request.probe.GetAllSystemDisks();
    return request.probe.systemDisks();
  }
  Serials ScanWith(std::function<void(Descriptor&)> edit) {
    OddStorage odd(host().storage(), std::move(edit));
    const CurrentHostWith current(host(), odd);
    return Scan();
  }
};

TEST_F(DriveScan, ListsTheSerialNumberOfEveryDriveInOrder) {
  EXPECT_EQ(Scan(), (Serials{L"SYS", L"TSL0001", L"TSL0002"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I \\\\.\\PhysicalDrive0, Serial # is SYS", "I \\\\.\\PhysicalDrive1, Serial # is TSL0001",
                          "I \\\\.\\PhysicalDrive2, Serial # is TSL0002"));
}

TEST_F(DriveScan, AsksEveryDriveOnceAndClosesIt) {
  Scan();
  EXPECT_THAT(host().calls().lines(),
              ElementsAre("CreateFileW(\\\\.\\PhysicalDrive0) = ok",
                          "DeviceIoControl(\\\\.\\PhysicalDrive0, IOCTL_STORAGE_QUERY_PROPERTY) = ok",
                          "CloseHandle(\\\\.\\PhysicalDrive0) = ok", "CreateFileW(\\\\.\\PhysicalDrive1) = ok",
                          "DeviceIoControl(\\\\.\\PhysicalDrive1, IOCTL_STORAGE_QUERY_PROPERTY) = ok",
                          "CloseHandle(\\\\.\\PhysicalDrive1) = ok", "CreateFileW(\\\\.\\PhysicalDrive2) = ok",
                          "DeviceIoControl(\\\\.\\PhysicalDrive2, IOCTL_STORAGE_QUERY_PROPERTY) = ok",
                          "CloseHandle(\\\\.\\PhysicalDrive2) = ok", "CreateFileW(\\\\.\\PhysicalDrive3) = error 2"));
}

TEST_F(DriveScan, EndsAtTheFirstMissingDriveNumber) {
  model().disks[2].number = 3;
  EXPECT_EQ(Scan(), (Serials{L"SYS", L"TSL0001"}));
  EXPECT_THAT(Calls("CreateFileW"), SizeIs(3));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(DriveScan, WithoutAnyDriveFindsNothing) {
  model().disks.clear();
  EXPECT_THAT(Scan(), IsEmpty());
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(DriveScan, LeavesADriveWithoutASerialNumberOutAndGoesOn) {
  model().disks[1].reportsSerial = false;
  EXPECT_EQ(Scan(), (Serials{L"SYS", L"TSL0002"}));
  EXPECT_THAT(log.Warnings(), ElementsAre("Serial number is not present for the disk  \\\\.\\PhysicalDrive1"));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

// A descriptor with `text` at byte 100, cut so many bytes after that, that says where its serial number is.
std::function<void(Descriptor&)> Answer(const std::string& text, std::size_t cutAfter, DWORD offset = 100) {
  return [=](Descriptor& descriptor) {
    constexpr std::size_t kText = 100;
    if (descriptor.returned <= sizeof(DWORD)) return;  // no descriptor
    descriptor.SetSerialNumberOffset(offset);
    std::copy(text.begin(), text.end(), descriptor.bytes.begin() + kText);
    descriptor.returned = static_cast<DWORD>(kText + cutAfter);
  };
}
std::function<void(Descriptor&)> Answer(const std::string& text) {
  return Answer(text + '\0', text.size() + 1);
}

// What the drive scan reads of a device, and what the volumes on it are told to lie on.
TEST_F(DriveScan, AgreesWithTheEnumeratorOnEverySerialNumber) {
  const std::pair<std::function<void(Descriptor&)>, Serials> devices[] = {
      {Answer("TSL9"), {L"TSL9"}},
      {Answer("  TSL 9 "), {L"  TSL 9 "}},
      {Answer("    "), {L"    "}},
      {Answer(std::string(511, 'S')), {std::wstring(511, L'S')}},
      {Answer(std::string(512, 'S')), {}},
      {Answer(""), {}},
      {Answer("\xE4"), {L"\u00E4"}},
      {Answer("TSL9", 4), {}},  // without its NUL
      {Answer("TSL9", 0), {}},  // outside the returned bytes
      {Answer("TSL9", 5, 0xFFFFFFFF), {}},
      {Answer("TSL9", 5, 0xFFFFFFFE), {}},
  };
  for (const auto& [edit, expected] : devices) {
    SCOPED_TRACE(&edit - &devices[0].first);
    OddStorage odd(host().storage(), edit);
    const CurrentHostWith current(host(), odd);
    Serials scanned = Scan();
    std::erase(scanned, L"SYS");
    std::erase(scanned, L"TSL0002");
    EXPECT_EQ(scanned, expected);
    SnapshotRequest request;
    std::wstring disk;
    std::wstring serial;
    const DWORD code = request.probe.GetDiskSerialNumberForVolume(VolumeName(1), disk, serial);
    EXPECT_EQ(code, expected.empty() ? ERROR_INVALID_NAME : ERROR_SUCCESS);
    EXPECT_EQ(serial, expected.empty() ? L"" : expected.front());
  }
}

TEST_F(DriveScan, AddsToTheListOfAnEarlierScan) {
  SnapshotRequest request;
  request.probe.GetAllSystemDisks();
  request.probe.GetAllSystemDisks();
  EXPECT_EQ(request.probe.systemDisks(), (Serials{L"SYS", L"TSL0001", L"TSL0002", L"SYS", L"TSL0001", L"TSL0002"}));
}

TEST_F(DriveScan, ADriveThatCannotBeOpenedThrowsItsCodeAndKeepsWhatWasFound) {
  FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
  SnapshotRequest request;
  EXPECT_EQ(ThrownLong([&] { request.probe.GetAllSystemDisks(); }), Win32Failure(ERROR_ACCESS_DENIED));
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: Win32 call L\"GetSerialNoForDisk\" failed.", "- GetLastError() == 5",
                                        "- Error text: Error: 0x80070005"));
  EXPECT_EQ(request.probe.systemDisks(), (Serials{L"SYS"}));
}

TEST_F(DriveScan, AFailureIsLoggedWithTheSystemsTextForIt) {
  model().messages = {{0x80070005, L"Access is denied.\r\n"}};
  FailCall("CreateFileW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ThrownLong([&] { Scan(); }), Win32Failure(ERROR_ACCESS_DENIED));
  EXPECT_EQ(log.Errors().back(), "- Error text: Access is denied.\r\n");
}

TEST_F(DriveScan, ADriveThatDoesNotAnswerThrowsItsCodeAndIsClosed) {
  constexpr DWORD kIoDevice = 1117;
  FailCall("DeviceIoControl", kIoDevice, 3);
  EXPECT_EQ(ThrownLong([&] { Scan(); }), Win32Failure(kIoDevice));
  EXPECT_THAT(log.Errors(), ElementsAre("DeviceIoControl() Failed, IOCTL=IOCTL_STORAGE_QUERY_PROPERTY, Error=1117",
                                        "ERROR: Win32 call L\"GetSerialNoForDisk\" failed.", "- GetLastError() == 1117",
                                        "- Error text: Error: 0x8007045d"));
  EXPECT_THAT(host().calls().lines(), Contains("CloseHandle(\\\\.\\PhysicalDrive2) = ok"));
}

TEST_F(DriveScan, ADriveThatVanishesBeforeItAnswersEndsTheScan) {
  FailCall("DeviceIoControl", ERROR_FILE_NOT_FOUND, 2);
  EXPECT_EQ(Scan(), (Serials{L"SYS"}));
  EXPECT_THAT(log.Errors(), ElementsAre("DeviceIoControl() Failed, IOCTL=IOCTL_STORAGE_QUERY_PROPERTY, Error=2"));
}

TEST_F(DriveScan, AFailureWithoutACodeCountsAsAGeneralFailure) {
  FailCall("CreateFileW", ERROR_SUCCESS);
  EXPECT_EQ(ThrownLong([&] { Scan(); }), Win32Failure(ERROR_GEN_FAILURE));
  EXPECT_THAT(log.Errors(), Contains("- GetLastError() == 31"));
}

TEST_F(DriveScan, TakesASerialNumberAsItStandsUpTo511Characters) {
  for (const std::wstring& serial : {std::wstring(L"  TSL0001 "), std::wstring(L"tsl0001X"), std::wstring(511, L'7')}) {
    model().disks[1].serial = serial;
    EXPECT_EQ(Scan(), (Serials{L"SYS", serial, L"TSL0002"}));
  }
}

TEST_F(DriveScan, SkipsADriveWhoseSerialNumberIsEmptyOrHas512Characters) {
  for (const std::size_t length : {0u, 512u}) {
    log.lines.clear();
    model().disks[1].serial = std::wstring(length, L'7');
    EXPECT_EQ(Scan(), (Serials{L"SYS", L"TSL0002"}));
    EXPECT_THAT(log.Errors(), ElementsAre("Failed to convert serial # into wchar"));
  }
}

TEST_F(DriveScan, SkipsADriveWhoseSerialNumberDoesNotLieAndEndWithinTheReturnedBytes) {
  const std::function<void(Descriptor&)> edits[] = {
      [](Descriptor& descriptor) { descriptor.SetSerialNumberOffset(descriptor.returned); },
      [](Descriptor& descriptor) { descriptor.SetSerialNumberOffset(0xFFFFFFFE); },
      [](Descriptor& descriptor) { --descriptor.returned; },
  };
  for (const std::function<void(Descriptor&)>& edit : edits) {
    log.lines.clear();
    EXPECT_EQ(ScanWith(edit), (Serials{L"SYS", L"TSL0002"}));
    EXPECT_THAT(log.Errors(), ElementsAre("Failed to convert serial # into wchar"));
  }
}

TEST_F(DriveScan, BelievesADriveThatClaimsMoreBytesThanTheBufferHoldsNoFurtherThanTheBuffer) {
  const Serials found = ScanWith([](Descriptor& descriptor) {
    descriptor.bytes.back() = 'x';
    descriptor.SetSerialNumberOffset(static_cast<DWORD>(descriptor.bytes.size()) - 1);
    descriptor.returned = static_cast<DWORD>(descriptor.bytes.size()) + 100;
  });
  EXPECT_EQ(found, (Serials{L"SYS", L"TSL0002"}));
}

TEST_F(DriveScan, ReadsASerialNumberAtOffset0LikeAnyOther) {
  const Serials found = ScanWith([](Descriptor& descriptor) {
    std::memcpy(descriptor.bytes.data(), "AB", 3);
    descriptor.SetSerialNumberOffset(0);
  });
  EXPECT_EQ(found, (Serials{L"SYS", L"AB", L"TSL0002"}));
}

// How drives are opened and asked.
class WatchedStorage final : public ForwardingStorage {
 public:
  using ForwardingStorage::ForwardingStorage;
  HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, void* security, DWORD disposition, DWORD flags,
                     HANDLE templateFile) override {
    EXPECT_EQ(access, DWORD{GENERIC_READ} | DWORD{GENERIC_WRITE});
    EXPECT_EQ(share, DWORD{FILE_SHARE_READ});
    EXPECT_EQ(security, nullptr);
    EXPECT_EQ(disposition, DWORD{OPEN_EXISTING});
    EXPECT_EQ(flags, DWORD{FILE_ATTRIBUTE_NORMAL});
    EXPECT_EQ(templateFile, nullptr);
    ++opened;
    return ForwardingStorage::CreateFileW(name, access, share, security, disposition, flags, templateFile);
  }
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    EXPECT_EQ(code, DWORD{IOCTL_STORAGE_QUERY_PROPERTY});
    EXPECT_EQ(inBytes, 12u);
    EXPECT_EQ(outBytes, 4096u);
    EXPECT_EQ(overlapped, nullptr);
    const auto* bytes = static_cast<const char*>(out);
    EXPECT_TRUE(std::all_of(bytes, bytes + outBytes, [](char c) { return c == 0; })) << "zero beforehand";
    ++asked;
    return ForwardingStorage::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
  }
  int opened = 0;
  int asked = 0;
};

TEST_F(DriveScan, OpensDrivesForReadingAndWritingAndAsksWithOneFullBuffer) {
  WatchedStorage watched(host().storage());
  const CurrentHostWith current(host(), watched);
  EXPECT_THAT(Scan(), SizeIs(3));
  EXPECT_EQ(watched.opened, 4);
  EXPECT_EQ(watched.asked, 3);
}

class SystemDisks : public HostFixture {};

TEST_F(SystemDisks, WmiListsTheArraysDisksInItsOrder) {
  std::string details = "before";
  EXPECT_EQ(CVarnel::GetAllSystemDisksEx(details), (Serials{L"TSL0001", L"TSL0002"}));
  EXPECT_EQ(details, "before");
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(SystemDisks, WithoutADiskOfTheArrayTheListIsEmptyAndOneErrorIsLogged) {
  model().disks.resize(1);
  std::string details;
  EXPECT_THAT(CVarnel::GetAllSystemDisksEx(details), IsEmpty());
  EXPECT_THAT(log.All(), ElementsAre("E UNEXPECTED: No tessel disks enumerated by MSFT_Disk class!"));
  EXPECT_EQ(details, "");
}

TEST_F(SystemDisks, AFailingWmiQueryPassesToTheCaller) {
  FailCall("IWbemServices::ExecQuery", E_FAIL);
  std::string details;
  EXPECT_THROW(CVarnel::GetAllSystemDisksEx(details), TesselCommonClasses::ExceptionCommon);
}

TEST_F(SystemDisks, NoDiskIsPresentBeforeTheDrivesWereScannedWhateverWmiFinds) {
  SnapshotRequest request;
  EXPECT_FALSE(request.requestor.IsDiskPresentInSystem(L"TSL0001", request.details()));
  EXPECT_THAT(Calls("IWbemServices::ExecQuery"), SizeIs(1));
  EXPECT_THAT(request.probe.systemDisks(), IsEmpty());
}

TEST_F(SystemDisks, EveryQuestionBeforeTheScanAsksWmiAgain) {
  SnapshotRequest request;
  request.requestor.IsDiskPresentInSystem(L"TSL0001", request.details());
  request.requestor.IsDiskPresentInSystem(L"TSL0001", request.details());
  EXPECT_THAT(Calls("IWbemServices::ExecQuery"), SizeIs(2));
}

TEST_F(SystemDisks, AfterTheScanADiskIsPresentInAnyCaseAndWmiIsNotAsked) {
  SnapshotRequest request;
  request.probe.GetAllSystemDisks();
  for (const wchar_t* disk : {L"TSL0002", L"tsl0002", L"sys"}) {
    EXPECT_TRUE(request.requestor.IsDiskPresentInSystem(disk, request.details())) << disk;
  }
  for (const wchar_t* disk : {L"TSL0003", L"TSL000", L" TSL0002", L""}) {
    EXPECT_FALSE(request.requestor.IsDiskPresentInSystem(disk, request.details())) << disk;
  }
  EXPECT_THAT(Calls("IWbemServices::ExecQuery"), IsEmpty());
}

TEST_F(SystemDisks, TheListOfTheScanIsNotRefreshed) {
  SnapshotRequest request;
  request.probe.GetAllSystemDisks();
  model().disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  EXPECT_FALSE(request.requestor.IsDiskPresentInSystem(L"TSL0003", request.details()));
}

class VolumeIdentity : public HostFixture {
 protected:
  DWORD Ask(SnapshotRequest<>& request, const std::wstring& volume) {
    return request.probe.GetDiskSerialNumberForVolume(volume, disk, serial);
  }
  /// The answer is 123, and the outputs stay as they were.
  void ExpectUnknown(SnapshotRequest<>& request, const std::wstring& volume) {
    disk = L"disk before";
    serial = L"serial before";
    EXPECT_EQ(Ask(request, volume), DWORD{ERROR_INVALID_NAME});
    EXPECT_EQ(disk, L"disk before");
    EXPECT_EQ(serial, L"serial before");
  }

  std::wstring disk;
  std::wstring serial;
};

TEST_F(VolumeIdentity, AVolumesDiskIsFoundByItsUniqueNameInAnyCase) {
  model().disks[1].volumes[0].name = L"\\\\?\\Volume{abcdef01-0000-0000-0000-000000000000}\\";
  SnapshotRequest request;
  EXPECT_EQ(Ask(request, L"\\\\?\\VOLUME{ABCDEF01-0000-0000-0000-000000000000}\\"), 0u);
  EXPECT_EQ(disk, L"\\\\.\\PhysicalDrive1");
  EXPECT_EQ(serial, L"TSL0001");
}

TEST_F(VolumeIdentity, ASerialNumberKeepsItsBlanks) {
  model().disks[1].serial = L" TSL0001  ";
  SnapshotRequest request;
  EXPECT_EQ(Ask(request, VolumeName(1)), 0u);
  EXPECT_EQ(serial, L" TSL0001  ");
}

TEST_F(VolumeIdentity, AVolumeWithoutAKnownDiskGives123AndLeavesTheOutputs) {
  SnapshotRequest request;
  ExpectUnknown(request, VolumeName(9));
  ExpectUnknown(request, L"");
}

TEST_F(VolumeIdentity, ADiskWithoutASerialNumberGives123AndLeavesTheOutputs) {
  model().disks[1].reportsSerial = false;
  SnapshotRequest request;
  ExpectUnknown(request, VolumeName(1));
}

TEST_F(VolumeIdentity, WithoutAnEnumeratorEveryVolumeGives123) {
  SnapshotRequest request;
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  ExpectUnknown(request, VolumeName(1));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(VolumeIdentity, WithoutAnEnumeratorTheVolumesOfExtraDisksCannotBeFound) {
  SnapshotRequest request;
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  request.probe.extraSerialNumbers() = {L"TSL0001"};
  std::vector<std::wstring> volumes;
  EXPECT_EQ(ThrownLong([&] { request.probe.GetVolumeListForExtraVolumes(volumes); }), Failure(E_POINTER));
  EXPECT_THAT(log.All(), ElementsAre("E No disk and volume enumerator has been set"));
}

// Volumes do not tell their extents.
class SilentVolumes final : public ForwardingStorage {
 public:
  SilentVolumes(simulator::SimulatedHost& host, DWORD error)
      : ForwardingStorage(host.storage()), machine_(host.machine()), error_(error) {}
  BOOL DeviceIoControl(HANDLE device, DWORD code, void* in, DWORD inBytes, void* out, DWORD outBytes, DWORD* returned,
                       void* overlapped) override {
    if (code != IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS || !std::exchange(systemVolumeAsked_, true)) {
      return ForwardingStorage::DeviceIoControl(device, code, in, inBytes, out, outBytes, returned, overlapped);
    }
    ++asked;
    machine_.lastError = error_;
    return FALSE;
  }
  int asked = 0;

 private:
  simulator::Machine& machine_;
  DWORD error_;
  bool systemVolumeAsked_ = false;  // it comes first, and tells
};

TEST_F(VolumeIdentity, AVolumeThatCannotTellItsExtentsIsAskedOnce) {
  constexpr DWORD kNotReady = 21;
  SilentVolumes silent(host(), kNotReady);
  const CurrentHostWith current(host(), silent);
  SnapshotRequest request;
  ExpectUnknown(request, VolumeName(1));
  ExpectUnknown(request, VolumeName(1));
  EXPECT_EQ(silent.asked, 1);
}

class EligibleDisks : public HostFixture {
 protected:
  void SetUp() override {
    HostFixture::SetUp();
    TesselCommonClasses::DiskAndVolumeEnumerator().EnumerateDisks(true);  // learns the system disk
    host().calls().Clear();
  }
};

TEST_F(EligibleDisks, ADiskOfTheInputListIsEligible) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001", L"TSL0002"});
  EXPECT_TRUE(request.probe.isVolumeEligible(L"TSL0002"));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(EligibleDisks, AnyOtherDiskIsNotAndNothingIsLogged) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001"});
  EXPECT_FALSE(request.probe.isVolumeEligible(L"TSL0002"));
  EXPECT_FALSE(request.probe.isVolumeEligible(L""));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(EligibleDisks, TheInputListComparesExactly) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"TSL0001", L" TSL0002"});
  EXPECT_FALSE(request.probe.isVolumeEligible(L"tsl0001"));
  EXPECT_FALSE(request.probe.isVolumeEligible(L"TSL0001 "));
  EXPECT_FALSE(request.probe.isVolumeEligible(L"TSL0002"));
  EXPECT_TRUE(request.probe.isVolumeEligible(L" TSL0002"));
  EXPECT_TRUE(request.probe.IsSerialNumberPresentInInputList(L"TSL0001"));
  EXPECT_FALSE(request.probe.IsSerialNumberPresentInInputList(L"tsl0001"));
}

TEST_F(EligibleDisks, TheSystemDiskIsNotEvenWhenItIsListed) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"SYS"});
  EXPECT_FALSE(request.probe.isVolumeEligible(L"SYS"));
  EXPECT_THAT(log.All(), ElementsAre("W Affected volume SYS of file descriptor is a system volume. Hence not "
                                     "including in the snapshot set."));
}

TEST_F(EligibleDisks, TheSystemDiskComparesExactly) {
  SnapshotRequest request;
  request.requestor.SetInputDriveSerialNos({L"sys"});
  EXPECT_TRUE(request.probe.isVolumeEligible(L"sys"));
  EXPECT_THAT(log.All(), IsEmpty());
}

class SnapshotDevices : public HostFixture {
 protected:
  /// One writer with one component with a file on each of these snapshot disks.
  static VssWriter WriterWith(const std::vector<std::wstring>& disks) {
    VssWriter writer;
    VssComponent& component = writer.components.emplace_back();
    for (const std::wstring& disk : disks) {
      VssFileDescriptor& file = component.files.emplace_back();
      file.path = L"%DATA%";
      file.expandedPath = L"E:\\data" + std::to_wstring(component.files.size()) + L"\\";
      file.snapshotDiskName = disk;
    }
    return writer;
  }
};

TEST_F(SnapshotDevices, ADiskThatAFileWasSnapshottedToIsOneAndTheFirstFileIsLogged) {
  SnapshotRequest request;
  request.probe.writers() = {WriterWith({L"\\\\.\\PhysicalDrive4"}),
                             WriterWith({L"", L"\\\\.\\PhysicalDrive5", L"\\\\.\\PhysicalDrive5"})};
  EXPECT_TRUE(request.probe.IsSnapShotDevice(L"\\\\.\\PhysicalDrive5"));
  EXPECT_THAT(log.All(), ElementsAre("I Device is a snapshot, Device=\\\\.\\PhysicalDrive5, File=E:\\data2\\"));
}

TEST_F(SnapshotDevices, ADiskNameComparesExactly) {
  SnapshotRequest request;
  request.probe.writers() = {WriterWith({L"\\\\.\\PhysicalDrive5"})};
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L"\\\\.\\physicaldrive5"));
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L"\\\\.\\PhysicalDrive"));
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L"\\\\.\\PhysicalDrive55"));
  EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(SnapshotDevices, ExcludedWritersAndComponentsAreLeftOut) {
  SnapshotRequest request;
  VssWriter excludedWriter = WriterWith({L"\\\\.\\PhysicalDrive5"});
  excludedWriter.excluded = true;
  VssWriter excludedComponent = WriterWith({L"\\\\.\\PhysicalDrive5"});
  excludedComponent.components[0].excluded = true;
  request.probe.writers() = {excludedWriter, excludedComponent};
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L"\\\\.\\PhysicalDrive5"));
}

TEST_F(SnapshotDevices, AnEmptyNameIsNoneAlthoughFilesWithoutASnapshotHaveIt) {
  SnapshotRequest request;
  request.probe.writers() = {WriterWith({L""})};
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L""));
}

TEST_F(SnapshotDevices, WithoutWritersThereIsNone) {
  SnapshotRequest request;
  EXPECT_FALSE(request.probe.IsSnapShotDevice(L"\\\\.\\PhysicalDrive5"));
}

class ProtectionSet : public HostFixture {
 protected:
  SnapshotRequest<> request;

  void Verify(Serials input, Serials application) {
    request.probe.inputSerialNumbers() = std::move(input);
    request.probe.eligibleSerialNumbers() = std::move(application);
    request.probe.VerifyProtectionSetDiskList(request.details());
  }
  const VarnelException& Deferred() { return request.probe.lastException(); }
  void ExpectNothingHappened() {
    EXPECT_EQ(request.alerts(), "");
    EXPECT_THAT(log.All(), IsEmpty());
    EXPECT_EQ(Deferred().GetAlertCode(), 0);
    EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
  }
};

TEST_F(ProtectionSet, EqualCountsAreAMatchWhateverTheSerialNumbers) {
  for (const auto& [input, application] :
       {std::pair<Serials, Serials>{{}, {}}, {{L"a", L"b"}, {L"a", L"b"}}, {{L"a", L"b"}, {L"c", L"d"}}}) {
    Verify(input, application);
    ExpectNothingHappened();
  }
}

TEST_F(ProtectionSet, AnApplicationThatUsesNoDiskOfTheSetIsAMismatch) {
  EXPECT_EQ(OutcomeOf([&] {
              Verify({L"a", L"b"}, {});
            }),
            Outcome::Exception(602, kMessage112,
                               {L"\n Volumes in volume collection: a, b \n Volumes containing application components "
                                L"eligible for backup: "}));
}

TEST_F(ProtectionSet, AMismatchWritesItsRecordAndBothLists) {
  request.details() = "writer=0,";
  EXPECT_THROW(Verify({L"a", L"b"}, {}), VarnelException);
  EXPECT_EQ(request.details(),
            "writer=0,"
            "status=LunMismatch, VolCollVolumes=2, VolumesInvolvedInSnapshot=0, rc=ConfigError, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
            "Input list of volumes in volume collection: a, b;\n"
            "List of volumes used by application writer : ;\n");
  EXPECT_THAT(log.All(), ElementsAre("E  status=LunMismatch, VolCollVolumes=2, VolumesInvolvedInSnapshot=0, "
                                     "rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
                                     "E  Input list of volumes in volume collection: a, b",
                                     "E  List of volumes used by application writer : "));
}

TEST_F(ProtectionSet, AMismatchLeavesNoDeferredWarning) {
  EXPECT_THROW(Verify({L"a"}, {}), VarnelException);
  EXPECT_EQ(Deferred().GetAlertCode(), 0);
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
}

TEST_F(ProtectionSet, AMismatchStandsWithoutTextsWhenTheCatalogCannotBeRead) {
  FailCall("LoadStringW", ERROR_RESOURCE_NAME_NOT_FOUND, 0);
  EXPECT_EQ(OutcomeOf([&] { Verify({L"a"}, {}); }), Outcome::Exception(602, L""));
}

TEST_F(ProtectionSet, ALongListStandsWholeInTheErrorDetails) {
  Serials input;
  for (int i = 0; i < 1000; ++i) input.push_back(L"TSL" + std::to_wstring(10000 + i));
  EXPECT_THROW(Verify(input, {}), VarnelException);
  EXPECT_THAT(request.alerts(),
              HasSubstr("collection: " + WideToUtf8(CVarnel::VectorToString(input)) + ";\nList of volumes"));
}

TEST_F(ProtectionSet, DisksThatTheApplicationDoesNotUseAreExtraWithoutRegardToCase) {
  Verify({L"a", L"b", L"c"}, {L"A"});
  EXPECT_EQ(request.probe.extraSerialNumbers(), (Serials{L"b", L"c"}));
}

TEST_F(ProtectionSet, ExtraDisksAreAWarningThatIsNotThrownYet) {
  Verify({L"a", L"b", L"c"}, {L"A"});
  EXPECT_EQ(Deferred().GetAlertCode(), 701);
  EXPECT_EQ(Deferred().GetMessageText(), L"Extra volumes found in the volume collection. ");
  EXPECT_THAT(Deferred().GetMessageList(), ElementsAre(L"Extra volumes in the volume collection : b, c"));
}

TEST_F(ProtectionSet, ExtraDisksWriteTheirRecordAndTheirList) {
  request.details() = "writer=0,";
  Verify({L"a", L"b", L"c"}, {L"A"});
  EXPECT_EQ(request.details(), "writer=0," + kExtraVolumesRecord + ";\nExtra volumes in volume collection are:b, c:\n");
  EXPECT_THAT(log.All(), ElementsAre("W " + kExtraVolumesRecord, "W  Extra volumes in volume collection are:b, c"));
}

TEST_F(ProtectionSet, ExtraDisksKeepTheOrderAndTheCaseOfTheInput) {
  Verify({L"Zeta", L"a", L"Beta", L"alpha"}, {L"a"});
  EXPECT_EQ(request.probe.extraSerialNumbers(), (Serials{L"Zeta", L"Beta", L"alpha"}));
  EXPECT_THAT(Deferred().GetMessageList(), ElementsAre(L"Extra volumes in the volume collection : Zeta, Beta, alpha"));
}

TEST_F(ProtectionSet, ADiskListedTwiceIsAWarningWithoutAnExtraDisk) {
  Verify({L"a", L"a"}, {L"A"});
  EXPECT_EQ(Deferred().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
  EXPECT_EQ(request.alerts(),
            "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =1 , ExtraVolumes =0, rc=ConfigWarning, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n"
            "Extra volumes in volume collection are::\n");
  EXPECT_THAT(Deferred().GetMessageList(), ElementsAre(L"Extra volumes in the volume collection : "));
}

TEST_F(ProtectionSet, AnExtraDiskListedTwiceIsReportedTwice) {
  Verify({L"a", L"b", L"b"}, {L"a"});
  EXPECT_EQ(request.probe.extraSerialNumbers(), (Serials{L"b", L"b"}));
}

TEST_F(ProtectionSet, AnApplicationOnMoreDisksThanListedIsAWarningToo) {
  Verify({L"a"}, {L"a", L"b"});
  EXPECT_EQ(Deferred().GetAlertCode(), 701);
  EXPECT_THAT(request.probe.extraSerialNumbers(), IsEmpty());
  EXPECT_THAT(request.alerts(),
              StartsWith("status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =0,"));
}

TEST_F(ProtectionSet, BlanksMakeADiskAnotherDisk) {
  Verify({L"a", L"a ", L" a"}, {L"A"});
  EXPECT_EQ(request.probe.extraSerialNumbers(), (Serials{L"a ", L" a"}));
}

TEST_F(ProtectionSet, ExtraDisksAskTheHostForNothingButTheTexts) {
  Verify({L"a", L"b"}, {L"a"});
  for (const std::string& line : host().calls().lines()) {
    EXPECT_TRUE(line.starts_with("GetModuleHandleExW(") || line.starts_with("LoadStringW(") ||
                line.starts_with("FreeLibrary("))
        << line;
  }
}

TEST_F(ProtectionSet, IsCheckedWithoutAnEnumerator) {
  request.requestor.SetDiskAndVolumeEnumeratorObj(nullptr);
  Verify({L"a", L"b"}, {L"a"});
  EXPECT_EQ(request.probe.extraSerialNumbers(), (Serials{L"b"}));
}

class Validation : public HostFixture {};

TEST_F(Validation, VolumesAreValidAndTheErrorDetailsAreCleared) {
  SnapshotRequest request;
  std::string status = "status before";
  request.details() = "details before";
  EXPECT_EQ(request.requestor.ValidateVolumes({"E:\\", "F:\\"}, status, request.details(), {"TSL0001"}, "host"), 0u);
  EXPECT_EQ(status, "status before");
  EXPECT_EQ(request.details(), "");
  EXPECT_THAT(log.All(), IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(Validation, TheHostIsValidAndTheErrorDetailsStay) {
  SnapshotRequest request;
  request.details() = "details before";
  EXPECT_EQ(request.requestor.ValidateHostConfiguration(request.details()), 0u);
  EXPECT_EQ(request.details(), "details before");
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

}  // namespace
}  // namespace varnel::test
