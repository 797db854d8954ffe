// The document of a run as varnelctl printed it, read again.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace varnelctl::html {

/// A run whose document has everything, of the right type, that a report needs of it. Keys that are not known are kept.
struct StoredRun {
  std::string name;  ///< of its file, for people
  nlohmann::json document;
  std::string log = {};  ///< the lines of its log as a log file has them; empty where nobody kept them
};

/// The run of a document, or of the last line of --json-lines. Throws UsageError, which names the place, for text that
/// is neither, for the document of another command and for one of another version.
StoredRun ReadRun(std::string name, std::string_view text);

/// The same of a file. Throws UsageError for one that cannot be read, too.
StoredRun ReadRunFile(const std::string& argument);

}  // namespace varnelctl::html
