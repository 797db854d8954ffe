// The command line comes as UTF-16 whatever the code page, and what is printed leaves as UTF-8 with "\n" line ends.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
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

// A stream that may be a console. One that is, is asked to take escape sequences; its mode before comes back at the
// end.
class ConsoleStream {
 public:
  explicit ConsoleStream(DWORD which) : handle_(::GetStdHandle(which)) {
    constexpr DWORD kVirtualTerminal = 0x4;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
    isConsole_ = ::GetConsoleMode(handle_, &previous_) != 0;
    takesSequences_ = isConsole_ && ::SetConsoleMode(handle_, previous_ | kVirtualTerminal);
  }
  ~ConsoleStream() {
    if (takesSequences_) ::SetConsoleMode(handle_, previous_);
  }
  ConsoleStream(const ConsoleStream&) = delete;
  ConsoleStream& operator=(const ConsoleStream&) = delete;

  varnelctl::Terminal Describe() const {
    if (!isConsole_) return {};
    CONSOLE_SCREEN_BUFFER_INFO info{};
    // A line that fills the last column makes some consoles leave the next one empty.
    const int columns = ::GetConsoleScreenBufferInfo(handle_, &info) ? info.srWindow.Right - info.srWindow.Left : 0;
    return varnelctl::DescribeTerminal(columns, takesSequences_, [](const char* name) { return std::getenv(name); });
  }

 private:
  HANDLE handle_;
  DWORD previous_ = 0;
  bool isConsole_ = false;
  bool takesSequences_ = false;
};

}  // namespace

int main() {
  // A drive without its medium is a failed call, not a dialog that nobody sees.
  ::SetErrorMode(::GetErrorMode() | SEM_FAILCRITICALERRORS);
  ::_setmode(::_fileno(stdout), _O_BINARY);
  ::_setmode(::_fileno(stderr), _O_BINARY);
  const Utf8Console console;
  const ConsoleStream out(STD_OUTPUT_HANDLE);
  const ConsoleStream err(STD_ERROR_HANDLE);
  return varnelctl::RunVarnelctl(Arguments(), std::cout, std::cerr, {out.Describe(), err.Describe()},
                                 varnelctl::WatchProcess);
}
