// The library's texts in UTF-8, for callers that keep pointers to them.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varnel::c {

/// Converts a text when it is first asked for. What it hands out is valid until Clear; so long no text changes whose
/// conversion was asked for.
class Texts {
 public:
  const char* Of(const std::wstring& text);
  const char* const* Of(const std::set<std::wstring>& list);
  /// Of a text that has no place of its own: the same key stands for the same text.
  const char* Of(const void* key, std::wstring_view text);
  void Clear() noexcept;

 private:
  std::unordered_map<const void*, std::string> texts_;
  std::unordered_map<const void*, std::vector<const char*>> lists_;
};

/// Pointers to texts that stay where they are.
std::vector<const char*> PointersTo(const std::vector<std::string>& texts);

}  // namespace varnel::c
