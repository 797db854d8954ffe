// Text and identifiers from anywhere, converted there and back: UTF-8, wide text, GUIDs.
// Input: serves as UTF-8, as the bytes of wide characters, as the text of a GUID and as the bytes of one.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "platform/win32.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace {

using namespace varnel;
using fuzz::Require;

std::optional<std::string> Encoded(std::wstring_view text) {
  try {
    return WideToUtf8(text);
  } catch (const std::range_error&) {
    return std::nullopt;
  }
}

void CheckUtf8(std::string_view text) {
  const std::wstring lossy = Utf8ToWideLossy(text);
  const std::optional<std::string> back = Encoded(lossy);
  Require(back.has_value(), "what was read from UTF-8 is valid wide text");
  if (const std::optional<std::wstring> strict = fuzz::Decoded(text)) {
    Require(*strict == lossy, "valid UTF-8 loses nothing");
    Require(*back == text, "valid UTF-8 comes back as it was");
  } else {
    Require(lossy.find(L'\uFFFD') != lossy.npos, "what is refused is replaced");
    Require(*back != text, "refused text does not come back");
  }
}

void CheckWide(std::wstring_view text) {
  const std::string lossy = WideToUtf8Lossy(text);
  const std::optional<std::wstring> back = fuzz::Decoded(lossy);
  Require(back.has_value(), "what was made of wide text is valid UTF-8");
  Require(WideToUtf8(*back) == lossy, "it comes back as it was");
  if (const std::optional<std::string> strict = Encoded(text)) {
    Require(*strict == lossy, "valid wide text loses nothing");
    // Where a wide character is a code point, a surrogate pair comes back as the one that it stands for.
    Require(back->size() <= text.size(), "valid wide text does not grow");
  } else {
    Require(lossy.find("\xEF\xBF\xBD") != lossy.npos, "what is refused is replaced");
  }
}

// The rule in other words than the parser's.
bool LooksLikeAGuid(std::string_view text) {
  const std::string_view pattern = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
  const std::string_view digits = "0123456789abcdefABCDEF";
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                    [&](char c, char p) { return p == 'x' ? digits.find(c) != digits.npos : c == p; });
}

void CheckGuidText(std::string_view text) {
  const std::optional<GUID> guid = TryParseGuid<GUID>(text);
  Require(guid.has_value() == LooksLikeAGuid(text), "a GUID is digits in groups of 8-4-4-4-12 in braces");
  const std::wstring wide = fuzz::WideFrom(text);
  Require(TryParseGuid<GUID>(std::wstring_view(wide)) == guid, "wide text is the same GUID");
  Require(GuidOrNull<GUID>(wide) == guid.value_or(GUID{}), "text that is no GUID is the null GUID");
  if (!guid) return;
  Require(TryParseBareGuid<GUID>(text.substr(1, text.size() - 2)) == guid, "the braces do not count");
  Require(FormatGuid(*guid) == ascii::ToLower(wide), "a GUID is written in lower case");
}

void CheckGuidBytes(std::string_view bytes) {
  GUID guid{};
  std::memcpy(&guid, bytes.data(), std::min(bytes.size(), sizeof guid));
  const std::wstring text = FormatGuid(guid);
  const std::wstring bare = FormatBareGuid(guid);
  Require(TryParseGuid<GUID>(std::wstring_view(text)) == guid, "a written GUID is read back");
  Require(TryParseBareGuid<GUID>(std::wstring_view(bare)) == guid, "so is a bare one");
  Require(text == L"{" + bare + L"}", "both forms differ by the braces");
  Require(FormatGuid(guid) == text, "the requestor writes GUIDs in braces");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::Input(data, size).Rest();
  CheckUtf8(text);
  CheckWide(fuzz::WideFrom(text));
  std::wstring units(text.size() / sizeof(wchar_t), L'\0');
  if (!units.empty()) std::memcpy(units.data(), text.data(), units.size() * sizeof(wchar_t));
  CheckWide(units);
  CheckGuidText(text);
  if (!text.empty()) CheckGuidBytes(text);
  return 0;
}
