#include "varnelctl/capture/capture_files.h"

#include <algorithm>

#include "simulator/host_file/documents.h"
#include "simulator/host_file/write_host.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/anonymise/folding.h"

namespace varnelctl {
namespace {

using varnel::simulator::Writer;

// "writers/03-sqlserverwriter.xml": the same on every file system, whatever the writer is called.
std::string FileNameOf(const std::string& writer, std::size_t number) {
  constexpr std::size_t kMostCharacters = 40;
  std::string name;
  for (const char c : Folded(writer)) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (isPlain) name += c;
    if (!isPlain && !name.empty() && name.back() != '-') name += '-';
    if (name.size() == kMostCharacters) break;
  }
  while (name.ends_with('-')) name.pop_back();
  const std::string digits = std::to_string(number);
  return "writers/" + std::string(digits.size() < 2 ? 2 - digits.size() : 0, '0') + digits +
         (name.empty() ? "" : "-" + name) + ".xml";
}

}  // namespace

CaptureFiles MakeFiles(const CapturedHost& host) {
  CaptureFiles files;
  std::vector<std::string> names;
  for (const Writer& writer : host.model.writers) {
    names.push_back(FileNameOf(varnel::WideToUtf8Lossy(writer.name), names.size() + 1));
    files.documents.emplace_back(names.back(),
                                 writer.document ? *writer.document : varnel::simulator::FormatWriterMetadata(writer));
  }
  for (const StrayDocument& stray : host.strays) {
    files.documents.emplace_back(FileNameOf(stray.writer, files.documents.size() + 1), stray.xml);
  }
  std::vector<std::string> comments;
  if (!host.unanswered.empty()) comments.emplace_back("What this host did not tell:");
  for (const std::string& line : host.unanswered) comments.push_back("  " + line);
  files.hostFile = varnel::simulator::FormatHostFile(host.model, names, comments);
  return files;
}

}  // namespace varnelctl
