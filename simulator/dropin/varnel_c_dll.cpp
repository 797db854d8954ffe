// The simulator in the C interface's library.
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "simulator/dropin/varnel-c-simulator.h"
#include "simulator/simulated_host.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

struct CurrentlyUsed {
  std::unique_ptr<SimulatedHost> host;
  std::optional<ScopedHost> current;
  std::string calls;
};

// Never destroyed: requests may outlive everything that a process destroys as it ends.
CurrentlyUsed& Used() {
  static CurrentlyUsed& used = *new CurrentlyUsed;
  return used;
}

thread_local std::string message;

std::filesystem::path PathOf(const char* utf8) {
  const std::string text = WideToUtf8(Utf8ToWide(utf8));  // throws for what is none
  return {std::u8string(text.begin(), text.end())};
}

bool IsInUse() {
  const CurrentlyUsed& used = Used();
  return used.host && used.host->live().Count() != 0;
}

void End() {
  CurrentlyUsed& used = Used();
  used.current.reset();
  used.host.reset();
}

void Use(const char* hostFile, const char* stateFile) {
  auto host = std::make_unique<SimulatedHost>(hostFile == nullptr ? SampleHost() : LoadHostFile(PathOf(hostFile)));
  if (stateFile != nullptr) host->KeepStateIn(PathOf(stateFile));
  End();
  CurrentlyUsed& used = Used();
  used.host = std::move(host);
  used.current.emplace(*used.host);
}

int Tell(const std::exception& error) noexcept {
  try {
    message = error.what();
    return VARNEL_BAD_ARGUMENT;
  } catch (const std::bad_alloc&) {
    return VARNEL_NO_MEMORY;
  }
}

// Does it unless a request holds something of the host, and tells what is thrown.
template <class Action>
int Attempt(Action action) noexcept {
  message.clear();
  if (IsInUse()) return VARNEL_BAD_ORDER;
  try {
    action();
    return VARNEL_DONE;
  } catch (const std::bad_alloc&) {
    return VARNEL_NO_MEMORY;
  } catch (const std::range_error&) {
    return VARNEL_BAD_TEXT;
  } catch (const std::exception& error) {
    return Tell(error);
  }
}

}  // namespace
}  // namespace varnel::simulator

int varnel_simulator_use(const char* host_file, const char* state_file) {
  return varnel::simulator::Attempt([&] { varnel::simulator::Use(host_file, state_file); });
}

int varnel_simulator_end() {
  return varnel::simulator::Attempt([] { varnel::simulator::End(); });
}

const char* varnel_simulator_message() {
  return varnel::simulator::message.c_str();
}

const char* varnel_simulator_calls() {
  varnel::simulator::CurrentlyUsed& used = varnel::simulator::Used();
  if (!used.host) return "";
  try {
    used.calls = used.host->calls().Text();
    return used.calls.c_str();
  } catch (const std::bad_alloc&) {
    return "";
  }
}
