// What a drop-in library knows of itself, and how it tells the process that it cannot do its work.
#pragma once

#include <filesystem>
#include <string_view>

namespace varnel::simulator::this_module {

/// The folder that this library was loaded from.
std::filesystem::path Folder();
/// Keeps this library in the process until the process ends.
void Pin() noexcept;
/// Writes one line, "LIBRARY: text", to standard error and to a debugger. `text` is UTF-8.
void Report(std::string_view text) noexcept;

}  // namespace varnel::simulator::this_module
