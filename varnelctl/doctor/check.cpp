#include "varnelctl/doctor/check.h"

namespace varnelctl {
namespace {

constexpr Check kChecks[] = {
    {"process", "this process", Needs::Nothing, Severity::Warning, CheckProcess},
    {"comSecurity", "COM security", Needs::Nothing, Severity::Warning, CheckComSecurity},
    {"services", "the services", Needs::Nothing, Severity::Warning, CheckServices},
    {"provider", "the array's provider", Needs::Nothing, Severity::Error, CheckProvider},
    {"serialNumbers", "the disks' serial numbers", Needs::Nothing, Severity::Warning, CheckSerialNumbers},
    {"severalDisks", "volumes on several disks", Needs::Nothing, Severity::Warning, CheckSeveralDisks},
    {"manifest", "the program's manifest", Needs::Nothing, Severity::Warning, CheckManifest},
    {"writers", "the writers", Needs::Nothing, Severity::Error, CheckWriters},
    {"writerStates", "the writers' states", Needs::Nothing, Severity::Warning, CheckWriterStates},
    {"hyperVHost", "the host of virtual machines", Needs::Nothing, Severity::Warning, CheckHyperVHost},
    {"databases", "where the application lies", Needs::Nothing, Severity::Warning, CheckDatabases},
    {"volumeSupport", "the provider's volumes", Needs::Disks, Severity::Warning, CheckVolumeSupport},
    {"setSize", "the size of the set", Needs::Disks, Severity::Warning, CheckSetSize},
    {"checker", "the checker of databases", Needs::Nothing, Severity::Warning, CheckChecker},
    {"space", "room on the volumes", Needs::Nothing, Severity::Warning, CheckSpace},
    {"leftovers", "sets of earlier requests", Needs::Journal, Severity::Warning, CheckLeftovers},
    {"sessions", "iSCSI sessions of earlier requests", Needs::Journal, Severity::Warning, CheckSessions},
    {"clock", "the clock", Needs::Nothing, Severity::Warning, CheckClock},
    {"events", "the event log", Needs::Nothing, Severity::Warning, CheckEvents},
    {"plan", "the plan of a snapshot", Needs::ApplicationAndDisks, Severity::Error, CheckPlan},
};

}  // namespace

std::span<const Check> AllChecks() {
  return kChecks;
}

Severity SeverityHere(const Examination& examination) {
  return examination.options().disks.empty() ? Severity::Warning : Severity::Error;
}

}  // namespace varnelctl
