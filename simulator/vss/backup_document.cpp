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

std::optional<std::wstring> MetadataOf(const XmlElement& component) {
  std::optional<std::wstring> metadata;
  component.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "BACKUP_METADATA") metadata = child.RequiredText("metadata");
  });
  return metadata;
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
  component.prepareForBackupFailure = element.Text("prepareForBackupFailure");
  component.postSnapshotFailure = element.Text("postSnapshotFailure");
  if (element.Text("backupSucceeded")) component.succeeded = element.Flag("backupSucceeded");
  component.failure = static_cast<HRESULT>(element.Number("failure"));
  component.applicationResult = static_cast<HRESULT>(element.Number("applicationFailure"));
  component.applicationMessage = element.Text("applicationMessage");
  component.backupMetadata = MetadataOf(element);
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

void WriteComponent(XmlText& xml, const DocumentComponent& component) {
  xml.Raw("<COMPONENT");
  xml.Optional("logicalPath", component.logicalPath);
  xml.Attribute("componentName", component.name);
  xml.Attribute("componentType", WordFor(kComponentTypes, component.type));
  xml.Optional("backupStamp", component.backupStamp);
  xml.Optional("previousBackupStamp", component.previousBackupStamp);
  xml.Optional("backupOptions", component.backupOptions);
  xml.Optional("prepareForBackupFailure", component.prepareForBackupFailure);
  xml.Optional("postSnapshotFailure", component.postSnapshotFailure);
  if (component.succeeded) xml.Flag("backupSucceeded", *component.succeeded);
  if (component.failure != S_OK) xml.Number("failure", component.failure);
  if (component.applicationResult != S_OK) xml.Number("applicationFailure", component.applicationResult);
  xml.Optional("applicationMessage", component.applicationMessage);
  if (!component.backupMetadata) {
    xml.Raw("/>");
    return;
  }
  xml.Raw("><BACKUP_METADATA").Attribute("xmlns", std::string_view());
  xml.Attribute("metadata", *component.backupMetadata).Raw("/></COMPONENT>");
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
  if (document.snapshotSetId) xml.Attribute("snapshotSetId", *document.snapshotSetId);
  xml.Raw(">");
  for (const DocumentWriter& writer : document.writers) WriteWriter(xml, writer);
  for (const ShadowCopy& copy : document.transportableCopies) WriteCopy(xml, copy);
  xml.Raw("</BACKUP_COMPONENTS>");
  return xml.Take();
}

}  // namespace varnel::simulator
