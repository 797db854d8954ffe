#include "simulator/host_file/read_writers.h"

#include <algorithm>

#include "simulator/host_file/documents.h"
#include "simulator/host_file/host_words.h"
#include "simulator/host_file/text_file.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr Word<VSS_COMPONENT_TYPE> kComponentTypes[] = {
    {"fileGroup", VSS_CT_FILEGROUP},
    {"database", VSS_CT_DATABASE},
};
constexpr Word<VSS_USAGE_TYPE> kUsageNames[] = {
    {"bootableSystemState", VSS_UT_BOOTABLESYSTEMSTATE},
    {"systemService", VSS_UT_SYSTEMSERVICE},
    {"userData", VSS_UT_USERDATA},
    {"other", VSS_UT_OTHER},
};
constexpr Word<VSS_SOURCE_TYPE> kSourceNames[] = {
    {"transactedDb", VSS_ST_TRANSACTEDDB},
    {"nonTransactedDb", VSS_ST_NONTRANSACTEDDB},
    {"other", VSS_ST_OTHER},
};
constexpr Word<VSS_RESTOREMETHOD_ENUM> kRestoreMethodNames[] = {
    {"undefined", VSS_RME_UNDEFINED},
    {"restoreIfNotThere", VSS_RME_RESTORE_IF_NOT_THERE},
    {"restoreIfCanReplace", VSS_RME_RESTORE_IF_CAN_REPLACE},
    {"stopRestoreStart", VSS_RME_STOP_RESTORE_START},
    {"restoreToAlternateLocation", VSS_RME_RESTORE_TO_ALTERNATE_LOCATION},
    {"restoreAtReboot", VSS_RME_RESTORE_AT_REBOOT},
    {"restoreAtRebootIfCannotReplace", VSS_RME_RESTORE_AT_REBOOT_IF_CANNOT_REPLACE},
    {"custom", VSS_RME_CUSTOM},
    {"restoreStopStart", VSS_RME_RESTORE_STOP_START},
};
constexpr Word<VSS_WRITERRESTORE_ENUM> kWriterRestoreNames[] = {
    {"undefined", VSS_WRE_UNDEFINED},
    {"never", VSS_WRE_NEVER},
    {"ifReplaceFails", VSS_WRE_IF_REPLACE_FAILS},
    {"always", VSS_WRE_ALWAYS},
};

FileSpec ReadFileSpec(const JsonNode& node) {
  const JsonObject object(node, {"path", "filespec", "recursive", "alternatePath", "backupType"});
  FileSpec file{object.At("path").Text(), object.At("filespec").Text()};
  object.Read("recursive", file.recursive).Read("alternatePath", file.alternatePath);
  object.Read("backupType", file.backupTypeMask);
  return file;
}

// What the writer leaves in the components document.
void ReadLeavings(const JsonObject& object, WriterComponent& component) {
  object.Read("backupStamp", component.backupStamp).Read("backupMetadata", component.backupMetadata);
}

WriterComponent ReadComponent(const JsonNode& node) {
  const JsonObject object(node, {"type", "logicalPath", "name", "caption", "restoreMetadata", "notifyOnBackupComplete",
                                 "selectable", "selectableForRestore", "componentFlags", "files", "databaseFiles",
                                 "logFiles", "backupStamp", "backupMetadata"});
  WriterComponent component;
  object.Read("type", component.type, kComponentTypes).Read("logicalPath", component.logicalPath);
  component.name = object.At("name").Text();
  if (component.name.empty()) object.At("name").Fail("the name is empty");
  object.Read("caption", component.caption).Read("restoreMetadata", component.restoreMetadata);
  object.Read("notifyOnBackupComplete", component.notifyOnBackupComplete).Read("selectable", component.selectable);
  object.Read("selectableForRestore", component.selectableForRestore).Read("componentFlags", component.componentFlags);
  object.ReadList("files", component.files, ReadFileSpec);
  object.ReadList("databaseFiles", component.databaseFiles, ReadFileSpec);
  object.ReadList("logFiles", component.logFiles, ReadFileSpec);
  ReadLeavings(object, component);
  const bool database = component.type == VSS_CT_DATABASE;
  if (database && !component.files.empty()) object.At("files").Fail("a database has databaseFiles and logFiles");
  if (!database && !component.databaseFiles.empty()) object.At("databaseFiles").Fail("a file group has files only");
  if (!database && !component.logFiles.empty()) object.At("logFiles").Fail("a file group has files only");
  return component;
}

void ReadRestoreMethod(const JsonObject& object, Writer& writer) {
  RestoreMethod restore;
  object.Read("restoreMethod", restore.method, kRestoreMethodNames).Read("service", restore.service);
  object.Read("userProcedure", restore.userProcedure).Read("writerRestore", restore.writerRestore, kWriterRestoreNames);
  object.Read("rebootRequired", restore.rebootRequired);
  const auto keys = {"restoreMethod", "service", "userProcedure", "writerRestore", "rebootRequired"};
  if (std::any_of(keys.begin(), keys.end(), [&](const char* key) { return object.Has(key); })) {
    writer.restoreMethod = restore;
  }
}

