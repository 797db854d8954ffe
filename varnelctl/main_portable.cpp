#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "varnelctl/run.h"

namespace {

varnelctl::Terminal TerminalOf(int descriptor) {
  if (::isatty(descriptor) == 0) return {};
  winsize size{};
  const int columns = ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
  return varnelctl::DescribeTerminal(columns, true, [](const char* name) { return std::getenv(name); });
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away fails a write; it does not end the process in the middle of a backup.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return varnelctl::RunVarnelctl(arguments, std::cout, std::cerr,
                                 {TerminalOf(STDOUT_FILENO), TerminalOf(STDERR_FILENO)}, varnelctl::WatchProcess);
}
