// What callers hand in, checked. All of it throws Refusal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "c/outcome.h"

namespace varnel::c {

/// Empty for null. Refuses what is not UTF-8.
std::wstring WideOf(const char* text);

/// Refuses an empty list, and null in place of it or of a text.
std::vector<std::wstring> WideListOf(const char* const* texts, std::size_t count);

/// Refuses null.
template <class T>
T& Required(T* pointer) {
  if (pointer == nullptr) throw Refusal{VARNEL_BAD_ARGUMENT, "a pointer is null"};
  return *pointer;
}

/// A structure that is read or filled: null, or of a size that no version of it had, it is refused. `first` is the size
/// that it had in the first version of the interface.
template <class Struct>
Struct& Known(Struct* structure, std::size_t first = sizeof(Struct)) {
  if (Required(structure).size < first) throw Refusal{VARNEL_BAD_VERSION, varnel_code_text(VARNEL_BAD_VERSION)};
  return *structure;
}

}  // namespace varnel::c
