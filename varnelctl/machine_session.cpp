#include "varnelctl/machine_session.h"

namespace varnelctl {

std::string WhyUnfit(bool elevated, bool matchesSystem, bool hasService) {
  if (!hasService) return "this machine has no Volume Shadow Copy service: vssapi.dll cannot be loaded";
  if (!matchesSystem) {
    return "the Volume Shadow Copy service of 64-bit Windows answers 64-bit programs only, and this one has 32";
  }
  if (!elevated) return "the Volume Shadow Copy service answers administrators only: start varnelctl elevated";
  return {};
}

}  // namespace varnelctl
