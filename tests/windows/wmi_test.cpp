// Reading the disks out of an enumeration that behaves as WMI's may, and what is called on WMI's interfaces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/owners.h"
#include "platform/windows/wmi_disks.h"
#include "tests/windows/slot.h"

namespace varnel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A clock that goes forward only where something waits.
class WaitingTime final : public Time {
 public:
  void Sleep(DWORD milliseconds) override { now += milliseconds; }
  ULONGLONG GetTickCount64() override { return now; }
  void GetSystemTimeAsFileTime(FILETIME* time) override { *time = {}; }
  ULONGLONG now = 1'000'000;
};

// The COM part of the fakes: counted, and nothing else can be asked of them.
template <class Interface>
class Fake : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

// One MSFT_Disk instance. Property by property it may be absent, null or of a type of its own.
class FakeDisk final : public Fake<IWbemClassObject> {
 public:
  using Property = std::function<HRESULT(VARIANT&)>;
  explicit FakeDisk(std::map<std::wstring, Property> properties) : properties_(std::move(properties)) {}

  HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) override {
    const auto found = properties_.find(name);
    return found == properties_.end() ? static_cast<HRESULT>(WBEM_E_NOT_FOUND) : found->second(*value);
  }
  HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Put(LPCWSTR, LONG, VARIANT*, CIMTYPE) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Delete(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE EndEnumeration() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetObjectText(LONG, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SpawnDerivedClass(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SpawnInstance(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CompareTo(LONG, IWbemClassObject*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE EndMethodEnumeration() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }

 private:
  std::map<std::wstring, Property> properties_;
};

FakeDisk::Property Text(const wchar_t* text) {
  return [text](VARIANT& value) {
    value.vt = VT_BSTR;
    value.bstrVal = ::SysAllocString(text);
    return S_OK;
  };
}
FakeDisk::Property Number(LONG number) {
  return [number](VARIANT& value) {
    value.vt = VT_I4;
    value.lVal = number;
    return S_OK;
  };
}
FakeDisk::Property Flag(bool flag) {
  return [flag](VARIANT& value) {
    value.vt = VT_BOOL;
    value.boolVal = flag ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  };
}

// Answers one question after the other, and the last answer ever after.
class FakeEnumeration final : public Fake<IEnumWbemClassObject> {
 public:
  struct Answer {
    HRESULT result;
    FakeDisk* disk = nullptr;
    ULONGLONG takes = 0;
  };
  FakeEnumeration(WaitingTime& time, std::vector<Answer> answers) : time_(time), answers_(std::move(answers)) {}

  HRESULT STDMETHODCALLTYPE Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) override {
    const Answer answer = answers_.at(std::min(asked++, answers_.size() - 1));
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(timeout, windows::kWmiSlice) << "waits without a bound";
    time_.now += answer.result == WBEM_S_TIMEDOUT ? static_cast<ULONGLONG>(timeout) : answer.takes;
    *returned = answer.disk == nullptr ? 0 : 1;
    *objects = answer.disk;
    if (answer.disk != nullptr) answer.disk->AddRef();
    return answer.result;
  }
  HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE NextAsync(ULONG, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IEnumWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Skip(LONG, ULONG) override { return E_NOTIMPL; }
  std::size_t asked = 0;

 private:
  WaitingTime& time_;
  std::vector<Answer> answers_;
};

class WmiDisksTest : public testing::Test {
 protected:
  HRESULT Read(std::vector<FakeEnumeration::Answer> answers) {
    FakeEnumeration objects(time_, std::move(answers));
    const HRESULT hr = windows::ReadDisks(objects, time_, disks_);
    asked_ = objects.asked;
    EXPECT_EQ(objects.references, 1u);
    EXPECT_EQ(first_.references, 1u);
    EXPECT_EQ(second_.references, 1u);
    return hr;
  }
  std::vector<std::wstring> SerialNumbers() const {
    std::vector<std::wstring> numbers;
    for (const WmiDisk& disk : disks_) numbers.push_back(disk.serialNumber);
    return numbers;
  }

  WaitingTime time_;
  FakeDisk first_{{{L"Number", Number(7)},
                   {L"SerialNumber", Text(L"TSL0007")},
                   {L"Manufacturer", Text(L"Tessel  ")},
                   {L"IsSystem", Flag(true)},
                   {L"IsClustered", Flag(true)}}};
  FakeDisk second_{{{L"Number", Text(L"7")}, {L"SerialNumber", Text(L"TSL0008")}, {L"IsSystem", Number(1)}}};
  std::vector<WmiDisk> disks_;
  std::size_t asked_ = 0;
};

TEST_F(WmiDisksTest, AreReadToTheEnd) {
  EXPECT_EQ(Read({{S_OK, &first_}, {S_OK, &second_}, {WBEM_S_FALSE}}), S_OK);
  EXPECT_THAT(SerialNumbers(), ElementsAre(L"TSL0007", L"TSL0008"));
}

TEST_F(WmiDisksTest, HaveTheirPropertiesAndTheEmptyValueOfWhatIsMissingOrOfAnotherType) {
  ASSERT_EQ(Read({{S_OK, &first_}, {S_OK, &second_}, {WBEM_S_FALSE}}), S_OK);
  EXPECT_EQ(disks_[0].number, 7u);
  EXPECT_EQ(disks_[0].manufacturer, L"Tessel  ");
  EXPECT_TRUE(disks_[0].isSystem && disks_[0].isClustered);
  EXPECT_EQ(disks_[1].number, 0u);
  EXPECT_EQ(disks_[1].manufacturer, L"");
  EXPECT_FALSE(disks_[1].isSystem || disks_[1].isClustered);
}

TEST_F(WmiDisksTest, ThatAreNotReadyYetAreWaitedFor) {
  EXPECT_EQ(Read({{WBEM_S_TIMEDOUT}, {S_OK, &first_}, {WBEM_S_TIMEDOUT}, {S_OK, &second_}, {WBEM_S_FALSE}}), S_OK);
  EXPECT_THAT(SerialNumbers(), ElementsAre(L"TSL0007", L"TSL0008"));
}

TEST_F(WmiDisksTest, AreNoneWhenTheEnumerationFailsOnTheWay) {
  constexpr auto kFailure = static_cast<HRESULT>(WBEM_E_TRANSPORT_FAILURE);
  EXPECT_EQ(Read({{S_OK, &first_}, {kFailure}}), kFailure);
  EXPECT_THAT(disks_, IsEmpty());
}

TEST_F(WmiDisksTest, OfAProviderThatHangsAreATimeoutAfterTwoMinutes) {
  const ULONGLONG start = time_.now;
  EXPECT_EQ(Read({{S_OK, &first_}, {WBEM_S_TIMEDOUT}}), static_cast<HRESULT>(0x800705B4));
  EXPECT_THAT(disks_, IsEmpty());
  EXPECT_EQ(time_.now - start, windows::kWmiPatience);
  EXPECT_EQ(asked_, 121u);
}

TEST_F(WmiDisksTest, ThatNeverEndAreATimeoutToo) {
  EXPECT_EQ(Read({{S_OK, &first_, 500}}), static_cast<HRESULT>(0x800705B4));
  EXPECT_THAT(disks_, IsEmpty());
  EXPECT_EQ(asked_, 240u);
}

TEST(WmiInterfaces, HaveWhatIsCalledInThePublishedSlots) {
  EXPECT_EQ(SlotOf(&IWbemLocator::ConnectServer), 3u);
  EXPECT_EQ(SlotOf(&IWbemServices::ExecQuery), 20u);
  EXPECT_EQ(SlotOf(&IEnumWbemClassObject::Next), 4u);
  EXPECT_EQ(SlotOf(&IWbemClassObject::Get), 4u);
  EXPECT_EQ(CLSID_WbemLocator, ParseGuid<GUID>("{4590f811-1d3a-11d0-891f-00aa004b2e24}"));
  EXPECT_EQ(IID_IWbemLocator, ParseGuid<GUID>("{dc12a687-737f-11cf-884d-00aa004b2e24}"));
  EXPECT_EQ(WBEM_S_TIMEDOUT, 0x40004);
  EXPECT_EQ(WBEM_FLAG_CONNECT_USE_MAX_WAIT, 0x80);
  EXPECT_EQ(WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, 0x30);
}

}  // namespace
}  // namespace varnel::test
