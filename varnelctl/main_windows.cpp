// The command line comes as UTF-16 whatever the code page, and what is printed leaves as UTF-8 with "\n" line ends.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "text/unicode.h"
// clang-format off
#include <shellapi.h>
// clang-format on
#include "varnelctl/run.h"

namespace {

// Consoles show the output in the code page that is set for them; the one before comes back at the end.
class Utf8Console {
 public:
  Utf8Console() : previous_(::GetConsoleOutputCP()) { ::SetConsoleOutputCP(CP_UTF8); }
  ~Utf8Console() {
    if (previous_ != 0) ::SetConsoleOutputCP(previous_);
  }
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  UINT previous_;
};

std::vector<std::string> Arguments() {
  int count = 0;
  const auto free = [](LPWSTR* block) { ::LocalFree(block); };
  const std::unique_ptr<LPWSTR[], decltype(free)> words(::CommandLineToArgvW(::GetCommandLineW(), &count), free);
  std::vector<std::string> arguments;
  for (int i = 1; words && i < count; ++i) {
    arguments.push_back(varnel::WideToUtf8Lossy(words[static_cast<std::size_t>(i)]));
  }
  return arguments;
}

// Whether standard output is a console that takes escape sequences; it is asked to.
bool IsTerminal() {
  constexpr DWORD kVirtualTerminal = 0x4;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  const HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  return ::GetConsoleMode(out, &mode) && ::SetConsoleMode(out, mode | kVirtualTerminal);
}

}  // namespace

int main() {
  // A drive without its medium is a failed call, not a dialog that nobody sees.
  ::SetErrorMode(::GetErrorMode() | SEM_FAILCRITICALERRORS);
  ::_setmode(::_fileno(stdout), _O_BINARY);
  ::_setmode(::_fileno(stderr), _O_BINARY);
  const Utf8Console console;
  return varnelctl::RunVarnelctl(Arguments(), std::cout, std::cerr, IsTerminal(), varnelctl::WatchProcess);
}
