// The Backup Components Document: what a requestor selected and what writers and the service added to it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host_file/documents.h"
#include "simulator/vss/snapshot_service.h"

namespace varnel::simulator {

/// A component that is restored as a part of another one.
struct RestoreSubcomponent {
  std::optional<std::wstring> logicalPath;
  std::wstring name;
};

/// What a restore adds to a component: the requestor's choices until PreRestore, how its files came back, and what the
/// writer says.
struct ComponentRestore {
  bool selected = false;
  std::optional<GUID> instanceId;  // the writer that it goes to, where it is named
  bool additionalRestores = false;
  std::vector<FileSpec> newTargets;
  std::vector<FileSpec> alternateLocations;
  std::vector<RestoreSubcomponent> subcomponents;
  VSS_FILE_RESTORE_STATUS fileStatus = VSS_RS_UNDEFINED;
  std::optional<std::wstring> preRestoreFailure;
  std::optional<std::wstring> postRestoreFailure;
};

/// A component that was added explicitly. Texts that are not there are null on the wire.
struct DocumentComponent {
  std::optional<std::wstring> logicalPath;
  std::wstring name;
  VSS_COMPONENT_TYPE type = VSS_CT_FILEGROUP;
  std::optional<std::wstring> backupStamp;
  std::optional<std::wstring> previousBackupStamp;
  std::optional<std::wstring> backupOptions;
  std::optional<std::wstring> restoreOptions;
  std::optional<std::wstring> backupMetadata;
  std::optional<std::wstring> prepareForBackupFailure;
  std::optional<std::wstring> postSnapshotFailure;
  std::optional<bool> succeeded;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  std::optional<std::wstring> applicationMessage;
  ComponentRestore restore;
};

/// The components of one writer.
struct DocumentWriter {
  GUID instanceId{};
  GUID writerId{};
  std::wstring instanceName;
  DWORD backupSchema = 0;
  bool changedByWriter = false;
  std::vector<DocumentComponent> components;
};

struct BackupDocument {
  bool bootableSystemState = false;
  bool selectComponents = false;
  VSS_BACKUP_TYPE backupType = VSS_BT_FULL;
  bool partialFileSupport = false;
  VSS_RESTORE_TYPE restoreType = VSS_RTYPE_UNDEFINED;
  std::optional<GUID> snapshotSetId;
  std::vector<DocumentWriter> writers;
  std::vector<ShadowCopy> transportableCopies;
};

/// Reads a document (UTF-8). Throws DocumentError.
BackupDocument ParseBackupDocument(std::string_view xml);
/// Writes one, in one line and without a declaration, as the service does. What the service's own form has no public
/// place for (success marks, failures, restores, transportable copies) goes into attributes and elements of ours.
std::string FormatBackupDocument(const BackupDocument& document);

}  // namespace varnel::simulator
