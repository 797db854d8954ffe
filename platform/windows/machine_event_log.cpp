#include "platform/windows/machine_services.h"
#include "platform/windows/system_library.h"

namespace varnel::windows {
namespace {

class MachineEvents final : public EventLog {
 public:
  EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) override {
    // Where there is no event log the last error stays as it is.
    ::SetLastError(ERROR_SUCCESS);
    return Ask<EVT_HANDLE>(query_, session, path, query, flags);
  }
  BOOL EvtNext(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD milliseconds, DWORD flags,
               DWORD* returned) override {
    return Ask<BOOL>(next_, results, count, events, milliseconds, flags, returned);
  }
  BOOL EvtRender(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD bytes, void* buffer, DWORD* used,
                 DWORD* properties) override {
    return Ask<BOOL>(render_, context, event, flags, bytes, buffer, used, properties);
  }
  EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisher, LPCWSTR logFile, DWORD locale,
                                      DWORD flags) override {
    return Ask<EVT_HANDLE>(openPublisher_, session, publisher, logFile, locale, flags);
  }
  BOOL EvtFormatMessage(EVT_HANDLE publisher, EVT_HANDLE event, DWORD message, DWORD count, EVT_VARIANT* values,
                        DWORD flags, DWORD characters, LPWSTR buffer, DWORD* used) override {
    return Ask<BOOL>(format_, publisher, event, message, count, values, flags, characters, buffer, used);
  }
  BOOL EvtClose(EVT_HANDLE object) override { return Ask<BOOL>(close_, object); }
  HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source) override {
    return ::RegisterEventSourceW(server, source);
  }
  BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD id, void* user, WORD count, DWORD dataBytes,
                    LPCWSTR* texts, void* data) override {
    return ::ReportEventW(log, type, category, id, user, count, dataBytes, texts, data);
  }
  BOOL DeregisterEventSource(HANDLE log) override { return ::DeregisterEventSource(log); }

 private:
  template <class Answer, class Function, class... Arguments>
  Answer Ask(Function* function, Arguments... arguments) const {
    if (function != nullptr) return function(arguments...);
    ::SetLastError(library_.Error());
    return {};
  }

  SystemLibrary library_{L"wevtapi.dll"};
  decltype(::EvtQuery)* query_ = library_.Find<decltype(::EvtQuery)>("EvtQuery");
  decltype(::EvtNext)* next_ = library_.Find<decltype(::EvtNext)>("EvtNext");
  decltype(::EvtRender)* render_ = library_.Find<decltype(::EvtRender)>("EvtRender");
  decltype(::EvtOpenPublisherMetadata)* openPublisher_ =
      library_.Find<decltype(::EvtOpenPublisherMetadata)>("EvtOpenPublisherMetadata");
  decltype(::EvtFormatMessage)* format_ = library_.Find<decltype(::EvtFormatMessage)>("EvtFormatMessage");
  decltype(::EvtClose)* close_ = library_.Find<decltype(::EvtClose)>("EvtClose");
};

}  // namespace

EventLog& MachineEventLog() {
  static MachineEvents events;
  return events;
}

}  // namespace varnel::windows
