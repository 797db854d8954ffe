#include "core/checks.h"

#include "core/alerts.h"
#include "core/logging.h"
#include "platform/host.h"

namespace varnel {
namespace {

std::wstring Shown(const wchar_t* call, CallText how) {
  if (how == CallText::bare) return call;
  return (how == CallText::wideLiteral ? L"L\"" : L"\"") + std::wstring(call) + L"\"";
}

}  // namespace

void AlertAndThrow::Report(HRESULT hr) const {
  WriteAlert<alert::kComError>({errorDetails_, kLog, line_}, call_, HResultText(hr));
  ThrowHResult(hr);
}

void LogAndThrow::Report(HRESULT hr) const {
  if (Logger::IsOn()) {
    kLog.Write(CFileLog::Error, line_, L"ERROR: COM call %s failed.", Shown(call_, shown_));
    kLog.Write(CFileLog::Error, line_, L"- Returned HRESULT = 0x%08lx", hr);
    kLog.Write(CFileLog::Error, line_, L"- Error text: %s", HResultText(hr));
  }
  ThrowHResult(hr);
}

void LogAndThrowWin32(const wchar_t* call, DWORD code, CallText shown, int line) {
  if (code == ERROR_SUCCESS) code = ERROR_GEN_FAILURE;
  const HRESULT hr = HResultFromWin32(code);
  if (Logger::IsOn()) {
    kLog.Write(CFileLog::Error, line, L"ERROR: Win32 call %s failed.", Shown(call, shown));
    kLog.Write(CFileLog::Error, line, L"- GetLastError() == %ld", code);
    kLog.Write(CFileLog::Error, line, L"- Error text: %s", HResultText(hr));
  }
  ThrowHResult(hr);
}

TesselCommonClasses::DiskAndVolumeEnumerator& Required(TesselCommonClasses::DiskAndVolumeEnumerator* enumerator) {
  if (enumerator == nullptr) {
    kLog.Error(L"No disk and volume enumerator has been set");
    ThrowHResult(E_POINTER);
  }
  return *enumerator;
}

}  // namespace varnel
