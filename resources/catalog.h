// The message catalog: ids, and the texts for platforms without string-table resources.
#pragma once

#include <span>

namespace varnel {

/// The ids of the catalog's messages.
namespace message {
enum Id : int {
#define VARNEL_MESSAGE(name, id, text) name = id,
#include "resources/catalog.inc"
#undef VARNEL_MESSAGE
};
}  // namespace message

struct CatalogEntry {
  int id;
  const wchar_t* text;
};

/// Every message, by ascending id.
inline std::span<const CatalogEntry> Catalog() {
  static constexpr CatalogEntry kEntries[] = {
#define VARNEL_MESSAGE(name, id, text) {id, text},
#include "resources/catalog.inc"
#undef VARNEL_MESSAGE
  };
  return kEntries;
}

}  // namespace varnel
