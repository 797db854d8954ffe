// The requestor's decisions a second time, as plainly as the rules read: nested loops over lists, nothing remembered,
// nothing shared with the library. What it tells of a request must be what the requestor does.
#pragma once

#include <string>
#include <vector>

#include "tests/faults/reference_scenario.h"
#include "text/unicode.h"

namespace varnel::test::reference {

using Lines = std::vector<std::string>;

/// What the simulated service answered where the reference has no rule of its own.
struct ServiceAnswers {
  struct Volume {
    HRESULT result = S_OK;
    GUID snapshotId{};
  };
  GUID setId{};
  std::vector<Volume> volumes;  // of the AddToSnapshotSet calls in order
};

/// How a step ended: "returned", "long 0x80042301", "VarnelException 602 ...", "std::invalid_argument".
struct Ending {
  std::string text = "returned";
  int statusCode = 0;  // what the host agent passes to SetBackupStatus

  bool Returned() const { return text == "returned"; }
};
Ending EndingWithLong(long hr);
Ending EndingWithException(int code, const std::wstring& message, const std::vector<std::wstring>& list);
Ending EndingWithOther(const std::string& type);

/// A whole request as lines: how its steps ended, its log, its error details, its calls and its state, each line after
/// its heading.
using Story = Lines;

/// The request as the rules have it: creation, catalogue and completion.
Story Tell(const Scenario& scenario, const ServiceAnswers& service);

// The parts of a story, for both tellers.

inline std::string Narrow(const std::wstring& text) {
  return WideToUtf8Lossy(text);
}
void AddText(Story& story, const std::string& heading, const std::string& text);
void AddTexts(Story& story, const std::string& heading, const std::vector<std::wstring>& texts);

template <class File>
void AddFile(Story& story, const File& file) {
  AddText(story, "    file",
          Narrow(file.expandedPath + L" | " + file.volumeName + L" | " + file.pathOnVolume + L" | " +
                 file.snapshotDeviceName + L" | " + file.snapshotDiskName + L" | " + file.snapshotSerialNumber));
}

template <class Component>
void AddComponentRecord(Story& story, const Component& component) {
  const auto mark = [](bool set, const char* name) { return set ? std::string(" ") + name : std::string(); };
  AddText(story, "  component",
          Narrow(component.fullPath) + mark(component.topLevel, "top") + mark(component.excluded, "excluded") +
              mark(component.added, "added") + mark(component.failed, "failed") + " " +
              std::to_string(component.failureCode));
  for (const std::wstring& serialNumber : component.affectedSerialNumbers) {
    AddText(story, "    on disk", Narrow(serialNumber));
  }
  for (const auto& file : component.files) AddFile(story, file);
}

template <class Writer>
void AddWriters(Story& story, const std::vector<Writer>& writers) {
  for (const Writer& writer : writers) {
    AddText(story, "writer", Narrow(writer.name) + (writer.excluded ? " excluded" : ""));
    for (const auto& component : writer.components) AddComponentRecord(story, component);
  }
}

template <class Volume>
void AddVolumes(Story& story, const std::vector<Volume>& volumes) {
  for (const Volume& volume : volumes) {
    AddText(story, "volume",
            Narrow(volume.volumeName + L" | " + volume.snapshotId + L" | " + volume.snapshotDeviceName));
  }
}

}  // namespace varnel::test::reference
