#include "simulator/machine/calls.h"

#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {

std::string Show(const wchar_t* text) {
  return text == nullptr ? "null" : Show(std::wstring_view(text));
}

std::string Show(std::wstring_view text) {
  return WideToUtf8Lossy(text);
}

std::string ArgumentText(const wchar_t* text) {
  return text == nullptr ? "null" : "\"" + Show(text) + "\"";
}

std::string ArgumentText(const GUID& id) {
  return Show(FormatGuid(id));
}

std::string Win32Outcome(bool failed, DWORD error) {
  return failed ? " = error " + ErrorName(error) : " = ok";
}

}  // namespace varnel::simulator
