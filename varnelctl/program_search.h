// Where this process looks for programs that are named without their folder.
#pragma once

#include <optional>
#include <string>

namespace varnelctl {

/// A variable of this process's environment; what it was comes back in the end.
class ScopedVariable {
 public:
  /// Throws CallFailure.
  ScopedVariable(const wchar_t* name, const std::wstring& value);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const wchar_t* name_;
  const std::optional<std::wstring> previous_;
};

/// The current directory of this process; what it was comes back in the end.
class ScopedCurrentDirectory {
 public:
  /// Throws CallFailure.
  explicit ScopedCurrentDirectory(const std::wstring& directory);
  ~ScopedCurrentDirectory();
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

 private:
  const std::wstring previous_;
};

/// While it lives, a program that is named without its folder, as the library starts Exchange's checker, is not looked
/// for in the folder that the user happens to be in, where anybody may have put one of that name.
///
/// CreateProcessW looks in the calling program's folder, the current directory, the system's folders and those of PATH,
/// in this order. Two things keep it out of the user's folder:
/// - The current directory is the system directory for that time, where only administrators write. This is what holds
///   by the documented order. (SetSearchPathMode would not do: it is for SearchPathW alone.)
/// - The variable NoDefaultCurrentDirectoryInExePath exists; its value does not matter. It is documented as what
///   NeedCurrentDirectoryForExePathW goes by, so for programs that search by themselves, such as cmd.exe; where
///   CreateProcessW asks it too, the current directory drops out altogether. The programs that are started inherit it.
class ProgramSearch {
 public:
  /// \param lastFolder is added at the end of PATH; may be empty. Throws CallFailure.
  explicit ProgramSearch(const std::wstring& lastFolder);

  /// Whether a program of this name would be found.
  static bool Finds(const wchar_t* program);

 private:
  ScopedCurrentDirectory directory_;
  ScopedVariable notInCurrentDirectory_;
  std::optional<ScopedVariable> path_;
};

}  // namespace varnelctl
