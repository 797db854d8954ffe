// Owners of platform resources. Each takes its resource on the line that obtains it and releases it on every way out.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/export.h"
#include "platform/vss.h"
#include "platform/win32.h"

namespace varnel {

class Host;

/// The current host for those who give something back to it later; empty where there is none.
VARNEL_API std::weak_ptr<Host> CurrentHostReference() noexcept;

/// A counted reference to a COM interface. Copying adds a reference; `Put` releases the held one first and hands out
/// the address for an output argument.
template <class T>
class ComPtr {
 public:
  /// No reference.
  ComPtr() noexcept = default;
  /// No reference.
  ComPtr(std::nullptr_t) noexcept {}
  /// Takes over one reference without adding one.
  static ComPtr Attach(T* object) noexcept {
    ComPtr owner;
    owner.object_ = object;
    return owner;
  }
  /// Adds a reference.
  ComPtr(const ComPtr& other) noexcept : object_(other.object_) {
    if (object_ != nullptr) Counted()->AddRef();
  }
  /// Takes the reference over; `other` has none then.
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  /// Releases the held reference once `other`'s is taken.
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPtr() { Reset(); }

  /// Releases the reference, if there is one.
  void Reset() noexcept {
    if (T* object = std::exchange(object_, nullptr)) AsCounted(object)->Release();
  }
  /// Releases the held reference and gives the place for another, which is then owned.
  T** Put() noexcept {
    Reset();
    return &object_;
  }
  /// The object, still owned by this; null without one.
  T* Get() const noexcept { return object_; }
  /// Only where there is an object.
  T* operator->() const noexcept { return object_; }
  /// Only where there is an object.
  T& operator*() const noexcept { return *object_; }
  /// Whether there is an object.
  explicit operator bool() const noexcept { return object_ != nullptr; }
  /// Gives the reference away.
  T* Detach() noexcept { return std::exchange(object_, nullptr); }

 private:
  // IVssWriterComponentsExt reaches Release only through its IUnknown base.
  static IUnknown* AsCounted(T* object) noexcept { return static_cast<IUnknown*>(object); }
  IUnknown* Counted() const noexcept { return AsCounted(object_); }

  T* object_ = nullptr;
};

/// Asks `object` for another interface. On failure `result` is empty.
template <class To, class From>
HRESULT QueryFor(From* object, const IID& interfaceId, ComPtr<To>& result) {
  return object->QueryInterface(interfaceId, reinterpret_cast<void**>(result.Put()));
}

/// The whole BSTR by its length; empty for null.
inline std::wstring_view ViewOf(BSTR text) noexcept {
  return text == nullptr ? std::wstring_view() : std::wstring_view(text, ::SysStringLen(text));
}

/// Owns one resource of a host. It remembers the host that was the current one when it was filled and gives the
/// resource back to that one, whatever host is the current one by then; what outlives its host is nobody's to give
/// back. `Kind` says what the resource is, what stands for none, and how a host takes it back.
template <class Kind>
class Owned {
 public:
  using Value = typename Kind::Value;  ///< a handle, a pointer, or a structure that holds some

  /// Nothing.
  Owned() noexcept = default;
  /// Takes over what the current host has handed out.
  explicit Owned(Value value) noexcept : value_(value), host_(CurrentHostReference()) {}
  /// Takes the resource over; `other` has none then.
  Owned(Owned&& other) noexcept
      : value_(std::exchange(other.value_, Kind::None())), host_(std::exchange(other.host_, {})) {}
  /// Gives back what is held and takes the other's over.
  Owned& operator=(Owned&& other) noexcept {
    Owned taken(std::move(other));
    std::swap(value_, taken.value_);
    host_.swap(taken.host_);
    return *this;
  }
  ~Owned() { Reset(); }

  /// Gives the resource back to its host, if there is one.
  void Reset() noexcept {
    const std::weak_ptr<Host> owner = std::exchange(host_, {});
    Value value = std::exchange(value_, Kind::None());
    if constexpr (std::is_pointer_v<Value>) {
      if (value == Kind::None()) return;
    }
    if (const std::shared_ptr<Host> host = owner.lock()) {
      Kind::Release(*host, value);
    } else if constexpr (requires { Kind::ReleaseWithoutHost(value); }) {
      Kind::ReleaseWithoutHost(value);
    }
  }
  /// Releases what is held and hands out the address for an output argument of the current host.
  Value* Put() noexcept {
    Reset();
    host_ = CurrentHostReference();
    return &value_;
  }
  /// The resource, still owned by this.
  Value Get() const noexcept { return value_; }
  /// The members of a structure.
  const Value* operator->() const noexcept requires std::is_class_v<Value> { return &value_; }
  /// Whether there is a resource.
  explicit operator bool() const noexcept requires std::is_pointer_v<Value> { return value_ != Kind::None(); }

