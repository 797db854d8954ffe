// Files of text.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace varnel::simulator {

/// A file that gives no text: what() says why, "is no file" and the like.
class TextFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The text of a file as UTF-8 without a byte-order mark; one in UTF-16 is told by its mark, either way round. Bytes
/// without a mark are taken as they are. Throws TextFileError.
std::string ReadTextFile(const std::filesystem::path& path);

}  // namespace varnel::simulator
