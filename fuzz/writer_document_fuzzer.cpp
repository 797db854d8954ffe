// Writer Metadata Documents from anywhere: each is read or refused with a DocumentError. What was read can be written,
// and reads back as the same.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "simulator/host_file/documents.h"

namespace {

using namespace varnel::simulator;
using varnel::fuzz::Require;

bool SameFiles(const std::vector<FileSpec>& a, const std::vector<FileSpec>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].recursive != b[i].recursive || a[i].backupTypeMask != b[i].backupTypeMask) return false;
  }
  return true;
}

bool SameComponents(const Writer& a, const Writer& b) {
  if (a.components.size() != b.components.size()) return false;
  for (std::size_t i = 0; i < a.components.size(); ++i) {
    const WriterComponent& left = a.components[i];
    const WriterComponent& right = b.components[i];
    if (left.type != right.type || left.selectable != right.selectable) return false;
    if (left.logicalPath.has_value() != right.logicalPath.has_value()) return false;
    if (!SameFiles(left.files, right.files) || !SameFiles(left.databaseFiles, right.databaseFiles)) return false;
    if (!SameFiles(left.logFiles, right.logFiles)) return false;
  }
  return true;
}

void RoundTrip(std::string_view xml) {
  const Writer writer = ParseWriterMetadata(xml);
  const std::string written = FormatWriterMetadata(writer);
  const Writer back = ParseWriterMetadata(written);
  Require(FormatWriterMetadata(back) == written, "a document is written as it was read");
  Require(back.writerId == writer.writerId && back.instanceId == writer.instanceId, "the identifiers come back");
  Require(SameComponents(writer, back), "every component comes back");
  Require(back.excludeFiles.size() == writer.excludeFiles.size(), "every exclusion comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    RoundTrip(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DocumentError& error) {
    Require(*error.what() != '\0', "a refusal says why");
  }
  return 0;
}
