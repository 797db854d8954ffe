#include "simulator/vss/backup_document.h"

#include "simulator/host_file/xml.h"

namespace varnel::simulator {
namespace {

constexpr std::string_view kNamespace = "x-schema:#VssComponentMetadata";

constexpr Word<VSS_COMPONENT_TYPE> kComponentTypes[] = {
    {"filegroup", VSS_CT_FILEGROUP},
    {"database", VSS_CT_DATABASE},
};

// Only "full" is known from the service; the others are ours.
constexpr Word<VSS_BACKUP_TYPE> kBackupTypes[] = {
    {"full", VSS_BT_FULL},
    {"incremental", VSS_BT_INCREMENTAL},
    {"differential", VSS_BT_DIFFERENTIAL},
    {"log", VSS_BT_LOG},
    {"copy", VSS_BT_COPY},
    {"other", VSS_BT_OTHER},
};

// No word for a restore is known from the service.
constexpr Word<VSS_RESTORE_TYPE> kRestoreTypes[] = {
    {"undefined", VSS_RTYPE_UNDEFINED},
    {"byCopy", VSS_RTYPE_BY_COPY},
    {"import", VSS_RTYPE_IMPORT},
    {"other", VSS_RTYPE_OTHER},
};

constexpr Word<VSS_FILE_RESTORE_STATUS> kFileStatuses[] = {
    {"undefined", VSS_RS_UNDEFINED},
    {"none", VSS_RS_NONE},
    {"all", VSS_RS_ALL},
    {"failed", VSS_RS_FAILED},
};

FileSpec ParseTarget(const XmlElement& element) {
  return {element.RequiredText("path"), element.RequiredText("filespec"), element.Flag("recursive"),
          element.RequiredText("alternatePath")};
}

void ParseChild(const XmlElement& child, DocumentComponent& component) {
  ComponentRestore& restore = component.restore;
  if (child.name() == "BACKUP_METADATA") component.backupMetadata = child.RequiredText("metadata");
  if (child.name() == "NEW_TARGET") restore.newTargets.push_back(ParseTarget(child));
  if (child.name() == "ALTERNATE_LOCATION_MAPPING") restore.alternateLocations.push_back(ParseTarget(child));
  if (child.name() == "RESTORE_SUBCOMPONENT") {
    restore.subcomponents.push_back({child.Text("logicalPath"), child.RequiredText("componentName")});
  }
}

void ParseRestore(const XmlElement& element, ComponentRestore& restore) {
  restore.selected = element.Flag("selectedForRestore");
  restore.instanceId = element.Identifier("restoreInstanceId");
  restore.additionalRestores = element.Flag("additionalRestores");
  restore.fileStatus = element.OneOf("fileRestoreStatus", kFileStatuses, VSS_RS_UNDEFINED);
  restore.preRestoreFailure = element.Text("preRestoreFailure");
  restore.postRestoreFailure = element.Text("postRestoreFailure");
}

DocumentComponent ParseComponent(const XmlElement& element) {
  DocumentComponent component;
  component.logicalPath = element.Text("logicalPath");
  component.name = element.RequiredText("componentName");
  component.type = element.OneOf("componentType", kComponentTypes, VSS_CT_UNDEFINED);
  if (component.type == VSS_CT_UNDEFINED) throw DocumentError("COMPONENT without componentType");
  component.backupStamp = element.Text("backupStamp");
  component.previousBackupStamp = element.Text("previousBackupStamp");
  component.backupOptions = element.Text("backupOptions");
  component.restoreOptions = element.Text("restoreOptions");
  component.prepareForBackupFailure = element.Text("prepareForBackupFailure");
  component.postSnapshotFailure = element.Text("postSnapshotFailure");
  if (element.Text("backupSucceeded")) component.succeeded = element.Flag("backupSucceeded");
  component.failure = static_cast<HRESULT>(element.Number("failure"));
  component.applicationResult = static_cast<HRESULT>(element.Number("applicationFailure"));
  component.applicationMessage = element.Text("applicationMessage");
  ParseRestore(element, component.restore);
  element.ForEachChild([&](const XmlElement& child) { ParseChild(child, component); });
  return component;
}

DocumentWriter ParseWriter(const XmlElement& element) {
  DocumentWriter writer;
  writer.instanceId = element.RequiredIdentifier("instanceId");
  writer.writerId = element.RequiredIdentifier("writerId");
  writer.instanceName = element.Text("instanceName").value_or(L"");
  writer.backupSchema = static_cast<DWORD>(element.Number("backupSchema"));
  writer.changedByWriter = element.Text("xmlns").has_value();
  element.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "COMPONENT") writer.components.push_back(ParseComponent(child));
  });
  return writer;
}

