// Text between the library, the user and the file system. Everything that varnelctl reads or prints is UTF-8.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace varnelctl {

/// For people: UTF-8 in which control characters and those that turn text round, which could move the cursor or hide
/// something, are U+FFFD, as is what is no valid Unicode. (JSON has the whole text: varnel::WideToUtf8Lossy.)
std::string Printable(std::wstring_view text);

/// The same for text of several lines, whose ends and tabs stay; "\r\n" is "\n".
std::string PrintableLines(std::string_view text);
std::wstring PrintableLines(std::wstring_view text);

/// A JSON document that has such characters as escapes in its strings.
std::string EscapeUnprintable(std::string json);

/// What the library hands out as narrow text, in UTF-8. Line by line it is in UTF-8 (application objects, alert
/// records, and what the code page cannot express) or in the thread's code page (serial numbers, volumes and lists of
/// them).
std::string FromLibrary(std::string_view text);

/// A message in one line: every run of control characters becomes one blank, or nothing at either end.
std::string OneLine(std::string_view text);

/// A serial number for people: blanks count in it, so it stands in quotes.
std::string Quoted(std::wstring_view serialNumber);

/// "1 writer", "3 writers".
std::string Counted(std::size_t count, std::string_view noun);

/// The path that an argument names.
std::filesystem::path PathOf(std::string_view argument);

}  // namespace varnelctl
