// A step of a run, as programs and people know it.
#pragma once

namespace varnelctl {

/// A phase of a run is one operation of the library; it has one step or several.
struct StepName {
  const char* key;         ///< for programs
  const char* words;       ///< "looking for the disks"
  const char* phase;       ///< the library's operation
  const char* parts = "";  ///< what cannot be told apart in it, for its line
};

}  // namespace varnelctl
