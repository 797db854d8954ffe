// Everything that the current host says of itself to whoever asks without changing anything.
#pragma once

#include <string>
#include <vector>

#include "simulator/machine/model.h"

namespace varnelctl {

/// A document of the service that belongs to no writer of the model.
struct StrayDocument {
  std::string writer;
  std::string xml;  // UTF-8
};

struct CapturedHost {
  varnel::simulator::HostModel model;
  /// What could not be asked, a line each: the call, what it was about, and the code that it answered.
  std::vector<std::string> unanswered;
  /// Documents that no host file can hold.
  std::vector<StrayDocument> strays;
};

/// Asks the current host. Of the writers' events only Identify is raised, and nothing on the host is changed. Never
/// fails for what a host answers: what one question does not tell stays as a host file has it by default.
CapturedHost ReadHost();

}  // namespace varnelctl
