// Lines as a terminal of a certain width shows them.
#pragma once

#include <string>
#include <string_view>

namespace varnelctl {

/// The columns that a text without line ends takes: two for a wide character, none for one that joins the one before.
/// \param text UTF-8.
int ColumnsOf(std::string_view text);

/// The start of `text` that fits into `columns`.
std::string_view FirstColumns(std::string_view text, int columns);

/// Breaks the lines of `text` (UTF-8) that take more than `columns` between words; what follows is indented below what
/// it belongs to. A word, and what stands in quotes, is broken only by the terminal, where it is longer than a line. 0
/// columns break nothing.
std::string Wrapped(std::string_view text, int columns);

}  // namespace varnelctl