ShadowCopy ParseCopy(const XmlElement& element) {
  ShadowCopy copy;
  copy.id = element.RequiredIdentifier("snapshotId");
  copy.setId = element.RequiredIdentifier("snapshotSetId");
  copy.providerId = element.RequiredIdentifier("providerId");
  copy.attributes = static_cast<LONG>(element.Number("attributes"));
  copy.timestamp = element.Number("created");
  copy.copiesInSet = static_cast<LONG>(element.Number("snapshotsInSet", 1));
  copy.originatingMachine = element.RequiredText("originatingMachine");
  copy.originalVolume = element.RequiredText("originalVolume");
  copy.originalSerial = element.RequiredText("originalSerialNumber");
  copy.serial = element.RequiredText("serialNumber");
  return copy;
}

void WriteRestore(XmlText& xml, const ComponentRestore& restore) {
  if (restore.selected) xml.Flag("selectedForRestore", true);
  if (restore.instanceId) xml.Attribute("restoreInstanceId", *restore.instanceId);
  if (restore.additionalRestores) xml.Flag("additionalRestores", true);
  if (restore.fileStatus != VSS_RS_UNDEFINED) {
    xml.Attribute("fileRestoreStatus", WordFor(kFileStatuses, restore.fileStatus));
  }
  xml.Optional("preRestoreFailure", restore.preRestoreFailure);
  xml.Optional("postRestoreFailure", restore.postRestoreFailure);
}

void WriteTarget(XmlText& xml, std::string_view element, const FileSpec& target) {
  xml.Raw("<").Raw(element).Attribute("path", target.path).Attribute("filespec", target.filespec);
  xml.Flag("recursive", target.recursive).Attribute("alternatePath", target.alternatePath).Raw("/>");
}

void WriteChildren(XmlText& xml, const DocumentComponent& component) {
  if (component.backupMetadata) {
    xml.Raw("<BACKUP_METADATA").Attribute("xmlns", std::string_view());
    xml.Attribute("metadata", *component.backupMetadata).Raw("/>");
  }
  const ComponentRestore& restore = component.restore;
  for (const FileSpec& target : restore.newTargets) WriteTarget(xml, "NEW_TARGET", target);
  for (const FileSpec& mapping : restore.alternateLocations) WriteTarget(xml, "ALTERNATE_LOCATION_MAPPING", mapping);
  for (const RestoreSubcomponent& part : restore.subcomponents) {
    xml.Raw("<RESTORE_SUBCOMPONENT").Optional("logicalPath", part.logicalPath);
    xml.Attribute("componentName", part.name).Raw("/>");
  }
}

bool HasChildren(const DocumentComponent& component) {
  const ComponentRestore& restore = component.restore;
  return component.backupMetadata || !restore.newTargets.empty() || !restore.alternateLocations.empty() ||
         !restore.subcomponents.empty();
}

