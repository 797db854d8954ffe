#include <algorithm>
#include <cstring>
#include <set>

#include "simulator/host_file/text.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/services.h"

namespace varnel::simulator {
namespace {

constexpr std::wstring_view kLocalMachine = L"HKEY_LOCAL_MACHINE";
constexpr std::wstring_view kCurrentUser = L"HKEY_CURRENT_USER";

bool IsRoot(std::wstring_view path) {
  return EqualsIgnoringCase(path, kLocalMachine) || EqualsIgnoringCase(path, kCurrentUser);
}

// What follows `path` and a backslash in `key`; empty when `key` does not lie below `path`.
std::wstring_view Below(std::wstring_view key, std::wstring_view path) {
  if (key.size() <= path.size() + 1 || key[path.size()] != L'\\') return {};
  return StartsWithIgnoringCase(key, path) ? key.substr(path.size() + 1) : std::wstring_view();
}

template <class Value>
void Set(Value* target, std::size_t value) {
  if (target != nullptr) *target = static_cast<Value>(value);
}

DWORD BytesOf(std::wstring_view text) {
  return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

}  // namespace

std::optional<std::wstring> SimulatedRegistry::PathOf(HKEY key, LPCWSTR subKey) {
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

std::string SimulatedRegistry::Describe(HKEY key, LPCWSTR subKey) {
  const std::optional<std::wstring> path = PathOf(key, subKey);
  return path ? Show(*path) : "not open";
}

bool SimulatedRegistry::Exists(std::wstring_view path) const {
  const auto& registry = machine_.model.registry;
  return IsRoot(path) || std::any_of(registry.begin(), registry.end(), [&](const auto& key) {
           return EqualsIgnoringCase(key.first, path) || !Below(key.first, path).empty();
         });
}

std::vector<std::wstring> SimulatedRegistry::SubKeys(std::wstring_view path) const {
  std::set<std::wstring, LessIgnoringCase> names;
  for (const auto& [key, values] : machine_.model.registry) {
    const std::wstring_view below = Below(key, path);
    if (!below.empty()) names.emplace(below.substr(0, below.find(L'\\')));
  }
  return {names.begin(), names.end()};
}

const std::map<std::wstring, std::wstring>* SimulatedRegistry::Values(std::wstring_view path) const {
  for (const auto& [key, values] : machine_.model.registry) {
    if (EqualsIgnoringCase(key, path)) return &values;
  }
  return nullptr;
}

const std::wstring* SimulatedRegistry::ValueAt(std::wstring_view path, LPCWSTR value) const {
  const std::map<std::wstring, std::wstring>* values = Values(path);
  if (values == nullptr) return nullptr;
  for (const auto& [name, text] : *values) {
    if (EqualsIgnoringCase(name, value == nullptr ? L"" : value)) return &text;
  }
  return nullptr;
}

LSTATUS SimulatedRegistry::RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM, HKEY* result) {
  return CodeCall<LSTATUS>(
      machine_, "RegOpenKeyExW", [&] { return Describe(key, subKey); },
      [&]() -> DWORD {
        std::optional<std::wstring> path = PathOf(key, subKey);
        if (!path) return ERROR_INVALID_HANDLE;
        if (result == nullptr) return ERROR_INVALID_PARAMETER;
        if (!Exists(*path)) return ERROR_FILE_NOT_FOUND;
        *result = static_cast<HKEY>(keys_.Open("registry key", std::move(*path)));
        return ERROR_SUCCESS;
      });
}

LSTATUS SimulatedRegistry::RegQueryInfoKeyW(HKEY key, LPWSTR, DWORD*, DWORD*, DWORD* subKeys, DWORD* maxSubKeyLength,
                                            DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                                            DWORD* maxValueBytes, DWORD* securityDescriptorBytes, FILETIME* lastWrite) {
  return CodeCall<LSTATUS>(
      machine_, "RegQueryInfoKeyW", [&] { return Describe(key, nullptr); },
      [&]() -> DWORD {
        const std::optional<std::wstring> path = PathOf(key, nullptr);
        if (!path) return ERROR_INVALID_HANDLE;
        const std::vector<std::wstring> names = SubKeys(*path);
        std::size_t longestName = 0;
        for (const std::wstring& name : names) longestName = std::max(longestName, name.size());
        std::size_t longestValueName = 0;
        std::size_t mostBytes = 0;
        const std::map<std::wstring, std::wstring>* held = Values(*path);
        if (held != nullptr) {
          for (const auto& [name, text] : *held) {
            longestValueName = std::max(longestValueName, name.size());
            mostBytes = std::max<std::size_t>(mostBytes, BytesOf(text));
          }
        }
        Set(subKeys, names.size());
        Set(maxSubKeyLength, longestName);
        Set(maxClassLength, 0);
        Set(values, held == nullptr ? 0 : held->size());
        Set(maxValueNameLength, longestValueName);
        Set(maxValueBytes, mostBytes);
        Set(securityDescriptorBytes, 0);
        if (lastWrite != nullptr) *lastWrite = {};
        return ERROR_SUCCESS;
      });
}

LSTATUS SimulatedRegistry::RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* characters, DWORD*, LPWSTR, DWORD*,
                                         FILETIME* lastWrite) {
  return CodeCall<LSTATUS>(
      machine_, "RegEnumKeyExW", [&] { return Describe(key, nullptr) + ", " + std::to_string(index); },
      [&]() -> DWORD {
        const std::optional<std::wstring> path = PathOf(key, nullptr);
        if (!path) return ERROR_INVALID_HANDLE;
        if (name == nullptr || characters == nullptr) return ERROR_INVALID_PARAMETER;
        const std::vector<std::wstring> names = SubKeys(*path);
        if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
        const std::wstring& subKey = names[index];
        if (*characters < subKey.size() + 1) return ERROR_MORE_DATA;
        subKey.copy(name, subKey.size());
        name[subKey.size()] = L'\0';
        *characters = static_cast<DWORD>(subKey.size());
        if (lastWrite != nullptr) *lastWrite = {};
        return ERROR_SUCCESS;
      });
}

LSTATUS SimulatedRegistry::RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, DWORD* type, void* data,
                                        DWORD* bytes) {
  return CodeCall<LSTATUS>(
      machine_, "RegGetValueW", [&] { return Describe(key, subKey) + ", " + Show(value); },
      [&]() -> DWORD {
        const std::optional<std::wstring> path = PathOf(key, subKey);
        if (!path) return ERROR_INVALID_HANDLE;
        if (data != nullptr && bytes == nullptr) return ERROR_INVALID_PARAMETER;
        const std::wstring* text = ValueAt(*path, value);
        if (text == nullptr) return ERROR_FILE_NOT_FOUND;
        if ((flags & RRF_RT_REG_SZ) == 0) return kErrorUnsupportedType;
        Set(type, REG_SZ);
        const DWORD needed = BytesOf(*text);
        const bool fits = data != nullptr && *bytes >= needed;
        if (fits) std::memcpy(data, text->c_str(), needed);
        Set(bytes, needed);
        return data == nullptr || fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
      });
}

LSTATUS SimulatedRegistry::RegCloseKey(HKEY key) {
  const std::string what = machine_.calls.enabled ? Describe(key, nullptr) : std::string();
  const bool closed = key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER || keys_.Close(key, "RegCloseKey");
  return CodeCall<LSTATUS>(
      machine_, "RegCloseKey", [&] { return what; },
      [&]() -> DWORD { return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}

}  // namespace varnel::simulator
