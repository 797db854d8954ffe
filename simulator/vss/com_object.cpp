#include "simulator/vss/com_object.h"

namespace varnel::simulator {

std::string ArgumentList(std::initializer_list<std::string> arguments) {
  std::string list;
  for (const std::string& argument : arguments) {
    if (!list.empty()) list += ", ";
    list += argument;
  }
  return list;
}

HRESULT GiveText(Machine& machine, std::wstring_view text, BSTR* output) {
  *output = machine.MakeBstr(text);
  return *output == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT GiveOptionalText(Machine& machine, const std::optional<std::wstring>& text, BSTR* output) {
  if (text) return GiveText(machine, *text, output);
  *output = nullptr;
  return S_FALSE;
}

}  // namespace varnel::simulator
