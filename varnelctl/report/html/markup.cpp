#include "varnelctl/report/html/markup.h"

#include <nlohmann/json.hpp>

#include "text/unicode.h"
#include "varnelctl/console/text.h"

namespace varnelctl::html {
namespace {

std::string_view EntityOf(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

// Strings alone hold what this makes of them.
std::string_view EscapeAt(std::string_view text) {
  constexpr std::string_view kLineSeparator = "\xE2\x80\xA8";
  constexpr std::string_view kParagraphSeparator = "\xE2\x80\xA9";
  switch (text.front()) {
    case '<':
      return "\\u003c";
    case '>':
      return "\\u003e";
    case '&':
      return "\\u0026";
    default:
      break;
  }
  if (text.starts_with(kLineSeparator)) return "\\u2028";
  return text.starts_with(kParagraphSeparator) ? "\\u2029" : std::string_view();
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : Printable(varnel::Utf8ToWideLossy(text))) {
    const std::string_view entity = EntityOf(c);
    entity.empty() ? escaped += c : escaped.append(entity);
  }
  return escaped;
}

std::string Element(std::string_view tag, std::string_view text, std::string_view className) {
  std::string element = "<" + std::string(tag);
  if (!className.empty()) element.append(" class=\"").append(className) += '"';
  return element + ">" + Escaped(text) + "</" + std::string(tag) + ">";
}

std::string EscapedJson(const nlohmann::json& document) {
  constexpr std::size_t kBytesOfSeparator = 3;
  const std::string text = document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string escaped;
  escaped.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view escape = EscapeAt(std::string_view(text).substr(at));
    escape.empty() ? escaped += text[at] : escaped.append(escape);
    at += escape.starts_with("\\u20") ? kBytesOfSeparator : 1;
  }
  return escaped;
}

std::string Base64(std::span<const unsigned char> bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(bytes.size() - at, 3);
    unsigned value = 0;
    for (std::size_t i = 0; i < 3; ++i) value = value << 8 | (i < count ? bytes[at + i] : 0U);
    for (std::size_t i = 0; i < 4; ++i) text += i <= count ? kDigits[value >> (18 - 6 * i) & 63] : '=';
  }
  return text;
}

}  // namespace varnelctl::html
