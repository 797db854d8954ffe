#include "varnelctl/report/not_in_set.h"

#include <unordered_set>

#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/requirement.h"

namespace varnelctl {
namespace {

bool IsToBeTold(const ComponentExplanation* leftOut) {
  return leftOut != nullptr && leftOut->reason != Reason::RequestEnded;
}

}  // namespace

std::vector<std::string> LinesNotInSet(const Explanation& explanation, const std::vector<ApplicationObject>& objects,
                                       Application application) {
  std::vector<std::string> lines;
  std::unordered_set<const ComponentExplanation*> parts;
  for (const ApplicationObject& object : objects) {
    if (IsToBeTold(object.leftOut)) lines.push_back(WhyNotCaptured(object, application));
    parts.insert(object.parts.begin(), object.parts.end());
  }
  for (const WriterExplanation& writer : explanation) {
    for (const ComponentExplanation& component : writer.components) {
      const bool isOther = !component.component->files.empty() && !parts.contains(&component);
      if (!isOther || component.place != Place::LeftOut || !IsToBeTold(&component)) continue;
      lines.push_back(NameOf(*component.component) + ": " + ReasonText(component));
    }
  }
  return lines;
}

std::vector<std::string> OtherWriters(const Explanation& explanation) {
  std::vector<std::string> names;
  for (const WriterExplanation& writer : explanation) {
    if (writer.reason == Reason::OtherApplication) names.push_back(varnel::WideToUtf8Lossy(writer.writer->name));
  }
  return names;
}

std::string OtherWritersText(const Explanation& explanation) {
  const std::size_t count = OtherWriters(explanation).size();
  if (count == 0) return {};
  return Counted(count, "writer") + (count == 1 ? " of another application" : " of other applications");
}

}  // namespace varnelctl
