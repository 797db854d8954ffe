// How the components of a writer lie below each other.
#pragma once

#include <cstddef>
#include <vector>

#include "core/writer_metadata.h"

namespace varnel {

/// The different full paths of a list of components and how they lie below each other, by the rule of IsAncestor. Made
/// by sorting: a path and all paths below it stand in a row.
class ComponentTree {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  explicit ComponentTree(const std::vector<VssComponent>& components);

  /// The number of different paths.
  std::size_t paths() const { return parents_.size(); }
  /// The path of a component, as a number less than paths().
  std::size_t PathOf(std::size_t component) const { return paths_[component]; }
  bool HasAncestor(std::size_t component) const { return parents_[paths_[component]] != kNone; }

  /// Calls `visit` with the paths of the component's ancestors, the nearest first, until it answers false.
  template <class Visit>
  void VisitAncestors(std::size_t component, Visit visit) const {
    std::size_t path = parents_[paths_[component]];
    while (path != kNone && visit(path)) path = parents_[path];
  }

 private:
  std::vector<std::size_t> paths_;    // by component
  std::vector<std::size_t> parents_;  // by path: the nearest ancestor's
};

}  // namespace varnel
