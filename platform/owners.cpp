#include "platform/owners.h"

#include <new>

#include "platform/host.h"

namespace varnel {

std::weak_ptr<Host> CurrentHostReference() noexcept {
  const Host* host = CurrentHostOrNull();
  return host == nullptr ? std::weak_ptr<Host>() : host->Reference();
}

namespace owned {

void File::Release(Host& host, HANDLE handle) {
  host.storage().CloseHandle(handle);
}

void Search::Release(Host& host, HANDLE search) {
  host.storage().FindVolumeClose(search);
}

void Process::Release(Host& host, const PROCESS_INFORMATION& process) {
  if (process.hThread != nullptr) host.processes().CloseHandle(process.hThread);
  if (process.hProcess != nullptr) host.processes().CloseHandle(process.hProcess);
}

void Key::Release(Host& host, HKEY key) {
  host.registry().RegCloseKey(key);
}

void ServiceObject::Release(Host& host, SC_HANDLE handle) {
  host.services().CloseServiceHandle(handle);
}

void LoadedModule::Release(Host& host, HMODULE module) {
  host.messages().FreeLibrary(module);
}

void EventObject::Release(Host& host, EVT_HANDLE object) {
  host.eventLog().EvtClose(object);
}

void EventSource::Release(Host& host, HANDLE log) {
  host.eventLog().DeregisterEventSource(log);
}

void Text::Release(Host& host, LPWSTR text) {
  host.messages().LocalFree(text);
}

void Block::Release(Host& host, void* block) {
  host.heap().Free(block);
}

void BasicString::Release(Host& host, BSTR text) {
  host.vss().SysFreeString(text);
}

void Properties::Release(Host& host, VSS_SNAPSHOT_PROP& properties) {
  host.vss().VssFreeSnapshotProperties(&properties);
}

void Object::Release(Host& host, VSS_OBJECT_PROP& object) {
  if (object.Type == VSS_OBJECT_PROVIDER) {
    host.vss().CoTaskMemFree(object.Obj.Prov.m_pwszProviderName);
    host.vss().CoTaskMemFree(object.Obj.Prov.m_pwszProviderVersion);
  } else if (object.Type == VSS_OBJECT_SNAPSHOT) {
    Properties::Release(host, object.Obj.Snap);
  }
}

}  // namespace owned

HeapBlock::HeapBlock(std::size_t bytes) : Owned(CurrentHost().heap().Malloc(bytes)) {}

Bstr::Bstr(std::wstring_view text)
    : Owned(CurrentHost().vss().SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
  if (!*this) throw std::bad_alloc();
}

}  // namespace varnel
