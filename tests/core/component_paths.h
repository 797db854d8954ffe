// Component paths that often lie below each other, and which of them do.
#pragma once

#include <array>
#include <cstdint>
#include <random>

#include "core/varnel.h"

namespace varnel::test {

// The rule, pair by pair.
inline bool PairwiseAncestor(std::wstring a, std::wstring b) {
  if (a.size() >= b.size()) return false;
  a += L'\\';
  b += L'\\';
  b.resize(a.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; };
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

// Component paths that often lie below each other; the same on every run.
class PathGenerator {
 public:
  explicit PathGenerator(std::uint32_t seed) : random_(seed) {}

  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::wstring Segment() {
    static const std::array<std::wstring, 9> kSegments = {L"a", L"A", L"b", L"ab", L"aB", L"", L"\u00C9", L" a", L"a."};
    return kSegments[Below(kSegments.size())];
  }
  std::wstring LogicalPath() {
    std::wstring path = Below(4) == 0 ? L"\\" : L"";
    for (std::size_t i = Below(4); i > 0; --i) path += Segment() + (i == 1 && Below(3) != 0 ? L"" : L"\\");
    return path;
  }

 private:
  std::mt19937 random_;
};

}  // namespace varnel::test
