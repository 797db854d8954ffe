#include "varnelctl/exchange_installation.h"

#include <array>

#include "core/configuration.h"
#include "platform/host.h"
#include "platform/owners.h"

namespace varnelctl {
namespace {

// "v15", "V8": never "v05" or "Setup".
bool IsVersionName(const std::wstring& name) {
  return name.size() >= 2 && (name[0] == L'v' || name[0] == L'V') && name[1] >= L'1' && name[1] <= L'9';
}

// The first of the versions; empty without one.
std::wstring VersionName(HKEY exchange) {
  for (DWORD index = 0;; ++index) {
    std::array<wchar_t, 256> buffer{};
    DWORD characters = buffer.size();
    if (varnel::CurrentHost().registry().RegEnumKeyExW(exchange, index, buffer.data(), &characters, nullptr, nullptr,
                                                       nullptr, nullptr) != ERROR_SUCCESS) {
      return {};
    }
    if (std::wstring name = buffer.data(); IsVersionName(name)) return name;
  }
}

}  // namespace

std::wstring ExchangeProgramFolder() {
  varnel::Registry& registry = varnel::CurrentHost().registry();
  varnel::RegistryKey exchange;
  if (registry.RegOpenKeyExW(HKEY_LOCAL_MACHINE, varnel::kExchangeInstallKey, 0, KEY_READ, exchange.Put()) !=
      ERROR_SUCCESS) {
    return {};
  }
  const std::wstring version = VersionName(exchange.Get());
  const std::wstring setup = version + L"\\" + varnel::kExchangeSetupKey;
  std::array<wchar_t, MAX_PATH> path{};
  DWORD bytes = sizeof path;
  if (version.empty() || registry.RegGetValueW(exchange.Get(), setup.c_str(), varnel::kExchangeInstallValue,
                                               RRF_RT_REG_SZ, nullptr, path.data(), &bytes) != ERROR_SUCCESS) {
    return {};
  }
  std::wstring folder = path.data();
  if (folder.empty()) return folder;
  if (folder.back() != L'\\' && folder.back() != L'/') folder += L'\\';
  return folder + L"Bin\\";
}

}  // namespace varnelctl
