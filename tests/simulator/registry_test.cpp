// The registry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "tests/support/host_fixture.h"

namespace varnel::simulator {
namespace {

using test::HostFixture;

class RegistryTest : public HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.registry = {{L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exch\\v15\\Setup", {{L"MsiInstallPath", L"C:\\Exchange"}}},
                      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exch\\AdminTools", {}},
                      {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Exchange2", {}}};
    Install(model);
  }
  Registry& registry() { return host().registry(); }
  HKEY Open(const wchar_t* path) {
    HKEY key = nullptr;
    EXPECT_EQ(registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key), LSTATUS{ERROR_SUCCESS});
    return key;
  }
};

TEST_F(RegistryTest, KeysOpenInAnyCaseAndParentsExist) {
  HKEY key = Open(L"software\\EXCH");
  EXPECT_EQ(host().live().Describe(), "1 registry key");
  HKEY child = nullptr;
  EXPECT_EQ(registry().RegOpenKeyExW(key, L"v15", 0, KEY_READ, &child), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegCloseKey(child), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegOpenKeyExW(key, L"v16", 0, KEY_READ, &child), LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Exc", 0, KEY_READ, &child),
            LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(registry().RegCloseKey(HKEY_LOCAL_MACHINE), LSTATUS{ERROR_SUCCESS});
}

TEST_F(RegistryTest, SubKeysAreEnumeratedInSortedOrder) {
  HKEY key = Open(L"SOFTWARE\\Exch");
  DWORD subKeys = 0;
  DWORD longest = 0;
  EXPECT_EQ(registry().RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, &longest, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, nullptr),
            LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(subKeys, 2u);
  EXPECT_EQ(longest, 10u);
  std::array<wchar_t, 256> name{};
  DWORD size = 0;
  const auto enumerate = [&](DWORD index, DWORD room) {
    size = room;
    return registry().RegEnumKeyExW(key, index, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(enumerate(0, 10), LSTATUS{ERROR_MORE_DATA});
  EXPECT_EQ(enumerate(0, 256), LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(name.data(), L"AdminTools");
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(enumerate(1, 256), LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(name.data(), L"v15");
  EXPECT_EQ(enumerate(2, 256), LSTATUS{ERROR_NO_MORE_ITEMS});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
}

TEST_F(RegistryTest, ValuesAreTextWithTheirSizeInBytes) {
  HKEY key = Open(L"SOFTWARE\\Exch\\v15");
  DWORD type = 0;
  DWORD bytes = 0;
  const auto get = [&](const wchar_t* value, DWORD flags, void* data) {
    return registry().RegGetValueW(key, L"setup", value, flags, &type, data, &bytes);
  };
  EXPECT_EQ(get(L"msiinstallpath", RRF_RT_REG_SZ, nullptr), LSTATUS{ERROR_SUCCESS});
  EXPECT_EQ(bytes, 12 * sizeof(wchar_t));
  EXPECT_EQ(type, DWORD{REG_SZ});
  std::array<wchar_t, 260> text{};
  bytes = 4;
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_MORE_DATA});
  EXPECT_EQ(bytes, 12 * sizeof(wchar_t));
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_SUCCESS});
  EXPECT_STREQ(text.data(), L"C:\\Exchange");
  EXPECT_EQ(get(L"MsiInstallPath", RRF_RT_REG_DWORD, text.data()), LSTATUS{1630});
  EXPECT_EQ(get(L"Other", RRF_RT_REG_SZ, text.data()), LSTATUS{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(registry().RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
}

}  // namespace
}  // namespace varnel::simulator
