// The maker's bridge to the array's managed metadata service, as far as varnel calls it.
#pragma once

#include <cstdlib>

#include "platform/export.h"

/// Owns the two texts it holds (allocated with malloc), but has no destructor that frees them: the process-wide
/// instance lives as long as the process, and copies share the texts.
///
/// Threads: the W_ operations may run on several threads at once; none frees a text that another one frees. But an
/// object holds one text of each kind: what GetdbFilesToQuiescePtr and the W_ operations hand out is the answer to the
/// latest question of any thread, and the next answer of that kind frees it. The library asks the instance and copies
/// the answer under a lock of its own, so requests do not disturb each other. Whoever else uses the instance while
/// requests run may read a text of theirs, or one that is gone. The setters, the getter and copies are not guarded.
class VARNEL_API MetadataWrapper {
 public:
  /// One that holds no texts.
  MetadataWrapper() = default;
  /// Copies the five fields as they stand, as the assignment does.
  MetadataWrapper(const MetadataWrapper&) = default;
  /// Copies the five fields as they stand: both objects then point at the same texts.
  MetadataWrapper& operator=(const MetadataWrapper&) = default;

  /// The process-wide instance, never freed by the caller; null where the bridge is not available.
  static MetadataWrapper* GetMetadataWrapperInstance();

  /// Asks which databases the protection set of this disk holds. On true, GetdbFilesToQuiescePtr has the list; on
  /// false the held list stays and W_GetErrorDetailStructurePtr has the reason.
  bool W_FindDataBaseToQuiesce(const char* serialNumber);
  /// The network name for the given name, held by the wrapper. Throws when the cluster does not know it.
  char* W_GetClusterName(const char* name);
  /// The reason of the last failure, held by the wrapper; never null after one.
  char* W_GetErrorDetailStructurePtr();

  /// Takes over `text` (allocated with malloc, or null) as the list of databases and frees the one before.
  void SetDbFilesToQuiescePtr(char* text) { Replace(dbFilesToQuiesce, text); }
  /// Takes over `text` (allocated with malloc, or null) as the network name and frees the one before.
  void SetSqlClusterNamePtr(char* text) { Replace(sqlClusterName, text); }
  /// The list of databases, held by the wrapper; null where it has none.
  char* GetdbFilesToQuiescePtr() { return dbFilesToQuiesce; }

 private:
  friend struct MetadataWrapperLayout;

  static void Replace(char*& held, char* text) {
    if (held == text) return;
    std::free(held);
    held = text;
  }

  // The first three belong to the bridge.
  void* service = nullptr;
  void* session = nullptr;
  char* errorDetails = nullptr;
  char* dbFilesToQuiesce = nullptr;
  char* sqlClusterName = nullptr;
};
