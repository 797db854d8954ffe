// The parts of platform/ that are the same everywhere: formatter, text conversions, identifiers, constants, owners of
// resources, and the current host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/ansi.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "platform/vss.h"
#include "tests/support/host_fixture.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel {
namespace {

using testing::IsEmpty;

// A character outside the basic plane, one wchar_t or a surrogate pair.
const std::wstring kRocket = L"\U0001F680";
const std::string kRocketUtf8 = "\xF0\x9F\x9A\x80";
const std::wstring kReplaced = L"\uFFFD";
const std::string kReplacedUtf8 = "\xEF\xBF\xBD";

// ---- formatter ----

std::wstring FormatVariadic(const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::wstring text = FormatWideV(format, arguments);
  va_end(arguments);
  return text;
}

TEST(Format, WritesNumbersAs32Bits) {
  EXPECT_EQ(FormatNarrow("%d %i %ld", {-1, 7, 0x80042301}), "-1 7 -2147212543");
  EXPECT_EQ(FormatNarrow("%u %lu", {-1, 5}), "4294967295 5");
  EXPECT_EQ(FormatNarrow("%x %X %lx", {0xABCD, 0xABCD, static_cast<HRESULT>(0x8004230F)}), "abcd ABCD 8004230f");
  EXPECT_EQ(FormatNarrow("%d", {0x1'0000'0001}), "1");
  EXPECT_EQ(FormatNarrow("%d", {std::int32_t{-2147483647 - 1}}), "-2147483648");
}

TEST(Format, FillsAFieldToItsWidth) {
  EXPECT_EQ(FormatNarrow("%08lx|%8x|%-8x|", {0x2A, 0x2A, 0x2A}), "0000002a|      2a|2a      |");
  EXPECT_EQ(FormatNarrow("%05d|%5d|%-5d|", {-42, -42, -42}), "-0042|  -42|-42  |");
  EXPECT_EQ(FormatNarrow("%.4d|%6.4d|", {42, 42}), "0042|  0042|");
  EXPECT_EQ(FormatNarrow("%5s|%-5s|%2s|", {"abc", "abc", "abc"}), "  abc|abc  |abc|");
  EXPECT_EQ(FormatWide(L"%5s|%-5s|", {L"abc", L"abc"}), L"  abc|abc  |");
}

TEST(Format, WritesHexadecimalWithItsPrefix) {
  EXPECT_EQ(FormatNarrow("0x%x %#x %#X %#x", {255, 255, 255, 0}), "0xff 0xff 0XFF 0");
}

TEST(Format, CutsTextAtItsPrecision) {
  EXPECT_EQ(FormatNarrow("%.2s|%.9s|%.0s|", {"abc", "abc", "abc"}), "ab|abc||");
  EXPECT_EQ(FormatWide(L"%.2s|", {L"abc"}), L"ab|");
}

TEST(Format, WritesSingleCharacters) {
  EXPECT_EQ(FormatNarrow("%c%c", {'o', 'k'}), "ok");
  EXPECT_EQ(FormatWide(L"%c", {L'E'}), L"E");
}

TEST(Format, TakesEitherWidthOfTextInEitherFormat) {
  EXPECT_EQ(FormatWide(L"%s %S %ws %hs %ls", {L"a", "b", L"c", "d", L"e"}), L"a b c d e");
  EXPECT_EQ(FormatNarrow("%s %S %ws %hs %ls", {"a", L"b", L"c", "d", L"e"}), "a b c d e");
  EXPECT_EQ(FormatNarrow("%s", {L"wide where narrow was named"}), "wide where narrow was named");
}

TEST(Format, TakesEveryKindOfText) {
  const std::string narrow = "n";
  const std::wstring wide = L"w";
  EXPECT_EQ(FormatNarrow("%s%s%s%s%s%s",
                         {narrow, wide, narrow.c_str(), wide.c_str(), std::string_view("v"), std::wstring_view(L"V")}),
            "nwnwvV");
}

TEST(Format, GivesNullTextAsTheEmptyText) {
  const char* narrow = nullptr;
  const wchar_t* wide = nullptr;
  EXPECT_EQ(FormatNarrow("<%s|%S>", {narrow, wide}), "<|>");
  EXPECT_EQ(FormatWide(L"<%s|%S>", {wide, narrow}), L"<|>");
  EXPECT_EQ(FormatVariadic(L"<%s|%S>", wide, narrow), L"<|>");
}

TEST(Format, WritesAPercentSign) {
  EXPECT_EQ(FormatNarrow("100%% of %d%%", {5}), "100% of 5%");
}

TEST(Format, CopiesWhatIsNoConversion) {
  EXPECT_EQ(FormatNarrow("50% done, %q, %", {1}), "50% done, %q, %");
  EXPECT_EQ(FormatWide(L"%-08y|%", {1}), L"%-08y|%");
}

TEST(Format, LeavesNothingForAMissingArgumentAndIgnoresOneTooMany) {
  EXPECT_EQ(FormatNarrow("<%s|%d>", {"only"}), "<only|>");
  EXPECT_EQ(FormatNarrow("<%s>", {"a", "b"}), "<a>");
  EXPECT_EQ(FormatNarrow("none", {}), "none");
}

TEST(Format, BoundsTheWidthOfAField) {
  EXPECT_EQ(FormatNarrow("%99999999999999999999s", {"x"}).size(), 65536u);
}

TEST(Format, KeepsCharactersOutsideTheBasicPlane) {
  EXPECT_EQ(FormatWide(L"%S|%s", {kRocketUtf8, kRocket}), kRocket + L"|" + kRocket);
  EXPECT_EQ(FormatNarrow("%S|%s", {kRocket, kRocketUtf8}), kRocketUtf8 + "|" + kRocketUtf8);
}

TEST(Format, ReplacesWhatCannotBeConverted) {
  EXPECT_EQ(FormatWide(L"%S", {"a\xFFz"}), L"a" + kReplaced + L"z");
  EXPECT_EQ(FormatWide(L"%S", {"cut\xE2\x82"}), L"cut" + kReplaced + kReplaced);
  const std::wstring loneSurrogate = {L'a', static_cast<wchar_t>(0xD800), L'z'};
  EXPECT_EQ(FormatNarrow("%S", {loneSurrogate}), "a" + kReplacedUtf8 + "z");
}

TEST(Format, KeepsNulCharactersInsideText) {
  EXPECT_EQ(FormatWide(L"%s", {std::wstring_view(L"a\0b", 3)}), std::wstring(L"a\0b", 3));
}

TEST(Format, ReadsVariadicArgumentsByTheirConversions) {
  EXPECT_EQ(FormatVariadic(L"%s=%S %d %08lx %c%%", L"wide", "narrow", -3, 0x80042301u, L'!'),
            L"wide=narrow -3 80042301 !%");
  EXPECT_EQ(FormatVariadic(L"%ws %hs %ls", L"a", "b", L"c"), L"a b c");
  EXPECT_EQ(FormatVariadic(L"no arguments"), L"no arguments");
}

// ---- text conversions ----

TEST(Unicode, ConvertsBothWays) {
  const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC" + kRocketUtf8;
  const std::wstring wide = L"a\u00E9\u20AC" + kRocket;
  EXPECT_EQ(Utf8ToWide(utf8), wide);
  EXPECT_EQ(WideToUtf8(wide), utf8);
  EXPECT_EQ(Utf8ToWideLossy(utf8), wide);
  EXPECT_EQ(WideToUtf8Lossy(wide), utf8);
  EXPECT_EQ(Utf8ToWide(""), L"");
}

TEST(Unicode, KnowsTheLimitsOfEverySequenceLength) {
  for (const char32_t c : {0x0u, 0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xE000u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    std::wstring wide;
    if (sizeof(wchar_t) == 2 && c >= 0x10000) {
      wide = {static_cast<wchar_t>(0xD7C0 + (c >> 10)), static_cast<wchar_t>(0xDC00 + (c & 0x3FF))};
    } else {
      wide = {static_cast<wchar_t>(c)};
    }
    EXPECT_EQ(Utf8ToWide(WideToUtf8(wide)), wide) << std::hex << static_cast<unsigned>(c);
  }
}

TEST(Unicode, RefusesOrReplacesInvalidUtf8) {
  for (const char* text :
       {"\x80", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8", "\xC3", "\xE2\x82"}) {
    EXPECT_THROW(Utf8ToWide(text), std::range_error) << testing::PrintToString(std::string(text));
    const std::wstring replaced = Utf8ToWideLossy(text);
    EXPECT_EQ(replaced, std::wstring(replaced.size(), L'\uFFFD'));
    EXPECT_FALSE(replaced.empty());
  }
}

TEST(Unicode, GoesOnBehindInvalidUtf8) {
  EXPECT_EQ(Utf8ToWideLossy("a\xC3(b"), L"a\uFFFD(b");
}

TEST(Unicode, RefusesOrReplacesLoneSurrogates) {
  const std::wstring high = {L'a', static_cast<wchar_t>(0xD83D), L'b'};
  const std::wstring low = {static_cast<wchar_t>(0xDE80)};
  EXPECT_THROW(WideToUtf8(high), std::range_error);
  EXPECT_THROW(WideToUtf8(low), std::range_error);
  EXPECT_EQ(WideToUtf8Lossy(high), "a" + kReplacedUtf8 + "b");
  EXPECT_EQ(WideToUtf8Lossy(low), kReplacedUtf8);
}

TEST(Unicode, JoinsASurrogatePairOnEveryPlatform) {
  const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE80)};
  EXPECT_EQ(WideToUtf8(pair), kRocketUtf8);
}

TEST(Ansi, KeepsLatinTextBothWays) {
  EXPECT_EQ(AnsiToWide("\\\\?\\Volume{0-1}\\"), L"\\\\?\\Volume{0-1}\\");
  EXPECT_EQ(WideToAnsi(L"TSL0001"), "TSL0001");
  EXPECT_EQ(AnsiToWide(""), L"");
  EXPECT_EQ(WideToAnsi(L""), "");
}

TEST(Ansi, KeepsNulCharactersInsideText) {
  EXPECT_EQ(AnsiToWide(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
  EXPECT_EQ(WideToAnsi(std::wstring_view(L"a\0b", 3)), std::string("a\0b", 3));
}

TEST(Ansi, NeverFailsOnACharacter) {
  EXPECT_EQ(AnsiToWide("a\xFFz").front(), L'a');
  EXPECT_EQ(AnsiToWide("a\xFFz").back(), L'z');
  EXPECT_EQ(WideToAnsi(L"a" + kRocket + L"z").front(), 'a');
  EXPECT_EQ(WideToAnsi(L"a" + kRocket + L"z").back(), 'z');
}

TEST(AsciiCase, FoldsTheLettersAToZOnly) {
  EXPECT_EQ(ascii::ToLower(L"\\\\?\\Volume{AZ[`\u00C4}"), L"\\\\?\\volume{az[`\u00C4}");
  EXPECT_TRUE(ascii::EqualIgnoringCase(L"TSL0001", L"tsl0001"));
  EXPECT_FALSE(ascii::EqualIgnoringCase(L"TSL0001", L"TSL00010"));
  EXPECT_FALSE(ascii::EqualIgnoringCase(L"\u00C4", L"\u00E4"));
  EXPECT_TRUE(ascii::EqualIgnoringCase(L"", L""));
}

// ---- identifiers ----

TEST(GuidText, IsLowerCaseHexadecimalInBraces) {
  constexpr GUID kId = ParseGuid<GUID>("{374579AD-285C-49B9-AB8A-950E0E252DE2}");
  EXPECT_EQ(kId.Data1, 0x374579ADu);
  EXPECT_EQ(kId.Data2, 0x285C);
  EXPECT_EQ(kId.Data3, 0x49B9);
  EXPECT_EQ(kId.Data4[0], 0xAB);
  EXPECT_EQ(kId.Data4[7], 0xE2);
  EXPECT_EQ(FormatGuid(kId), L"{374579ad-285c-49b9-ab8a-950e0e252de2}");
  EXPECT_EQ(FormatBareGuid(kId), L"374579ad-285c-49b9-ab8a-950e0e252de2");
  EXPECT_EQ(FormatGuid(GUID{}), L"{00000000-0000-0000-0000-000000000000}");
}

TEST(GuidText, IsReadInEitherWidthAndCase) {
  constexpr GUID kId = ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}");
  EXPECT_EQ(TryParseGuid<GUID>(std::wstring_view(L"{374579AD-285c-49b9-AB8A-950e0e252de2}")), kId);
  EXPECT_EQ(TryParseGuid<GUID>(std::string_view("{374579AD-285c-49b9-AB8A-950e0e252de2}")), kId);
  EXPECT_EQ(TryParseBareGuid<GUID>(std::wstring_view(L"374579ad-285c-49b9-ab8a-950e0e252de2")), kId);
}

TEST(GuidText, IsNothingWhenMalformed) {
  for (const std::wstring_view text :
       {L"", L"{}", L"374579ad-285c-49b9-ab8a-950e0e252de2", L"{374579ad-285c-49b9-ab8a-950e0e252de2",
        L"{374579ad-285c-49b9-ab8a-950e0e252de}", L"{374579ag-285c-49b9-ab8a-950e0e252de2}",
        L"{374579ad0285c-49b9-ab8a-950e0e252de2}", L"{374579ad-285c-49b9-ab8a-950e0e252de2} ",
        L"(374579ad-285c-49b9-ab8a-950e0e252de2)"}) {
    EXPECT_FALSE(TryParseGuid<GUID>(text)) << FormatNarrow("%S", {text});
  }
  EXPECT_FALSE(TryParseBareGuid<GUID>(std::wstring_view(L"{374579ad-285c-49b9-ab8a-950e0e252de2}")));
}

// ---- values of the platform ----

struct Code {
  const char* name;
  HRESULT value;
  std::uint32_t published;
};

TEST(PlatformValues, TheServicesResultsAreThePublishedOnes) {
  const Code codes[] = {
      {"VSS_E_BAD_STATE", VSS_E_BAD_STATE, 0x80042301},
      {"VSS_E_UNEXPECTED", VSS_E_UNEXPECTED, 0x80042302},
      {"VSS_E_PROVIDER_ALREADY_REGISTERED", VSS_E_PROVIDER_ALREADY_REGISTERED, 0x80042303},
      {"VSS_E_PROVIDER_NOT_REGISTERED", VSS_E_PROVIDER_NOT_REGISTERED, 0x80042304},
      {"VSS_E_PROVIDER_VETO", VSS_E_PROVIDER_VETO, 0x80042306},
      {"VSS_E_PROVIDER_IN_USE", VSS_E_PROVIDER_IN_USE, 0x80042307},
      {"VSS_E_OBJECT_NOT_FOUND", VSS_E_OBJECT_NOT_FOUND, 0x80042308},
      {"VSS_S_ASYNC_PENDING", VSS_S_ASYNC_PENDING, 0x00042309},
      {"VSS_S_ASYNC_FINISHED", VSS_S_ASYNC_FINISHED, 0x0004230A},
      {"VSS_S_ASYNC_CANCELLED", VSS_S_ASYNC_CANCELLED, 0x0004230B},
      {"VSS_E_VOLUME_NOT_SUPPORTED", VSS_E_VOLUME_NOT_SUPPORTED, 0x8004230C},
      {"VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER", VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, 0x8004230E},
      {"VSS_E_OBJECT_ALREADY_EXISTS", VSS_E_OBJECT_ALREADY_EXISTS, 0x8004230D},
      {"VSS_E_UNEXPECTED_PROVIDER_ERROR", VSS_E_UNEXPECTED_PROVIDER_ERROR, 0x8004230F},
      {"VSS_E_CORRUPT_XML_DOCUMENT", VSS_E_CORRUPT_XML_DOCUMENT, 0x80042310},
      {"VSS_E_INVALID_XML_DOCUMENT", VSS_E_INVALID_XML_DOCUMENT, 0x80042311},
      {"VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED", VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, 0x80042312},
      {"VSS_E_FLUSH_WRITES_TIMEOUT", VSS_E_FLUSH_WRITES_TIMEOUT, 0x80042313},
      {"VSS_E_HOLD_WRITES_TIMEOUT", VSS_E_HOLD_WRITES_TIMEOUT, 0x80042314},
      {"VSS_E_UNEXPECTED_WRITER_ERROR", VSS_E_UNEXPECTED_WRITER_ERROR, 0x80042315},
      {"VSS_E_SNAPSHOT_SET_IN_PROGRESS", VSS_E_SNAPSHOT_SET_IN_PROGRESS, 0x80042316},
      {"VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED", VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED, 0x80042317},
      {"VSS_E_WRITER_INFRASTRUCTURE", VSS_E_WRITER_INFRASTRUCTURE, 0x80042318},
      {"VSS_E_WRITER_NOT_RESPONDING", VSS_E_WRITER_NOT_RESPONDING, 0x80042319},
      {"VSS_E_WRITER_ALREADY_SUBSCRIBED", VSS_E_WRITER_ALREADY_SUBSCRIBED, 0x8004231A},
      {"VSS_E_UNSUPPORTED_CONTEXT", VSS_E_UNSUPPORTED_CONTEXT, 0x8004231B},
      {"VSS_E_INSUFFICIENT_STORAGE", VSS_E_INSUFFICIENT_STORAGE, 0x8004231F},
      {"VSS_E_NO_SNAPSHOTS_IMPORTED", VSS_E_NO_SNAPSHOTS_IMPORTED, 0x80042320},
      {"VSS_E_REBOOT_REQUIRED", VSS_E_REBOOT_REQUIRED, 0x80042327},
      {"VSS_E_TRANSACTION_FREEZE_TIMEOUT", VSS_E_TRANSACTION_FREEZE_TIMEOUT, 0x80042328},
      {"VSS_E_TRANSACTION_THAW_TIMEOUT", VSS_E_TRANSACTION_THAW_TIMEOUT, 0x80042329},
      {"VSS_E_WRITERERROR_PARTIAL_FAILURE", VSS_E_WRITERERROR_PARTIAL_FAILURE, 0x80042336},
      {"VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT", VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT, 0x800423F0},
      {"VSS_E_WRITERERROR_OUTOFRESOURCES", VSS_E_WRITERERROR_OUTOFRESOURCES, 0x800423F1},
      {"VSS_E_WRITERERROR_TIMEOUT", VSS_E_WRITERERROR_TIMEOUT, 0x800423F2},
      {"VSS_E_WRITERERROR_RETRYABLE", VSS_E_WRITERERROR_RETRYABLE, 0x800423F3},
      {"VSS_E_WRITERERROR_NONRETRYABLE", VSS_E_WRITERERROR_NONRETRYABLE, 0x800423F4},
      {"VSS_E_WRITER_STATUS_NOT_AVAILABLE", VSS_E_WRITER_STATUS_NOT_AVAILABLE, 0x80042409},
  };
  for (const Code& code : codes) EXPECT_EQ(static_cast<std::uint32_t>(code.value), code.published) << code.name;
}

TEST(PlatformValues, TheDeviceQueriesAreThePublishedOnes) {
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_STORAGE_QUERY_PROPERTY), 0x2D1400u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_STORAGE_GET_DEVICE_NUMBER), 0x2D1080u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS), 0x560000u);
  EXPECT_EQ(static_cast<std::uint32_t>(IOCTL_DISK_IS_CLUSTERED), 0x700F8u);
  EXPECT_EQ(sizeof(STORAGE_PROPERTY_QUERY), 12u);
  EXPECT_EQ(sizeof(STORAGE_DEVICE_DESCRIPTOR), 40u);
  EXPECT_EQ(offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), 24u);
  EXPECT_EQ(sizeof(VOLUME_DISK_EXTENTS), 32u);
  EXPECT_EQ(offsetof(VOLUME_DISK_EXTENTS, Extents), 8u);
}

