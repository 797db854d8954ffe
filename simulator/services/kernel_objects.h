// What a handle that CloseHandle closes stands for.
#pragma once

#include <string>
#include <vector>

#include "simulator/machine/handles.h"

namespace varnel::simulator {

struct KernelObject {
  enum class Kind { device, process, thread };
  Kind kind = Kind::device;
  std::wstring name;  // for the call log
  DWORD diskNumber = 0;
  DWORD partition = 0;  // 0: the whole disk
  DWORD exitCode = 0;
  std::vector<DWORD> otherDisks{};  // of a volume that lies on several
};

/// File, process and thread handles share CloseHandle.
class KernelObjects {
 public:
  explicit KernelObjects(Machine& machine) : machine_(machine), handles_(machine, 0x1000) {}
  HANDLE Open(KernelObject object);
  /// Null for a handle that is not open or stands for something else.
  const KernelObject* Find(HANDLE handle, KernelObject::Kind kind);
  /// A close that the fault plan makes fail has closed the handle all the same: no caller can do more.
  BOOL CloseHandle(HANDLE handle);
  std::string Describe(HANDLE handle);

 private:
  Machine& machine_;
  HandleTable<KernelObject> handles_;
};

}  // namespace varnel::simulator
