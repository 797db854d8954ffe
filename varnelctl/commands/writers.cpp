#include <CLI/App.hpp>
#include <algorithm>
#include <map>
#include <unordered_map>

#include "core/varnel.h"
#include "text/unicode.h"
#include "varnelctl/commands/command.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using varnel::WideToUtf8Lossy;

const char* NameOfComponentType(DWORD type) {
  switch (type) {
    case VSS_CT_DATABASE:
      return "database";
    case VSS_CT_FILEGROUP:
      return "fileGroup";
    default:
      return "undefined";
  }
}

const char* NameOfFileType(DWORD type) {
  switch (type) {
    case VssFileDescriptor::ExcludeFile:
      return "exclude";
    case VssFileDescriptor::DatabaseFile:
      return "databaseFile";
    case VssFileDescriptor::DatabaseLogFile:
      return "databaseLogFile";
    default:
      return "file";
  }
}

Json FileJson(const VssFileDescriptor& file, VolumeLocations& locations) {
  const VolumeLocation& location = locations.Of(file.volumeName);
  Json json = {{"path", WideToUtf8Lossy(file.path)},
               {"filespec", WideToUtf8Lossy(file.filespec)},
               {"fileType", NameOfFileType(file.fileType)},
               {"volume", WideToUtf8Lossy(file.volumeName)},
               {"serialNumber", WideToUtf8Lossy(location.serialNumber)}};
  if (!location.severalDisks.empty()) json["severalDisks"] = location.severalDisks;
  return json;
}

Json ComponentJson(const VssComponent& component, VolumeLocations& locations) {
  return {{"fullPath", WideToUtf8Lossy(component.fullPath)},
          {"name", WideToUtf8Lossy(component.name)},
          {"logicalPath", WideToUtf8Lossy(component.logicalPath)},
          {"caption", WideToUtf8Lossy(component.caption)},
          {"type", NameOfComponentType(component.type)},
          {"selectable", component.selectable},
          {"topLevel", component.topLevel},
          {"files", ArrayOf(component.files, [&](const auto& file) { return FileJson(file, locations); })}};
}

Json WriterJson(const VssWriter& writer, VolumeLocations& locations) {
  const auto componentJson = [&](const VssComponent& component) { return ComponentJson(component, locations); };
  return {{"name", WideToUtf8Lossy(writer.name)},
          {"writerId", WideToUtf8Lossy(writer.writerId)},
          {"instanceId", WideToUtf8Lossy(writer.instanceId)},
          {"components", ArrayOf(writer.components, componentJson)}};
}

// The files of one directory.
struct Directory {
  const VssFileDescriptor* first;
  std::vector<const VssFileDescriptor*> files;
};

// In the order in which the writer names them first.
std::vector<Directory> ByDirectory(const std::vector<VssFileDescriptor>& files) {
  std::vector<Directory> directories;
  std::unordered_map<std::wstring_view, std::size_t> known;
  for (const VssFileDescriptor& file : files) {
    const auto [entry, isNew] = known.try_emplace(file.path, directories.size());
    if (isNew) directories.push_back({&file, {}});
    directories[entry->second].files.push_back(&file);
  }
  return directories;
}

// Where no volume holds a path, the library gives the path itself for the volume.
bool IsOnAVolume(const VssFileDescriptor& file) {
  return file.volumeName.starts_with(L"\\\\?\\");
}

void WarnOfComponents(const VssWriter& writer, Session& session) {
  std::map<std::wstring_view, std::size_t> times;
  for (const VssComponent& component : writer.components) {
    const std::string name = Printable(component.fullPath) + " (" + Printable(writer.name) + ")";
    if (++times[component.fullPath] == 2) {
      session.Warn({"samePath", "two components have the path " + name + ": a request cannot tell them apart"});
    }
    const auto lost = std::find_if_not(component.files.begin(), component.files.end(), IsOnAVolume);
    if (lost == component.files.end()) continue;
    session.Warn({"noVolume", "no volume of this host holds " + Printable(lost->path) + " of " + name +
                                  ": no snapshot set can hold the component"});
  }
}

std::string DiskText(const VolumeLocation& location) {
  if (!location.severalDisks.empty()) return "several disks (" + NumberList(location.severalDisks) + ")";
  return location.serialNumber.empty() ? "disk unknown" : "disk \"" + Printable(location.serialNumber) + "\"";
}