TEST(PlatformValues, AWin32CodeBecomesAnHresultOfItsOwnFacility) {
  EXPECT_EQ(HResultFromWin32(ERROR_SUCCESS), S_OK);
  EXPECT_EQ(HResultFromWin32(ERROR_ACCESS_DENIED), E_ACCESSDENIED);
  EXPECT_EQ(HResultFromWin32(0x80004005), E_FAIL);
  EXPECT_EQ(HResultFromWin32(0x1234007B), static_cast<HRESULT>(0x8007007B));
}

// ---- owners ----

// A COM object that is never destroyed and counts its references.
class Counted : public IUnknown {
 public:
  virtual ~Counted() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
    *object = nullptr;
    if (interfaceId != kIidUnknown) return E_NOINTERFACE;
    AddRef();
    *object = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

HRESULT Make(Counted& object, Counted** result) {
  object.AddRef();
  *result = &object;
  return S_OK;
}

TEST(ComPtr, ReleasesWhatItHolds) {
  Counted object;
  {
    ComPtr<Counted> owner;
    ASSERT_EQ(Make(object, owner.Put()), S_OK);
    EXPECT_TRUE(owner);
    EXPECT_EQ(object.references, 2u);
  }
  EXPECT_EQ(object.references, 1u);
}

TEST(ComPtr, ReleasesTheHeldReferenceBeforeItTakesAnother) {
  Counted first;
  Counted second;
  ComPtr<Counted> owner;
  Make(first, owner.Put());
  Make(second, owner.Put());
  EXPECT_EQ(first.references, 1u);
  EXPECT_EQ(second.references, 2u);
  owner.Reset();
  EXPECT_FALSE(owner);
  EXPECT_EQ(second.references, 1u);
}

TEST(ComPtr, CopiesAddAReferenceAndMovesDoNot) {
  Counted object;
  ComPtr<Counted> owner;
  Make(object, owner.Put());
  ComPtr<Counted> copy = owner;
  EXPECT_EQ(object.references, 3u);
  const ComPtr<Counted> moved = std::move(copy);
  EXPECT_EQ(object.references, 3u);
  owner = owner.Get() == nullptr ? ComPtr<Counted>() : moved;
  EXPECT_EQ(object.references, 3u);
  owner = nullptr;
  EXPECT_EQ(object.references, 2u);
}

TEST(ComPtr, TakesOverAndGivesAwayAReference) {
  Counted object;
  object.AddRef();
  ComPtr<Counted> owner = ComPtr<Counted>::Attach(&object);
  EXPECT_EQ(object.references, 2u);
  EXPECT_EQ(owner.Detach(), &object);
  EXPECT_FALSE(owner);
  EXPECT_EQ(object.references, 2u);
}

TEST(ComPtr, AsksForAnotherInterface) {
  Counted object;
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(QueryFor(&object, kIidUnknown, unknown), S_OK);
  EXPECT_EQ(object.references, 2u);
  ComPtr<IVssAsync> async;
  EXPECT_EQ(QueryFor(&object, kIidVssAsync, async), E_NOINTERFACE);
  EXPECT_FALSE(async);
}

// Its IUnknown is its second base, through which it is released.
class CountedComponents : public IVssWriterComponentsExt {
 public:
  virtual ~CountedComponents() = default;
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* /*count*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* /*instance*/, VSS_ID* /*writer*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT /*index*/, IVssComponent** /*component*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*id*/, void** /*object*/) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

TEST(ComPtr, ReleasesWriterComponentsThroughTheirSecondBase) {
  CountedComponents object;
  {
    const auto owner = ComPtr<IVssWriterComponentsExt>::Attach(&object);
    ComPtr<IVssWriterComponentsExt> copy = owner;
    EXPECT_EQ(object.references, 2u);
    copy.Reset();
    EXPECT_EQ(object.references, 1u);
  }
  EXPECT_EQ(object.references, 0u);
}

class Owners : public test::HostFixture {};

TEST_F(Owners, ABstrIsGivenBackToTheHostThatMadeIt) {
  {
    const Bstr text(L"sales");
    EXPECT_EQ(text.View(), L"sales");
    EXPECT_EQ(host().live().Count("BSTR"), 1);
  }
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(Owners, ABstrIsReadByItsLengthAndANullOneIsEmpty) {
  const Bstr text(std::wstring_view(L"a\0b", 3));
  EXPECT_EQ(text.View().size(), 3u);
  const Bstr none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.View(), L"");
}

TEST_F(Owners, ABstrIsMovedAndReplacedWithoutALeak) {
  Bstr text(L"one");
  Bstr other = std::move(text);
  EXPECT_FALSE(text);  // NOLINT(bugprone-use-after-move): a moved owner is empty
  other = Bstr(L"two");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
  *other.Put() = host().vss().SysAllocStringLen(L"three", 5);
  EXPECT_EQ(other.View(), L"three");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

FileHandle OpenDisk(const wchar_t* name) {
  return FileHandle(CurrentHost().storage().CreateFileW(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST_F(Owners, AFileHandleIsClosedOnce) {
  {
    FileHandle handle = OpenDisk(L"\\\\.\\PhysicalDrive1");
    EXPECT_TRUE(handle);
    const FileHandle moved = std::move(handle);
    EXPECT_FALSE(handle);  // NOLINT(bugprone-use-after-move): a moved owner is empty
    EXPECT_TRUE(moved);
    EXPECT_EQ(host().live().Count(), 1);
  }
  EXPECT_EQ(host().live().Count(), 0);
}

TEST_F(Owners, AFileHandleThatDidNotOpenIsNotClosed) {
  { EXPECT_FALSE(OpenDisk(L"\\\\.\\PhysicalDrive77")); }
  EXPECT_THAT(host().calls().Of("CloseHandle"), IsEmpty());
}

HKEY OpenKey(HKEY* target) {
  EXPECT_EQ(CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, target), ERROR_SUCCESS);
  return *target;
}

TEST_F(Owners, ARegistryKeyIsClosedOnce) {
  {
    RegistryKey key;
    EXPECT_EQ(key.Get(), nullptr);
    const HKEY opened = OpenKey(key.Put());
    EXPECT_EQ(key.Get(), opened);
    EXPECT_EQ(host().live().Count("registry key"), 1);
    key.Reset();
    EXPECT_EQ(key.Get(), nullptr);
  }
  EXPECT_EQ(host().calls().Of("RegCloseKey").size(), 1u);
}

TEST_F(Owners, ARegistryKeyIsClosedBeforeAnotherTakesItsPlace) {
  {
    RegistryKey key;
    OpenKey(key.Put());
    OpenKey(key.Put());
    EXPECT_EQ(host().live().Count("registry key"), 1);
  }
  EXPECT_EQ(host().live().Count("registry key"), 0);
}

TEST_F(Owners, ARegistryKeyThatDidNotOpenIsNotClosed) {
  {
    RegistryKey key;
    EXPECT_EQ(CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"No\\Such\\Key", 0, KEY_READ, key.Put()),
              ERROR_FILE_NOT_FOUND);
  }
  EXPECT_THAT(host().calls().Of("RegCloseKey"), IsEmpty());
}

TEST_F(Owners, AMessageTextIsFreed) {
  simulator::HostModel model = test::SmallHost();
  model.messages[0x80004005] = L"Unspecified error\r\n";
  Install(std::move(model));
  {
    LocalText text;
    EXPECT_EQ(text.Get(), nullptr);
    const DWORD characters = CurrentHost().messages().FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        0x80004005, 0, text.AsBuffer(), 0, nullptr);
    EXPECT_EQ(characters, 19u);
    EXPECT_STREQ(text.Get(), L"Unspecified error\r\n");
    EXPECT_EQ(host().live().Count(), 1);
  }
  EXPECT_EQ(host().live().Count(), 0);
}

// ---- the current host ----

TEST(CurrentHost, IsTheMachineOrNoneWhenNoOtherIsInstalled) {
  EXPECT_EQ(CurrentHostOrNull(), MachineHost());
  if (MachineHost() == nullptr) {
    EXPECT_THROW(CurrentHost(), NoHostError);
  } else {
    EXPECT_EQ(&CurrentHost(), MachineHost());
  }
}

TEST(CurrentHost, IsTheInstalledOneUntilItsGuardEnds) {
  simulator::SimulatedHost outer{test::SmallHost()};
  simulator::SimulatedHost inner{test::SmallHost()};
  {
    const ScopedHost installOuter(outer);
    EXPECT_EQ(&CurrentHost(), &outer);
    {
      const ScopedHost installInner(inner);
      EXPECT_EQ(&CurrentHost(), &inner);
    }
    EXPECT_EQ(CurrentHostOrNull(), &outer);
  }
  EXPECT_EQ(CurrentHostOrNull(), MachineHost());
}

TEST(CurrentHost, SaysWhatToDoWhereThereIsNone) {
  EXPECT_STREQ(NoHostError().what(),
               "no host: this platform has no Volume Shadow Copy service; install a simulated host first");
}

}  // namespace
}  // namespace varnel
