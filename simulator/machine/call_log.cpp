#include "simulator/machine/call_log.h"

#include <algorithm>
#include <iterator>

namespace varnel::simulator {

void CallLog::Add(std::string line) {
  if (sink_) {
    sink_(line);
  } else {
    lines_.push_back(std::move(line));
  }
}

void CallLog::Clear() {
  lines_.clear();
  arguments_ = {};
}

std::vector<std::string> CallLog::Of(std::string_view call) const {
  std::vector<std::string> found;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
               [&](const std::string& line) { return line.starts_with(std::string(call) + '('); });
  return found;
}

}  // namespace varnel::simulator
