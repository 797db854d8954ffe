#include "varnelctl/report/host_json.h"

#include <algorithm>

#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

Json ProviderJson(const Provider& provider) {
  return {{"id", WideToUtf8Lossy(varnel::FormatGuid(provider.id))},
          {"name", WideToUtf8Lossy(provider.name)},
          {"type", ProviderTypeName(provider.type)},
          {"version", WideToUtf8Lossy(provider.version)},
          {"isArrayProvider", provider.IsArrayProvider()}};
}

Json VolumeJson(const VolumeView& volume) {
  Json json = {{"name", WideToUtf8Lossy(volume.name)}, {"mountPoints", ArrayOf(volume.mountPoints, WideToUtf8Lossy)}};
  if (!volume.severalDisks.empty()) json["severalDisks"] = volume.severalDisks;
  return json;
}

Json DiskJson(const DiskView& disk) {
  return {{"name", WideToUtf8Lossy(disk.device.diskName)},
          {"number", disk.device.diskNumber},
          {"serialNumber", WideToUtf8Lossy(disk.device.serialNumber)},
          {"system", disk.system},
          {"clustered", disk.device.isClustered},
          {"volumes", ArrayOf(disk.volumes, VolumeJson)}};
}

Json DeviceJson(const SessionDevice& device) {
  return {{"name", WideToUtf8Lossy(device.name)}, {"disk", device.disk ? Json(*device.disk) : Json(nullptr)}};
}

Json OpenSessionJson(const OpenSession& session) {
  return {{"targetName", WideToUtf8Lossy(session.targetName)},
          {"sessionId", session.sessionId},
          {"devices", ArrayOf(session.devices, DeviceJson)}};
}

}  // namespace

const char* ProviderTypeName(VSS_PROVIDER_TYPE type) {
  switch (type) {
    case VSS_PROV_SYSTEM:
      return "system";
    case VSS_PROV_SOFTWARE:
      return "software";
    case VSS_PROV_HARDWARE:
      return "hardware";
    case VSS_PROV_FILESHARE:
      return "fileshare";
    default:
      return "unknown";
  }
}

Json ProvidersJson(const std::vector<Provider>& providers) {
  const bool arrayProviderPresent = std::any_of(providers.begin(), providers.end(),
                                                [](const Provider& provider) { return provider.IsArrayProvider(); });
  return {{"providers", ArrayOf(providers, ProviderJson)}, {"arrayProviderPresent", arrayProviderPresent}};
}

Json StorageJson(const StorageView& storage) {
  return {{"disks", ArrayOf(storage.disks, DiskJson)},
          {"volumesOnSeveralDisks", ArrayOf(storage.volumesOnSeveralDisks, VolumeJson)},
          {"volumesWithoutDisk", ArrayOf(storage.volumesWithoutDisk, VolumeJson)}};
}

Json SessionsJson(const std::vector<OpenSession>& sessions) {
  return {{"sessions", ArrayOf(sessions, OpenSessionJson)}};
}

}  // namespace varnelctl
