#include "varnelctl/anonymise/markup_text.h"

#include <charconv>
#include <cstdint>
#include <optional>

namespace varnelctl {
namespace {

struct Reference {
  std::string_view name;
  char character;
};

constexpr Reference kReferences[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};

void AppendUtf8(std::string& text, std::uint32_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
    return;
  }
  const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  text += static_cast<char>((0xF00 >> more & 0xFF) | c >> 6 * more);
  for (int i = more - 1; i >= 0; --i) text += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
}

bool AppendReference(std::string& text, std::string_view name) {
  for (const Reference& reference : kReferences) {
    if (reference.name != name) continue;
    text += reference.character;
    return true;
  }
  if (!name.starts_with('#')) return false;
  const bool hexadecimal = name.starts_with("#x");
  name.remove_prefix(hexadecimal ? 2 : 1);
  std::uint32_t c = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), c, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != name.data() + name.size() || c == 0 || c > 0x10FFFF) return false;
  AppendUtf8(text, c);
  return true;
}

}  // namespace

std::string WithoutReferences(std::string_view value) {
  std::string text;
  for (std::size_t at = 0; at < value.size(); ++at) {
    const std::size_t end = value[at] == '&' ? value.find(';', at) : value.npos;
    if (end != value.npos && AppendReference(text, value.substr(at + 1, end - at - 1))) {
      at = end;
    } else {
      text += value[at];
    }
  }
  return text;
}

void AppendEscaped(std::string& xml, std::string_view text, char quote) {
  for (const char c : text) {
    if (c == quote) {
      xml += quote == '"' ? "&quot;" : "&apos;";
    } else if (c == '&') {
      xml += "&amp;";
    } else if (c == '<') {
      xml += "&lt;";
    } else if (static_cast<unsigned char>(c) < 0x20) {
      xml += "&#" + std::to_string(c) + ";";
    } else {
      xml += c;
    }
  }
}

std::string_view AttributeBefore(std::string_view xml, std::size_t quote) {
  constexpr std::string_view kBlanks = " \t\r\n=";
  const std::size_t last = xml.substr(0, quote).find_last_not_of(kBlanks);
  if (last == xml.npos) return {};
  const std::size_t before = xml.find_last_of(" \t\r\n\"'<", last);
  return xml.substr(before + 1, last - before);
}

}  // namespace varnelctl
