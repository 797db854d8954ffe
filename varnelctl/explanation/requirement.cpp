#include "varnelctl/explanation/requirement.h"

#include <set>

#include "text/nearest_name.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

constexpr std::string_view kAll = "all";

// Disks of a machine may be of another kind than those of the set, or of one that no set can have.
std::string HowToAddDisks(const ApplicationObject& object, Application application) {
  if (application == Application::HyperV) {
    return "varnelctl plan --app hyperv " + DiskOption(object.disks) + " tells whether a set can hold it";
  }
  return (object.missingDisks.size() == 1 ? "add it with " : "add them with ") + DiskOption(object.missingDisks);
}

// Empty where nothing that a person could do now is known.
std::string RemedyFor(Reason reason, const ApplicationObject& object, Application application) {
  switch (reason) {
    case Reason::DiskNotInSet:
      return HowToAddDisks(object, application);
    case Reason::SystemDisk:
      return application == Application::None ? "" : "move it to a disk of the array";
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

// A component of no application in particular is known with its writer.
std::string NameIn(Application application, const ApplicationObject& object) {
  return application == Application::None ? object.name + " (" + Printable(object.writer->name) + ")" : object.name;
}

std::string Why(const ApplicationObject& object, const ComponentExplanation& part, Application application) {
  const std::string remedy = RemedyFor(part.reason, object, application);
  return ReasonText(part) + (remedy.empty() ? "" : " (" + remedy + ")");
}

// What the part's files alone say.
std::string WhyOfFiles(const ApplicationObject& object, const ComponentExplanation& part, Application application) {
  ComponentExplanation alone = part;
  alone.reason = part.ofFiles;
  alone.missingDisks = object.missingDisks;  // those of all its parts
  return Why(object, alone, application);
}

// Null where there is none.
const ComponentExplanation* PartThatMoreDisksDoNotHelp(const ApplicationObject& object) {
  for (const ComponentExplanation* part : object.parts) {
    if (part->ofFiles != Reason::None && part->ofFiles != Reason::DiskNotInSet) return part;
  }
  return nullptr;
}

}  // namespace

std::string DiskOption(const std::vector<std::wstring>& serialNumbers) {
  constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  std::string option = "--disk";
  for (const std::wstring& serialNumber : serialNumbers) {
    const std::string text = Printable(serialNumber);
    const bool isPlain = !text.empty() && text.find_first_not_of(kPlain) == text.npos;
    option += " " + (isPlain ? text : Quoted(serialNumber));
  }
  return option;
}

std::string WhyLeftOut(const ApplicationObject& object, Application application) {
  if (object.leftOut == nullptr) return {};
  ComponentExplanation leftOut = *object.leftOut;
  leftOut.missingDisks = object.missingDisks;  // those of all its parts
  return Why(object, leftOut, application);
}

std::string WhyNotCaptured(const ApplicationObject& object, Application application) {
  const std::string why = WhyLeftOut(object, application);
  return NameIn(application, object) + (why.empty() ? why : ": " + why);
}

std::string WhyNotHeld(const ApplicationObject& object, Application application) {
  const ComponentExplanation* const part = PartThatMoreDisksDoNotHelp(object);
  if (part == nullptr) return NameIn(application, object);
  return NameIn(application, object) + ": " + WhyOfFiles(object, *part, application);
}

std::string WhyNotWhole(const ApplicationObject& object, Application application) {
  if (const ComponentExplanation* const part = PartThatMoreDisksDoNotHelp(object)) {
    return WhyOfFiles(object, *part, application);
  }
  for (const ComponentExplanation* part : object.parts) {
    if (part->ofFiles == Reason::DiskNotInSet) return WhyOfFiles(object, *part, application);
  }
  return {};
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
    if (wanted.contains(&object) && object.leftOut != nullptr) missing.push_back(WhyNotCaptured(object, application));
  }
  if (missing.empty()) return;
  const std::string noun(NounFor(application));
  const std::string what = wanted.size() == 1
                               ? "the required " + noun
                               : std::to_string(missing.size()) + " of " + Counted(wanted.size(), "required " + noun);
  throw NotContained(what + " would not be in the set", std::move(missing));
}

}  // namespace varnelctl
