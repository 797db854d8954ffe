#include <algorithm>
#include <fstream>
#include <set>

#include "simulator/host_file/documents.h"
#include "simulator/host_file/json_reader.h"

#include "simulator/machine/result_names.h"
#include "simulator/machine/version.h"
#include "simulator/simulated_host.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

template <class Value>
using Words = std::pair<std::string_view, Value>;

constexpr Words<VSS_PROVIDER_TYPE> kProviderTypes[] = {
    {"system", VSS_PROV_SYSTEM},       {"software", VSS_PROV_SOFTWARE}, {"hardware", VSS_PROV_HARDWARE},
    {"fileshare", VSS_PROV_FILESHARE}, {"unknown", VSS_PROV_UNKNOWN},
};
constexpr Words<VSS_COMPONENT_TYPE> kComponentTypes[] = {
    {"fileGroup", VSS_CT_FILEGROUP},
    {"database", VSS_CT_DATABASE},
};
constexpr Words<VSS_USAGE_TYPE> kUsages[] = {
    {"bootableSystemState", VSS_UT_BOOTABLESYSTEMSTATE},
    {"systemService", VSS_UT_SYSTEMSERVICE},
    {"userData", VSS_UT_USERDATA},
    {"other", VSS_UT_OTHER},
};
constexpr Words<VSS_SOURCE_TYPE> kSources[] = {
    {"transactedDb", VSS_ST_TRANSACTEDDB},
    {"nonTransactedDb", VSS_ST_NONTRANSACTEDDB},
    {"other", VSS_ST_OTHER},
};
constexpr Words<VSS_RESTOREMETHOD_ENUM> kRestoreMethods[] = {
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
constexpr Words<VSS_WRITERRESTORE_ENUM> kWriterRestores[] = {
    {"undefined", VSS_WRE_UNDEFINED},
    {"never", VSS_WRE_NEVER},
    {"ifReplaceFails", VSS_WRE_IF_REPLACE_FAILS},
    {"always", VSS_WRE_ALWAYS},
};
constexpr Words<WriterEvent> kWriterEvents[] = {
    {"identify", WriterEvent::identify},
    {"prepareBackup", WriterEvent::prepareBackup},
    {"prepareSnapshot", WriterEvent::prepareSnapshot},
    {"freeze", WriterEvent::freeze},
    {"thaw", WriterEvent::thaw},
    {"postSnapshot", WriterEvent::postSnapshot},
    {"backupComplete", WriterEvent::backupComplete},
    {"backupShutdown", WriterEvent::backupShutdown},
};

constexpr DWORD kLargestCount = 0x7FFFFFFF;

template <class Value, std::size_t n>
Value WordOf(const JsonNode& node, const Words<Value> (&words)[n]) {
  return node.OneOf(std::span<const Words<Value>>(words));
}

// Optional members, each left as it is where the key is absent.
void Read(const JsonObject& object, std::string_view key, std::wstring& target) {
  if (const auto node = object.Find(key)) target = node->Text();
}
void Read(const JsonObject& object, std::string_view key, std::optional<std::wstring>& target) {
  if (const auto node = object.Find(key)) target = node->Text();
}
void Read(const JsonObject& object, std::string_view key, bool& target) {
  if (const auto node = object.Find(key)) target = node->Flag();
}
void Read(const JsonObject& object, std::string_view key, DWORD& target) {
  if (const auto node = object.Find(key)) target = node->Number();
}
void Read(const JsonObject& object, std::string_view key, int& target) {
  if (const auto node = object.Find(key)) target = static_cast<int>(node->Number(kLargestCount));
}
template <class Value, std::size_t n>
void Read(const JsonObject& object, std::string_view key, Value& target, const Words<Value> (&words)[n]) {
  if (const auto node = object.Find(key)) target = WordOf(*node, words);
}

template <class Visit>
void ForEachElement(const JsonObject& object, std::string_view key, Visit&& visit) {
  const auto list = object.Find(key);
  if (!list) return;
  for (const JsonNode& element : list->Elements()) visit(element);
}

template <class Visit>
void ForEachMember(const JsonObject& object, std::string_view key, Visit&& visit) {
  const auto members = object.Find(key);
  if (!members) return;
  for (const auto& [name, node] : members->Members()) visit(name, node);
}

// Names that may stand once on the host, in whatever case.
class UniqueNames {
 public:
  explicit UniqueNames(std::string what) : what_(std::move(what)) {}
  void Add(std::wstring_view name, const JsonNode& node) {
    if (!names_.emplace(name).second) node.Fail("duplicate " + what_ + " \"" + WideToUtf8(name) + "\"");
  }

 private:
  std::string what_;
  std::set<std::wstring, ascii::LessIgnoringCase> names_;
};

DWORD ResultOf(const JsonNode& node) {
  if (!node.IsText()) return node.Number();
  const std::optional<DWORD> result = ParseResult(node.Utf8());
  if (!result) node.Fail("\"" + node.Utf8() + "\" is no result name, \"0x\" number or decimal code");
  return *result;
}

// A map whose keys compare without regard to case.
std::map<std::wstring, std::wstring> TextsByName(const JsonObject& object, std::string_view key,
                                                 const std::string& what) {
  std::map<std::wstring, std::wstring> texts;
  UniqueNames names(what);
  ForEachMember(object, key, [&](const std::string& name, const JsonNode& node) {
    const std::wstring wide = Utf8ToWide(name);
    names.Add(wide, node);
    texts.emplace(wide, node.Text());
  });
  return texts;
}

bool IsVolumeName(std::wstring_view name) {
  constexpr std::wstring_view kStart = L"\\\\?\\Volume";
  constexpr std::size_t kGuidLength = 38;
  return name.size() == kStart.size() + kGuidLength + 1 && name.starts_with(kStart) && name.ends_with(L'\\') &&
         TryParseGuid<GUID>(name.substr(kStart.size(), kGuidLength));
}

bool IsMountPoint(std::wstring_view path) {
  const auto letter = path.empty() ? L'\0' : ascii::ToLower(path[0]);
  return path.size() >= 3 && letter >= L'a' && letter <= L'z' && path[1] == L':' && path[2] == L'\\' &&
         path.ends_with(L'\\');
}

class DiskReader {
 public:
  Disk Read(const JsonNode& node, DWORD index) {
    const JsonObject object(node, {"serial", "number", "vendor", "system", "clustered", "volumes"});
    Disk disk;
    ReadSerial(object.At("serial"), disk);
    disk.number = index;
    simulator::Read(object, "number", disk.number);
    numbers_.Add(std::to_wstring(disk.number), node);
    simulator::Read(object, "vendor", disk.vendor);
    simulator::Read(object, "system", disk.system);
    simulator::Read(object, "clustered", disk.clustered);
    ForEachElement(object, "volumes", [&](const JsonNode& volume) { disk.volumes.push_back(ReadVolume(volume)); });
    return disk;
  }

 private:
  void ReadSerial(const JsonNode& node, Disk& disk) {
    disk.reportsSerial = !node.IsNull();
    if (!disk.reportsSerial) return;
    disk.serial = node.Text();
    if (!disk.serial.empty()) serials_.Add(disk.serial, node);
  }

  Volume ReadVolume(const JsonNode& node) {
    const JsonObject object(node, {"name", "mountPoints", "csv", "label"});
    Volume volume;
    const JsonNode name = object.At("name");
    volume.name = name.Text();
    if (!IsVolumeName(volume.name)) name.Fail("\"" + name.Utf8() + "\" is no volume name (\\\\?\\Volume{GUID}\\)");
    volumeNames_.Add(volume.name, name);
    ForEachElement(object, "mountPoints", [&](const JsonNode& mountPoint) {
      volume.mountPoints.push_back(mountPoint.Text());
      if (!IsMountPoint(volume.mountPoints.back())) {
        mountPoint.Fail("\"" + mountPoint.Utf8() +
                        "\" is no mount point (X:\\ or a folder, with a backslash behind it)");
      }
      mountPoints_.Add(volume.mountPoints.back(), mountPoint);
    });
    simulator::Read(object, "csv", volume.csv);
    simulator::Read(object, "label", volume.label);
    return volume;
  }

  UniqueNames serials_{"disk serial"};
  UniqueNames numbers_{"disk number"};
  UniqueNames volumeNames_{"volume name"};
  UniqueNames mountPoints_{"mount point"};
};

FileSpec ReadFileSpec(const JsonNode& node) {
  const JsonObject object(node, {"path", "filespec", "recursive", "alternatePath", "backupType"});
  FileSpec file;
  file.path = object.At("path").Text();
  file.filespec = object.At("filespec").Text();
  Read(object, "recursive", file.recursive);
  Read(object, "alternatePath", file.alternatePath);
  Read(object, "backupType", file.backupTypeMask);
  return file;
}

void ReadFiles(const JsonObject& object, std::string_view key, std::vector<FileSpec>& files) {
  ForEachElement(object, key, [&](const JsonNode& node) { files.push_back(ReadFileSpec(node)); });
}

WriterComponent ReadComponent(const JsonNode& node) {
  const JsonObject object(
      node, {"type", "logicalPath", "name", "caption", "restoreMetadata", "notifyOnBackupComplete", "selectable",
             "selectableForRestore", "componentFlags", "files", "databaseFiles", "logFiles"});
  WriterComponent component;
  Read(object, "type", component.type, kComponentTypes);
  Read(object, "logicalPath", component.logicalPath);
  component.name = object.At("name").Text();
  if (component.name.empty()) object.At("name").Fail("the name is empty");
  Read(object, "caption", component.caption);
  Read(object, "restoreMetadata", component.restoreMetadata);
  Read(object, "notifyOnBackupComplete", component.notifyOnBackupComplete);
  Read(object, "selectable", component.selectable);
  Read(object, "selectableForRestore", component.selectableForRestore);
  Read(object, "componentFlags", component.componentFlags);
  ReadFiles(object, "files", component.files);
  ReadFiles(object, "databaseFiles", component.databaseFiles);
  ReadFiles(object, "logFiles", component.logFiles);
  const bool database = component.type == VSS_CT_DATABASE;
  if (database && !component.files.empty()) object.At("files").Fail("a database has databaseFiles and logFiles");
  if (!database && !component.databaseFiles.empty()) object.At("databaseFiles").Fail("a file group has files only");
  if (!database && !component.logFiles.empty()) object.At("logFiles").Fail("a file group has files only");
  return component;
}

void ReadRestoreMethod(const JsonObject& object, Writer& writer) {
  RestoreMethod restore;
  Read(object, "restoreMethod", restore.method, kRestoreMethods);
  Read(object, "service", restore.service);
  Read(object, "userProcedure", restore.userProcedure);
  Read(object, "writerRestore", restore.writerRestore, kWriterRestores);
  Read(object, "rebootRequired", restore.rebootRequired);
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

Writer ReadInlineWriter(const JsonNode& node, std::size_t index) {
  const JsonObject object(
      node, {"name", "writerId", "instanceId", "instanceName", "usage", "source", "majorVersion", "minorVersion",
             "backupSchema", "restoreMethod", "service", "userProcedure", "writerRestore", "rebootRequired",
             "excludeFiles", "excludeFilesFromSnapshot", "components"});
  Writer writer;
  writer.name = object.At("name").Text();
  writer.writerId = object.At("writerId").Guid();
  const auto instanceId = object.Find("instanceId");
  writer.instanceId = instanceId ? instanceId->Guid() : DerivedInstanceId(writer, index);
  Read(object, "instanceName", writer.instanceName);
  Read(object, "usage", writer.usage, kUsages);
  Read(object, "source", writer.source, kSources);
  Read(object, "majorVersion", writer.majorVersion);
  Read(object, "minorVersion", writer.minorVersion);
  Read(object, "backupSchema", writer.backupSchema);
  ReadRestoreMethod(object, writer);
  ReadFiles(object, "excludeFiles", writer.excludeFiles);
  ReadFiles(object, "excludeFilesFromSnapshot", writer.excludeFilesFromSnapshot);
  ForEachElement(object, "components",
                 [&](const JsonNode& component) { writer.components.push_back(ReadComponent(component)); });
  return writer;
}

std::filesystem::path PathFromUtf8(std::string_view text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string Utf8FromPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::optional<std::string> ReadWholeFile(const std::filesystem::path& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char block[16384];
  while (file.read(block, sizeof block) || file.gcount() > 0)
    text.append(block, static_cast<std::size_t>(file.gcount()));
  if (!file.eof()) return std::nullopt;
  return text;
}

Writer ReadDocument(const JsonNode& node, const std::filesystem::path& directory) {
  const std::optional<std::string> xml = ReadWholeFile(directory / PathFromUtf8(node.Utf8()));
  if (!xml) node.Fail("cannot read \"" + node.Utf8() + "\"");
  try {
    return ParseWriterMetadata(*xml);
  } catch (const DocumentError& error) {
    node.Fail("\"" + node.Utf8() + "\" is no Writer Metadata Document: " + error.what());
  }
}

class WriterReader {
 public:
  explicit WriterReader(const std::filesystem::path& directory) : directory_(directory) {}

  Writer Read(const JsonNode& node, std::size_t index) {
    const std::vector<std::pair<std::string, JsonNode>> members = node.Members();
    const bool named = std::any_of(members.begin(), members.end(), [](const auto& m) { return m.first == "document"; });
    Writer writer =
        named ? ReadDocument(JsonObject(node, {"document"}).At("document"), directory_) : ReadInlineWriter(node, index);
    instanceIds_.Add(FormatGuid(writer.instanceId), node);
    return writer;
  }

 private:
  const std::filesystem::path& directory_;
  UniqueNames instanceIds_{"writer instance"};
};

void ReadOs(const JsonObject& root, OperatingSystem& os) {
  const auto node = root.Find("os");
  if (!node) return;
  const JsonObject object(*node, {"server", "version", "servicePack"});
  Read(object, "server", os.server);
  if (const auto version = object.Find("version")) {
    const auto parts = ParseVersion<3>(version->Utf8(), 0xFFFFFFFF);
    if (!parts) version->Fail("\"" + version->Utf8() + "\" is no version (major.minor.build)");
    os.major = (*parts)[0];
    os.minor = (*parts)[1];
    os.build = (*parts)[2];
  }
  if (const auto servicePack = object.Find("servicePack"))
    os.servicePack = static_cast<WORD>(servicePack->Number(0xFFFF));
}

void ReadCluster(const JsonObject& root, HostModel& model) {
  const auto node = root.Find("cluster");
  if (!node) return;
  const JsonObject object(*node, {"name", "networkNames"});
  model.cluster.emplace();
  Read(object, "name", model.cluster->name);
  model.cluster->networkNames = TextsByName(object, "networkNames", "name");
}

void ReadDisks(const JsonObject& root, HostModel& model) {
  DiskReader reader;
  for (const JsonNode& node : root.At("disks").Elements()) {
    model.disks.push_back(reader.Read(node, static_cast<DWORD>(model.disks.size())));
  }
}

void ReadProviders(const JsonObject& root, HostModel& model) {
  UniqueNames ids("provider");
  ForEachElement(root, "providers", [&](const JsonNode& node) {
    const JsonObject object(node, {"id", "name", "type", "version"});
    Provider provider;
    provider.id = object.At("id").Guid();
    ids.Add(FormatGuid(provider.id), node);
    Read(object, "name", provider.name);
    Read(object, "type", provider.type, kProviderTypes);
    Read(object, "version", provider.version);
    model.providers.push_back(provider);
  });
}

void ReadWriters(const JsonObject& root, HostModel& model, const std::filesystem::path& directory) {
  WriterReader reader(directory);
  ForEachElement(root, "writers",
                 [&](const JsonNode& node) { model.writers.push_back(reader.Read(node, model.writers.size())); });
}

void ExpectDisk(const HostModel& model, std::wstring_view serial, const JsonNode& node) {
  const bool known = std::any_of(model.disks.begin(), model.disks.end(),
                                 [&](const Disk& disk) { return disk.reportsSerial && disk.serial == serial; });
  if (!known) node.Fail("no disk has the serial \"" + WideToUtf8(serial) + "\"");
}

void ReadDatabases(const JsonObject& root, HostModel& model) {
  ForEachMember(root, "databases", [&](const std::string& serial, const JsonNode& node) {
    const std::wstring wide = Utf8ToWide(serial);
    ExpectDisk(model, wide, node);
    model.databases.emplace(wide, node.Text());
  });
}

IscsiDevice ReadIscsiDevice(const JsonNode& node, const HostModel& model) {
  const JsonObject object(node, {"disk", "shadowOf", "appearsAfter"});
  if (object.Has("disk") == object.Has("shadowOf")) node.Fail("expected one of disk, shadowOf");
  const JsonNode serial = object.At(object.Has("disk") ? "disk" : "shadowOf");
  ExpectDisk(model, serial.Text(), serial);
  IscsiDevice device{serial.Text(), object.Has("shadowOf")};
  Read(object, "appearsAfter", device.appearsAfter);
  return device;
}

void ReadIscsiSessions(const JsonObject& root, HostModel& model) {
  ForEachElement(root, "iscsiSessions", [&](const JsonNode& node) {
    const JsonObject object(node, {"targetName", "devices", "busyQueries", "failedLogouts", "appearsAfter"});
    IscsiSession session;
    Read(object, "targetName", session.targetName);
    Read(object, "busyQueries", session.busyQueries);
    Read(object, "failedLogouts", session.failedLogouts);
    Read(object, "appearsAfter", session.appearsAfter);
    ForEachElement(object, "devices",
                   [&](const JsonNode& device) { session.devices.push_back(ReadIscsiDevice(device, model)); });
    model.iscsiSessions.push_back(session);
  });
}

void ReadFileVersions(const JsonObject& root, HostModel& model) {
  UniqueNames paths("file");
  ForEachMember(root, "files", [&](const std::string& path, const JsonNode& node) {
    const JsonNode version = JsonObject(node, {"version"}).At("version");
    if (!ParseFileVersion(version.Utf8())) version.Fail("\"" + version.Utf8() + "\" is no file version (four numbers)");
    paths.Add(Utf8ToWide(path), node);
    model.fileVersions.emplace(Utf8ToWide(path), version.Text());
  });
}

void ReadRegistry(const JsonObject& root, HostModel& model) {
  UniqueNames keys("key");
  ForEachMember(root, "registry", [&](const std::string& key, const JsonNode& node) {
    if (!key.starts_with("HKEY_LOCAL_MACHINE\\") && !key.starts_with("HKEY_CURRENT_USER\\")) {
      node.Fail("a key stands below HKEY_LOCAL_MACHINE\\ or HKEY_CURRENT_USER\\");
    }
    if (key.ends_with('\\') || key.find("\\\\") != std::string::npos) node.Fail("a key has no empty part");
    keys.Add(Utf8ToWide(key), node);
    auto& values = model.registry[Utf8ToWide(key)];
    UniqueNames names("value");
    for (const auto& [name, value] : node.Members()) {
      names.Add(Utf8ToWide(name), value);
      values.emplace(Utf8ToWide(name), value.Text());
    }
  });
}

void ReadCommands(const JsonObject& root, HostModel& model) {
  ForEachElement(root, "commands", [&](const JsonNode& node) {
    const JsonObject object(node, {"match", "exitCode"});
    Command command;
    command.match = object.At("match").Text();
    Read(object, "exitCode", command.exitCode);
    model.commands.push_back(command);
  });
}

std::map<DWORD, std::wstring> ReadMessages(const JsonObject& root, std::string_view key) {
  std::map<DWORD, std::wstring> messages;
  ForEachMember(root, key, [&](const std::string& id, const JsonNode& node) {
    const std::optional<DWORD> code = ParseResult(id);
    if (!code) node.Fail("\"" + id + "\" is no result name, \"0x\" number or decimal code");
    if (!messages.emplace(*code, node.Text()).second) node.Fail("duplicate message \"" + id + "\"");
  });
  return messages;
}

bool IsIdentifier(std::string_view text) {
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  return !text.empty() && letter(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

bool IsCallName(std::string_view text) {
  const std::size_t colons = text.find("::");
  if (colons == std::string_view::npos) return IsIdentifier(text);
  return IsIdentifier(text.substr(0, colons)) && IsIdentifier(text.substr(colons + 2));
}

CallFault ReadCallFault(const JsonObject& object) {
  CallFault fault;
  const JsonNode call = object.At("call");
  fault.call = call.Utf8();
  if (!IsCallName(fault.call)) call.Fail("\"" + fault.call + "\" is no call (Interface::Method or a function's name)");
  Read(object, "occurrence", fault.occurrence);
  fault.result = ResultOf(object.At("result"));
  return fault;
}

AsyncFault ReadAsyncFault(const JsonObject& object) {
  AsyncFault fault;
  const JsonNode async = object.At("async");
  fault.async = async.Utf8();
  if (!IsIdentifier(fault.async)) async.Fail("\"" + fault.async + "\" is no method's name");
  Read(object, "occurrence", fault.occurrence);
  fault.result = static_cast<HRESULT>(ResultOf(object.At("result")));
  return fault;
}

// What a failing writer and a failing component have in common.
template <class Fault>
void ReadFailure(const JsonObject& object, Fault& fault) {
  fault.failure = static_cast<HRESULT>(ResultOf(object.At("failure")));
  if (const auto result = object.Find("applicationResult")) {
    fault.applicationResult = static_cast<HRESULT>(ResultOf(*result));
  }
  Read(object, "applicationMessage", fault.applicationMessage);
}

// Several instances of a writer class may share one name.
bool HasComponent(const HostModel& model, const std::wstring& writerName, const std::wstring& fullPath) {
  return std::any_of(model.writers.begin(), model.writers.end(), [&](const Writer& writer) {
    return writer.name == writerName &&
           std::any_of(writer.components.begin(), writer.components.end(),
                       [&](const WriterComponent& component) { return FullPath(component) == fullPath; });
  });
}

WriterFault ReadWriterFault(const JsonObject& object, const HostModel& model) {
  WriterFault fault;
  const JsonNode writer = object.At("writer");
  fault.writer = writer.Text();
  if (std::none_of(model.writers.begin(), model.writers.end(),
                   [&](const Writer& candidate) { return candidate.name == fault.writer; })) {
    writer.Fail("no writer is named \"" + writer.Utf8() + "\"");
  }
  fault.event = WordOf(object.At("event"), kWriterEvents);
  ReadFailure(object, fault);
  ForEachElement(object, "components", [&](const JsonNode& node) {
    const JsonObject entry(node, {"fullPath", "failure", "applicationResult", "applicationMessage"});
    ComponentFault component;
    const JsonNode fullPath = entry.At("fullPath");
    component.fullPath = fullPath.Text();
    if (!HasComponent(model, fault.writer, component.fullPath)) {
      fullPath.Fail("the writer has no component \"" + fullPath.Utf8() + "\"");
    }
    ReadFailure(entry, component);
    fault.components.push_back(component);
  });
  return fault;
}

DeletionFault ReadDeletionFault(const JsonObject& object, const HostModel& model) {
  const JsonNode serial = object.At("deleteShadowOf");
  ExpectDisk(model, serial.Text(), serial);
  const JsonNode result = object.At("result");
  const auto failure = static_cast<HRESULT>(ResultOf(result));
  if (SUCCEEDED(failure)) result.Fail("a deletion that fails needs a failure");
  return {serial.Text(), failure};
}

void ReadFault(const JsonNode& node, HostModel& model) {
  const std::vector<std::pair<std::string, JsonNode>> members = node.Members();
  const auto has = [&](std::string_view key) {
    return std::any_of(members.begin(), members.end(), [&](const auto& member) { return member.first == key; });
  };
  if (has("call")) {
    model.faults.calls.push_back(ReadCallFault(JsonObject(node, {"call", "occurrence", "result"})));
  } else if (has("async")) {
    model.faults.asyncs.push_back(ReadAsyncFault(JsonObject(node, {"async", "occurrence", "result"})));
  } else if (has("writer")) {
    const JsonObject object(node,
                            {"writer", "event", "failure", "applicationResult", "applicationMessage", "components"});
    model.faults.writers.push_back(ReadWriterFault(object, model));
  } else if (has("deleteShadowOf")) {
    model.faults.deletions.push_back(ReadDeletionFault(JsonObject(node, {"deleteShadowOf", "result"}), model));
  } else {
    node.Fail("expected one of call, async, writer, deleteShadowOf");
  }
}

void ReadTiming(const JsonObject& root, HostModel& model) {
  const auto node = root.Find("timing");
  if (!node) return;
  const JsonObject object(*node, {"freezeMilliseconds", "commitMilliseconds"});
  Read(object, "freezeMilliseconds", model.freezeMilliseconds);
  Read(object, "commitMilliseconds", model.commitMilliseconds);
}

HostModel ReadHost(const JsonNode& node, const std::filesystem::path& directory) {
  const JsonObject root(node, {"computerName", "systemDirectory", "environment", "os", "cluster", "disks", "providers",
                               "writers", "databases", "iscsiSessions", "files", "registry", "commands", "messages",
                               "vssMessages", "faults", "timing"});
  HostModel model;
  Read(root, "computerName", model.computerName);
  Read(root, "systemDirectory", model.systemDirectory);
  model.environment = TextsByName(root, "environment", "variable");
  ReadOs(root, model.os);
  ReadCluster(root, model);
  ReadDisks(root, model);
  ReadProviders(root, model);
  ReadWriters(root, model, directory);
  ReadDatabases(root, model);
  ReadIscsiSessions(root, model);
  ReadFileVersions(root, model);
  ReadRegistry(root, model);
  ReadCommands(root, model);
  model.messages = ReadMessages(root, "messages");
  if (root.Has("vssMessages")) model.vssMessages = ReadMessages(root, "vssMessages");
  ForEachElement(root, "faults", [&](const JsonNode& fault) { ReadFault(fault, model); });
  ReadTiming(root, model);
  return model;
}

HostFileError ErrorOf(const std::string& file, const std::string& pointer, std::string_view reason) {
  std::string text = file + ": " + (pointer.empty() ? "/" : pointer) + ": " + std::string(reason);
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  return HostFileError(text);
}

}  // namespace

HostModel ParseHostFile(std::string_view json, const std::string& name, const std::filesystem::path& directory) {
  try {
    const nlohmann::json document = ParseJson(json);
    return ReadHost(JsonNode(document, ""), directory);
  } catch (const JsonError& error) {
    throw ErrorOf(name, error.pointer(), error.what());
  }
}

HostModel LoadHostFile(const std::filesystem::path& path) {
  const std::string name = Utf8FromPath(path);
  const std::optional<std::string> text = ReadWholeFile(path);
  if (!text) throw ErrorOf(name, "", "cannot read the file");
  return ParseHostFile(*text, name, path.parent_path());
}

}  // namespace varnel::simulator
