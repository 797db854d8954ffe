// varnelctl on a host with a state file, which kills itself at a call: SCENARIO STATE-FILE JOURNAL WHERE NUMBER.
#include <exception>
#include <iostream>

#include "tests/faults/kill_here.h"
#include "tests/faults/killed_run.h"
#include "varnelctl/run.h"

namespace varnel::test {
namespace {

int Run(const std::string& scenario, const std::filesystem::path& state, const std::filesystem::path& journal,
        std::string_view where, int number) {
  simulator::SimulatedHost host(KilledRunHost(scenario));
  host.KeepStateIn(state);
  KillAt(host, where, number);
  const ScopedHost current(host);
  return varnelctl::RunVarnelctl(KilledRunArguments(scenario, journal), std::cout, std::cerr);
}

}  // namespace
}  // namespace varnel::test

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  try {
    return varnel::test::Run(argv[1], argv[2], argv[3], argv[4], std::stoi(argv[5]));
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
  }
  return 1;
}
