// The texts of the reference: as plainly as the rules read, and nothing of the library's.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/vss.h"
#include "text/unicode.h"

namespace varnel::test::reference {

std::wstring Wide(const std::string& text);
std::wstring EightHexDigits(HRESULT value);
wchar_t Lower(wchar_t c);
std::wstring Lower(std::wstring text);
bool SameInAnyCase(const std::wstring& a, const std::wstring& b);
std::wstring WithBackslash(const std::wstring& text);
std::wstring Joined(const std::vector<std::wstring>& list);
void InsertInOrder(std::vector<std::wstring>& list, const std::wstring& element);
std::wstring FullPath(const std::wstring& logicalPath, const std::wstring& name);

std::wstring StateName(VSS_WRITER_STATE state);
std::wstring StateMessage(VSS_WRITER_STATE state, const std::wstring& writer);
/// The names of the results that a scenario can hold; empty for those that have none.
std::wstring SymbolOf(HRESULT hr);

template <class Integer>
std::wstring Hex(Integer value) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
  return Wide(text);
}

template <class T>
bool Contains(const std::vector<T>& list, const T& element) {
  return std::find(list.begin(), list.end(), element) != list.end();
}

}  // namespace varnel::test::reference
