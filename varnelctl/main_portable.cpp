#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "varnelctl/run.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return varnelctl::RunVarnelctl(arguments, std::cout, std::cerr, ::isatty(STDOUT_FILENO) != 0,
                                 varnelctl::WatchProcess);
}
