#include "simulator/services/simulated_registry.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "simulator/machine/handles.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kLocalMachine = L"HKEY_LOCAL_MACHINE";
constexpr std::wstring_view kCurrentUser = L"HKEY_CURRENT_USER";

bool IsRoot(std::wstring_view path) {
  return ascii::EqualIgnoringCase(path, kLocalMachine) || ascii::EqualIgnoringCase(path, kCurrentUser);
}

// What follows `path` and a backslash in `key`; empty when `key` does not lie below `path`.
std::wstring_view Below(std::wstring_view key, std::wstring_view path) {
  if (key.size() <= path.size() + 1 || key[path.size()] != L'\\') return {};
  return ascii::StartsWithIgnoringCase(key, path) ? key.substr(path.size() + 1) : std::wstring_view();
}

template <class Value>
void Set(Value* target, std::size_t value) {
  if (target != nullptr) *target = static_cast<Value>(value);
}

DWORD BytesOf(std::wstring_view text) {
  return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

class SimulatedRegistry final : public OnMachine<Registry> {
 public:
  explicit SimulatedRegistry(Machine& machine) : OnMachine(machine), keys_(machine, 0x1002) {}

  LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM, HKEY* result) override {
    const auto described = [&] { return Describe(key, subKey); };
    return CodeCall<LSTATUS>(machine_, "RegOpenKeyExW", described, [&]() -> DWORD {
      std::optional<std::wstring> path = PathOf(key, subKey);
      if (!path) return ERROR_INVALID_HANDLE;
      if (result == nullptr) return ERROR_INVALID_PARAMETER;
      if (!Exists(*path)) return ERROR_FILE_NOT_FOUND;
      *result = static_cast<HKEY>(keys_.Open("registry key", std::move(*path)));
      return ERROR_SUCCESS;
    });
  }

  LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR, DWORD*, DWORD*, DWORD* subKeys, DWORD* maxSubKeyLength,
                           DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength, DWORD* maxValueBytes,
                           DWORD* securityDescriptorBytes, FILETIME* lastWrite) override {
    const auto described = [&] { return Describe(key, nullptr); };
    return CodeCall<LSTATUS>(machine_, "RegQueryInfoKeyW", described, [&]() -> DWORD {
      const std::optional<std::wstring> path = PathOf(key, nullptr);
      if (!path) return ERROR_INVALID_HANDLE;
      const std::vector<std::wstring> names = SubKeys(*path);
      std::size_t longestName = 0;
      for (const std::wstring& name : names) longestName = std::max(longestName, name.size());
      std::size_t longestValueName = 0;
      DWORD mostBytes = 0;
      const TextsByName held = Values(*path);
      for (const auto& [name, text] : held) {
        longestValueName = std::max(longestValueName, name.size());
        mostBytes = std::max(mostBytes, BytesOf(text));
      }
      Set(subKeys, names.size());
      Set(maxSubKeyLength, longestName);
      Set(maxClassLength, 0);
      Set(values, held.size());
      Set(maxValueNameLength, longestValueName);
      Set(maxValueBytes, mostBytes);
      Set(securityDescriptorBytes, 0);
      if (lastWrite != nullptr) *lastWrite = {};
      return ERROR_SUCCESS;
    });
  }

  LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD*, LPWSTR, DWORD*,
                        FILETIME* lastWrite) override {
    const auto keyAndIndex = [&] { return Describe(key, nullptr) + ", " + std::to_string(index); };
    return CodeCall<LSTATUS>(machine_, "RegEnumKeyExW", keyAndIndex, [&]() -> DWORD {
      const std::optional<std::wstring> path = PathOf(key, nullptr);
      if (!path) return ERROR_INVALID_HANDLE;
      if (name == nullptr || characters == nullptr) return ERROR_INVALID_PARAMETER;
      const std::vector<std::wstring> names = SubKeys(*path);
      if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
      const std::wstring& subKey = names[index];
      if (*characters < subKey.size() + 1) return ERROR_MORE_DATA;
      CopyWithEnd(subKey, name);
      *characters = static_cast<DWORD>(subKey.size());
      if (lastWrite != nullptr) *lastWrite = {};
      return ERROR_SUCCESS;
    });
  }

  LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                       DWORD* bytes) override {
    const auto keyAndValue = [&] { return Describe(key, subKey) + ", " + Show(value); };
    return CodeCall<LSTATUS>(machine_, "RegGetValueW", keyAndValue, [&]() -> DWORD {
      const std::optional<std::wstring> path = PathOf(key, subKey);
      if (!path) return ERROR_INVALID_HANDLE;
      if (data != nullptr && bytes == nullptr) return ERROR_INVALID_PARAMETER;
      const std::optional<std::wstring> text = ValueAt(*path, value);
      if (!text) return ERROR_FILE_NOT_FOUND;
      if ((flags & RRF_RT_REG_SZ) == 0) return kErrorUnsupportedType;
      Set(type, REG_SZ);
      const DWORD needed = BytesOf(*text);
      const bool fits = data != nullptr && *bytes >= needed;
      if (fits) std::memcpy(data, text->c_str(), needed);
      Set(bytes, needed);
      return data == nullptr || fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
    });
  }

  LSTATUS RegCloseKey(HKEY key) override {
    const auto lock = machine_.Lock();
    const std::string what = machine_.calls.enabled ? Describe(key, nullptr) : std::string();
    const bool closed = key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER || keys_.Close(key, "RegCloseKey");
    return CodeCall<LSTATUS>(machine_, "RegCloseKey", Arguments(what),
                             [&]() -> DWORD { return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
  }

 private:
  using TextsByName = std::map<std::wstring, std::wstring>;

  std::optional<std::wstring> PathOf(HKEY key, LPCWSTR subKey) {
    std::wstring path;
    if (key == HKEY_LOCAL_MACHINE) {
      path = kLocalMachine;
    } else if (key == HKEY_CURRENT_USER) {
      path = kCurrentUser;
    } else if (const std::wstring* open = keys_.Find(key)) {
      path = *open;
    } else {
      return std::nullopt;
    }
    if (subKey != nullptr && *subKey != L'\0') path.append(L"\\").append(subKey);
    while (path.ends_with(L'\\')) path.pop_back();
    return path;
  }

  std::string Describe(HKEY key, LPCWSTR subKey) {
    const std::optional<std::wstring> path = PathOf(key, subKey);
    return path ? Show(*path) : "not open";
  }

  bool Exists(std::wstring_view path) const {
    const auto& registry = model().registry;
    return IsRoot(path) || std::any_of(registry.begin(), registry.end(), [&](const auto& key) {
             return ascii::EqualIgnoringCase(key.first, path) || !Below(key.first, path).empty();
           });
  }

  std::vector<std::wstring> SubKeys(std::wstring_view path) const {
    std::set<std::wstring, ascii::LessIgnoringCase> names;
    for (const auto& [key, values] : model().registry) {
      const std::wstring_view below = Below(key, path);
      if (!below.empty()) names.emplace(below.substr(0, below.find(L'\\')));
    }
    return {names.begin(), names.end()};
  }

  TextsByName Values(std::wstring_view path) const {
    for (const auto& [key, values] : model().registry) {
      if (ascii::EqualIgnoringCase(key, path)) return values;
    }
    return {};
  }

  std::optional<std::wstring> ValueAt(std::wstring_view path, LPCWSTR value) const {
    for (const auto& [name, text] : Values(path)) {
      if (ascii::EqualIgnoringCase(name, value == nullptr ? L"" : value)) return text;
    }
    return std::nullopt;
  }

  HandleTable<std::wstring> keys_;  // the full path of each open key
};

}  // namespace

std::unique_ptr<Registry> MakeRegistry(Machine& machine) {
  return std::make_unique<SimulatedRegistry>(machine);
}

}  // namespace varnel::simulator
