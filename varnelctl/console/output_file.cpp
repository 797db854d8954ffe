#include "varnelctl/console/output_file.h"

#include <cerrno>
#include <random>
#include <system_error>

#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

namespace fs = std::filesystem;

std::string Shown(const fs::path& path) {
  return Printable(varnel::WideFileName(path.native()));
}

// Why the call before failed.
std::string LastReason() {
  return std::generic_category().message(errno == 0 ? EIO : errno);
}

// Why the file did not take everything; empty when it did.
std::string PutInto(std::ofstream& file, const std::string& text) {
  errno = 0;
  if (file.is_open() && file << text << std::flush) {
    file.close();
    if (file) return {};
  }
  return LastReason();
}

// Names that stand for what this process has open.
bool IsOpenAlready(const fs::path& path) {
  const std::u8string name = path.generic_u8string();
  return name.starts_with(u8"/dev/std") || name.starts_with(u8"/dev/fd/") || name.starts_with(u8"/proc/");
}

bool IsDevice(const fs::path& path) {
  std::error_code ignored;
  if (varnel::WideFileName(fs::absolute(path, ignored).native()).starts_with(L"\\\\.\\"))
    return true;  // as Windows names them
  const fs::file_status status = fs::status(path, ignored);
  return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

// Equal for equal paths of a file that need not be there.
std::wstring KeyOf(const fs::path& path) {
  std::error_code ignored;
  fs::path whole = fs::weakly_canonical(fs::absolute(path, ignored), ignored);
  whole = whole.empty() ? path : whole.make_preferred();
  constexpr bool kAnyCase = fs::path::preferred_separator == '\\';
  std::wstring key = varnel::WideFileName(whole.native());
  return kAnyCase ? varnel::ascii::ToLower(key) : key;
}

bool AreOneFile(const std::string& a, const std::string& b) {
  std::error_code none;
  const fs::path first = PathOf(a);
  const fs::path second = PathOf(b);
  if (IsDevice(first)) return false;
  return fs::equivalent(first, second, none) || KeyOf(first) == KeyOf(second);
}

}  // namespace

OutputFile::OutputFile(std::string_view option, const std::optional<std::string>& path) {
  if (!path) return;
  name_ = option;
  if (path->empty()) Refuse("a file name is missing");
  name_ += " " + Printable(varnel::Utf8ToWideLossy(*path));
  std::error_code ignored;
  target_ = fs::absolute(PathOf(*path), ignored);
  if (IsDevice(target_)) {
    errno = 0;
    device_.open(target_, std::ios::binary | std::ios::app);
    if (!device_) Refuse("it cannot be written to: " + LastReason());
    return;
  }
  TryToReplace();
}

void OutputFile::Refuse(const std::string& reason) const {
  throw UsageError(name_ + ": " + reason);
}

void OutputFile::TryToReplace() {
  std::error_code error;
  const fs::file_status status = fs::status(target_, error);
  if (fs::is_directory(status)) Refuse("this is a folder; name a file");
  if (fs::exists(status)) {
    if (IsOpenAlready(target_)) Refuse("this is a file that this program has open already; name another");
    target_ = fs::canonical(target_, error);  // a link stays one
    constexpr fs::perms kWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    errno = EACCES;
    if ((status.permissions() & kWrite) == fs::perms::none ||
        !std::ofstream(target_, std::ios::binary | std::ios::app)) {
      Refuse("the file that is there cannot be replaced: " + LastReason());
    }
  }
  const fs::path folder = target_.parent_path();
  if (!fs::is_directory(folder, error)) Refuse("there is no folder " + Shown(folder));
  beside_ = target_;
  beside_ += "." + std::to_string(std::random_device()()) + ".new";
  errno = 0;
  if (!std::ofstream(beside_, std::ios::binary)) {
    Refuse("its folder " + Shown(folder) + " takes no new file: " + LastReason());
  }
  fs::remove(beside_, error);
}

void OutputFile::Write(const std::string& text) {
  if (target_.empty()) return;
  const std::string reason = device_.is_open() ? PutInto(device_, text) : Replace(text);
  if (!reason.empty()) throw NotAllDone(name_ + " was not written whole: " + reason);
  written_ = true;
}

std::string OutputFile::Replace(const std::string& text) const {
  std::error_code error;
  std::ofstream file(beside_, std::ios::binary | std::ios::trunc);
  std::string reason = PutInto(file, text);
  if (reason.empty()) {
    const fs::file_status earlier = fs::status(target_, error);
    if (fs::exists(earlier)) fs::permissions(beside_, earlier.permissions(), error);
    fs::rename(beside_, target_, error);
    if (!error) return {};
    reason = error.message();
  }
  file.close();
  fs::remove(beside_, error);
  return reason;
}

std::string OutputFile::RemoveEarlier() const {
  std::error_code error;
  if (written_ || beside_.empty() || !fs::is_regular_file(target_, error)) return {};
  if (fs::remove(target_, error)) return name_ + ": the file of an earlier run was removed, as this run wrote none";
  return name_ + ": the file of an earlier run is still there: " + error.message();
}

void RequireDifferentFiles(const std::vector<FileOption>& files) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    for (std::size_t j = i + 1; j < files.size(); ++j) {
      if (!files[i].path || !files[j].path || !AreOneFile(*files[i].path, *files[j].path)) continue;
      throw UsageError(files[i].option + " and " + files[j].option + " name one file, " +
                       Printable(varnel::Utf8ToWideLossy(*files[j].path)) + ": give each its own");
    }
  }
}

void RequireOutside(const std::optional<std::string>& folder, const std::vector<FileOption>& files) {
  if (!folder) return;
  std::wstring within = KeyOf(PathOf(*folder));
  if (within.back() != fs::path::preferred_separator) within += fs::path::preferred_separator;
  for (const FileOption& file : files) {
    if (!file.path || !KeyOf(PathOf(*file.path)).starts_with(within)) continue;
    throw UsageError(file.option + " names a file in the folder " + Printable(varnel::Utf8ToWideLossy(*folder)) +
                     ", which keeps its own: name another place");
  }
}

}  // namespace varnelctl
