// What the process must set up before it asks this machine's own services.
#pragma once

namespace varnelctl {

/// COM in the multithreaded apartment and its security, as the Volume Shadow Copy service wants them of a requestor.
/// Throws CallFailure. Where there is no such machine it is never made.
class MachineSession {
 public:
  MachineSession();
  ~MachineSession();
  MachineSession(const MachineSession&) = delete;
  MachineSession& operator=(const MachineSession&) = delete;
};

}  // namespace varnelctl
