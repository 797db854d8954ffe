// Disks by serial number, and the comparison of the disks that the application uses with those of the protection set.
#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <unordered_set>
#include <utility>

#include "core/alerts.h"
#include "core/checks.h"
#include "core/message_catalog.h"
#include "core/varnel.h"
#include "platform/ansi.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "platform/storage_descriptor.h"
#include "text/ascii_case.h"

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::WindowsDiskDevice;
using varnel::kLog;
namespace alert = varnel::alert;
namespace ascii = varnel::ascii;
namespace message = varnel::message;

namespace {

constexpr DWORD kNoSerialNumber = 0xFFFFFFFF;  // in place of a Win32 code
constexpr DWORD kDescriptorBytes = 4096;
constexpr int kHighestDriveNumber = 9999999;  // the scan ends there at the latest

using DescriptorBuffer = std::unique_ptr<BYTE[]>;

DWORD QueryDescriptor(HANDLE device, BYTE* descriptor, DWORD& returned) {
  constexpr DWORD kQueryBytes = 12;
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  if (varnel::CurrentHost().storage().DeviceIoControl(device, IOCTL_STORAGE_QUERY_PROPERTY, &query, kQueryBytes,
                                                      descriptor, kDescriptorBytes, &returned, nullptr)) {
    return ERROR_SUCCESS;
  }
  const DWORD error = varnel::LastErrorOrGeneric();
  kLog.Error(L"DeviceIoControl() Failed, IOCTL=IOCTL_STORAGE_QUERY_PROPERTY, Error=%d", error);
  return error;
}

DWORD GetSerialNoForDisk(const wchar_t* physicalDrivePath, std::wstring& serial) {
  const varnel::FileHandle device(
      varnel::CurrentHost().storage().CreateFileW(physicalDrivePath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!device) return varnel::LastErrorOrGeneric();
  const DescriptorBuffer buffer(new (std::nothrow) BYTE[kDescriptorBytes]());
  if (!buffer) {
    kLog.Error(L"Failed to allocate memory for PSTORAGE_DEVICE_DESCRIPTOR");
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  DWORD returned = 0;
  if (const DWORD error = QueryDescriptor(device.Get(), buffer.get(), returned)) return error;
  serial.clear();
  const std::span<const BYTE> descriptor(buffer.get(), std::min(returned, kDescriptorBytes));
  // The buffer was zeroed: an offset that was not returned is 0, which is read like any other.
  const DWORD offset = varnel::SerialNumberOffsetIn(descriptor).value_or(0);
  if (offset == varnel::kNoSerialNumberOffset) {
    kLog.Warning(L"Serial number is not present for the disk  %s", physicalDrivePath);
    return kNoSerialNumber;
  }
  std::optional<std::wstring> text = varnel::SerialNumberAt(offset, descriptor);
  if (!text) {
    kLog.Error(L"Failed to convert serial # into wchar");
    return kNoSerialNumber;
  }
  serial = std::move(*text);
  kLog.Info(L"%s, Serial # is %s", physicalDrivePath, serial);
  return ERROR_SUCCESS;
}

// To the log, and with its ending to the error details.
void AppendList(int category, const std::wstring& list, const char* ending, std::string& errorDetails,
                int line = __builtin_LINE()) {
  kLog.Write(category, line, L" %s", list);
  errorDetails += varnel::WideToAnsi(list) + ending;
}

// The input disks that are not used, in any case of letters.
void AppendExtraDisks(const std::vector<std::wstring>& input, const std::vector<std::wstring>& used,
                      std::vector<std::wstring>& extra) {
  std::unordered_set<std::wstring> folded;
  for (const std::wstring& serialNumber : used) folded.insert(ascii::ToLower(serialNumber));
  for (const std::wstring& serialNumber : input) {
    if (!folded.contains(ascii::ToLower(serialNumber))) extra.push_back(serialNumber);
  }
}

}  // namespace

void CVarnel::GetAllSystemDisks() {
  for (int number = 0; number <= kHighestDriveNumber; ++number) {
    const std::wstring path = varnel::FormatWide(L"%s%d", {L"\\\\.\\PhysicalDrive", number});
    std::wstring serial;
    const DWORD error = GetSerialNoForDisk(path.c_str(), serial);
    if (error == ERROR_FILE_NOT_FOUND) return;
    if (error == kNoSerialNumber) continue;
    if (error != ERROR_SUCCESS) varnel::LogAndThrowWin32(L"GetSerialNoForDisk", error, varnel::CallText::wideLiteral);
    m_systemDisks.push_back(std::move(serial));
  }
}

std::vector<std::wstring> CVarnel::GetAllSystemDisksEx(std::string& /*errorDetails*/) {
  TesselCommonClasses::WMIDiskHelper helper;
  std::vector<std::wstring> serialNumbers;
  for (WindowsDiskDevice& device : helper.GetDiskDevices2k8(true)) {
    serialNumbers.push_back(std::move(device.serialNumber));
  }
  if (serialNumbers.empty()) kLog.Error(L"UNEXPECTED: No tessel disks enumerated by MSFT_Disk class!");
  return serialNumbers;
}

bool CVarnel::IsDiskPresentInSystem(std::wstring serialNumber, std::string& errorDetails) {
  // The answer of WMI is asked for and not used: only GetAllSystemDisks fills the list.
  if (m_systemDisks.empty()) GetAllSystemDisksEx(errorDetails);
  return std::any_of(m_systemDisks.begin(), m_systemDisks.end(),
                     [&](const std::wstring& disk) { return ascii::EqualIgnoringCase(disk, serialNumber); });
}

DWORD CVarnel::GetDiskSerialNumberForVolume(const std::wstring& volume, std::wstring& diskName,
                                            std::wstring& serialNumber) {
  if (m_diskAndVolumeEnumerator == nullptr) return ERROR_INVALID_NAME;
  WindowsDiskDevice device;
  m_diskAndVolumeEnumerator->GetDiskDeviceForUniqueVolume(ascii::ToLower(volume), device);
  if (device.serialNumber.empty()) return ERROR_INVALID_NAME;
  diskName = std::move(device.diskName);
  serialNumber = std::move(device.serialNumber);
  return ERROR_SUCCESS;
}

bool CVarnel::IsSerialNumberPresentInInputList(std::wstring serialNumber) {
  return std::find(m_inputSerialNumbers.begin(), m_inputSerialNumbers.end(), serialNumber) !=
         m_inputSerialNumbers.end();
}

bool CVarnel::IsSnapShotDevice(std::wstring diskName) {
  if (diskName.empty()) return false;
  for (const VssComponent* component : varnel::SelectedComponents(std::as_const(m_writers))) {
    for (const VssFileDescriptor& file : component->files) {
      if (file.snapshotDiskName != diskName) continue;
      kLog.Info(L"Device is a snapshot, Device=%s, File=%s", diskName, file.expandedPath);
      return true;
    }
  }
  return false;
}

bool CVarnel::isVolumeEligible(std::wstring serialNumber) {
  if (!IsSerialNumberPresentInInputList(serialNumber)) return false;
  if (serialNumber == DiskAndVolumeEnumerator::systemDriveSerialNumber) {
    kLog.Warning(L"Affected volume %s of file descriptor is a system volume. Hence not including in the snapshot set.",
                 serialNumber);
    return false;
  }
  return true;
}

void CVarnel::VerifyProtectionSetDiskList(std::string& errorDetails) {
  // Equal counts are taken as a match.
  if (m_inputSerialNumbers.size() == m_eligibleSerialNumbers.size()) return;
  const auto inputDisks = static_cast<DWORD>(m_inputSerialNumbers.size());
  const auto usedDisks = static_cast<DWORD>(m_eligibleSerialNumbers.size());
  std::wstring text;
  std::wstring detail;
  if (usedDisks == 0) {
    const std::wstring inputList = VectorToString(m_inputSerialNumbers);
    const std::wstring usedList = VectorToString(m_eligibleSerialNumbers);
    varnel::WriteAlert<alert::kLunMismatch>(errorDetails, inputDisks, usedDisks);
    AppendList(CFileLog::Error, L"Input list of volumes in volume collection: " + inputList, ";\n", errorDetails);
    AppendList(CFileLog::Error, L"List of volumes used by application writer : " + usedList, ";\n", errorDetails);
    GetErrorMessageFromCatalog(message::kDisksDiffer, text);
    GetErrorMessageFromCatalog(message::kDiskLists, detail, inputList, usedList);
    throw VarnelException(VarnelException::ConfigurationError, text, {detail});
  }
  AppendExtraDisks(m_inputSerialNumbers, m_eligibleSerialNumbers, m_extraSerialNumbers);
  const std::wstring extraList = VectorToString(m_extraSerialNumbers);
  varnel::WriteAlert<alert::kExtraVolumes>(errorDetails, usedDisks, static_cast<DWORD>(m_extraSerialNumbers.size()));
  GetErrorMessageFromCatalog(message::kExtraVolumes, text);
  GetErrorMessageFromCatalog(message::kExtraVolumesList, detail, extraList);
  m_lastException = VarnelException(VarnelException::ExtraVolumes, text, {detail});
  AppendList(CFileLog::Warning, L"Extra volumes in volume collection are:" + extraList, ":\n", errorDetails);
}
