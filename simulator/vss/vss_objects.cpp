#include "simulator/vss/vss_objects.h"

#include "simulator/vss/com_object.h"
#include "simulator/vss/vss_backup.h"
#include "simulator/vss/vss_enum.h"

namespace varnel::simulator {
namespace {

constexpr HRESULT kNoAggregation = static_cast<HRESULT>(0x80040110);  // CLASS_E_NOAGGREGATION

HRESULT CreateAdmin(const std::shared_ptr<Machine>& machine, REFCLSID classId, const IUnknown* outer,
                    REFIID interfaceId, void** object) {
  if (object == nullptr) return E_POINTER;
  if (classId != kClsidVssCoordinator) return REGDB_E_CLASSNOTREG;
  if (outer != nullptr) return kNoAggregation;
  if (interfaceId != kIidVssAdmin && interfaceId != kIidUnknown) return E_NOINTERFACE;
  *object = MakeAdmin(machine);
  return S_OK;
}

}  // namespace

HRESULT CreateBackupComponents(const std::shared_ptr<Machine>& machine, IVssBackupComponents** backup) {
  Clear(backup);
  return Call(*machine, "CreateVssBackupComponents", NoArguments, [&] {
    if (backup == nullptr) return E_INVALIDARG;
    *backup = MakeBackupComponents(machine);
    return S_OK;
  });
}

HRESULT CreateCoordinator(const std::shared_ptr<Machine>& machine, REFCLSID classId, IUnknown* outer, DWORD context,
                          REFIID interfaceId, void** object) {
  Clear(object);
  return Call(
      *machine, "CoCreateInstance",
      [&] {
        return ArgumentList({GuidText(classId), std::to_string(context), GuidText(interfaceId)});
      },
      [&] { return CreateAdmin(machine, classId, outer, interfaceId, object); });
}

}  // namespace varnel::simulator
