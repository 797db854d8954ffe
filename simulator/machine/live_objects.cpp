#include "simulator/machine/live_objects.h"

namespace varnel::simulator {

void LiveObjects::Add(std::string_view kind) {
  const auto found = counts_.find(kind);
  ++(found != counts_.end() ? found : counts_.emplace(kind, 0).first)->second;
}

void LiveObjects::Remove(std::string_view kind) {
  const auto found = counts_.find(kind);
  if (found == counts_.end() || found->second == 0) {
    AddMisuse(std::string(kind) + " given back too often");
    return;
  }
  --found->second;
}

long long LiveObjects::Count() const {
  long long count = 0;
  for (const auto& [kind, live] : counts_) count += live;
  return count;
}

long long LiveObjects::Count(std::string_view kind) const {
  const auto found = counts_.find(kind);
  return found == counts_.end() ? 0 : found->second;
}

std::string LiveObjects::Describe() const {
  std::string text;
  for (const auto& [kind, live] : counts_) {
    if (live == 0) continue;
    if (!text.empty()) text += ", ";
    text += std::to_string(live) + " " + kind;
  }
  return text;
}

}  // namespace varnel::simulator
