#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>

#include "varnelctl/sets/process_identity.h"

namespace varnelctl {
namespace {

// Of a process that has ended and is not yet taken off the list nothing is left but its status.
constexpr char kEnded = 'Z';

struct Status {
  char state = 0;  // where it may not be asked for
  std::uint64_t start = 0;
};

// The name, in brackets, may hold anything; after it come the state and, as the 20th field from there, the start.
Status StatusOf(std::uint32_t id) {
  constexpr int kFieldsBetween = 18;
  std::ifstream file("/proc/" + std::to_string(id) + "/stat");
  std::stringstream text;
  text << file.rdbuf();
  std::string line = text.str();
  Status status;
  const std::size_t name = line.rfind(')');
  if (name == std::string::npos) return status;
  std::istringstream fields(line.substr(name + 1));
  fields >> status.state;
  std::string skipped;
  for (int i = 0; i < kFieldsBetween; ++i) fields >> skipped;
  fields >> status.start;
  return status;
}

}  // namespace

ProcessIdentity ThisProcess() {
  const auto id = static_cast<std::uint32_t>(::getpid());
  return {id, StatusOf(id).start};
}

bool IsRunning(const ProcessIdentity& process) {
  if (process.id == 0) return false;
  const bool known = ::kill(static_cast<pid_t>(process.id), 0) == 0 || errno == EPERM;
  const Status status = StatusOf(process.id);
  return known && status.state != kEnded && (status.state == 0 || status.start == process.start);
}

}  // namespace varnelctl
