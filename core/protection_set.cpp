// Disks by serial number, and the comparison of the disks that the application uses with those of the protection set.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_set>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/ansi.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/unicode.h"

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::WindowsDiskDevice;
using varnel::kLog;
namespace ascii = varnel::ascii;

namespace {

constexpr DWORD kNoSerialNumber = 0xFFFFFFFF;
constexpr DWORD kDescriptorBytes = 4096;
constexpr std::size_t kSerialNumberCharacters = 512;  // with the NUL
constexpr int kHighestDriveNumber = 9999999;          // what the path's buffer holds

using DescriptorBuffer = std::unique_ptr<BYTE[]>;

// The text at `offset` when it lies, with its NUL, inside the returned bytes and is a usable serial number.
bool ReadSerialNumber(const BYTE* descriptor, DWORD returned, DWORD offset, std::wstring& serial) {
  if (offset >= returned) return false;
  const auto* text = reinterpret_cast<const char*>(descriptor) + offset;
  const auto* end = static_cast<const char*>(std::memchr(text, '\0', returned - offset));
  if (end == nullptr || end == text) return false;
  if (static_cast<std::size_t>(end - text) >= kSerialNumberCharacters) return false;
  serial.assign(reinterpret_cast<const unsigned char*>(text), reinterpret_cast<const unsigned char*>(end));
  return true;
}

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
  DWORD offset = 0;
  std::memcpy(&offset, buffer.get() + offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), sizeof offset);
  if (offset == kNoSerialNumber) {
    kLog.Warning(L"Serial number is not present for the disk  %s", physicalDrivePath);
    return kNoSerialNumber;
  }
  if (!ReadSerialNumber(buffer.get(), std::min(returned, kDescriptorBytes), offset, serial)) {
    kLog.Error(L"Failed to convert serial # into wchar");
    return kNoSerialNumber;
  }
  kLog.Info(L"%s, Serial # is %s", physicalDrivePath, serial);
  return ERROR_SUCCESS;
}

}  // namespace

void CVarnel::GetAllSystemDisks() {
  for (int number = 0; number <= kHighestDriveNumber; ++number) {
    const std::wstring path = varnel::FormatWide(L"%s%d", {L"\\\\.\\PhysicalDrive", number});
    std::wstring serial;
    const DWORD error = GetSerialNoForDisk(path.c_str(), serial);
    if (error == ERROR_FILE_NOT_FOUND) return;
    if (error == kNoSerialNumber) continue;
    if (error != ERROR_SUCCESS) varnel::ThrowWin32Failure(L"L\"GetSerialNoForDisk\"", error);
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
  return IsInputDisk(serialNumber);
}

bool CVarnel::IsInputDisk(const std::wstring& serialNumber) const {
  return std::find(m_inputSerialNumbers.begin(), m_inputSerialNumbers.end(), serialNumber) !=
         m_inputSerialNumbers.end();
}

bool CVarnel::IsSnapShotDevice(std::wstring diskName) {
  if (diskName.empty()) return false;
  for (const VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    for (const VssComponent& component : writer.components) {
      if (component.excluded) continue;
      for (const VssFileDescriptor& file : component.files) {
        if (file.snapshotDiskName != diskName) continue;
        kLog.Info(L"Device is a snapshot, Device=%s, File=%s", diskName, file.expandedPath);
        return true;
      }
    }
  }
  return false;
}

bool CVarnel::isVolumeEligible(std::wstring serialNumber) {
  return IsOnEligibleDisk(serialNumber);
}

bool CVarnel::IsOnEligibleDisk(const std::wstring& serialNumber) const {
  if (!IsInputDisk(serialNumber)) return false;
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
  if (m_eligibleSerialNumbers.empty()) ReportLunMismatch(errorDetails);
  FindExtraDisks();
  StoreExtraVolumesWarning(errorDetails);
}

void CVarnel::ReportLunMismatch(std::string& errorDetails) {
  constexpr int kMismatchMessage = 112;
  constexpr int kListsMessage = 123;
  const std::wstring inputList = VectorToString(m_inputSerialNumbers);
  const std::wstring applicationList = VectorToString(m_eligibleSerialNumbers);
  varnel::WriteAlert(varnel::alert::kLunMismatch, {m_inputSerialNumbers.size(), m_eligibleSerialNumbers.size()},
                     errorDetails);
  const std::wstring input = L"Input list of volumes in volume collection: " + inputList;
  kLog.Error(L" %s", input);
  errorDetails += varnel::WideToAnsi(input) + ";\n";
  const std::wstring application = L"List of volumes used by application writer : " + applicationList;
  kLog.Error(L" %s", application);
  errorDetails += varnel::WideToAnsi(application) + ";\n";
  std::wstring message;
  std::wstring detail;
  GetErrorMessageFromCatalog(kMismatchMessage, message);
  GetErrorMessageFromCatalog(kListsMessage, detail, inputList, applicationList);
  throw VarnelException(VarnelException::ConfigurationError, message, {detail});
}

void CVarnel::FindExtraDisks() {
  std::unordered_set<std::wstring> used;
  for (const std::wstring& serialNumber : m_eligibleSerialNumbers) used.insert(ascii::ToLower(serialNumber));
  for (const std::wstring& serialNumber : m_inputSerialNumbers) {
    if (!used.contains(ascii::ToLower(serialNumber))) m_extraSerialNumbers.push_back(serialNumber);
  }
}

void CVarnel::StoreExtraVolumesWarning(std::string& errorDetails) {
  constexpr int kExtraMessage = 128;
  constexpr int kExtraListMessage = 129;
  varnel::WriteAlert(varnel::alert::kExtraVolumes, {m_eligibleSerialNumbers.size(), m_extraSerialNumbers.size()},
                     errorDetails);
  const std::wstring list = VectorToString(m_extraSerialNumbers);
  std::wstring message;
  std::wstring detail;
  GetErrorMessageFromCatalog(kExtraMessage, message);
  GetErrorMessageFromCatalog(kExtraListMessage, detail, list);
  m_lastException = VarnelException(VarnelException::ExtraVolumes, message, {detail});
  const std::wstring line = L"Extra volumes in volume collection are:" + list;
  kLog.Warning(L" %s", line);
  errorDetails += varnel::WideToAnsi(line) + ":\n";
}

DiskAndVolumeEnumerator& CVarnel::RequireEnumerator() const {
  if (m_diskAndVolumeEnumerator == nullptr) {
    kLog.Error(L"No disk and volume enumerator has been set");
    varnel::ThrowHResult(E_POINTER);
  }
  return *m_diskAndVolumeEnumerator;
}