// Writes the text that people read.
class Listing {
 public:
  Listing(Console& console, VolumeLocations& locations, bool all)
      : console_(console), locations_(locations), all_(all) {}

  void Print(const std::vector<VssWriter>& writers) {
    for (const VssWriter& writer : writers) Print(writer);
    console_.Line(Counted(writers.size(), "writer") + ", " + Counted(components_, "component") + ", " +
                  Counted(files_, "file"));
  }

 private:
  static constexpr std::size_t kFilesShown = 20;  // of one component

  void Print(const VssWriter& writer) {
    console_.Line(Printable(writer.name));
    console_.Line("  writer id    " + Printable(writer.writerId));
    console_.Line("  instance id  " + Printable(writer.instanceId));
    if (writer.components.empty()) console_.Line("  no components");
    for (const VssComponent& component : writer.components) Print(component);
    console_.Line("");
    components_ += writer.components.size();
  }

  void Print(const VssComponent& component) {
    console_.Line("  " + Printable(component.fullPath));
    std::string line = std::string("    ") + NameOfComponentType(component.type);
    line += component.selectable ? ", selectable" : ", not selectable";
    if (component.topLevel) line += ", top level";
    if (!component.caption.empty()) line += ", \"" + Printable(component.caption) + "\"";
    console_.Line(line);
    PrintFiles(component.files);
    files_ += component.files.size();
  }

  void PrintFiles(const std::vector<VssFileDescriptor>& files) {
    if (files.empty()) console_.Line("    no files");
    std::size_t left = all_ ? files.size() : std::min(files.size(), kFilesShown);
    const std::size_t hidden = files.size() - left;
    for (const Directory& directory : ByDirectory(files)) {
      if (left == 0) break;
      Print(*directory.first);
      for (const VssFileDescriptor* file : directory.files) {
        if (left == 0) break;
        console_.Line("      " + Printable(file->filespec) + "  (" + NameOfFileType(file->fileType) + ")");
        --left;
      }
    }
    if (hidden != 0) console_.Line("    ... and " + Counted(hidden, "more file") + " (--all shows them)");
  }

  // The directory's heading.
  void Print(const VssFileDescriptor& file) {
    console_.Line("    " + Printable(file.path) + "  on " +
                  (IsOnAVolume(file) ? Printable(file.volumeName) + ", " + DiskText(locations_.Of(file.volumeName))
                                     : "no known volume"));
  }

  Console& console_;
  VolumeLocations& locations_;
  const bool all_;
  std::size_t components_ = 0;
  std::size_t files_ = 0;
};

class WritersCommand final : public Command {
 public:
  const char* name() const override { return "writers"; }
  const char* description() const override {
    return "Show every writer, component and file, with volume and disk serial number";
  }
  const char* examples() const override {
    return "  varnelctl writers --all\n  varnelctl writers --json --host host.json\n";
  }
  void AddOptions(CLI::App& app) override {
    app.add_flag("--all", all_, "Show long file lists whole (varnelctl writers --all); JSON always has every file");
  }
  ExitStatus Run(Session& session) override {
    DiskAndVolumeEnumerator enumerator;
    CVarnel requestor(0);
    session.Ask("Initialize",
                [&] { requestor.Initialize(0, L"", false, VSS_BT_FULL, session.errorDetails, &enumerator); });
    session.Ask("GatherWriterMetadata", [&] { requestor.GatherWriterMetadata(session.errorDetails); });
    try {
      session.Ask("EnumerateDisks", [&] { enumerator.EnumerateDisks(false); });
    } catch (const TesselCommonClasses::ExceptionCommon& error) {
      session.Warn({"disksUnknown", OneLine(error.what()) + "; disks are not shown"});
    }
    for (const VssWriter& writer : requestor.GetWriters()) WarnOfComponents(writer, session);
    VolumeLocations locations(enumerator);
    if (session.json) {
      const auto writerJson = [&](const VssWriter& writer) { return WriterJson(writer, locations); };
      session.document.Set(name(), {{"writers", ArrayOf(requestor.GetWriters(), writerJson)}});
    } else {
      Listing(session.console, locations, all_).Print(requestor.GetWriters());
    }
    return ExitStatus::Done;
  }

 private:
  bool all_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeWritersCommand() {
  return std::make_unique<WritersCommand>();
}

}  // namespace varnelctl
