#include "text/nearest_name.h"

#include <algorithm>
#include <numeric>

#include "text/unicode.h"

namespace varnel {
namespace {

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The fewest insertions, deletions and replacements that make one of the other.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const bool same = ToLower(a[i]) == ToLower(b[j]);
      const std::size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

std::string_view MethodOf(std::string_view name) {
  const std::size_t colons = name.find("::");
  return colons == name.npos ? name : name.substr(colons + 2);
}

bool IsNear(std::size_t distance, std::string_view wrong, std::string_view name) {
  return 3 * distance <= std::max(wrong.size(), name.size());
}

}  // namespace

std::string DidYouMean(std::string_view wrong, std::span<const std::string_view> names) {
  constexpr std::size_t kLongest = 200;  // nobody mistypes more
  if (wrong.size() > kLongest) return {};
  std::string_view nearest;
  std::size_t fewest = wrong.size() + 1;
  const auto consider = [&](std::string_view given, std::string_view part, std::string_view name) {
    if (part.size() > 2 * kLongest) return;
    const std::size_t distance = Distance(given, part);
    if (distance >= fewest || !IsNear(distance, given, part)) return;
    fewest = distance;
    nearest = name;
  };
  for (const std::string_view name : names) {
    consider(wrong, name, name);
    if (MethodOf(name) != name) consider(MethodOf(wrong), MethodOf(name), name);
  }
  return nearest.empty() ? std::string() : "; did you mean \"" + std::string(nearest) + "\"?";
}

std::string DidYouMean(std::string_view wrong, const std::vector<std::wstring>& names) {
  std::vector<std::string> texts;
  texts.reserve(names.size());
  for (const std::wstring& name : names) texts.push_back(WideToUtf8Lossy(name));
  return DidYouMean(wrong, std::vector<std::string_view>(texts.begin(), texts.end()));
}

}  // namespace varnel
