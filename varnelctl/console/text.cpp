#include "varnelctl/console/text.h"

#include <algorithm>
#include <stdexcept>

#include "platform/ansi.h"
#include "text/unicode.h"

namespace varnelctl {
namespace {

constexpr bool IsControl(wchar_t c) {
  const auto unit = static_cast<char32_t>(c);
  return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F);
}

std::string LineFromLibrary(std::string_view line) {
  std::wstring wide;
  try {
    wide = varnel::Utf8ToWide(line);
  } catch (const std::range_error&) {
    wide = varnel::AnsiToWide(line);
  }
  return varnel::WideToUtf8Lossy(wide);
}

}  // namespace

std::string FromLibrary(std::string_view text) {
  std::string result;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
    result += LineFromLibrary(text.substr(start, end - start));
    start = end;
  }
  return result;
}

std::string Printable(std::wstring_view text) {
  constexpr wchar_t kReplacement = 0xFFFD;
  std::wstring printable(text);
  std::replace_if(printable.begin(), printable.end(), IsControl, kReplacement);
  return varnel::WideToUtf8Lossy(printable);
}

std::string OneLine(std::string_view text) {
  std::string line;
  bool gap = false;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      gap = true;
      continue;
    }
    if (gap && !line.empty()) line += ' ';
    gap = false;
    line += c;
  }
  return line;
}

std::string Quoted(std::wstring_view serialNumber) {
  return "\"" + Printable(serialNumber) + "\"";
}

std::string Counted(std::size_t count, std::string_view noun) {
  std::string text = std::to_string(count) + ' ';
  text += noun;
  if (count != 1) text += 's';
  return text;
}

std::filesystem::path PathOf(std::string_view argument) {
  return std::u8string(argument.begin(), argument.end());
}

}  // namespace varnelctl
