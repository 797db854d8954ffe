// The version of a file of the system directory.
#pragma once

#include <string>

#include "platform/win32.h"

namespace varnelctl {

struct FileVersionText {
  std::string text;  ///< "10.0.17763.1"
  DWORD major = 0;
  DWORD minor = 0;
};

/// Throws CallFailure.
FileVersionText ReadSystemFileVersion(const std::wstring& file);

}  // namespace varnelctl
