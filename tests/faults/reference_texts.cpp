#include "tests/faults/reference_texts.h"

#include <algorithm>

namespace varnel::test::reference {

std::wstring Wide(const std::string& text) {
  return Utf8ToWideLossy(text);
}

std::wstring EightHexDigits(HRESULT value) {
  const std::wstring digits = Hex(value);
  return std::wstring(8 - digits.size(), L'0') + digits;
}

wchar_t Lower(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c;
}

std::wstring Lower(std::wstring text) {
  for (wchar_t& c : text) c = Lower(c);
  return text;
}

bool SameInAnyCase(const std::wstring& a, const std::wstring& b) {
  return Lower(a) == Lower(b);
}

std::wstring WithBackslash(const std::wstring& text) {
  return text.empty() || text.back() != L'\\' ? text + L"\\" : text;
}

std::wstring Joined(const std::vector<std::wstring>& list) {
  std::wstring text;
  for (const std::wstring& element : list) text += element + L", ";
  return text.empty() ? text : text.substr(0, text.size() - 2);
}

void InsertInOrder(std::vector<std::wstring>& list, const std::wstring& element) {
  if (Contains(list, element)) return;
  list.push_back(element);
  std::sort(list.begin(), list.end());
}

std::wstring FullPath(const std::wstring& logicalPath, const std::wstring& name) {
  std::wstring path = WithBackslash(logicalPath) + name;
  if (path[0] != L'\\') path = L"\\" + path;
  return path;
}

std::wstring StateName(VSS_WRITER_STATE state) {
  switch (static_cast<int>(state)) {
    case 0:
      return L"VSS_WS_UNKNOWN";
    case 1:
      return L"VSS_WS_STABLE";
    case 2:
      return L"VSS_WS_WAITING_FOR_FREEZE";
    case 3:
      return L"VSS_WS_WAITING_FOR_THAW";
    case 4:
      return L"VSS_WS_WAITING_FOR_POST_SNAPSHOT";
    case 5:
      return L"VSS_WS_WAITING_FOR_BACKUP_COMPLETE";
    case 6:
      return L"VSS_WS_FAILED_AT_IDENTIFY";
    case 7:
      return L"VSS_WS_FAILED_AT_PREPARE_BACKUP";
    case 8:
      return L"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT";
    case 9:
      return L"VSS_WS_FAILED_AT_FREEZE";
    case 10:
      return L"VSS_WS_FAILED_AT_THAW";
    case 11:
      return L"VSS_WS_FAILED_AT_POST_SNAPSHOT";
    case 12:
      return L"VSS_WS_FAILED_AT_BACKUP_COMPLETE";
    case 13:
      return L"VSS_WS_FAILED_AT_PRE_RESTORE";
    case 14:
      return L"VSS_WS_FAILED_AT_POST_RESTORE";
    case 15:
      return L"VSS_WS_FAILED_AT_BACKUPSHUTDOWN";
    default:
      return L"Writer status " + std::to_wstring(static_cast<int>(state));
  }
}

std::wstring StateMessage(VSS_WRITER_STATE state, const std::wstring& writer) {
  const std::wstring look = L"Check the Application event log on the application server for more information. ";
  switch (static_cast<int>(state)) {
    case 0:
      return writer + L" failed with unknown error. ";
    case 6:
      return writer + L" has failed the Identify event. " + look;
    case 7:
      return writer + L" has failed to prepare for backup. " + look;
    case 8:
      return writer + L" has failed to prepare for snapshot. " + look;
    case 9:
      return writer + L" failed to freeze the I/O operations. ";
    case 10:
      return writer + L" has failed during thaw event. " + look;
    case 11:
      return writer + L" has failed during post snapshot event. ";
    case 12:
      return writer + L" has failed during backup complete event. ";
    case 13:
      return writer + L" has failed during pre-restore event. ";
    case 14:
      return writer + L" has failed during post-restore event. ";
    case 15:
      return writer + L" failed during the shutdown of backup application. ";
    default:
      return L"";
  }
}

std::wstring SymbolOf(HRESULT hr) {
  switch (static_cast<DWORD>(hr)) {
    case 0:
      return L"S_OK";
    case 1:
      return L"S_FALSE";
    case 0x8000FFFF:
      return L"E_UNEXPECTED";
    case 0x8007000E:
      return L"E_OUTOFMEMORY";
    case 0x80042301:
      return L"VSS_E_BAD_STATE";
    case 0x80042304:
      return L"VSS_E_PROVIDER_NOT_REGISTERED";
    case 0x80042308:
      return L"VSS_E_OBJECT_NOT_FOUND";
    case 0x8004230D:
      return L"VSS_E_OBJECT_ALREADY_EXISTS";
    case 0x80042336:
      return L"VSS_E_WRITERERROR_PARTIAL_FAILURE";
    case 0x800423F2:
      return L"VSS_E_WRITERERROR_TIMEOUT";
    case 0x800423F3:
      return L"VSS_E_WRITERERROR_RETRYABLE";
    case 0x800423F4:
      return L"VSS_E_WRITERERROR_NONRETRYABLE";
    default:
      return L"";
  }
}

}  // namespace varnel::test::reference
