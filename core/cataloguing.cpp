#include "core/cataloguing.h"

#include <utility>

#include "core/checks.h"
#include "core/logging.h"
#include "core/varnel.h"
#include "platform/ansi.h"
#include "text/ascii_case.h"
#include "text/unicode.h"

using varnel::kLog;

namespace {

void AppendUnlessEmpty(std::vector<std::string>& list, const std::string& text) {
  if (!text.empty()) list.push_back(text);
}

}  // namespace

void CVarnel::GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) {
  info.appObjectName = component.name;
  info.appObjectId = component.fullPath;
}

void CVarnel::GetSnapshotMeatadata(std::map<std::string, ApplicationObjectMeatadataInfo>& metadata) {
  metadata.clear();
  kLog.Info(L"Getting snapshot meatadata");
  for (const VssComponent* component : varnel::SelectedComponents(std::as_const(m_writers))) {
    ComponentCatalogingInfo info;
    GetComponentInfoForCataloging(*component, info);
    if (component->affectedSerialNumbers.empty()) continue;
    const std::string id = varnel::WideToUtf8(info.appObjectId);
    const std::string name = varnel::WideToUtf8(info.appObjectName);
    const bool failed = varnel::HasFailed(*component);
    for (const std::wstring& serialNumber : component->affectedSerialNumbers) {
      ApplicationObjectMeatadataInfo& entry = metadata[varnel::WideToAnsi(serialNumber)];
      AppendUnlessEmpty(failed ? entry.otherObjectIds : entry.appObjectIds, id);
      AppendUnlessEmpty(failed ? entry.otherObjectNames : entry.appObjectNames, name);
    }
  }
  for (const std::wstring& serialNumber : m_extraSerialNumbers) {
    const std::wstring key = varnel::ascii::ToLower(serialNumber);
    std::vector<TesselCommonClasses::WindowsVolumeInfo> volumes;
    varnel::Required(m_diskAndVolumeEnumerator).GetVolumesForGivenDisk(key, volumes);
    for (const auto& volume : volumes) {
      ApplicationObjectMeatadataInfo& entry = metadata[varnel::WideToAnsi(key)];
      entry.otherObjectIds.push_back(varnel::WideToAnsi(volume.uniqueVolumeName));
      entry.otherObjectNames.push_back(varnel::WideToAnsi(volume.mountPoint));
    }
  }
}
