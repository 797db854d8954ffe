// Host files from anywhere: each is read or refused with a HostFileError, never anything else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "simulator/simulated_host.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view json(reinterpret_cast<const char*>(data), size);
  try {
    varnel::simulator::SimulatedHost host(varnel::simulator::ParseHostFile(json, "fuzz.json", "no-such-directory"));
  } catch (const varnel::simulator::HostFileError&) {
  }
  return 0;
}
