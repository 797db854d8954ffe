#include "varnelctl/console/output_folder.h"

#include <system_error>

#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

namespace fs = std::filesystem;

// "DIR/" is DIR.
fs::path WholePath(const std::string& argument) {
  std::error_code ignored;
  fs::path path = fs::absolute(PathOf(argument), ignored).lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

}  // namespace

OutputFolder::OutputFolder(std::string_view option, const std::string& argument)
    : name_(std::string(option) + " " + Printable(varnel::Utf8ToWideLossy(argument))), path_(WholePath(argument)) {
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  if (fs::exists(status) && !fs::is_directory(status)) Refuse("this is no folder; name another");
  if (fs::is_directory(status) && !fs::is_empty(path_, error)) {
    Refuse(error ? "it cannot be read: " + OneLine(error.message())
                 : "there is something in this folder; name another, which need not be there");
  }
  if (!fs::is_directory(path_.parent_path(), error)) {
    Refuse("there is no folder " + Printable(varnel::WideFileName(path_.parent_path().native())));
  }
  isNew_ = !fs::exists(status);
  constexpr char kTrial[] = "trial";
  try {
    MakeOnePrivateFolder(path_);
    ReplaceDurably(path_ / kTrial, "");
    fs::remove(path_ / kTrial);
  } catch (const std::system_error& failure) {
    if (isNew_) fs::remove(path_, error);
    Refuse("it cannot be written to: " + OneLine(failure.code().message()));
  }
}

OutputFolder::~OutputFolder() {
  std::error_code ignored;
  if (isNew_) fs::remove(path_, ignored);  // not one with files
}

void OutputFolder::Write(const std::string& file, std::string_view content) const {
  const fs::path path = path_ / PathOf(file);
  try {
    if (path.parent_path() != path_) MakeOnePrivateFolder(path.parent_path());
    ReplaceDurably(path, content);
  } catch (const std::system_error& failure) {
    throw NotAllDone(name_ + ": " + file + " was not written: " + OneLine(failure.code().message()));
  }
}

void OutputFolder::Refuse(const std::string& reason) const {
  throw UsageError(name_ + ": " + reason);
}

}  // namespace varnelctl
