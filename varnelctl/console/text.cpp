#include "varnelctl/console/text.h"

#include <algorithm>
#include <stdexcept>

#include "platform/ansi.h"
#include "text/format.h"
#include "text/unicode.h"

namespace varnelctl {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

// What moves the cursor, hides text or turns it round: control characters, line separators and the marks, embeddings
// and isolates of the bidirectional algorithm.
constexpr bool IsUnprintable(wchar_t c) {
  const auto unit = static_cast<char32_t>(c);
  if (unit < 0x20 || (unit >= 0x7F && unit <= 0x9F)) return true;
  return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x2028 && unit <= 0x202E) ||
         (unit >= 0x2066 && unit <= 0x2069);
}

bool IsPlainAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c >= ' ' && c < 0x7F) || c == '\n' || c == '\t'; });
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
  std::wstring printable(text);
  std::replace_if(printable.begin(), printable.end(), IsUnprintable, kReplacement);
  return varnel::WideToUtf8Lossy(printable);
}

std::wstring PrintableLines(std::wstring_view text) {
  std::wstring lines;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.substr(i, 2) == L"\r\n") continue;
    const bool isLayout = text[i] == L'\n' || text[i] == L'\t';
    lines += IsUnprintable(text[i]) && !isLayout ? kReplacement : text[i];
  }
  return lines;
}

std::string PrintableLines(std::string_view text) {
  if (IsPlainAscii(text)) return std::string(text);
  return varnel::WideToUtf8Lossy(PrintableLines(varnel::Utf8ToWideLossy(text)));
}

std::string EscapeUnprintable(std::string json) {
  if (IsPlainAscii(json)) return json;
  std::wstring escaped;
  for (const wchar_t c : varnel::Utf8ToWideLossy(json)) {
    if (IsUnprintable(c) && c != L'\n') {
      escaped += varnel::FormatWide(L"\\u%04x", {static_cast<unsigned>(c)});
    } else {
      escaped += c;
    }
  }
  return varnel::WideToUtf8Lossy(escaped);
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
