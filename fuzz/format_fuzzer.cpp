// The formatter, fed formats from anywhere: it never throws, never overruns and copies what is no conversion; with
// ASCII alone both widths say the same. Input: one byte that says which kind each argument is, then the format, which
// also serves as every text argument.
#include "text/format.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

using varnel::fuzz::Require;
using varnel::fuzz::WideFrom;

constexpr std::size_t kArguments = 8;

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

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  varnel::fuzz::Input input(data, size);
  const unsigned kinds = input.Byte();
  const std::string narrow(input.Rest());
  const std::wstring wide = WideFrom(narrow);
  const std::vector<varnel::FormatArgument> arguments = Arguments(kinds, narrow, wide);

  const std::string narrowResult = varnel::FormatNarrow(narrow, arguments);
  const std::wstring wideResult = varnel::FormatWide(wide, arguments);

  if (narrow.find('%') == std::string::npos) {
    Require(narrowResult == narrow, "a narrow format without a conversion is copied");
    Require(wideResult == wide, "a wide format without a conversion is copied");
  }
  // A number written as a character is no ASCII.
  if (IsAscii(narrow) && narrow.find('c') == std::string::npos) {
    Require(WideFrom(narrowResult) == wideResult, "both widths say the same");
  }
  return 0;
}
