#include "core/component_tree.h"

#include <algorithm>
#include <numeric>
#include <string>

#include "text/ascii_case.h"

namespace varnel {

ComponentTree::ComponentTree(const std::vector<VssComponent>& components) : paths_(components.size()) {
  std::vector<std::wstring> keys;
  keys.reserve(components.size());
  for (const VssComponent& component : components) {
    std::wstring& key = keys.emplace_back(component.fullPath + L'\\');
    for (wchar_t& c : key) c = ascii::ToLower(c);
  }
  std::vector<std::size_t> sorted(components.size());
  std::iota(sorted.begin(), sorted.end(), std::size_t{0});
  std::sort(sorted.begin(), sorted.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });

  std::vector<std::size_t> keyOf;  // by path: one component that has it
  std::size_t path = kNone;        // the latest
  for (const std::size_t component : sorted) {
    const std::wstring& key = keys[component];
    if (path == kNone || keys[keyOf[path]] != key) {
      // Up from the latest path to the one that this one lies below.
      while (path != kNone && !key.starts_with(keys[keyOf[path]])) path = parents_[path];
      parents_.push_back(path);
      keyOf.push_back(component);
      path = parents_.size() - 1;
    }
    paths_[component] = path;
  }
}

}  // namespace varnel
