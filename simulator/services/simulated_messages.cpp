#include <algorithm>
#include <cstring>

#include "resources/catalog.h"
#include "simulator/host_file/text.h"
#include "simulator/services/services.h"

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
    if (escape == L'n') {
      text += L"\r\n";
    } else {
      text += escape;
    }
  }
  return text;
}

bool NamesModule(LPCWSTR name, std::wstring_view module) {
  return name != nullptr &&
         (EqualsIgnoringCase(name, module) || EqualsIgnoringCase(name, std::wstring(module) + L".dll"));
}

// HRESULTs of Win32 codes share the codes' texts.
const std::wstring* Look(const std::map<DWORD, std::wstring>& table, DWORD id) {
  auto found = table.find(id);
  if (found == table.end() && (id & 0xFFFF0000) == 0x80070000) found = table.find(id & 0xFFFF);
  return found == table.end() ? nullptr : &found->second;
}

}  // namespace

bool SimulatedMessages::IsLoaded(const void* module) const {
  const auto found = references_.find(reinterpret_cast<std::uintptr_t>(module));
  return found != references_.end() && found->second > 0;
}

HMODULE SimulatedMessages::AddReference(std::uintptr_t module) {
  ++references_[module];
  machine_.live.Add("module");
  return reinterpret_cast<HMODULE>(module);
}

const std::wstring* SimulatedMessages::FindMessage(DWORD flags, const void* source, DWORD id) const {
  const bool vssTable = (flags & FORMAT_MESSAGE_FROM_HMODULE) != 0 && machine_.model.vssMessages &&
                        reinterpret_cast<std::uintptr_t>(source) == kVssTraceModule && IsLoaded(source);
  const std::wstring* message = vssTable ? Look(*machine_.model.vssMessages, id) : nullptr;
  if (message == nullptr && (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0) message = Look(machine_.model.messages, id);
  return message;
}

DWORD SimulatedMessages::Deliver(std::wstring_view message, DWORD flags, LPWSTR text, DWORD characters) {
  if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
    const wchar_t* block = machine_.MakeLocalText(message, characters);
    std::memcpy(text, &block, sizeof block);
    return static_cast<DWORD>(message.size());
  }
  if (characters < message.size() + 1) {
    machine_.lastError = ERROR_INSUFFICIENT_BUFFER;
    return 0;
  }
  message.copy(text, message.size());
  text[message.size()] = L'\0';
  return static_cast<DWORD>(message.size());
}

DWORD SimulatedMessages::FormatMessageW(DWORD flags, const void* source, DWORD id, DWORD, LPWSTR text, DWORD characters,
                                        void*) {
  return Win32Call(
      machine_, "FormatMessageW", DWORD{0}, [&] { return ResultName(static_cast<HRESULT>(id)); },
      [&]() -> DWORD {
        if (text == nullptr || (flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM)) == 0) {
          machine_.lastError = ERROR_INVALID_PARAMETER;
          return 0;
        }
        const std::wstring* message = FindMessage(flags, source, id);
        if (message == nullptr) {
          machine_.lastError = ERROR_MR_MID_NOT_FOUND;
          return 0;
        }
        if ((flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0) return Deliver(*message, flags, text, characters);
        const std::optional<std::wstring> resolved = WithoutInserts(*message);
        if (!resolved) {
          machine_.lastError = ERROR_INVALID_PARAMETER;
          return 0;
        }
        return Deliver(*resolved, flags, text, characters);
      });
}

void SimulatedMessages::LocalFree(void* block) {
  machine_.FreeLocal(block);
}

HMODULE SimulatedMessages::LoadLibraryW(LPCWSTR name) {
  return Win32Call(
      machine_, "LoadLibraryW", HMODULE{nullptr}, [&] { return Show(name); },
      [&]() -> HMODULE {
        if (machine_.model.vssMessages && NamesModule(name, L"vsstrace")) return AddReference(kVssTraceModule);
        machine_.lastError = ERROR_MOD_NOT_FOUND;
        return nullptr;
      });
}

BOOL SimulatedMessages::FreeLibrary(HMODULE module) {
  const bool loaded = IsLoaded(module);
  if (loaded) {
    --references_[reinterpret_cast<std::uintptr_t>(module)];
    machine_.live.Remove("module");
  } else {
    machine_.live.AddMisuse("FreeLibrary of a module that is not loaded");
  }
  return Win32Call(
      machine_, "FreeLibrary", BOOL{FALSE}, [] { return std::string(); },
      [&]() -> BOOL {
        if (!loaded) machine_.lastError = ERROR_MOD_NOT_FOUND;
        return loaded ? TRUE : FALSE;
      });
}

BOOL SimulatedMessages::GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) {
  return Win32Call(
      machine_, "GetModuleHandleExW", BOOL{FALSE}, [&] { return Show(name); },
      [&]() -> BOOL {
        if (module != nullptr) *module = nullptr;
        const bool known = flags == 0 && NamesModule(name, L"varnel");
        if (module == nullptr || !known) {
          machine_.lastError = module == nullptr || flags != 0 ? ERROR_INVALID_PARAMETER : ERROR_MOD_NOT_FOUND;
          return FALSE;
        }
        *module = AddReference(kVarnelModule);
        return TRUE;
      });
}

int SimulatedMessages::LoadStringW(HMODULE module, UINT id, LPWSTR text, int characters) {
  return Win32Call(
      machine_, "LoadStringW", 0, [&] { return std::to_string(id); },
      [&]() -> int {
        if (text == nullptr || characters <= 0) {
          machine_.lastError = ERROR_INVALID_PARAMETER;
          return 0;
        }
        if (reinterpret_cast<std::uintptr_t>(module) != kVarnelModule || !IsLoaded(module)) {
          machine_.lastError = ERROR_RESOURCE_DATA_NOT_FOUND;
          return 0;
        }
        const auto catalog = Catalog();
        const auto entry = std::find_if(catalog.begin(), catalog.end(), [&](const CatalogEntry& candidate) {
          return static_cast<UINT>(candidate.id) == id;
        });
        if (entry == catalog.end()) {
          machine_.lastError = ERROR_RESOURCE_NAME_NOT_FOUND;
          return 0;
        }
        const std::wstring_view message =
            std::wstring_view(entry->text).substr(0, static_cast<std::size_t>(characters) - 1);
        message.copy(text, message.size());
        text[message.size()] = L'\0';
        return static_cast<int>(message.size());
      });
}

}  // namespace varnel::simulator
