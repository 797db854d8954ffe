// Where varnelctl prints: results go to standard output, everything about trouble to standard error.
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace varnelctl {

/// Keys stay in the order in which they were written.
using Json = nlohmann::ordered_json;

class Console {
 public:
  /// Both streams are borrowed. Lines end in "\n" on every platform; the program puts its streams into binary mode.
  Console(std::ostream& out, std::ostream& err, bool terminal = false) : out_(out), err_(err), terminal_(terminal) {}

  void Line(std::string_view text);
  void Document(const Json& document);
  /// Text that brings its own line ends.
  void Text(std::string_view text);

  /// A line about something that is under way, on a terminal only, where its end replaces it.
  void Live(std::string_view text);
  void EndLive(std::string_view text);

  /// "varnelctl: text"
  void Error(std::string_view text);
  /// "varnelctl: warning: text"
  void Warning(std::string_view text);
  /// What follows an error: alert records and details, as they stand.
  void Detail(std::string_view lines);

  /// False when standard output did not take everything.
  bool Flush();

 private:
  std::ostream& out_;
  std::ostream& err_;
  const bool terminal_;  // of standard output
};

}  // namespace varnelctl
