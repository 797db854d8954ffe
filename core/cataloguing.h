// What the array's catalogue learns about a snapshot: application objects by disk.
#pragma once

#include <string>
#include <vector>

/// One application object (a database, a virtual machine). "UNKNOWN" where an application requestor cannot tell.
struct ComponentCatalogingInfo {
  std::wstring appObjectId;
  std::wstring appObjectName;
};

/// The objects on one disk, as narrow text (UTF-8; volumes in the ANSI code page): those captured by their writer, and
/// the others (objects whose component failed, and the volumes of a disk that holds no application object).
struct ApplicationObjectMeatadataInfo {
  std::vector<std::string> appObjectIds;
  std::vector<std::string> appObjectNames;
  std::vector<std::string> otherObjectIds;
  std::vector<std::string> otherObjectNames;
};
