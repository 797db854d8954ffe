#include "c/input.h"

#include <stdexcept>

#include "text/unicode.h"

namespace varnel::c {

std::wstring WideOf(const char* text) {
  if (text == nullptr) return {};
  try {
    return Utf8ToWide(text);
  } catch (const std::range_error&) {
    throw Refusal{VARNEL_BAD_TEXT, varnel_code_text(VARNEL_BAD_TEXT)};
  }
}

std::vector<std::wstring> WideListOf(const char* const* texts, std::size_t count) {
  if (texts == nullptr || count == 0) throw Refusal{VARNEL_BAD_ARGUMENT, "the list is empty"};
  std::vector<std::wstring> wide;
  for (std::size_t i = 0; i < count; ++i) {
    Required(texts[i]);
    wide.push_back(WideOf(texts[i]));
  }
  return wide;
}

}  // namespace varnel::c
