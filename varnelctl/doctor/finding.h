// What the doctor finds: something of this host that would make a snapshot fail or incomplete.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace varnelctl {

enum class Severity {
  Error,    ///< a snapshot would fail, or lack something of the application that lies on its disks
  Warning,  ///< it may, or something that it leaves behind does harm
  Note,     ///< good to know
};

/// The word that people and JSON documents have: "error", "warning", "note".
const char* WordFor(Severity severity);

/// All texts are one line of UTF-8.
struct Finding {
  Severity severity = Severity::Note;
  std::string object;  ///< what it is about, as people know it
  std::string found;
  std::string wanted;           ///< empty where nothing else was to be expected
  std::string explain;          ///< the key of the advice: `varnelctl explain KEY`
  std::string remedy;           ///< of the advice
  std::optional<HRESULT> code;  ///< that was answered or reported
};

using Findings = std::vector<Finding>;

/// \param key of the table of advice.
Finding Found(Severity severity, std::string object, std::string found, std::string wanted, std::string_view key);
/// With the advice on a code, which `found` tells already.
Finding FoundCode(Severity severity, std::string object, std::string found, std::string wanted, HRESULT code);
/// A question that failed: the exception that is being handled. \param call that was made when it is a bare `long`.
Finding NotAsked(std::string object, std::string_view call);

}  // namespace varnelctl
