/* The program's own tests on a simulated host: snapshot_test HOST.json */
#include <stdio.h>
#include <varnel-c-simulator.h>

#include "take_snapshot.h"

static int failures = 0;

static void check(int holds, const char* claim) {
  if (holds) return;
  printf("not so: %s\n", claim);
  ++failures;
}

int main(int argc, char** argv) {
  const char* const both[] = {"TSL0001", "TSL0002"};
  const char* const other[] = {"TSL0003"};
  const char* const broken[] = {"TSL\xff"};
  if (argc != 2) return 2;
  if (varnel_simulator_use(argv[1], NULL) != VARNEL_DONE) {
    printf("%s\n", varnel_simulator_message());
    return 2;
  }
  check(varnel_initialize_com(NULL) == VARNEL_DONE, "a simulated host needs no COM");
  check(take_snapshot(both, 2, stdout) == VARNEL_DONE, "the set is taken");
  check(varnel_simulator_calls()[0] != '\0', "the host was called");
  check(take_snapshot(other, 1, stdout) == VARNEL_CONFIGURATION_ERROR, "a disk without databases is refused");
  check(take_snapshot(broken, 1, stdout) == VARNEL_BAD_TEXT, "serial numbers are UTF-8");
  check(take_snapshot(NULL, 0, stdout) == VARNEL_BAD_ARGUMENT, "no disks are refused");
  check(varnel_simulator_use("no such file", NULL) == VARNEL_BAD_ARGUMENT, "a host file must be there");
  check(varnel_simulator_message()[0] != '\0', "why it cannot be used is told");
  check(varnel_simulator_end() == VARNEL_DONE, "nothing is held at the host");
  return failures == 0 ? 0 : 1;
}
