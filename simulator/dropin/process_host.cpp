#include "simulator/dropin/process_host.h"

#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "simulator/dropin/this_module.h"
#include "simulator/simulated_host.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

// The value of an environment variable; empty when there is none.
std::wstring Variable(const wchar_t* name) {
  std::wstring value;
  DWORD characters = ::GetEnvironmentVariableW(name, nullptr, 0);
  while (characters > value.size()) {
    value.resize(characters);
    characters = ::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
  }
  value.resize(characters);
  return value;
}

HostModel LoadModel() {
  const std::wstring file = Variable(kHostVariable);
  if (file.empty()) throw std::runtime_error(WideToUtf8(kHostVariable) + " is not set; it names the host file");
  return LoadHostFile(file);
}

// Each line leaves the process with its call, so that the log of a process that crashes is whole.
void SendCallsTo(CallLog& calls, const std::wstring& file) {
  const auto stream = std::make_shared<std::ofstream>(std::filesystem::path(file), std::ios::binary);
  if (!*stream) throw std::runtime_error(WideToUtf8Lossy(file) + ": cannot write the call log");
  calls.SendTo([stream](const std::string& line) { *stream << line << '\n' << std::flush; });
}

std::unique_ptr<SimulatedHost> MakeHost() {
  auto host = std::make_unique<SimulatedHost>(LoadModel());
  host->machine().countsSystemMemory = false;
  const std::wstring state = Variable(kStateVariable);
  if (!state.empty()) host->KeepStateIn(state);
  const std::wstring calls = Variable(kCallsVariable);
  host->calls().enabled = !calls.empty();
  if (!calls.empty()) SendCallsTo(host->calls(), calls);
  return host;
}

// A process that looks for the initiator by its name finds the one that is loaded already.
void LoadInitiatorBesideThis() {
  ::LoadLibraryW((this_module::Folder() / L"iscsidsc.dll").c_str());
}

SimulatedHost& Start() {
  std::unique_ptr<SimulatedHost> host = MakeHost();
  LoadInitiatorBesideThis();
  this_module::Pin();
  return *host.release();
}

}  // namespace

HRESULT ProcessHost(Host** host) noexcept {
  if (host == nullptr) return E_POINTER;
  *host = nullptr;
  try {
    // Never destroyed: objects may outlive everything that a process destroys as it ends.
    static SimulatedHost& instance = Start();
    *host = &instance;
    return S_OK;
  } catch (const std::exception& error) {
    this_module::Report(error.what());
    return E_UNEXPECTED;
  }
}

}  // namespace varnel::simulator
