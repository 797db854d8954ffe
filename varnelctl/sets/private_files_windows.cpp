#include <aclapi.h>

#include <array>
#include <memory>
#include <string>
#include <system_error>

#include "platform/win32.h"
#include "varnelctl/sets/access_list.h"
#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

// The system and administrators, nobody else, nothing inherited.
constexpr wchar_t kFolderAccess[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
constexpr wchar_t kFileAccess[] = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)";

[[noreturn]] void Throw(DWORD error) {
  throw std::system_error(static_cast<int>(error), std::system_category());
}

void Require(bool done) {
  if (!done) Throw(::GetLastError());
}

class File {
 public:
  File(const std::filesystem::path& path, DWORD access, DWORD disposition, DWORD flags,
       SECURITY_ATTRIBUTES* security = nullptr)
      : handle_(::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_DELETE, security, disposition, flags,
                              nullptr)) {
    Require(handle_ != INVALID_HANDLE_VALUE);
  }
  ~File() { ::CloseHandle(handle_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_;
};

bool IsThisUser(PSID owner) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  const std::unique_ptr<void, decltype(&::CloseHandle)> closed(token, ::CloseHandle);
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer{};
  DWORD bytes = 0;
  return ::GetTokenInformation(token, TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &bytes) &&
         ::EqualSid(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid, owner);
}

void RequireTrusted(HANDLE file) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = ::GetSecurityInfo(file, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr,
                                        nullptr, &descriptor);
  if (error != ERROR_SUCCESS) Throw(error);
  const std::unique_ptr<void, decltype(&::LocalFree)> freed(descriptor, ::LocalFree);
  const bool trusted = ::IsWellKnownSid(owner, WinBuiltinAdministratorsSid) ||
                       ::IsWellKnownSid(owner, WinLocalSystemSid) || IsThisUser(owner);
  if (!trusted) Throw(ERROR_INVALID_OWNER);
}

// Of what was opened itself, not of what a link leads to.
DWORD AttributesOf(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION information{};
  Require(::GetFileInformationByHandle(file, &information));
  return information.dwFileAttributes;
}

void WriteNew(const std::filesystem::path& path, std::string_view content) {
  const AccessList access(kFileAccess);
  SECURITY_ATTRIBUTES security = access.Attributes();
  ::DeleteFileW(path.c_str());  // a file that was there would keep its access list
  const File file(path, GENERIC_WRITE, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, &security);
  DWORD written = 0;
  Require(::WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
  if (written != content.size()) Throw(ERROR_DISK_FULL);
  Require(::FlushFileBuffers(file.Get()));
}

// A scanner may hold a new file for a moment.
void MoveOver(const std::filesystem::path& from, const std::filesystem::path& to) {
  constexpr int kTries = 10;
  constexpr DWORD kPauseMilliseconds = 20;
  for (int left = kTries - 1;; --left) {
    if (::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return;
    const DWORD error = ::GetLastError();
    if (left == 0 || (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION)) Throw(error);
    ::Sleep(kPauseMilliseconds);
  }
}

}  // namespace

void MakeOnePrivateFolder(const std::filesystem::path& folder) {
  const AccessList access(kFolderAccess);
  SECURITY_ATTRIBUTES security = access.Attributes();
  if (::CreateDirectoryW(folder.c_str(), &security)) return;
  if (::GetLastError() != ERROR_ALREADY_EXISTS) Throw(::GetLastError());
  constexpr DWORD kAsk = READ_CONTROL | FILE_READ_ATTRIBUTES;
  const File link(folder, kAsk, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT);
  RequireTrusted(link.Get());  // whoever owns a link says where it leads
  const File there(folder, kAsk, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  if ((AttributesOf(there.Get()) & FILE_ATTRIBUTE_DIRECTORY) == 0) Throw(ERROR_DIRECTORY);
  RequireTrusted(there.Get());
}

std::string ReadPrivateFile(const std::filesystem::path& path, std::size_t limit) {
  const File file(path, GENERIC_READ, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT);
  constexpr DWORD kNoPlainFile = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if ((AttributesOf(file.Get()) & kNoPlainFile) != 0) Throw(ERROR_CANT_ACCESS_FILE);
  RequireTrusted(file.Get());
  LARGE_INTEGER size{};
  Require(::GetFileSizeEx(file.Get(), &size));
  if (static_cast<ULONGLONG>(size.QuadPart) > limit) Throw(ERROR_FILE_TOO_LARGE);
  std::string content(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD read = 0;
  Require(::ReadFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr));
  content.resize(read);
  return content;
}

void ReplaceDurably(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path beside = path;
  beside += L"." + std::to_wstring(::GetCurrentProcessId()) + L".new";  // another process may write the same file
  try {
    WriteNew(beside, content);
    MoveOver(beside, path);
  } catch (const std::system_error&) {
    ::DeleteFileW(beside.c_str());
    throw;
  }
}

}  // namespace varnelctl
