// The end of a process at one of its calls of a simulated host.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "simulator/simulated_host.h"

#ifndef _WIN32
#include <csignal>
#endif

namespace varnel::test {

/// Where a program is to be killed, and at which number.
inline constexpr std::string_view kBeforeCall = "before";  // the nth call that the fault plan counts
inline constexpr std::string_view kAfterCall = "after";    // the nth line of the call log: done, and not yet told

[[noreturn]] inline void KillThisProcess() {
#ifdef _WIN32
  ::TerminateProcess(::GetCurrentProcess(), 137);
#else
  std::raise(SIGKILL);
#endif
  std::abort();
}

inline void KillAt(simulator::SimulatedHost& host, std::string_view where, int number) {
  host.faults().TellCallsTo([=](int call) {
    if (where == kBeforeCall && call == number) KillThisProcess();
  });
  host.calls().SendTo([=, line = 0](const std::string&) mutable {
    if (++line == number && where == kAfterCall) KillThisProcess();
  });
}

}  // namespace varnel::test
