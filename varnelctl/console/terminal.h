// What the streams of the process lead to.
#pragma once

#include <functional>

namespace varnelctl {

/// One stream. Everything is off where it leads to a file or a pipe.
struct Terminal {
  int columns = 0;      ///< lines are wrapped there; 0 where nothing is wrapped
  bool colour = false;  ///< shows colours
  bool erases = false;  ///< takes the sequence that erases a line
};

struct Terminals {
  Terminal out;
  Terminal err;
};

/// Wrapping goes no further than this.
inline constexpr int kFewestColumns = 40;

/// A terminal as the environment wants it used: COLUMNS holds over `columns`, NO_COLOR takes the colours away and
/// TERM=dumb every sequence. \param columns 0 where nobody knows them. \param takesSequences escape sequences.
/// \param variable gives the value of an environment variable, null without one.
Terminal DescribeTerminal(int columns, bool takesSequences, const std::function<const char*(const char*)>& variable);

}  // namespace varnelctl
