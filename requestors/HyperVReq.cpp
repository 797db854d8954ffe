#include "requestors/HyperVReq.h"

#include <array>
#include <functional>
#include <map>

#include "core/alerts.h"
#include "core/checks.h"
#include "core/configuration.h"
#include "core/logging.h"
#include "platform/ansi.h"
#include "platform/host.h"
#include "resources/catalog.h"

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::Version;
namespace alert = varnel::alert;
namespace message = varnel::message;

namespace {

constexpr varnel::Logger kLog(L"HyperVReq");

using Names = std::vector<std::wstring>;

struct Partition {
  Names yes;
  Names no;
};

Partition PartitionBy(const Names& names, const std::function<bool(const std::wstring&)>& question) {
  Partition partition;
  for (const std::wstring& name : names) (question(name) ? partition.yes : partition.no).push_back(name);
  return partition;
}

// "Clustered:a,b"
std::wstring List(const wchar_t* title, const Names& names) {
  std::wstring text = title;
  for (const std::wstring& name : names) text += name + L",";
  if (!names.empty()) text.pop_back();
  return text;
}

// The record, then the lists right after it; in the log one line each.
template <const varnel::AlertRecord& record>
void ReportVolumes(const Names& lists, std::string& status, std::string& errorDetails, int line = __builtin_LINE()) {
  status = record.tag;
  varnel::WriteAlert<record>({errorDetails, kLog, line});
  for (const std::wstring& list : lists) errorDetails += varnel::WideToAnsi(list);
  errorDetails += ";\n";
  for (const std::wstring& list : lists) kLog.Write(CFileLog::Error, line, L"%s", list);
}

bool IsWindowsServer() {
  varnel::SystemInformation& system = varnel::CurrentHost().system();
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  version.wProductType = VER_NT_WORKSTATION;
  const ULONGLONG condition = system.VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
  return !system.VerifyVersionInfoW(&version, VER_PRODUCT_TYPE, condition);
}

bool IsWindowsVersionOrGreater(WORD majorVersion, WORD minorVersion, WORD servicePack) {
  varnel::SystemInformation& system = varnel::CurrentHost().system();
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  version.dwMajorVersion = majorVersion;
  version.dwMinorVersion = minorVersion;
  version.wServicePackMajor = servicePack;
  ULONGLONG condition = 0;
  for (const DWORD part : {DWORD{VER_MAJORVERSION}, DWORD{VER_MINORVERSION}, DWORD{VER_SERVICEPACKMAJOR}}) {
    condition = system.VerSetConditionMask(condition, part, VER_GREATER_EQUAL);
  }
  return system.VerifyVersionInfoW(&version, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR, condition);
}

// Empty, with an error line, when it cannot be had. A directory without room in the buffer sets no last error.
std::wstring SystemDirectory() {
  std::array<wchar_t, MAX_PATH> directory{};
  const UINT length = varnel::CurrentHost().system().GetSystemDirectoryW(directory.data(), MAX_PATH);
  if (length > 0 && length < MAX_PATH) return directory.data();
  const DWORD error = length == 0 ? varnel::LastErrorOrGeneric() : DWORD{ERROR_INSUFFICIENT_BUFFER};
  kLog.Error(L"Could not get the system directory. Error: %d", error);
  return {};
}

// The lowest versions of the files that carry the required hotfixes.
std::map<std::wstring, Version> RequiredFileVersions() {
  std::wstring path = SystemDirectory();
  if (!path.empty()) path += L"\\";
  return {{path + L"Vmms.exe", Version(6, 3, 9600, 17120)}};
}

// What follows the backslash of "Online\machine"; empty without one.
std::wstring MachineName(const std::wstring& caption) {
  const std::size_t backslash = caption.find(L'\\');
  if (backslash != caption.npos) return caption.substr(backslash + 1);
  kLog.Error(L"Did not find '\\' in component caption %s", caption);
  return {};
}

// The machine's identifier: the component's name, or on a cluster shared volume what stands before "<CSV>".
std::wstring MachineId(const VssComponent& component) {
  if (component.writerName.find(L"Hyper-V") != component.writerName.npos) return component.name;
  const std::size_t mark = component.name.find(L"<CSV>");
  if (mark != component.name.npos) return component.name.substr(0, mark);
  kLog.Error(L"Did not find '<CSV>' in component name %s", component.name);
  return {};
}

// What a validation came to; one that ended early is not logged as completed.
struct Verdict {
  DWORD id = 0;
  bool endedEarly = false;
};

DWORD ValidateClusteredVolumes(DiskAndVolumeEnumerator& enumerator, const Names& volumes, std::string& status,
                               std::string& errorDetails) {
  const Partition kinds =
      PartitionBy(volumes, [&](const std::wstring& name) { return enumerator.IsClusterSharedVolume(name); });
  if (kinds.no.empty()) return 0;
  if (!kinds.yes.empty()) {
    ReportVolumes<alert::kMixedCsv>({List(L"CSV:", kinds.yes), List(L"Non CSV:", kinds.no)}, status, errorDetails);
    return message::kMixedCsv;
  }
  const Partition disks =
      PartitionBy(kinds.no, [&](const std::wstring& name) { return enumerator.IsClusteredDisk(name); });
  if (disks.yes.empty()) return 0;
  ReportVolumes<alert::kClusterDisk>({List(L"Cluster Disk:", disks.yes)}, status, errorDetails);
  return message::kClusterDisk;
}

Verdict ValidateOnCluster(DiskAndVolumeEnumerator* enumerator, const std::vector<std::string>& volumes,
                          std::string& status, std::string& errorDetails) {
  if (!TesselCommonClasses::ClusterHelper().IsCluster(true)) {
    kLog.Info(L"HyperVReq::ValidateVolumes - this node does not belong to a cluster. Nothing more to validate");
    return {0, true};
  }
  Names names;
  for (const std::string& volume : volumes) names.push_back(varnel::AnsiToWide(volume));
  const Partition disks =
      PartitionBy(names, [&](const std::wstring& name) { return varnel::Required(enumerator).IsClusteredDisk(name); });
  if (disks.yes.empty()) {
    kLog.Info(
        L"HyperVReq::ValidateVolumes - all disks specified are standard (non-clustered). Nothing more to validate");
    return {0, true};
  }
  if (!disks.no.empty()) {
    ReportVolumes<alert::kMixedCluster>({List(L"Clustered:", disks.yes), List(L"Standalone:", disks.no)}, status,
                                        errorDetails);
    return {message::kMixedCluster, true};
  }
  return {ValidateClusteredVolumes(*enumerator, names, status, errorDetails), false};
}

}  // namespace

