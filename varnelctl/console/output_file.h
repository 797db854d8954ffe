// The files that a run is asked to write.
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnelctl {

/// A file that a run writes at its end, whole or not at all: beside the one of an earlier run, which it then replaces.
/// A device or a pipe is written to as it is.
class OutputFile {
 public:
  /// Tries whether the file can be written: a run of minutes must not end in a path that cannot. Without a path nobody
  /// wants it. Throws UsageError.
  OutputFile(std::string_view option, const std::optional<std::string>& path);

  /// Does nothing when nobody wants the file. Throws NotAllDone when it does not take everything.
  void Write(const std::string& text);
  /// Unless it was written, removes what an earlier run left in its place: nobody shall take it for this run's.
  /// \return what became of it, in words; empty when there was nothing.
  std::string RemoveEarlier() const;

 private:
  [[noreturn]] void Refuse(const std::string& reason) const;
  void TryToReplace();
  std::string Replace(const std::string& text) const;

  std::string name_;              // the option and its value, for people
  std::filesystem::path target_;  // the same wherever the current directory is later; empty when nobody wants it
  std::filesystem::path beside_;  // where it is made
  std::ofstream device_;          // open only to what is not replaced
  bool written_ = false;
};

/// An option that names a file, and its value.
struct FileOption {
  std::string option;
  std::optional<std::string> path;
};

/// Throws UsageError when two options name one file, by the same name or another. A device may be named twice.
void RequireDifferentFiles(const std::vector<FileOption>& files);
/// Throws UsageError when an option names a file in the folder, if there is one: that has its own.
void RequireOutside(const std::optional<std::string>& folder, const std::vector<FileOption>& files);

}  // namespace varnelctl
