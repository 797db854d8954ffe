#include "platform/host.h"
#include "varnelctl/machine_session.h"

namespace varnelctl {

MachineSession::MachineSession(Fitness /*fitness*/) {
  throw varnel::NoHostError();
}

MachineSession::~MachineSession() = default;

}  // namespace varnelctl
