#include "simulator/services/simulated_messages.h"

#include <algorithm>
#include <cstring>

#include "resources/catalog.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

// Module handles are addresses on Windows; these are values like them.
constexpr std::uintptr_t kVarnelModule = 0x180000000;
constexpr std::uintptr_t kVssTraceModule = 0x190000000;

// The text with its escapes resolved; nothing when it wants an argument, since nobody passes any.
std::optional<std::wstring> WithoutInserts(std::wstring_view message) {
  std::wstring text;
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (message[i] != L'%' || i + 1 == message.size()) {
      text += message[i];
      continue;
    }
    const wchar_t escape = message[++i];
    if (escape == L'0') return text;
    if (escape >= L'1' && escape <= L'9') return std::nullopt;
    text += escape == L'n' ? std::wstring(L"\r\n") : std::wstring(1, escape);
  }
  return text;
}

bool NamesModule(LPCWSTR name, std::wstring_view module) {
  return name != nullptr &&
         (ascii::EqualIgnoringCase(name, module) || ascii::EqualIgnoringCase(name, std::wstring(module) + L".dll"));
}

// HRESULTs of Win32 codes share the codes' texts.
const std::wstring* Look(const std::map<DWORD, std::wstring>& table, DWORD id) {
  auto found = table.find(id);
  if (found == table.end() && (id & 0xFFFF0000) == 0x80070000) found = table.find(id & 0xFFFF);
  return found == table.end() ? nullptr : &found->second;
}

class SimulatedMessages final : public OnMachine<Messages> {
 public:
  using OnMachine::OnMachine;

  DWORD FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD language, LPWSTR text, DWORD characters,
                       void*) override {
    machine_.KeepArguments(&CallArguments::formatMessage, {id, flags, language, characters});
    const auto shownId = [&] { return ResultName(static_cast<HRESULT>(id)); };
    return Win32Call(machine_, "FormatMessageW", shownId, DWORD{0}, [&] {
      if (text == nullptr || (flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM)) == 0) {
        return Fail(ERROR_INVALID_PARAMETER, DWORD{0});
      }
      const std::wstring* message = FindMessage(flags, source, id);
      if (message == nullptr) return Fail(ERROR_MR_MID_NOT_FOUND, DWORD{0});
      if ((flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0) return Deliver(*message, flags, text, characters);
      const std::optional<std::wstring> resolved = WithoutInserts(*message);
      return resolved ? Deliver(*resolved, flags, text, characters) : Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    });
  }

  void LocalFree(void* block) override { machine_.FreeLocal(block); }

  HMODULE LoadLibraryW(LPCWSTR name) override {
    return Win32Call(machine_, "LoadLibraryW", Shown(name), HMODULE{nullptr}, [&] {
      if (model().vssMessages && NamesModule(name, L"vsstrace")) return AddReference(kVssTraceModule);
      return Fail(ERROR_MOD_NOT_FOUND, HMODULE{nullptr});
    });
  }

  BOOL FreeLibrary(HMODULE module) override {
    const auto lock = machine_.Lock();
    const bool loaded = IsLoaded(module);
    if (loaded) {
      --references_[reinterpret_cast<std::uintptr_t>(module)];
      machine_.live.Remove("module");
    } else {
      machine_.live.AddMisuse("FreeLibrary of a module that is not loaded");
    }
    return Win32Call(machine_, "FreeLibrary", NoArguments, BOOL{FALSE},
                     [&] { return loaded ? TRUE : Fail(ERROR_MOD_NOT_FOUND); });
  }

  BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) override {
    return Win32Call(machine_, "GetModuleHandleExW", Shown(name), BOOL{FALSE}, [&] {
      if (module != nullptr) *module = nullptr;
      if (module == nullptr || flags != 0) return Fail(ERROR_INVALID_PARAMETER);
      if (!NamesModule(name, L"varnel")) return Fail(ERROR_MOD_NOT_FOUND);
      *module = AddReference(kVarnelModule);
      return TRUE;
    });
  }

  int LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) override {
    return Win32Call(machine_, "LoadStringW", Arguments(id), 0, [&] {
      if (text == nullptr || characters <= 0) return Fail(ERROR_INVALID_PARAMETER, 0);
      if (reinterpret_cast<std::uintptr_t>(module) != kVarnelModule || !IsLoaded(module)) {
        return Fail(ERROR_RESOURCE_DATA_NOT_FOUND, 0);
      }
      const auto catalog = Catalog();
      const auto entry = std::find_if(catalog.begin(), catalog.end(), [&](const CatalogEntry& candidate) {
        return static_cast<UINT>(candidate.id) == id;
      });
      if (entry == catalog.end()) return Fail(ERROR_RESOURCE_NAME_NOT_FOUND, 0);
      const auto message = std::wstring_view(entry->text).substr(0, static_cast<std::size_t>(characters) - 1);
      CopyWithEnd(message, text);
      return static_cast<int>(message.size());
    });
  }

 private:
  bool IsLoaded(const void* module) const {
    const auto found = references_.find(reinterpret_cast<std::uintptr_t>(module));
    return found != references_.end() && found->second > 0;
  }

  HMODULE AddReference(std::uintptr_t module) {
    ++references_[module];
    machine_.live.Add("module");
    return reinterpret_cast<HMODULE>(module);
  }

  const std::wstring* FindMessage(DWORD flags, const void* source, DWORD id) const {
    const bool vssTable = (flags & FORMAT_MESSAGE_FROM_HMODULE) != 0 && model().vssMessages &&
                          reinterpret_cast<std::uintptr_t>(source) == kVssTraceModule && IsLoaded(source);
    const std::wstring* message = vssTable ? Look(*model().vssMessages, id) : nullptr;
    if (message == nullptr && (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0) message = Look(model().messages, id);
    return message;
  }

  DWORD Deliver(std::wstring_view message, DWORD flags, LPWSTR text, DWORD characters) {
    const auto length = static_cast<DWORD>(message.size());
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
      const wchar_t* block = machine_.MakeLocalText(message, characters);
      std::memcpy(text, &block, sizeof block);
      return length;
    }
    if (characters < message.size() + 1) return Fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    CopyWithEnd(message, text);
    return length;
  }

  std::map<std::uintptr_t, int> references_;  // loaded modules
};

}  // namespace

std::unique_ptr<Messages> MakeMessages(Machine& machine) {
  return std::make_unique<SimulatedMessages>(machine);
}

}  // namespace varnel::simulator
