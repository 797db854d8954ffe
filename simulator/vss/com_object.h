// What the service's COM objects share.
#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/vss.h"
#include "simulator/host_file/text.h"
#include "simulator/machine/machine.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {

// Arguments for the call log.
inline std::string Quoted(const wchar_t* text) {
  return text == nullptr ? "null" : "\"" + Show(text) + "\"";
}
inline std::string GuidText(const GUID& id) {
  return WideToUtf8Lossy(FormatGuid(id));
}
inline std::string FlagText(VssBool flag) {
  return flag ? "true" : "false";
}
std::string ArgumentList(std::initializer_list<std::string> arguments);
inline std::string NoArguments() {
  return {};
}
/// Renders a number that is the only argument.
template <class Number>
auto OneNumber(Number number) {
  return [number] { return std::to_string(number); };
}

/// Empties an output argument, so that a call that does not run hands out nothing.
template <class T>
void Clear(T** output) {
  if (output != nullptr) *output = nullptr;
}

/// Hands text to the caller, who frees it.
HRESULT GiveText(Machine& machine, std::wstring_view text, BSTR* output);
/// The same for text that may be absent: then S_FALSE and null.
HRESULT GiveOptionalText(Machine& machine, const std::optional<std::wstring>& text, BSTR* output);

/// A counted COM object. `interfaces` are the identifiers it answers to besides IUnknown's; they must live as long as
/// the program. The object starts with one reference, which is the caller's.
template <class Interface>
class ComObject : public Interface, protected CountedObject {
 public:
  ComObject(std::shared_ptr<Machine> machine, std::string_view kind, std::span<const GUID> interfaces)
      : CountedObject(std::move(machine), kind), interfaces_(interfaces), kind_(kind) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    Clear(object);
    return Call(
        machine(), std::string(kind_) + "::QueryInterface", [&] { return GuidText(id); },
        [&] {
          if (object == nullptr) return E_POINTER;
          if (!Answers(id)) return E_NOINTERFACE;
          Retain();
          // The two only differ where IUnknown is not the first base, and there nothing else can be asked for.
          *object = static_cast<IUnknown*>(static_cast<Interface*>(this));
          return S_OK;
        });
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

 private:
  bool Answers(REFIID id) const {
    if (id == kIidUnknown) return true;
    for (const GUID& candidate : interfaces_) {
      if (candidate == id) return true;
    }
    return false;
  }

  std::span<const GUID> interfaces_;
  std::string_view kind_;
};

}  // namespace varnel::simulator
