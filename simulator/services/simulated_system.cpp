#include "simulator/services/simulated_system.h"

#include <algorithm>

#include "simulator/machine/version.h"
#include "simulator/machine/win32_codes.h"
#include "simulator/services/on_machine.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr DWORD kBitsPerCondition = 3;
constexpr DWORD kConditionBits = 7;
constexpr DWORD kVerPlatformId = 0x8;
constexpr DWORD kVerSuiteName = 0x40;
constexpr DWORD kPlatformNt = 2;

// Where the condition of each type stands in a condition mask, in the order in which VerSetConditionMask looks at a
// type mask.
constexpr std::pair<DWORD, DWORD> kConditionPlaces[] = {
    {VER_PRODUCT_TYPE, 7}, {kVerSuiteName, 6},    {kVerPlatformId, 3},       {VER_BUILDNUMBER, 2},
    {VER_MAJORVERSION, 1}, {VER_MINORVERSION, 0}, {VER_SERVICEPACKMAJOR, 5}, {VER_SERVICEPACKMINOR, 4},
};

DWORD ConditionOf(DWORDLONG mask, DWORD type) {
  for (const auto& [candidate, place] : kConditionPlaces) {
    if (candidate == type) return static_cast<DWORD>(mask >> (place * kBitsPerCondition)) & kConditionBits;
  }
  return 0;
}

bool Satisfies(DWORD actual, DWORD wanted, DWORD condition) {
  switch (condition) {
    case VER_EQUAL:
      return actual == wanted;
    case VER_GREATER:
      return actual > wanted;
    case VER_GREATER_EQUAL:
      return actual >= wanted;
    case VER_LESS:
      return actual < wanted;
    case VER_LESS_EQUAL:
      return actual <= wanted;
    default:
      return false;
  }
}

struct VersionPart {
  DWORD type;
  DWORD actual;
  DWORD wanted;
};

// The first part that differs decides by its own condition; equal versions are judged by the last one's.
bool VersionSatisfies(const OperatingSystem& os, const OSVERSIONINFOEXW& wanted, DWORD types, DWORDLONG conditions) {
  const VersionPart parts[] = {
      {VER_MAJORVERSION, os.major, wanted.dwMajorVersion},
      {VER_MINORVERSION, os.minor, wanted.dwMinorVersion},
      {VER_BUILDNUMBER, os.build, wanted.dwBuildNumber},
      {VER_SERVICEPACKMAJOR, os.servicePack, wanted.wServicePackMajor},
      {VER_SERVICEPACKMINOR, 0, wanted.wServicePackMinor},
  };
  bool satisfied = true;
  for (const VersionPart& part : parts) {
    if ((types & part.type) == 0) continue;
    satisfied = Satisfies(part.actual, part.wanted, ConditionOf(conditions, part.type));
    if (part.actual != part.wanted) return satisfied;
  }
  return satisfied;
}

bool ProductSatisfies(const OperatingSystem& os, const OSVERSIONINFOEXW& wanted, DWORD types, DWORDLONG conditions) {
  if ((types & VER_PRODUCT_TYPE) != 0) {
    const DWORD product = os.server ? VER_NT_SERVER : VER_NT_WORKSTATION;
    if (!Satisfies(product, wanted.wProductType, ConditionOf(conditions, VER_PRODUCT_TYPE))) return false;
  }
  return (types & kVerPlatformId) == 0 ||
         Satisfies(kPlatformNt, wanted.dwPlatformId, ConditionOf(conditions, kVerPlatformId));
}

bool HasEveryCondition(DWORD types, DWORDLONG conditions) {
  return std::all_of(std::begin(kConditionPlaces), std::end(kConditionPlaces), [&](const auto& place) {
    return (types & place.first) == 0 || ConditionOf(conditions, place.first) != 0;
  });
}

class SimulatedSystem final : public OnMachine<SystemInformation> {
 public:
  using OnMachine::OnMachine;

