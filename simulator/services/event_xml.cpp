#include "simulator/services/event_xml.h"

#include "simulator/machine/utc_time.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

std::wstring Escaped(std::wstring_view text) {
  std::wstring escaped;
  for (const wchar_t c : text) {
    switch (c) {
      case L'&':
        escaped += L"&amp;";
        break;
      case L'<':
        escaped += L"&lt;";
        break;
      case L'>':
        escaped += L"&gt;";
        break;
      case L'\'':
        escaped += L"&apos;";
        break;
      default:
        // Other control characters no XML has.
        escaped += c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r' ? L' ' : c;
    }
  }
  return escaped;
}

std::wstring Element(const std::wstring& name, std::wstring_view content) {
  return content.empty() ? L"<" + name + L"/>" : L"<" + name + L">" + std::wstring(content) + L"</" + name + L">";
}

std::wstring EventData(const LoggedEvent& event) {
  std::wstring data;
  for (const std::wstring& text : event.texts) data += Element(L"Data", Escaped(text));
  if (!event.data.empty()) data += Element(L"Binary", event.data);
  return Element(L"EventData", data);
}

}  // namespace

std::wstring EventXml(const LoggedEvent& event, ULONGLONG record, LONGLONG time, const std::wstring& computer) {
  const std::wstring system =
      L"<Provider Name='" + Escaped(event.source) + L"'/><EventID Qualifiers='" + std::to_wstring(event.id >> 16) +
      L"'>" + std::to_wstring(event.id & 0xFFFF) + L"</EventID><Version>0</Version><Level>" +
      std::to_wstring(static_cast<DWORD>(event.level)) +
      L"</Level><Task>0</Task><Opcode>0</Opcode><Keywords>0x80000000000000</Keywords><TimeCreated SystemTime='" +
      Utf8ToWide(FormatUtc(time)) + L"'/><EventRecordID>" + std::to_wstring(record) +
      L"</EventRecordID><Correlation/><Execution ProcessID='0' ThreadID='0'/>" +
      Element(L"Channel", Escaped(event.channel)) + Element(L"Computer", Escaped(computer)) + L"<Security/>";
  return L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'>" + Element(L"System", system) +
         EventData(event) + L"</Event>";
}

}  // namespace varnel::simulator
