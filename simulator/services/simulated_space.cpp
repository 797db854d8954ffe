#include "simulator/services/simulated_space.h"

#include "simulator/machine/volumes.h"
#include "simulator/services/on_machine.h"

namespace varnel::simulator {
namespace {

class SimulatedSpace final : public OnMachine<VolumeSpace> {
 public:
  using OnMachine::OnMachine;

  BOOL GetDiskFreeSpaceExW(LPCWSTR directory, ULARGE_INTEGER* freeToCaller, ULARGE_INTEGER* size,
                           ULARGE_INTEGER* free) override {
    return Win32Call(machine_, "GetDiskFreeSpaceExW", Shown(directory), BOOL{FALSE}, [&] {
      const std::optional<VolumeView> found =
          directory == nullptr ? std::nullopt : FindVolumeOfPath(machine_, directory);
      // A copy has the room of its source, which is not looked up: nobody asks for it.
      if (!found || found->volume == nullptr) return Fail(ERROR_PATH_NOT_FOUND);
      const Volume& volume = *found->volume;
      const ULONGLONG freeBytes = Bytes(volume.freeMegabytes.value_or(volume.sizeMegabytes / 2));
      if (freeToCaller != nullptr) freeToCaller->QuadPart = freeBytes;
      if (size != nullptr) size->QuadPart = Bytes(volume.sizeMegabytes);
      if (free != nullptr) free->QuadPart = freeBytes;
      return TRUE;
    });
  }

 private:
  static ULONGLONG Bytes(DWORD megabytes) { return ULONGLONG{megabytes} << 20; }
};

}  // namespace

std::unique_ptr<VolumeSpace> MakeVolumeSpace(Machine& machine) {
  return std::make_unique<SimulatedSpace>(machine);
}

}  // namespace varnel::simulator
