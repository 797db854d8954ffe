#include "varnelctl/sets/disks_for.h"

#include <algorithm>
#include <set>

#include "varnelctl/explanation/requirement.h"

namespace varnelctl {
namespace {

using Disks = std::set<std::wstring>;

// Whether a set of the right disks would hold it.
bool CanBeHeld(const ApplicationObject& object) {
  return std::all_of(object.parts.begin(), object.parts.end(), [](const ComponentExplanation* part) {
    return part->ofFiles == Reason::None || part->ofFiles == Reason::DiskNotInSet;
  });
}

void Gather(Session& session, DisksFor& found) {
  session.Ask("Initialize", [&] {
    found.requestor->Initialize(0, L"", false, VSS_BT_FULL, session.errorDetails, &found.enumerator);
  });
  session.Ask("GatherWriterMetadata", [&] { found.requestor->GatherWriterMetadata(session.errorDetails); });
}

void AddOthers(DisksFor& found, const std::vector<ApplicationObject>& objects, const Disks& disks) {
  for (const ApplicationObject& object : objects) {
    const auto onDisks = [&](const std::wstring& disk) { return disks.contains(disk); };
    const bool isWanted = std::any_of(found.wanted.begin(), found.wanted.end(), [&](const ApplicationObject& wanted) {
      return wanted.component == object.component;
    });
    if (isWanted || std::none_of(object.disks.begin(), object.disks.end(), onDisks)) continue;
    const bool wholly = CanBeHeld(object) && std::all_of(object.disks.begin(), object.disks.end(), onDisks);
    (wholly ? found.alsoWholly : found.alsoPartly).push_back(object);
  }
}

Explanation WithoutWritersOf(Application application, Explanation explanation) {
  std::erase_if(explanation, [&](const WriterExplanation& writer) {
    return writer.writer == nullptr || IsWriterOf(application, *writer.writer);
  });
  return explanation;
}

}  // namespace

std::unique_ptr<const DisksFor> FindDisksFor(Session& session, const std::vector<std::string>& names,
                                             Application application) {
  auto found = std::make_unique<DisksFor>();
  found->requestor = MakeRequestor(application, 0, false);
  Gather(session, *found);
  VolumeLocations locations(found->enumerator);
  const std::vector<VssWriter>& writers = found->requestor->GetWriters();
  found->ofApplication = Explain(writers, application, {}, locations);
  const std::vector<ApplicationObject> objects = ObjectsOf(found->ofApplication, application);
  for (const std::string& name : names) {
    for (const ApplicationObject* object : ObjectsNamed(name, objects, application)) found->wanted.push_back(*object);
  }
  Disks disks;
  for (const ApplicationObject& object : found->wanted) {
    if (!CanBeHeld(object)) {
      found->unprotected.push_back(object);
    } else {
      disks.insert(object.disks.begin(), object.disks.end());
    }
  }
  found->disks.assign(disks.begin(), disks.end());
  AddOthers(*found, objects, disks);
  if (application != Application::None) {
    found->ofOthers = WithoutWritersOf(application, Explain(writers, Application::None, {}, locations));
    AddOthers(*found, ObjectsOf(found->ofOthers, Application::None), disks);
  }
  return found;
}

}  // namespace varnelctl
