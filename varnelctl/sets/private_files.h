// Files that only administrators may change: later commands end sets on what is written there.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace varnelctl {

/// Makes the folder, and those above it, for administrators and the system (elsewhere: for this user) alone. One that
/// is there must belong to one of them, as files must that are read. Throws std::system_error.
void MakePrivateFolder(const std::filesystem::path& folder);
/// The same where the one above it is there.
void MakeOnePrivateFolder(const std::filesystem::path& folder);

/// The content of a plain file. A link is not followed, and a file of another user or of more than `limit` bytes is
/// refused. Throws std::system_error.
std::string ReadPrivateFile(const std::filesystem::path& path, std::size_t limit);

/// Writes a file beside and puts it in the place of `path`, synchronised: after a crash of the system, too, the old
/// content stands there or the new. Throws std::system_error; then the old one does.
void ReplaceDurably(const std::filesystem::path& path, std::string_view content);

}  // namespace varnelctl
