// UTF-8 and wide text. wchar_t is UTF-16 on Windows and one code point elsewhere; both directions know surrogate pairs.
#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"

namespace varnel {

/// Conversions that refuse: std::range_error on text that is not valid.
VARNEL_API std::wstring Utf8ToWide(std::string_view text);
VARNEL_API std::string WideToUtf8(std::wstring_view text);

/// Conversions that never fail on a character: what cannot be converted becomes U+FFFD.
VARNEL_API std::wstring Utf8ToWideLossy(std::string_view text);
VARNEL_API std::string WideToUtf8Lossy(std::wstring_view text);
void AppendUtf8Lossy(std::string& result, std::wstring_view text);

/// The calling thread's ANSI code page: CP_THREAD_ACP on Windows, UTF-8 elsewhere. Never fails on a character.
VARNEL_API std::string WideToAnsi(std::wstring_view text);
VARNEL_API std::wstring AnsiToWide(std::string_view text);

}  // namespace varnel
