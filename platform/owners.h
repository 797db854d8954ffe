// Owners of platform resources. Each takes its resource on the line that obtains it and releases it on every way out.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host.h"

namespace varnel {

/// A counted reference to a COM interface. Copying adds a reference; `Put` releases the held one first and hands out
/// the address for an output argument.
template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  /// Takes over one reference without adding one.
  static ComPtr Attach(T* object) noexcept {
    ComPtr owner;
    owner.object_ = object;
    return owner;
  }
  ComPtr(const ComPtr& other) noexcept : object_(other.object_) {
    if (object_ != nullptr) Counted()->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPtr() { Reset(); }

  void Reset() noexcept {
    if (T* object = std::exchange(object_, nullptr)) AsCounted(object)->Release();
  }
  T** Put() noexcept {
    Reset();
    return &object_;
  }
  T* Get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
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

/// An owned BSTR, freed by the current host (by the platform when there is none any more).
class Bstr {
 public:
  Bstr() noexcept = default;
  explicit Bstr(std::wstring_view text);
  Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  Bstr& operator=(Bstr other) noexcept {
    std::swap(text_, other.text_);
    return *this;
  }
  Bstr(const Bstr&) = delete;
  ~Bstr() { Reset(); }

  void Reset() noexcept;
  BSTR* Put() noexcept {
    Reset();
    return &text_;
  }
  BSTR Get() const noexcept { return text_; }
  explicit operator bool() const noexcept { return text_ != nullptr; }
  /// The whole text by its length; empty for a null BSTR.
  std::wstring_view View() const noexcept { return ViewOf(text_); }

 private:
  BSTR text_ = nullptr;
};

/// A file or device handle.
class FileHandle {
 public:
  explicit FileHandle(HANDLE handle) noexcept : handle_(handle) {}
  FileHandle(FileHandle&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  FileHandle& operator=(FileHandle other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  FileHandle(const FileHandle&) = delete;
  ~FileHandle() {
    Host* host = *this ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->storage().CloseHandle(handle_);
  }
  explicit operator bool() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const noexcept { return handle_; }

 private:
  HANDLE handle_;
};

/// Text that FormatMessageW allocated.
class LocalText {
 public:
  LocalText() noexcept = default;
  LocalText(const LocalText&) = delete;
  LocalText& operator=(const LocalText&) = delete;
  ~LocalText() {
    Host* host = text_ != nullptr ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->messages().LocalFree(text_);
  }
  LPWSTR AsBuffer() noexcept { return reinterpret_cast<LPWSTR>(&text_); }
  const wchar_t* Get() const noexcept { return text_; }

 private:
  wchar_t* text_ = nullptr;
};

/// A block of the host's heap.
class HeapBlock {
 public:
  HeapBlock() noexcept = default;
  explicit HeapBlock(std::size_t bytes) : block_(CurrentHost().heap().Malloc(bytes)) {}
  HeapBlock(HeapBlock&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  HeapBlock& operator=(HeapBlock other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  HeapBlock(const HeapBlock&) = delete;
  ~HeapBlock() {
    Host* host = block_ != nullptr ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->heap().Free(block_);
  }
  explicit operator bool() const noexcept { return block_ != nullptr; }
  void* Get() const noexcept { return block_; }

 private:
  void* block_ = nullptr;
};

/// An open key of the registry.
class RegistryKey {
 public:
  RegistryKey() noexcept = default;
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;
  ~RegistryKey() { Reset(); }
  void Reset() noexcept {
    HKEY key = std::exchange(key_, nullptr);
    Host* host = key != nullptr ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->registry().RegCloseKey(key);
  }
  HKEY* Put() noexcept {
    Reset();
    return &key_;
  }
  HKEY Get() const noexcept { return key_; }

 private:
  HKEY key_ = nullptr;
};

/// A counted module handle.
class Module {
 public:
  Module() noexcept = default;
  explicit Module(HMODULE module) noexcept : module_(module) {}
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  ~Module() { Reset(); }
  void Reset() noexcept {
    HMODULE module = std::exchange(module_, nullptr);
    Host* host = module != nullptr ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->messages().FreeLibrary(module);
  }
  HMODULE* Put() noexcept {
    Reset();
    return &module_;
  }
  HMODULE Get() const noexcept { return module_; }
  explicit operator bool() const noexcept { return module_ != nullptr; }

 private:
  HMODULE module_ = nullptr;
};

/// A property structure of a shadow copy; the strings in it are the owner's.
class SnapshotProperties {
 public:
  SnapshotProperties() noexcept = default;
  SnapshotProperties(const SnapshotProperties&) = delete;
  SnapshotProperties& operator=(const SnapshotProperties&) = delete;
  ~SnapshotProperties() { Free(); }
  /// Frees what an earlier call filled in and hands out the zeroed structure.
  VSS_SNAPSHOT_PROP* Put() noexcept {
    Free();
    handedOut_ = true;
    return &properties_;
  }
  const VSS_SNAPSHOT_PROP* operator->() const noexcept { return &properties_; }

 private:
  void Free() noexcept {
    Host* host = handedOut_ ? CurrentHostOrNull() : nullptr;
    if (host != nullptr) host->vss().VssFreeSnapshotProperties(&properties_);
    properties_ = {};
    handedOut_ = false;
  }
  VSS_SNAPSHOT_PROP properties_{};
  bool handedOut_ = false;
};

}  // namespace varnel