  BOOL GetComputerNameW(LPWSTR name, DWORD* characters) override {
    return Win32Call(machine_, "GetComputerNameW", NoArguments, BOOL{FALSE},
                     [&] { return TellName(model().computerName, name, characters, ERROR_BUFFER_OVERFLOW); });
  }

  // The host's short name is the same in NetBIOS and DNS.
  BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR name, DWORD* characters) override {
    return Win32Call(machine_, "GetComputerNameExW", NoArguments, BOOL{FALSE}, [&] {
      const std::wstring& text = format == ComputerNameDnsDomain ? model().domain : model().computerName;
      return TellName(text, name, characters, ERROR_MORE_DATA);
    });
  }

  UINT GetSystemDirectoryW(LPWSTR directory, UINT characters) override {
    return Win32Call(machine_, "GetSystemDirectoryW", NoArguments, UINT{0},
                     [&] { return UINT{Fill(model().systemDirectory, directory, characters)}; });
  }

  DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR target, DWORD characters) override {
    return Win32Call(machine_, "ExpandEnvironmentStringsW", Shown(source), DWORD{0}, [&] {
      if (source == nullptr) return Fail(ERROR_INVALID_PARAMETER, DWORD{0});
      const std::wstring text = ExpandVariables(model(), source);
      if (target != nullptr && characters >= text.size() + 1) CopyWithEnd(text, target);
      return static_cast<DWORD>(text.size() + 1);
    });
  }

  DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD characters) override {
    return Win32Call(machine_, "GetEnvironmentVariableW", Shown(name), DWORD{0}, [&] {
      const std::optional<std::wstring> text = name == nullptr ? std::nullopt : EnvironmentValue(model(), name);
      if (!text) return Fail(ERROR_ENVVAR_NOT_FOUND, DWORD{0});
      return Fill(*text, value, characters);
    });
  }

  BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) override {
    const auto described = [&] { return Show(name) + ", " + Show(value); };
    return Win32Call(machine_, "SetEnvironmentVariableW", described, BOOL{FALSE}, [&] {
      if (name == nullptr || *name == L'\0') return Fail(ERROR_INVALID_PARAMETER);
      auto& environment = machine_.ChangeModel().environment;
      std::erase_if(environment, [&](const auto& known) { return ascii::EqualIgnoringCase(known.first, name); });
      if (value != nullptr) environment.emplace(name, value);
      return TRUE;
    });
  }

  DWORD GetCurrentDirectoryW(DWORD characters, LPWSTR directory) override {
    return Win32Call(machine_, "GetCurrentDirectoryW", NoArguments, DWORD{0},
                     [&] { return Fill(model().currentDirectory, directory, characters); });
  }

  BOOL SetCurrentDirectoryW(LPCWSTR directory) override {
    return Win32Call(machine_, "SetCurrentDirectoryW", Shown(directory), BOOL{FALSE}, [&] {
      if (directory == nullptr || *directory == L'\0') return Fail(ERROR_INVALID_PARAMETER);
      machine_.ChangeModel().currentDirectory = directory;
      return TRUE;
    });
  }

  BOOL VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask) override {
    const auto types = [&] { return ResultName(static_cast<HRESULT>(typeMask)); };
    return Win32Call(machine_, "VerifyVersionInfoW", types, BOOL{FALSE}, [&] {
      const OperatingSystem& os = model().os;
      if (version == nullptr || typeMask == 0 || (typeMask & kVerSuiteName) != 0 ||
          !HasEveryCondition(typeMask, conditionMask)) {
        return Fail(kErrorBadArguments);
      }
      const bool satisfied = VersionSatisfies(os, *version, typeMask, conditionMask) &&
                             ProductSatisfies(os, *version, typeMask, conditionMask);
      return satisfied ? TRUE : Fail(ERROR_OLD_WIN_VERSION);
    });
  }

  ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD typeMask, BYTE condition) override {
    for (const auto& [type, place] : kConditionPlaces) {
      if ((typeMask & type) == 0) continue;
      return conditionMask | static_cast<ULONGLONG>(condition & kConditionBits) << (place * kBitsPerCondition);
    }
    return conditionMask;
  }

 private:
  BOOL TellName(const std::wstring& text, LPWSTR name, DWORD* characters, DWORD noRoom) {
    if (characters == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const bool fits = name != nullptr && *characters >= text.size() + 1;
    *characters = static_cast<DWORD>(fits ? text.size() : text.size() + 1);
    if (!fits) return Fail(noRoom);
    CopyWithEnd(text, name);
    return TRUE;
  }
};

