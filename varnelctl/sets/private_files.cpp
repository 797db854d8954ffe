#include "varnelctl/sets/private_files.h"

#include <algorithm>
#include <vector>

namespace varnelctl {

void MakePrivateFolder(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> missing = {folder};
  for (;;) {
    const std::filesystem::path parent = missing.back().parent_path();
    const bool isRoot = parent == missing.back();  // of a drive that is not there
    if (parent.empty() || isRoot || std::filesystem::exists(parent)) break;
    missing.push_back(parent);
  }
  std::for_each(missing.rbegin(), missing.rend(), MakeOnePrivateFolder);
}

}  // namespace varnelctl