// The same identifier on every run, another one for each writer of a host (FNV-1a over its class, name and place).
GUID DerivedInstanceId(const Writer& writer, std::size_t index) {
  const std::wstring text = FormatBareGuid(writer.writerId) + writer.name + std::to_wstring(index);
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : WideToUtf8(text)) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  GUID id{static_cast<DWORD>(hash), static_cast<WORD>(hash >> 32), 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0}};
  for (int i = 0; i < 8; ++i) {
    hash = (hash ^ static_cast<unsigned>(i)) * 0x100000001b3;
    id.Data4[i] = static_cast<BYTE>(i == 0 ? 0x80 | (hash & 0x3F) : hash >> 24 & 0xFF);
  }
  return id;
}

// A writer may ask for a shorter window between Freeze and Thaw than the service gives, not for a longer one.
void ReadTimeout(const JsonNode& node, Writer& writer) {
  writer.timeoutMilliseconds = node.Number(kFreezeLimitMilliseconds);
  if (writer.timeoutMilliseconds == 0) node.Fail("a writer cannot freeze in no time");
}

LastFailure ReadLastFailure(const JsonNode& node) {
  const JsonObject object(node, {"event", "failure"});
  const JsonNode failure = object.At("failure");
  LastFailure last{object.At("event").OneOf(kFailedStates), static_cast<HRESULT>(failure.Result())};
  if (SUCCEEDED(last.failure)) failure.Fail("the result is no failure");
  return last;
}

Writer ReadInlineWriter(const JsonNode& node, std::size_t index) {
  const JsonObject object(
      node, {"name", "writerId", "instanceId", "instanceName", "usage", "source", "majorVersion", "minorVersion",
             "backupSchema", "restoreMethod", "service", "userProcedure", "writerRestore", "rebootRequired",
             "excludeFiles", "excludeFilesFromSnapshot", "components", "timeoutMilliseconds", "lastFailure"});
  Writer writer;
  writer.name = object.At("name").Text();
  writer.writerId = object.At("writerId").Guid();
  const auto instanceId = object.Find("instanceId");
  writer.instanceId = instanceId ? instanceId->Guid() : DerivedInstanceId(writer, index);
  object.Read("instanceName", writer.instanceName).Read("usage", writer.usage, kUsageNames);
  object.Read("source", writer.source, kSourceNames).Read("majorVersion", writer.majorVersion);
  object.Read("minorVersion", writer.minorVersion).Read("backupSchema", writer.backupSchema);
  ReadRestoreMethod(object, writer);
  object.ReadList("excludeFiles", writer.excludeFiles, ReadFileSpec);
  object.ReadList("excludeFilesFromSnapshot", writer.excludeFilesFromSnapshot, ReadFileSpec);
  object.ReadList("components", writer.components, ReadComponent);
  if (const auto timeout = object.Find("timeoutMilliseconds")) ReadTimeout(*timeout, writer);
  if (const auto failure = object.Find("lastFailure")) writer.lastFailure = ReadLastFailure(*failure);
  return writer;
}

// Adds to a component of a document what no document says.
void ReadComponentOf(Writer& writer, const JsonNode& node) {
  const JsonObject object(node, {"fullPath", "backupStamp", "backupMetadata"});
  const JsonNode fullPath = object.At("fullPath");
  const std::wstring wanted = fullPath.Text();
  const auto found = std::find_if(writer.components.begin(), writer.components.end(),
                                  [&](const WriterComponent& component) { return FullPath(component) == wanted; });
  if (found == writer.components.end()) fullPath.Fail("the writer has no component \"" + fullPath.Utf8() + "\"");
  ReadLeavings(object, *found);
}

Writer ReadDocument(const JsonNode& node, const std::filesystem::path& directory) {
  const std::string& name = node.Utf8();
  try {
    return ReadWriterDocument(ReadTextFile(directory / std::u8string(name.begin(), name.end())));
  } catch (const TextFileError& error) {
    node.Fail("cannot read \"" + name + "\": " + error.what());
  } catch (const DocumentError& error) {
    node.Refuse(std::string("is no Writer Metadata Document: ") + error.what());
  }
}

Writer ReadDocumentedWriter(const JsonNode& node, const std::filesystem::path& directory) {
  const JsonObject object(node, {"document", "components", "timeoutMilliseconds", "lastFailure"});
  Writer writer = ReadDocument(object.At("document"), directory);
  if (const auto timeout = object.Find("timeoutMilliseconds")) ReadTimeout(*timeout, writer);
  if (const auto failure = object.Find("lastFailure")) writer.lastFailure = ReadLastFailure(*failure);
  if (const auto components = object.Find("components")) {
    for (const JsonNode& component : components->Elements()) ReadComponentOf(writer, component);
  }
  return writer;
}

}  // namespace

std::vector<Writer> ReadWriters(const JsonObject& root, const std::filesystem::path& directory) {
  std::vector<Writer> writers;
  UniqueNames instanceIds("writer instance");
  root.ReadList("writers", writers, [&](const JsonNode& node) {
    Writer writer =
        node.HasMember("document") ? ReadDocumentedWriter(node, directory) : ReadInlineWriter(node, writers.size());
    instanceIds.Add(FormatGuid(writer.instanceId), node);
    return writer;
  });
  return writers;
}

}  // namespace varnel::simulator
