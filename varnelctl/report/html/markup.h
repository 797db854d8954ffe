// Text of a host on a page: always data, never markup.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

namespace varnelctl::html {

/// UTF-8 as the text of an element or the value of an attribute in double quotes. What could hide text or turn it round
/// is U+FFFD.
std::string Escaped(std::string_view text);

/// `<tag>text</tag>`, with the class where one is given.
std::string Element(std::string_view tag, std::string_view text, std::string_view className = {});

/// A document for a script element, whose end no text in it can be.
std::string EscapedJson(const nlohmann::json& document);

std::string Base64(std::span<const unsigned char> bytes);

}  // namespace varnelctl::html
