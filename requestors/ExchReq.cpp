#include "requestors/ExchReq.h"

#include <algorithm>
#include <array>

#include "core/configuration.h"
#include "core/logging.h"
#include "platform/host.h"
#include "platform/owners.h"

using TesselCommonClasses::UtilityClass;

namespace {

constexpr varnel::Logger kLog(L"ExchReq");

constexpr long kVersionKeyNotFound = 774;

bool Contains(const std::wstring& text, const wchar_t* part) {
  return text.find(part) != std::wstring::npos;
}

std::wstring Quoted(const std::wstring& text) {
  return L"\"" + text + L"\"";
}

// "v15", "V8": never "v05" or "Setup".
bool IsVersionName(const std::wstring& name) {
  return name.size() >= 2 && (name[0] == L'v' || name[0] == L'V') && name[1] >= L'1' && name[1] <= L'9';
}

LSTATUS ReadSubKeyName(HKEY key, DWORD index, std::wstring& name) {
  constexpr DWORD kCharacters = 256;
  std::array<wchar_t, kCharacters> buffer{};
  DWORD characters = kCharacters;
  const LSTATUS code = varnel::CurrentHost().registry().RegEnumKeyExW(key, index, buffer.data(), &characters, nullptr,
                                                                      nullptr, nullptr, nullptr);
  name.assign(buffer.begin(), std::find(buffer.begin(), buffer.end(), L'\0'));
  return code;
}

[[noreturn]] void ThrowVerificationFailure(CVarnel& requestor, long hr) {
  std::wstring text;
  requestor.GetErrorString(hr, text);
  throw VarnelException(VarnelException::VerificationFailure, text);
}

}  // namespace

ExchangeReq::ExchangeReq(DWORD testPoints) : ExchangeReq(testPoints, false) {}

ExchangeReq::ExchangeReq(DWORD testPoints, bool flag) : CVarnel(testPoints), m_flag(flag ? 1 : 0) {}

ExchangeReq::~ExchangeReq() = default;

void ExchangeReq::SetSkipDBVerification() {
  m_skipDBVerification = 1;
}

bool ExchangeReq::IsWriterEligible(VssWriter& writer) {
  const bool eligible = writer.writerId == varnel::kExchangeWriterId;
  if (eligible) {
    kLog.Info(L"Found Exchange writer %s ", writer.name);
  } else {
    kLog.Verbose(L"Writer %s is not an exchange writer ", writer.name);
  }
  return eligible;
}

void ExchangeReq::GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) {
  info.appObjectName = component.caption;
  info.appObjectId = component.fullPath;
  if (info.appObjectName.empty()) {
    kLog.Error(L"Unexcpected app object name in Exchange requester! The component caption was empty.");
    info.appObjectName = varnel::kUnknown;
  }
  if (info.appObjectId.empty()) {
    kLog.Error(L"Unexcpected app object id in Exchange requester! The component full path was empty.");
    info.appObjectId = varnel::kUnknown;
  }
}

void ExchangeReq::VerifyComponentFile(VssFileDescriptor& file) {
  if ((m_testPoints & varnel::kTestPointFailFileVerification) != 0) {
    kLog.Error(L"***Testpoint enabled. Throwing error from ExchangeReq::VerifyComponentFile***");
    ThrowVerificationFailure(*this, E_UNEXPECTED);
  }
  std::wstring arguments;
  if (Contains(file.filespec, L".log")) {
    BuildVerificationArgsForLogs(file, arguments);
  } else if (Contains(file.filespec, L".edb")) {
    if (m_skipDBVerification != 0) {
      std::wstring path;
      GetVerificationFilePathForEDB(file, path);
      kLog.Info(L"Skipping verification for: %s ", path);
      return;
    }
    BuildVerificationArgsForEDBs(file, arguments);
  } else {
    if (!Contains(file.filespec, L".chk")) kLog.Error(L"Invalid file descriptor %s ", file.filespec);
    return;
  }
  try {
    try {
      ExecCommand(varnel::kDatabaseChecker + arguments);
    } catch (long hr) {
      // Plain codes only. ExecCommand throws HRESULTs, so a utility that is not on the search path is a failed check.
      if (hr != ERROR_FILE_NOT_FOUND && hr != ERROR_PATH_NOT_FOUND) throw;
      kLog.Info(
          L"Since the verification utility is not found by system we attempt to find a full path of the installed MS "
          L"Exchange and call the utiliy with full path.");
      std::wstring folder;
      if (const long code = FindExchangeServerBinFolder(folder); code != ERROR_SUCCESS) throw long{code};
      ExecCommand(Quoted(folder + varnel::kDatabaseChecker) + arguments);
    }
  } catch (long hr) {
    ThrowVerificationFailure(*this, hr);
  }
}

