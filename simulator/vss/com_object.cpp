#include "simulator/vss/com_object.h"

namespace varnel::simulator {

HRESULT GiveText(Machine& machine, std::optional<std::wstring_view> text, BSTR* output) {
  *output = text ? machine.MakeBstr(*text) : nullptr;
  if (!text) return S_FALSE;
  return *output == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace varnel::simulator
