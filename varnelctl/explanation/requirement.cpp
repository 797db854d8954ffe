#include "varnelctl/explanation/requirement.h"

#include <algorithm>
#include <set>

#include "text/nearest_name.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

constexpr std::string_view kAll = "all";

// Empty where nothing that a person could do now is known.
std::string RemedyFor(Reason reason, const ApplicationObject& object) {
  switch (reason) {
    case Reason::DiskNotInSet:
      return "add " + SerialNumberList(object.missingDisks) + " to --disk";
    case Reason::SystemDisk:
      return "move it to a disk of the array";
    case Reason::SeveralDisks:
      return "move it to a volume on one disk of the array";
    case Reason::DiskUnknown:
      return "varnelctl disks shows what is known";
    case Reason::NotNamed:
      return "have the array name it, or use --writer-code 0";
    default:
      return {};
  }
}

std::string Why(const ApplicationObject& object, const ComponentExplanation& part) {
  const std::string remedy = RemedyFor(part.reason, object);
  return object.name + ": " + ReasonText(part) + (remedy.empty() ? "" : " (" + remedy + ")");
}

}  // namespace

std::string WhyNotCaptured(const ApplicationObject& object) {
  return object.leftOut == nullptr ? object.name : Why(object, *object.leftOut);
}

std::string WhyNotHeld(const ApplicationObject& object) {
  for (const ComponentExplanation* part : object.parts) {
    if (part->ofFiles == Reason::None || part->ofFiles == Reason::DiskNotInSet) continue;
    ComponentExplanation alone = *part;
    alone.reason = part->ofFiles;
    return Why(object, alone);
  }
  return object.name;
}

std::vector<const ApplicationObject*> ObjectsNamed(std::string_view name, const std::vector<ApplicationObject>& objects,
                                                   Application application) {
  std::vector<const ApplicationObject*> named;
  std::vector<std::wstring> names;
  for (const ApplicationObject& object : objects) {
    names.push_back(varnel::Utf8ToWideLossy(object.name));
    names.push_back(object.component->name);
    if (IsNamed(object, name)) named.push_back(&object);
  }
  if (!named.empty()) return named;
  const std::string wanted = Printable(varnel::Utf8ToWideLossy(name));
  throw NotContained("this host has no " + std::string(NounFor(application)) + " \"" + wanted + "\"" +
                         varnel::DidYouMean(wanted, names),
                     {});
}

void CheckRequired(const std::vector<std::string>& required, const std::vector<ApplicationObject>& objects,
                   Application application) {
  std::set<const ApplicationObject*> wanted;
  for (const std::string& name : required) {
    if (name == kAll) {
      for (const ApplicationObject& object : objects) wanted.insert(&object);
    } else {
      const auto named = ObjectsNamed(name, objects, application);
      wanted.insert(named.begin(), named.end());
    }
  }
  std::vector<std::string> missing;
  for (const ApplicationObject& object : objects) {
    if (wanted.contains(&object) && object.leftOut != nullptr) missing.push_back(WhyNotCaptured(object));
  }
  if (missing.empty()) return;
  const std::string noun(NounFor(application));
  const std::string what = wanted.size() == 1
                               ? "the required " + noun
                               : std::to_string(missing.size()) + " of " + Counted(wanted.size(), "required " + noun);
  throw NotContained(what + " would not be in the set", std::move(missing));
}

}  // namespace varnelctl
