// Text as the requestor handles it: identifiers, BSTRs and narrow forms. Case folding is platform/ascii_case.h.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32.h"

namespace varnel {

/// Lower-case hexadecimal in braces, the form in which the requestor keeps and compares identifiers.
std::wstring Guid2WString(const GUID& guid);
/// The null GUID for text that is no GUID in braces: the service then answers for it.
GUID WString2Guid(std::wstring_view text);

/// The whole BSTR by its length; empty for null.
std::wstring_view ViewOf(BSTR text);
std::wstring BSTR2WString(BSTR text);

/// The current locale's multibyte form; a text that the locale cannot express is given whole in UTF-8.
std::string WString2String(const std::wstring& text);

}  // namespace varnel
