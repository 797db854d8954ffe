// The text of XML documents: what stands for a character, and the names of attributes.
#pragma once

#include <string>
#include <string_view>

namespace varnelctl {

/// The text that a value means: "A&B" of "A&amp;B". What is no reference that XML has by itself stays.
std::string WithoutReferences(std::string_view value);
/// The value of an attribute between these quotes.
void AppendEscaped(std::string& xml, std::string_view text, char quote);
/// The name of the attribute whose value begins with the quotes at `quote`.
std::string_view AttributeBefore(std::string_view xml, std::size_t quote);

}  // namespace varnelctl
