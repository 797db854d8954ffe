// The message catalog for platforms without string-table resources.
#pragma once

#include <span>

namespace varnel {

struct CatalogEntry {
  int id;
  const wchar_t* text;
};

/// Every message, by ascending id.
inline std::span<const CatalogEntry> Catalog() {
  static constexpr CatalogEntry kEntries[] = {
#define VARNEL_MESSAGE(id, text) {id, text},
#include "resources/catalog.inc"
#undef VARNEL_MESSAGE
  };
  return kEntries;
}

}  // namespace varnel
