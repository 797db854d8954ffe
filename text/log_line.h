// The lines of a log as people read them: time, category, source(line), text.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace varnel {

/// Renders lines, each whole, in UTF-8. Not for two threads at a time.
class LogLines {
 public:
  /// Appends a line of now, with its end. What follows a line break in `text` is indented.
  /// \param category 'V', 'I', 'W' or 'E'.
  void AppendTo(std::string& log, char category, std::wstring_view source, int line, std::wstring_view text);

 private:
  void AppendTime(std::string& log);

  std::time_t second_ = -1;
  std::string rendered_;  // of second_
};

}  // namespace varnel
