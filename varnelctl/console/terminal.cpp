#include "varnelctl/console/terminal.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace varnelctl {
namespace {

constexpr int kMostColumns = 10'000;

// 0 for what is no number.
int NumberOf(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

}  // namespace

Terminal DescribeTerminal(int columns, bool takesSequences, const std::function<const char*(const char*)>& variable) {
  const auto textOf = [&](const char* name) {
    const char* const value = variable(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
  };
  const int wanted = NumberOf(textOf("COLUMNS"));
  if (wanted > 0) columns = wanted;
  Terminal terminal;
  terminal.columns = columns <= 0 ? 0 : std::clamp(columns, kFewestColumns, kMostColumns);
  terminal.erases = takesSequences && textOf("TERM") != "dumb";
  terminal.colour = terminal.erases && textOf("NO_COLOR").empty();
  return terminal;
}

}  // namespace varnelctl
