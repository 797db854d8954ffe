// Who may use what varnelctl makes on Windows.
#pragma once

#include <memory>

#include "platform/win32.h"

namespace varnelctl {

/// An access list as the system's language for them writes it. The attributes borrow it.
class AccessList {
 public:
  /// Throws std::system_error.
  explicit AccessList(const wchar_t* text);

  SECURITY_ATTRIBUTES Attributes() const { return {sizeof(SECURITY_ATTRIBUTES), descriptor_.get(), FALSE}; }

 private:
  struct LocalMemory {
    void operator()(void* block) const { ::LocalFree(block); }
  };

  std::unique_ptr<void, LocalMemory> descriptor_;
};

}  // namespace varnelctl
