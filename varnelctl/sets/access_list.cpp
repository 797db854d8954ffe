#include "varnelctl/sets/access_list.h"

#include <sddl.h>

#include <system_error>

namespace varnelctl {

AccessList::AccessList(const wchar_t* text) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, nullptr)) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category());
  }
  descriptor_.reset(descriptor);
}

}  // namespace varnelctl
