// From what somebody has read somewhere, a number, a name or a whole record, to what it means.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "varnelctl/explanation/advice.h"

namespace varnelctl {

struct Explained {
  const Advice* advice = nullptr;        ///< never null
  std::string title;                     ///< what is explained, in one line
  std::string key;                       ///< what `varnelctl explain` finds it by
  std::vector<std::string> particulars;  ///< what else there is to say of it, a line each
};

/// The entry as it is.
Explained AsExplained(const Advice& advice);

/// Everything that the text may mean, each once; empty when nothing is known of it. Takes a key of the table, a name in
/// any case, a number in decimal or hexadecimal, and text in which any of these or alert records stand. A plain number
/// is an exit status, else an alert code, else a Win32 code.
std::vector<Explained> LookUp(std::string_view text);

/// Throws UsageError with the nearest right name when nothing is known.
std::vector<Explained> LookUpOrRefuse(std::string_view text);

}  // namespace varnelctl
