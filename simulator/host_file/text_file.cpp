#include "simulator/host_file/text_file.h"

#include <cerrno>
#include <fstream>
#include <system_error>

#include "text/unicode.h"

namespace varnel::simulator {
namespace {

std::string ReadBytes(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) throw TextFileError("there is no such file");
  if (std::filesystem::is_directory(status)) throw TextFileError("it is a folder");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file && errno == EACCES) throw TextFileError("this user has no permission to read it");
  std::string bytes;
  char block[16384];
  while (file.read(block, sizeof block) || file.gcount() > 0) {
    bytes.append(block, static_cast<std::size_t>(file.gcount()));
  }
  if (!file.eof()) throw TextFileError("it cannot be read");
  return bytes;
}

// The text after the mark.
std::string FromUtf16(const std::string& bytes, bool bigEndian) {
  if (bytes.size() % 2 != 0) throw TextFileError("it is no UTF-16: an odd number of bytes");
  std::wstring units;
  for (std::size_t at = 2; at < bytes.size(); at += 2) {
    const auto first = static_cast<unsigned char>(bytes[at]);
    const auto second = static_cast<unsigned char>(bytes[at + 1]);
    units += static_cast<wchar_t>(bigEndian ? first << 8 | second : second << 8 | first);
  }
  try {
    return WideToUtf8(units);
  } catch (const std::range_error&) {
    throw TextFileError("it is no UTF-16: half of a surrogate pair");
  }
}

}  // namespace

std::string ReadTextFile(const std::filesystem::path& path) {
  std::string bytes = ReadBytes(path);
  if (bytes.starts_with("\xFF\xFE")) return FromUtf16(bytes, false);
  if (bytes.starts_with("\xFE\xFF")) return FromUtf16(bytes, true);
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.erase(0, 3);
  return bytes;
}

}  // namespace varnel::simulator
