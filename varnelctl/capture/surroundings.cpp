#include <algorithm>
#include <array>
#include <set>

#include "core/configuration.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "simulator/machine/result_names.h"
#include "simulator/services/simulated_system.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/capture/questions.h"
#include "varnelctl/exchange_installation.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/program_search.h"

namespace varnelctl::capture {
namespace {

using varnel::CurrentHost;
using varnel::WideToUtf8Lossy;
using varnel::simulator::FileSpec;
using varnel::simulator::HostModel;
using varnel::simulator::Writer;
using varnel::simulator::WriterComponent;

using Names = std::set<std::wstring, varnel::ascii::LessIgnoringCase>;

template <class Visit>
void ForEachFile(const Writer& writer, Visit visit) {
  for (const WriterComponent& component : writer.components) {
    for (const auto* files : {&component.files, &component.databaseFiles, &component.logFiles}) {
      for (const FileSpec& file : *files) visit(file);
    }
  }
  for (const auto* files : {&writer.excludeFiles, &writer.excludeFilesFromSnapshot}) {
    for (const FileSpec& file : *files) visit(file);
  }
}

// The variables in "%ProgramData%\Example".
void AddVariables(std::wstring_view path, Names& names) {
  for (std::size_t at = path.find(L'%'); at != path.npos;) {
    const std::size_t end = path.find(L'%', at + 1);
    if (end == path.npos) return;
    const std::wstring_view name = path.substr(at + 1, end - at - 1);
    const bool isName = !name.empty() && name.find_first_of(L"\\/ =") == name.npos;
    if (isName) names.emplace(name);
    at = isName ? path.find(L'%', end + 1) : end;
  }
}

std::optional<std::wstring> AskVariable(CapturedHost& host, const std::wstring& name) {
  varnel::SystemInformation& system = CurrentHost().system();
  const DWORD room = system.GetEnvironmentVariableW(name.c_str(), nullptr, 0);
  if (room == 0) {
    const DWORD error = CurrentHost().GetLastError();
    if (error != ERROR_ENVVAR_NOT_FOUND) NoteError(host, "GetEnvironmentVariableW", WideToUtf8Lossy(name), error);
    return std::nullopt;
  }
  std::wstring value(room, L'\0');
  value.resize(system.GetEnvironmentVariableW(name.c_str(), value.data(), room));
  return value;
}

void AskVariables(CapturedHost& host) {
  Names names = {L"PATH", L"ProgramData", L"SystemDrive", L"SystemRoot", L"windir"};
  for (const Writer& writer : host.model.writers) {
    ForEachFile(writer, [&](const FileSpec& file) {
      AddVariables(file.path, names);
      AddVariables(file.alternatePath, names);
    });
  }
  for (const std::wstring& name : names) {
    const std::optional<std::wstring> value = AskVariable(host, name);
    const auto usual = varnel::simulator::EnvironmentValue(host.model, name);
    if (value && value != usual) host.model.environment[name] = *value;
  }
}

// The only file whose version a requestor asks for.
void AskFileVersions(CapturedHost& host) {
  const std::wstring path = host.model.systemDirectory + L"\\Vmms.exe";
  VS_FIXEDFILEINFO version{};
  if (CurrentHost().files().GetFileVersion(path.c_str(), &version)) {
    host.model.fileVersions[path] =
        varnel::FormatWide(L"%u.%u.%u.%u", {version.dwFileVersionMS >> 16, version.dwFileVersionMS & 0xFFFF,
                                            version.dwFileVersionLS >> 16, version.dwFileVersionLS & 0xFFFF});
  } else if (const DWORD error = CurrentHost().GetLastError();
             error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
    NoteLastError(host, "GetFileVersionInfoW", WideToUtf8Lossy(path));
  }
}

void AskInstallPath(CapturedHost& host, HKEY exchange, const std::wstring& version, const std::wstring& root) {
  std::array<wchar_t, 1024> path{};
  DWORD bytes = sizeof path;
  const std::wstring setup = version + L"\\" + varnel::kExchangeSetupKey;
  const LSTATUS code = CurrentHost().registry().RegGetValueW(exchange, setup.c_str(), varnel::kExchangeInstallValue,
                                                             RRF_RT_REG_SZ, nullptr, path.data(), &bytes);
  if (code == ERROR_SUCCESS) {
    host.model.registry[root + L"\\" + setup][varnel::kExchangeInstallValue] = path.data();
    return;
  }
  host.model.registry[root + L"\\" + version];
  if (code != ERROR_FILE_NOT_FOUND) {
    NoteError(host, "RegGetValueW", WideToUtf8Lossy(root + L"\\" + setup), static_cast<DWORD>(code));
  }
}

void AskRegistry(CapturedHost& host) {
  const std::wstring root = std::wstring(L"HKEY_LOCAL_MACHINE\\") + varnel::kExchangeInstallKey;
  varnel::Registry& registry = CurrentHost().registry();
  varnel::RegistryKey exchange;
  const LSTATUS opened =
      registry.RegOpenKeyExW(HKEY_LOCAL_MACHINE, varnel::kExchangeInstallKey, 0, KEY_READ, exchange.Put());
  if (opened == ERROR_FILE_NOT_FOUND) return;
  if (opened != ERROR_SUCCESS) {
    return NoteError(host, "RegOpenKeyExW", WideToUtf8Lossy(root), static_cast<DWORD>(opened));
  }
  for (DWORD index = 0;; ++index) {
    std::array<wchar_t, 256> name{};
    DWORD characters = name.size();
    const LSTATUS code =
        registry.RegEnumKeyExW(exchange.Get(), index, name.data(), &characters, nullptr, nullptr, nullptr, nullptr);
    if (code != ERROR_SUCCESS) {
      if (code != ERROR_NO_MORE_ITEMS) {
        NoteError(host, "RegEnumKeyExW", WideToUtf8Lossy(root), static_cast<DWORD>(code));
      }
      if (index == 0) host.model.registry[root];
      return;
    }
    AskInstallPath(host, exchange.Get(), name.data(), root);
  }
}

void AddChecker(CapturedHost& host, LPCWSTR path) {
  std::array<wchar_t, 1024> found{};
  const DWORD length = CurrentHost().processes().SearchPathW(path, varnel::kDatabaseChecker, nullptr,
                                                             static_cast<DWORD>(found.size()), found.data(), nullptr);
  if (length == 0 || length >= found.size()) {
    const DWORD error = CurrentHost().GetLastError();
    if (length == 0 && error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
      NoteError(host, "SearchPathW", WideToUtf8Lossy(varnel::kDatabaseChecker), error);
    }
    return;
  }
  const std::wstring_view whole(found.data(), length);
  const std::wstring folder(whole.substr(0, whole.find_last_of(L'\\')));
  const auto same = [&](const varnel::simulator::Command& known) {
    return varnel::ascii::EqualIgnoringCase(known.folder, folder);
  };
  auto& commands = host.model.commands;
  if (std::any_of(commands.begin(), commands.end(), same)) return;
  commands.push_back({std::wstring(varnel::kDatabaseChecker) + L" *", 0, folder});
}

// Where a snapshot would find the checker: it is not run.
void AskPrograms(CapturedHost& host) {
  const std::wstring folder = ExchangeProgramFolder();
  try {
    const ProgramSearch search{L""};
    AddChecker(host, nullptr);
  } catch (const CallFailure& failure) {
    NoteFailure(host, failure.what(), "", failure.hresult());
  }
  if (!folder.empty()) AddChecker(host, folder.c_str());
}

// The servers that databases are said to be on, and the host itself.
Names NamesOfServers(const HostModel& model) {
  Names names = {model.computerName};
  for (const auto& [serial, databases] : model.databases) {
    std::wstring_view rest = databases;
    while (!rest.empty()) {
      const std::wstring_view entry = rest.substr(0, rest.find(L'\t'));
      rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
      if (const std::size_t at = entry.find(L'@'); at != entry.npos) names.emplace(entry.substr(at + 1));
    }
  }
  for (const Writer& writer : model.writers) {
    for (const WriterComponent& component : writer.components) {
      const std::wstring path = component.logicalPath.value_or(L"");
      if (!path.empty()) names.emplace(path.substr(0, path.find(L'\\')));
    }
  }
  return names;
}

void AskNetworkNames(CapturedHost& host) {
  if (!host.model.cluster) return;
  for (const std::wstring& name : NamesOfServers(host.model)) {
    try {
      const std::string known = CurrentHost().metadata().GetClusterName(WideToUtf8Lossy(name));
      host.model.cluster->networkNames[name] = varnel::Utf8ToWideLossy(known);
    } catch (const std::runtime_error&) {
      // The cluster has no such name.
    }
  }
}

std::optional<std::wstring> MessageText(DWORD code, const varnel::Module* module) {
  const DWORD where = module == nullptr ? DWORD{FORMAT_MESSAGE_FROM_SYSTEM} : DWORD{FORMAT_MESSAGE_FROM_HMODULE};
  std::array<wchar_t, 4096> text{};
  const DWORD length = CurrentHost().messages().FormatMessageW(where | FORMAT_MESSAGE_IGNORE_INSERTS,
                                                               module == nullptr ? nullptr : module->Get(), code, 0,
                                                               text.data(), static_cast<DWORD>(text.size()), nullptr);
  return length == 0 ? std::nullopt : std::optional(std::wstring(text.data(), length));
}

// Of what the library calls and of the exit codes of programs; the other codes have names.
constexpr DWORD kWin32Codes[] = {1,  2,   3,   5,   6,   8,   13,  14,  21,   32,  50,
                                 87, 122, 123, 126, 183, 206, 234, 259, 1168, 1450};

// HRESULTs of Win32 codes have the codes' texts, in a host file too.
std::map<DWORD, std::wstring> AskTexts(const varnel::Module* module) {
  std::map<DWORD, std::wstring> texts;
  std::vector<DWORD> codes(std::begin(kWin32Codes), std::end(kWin32Codes));
  for (const std::string_view name : varnel::simulator::ResultNames()) {
    codes.push_back(varnel::simulator::ParseResult(name).value_or(0));
  }
  for (const DWORD code : codes) {
    const std::optional<std::wstring> text = MessageText(code, module);
    if (!text) continue;
    const bool isOfWin32 = (code & 0xFFFF0000) == 0x80070000;
    texts[isOfWin32 ? code & 0xFFFF : code] = *text;
  }
  return texts;
}

}  // namespace

void AskSurroundings(CapturedHost& host) {
  AskVariables(host);
  AskFileVersions(host);
  AskRegistry(host);
  AskPrograms(host);
  AskNetworkNames(host);
}

void AskMessages(CapturedHost& host) {
  host.model.messages = AskTexts(nullptr);
  const varnel::Module service(CurrentHost().messages().LoadLibraryW(L"vsstrace.dll"));
  if (service) host.model.vssMessages = AskTexts(&service);
}

}  // namespace varnelctl::capture
