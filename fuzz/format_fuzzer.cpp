// The formatter, fed formats from anywhere: it never throws, never overruns, and copies what is no conversion.
// Input: one byte that says which kind each argument is, then the format, which also serves as every text argument.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/format.h"

namespace {

constexpr std::size_t kArguments = 8;

void Require(bool holds) {
  if (!holds) std::abort();
}

// Every byte a character, so that surrogates and other broken text come up on both widths: bytes from 0x80 on stand
// for the characters from U+D780 to U+D7FF and the surrogates behind them.
std::wstring WideFrom(std::string_view bytes) {
  std::wstring text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += static_cast<wchar_t>(byte < 0x80 ? byte : 0xD700 + byte * 4);
  }
  return text;
}

std::vector<varnel::FormatArgument> Arguments(unsigned kinds, const std::string& narrow, const std::wstring& wide) {
  std::vector<varnel::FormatArgument> arguments;
  for (std::size_t i = 0; i < kArguments; ++i) {
    const bool isNumber = ((kinds >> i) & 1U) != 0;
    if (isNumber) {
      arguments.emplace_back(static_cast<std::uint32_t>(narrow.size() * 0x9E3779B9U));
    } else if (i % 2 == 0) {
      arguments.emplace_back(narrow);
    } else {
      arguments.emplace_back(wide);
    }
  }
  return arguments;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string narrow(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::wstring wide = WideFrom(narrow);
  const std::vector<varnel::FormatArgument> arguments = Arguments(data[0], narrow, wide);

  const std::string narrowResult = varnel::FormatNarrow(narrow, arguments);
  const std::wstring wideResult = varnel::FormatWide(wide, arguments);

  if (narrow.find('%') == std::string::npos) {
    Require(narrowResult == narrow);
    Require(wideResult == wide);
  }
  return 0;
}