void WriteComponent(XmlText& xml, const DocumentComponent& component) {
  xml.Raw("<COMPONENT");
  xml.Optional("logicalPath", component.logicalPath);
  xml.Attribute("componentName", component.name);
  xml.Attribute("componentType", WordFor(kComponentTypes, component.type));
  xml.Optional("backupStamp", component.backupStamp);
  xml.Optional("previousBackupStamp", component.previousBackupStamp);
  xml.Optional("backupOptions", component.backupOptions);
  xml.Optional("restoreOptions", component.restoreOptions);
  xml.Optional("prepareForBackupFailure", component.prepareForBackupFailure);
  xml.Optional("postSnapshotFailure", component.postSnapshotFailure);
  if (component.succeeded) xml.Flag("backupSucceeded", *component.succeeded);
  if (component.failure != S_OK) xml.Number("failure", component.failure);
  if (component.applicationResult != S_OK) xml.Number("applicationFailure", component.applicationResult);
  xml.Optional("applicationMessage", component.applicationMessage);
  WriteRestore(xml, component.restore);
  if (!HasChildren(component)) {
    xml.Raw("/>");
    return;
  }
  xml.Raw(">");
  WriteChildren(xml, component);
  xml.Raw("</COMPONENT>");
}

void WriteWriter(XmlText& xml, const DocumentWriter& writer) {
  xml.Raw("<WRITER_COMPONENTS");
  if (writer.changedByWriter) xml.Attribute("xmlns", kNamespace);
  xml.Attribute("instanceId", writer.instanceId).Attribute("writerId", writer.writerId);
  if (!writer.instanceName.empty()) xml.Attribute("instanceName", writer.instanceName);
  xml.Number("backupSchema", writer.backupSchema).Raw(">");
  for (const DocumentComponent& component : writer.components) WriteComponent(xml, component);
  xml.Raw("</WRITER_COMPONENTS>");
}

void WriteCopy(XmlText& xml, const ShadowCopy& copy) {
  xml.Raw("<TRANSPORTABLE_SNAPSHOT").Attribute("snapshotId", copy.id).Attribute("snapshotSetId", copy.setId);
  xml.Attribute("providerId", copy.providerId).Number("attributes", copy.attributes);
  xml.Number("created", copy.timestamp).Number("snapshotsInSet", copy.copiesInSet);
  xml.Attribute("originatingMachine", copy.originatingMachine);
  xml.Attribute("originalVolume", copy.originalVolume);
  xml.Attribute("originalSerialNumber", copy.originalSerial);
  xml.Attribute("serialNumber", copy.serial).Raw("/>");
}

}  // namespace

BackupDocument ParseBackupDocument(std::string_view xml) {
  const XmlDocument source(xml);
  const XmlElement root = source.Root("BACKUP_COMPONENTS");
  BackupDocument document;
  document.bootableSystemState = root.Flag("bootableSystemStateBackup");
  document.selectComponents = root.Flag("selectComponents");
  document.backupType = root.OneOf("backupType", kBackupTypes, VSS_BT_FULL);
  document.partialFileSupport = root.Flag("partialFileSupport");
  document.restoreType = root.OneOf("restoreType", kRestoreTypes, VSS_RTYPE_UNDEFINED);
  document.snapshotSetId = root.Identifier("snapshotSetId");
  root.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "WRITER_COMPONENTS") document.writers.push_back(ParseWriter(child));
    if (child.name() == "TRANSPORTABLE_SNAPSHOT") document.transportableCopies.push_back(ParseCopy(child));
  });
  return document;
}

std::string FormatBackupDocument(const BackupDocument& document) {
  XmlText xml;
  xml.Raw("<BACKUP_COMPONENTS").Attribute("xmlns", kNamespace).Attribute("version", "1.2");
  xml.Flag("bootableSystemStateBackup", document.bootableSystemState);
  xml.Flag("selectComponents", document.selectComponents);
  xml.Attribute("backupType", WordFor(kBackupTypes, document.backupType));
  xml.Flag("partialFileSupport", document.partialFileSupport);
  if (document.restoreType != VSS_RTYPE_UNDEFINED) {
    xml.Attribute("restoreType", WordFor(kRestoreTypes, document.restoreType));
  }
  if (document.snapshotSetId) xml.Attribute("snapshotSetId", *document.snapshotSetId);
  xml.Raw(">");
  for (const DocumentWriter& writer : document.writers) WriteWriter(xml, writer);
  for (const ShadowCopy& copy : document.transportableCopies) WriteCopy(xml, copy);
  xml.Raw("</BACKUP_COMPONENTS>");
  return xml.Take();
}

}  // namespace varnel::simulator
