#include "varnelctl/program_search.h"

#include "platform/host.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

varnel::SystemInformation& System() {
  return varnel::CurrentHost().system();
}

// What `ask` writes into a buffer with room for any path; empty when it fails.
template <class Ask>
std::wstring FilledPath(Ask ask) {
  constexpr DWORD kRoom = 32768;
  std::wstring path(kRoom, L'\0');
  const DWORD length = ask(path.data(), kRoom);
  path.resize(length < kRoom ? length : 0);
  return path;
}

// Nothing without such a variable. Asked for its size first, which alone tells an empty one from a failure.
std::optional<std::wstring> ValueOf(const wchar_t* name) {
  constexpr char kCall[] = "GetEnvironmentVariableW";
  const DWORD room = System().GetEnvironmentVariableW(name, nullptr, 0);
  if (room == 0) {
    if (varnel::CurrentHost().GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
    ThrowLastError(kCall);
  }
  std::wstring value(room, L'\0');
  const DWORD length = System().GetEnvironmentVariableW(name, value.data(), room);
  if (length != room - 1) ThrowLastError(kCall);
  value.resize(length);
  return value;
}

}  // namespace

ScopedVariable::ScopedVariable(const wchar_t* name, const std::wstring& value) : name_(name), previous_(ValueOf(name)) {
  if (!System().SetEnvironmentVariableW(name, value.c_str())) ThrowLastError("SetEnvironmentVariableW");
}

ScopedVariable::~ScopedVariable() {
  System().SetEnvironmentVariableW(name_, previous_ ? previous_->c_str() : nullptr);
}

ScopedCurrentDirectory::ScopedCurrentDirectory(const std::wstring& directory)
    : previous_(FilledPath([](LPWSTR path, DWORD room) { return System().GetCurrentDirectoryW(room, path); })) {
  if (previous_.empty()) ThrowLastError("GetCurrentDirectoryW");
  if (!System().SetCurrentDirectoryW(directory.c_str())) ThrowLastError("SetCurrentDirectoryW");
}

ScopedCurrentDirectory::~ScopedCurrentDirectory() {
  System().SetCurrentDirectoryW(previous_.c_str());
}

ProgramSearch::ProgramSearch(const std::wstring& lastFolder)
    : directory_(FilledPath([](LPWSTR path, UINT room) { return System().GetSystemDirectoryW(path, room); })),
      notInCurrentDirectory_(L"NoDefaultCurrentDirectoryInExePath", L"1") {
  if (lastFolder.empty()) return;
  const std::wstring path = ValueOf(L"PATH").value_or(L"");
  path_.emplace(L"PATH", path.empty() ? lastFolder : path + L";" + lastFolder);
}

bool ProgramSearch::Finds(const wchar_t* program) {
  const std::wstring found = FilledPath([program](LPWSTR path, DWORD room) {
    return varnel::CurrentHost().processes().SearchPathW(nullptr, program, nullptr, room, path, nullptr);
  });
  return !found.empty();
}

}  // namespace varnelctl
