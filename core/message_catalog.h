// The message catalog: the module's string table, reached by the module's name.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include "core/varnel.h"
#include "resources/catalog.h"
#include "text/format.h"

namespace varnel {

/// Formats the catalog's message through the buffer, which is made on first use. 0, or the Win32 error that left `text`
/// empty; nothing is thrown for a message that cannot be had.
DWORD FormatCatalogMessage(std::unique_ptr<wchar_t[]>& buffer, int id, std::wstring& text,
                           std::initializer_list<FormatArgument> arguments);

}  // namespace varnel

template <class... Arguments>
DWORD CVarnel::GetErrorMessageFromCatalog(int id, std::wstring& text, const Arguments&... arguments) {
  return varnel::FormatCatalogMessage(m_messageBuffer, id, text, {varnel::FormatArgument(arguments)...});
}
