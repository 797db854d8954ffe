#include "platform/owners.h"

#include <new>

namespace varnel {

Bstr::Bstr(std::wstring_view text)
    : text_(CurrentHost().vss().SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
  if (text_ == nullptr) throw std::bad_alloc();
}

void Bstr::Reset() noexcept {
  BSTR text = std::exchange(text_, nullptr);
  if (text == nullptr) return;
  if (Host* host = CurrentHostOrNull()) {
    host->vss().SysFreeString(text);
  } else {
    ::SysFreeString(text);
  }
}

}  // namespace varnel
