#include "simulator/services/kernel_objects.h"

#include <utility>

#include "simulator/machine/calls.h"

namespace varnel::simulator {
namespace {

std::string_view KindName(KernelObject::Kind kind) {
  switch (kind) {
    case KernelObject::Kind::process:
      return "process handle";
    case KernelObject::Kind::thread:
      return "thread handle";
    default:
      return "file handle";
  }
}

}  // namespace

HANDLE KernelObjects::Open(KernelObject object) {
  const std::string_view kind = KindName(object.kind);
  return handles_.Open(kind, std::move(object));
}

const KernelObject* KernelObjects::Find(HANDLE handle, KernelObject::Kind kind) {
  const KernelObject* object = handles_.Find(handle);
  return object != nullptr && object->kind == kind ? object : nullptr;
}

std::string KernelObjects::Describe(HANDLE handle) {
  const KernelObject* object = handles_.Find(handle);
  return object == nullptr ? "not open" : Show(object->name);
}

BOOL KernelObjects::CloseHandle(HANDLE handle) {
  const auto lock = machine_.Lock();
  const std::string what = machine_.calls.enabled ? Describe(handle) : std::string();
  const bool closed = handles_.Close(handle, "CloseHandle");
  return Win32Call(machine_, "CloseHandle", Arguments(what), BOOL{FALSE},
                   [&] { return closed ? TRUE : machine_.Fail(ERROR_INVALID_HANDLE); });
}

}  // namespace varnel::simulator