class SimulatedFileVersions final : public OnMachine<FileVersions> {
 public:
  using OnMachine::OnMachine;

  BOOL GetFileVersion(LPCWSTR path, VS_FIXEDFILEINFO* version) override {
    return Win32Call(machine_, "GetFileVersionInfoW", Shown(path), BOOL{FALSE}, [&] {
      if (path == nullptr || version == nullptr) return Fail(ERROR_INVALID_PARAMETER);
      for (const auto& [file, text] : model().fileVersions) {
        if (!ascii::EqualIgnoringCase(file, path)) continue;
        const std::optional<FileVersion> parts = ParseFileVersion(Show(text));
        if (!parts) break;
        return Give((*parts)[0], (*parts)[1], (*parts)[2], (*parts)[3], version);
      }
      return IsKernel(path) ? Give(model().os.major, model().os.minor, model().os.build, 0, version)
                            : Fail(ERROR_FILE_NOT_FOUND);
    });
  }

 private:
  // It has the version of the system.
  bool IsKernel(std::wstring_view path) const {
    return ascii::EqualIgnoringCase(path, model().systemDirectory + L"\\kernel32.dll");
  }
  static BOOL Give(DWORD major, DWORD minor, DWORD build, DWORD revision, VS_FIXEDFILEINFO* version) {
    constexpr DWORD kSignature = 0xFEEF04BD;
    *version = {};
    version->dwSignature = kSignature;
    version->dwFileVersionMS = major << 16 | minor;
    version->dwFileVersionLS = build << 16 | revision;
    return TRUE;
  }
};

}  // namespace

std::optional<std::wstring> EnvironmentValue(const HostModel& model, std::wstring_view name) {
  for (const auto& [variable, value] : model.environment) {
    if (ascii::EqualIgnoringCase(variable, name)) return value;
  }
  const std::wstring& directory = model.systemDirectory;
  const std::wstring drive = directory.substr(0, 2);
  if (ascii::EqualIgnoringCase(name, L"SystemRoot") || ascii::EqualIgnoringCase(name, L"windir")) {
    return directory.substr(0, directory.find_last_of(L'\\'));
  }
  if (ascii::EqualIgnoringCase(name, L"SystemDrive")) return drive;
  if (ascii::EqualIgnoringCase(name, L"ProgramData")) return drive + L"\\ProgramData";
  return std::nullopt;
}

std::wstring ExpandVariables(const HostModel& model, std::wstring_view source) {
  std::wstring text;
  while (!source.empty()) {
    const std::size_t end = source.front() == L'%' ? source.find(L'%', 1) : std::wstring_view::npos;
    const std::optional<std::wstring> value =
        end == std::wstring_view::npos ? std::nullopt : EnvironmentValue(model, source.substr(1, end - 1));
    text += value ? *value : std::wstring(1, source.front());
    source.remove_prefix(value ? end + 1 : 1);
  }
  return text;
}

std::unique_ptr<SystemInformation> MakeSystemInformation(Machine& machine) {
  return std::make_unique<SimulatedSystem>(machine);
}

std::unique_ptr<FileVersions> MakeFileVersions(Machine& machine) {
  return std::make_unique<SimulatedFileVersions>(machine);
}

}  // namespace varnel::simulator