HyperVReq::HyperVReq(DWORD testPoints) : CVarnel(testPoints) {}

HyperVReq::~HyperVReq() = default;

bool HyperVReq::IsWriterEligible(VssWriter& writer) {
  if (writer.writerId == varnel::kHyperVWriterId) {
    kLog.Info(L"Found Hyper-V writer %s ", writer.name);
    return true;
  }
  if (writer.writerId == varnel::kClusterSharedVolumeWriterId) {
    kLog.Info(L"Found CSV writer %s ", writer.name);
    return true;
  }
  kLog.Verbose(L"Writer %s is not a Hyper-V or CSV writer ", writer.name);
  return false;
}

bool HyperVReq::ArePartialFailuresSupported() {
  return true;
}

DWORD HyperVReq::ValidateVolumes(const std::vector<std::string>& volumes, std::string& status,
                                 std::string& errorDetails, std::vector<std::string> /*serialNumbers*/,
                                 const std::string& /*hostName*/) {
  kLog.Info(L"HyperVReq::ValidateVolumes - starting");
  DWORD result = 0;
  try {
    const Verdict verdict = ValidateOnCluster(m_diskAndVolumeEnumerator, volumes, status, errorDetails);
    if (verdict.endedEarly) return verdict.id;
    result = verdict.id;
  } catch (const TesselCommonClasses::ExceptionCommon& exception) {
    result = message::kValidationException;
    status = alert::kValidationException.tag;
    std::wstring text;
    GetErrorString(static_cast<long>(exception.GetErrorCode()), text);
    varnel::WriteAlert<alert::kValidationException>({errorDetails, kLog}, text);
  }
  kLog.Info(L"HyperVReq::ValidateVolumes - completed validation with status=%d", result);
  return result;
}

DWORD HyperVReq::ValidateHostConfiguration(std::string& errorDetails) {
  if (!IsWindowsServer() || !IsWindowsVersionOrGreater(6, 3, 0)) {
    varnel::WriteAlert<alert::kUnsupportedOs>({errorDetails, kLog});
    return message::kUnsupportedOs;
  }
  if (!TesselCommonClasses::VersionHelper::VerifyFileVersions(RequiredFileVersions())) {
    varnel::WriteAlert<alert::kMissingHotfixes>({errorDetails, kLog});
    return message::kMissingHotfixes;
  }
  return 0;
}

void HyperVReq::GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) {
  info.appObjectName = MachineName(component.caption);
  info.appObjectId = MachineId(component);
  if (info.appObjectName.empty()) {
    kLog.Error(L"Unexcpected app object name in Hyper-V requester! Component caption is %s.", component.caption);
    info.appObjectName = varnel::kUnknown;
  }
  if (info.appObjectId.empty()) {
    kLog.Error(L"Unexcpected app object id in Hyper-V requester! Component name is %s.", component.name);
    info.appObjectId = varnel::kUnknown;
  }
}
