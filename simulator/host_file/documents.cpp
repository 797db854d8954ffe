#include "simulator/host_file/documents.h"

#include <cstdint>
#include <utility>

#include "simulator/host_file/xml.h"

namespace varnel::simulator {
namespace {

constexpr DWORD kDefaultBackupTypeMask = 0xF0F;

// The words that Windows writes are known for part of the values only; those marked "ours" are not among them.
constexpr Word<VSS_USAGE_TYPE> kUsages[] = {
    {"UNDEFINED", VSS_UT_UNDEFINED},  // ours
    {"BOOTABLE_SYSTEM_STATE", VSS_UT_BOOTABLESYSTEMSTATE},
    {"SYSTEM_SERVICE", VSS_UT_SYSTEMSERVICE},
    {"USER_DATA", VSS_UT_USERDATA},
    {"OTHER", VSS_UT_OTHER},  // ours
};

constexpr Word<VSS_SOURCE_TYPE> kSources[] = {
    {"UNDEFINED", VSS_ST_UNDEFINED},  // ours
    {"TRANSACTION_DB", VSS_ST_TRANSACTEDDB},
    {"NONTRANSACTION_DB", VSS_ST_NONTRANSACTEDDB},  // ours
    {"OTHER", VSS_ST_OTHER},
};

constexpr Word<VSS_RESTOREMETHOD_ENUM> kRestoreMethods[] = {
    {"UNDEFINED", VSS_RME_UNDEFINED},                        // ours
    {"RESTORE_IF_NOT_THERE", VSS_RME_RESTORE_IF_NOT_THERE},  // ours
    {"RESTORE_IF_CAN_BE_REPLACED", VSS_RME_RESTORE_IF_CAN_REPLACE},
    {"STOP_RESTORE_START", VSS_RME_STOP_RESTORE_START},                        // ours
    {"RESTORE_TO_ALTERNATE_LOCATION", VSS_RME_RESTORE_TO_ALTERNATE_LOCATION},  // ours
    {"REPLACE_AT_REBOOT", VSS_RME_RESTORE_AT_REBOOT},
    {"REPLACE_AT_REBOOT_IF_CANNOT_REPLACE", VSS_RME_RESTORE_AT_REBOOT_IF_CANNOT_REPLACE},
    {"CUSTOM", VSS_RME_CUSTOM},                          // ours
    {"RESTORE_STOP_START", VSS_RME_RESTORE_STOP_START},  // ours
};

constexpr Word<VSS_WRITERRESTORE_ENUM> kWriterRestores[] = {
    {"undefined", VSS_WRE_UNDEFINED},  // ours
    {"never", VSS_WRE_NEVER},
    {"ifReplaceFails", VSS_WRE_IF_REPLACE_FAILS},  // ours
    {"always", VSS_WRE_ALWAYS},
};

DWORD NumberOf(const XmlElement& element, const char* attribute, DWORD absent = 0) {
  const std::int64_t number = element.Number(attribute, absent);
  if (number < 0 || number > 0xFFFFFFFF) {
    throw DocumentError(element.name() + ": " + attribute + " \"" + std::to_string(number) + "\" is out of range");
  }
  return static_cast<DWORD>(number);
}

FileSpec ParseFileSpec(const XmlElement& element) {
  FileSpec file;
  file.path = element.RequiredText("path");
  file.filespec = element.RequiredText("filespec");
  file.recursive = element.Flag("recursive");
  file.alternatePath = element.Text("alternatePath").value_or(L"");
  file.backupTypeMask = NumberOf(element, "filespecBackupType", kDefaultBackupTypeMask);
  return file;
}

WriterComponent ParseComponent(const XmlElement& element, VSS_COMPONENT_TYPE type) {
  WriterComponent component;
  component.type = type;
  component.logicalPath = element.Text("logicalPath");
  component.name = element.RequiredText("componentName");
  if (component.name.empty()) throw DocumentError(element.name() + " with an empty componentName");
  component.caption = element.Text("caption");
  component.restoreMetadata = element.Flag("restoreMetadata");
  component.notifyOnBackupComplete = element.Flag("notifyOnBackupComplete");
  component.selectable = element.Flag("selectable", true);
  component.selectableForRestore = element.Flag("selectableForRestore");
  component.componentFlags = NumberOf(element, "componentFlags");
  element.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "FILE_LIST") component.files.push_back(ParseFileSpec(child));
    if (child.name() == "DATABASE_FILES") component.databaseFiles.push_back(ParseFileSpec(child));
    if (child.name() == "DATABASE_LOGFILES") component.logFiles.push_back(ParseFileSpec(child));
  });
  return component;
}

