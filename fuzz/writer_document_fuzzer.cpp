// Writer Metadata Documents from anywhere: each is read or refused with a DocumentError. What was read can be written,
// and reads back as the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "simulator/documents.h"

namespace {

using varnel::simulator::FormatWriterMetadata;
using varnel::simulator::ParseWriterMetadata;

void RoundTrip(std::string_view xml) {
  const std::string written = FormatWriterMetadata(ParseWriterMetadata(xml));
  if (FormatWriterMetadata(ParseWriterMetadata(written)) != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    RoundTrip(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const varnel::simulator::DocumentError&) {
  }
  return 0;
}
