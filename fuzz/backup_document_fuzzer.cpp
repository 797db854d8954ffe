// Backup Components Documents from anywhere: each is read or refused with a DocumentError. What was read can be
// written, and reads back as the same. A requestor that is given one fails with an HRESULT or goes on, and holds
// nothing after.
#include "simulator/vss/backup_document.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/varnel.h"
#include "fuzz/fuzz_support.h"
#include "simulator/simulated_host.h"
#include "text/unicode.h"

namespace {

using namespace varnel::simulator;
using varnel::fuzz::Require;

bool SameCopies(const BackupDocument& a, const BackupDocument& b) {
  if (a.transportableCopies.size() != b.transportableCopies.size()) return false;
  for (std::size_t i = 0; i < a.transportableCopies.size(); ++i) {
    if (!(a.transportableCopies[i].id == b.transportableCopies[i].id)) return false;
  }
  return true;
}

bool SameComponents(const BackupDocument& a, const BackupDocument& b) {
  if (a.writers.size() != b.writers.size()) return false;
  for (std::size_t i = 0; i < a.writers.size(); ++i) {
    const auto& left = a.writers[i].components;
    const auto& right = b.writers[i].components;
    if (left.size() != right.size()) return false;
    for (std::size_t j = 0; j < left.size(); ++j) {
      if (left[j].type != right[j].type || left[j].succeeded != right[j].succeeded) return false;
      if (left[j].failure != right[j].failure ||
          left[j].backupMetadata.has_value() != right[j].backupMetadata.has_value()) {
        return false;
      }
    }
  }
  return true;
}

void RoundTrip(const BackupDocument& document) {
  const std::string written = FormatBackupDocument(document);
  const BackupDocument back = ParseBackupDocument(written);
  Require(FormatBackupDocument(back) == written, "a document is written as it was read");
  Require(SameComponents(document, back), "every component comes back");
  Require(SameCopies(document, back), "every shadow copy comes back");
}

std::optional<BackupDocument> Read(std::string_view xml) {
  try {
    return ParseBackupDocument(xml);
  } catch (const DocumentError&) {
    return std::nullopt;
  }
}

// Whether the service takes the document; the requestor reports a refusal as a bare `long`.
bool Initializes(SimulatedHost& host, const std::wstring& xml, bool restore) {
  bool initialized = false;
  {
    CVarnel requestor(0);
    std::string details;
    try {
      requestor.Initialize(0, xml, restore, VSS_BT_FULL, details, nullptr);
      initialized = true;
    } catch (long) {
      Require(details.ends_with(", rc=COMMError, ca=ContactTechSupport;\n"), "a refusal leaves its alert record");
    }
  }
  host.calls().Clear();
  Require(host.live().Count() == 0, "nothing is live after the requestor");
  Require(host.live().misuses().empty(), "nothing was given back wrongly");
  return initialized;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view xml(reinterpret_cast<const char*>(data), size);
  const std::optional<BackupDocument> document = Read(xml);
  if (document) RoundTrip(*document);

  static SimulatedHost host(HostModel{});
  static const varnel::ScopedHost current(host);
  const std::wstring wide = varnel::Utf8ToWideLossy(xml);
  Initializes(host, wide, true);
  const bool initialized = Initializes(host, wide, false);
  if (document) Require(initialized, "a document that can be read can be backed up again");
  return 0;
}