// The base name of a set of logs, such as "E00" of "E00*.log": the utility checks all of them.
void ExchangeReq::BuildVerificationArgsForLogs(const VssFileDescriptor& file, std::wstring& args) {
  const std::wstring baseName = file.filespec.substr(0, file.filespec.find(L'*'));
  args = std::wstring(L" ") + varnel::kLogCheckerSwitch + L" " +
         Quoted(UtilityClass::AppendBackslash(file.snapshotDeviceName) + L"\\" + file.pathOnVolume + L"\\" + baseName);
}

void ExchangeReq::BuildVerificationArgsForEDBs(const VssFileDescriptor& file, std::wstring& args) {
  std::wstring path;
  GetVerificationFilePathForEDB(file, path);
  args = std::wstring(L" ") + varnel::kDatabaseCheckerSwitches + L" " + path;
}

void ExchangeReq::GetVerificationFilePathForEDB(const VssFileDescriptor& file, std::wstring& path) {
  path = Quoted(UtilityClass::AppendBackslash(file.snapshotDeviceName) + file.pathOnVolume + L"\\" + file.filespec);
}

long ExchangeReq::FindExchangeServerBinFolder(std::wstring& folder) {
  folder.clear();
  std::wstring errorText;
  varnel::RegistryKey exchangeKey;
  varnel::RegistryKey versionKey;
  long code = varnel::CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, varnel::kExchangeInstallKey, 0,
                                                             KEY_READ, exchangeKey.Put());
  if (code == ERROR_SUCCESS) code = FindVersionSubKey(exchangeKey.Get(), *versionKey.Put(), errorText);
  if (code != ERROR_SUCCESS) {
    kLog.Error(L"Failed to find Exchange Server setup folder. Error code: 0x%X. %s.", code, errorText);
    return varnel::HResultFromWin32(static_cast<DWORD>(code));
  }
  std::wstring installPath;
  GetSetupInstallPathByVersionKey(versionKey.Get(), installPath, errorText);
  if (installPath.empty()) {
    kLog.Info(L"MS Exchange installation path is not found in the registry.");
    return ERROR_PATH_NOT_FOUND;
  }
  if (installPath.back() != L'\\' && installPath.back() != L'/') installPath += L'\\';
  folder = installPath + L"Bin\\";
  return ERROR_SUCCESS;
}

long ExchangeReq::FindVersionSubKey(HKEY parent, HKEY& versionKey, std::wstring& errorText) {
  varnel::Registry& registry = varnel::CurrentHost().registry();
  errorText = L"Error in finding Exchange version key.";
  DWORD subKeys = 0;
  if (const LSTATUS code = registry.RegQueryInfoKeyW(parent, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr,
                                                     nullptr, nullptr, nullptr, nullptr, nullptr)) {
    errorText += L" Failed quering info for Exchange Server key.";
    return code;
  }
  if (subKeys == 0) {
    errorText += L" Exchange Server key does not have subkeys.";
    return kVersionKeyNotFound;
  }
  for (DWORD index = 0; index < subKeys; ++index) {
    std::wstring name;
    if (const LSTATUS code = ReadSubKeyName(parent, index, name)) {
      errorText += L" Failed to retrieve subkey.";
      return code;
    }
    kLog.Info(L"ExchangeServer subkey name #%d is %s.", index, name);
    if (!IsVersionName(name)) continue;
    kLog.Info(L"Found Exchange version %S.", varnel::Narrowed{std::wstring_view(name).substr(1)});
    const LSTATUS code = registry.RegOpenKeyExW(parent, name.c_str(), 0, KEY_READ, &versionKey);
    if (code != ERROR_SUCCESS) errorText += L" Failed to retrieve version key.";
    return code;
  }
  errorText += L" Failed to retrieve version key.";
  return kVersionKeyNotFound;
}

long ExchangeReq::GetSetupInstallPathByVersionKey(HKEY versionKey, std::wstring& installPath,
                                                  std::wstring& /*errorText*/) {
  installPath.clear();
  std::array<wchar_t, 260> buffer{};
  DWORD bytes = sizeof buffer;
  const LSTATUS code = varnel::CurrentHost().registry().RegGetValueW(versionKey, varnel::kExchangeSetupKey,
                                                                     varnel::kExchangeInstallValue, RRF_RT_REG_SZ,
                                                                     nullptr, buffer.data(), &bytes);
  if (code != ERROR_SUCCESS) {
    kLog.Error(L"Failed retrieving Exchange installation path.");
    return code;
  }
  installPath.assign(buffer.begin(), std::find(buffer.begin(), buffer.end(), L'\0'));
  kLog.Info(L"Exchange inslallation path is \"%s\"", installPath);
  return code;
}
