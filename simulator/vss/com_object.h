// What the service's COM objects share.
#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "platform/vss.h"
#include "simulator/machine/calls.h"
#include "simulator/machine/counted_object.h"

namespace varnel::simulator {

/// Empties an output argument, so that a call that does not run hands out nothing.
template <class T>
void Clear(T** output) {
  if (output != nullptr) *output = nullptr;
}

/// Hands text to the caller, who frees it; S_FALSE and null where there is none.
HRESULT GiveText(Machine& machine, std::optional<std::wstring_view> text, BSTR* output);

/// A counted COM object. `interfaces` are the identifiers it answers to besides IUnknown's; they must live as long as
/// the program. The object starts with one reference, which is the caller's.
template <class Interface>
class ComObject : public Interface, protected CountedObject {
 public:
  ComObject(std::shared_ptr<Machine> machine, std::string_view kind, std::span<const GUID> interfaces)
      : CountedObject(std::move(machine), kind), interfaces_(interfaces) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    Clear(object);
    return Call(std::string(kind()) + "::QueryInterface", Arguments(id), [&] {
      if (object == nullptr) return E_POINTER;
      const bool known = std::find(interfaces_.begin(), interfaces_.end(), id) != interfaces_.end();
      if (!known && id != kIidUnknown) return E_NOINTERFACE;
      Retain();
      // The two only differ where IUnknown is not the first base, and there nothing else can be asked for.
      *object = static_cast<IUnknown*>(static_cast<Interface*>(this));
      return S_OK;
    });
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

 protected:
  template <class Rendered, class Body>
  HRESULT Call(std::string_view call, Rendered&& arguments, Body&& body) {
    return simulator::Call(machine(), call, arguments, body);
  }

  // Calls that are alike in many interfaces. Those that do nothing are named by what follows the kind: "::Method", or
  // "Ex2::Method" for one of a later interface.
  template <class... Outputs>
  HRESULT Refuse(HRESULT result, const char* method, Outputs**... outputs) {
    (Clear(outputs), ...);
    return Call(std::string(kind()) + method, NoArguments, [&] { return result; });
  }
  template <class... Outputs>
  HRESULT Unsupported(const char* method, Outputs**... outputs) {
    return Refuse(E_NOTIMPL, method, outputs...);
  }
  HRESULT Text(std::string_view call, std::optional<std::wstring_view> text, BSTR* output) {
    Clear(output);
    return Call(call, NoArguments,
                [&] { return output == nullptr ? E_INVALIDARG : GiveText(machine(), text, output); });
  }
  template <class Value, class Output>
  HRESULT Give(std::string_view call, Value value, Output* output, HRESULT success = S_OK) {
    return Call(call, NoArguments, [&] {
      if (output == nullptr) return E_INVALIDARG;
      *output = static_cast<Output>(value);
      return success;
    });
  }

 private:
  std::span<const GUID> interfaces_;
};

}  // namespace varnel::simulator
