// What the tests of Exchange share: files on a snapshot, and a host without texts.
#pragma once

#include "requestors/ExchReq.h"
#include "tests/support/applications.h"

namespace varnel::test {

inline const std::wstring kDevice = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\";

// What asking for the text of a code leaves in the log where no message table has one.
inline const std::string kNoText = "W varnel: FormatMessage failed. Error 317";

inline VssFileDescriptor FileOf(std::wstring filespec) {
  VssFileDescriptor file;
  file.filespec = std::move(filespec);
  file.pathOnVolume = L"mail\\";
  file.snapshotDeviceName = kDevice;
  return file;
}

/// vsstrace.dll is there; neither it nor the system has any text, so that a text shows its code.
inline simulator::HostModel HostWithoutTexts() {
  simulator::HostModel model = SmallHost();
  model.vssMessages.emplace();
  return model;
}

}  // namespace varnel::test
