// A file that several processes which run the same test do not share.
#pragma once

#include <filesystem>
#include <random>
#include <system_error>

#include "text/format.h"

namespace varnel::test {

/// The path of a file that is not there yet; the file goes with the object.
class TemporaryFile {
 public:
  TemporaryFile() = default;
  ~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / FormatNarrow("varnel_threads_%u.log", {std::random_device()()});
};

}  // namespace varnel::test
