#include <cstdlib>
#include <cwchar>

#include "platform/win32.h"

namespace {
// The prefix holds the length and keeps the text aligned for wchar_t.
constexpr std::size_t kPrefixBytes = 8;
}  // namespace

BSTR SysAllocStringLen(const wchar_t* text, UINT length) {
  const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(wchar_t);
  char* block = static_cast<char*>(std::calloc(1, kPrefixBytes + bytes + sizeof(wchar_t)));
  if (block == nullptr) return nullptr;
  const auto prefix = static_cast<std::uint64_t>(bytes);
  std::memcpy(block, &prefix, sizeof prefix);
  if (text != nullptr) std::memcpy(block + kPrefixBytes, text, bytes);
  return reinterpret_cast<BSTR>(block + kPrefixBytes);
}

BSTR SysAllocString(const wchar_t* text) {
  return text == nullptr ? nullptr : SysAllocStringLen(text, static_cast<UINT>(std::wcslen(text)));
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(reinterpret_cast<char*>(text) - kPrefixBytes);
}

UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<char*>(text) - kPrefixBytes, sizeof bytes);
  return static_cast<UINT>(bytes / sizeof(wchar_t));
}

void* CoTaskMemAlloc(std::size_t bytes) {
  return std::malloc(bytes);
}

void CoTaskMemFree(void* block) {
  std::free(block);
}
