// JSON documents as varnelctl prints them.
#pragma once

#include <nlohmann/json.hpp>

#include "varnelctl/console/console.h"

namespace varnelctl {

/// An array of what `make` makes of each entry.
template <class Entries, class Make>
Json ArrayOf(const Entries& entries, Make make) {
  Json array = Json::array();
  for (const auto& entry : entries) array.push_back(make(entry));
  return array;
}

}  // namespace varnelctl
