#include <string_view>

#include "simulator/simulated_host.h"

namespace varnel::simulator {
namespace {

// The sample's file, byte by byte: compilers limit the length of a text literal.
constexpr unsigned char kSampleHost[] = {
#include "sample_host.inc"
};

}  // namespace

HostModel SampleHost() {
  const std::string_view json(reinterpret_cast<const char*>(kSampleHost), sizeof kSampleHost);
  return ParseHostFile(json, "the built-in sample host", {});
}

}  // namespace varnel::simulator
