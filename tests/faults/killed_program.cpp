// A program that makes a request on a host with a state file and may kill itself at a call: see killed_request.h. With
// "rounds N" in place of where to end it makes N requests, each as soon as other processes let it.
#include <exception>
#include <iostream>
#include <thread>

#include "tests/faults/kill_here.h"
#include "tests/faults/killed_request.h"

namespace varnel::test {
namespace {

void TakeOneWhenPossible() {
  for (;;) {
    SnapshotRequest<> request(BothDisks(DWORD{VSS_CTX_APP_ROLLBACK}));
    const Outcome created = request.StartAndCreate();
    const Outcome completed = request.Complete(StatusCode(created));
    if (created == Outcome::Thrown(VSS_E_SNAPSHOT_SET_IN_PROGRESS)) {
      std::this_thread::yield();
      continue;
    }
    Require(created);
    return Require(completed);
  }
}

int Run(const std::string& scenario, const std::filesystem::path& state, std::string_view where, int number) {
  simulator::SimulatedHost host(KilledHost(scenario));
  host.KeepStateIn(state);
  const ScopedHost current(host);
  if (where == "rounds") {
    for (int round = 0; round < number; ++round) TakeOneWhenPossible();
    return 0;
  }
  KillAt(host, where, number);
  RunRequest(scenario);
  return 0;
}

}  // namespace
}  // namespace varnel::test

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  try {
    return varnel::test::Run(argv[1], argv[2], argv[3], std::stoi(argv[4]));
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
  } catch (...) {
    std::cerr << "the request failed\n";
  }
  return 1;
}