void ParseIdentification(const XmlElement& element, Writer& writer) {
  writer.writerId = element.RequiredIdentifier("writerId");
  writer.instanceId = element.RequiredIdentifier("instanceId");
  writer.instanceName = element.Text("instanceName").value_or(L"");
  writer.name = element.RequiredText("friendlyName");
  writer.usage = element.OneOf("usage", kUsages, VSS_UT_UNDEFINED);
  writer.source = element.OneOf("dataSource", kSources, VSS_ST_UNDEFINED);
  writer.majorVersion = NumberOf(element, "majorVersion");
  writer.minorVersion = NumberOf(element, "minorVersion");
}

RestoreMethod ParseRestoreMethod(const XmlElement& element) {
  RestoreMethod restore;
  restore.method = element.OneOf("method", kRestoreMethods, VSS_RME_UNDEFINED);
  restore.service = element.Text("service").value_or(L"");
  restore.userProcedure = element.Text("userProcedure").value_or(L"");
  restore.writerRestore = element.OneOf("writerRestore", kWriterRestores, VSS_WRE_UNDEFINED);
  restore.rebootRequired = element.Flag("rebootRequired");
  return restore;
}

void ParseLocations(const XmlElement& locations, Writer& writer) {
  locations.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "FILE_GROUP") writer.components.push_back(ParseComponent(child, VSS_CT_FILEGROUP));
    if (child.name() == "DATABASE") writer.components.push_back(ParseComponent(child, VSS_CT_DATABASE));
    if (child.name() == "EXCLUDE_FILES") writer.excludeFiles.push_back(ParseFileSpec(child));
    if (child.name() == "EXCLUDE_FILES_FROM_SNAPSHOT") writer.excludeFilesFromSnapshot.push_back(ParseFileSpec(child));
  });
}

Writer ParseRoot(const XmlElement& root) {
  Writer writer;
  bool identified = false;
  writer.backupSchema = NumberOf(root, "backupSchema");
  root.ForEachChild([&](const XmlElement& child) {
    if (child.name() == "IDENTIFICATION") {
      if (identified) throw DocumentError("more than one IDENTIFICATION");
      ParseIdentification(child, writer);
      identified = true;
    }
    if (child.name() == "RESTORE_METHOD") {
      if (writer.restoreMethod) throw DocumentError("more than one RESTORE_METHOD");
      writer.restoreMethod = ParseRestoreMethod(child);
    }
    if (child.name() == "BACKUP_LOCATIONS") ParseLocations(child, writer);
  });
  if (!identified) throw DocumentError("no IDENTIFICATION");
  return writer;
}

void WriteFile(XmlText& xml, std::string_view element, const FileSpec& file) {
  xml.Raw("<").Raw(element);
  xml.Attribute("path", file.path).Attribute("filespec", file.filespec);
  if (file.recursive) xml.Flag("recursive", true);
  if (!file.alternatePath.empty()) xml.Attribute("alternatePath", file.alternatePath);
  xml.Number("filespecBackupType", file.backupTypeMask).Raw("/>");
}

void WriteExclusion(XmlText& xml, std::string_view element, const FileSpec& file) {
  xml.Raw("<").Raw(element);
  xml.Attribute("path", file.path).Attribute("filespec", file.filespec).Flag("recursive", file.recursive);
  xml.Raw("/>");
}

