#include "core/writer_metadata.h"

#include <string_view>

#include "text/ascii_case.h"

namespace varnel {
namespace {

template <class Component, class Writers>
std::vector<Component*> Selected(Writers& writers) {
  std::vector<Component*> selected;
  for (auto& writer : writers) {
    if (writer.excluded) continue;
    for (Component& component : writer.components) {
      if (!component.excluded) selected.push_back(&component);
    }
  }
  return selected;
}

}  // namespace

bool IsAncestor(const VssComponent& a, const VssComponent& b) {
  const std::size_t length = a.fullPath.size();
  return length < b.fullPath.size() && b.fullPath[length] == L'\\' &&
         ascii::EqualIgnoringCase(a.fullPath, std::wstring_view(b.fullPath).substr(0, length));
}

std::vector<VssComponent*> SelectedComponents(std::vector<VssWriter>& writers) {
  return Selected<VssComponent>(writers);
}

std::vector<const VssComponent*> SelectedComponents(const std::vector<VssWriter>& writers) {
  return Selected<const VssComponent>(writers);
}

}  // namespace varnel
