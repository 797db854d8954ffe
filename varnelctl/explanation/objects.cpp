#include "varnelctl/explanation/objects.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

std::wstring WithoutFirstBackslash(const std::wstring& path) {
  return path.starts_with(L'\\') ? path.substr(1) : path;
}

// The caption of a virtual machine is "Online\WEB01"; the writer has components that are no machine, too.
std::wstring MachineName(const VssComponent& component) {
  const std::size_t backslash = component.caption.find(L'\\');
  return backslash == component.caption.npos ? std::wstring() : component.caption.substr(backslash + 1);
}

// Empty for a component that is no object of the application.
std::wstring ObjectName(const VssComponent& component, Application application) {
  switch (application) {
    case Application::HyperV:
      return MachineName(component);
    case Application::Exchange:
      return component.caption.empty() ? component.name : component.caption;
    default:
      return WithoutFirstBackslash(component.fullPath);
  }
}

// How little more disks would help.
int Gravity(Reason reason) {
  switch (reason) {
    case Reason::RequestEnded:
      return 0;
    case Reason::DiskNotInSet:
      return 1;
    default:
      return 2;
  }
}

void AddPart(ApplicationObject& object, const ComponentExplanation& part) {
  object.parts.push_back(&part);
  object.failed = object.failed || varnel::HasFailed(*part.component);
  if (part.reason != Reason::None &&
      (object.leftOut == nullptr || Gravity(part.reason) > Gravity(object.leftOut->reason))) {
    object.leftOut = &part;
  }
}

void CollectDisks(ApplicationObject& object) {
  std::set<std::wstring> disks;
  std::set<std::wstring> missing;
  for (const ComponentExplanation* part : object.parts) {
    disks.insert(part->disks.begin(), part->disks.end());
    missing.insert(part->missingDisks.begin(), part->missingDisks.end());
  }
  object.disks.assign(disks.begin(), disks.end());
  object.missingDisks.assign(missing.begin(), missing.end());
}

void AddObjects(std::vector<ApplicationObject>& objects, const WriterExplanation& writer, Application application) {
  std::unordered_map<const VssComponent*, std::size_t> known;
  for (const ComponentExplanation& part : writer.components) {
    if (part.component->files.empty()) continue;
    const std::wstring name = ObjectName(*part.object, application);
    if (name.empty()) continue;
    const auto [entry, isNew] = known.try_emplace(part.object, objects.size());
    if (isNew) {
      objects.push_back({Printable(name), writer.writer, part.object, {}, {}, {}, varnel::HasFailed(*part.object)});
    }
    AddPart(objects[entry->second], part);
  }
}

}  // namespace

std::vector<ApplicationObject> ObjectsOf(const Explanation& explanation, Application application) {
  std::vector<ApplicationObject> objects;
  for (const WriterExplanation& writer : explanation) AddObjects(objects, writer, application);
  for (ApplicationObject& object : objects) CollectDisks(object);
  return objects;
}

std::string_view NounFor(Application application) {
  switch (application) {
    case Application::Sql:
      return "database";
    case Application::Exchange:
      return "mailbox database";
    case Application::HyperV:
      return "virtual machine";
    case Application::None:
      break;
  }
  return "component";
}

bool IsNamed(const ApplicationObject& object, std::string_view name) {
  const std::wstring wanted = varnel::Utf8ToWideLossy(name);
  const VssComponent& component = *object.component;
  const std::wstring names[] = {varnel::Utf8ToWideLossy(object.name), component.name, component.caption,
                                component.fullPath, WithoutFirstBackslash(component.fullPath)};
  return !wanted.empty() && std::any_of(std::begin(names), std::end(names), [&](const std::wstring& known) {
    return varnel::ascii::EqualIgnoringCase(known, wanted);
  });
}

}  // namespace varnelctl