void WriteComponent(XmlText& xml, const WriterComponent& component) {
  const std::string_view element = component.type == VSS_CT_DATABASE ? "DATABASE" : "FILE_GROUP";
  xml.Raw("<").Raw(element);
  xml.Optional("logicalPath", component.logicalPath);
  xml.Attribute("componentName", component.name);
  xml.Optional("caption", component.caption);
  xml.Flag("restoreMetadata", component.restoreMetadata);
  xml.Flag("notifyOnBackupComplete", component.notifyOnBackupComplete);
  xml.Flag("selectable", component.selectable);
  xml.Flag("selectableForRestore", component.selectableForRestore);
  xml.Number("componentFlags", component.componentFlags);
  if (component.files.empty() && component.databaseFiles.empty() && component.logFiles.empty()) {
    xml.Raw("/>");
    return;
  }
  xml.Raw(">");
  for (const FileSpec& file : component.files) WriteFile(xml, "FILE_LIST", file);
  for (const FileSpec& file : component.databaseFiles) WriteFile(xml, "DATABASE_FILES", file);
  for (const FileSpec& file : component.logFiles) WriteFile(xml, "DATABASE_LOGFILES", file);
  xml.Raw("</").Raw(element).Raw(">");
}

void WriteIdentification(XmlText& xml, const Writer& writer) {
  xml.Raw("<IDENTIFICATION").Attribute("writerId", writer.writerId).Attribute("instanceId", writer.instanceId);
  if (!writer.instanceName.empty()) xml.Attribute("instanceName", writer.instanceName);
  xml.Attribute("friendlyName", writer.name);
  xml.Attribute("usage", WordFor(kUsages, writer.usage)).Attribute("dataSource", WordFor(kSources, writer.source));
  xml.Number("majorVersion", writer.majorVersion).Number("minorVersion", writer.minorVersion).Raw("/>");
}

void WriteRestoreMethod(XmlText& xml, const RestoreMethod& restore) {
  xml.Raw("<RESTORE_METHOD").Attribute("method", WordFor(kRestoreMethods, restore.method));
  if (!restore.service.empty()) xml.Attribute("service", restore.service);
  if (!restore.userProcedure.empty()) xml.Attribute("userProcedure", restore.userProcedure);
  xml.Attribute("writerRestore", WordFor(kWriterRestores, restore.writerRestore));
  xml.Flag("rebootRequired", restore.rebootRequired).Raw("/>");
}

}  // namespace

Writer ParseWriterMetadata(std::string_view xml) {
  const XmlDocument document(xml);
  return ParseRoot(document.Root("WRITER_METADATA"));
}

Writer ReadWriterDocument(std::string xml) {
  Writer writer = ParseWriterMetadata(xml);
  writer.document = std::make_shared<const std::string>(std::move(xml));
  return writer;
}

std::string FormatWriterMetadata(const Writer& writer) {
  XmlText xml;
  xml.Raw("<WRITER_METADATA").Attribute("xmlns", "x-schema:#VssWriterMetadataInfo");
  xml.Attribute("version", "1.2");
  if (writer.backupSchema != 0) xml.Number("backupSchema", writer.backupSchema);
  xml.Raw(">");
  WriteIdentification(xml, writer);
  if (writer.restoreMethod) WriteRestoreMethod(xml, *writer.restoreMethod);
  xml.Raw("<BACKUP_LOCATIONS>");
  for (const WriterComponent& component : writer.components) WriteComponent(xml, component);
  for (const FileSpec& file : writer.excludeFiles) WriteExclusion(xml, "EXCLUDE_FILES", file);
  for (const FileSpec& file : writer.excludeFilesFromSnapshot) {
    WriteExclusion(xml, "EXCLUDE_FILES_FROM_SNAPSHOT", file);
  }
  xml.Raw("</BACKUP_LOCATIONS></WRITER_METADATA>");
  return xml.Take();
}

}  // namespace varnel::simulator
