#include "varnelctl/anonymise/known_words.h"

#include <algorithm>

namespace varnelctl {
namespace {

using Words = std::string_view;

constexpr Words kWellKnownNames[] = {
    // folders and variables
    "Windows", "System32", "SysWOW64", "WinSxS", "Program Files", "Program Files (x86)", "ProgramData", "ProgramFiles",
    "Users", "AppData", "SystemRoot", "SystemDrive", "windir", "System Volume Information", "ClusterStorage",
    "Virtual Machines", "Virtual Hard Disks", "Exchange Server", "Hyper-V", "PhysicalDrive",
    // what names of volumes and copies are made of
    "Volume", "GLOBALROOT\\Device", "HarddiskVolumeShadowCopy",
    // keys of the registry
    "HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER", "SOFTWARE", "CurrentVersion",
    // products
    "Microsoft", "Microsoft SQL Server", "SQL Server", "Microsoft Exchange", "Microsoft Exchange Server",
    "Microsoft Information Store", "Microsoft Hyper-V", "MSSQL", "eseutil.exe", "Vmms.exe",
    // databases and files that every SQL Server has, its usual instances, and its writers
    "master", "model", "msdb", "tempdb", "mssqlsystemresource", "mastlog", "modellog", "MSDBData", "MSDBLog", "templog",
    "MSSQLSERVER", "SQLEXPRESS", "SqlServerWriter", "SQLWriter", "MSDEWriter"};

constexpr Words kOrdinaryNames[] = {"backup", "backups", "bin",     "config",  "data",      "database", "databases",
                                    "db",     "default", "disks",   "files",   "hyperv",    "local",    "localstate",
                                    "log",    "logs",    "mailbox", "roaming", "snapshots", "sql",      "store",
                                    "temp",   "tmp",     "vm",      "vms",     "volume"};

// What stands in varnelctl's own sentences, options and documents, which have to stay what they are.
constexpr Words kOwnWords[] = {"anonymise", "app",      "capture",  "captured", "catalog", "component", "components",
                               "disk",      "document", "error",    "event",    "events",  "evidence",  "exchange",
                               "fail",      "failed",   "host",     "hosts",    "journal", "json",      "none",
                               "nothing",   "plan",     "provider", "report",   "set",     "sets",      "snapshot",
                               "state",     "status",   "volumes",  "would",    "writer",  "writers"};

constexpr Words kUsualExtensions[] = {"avhd", "avhdx", "bak",  "bin",  "cfg",  "chk", "dat", "dll", "edb",
                                      "exe",  "html",  "ini",  "jrs",  "json", "ldf", "log", "mdf", "mrt",
                                      "ndf",  "ost",   "pst",  "rct",  "reg",  "sys", "tmp", "txt", "vhd",
                                      "vhdx", "vmcx",  "vmgs", "vmrs", "vsv",  "xml"};

constexpr Words kFormatAttributes[] = {"backupSchema",
                                       "backupSucceeded",
                                       "backupType",
                                       "bootableSystemStateBackup",
                                       "componentFlags",
                                       "componentType",
                                       "dataSource",
                                       "filespecBackupType",
                                       "majorVersion",
                                       "method",
                                       "minorVersion",
                                       "notifyOnBackupComplete",
                                       "partialFileSupport",
                                       "rebootRequired",
                                       "recursive",
                                       "restoreMetadata",
                                       "selectComponents",
                                       "selectable",
                                       "selectableForRestore",
                                       "usage",
                                       "version",
                                       "writerId",
                                       "writerRestore",
                                       "xmlns"};

constexpr Words kOpaqueAttributes[] = {"backupMetadata", "backupStamp", "metadata", "previousBackupStamp"};

template <std::size_t n>
bool IsOneOf(const Words (&words)[n], std::string_view word) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

}  // namespace

std::span<const std::string_view> WellKnownNames() {
  return kWellKnownNames;
}

bool IsOrdinaryName(std::string_view folded) {
  const bool isVersion =
      folded.size() > 1 && folded[0] == 'v' && folded.find_first_not_of("0123456789.", 1) == folded.npos;
  const bool isNumber = folded.find_first_not_of("0123456789") == folded.npos;  // of a time, or of a version
  return isVersion || isNumber || IsOneOf(kOrdinaryNames, folded) || IsOneOf(kOwnWords, folded);
}

bool IsUsualExtension(std::string_view folded) {
  return IsOneOf(kUsualExtensions, folded);
}

bool IsFormatAttribute(std::string_view attribute) {
  return IsOneOf(kFormatAttributes, attribute);
}

bool IsOpaqueAttribute(std::string_view attribute) {
  return IsOneOf(kOpaqueAttributes, attribute);
}

}  // namespace varnelctl
