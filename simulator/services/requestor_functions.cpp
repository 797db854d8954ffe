#include "simulator/services/requestor_functions.h"

#include "simulator/host_file/documents.h"
#include "simulator/vss/com_object.h"
#include "simulator/vss/snapshot_service.h"
#include "simulator/vss/vss_metadata.h"
#include "text/unicode.h"

namespace varnel::simulator {

HRESULT CreateVssExamineWriterMetadata(Machine& machine, BSTR xml, IVssExamineWriterMetadata** metadata) {
  Clear(metadata);
  const std::wstring_view text = xml == nullptr ? std::wstring_view() : std::wstring_view(xml, ::SysStringLen(xml));
  const auto length = [&] { return std::to_string(text.size()) + " characters"; };
  return Call(machine, "CreateVssExamineWriterMetadata", length, [&] {
    if (xml == nullptr || metadata == nullptr) return E_INVALIDARG;
    try {
      auto writer = std::make_shared<const Writer>(ReadWriterDocument(WideToUtf8Lossy(text)));
      *metadata = MakeWriterMetadata(machine.shared_from_this(), std::move(writer));
    } catch (const DocumentError&) {
      return VSS_E_INVALID_XML_DOCUMENT;
    }
    return S_OK;
  });
}

HRESULT IsVolumeSnapshotted(Machine& machine, LPCWSTR volume, BOOL* present, LONG* capability) {
  return Call(machine, "IsVolumeSnapshotted", Arguments(volume), [&] {
    if (volume == nullptr || present == nullptr || capability == nullptr) return E_INVALIDARG;
    bool found = false;
    const HRESULT result = machine.snapshots->IsSnapshotted(volume, found);
    *present = found ? TRUE : FALSE;
    *capability = 0;
    return result;
  });
}

HRESULT ShouldBlockRevert(Machine& machine, LPCWSTR volume, VssBool* block) {
  return Call(machine, "ShouldBlockRevert", Arguments(volume), [&] {
    if (volume == nullptr || block == nullptr) return E_INVALIDARG;
    *block = false;
    bool found = false;
    return machine.snapshots->IsSnapshotted(volume, found);
  });
}

}  // namespace varnel::simulator