 private:
  Value value_ = Kind::None();
  std::weak_ptr<Host> host_;
};

/// How each kind of resource is released.
namespace owned {

/// Null, or a structure of zeroes, stands for none.
template <class T>
struct NullIsNone {
  using Value = T;
  static Value None() noexcept { return {}; }
};

struct InvalidHandleIsNone {
  using Value = HANDLE;
  static Value None() noexcept { return INVALID_HANDLE_VALUE; }
};

struct File : InvalidHandleIsNone {
  VARNEL_API static void Release(Host& host, HANDLE handle);
};
struct Search : InvalidHandleIsNone {
  VARNEL_API static void Release(Host& host, HANDLE search);
};
struct Process : NullIsNone<PROCESS_INFORMATION> {
  VARNEL_API static void Release(Host& host, const PROCESS_INFORMATION& process);
};
struct Key : NullIsNone<HKEY> {
  VARNEL_API static void Release(Host& host, HKEY key);
};
struct ServiceObject : NullIsNone<SC_HANDLE> {
  VARNEL_API static void Release(Host& host, SC_HANDLE handle);
};
struct LoadedModule : NullIsNone<HMODULE> {
  VARNEL_API static void Release(Host& host, HMODULE module);
};
struct EventObject : NullIsNone<EVT_HANDLE> {
  VARNEL_API static void Release(Host& host, EVT_HANDLE object);
};
struct EventSource : NullIsNone<HANDLE> {
  VARNEL_API static void Release(Host& host, HANDLE log);
};
struct Text : NullIsNone<LPWSTR> {
  VARNEL_API static void Release(Host& host, LPWSTR text);
};
struct Block : NullIsNone<void*> {
  VARNEL_API static void Release(Host& host, void* block);
};
struct BasicString : NullIsNone<BSTR> {
  VARNEL_API static void Release(Host& host, BSTR text);
  static void ReleaseWithoutHost(BSTR text) { ::SysFreeString(text); }
};
struct Properties : NullIsNone<VSS_SNAPSHOT_PROP> {
  VARNEL_API static void Release(Host& host, VSS_SNAPSHOT_PROP& properties);
};
struct Object : NullIsNone<VSS_OBJECT_PROP> {
  VARNEL_API static void Release(Host& host, VSS_OBJECT_PROP& object);
};

}  // namespace owned

/// A file or device handle.
using FileHandle = Owned<owned::File>;
/// A search for volumes.
using VolumeSearch = Owned<owned::Search>;
/// The two handles of a started process.
using ProcessHandles = Owned<owned::Process>;
/// An open key of the registry.
using RegistryKey = Owned<owned::Key>;
/// The service manager, or a service.
using ServiceHandle = Owned<owned::ServiceObject>;
/// A counted module handle.
using Module = Owned<owned::LoadedModule>;
/// The results of a query of the event log, an event, or what describes a source's events.
using EventHandle = Owned<owned::EventObject>;
/// A source that writes to the event log.
using EventSource = Owned<owned::EventSource>;
/// A property structure of a shadow copy; the strings in it are the owner's.
using SnapshotProperties = Owned<owned::Properties>;

/// Text that FormatMessageW allocated.
class LocalText : public Owned<owned::Text> {
 public:
  /// The place for the text, as FormatMessageW takes it: in the disguise of a buffer.
  LPWSTR AsBuffer() noexcept { return reinterpret_cast<LPWSTR>(Put()); }
};

/// A block of the host's heap.
class HeapBlock : public Owned<owned::Block> {
 public:
  /// No block.
  HeapBlock() noexcept = default;
  /// Empty when there is no memory.
  VARNEL_API explicit HeapBlock(std::size_t bytes);
};

/// An owned BSTR, freed by the platform when its host is gone.
class Bstr : public Owned<owned::BasicString> {
 public:
  /// A null BSTR.
  Bstr() noexcept = default;
  /// Throws std::bad_alloc without memory.
  VARNEL_API explicit Bstr(std::wstring_view text);
  /// The whole text by its length; empty for a null BSTR.
  std::wstring_view View() const noexcept { return ViewOf(Get()); }
};

/// One object of an enumeration; the strings in it are the owner's.
class VssObject : public Owned<owned::Object> {
 public:
  /// Null when the object is something else.
  const VSS_PROVIDER_PROP* provider() const noexcept {
    return (*this)->Type == VSS_OBJECT_PROVIDER ? &(*this)->Obj.Prov : nullptr;
  }
  /// Null when the object is something else.
  const VSS_SNAPSHOT_PROP* snapshot() const noexcept {
    return (*this)->Type == VSS_OBJECT_SNAPSHOT ? &(*this)->Obj.Snap : nullptr;
  }
};

}  // namespace varnel
