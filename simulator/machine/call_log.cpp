#include "simulator/machine/call_log.h"

#include <algorithm>
#include <iterator>

namespace varnel::simulator {

void CallLog::Add(std::string line) {
  if (sink_) {
    sink_(line);
  } else {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }
}

void CallLog::Clear() {
  const std::lock_guard lock(mutex_);
  lines_.clear();
  arguments_ = {};
}

std::string CallLog::Text() const {
  const std::lock_guard lock(mutex_);
  std::string text;
  for (const std::string& line : lines_) text.append(line) += '\n';
  return text;
}

std::vector<std::string> CallLog::Of(std::string_view call) const {
  std::vector<std::string> found;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
               [&](const std::string& line) { return line.starts_with(std::string(call) + '('); });
  return found;
}

}  // namespace varnel::simulator
