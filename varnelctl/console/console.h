// Where varnelctl prints: results go to standard output, everything about trouble to standard error.
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "varnelctl/console/terminal.h"

namespace varnelctl {

/// Keys stay in the order in which they were written.
using Json = nlohmann::ordered_json;

/// What a line is about; a terminal shows it as a colour.
enum class Tone { Plain, Good, Warning, Bad };

/// Nothing that could move the cursor or hide text is printed, wherever it came from; on terminals lines are wrapped.
class Console {
 public:
  /// Both streams are borrowed. Lines end in "\n" on every platform; the program puts its streams into binary mode.
  Console(std::ostream& out, std::ostream& err, const Terminals& terminals = {})
      : out_{out, terminals.out}, err_{err, terminals.err} {}

  void Line(std::string_view text, Tone tone = Tone::Plain);
  /// Never wrapped.
  void Document(const Json& document);
  /// In one line, which leaves the process at once.
  void DocumentLine(const Json& document);
  /// Text that brings its own line ends.
  void Text(std::string_view text);

  /// A line about something that is under way, only on a terminal that can erase it: its end replaces it, and whatever
  /// is printed before that stands above it.
  void Live(std::string_view text);
  void EndLive(std::string_view text);

  /// "varnelctl: text"
  void Error(std::string_view text);
  /// "varnelctl: warning: text"
  void Warning(std::string_view text);
  /// What follows an error: alert records and details, as they stand.
  void Detail(std::string_view lines, Tone tone = Tone::Plain);

  /// False when standard output did not take everything.
  bool Flush();
  /// Whether the reader of standard output went away.
  bool IsAbandoned() const { return abandoned_; }

 private:
  struct Stream {
    std::ostream& stream;
    Terminal terminal;
  };

  void Write(std::string_view bytes, bool flush = false);
  void ShowLive();
  void HideLive();

  Stream out_;
  Stream err_;
  std::string live_;  // what is shown of something under way
  bool abandoned_ = false;
};

}  // namespace varnelctl
