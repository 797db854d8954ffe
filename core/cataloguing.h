// What the array's catalogue learns about a snapshot: application objects by disk.
#pragma once

#include <string>
#include <vector>

/// One application object (a database, a virtual machine). "UNKNOWN" where an application requestor cannot tell.
struct ComponentCatalogingInfo {
  std::wstring appObjectId;    ///< the component's full path, or a machine's identifier
  std::wstring appObjectName;  ///< what people call it; empty for a database of SQL Server
};

/// The objects on one disk, as narrow text (UTF-8; volumes in the ANSI code page): those captured by their writer, and
/// the others (objects whose component failed, and the volumes of a disk that holds no application object).
struct ApplicationObjectMeatadataInfo {
  std::vector<std::string> appObjectIds;      ///< of the captured objects
  std::vector<std::string> appObjectNames;    ///< in the order of their identifiers
  std::vector<std::string> otherObjectIds;    ///< of the others
  std::vector<std::string> otherObjectNames;  ///< in the order of their identifiers
};
