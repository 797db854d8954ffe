// A captured host as files.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "varnelctl/capture/host_reader.h"

namespace varnelctl {

struct CaptureFiles {
  /// Beside the host file, by their names relative to it.
  std::vector<std::pair<std::string, std::string>> documents;
  std::string hostFile;
};

/// The name of the host file.
inline constexpr char kCapturedHostFile[] = "host.json";

CaptureFiles MakeFiles(const CapturedHost& host);

}  // namespace varnelctl
