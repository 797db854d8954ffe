// The folder that a run is asked to fill.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace varnelctl {

/// For its user alone. What is written there is whole.
class OutputFolder {
 public:
  /// Makes the folder, or takes one that is there and empty, and tries whether it can be written to. Throws UsageError.
  /// \param option that named it, for people.
  OutputFolder(std::string_view option, const std::string& argument);
  /// A folder that was made for nothing goes.
  ~OutputFolder();
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  /// The file, by its name in the folder, where '/' separates folders. Throws NotAllDone.
  void Write(const std::string& file, std::string_view content) const;

 private:
  [[noreturn]] void Refuse(const std::string& reason) const;

  std::string name_;            // the option and its value, for people
  std::filesystem::path path_;  // the same wherever the current directory is later
  bool isNew_ = false;
};

}  // namespace varnelctl
