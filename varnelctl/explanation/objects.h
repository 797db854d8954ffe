// Databases, virtual machines and mailbox databases: what people protect and ask for by name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "varnelctl/explanation/explanation.h"

namespace varnelctl {

/// A component that can be selected, with everything below it that has files.
struct ApplicationObject {
  std::string name;  ///< as people know it, UTF-8
  const VssWriter* writer = nullptr;
  const VssComponent* component = nullptr;
  std::vector<const ComponentExplanation*> parts;  ///< those with files
  std::vector<std::wstring> disks;                 ///< serial numbers of all its files' disks, each once
  std::vector<std::wstring> missingDisks;          ///< those that the set lacks
  bool failed = false;                             ///< its writer reported a failure

  /// Null when every part is in the set, else the part that says best why not: more disks help only if nothing else
  /// does.
  const ComponentExplanation* leftOut = nullptr;

  /// In the set, and not failed by its writer.
  bool IsCaptured() const { return leftOut == nullptr && !failed; }
};

/// The objects of the application, in the writers' order. Borrows the explanation.
std::vector<ApplicationObject> ObjectsOf(const Explanation& explanation, Application application);

/// "database", "virtual machine", "mailbox database", or "component" for no application in particular.
std::string_view NounFor(Application application);

/// Whether `name` (UTF-8) means the object: its name, its component's name, caption or full path with or without the
/// first backslash, in any case of letters A to Z.
bool IsNamed(const ApplicationObject& object, std::string_view name);

}  // namespace varnelctl
