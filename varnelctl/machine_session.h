// What the process must set up before it asks this machine's own services.
#pragma once

#include <string>

namespace varnelctl {

/// Why a process cannot use the service, in one sentence; empty when it can.
std::string WhyUnfit(bool elevated, bool matchesSystem, bool hasService);

/// Whether the process must be one that the service answers, or finds out by itself what is wrong with it.
enum class Fitness { Required, Examined };

/// COM in the multithreaded apartment and its security, as the Volume Shadow Copy service wants them of a requestor;
/// with Fitness::Examined COM alone. Throws CallFailure, and where fitness is required UnfitMachine where the service
/// would answer this process nothing: without elevation, as a 32-bit process, or without the service. Where there is no
/// such machine it is never made.
class MachineSession {
 public:
  explicit MachineSession(Fitness fitness);
  ~MachineSession();  // NOLINT(performance-trivially-destructible): on Windows it has work to do
  MachineSession(const MachineSession&) = delete;
  MachineSession& operator=(const MachineSession&) = delete;
};

}  // namespace varnelctl
