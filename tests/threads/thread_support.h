// What tests of several threads share.
#pragma once

#include <atomic>
#include <filesystem>
#include <random>
#include <system_error>
#include <thread>

#include "text/format.h"

namespace varnel::test {

/// Where threads wait for each other. (A std::latch of MinGW's library does not always wake those who wait.)
class Meeting {
 public:
  explicit Meeting(int threads) : missing_(threads) {}
  void ArriveAndWait() {
    --missing_;
    while (missing_ > 0) std::this_thread::yield();
  }

 private:
  std::atomic<int> missing_;
};

/// The path of a file that is not there yet and that no other process has, as tests of several builds run at once. The
/// file goes with the object.
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
