// What is wanted of the evidence of a run.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace varnelctl {

struct EvidenceOptions {
  std::optional<std::string> folder;  ///< nothing: no evidence
  bool anonymise = false;
};

/// Declares the options; they are bound to `options`.
void AddEvidenceOptions(CLI::App& app, EvidenceOptions& options);

}  // namespace varnelctl
