// Every owner gives back what it holds once, to the host that handed it out.
#include "platform/owners.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/support/host_fixture.h"

namespace varnel {
namespace {

using testing::IsEmpty;

// A COM object that is never destroyed and counts its references.
class Counted : public IUnknown {
 public:
  virtual ~Counted() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
    *object = nullptr;
    if (interfaceId != kIidUnknown) return E_NOINTERFACE;
    AddRef();
    *object = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

HRESULT Make(Counted& object, Counted** result) {
  object.AddRef();
  *result = &object;
  return S_OK;
}

TEST(ComPtr, ReleasesWhatItHolds) {
  Counted object;
  {
    ComPtr<Counted> owner;
    ASSERT_EQ(Make(object, owner.Put()), S_OK);
    EXPECT_TRUE(owner);
    EXPECT_EQ(object.references, 2u);
  }
  EXPECT_EQ(object.references, 1u);
}

TEST(ComPtr, ReleasesTheHeldReferenceBeforeItTakesAnother) {
  Counted first;
  Counted second;
  ComPtr<Counted> owner;
  Make(first, owner.Put());
  Make(second, owner.Put());
  EXPECT_EQ(first.references, 1u);
  EXPECT_EQ(second.references, 2u);
  owner.Reset();
  EXPECT_FALSE(owner);
  EXPECT_EQ(second.references, 1u);
}

TEST(ComPtr, CopiesAddAReferenceAndMovesDoNot) {
  Counted object;
  ComPtr<Counted> owner;
  Make(object, owner.Put());
  ComPtr<Counted> copy = owner;
  EXPECT_EQ(object.references, 3u);
  const ComPtr<Counted> moved = std::move(copy);
  EXPECT_EQ(object.references, 3u);
  owner = owner.Get() == nullptr ? ComPtr<Counted>() : moved;
  EXPECT_EQ(object.references, 3u);
  owner = nullptr;
  EXPECT_EQ(object.references, 2u);
}

TEST(ComPtr, TakesOverAndGivesAwayAReference) {
  Counted object;
  object.AddRef();
  ComPtr<Counted> owner = ComPtr<Counted>::Attach(&object);
  EXPECT_EQ(object.references, 2u);
  EXPECT_EQ(owner.Detach(), &object);
  EXPECT_FALSE(owner);
  EXPECT_EQ(object.references, 2u);
}

TEST(ComPtr, AsksForAnotherInterface) {
  Counted object;
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(QueryFor(&object, kIidUnknown, unknown), S_OK);
  EXPECT_EQ(object.references, 2u);
  ComPtr<IVssAsync> async;
  EXPECT_EQ(QueryFor(&object, kIidVssAsync, async), E_NOINTERFACE);
  EXPECT_FALSE(async);
}

// Its IUnknown is its second base, through which it is released.
class CountedComponents : public IVssWriterComponentsExt {
 public:
  virtual ~CountedComponents() = default;
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* /*count*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* /*instance*/, VSS_ID* /*writer*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT /*index*/, IVssComponent** /*component*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*id*/, void** /*object*/) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

TEST(ComPtr, ReleasesWriterComponentsThroughTheirSecondBase) {
  CountedComponents object;
  {
    const auto owner = ComPtr<IVssWriterComponentsExt>::Attach(&object);
    ComPtr<IVssWriterComponentsExt> copy = owner;
    EXPECT_EQ(object.references, 2u);
    copy.Reset();
    EXPECT_EQ(object.references, 1u);
  }
  EXPECT_EQ(object.references, 0u);
}

class Owners : public test::HostFixture {};

TEST_F(Owners, ABstrIsGivenBackToTheHostThatMadeIt) {
  {
    const Bstr text(L"sales");
    EXPECT_EQ(text.View(), L"sales");
    EXPECT_EQ(host().live().Count("BSTR"), 1);
  }
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(Owners, ABstrIsReadByItsLengthAndANullOneIsEmpty) {
  const Bstr text(std::wstring_view(L"a\0b", 3));
  EXPECT_EQ(text.View().size(), 3u);
  const Bstr none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.View(), L"");
}

TEST_F(Owners, ABstrIsMovedAndReplacedWithoutALeak) {
  Bstr text(L"one");
  Bstr other = std::move(text);
  EXPECT_FALSE(text);  // NOLINT(bugprone-use-after-move): a moved owner is empty
  other = Bstr(L"two");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
  *other.Put() = host().vss().SysAllocStringLen(L"three", 5);
  EXPECT_EQ(other.View(), L"three");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

FileHandle OpenDisk(const wchar_t* name) {
  return FileHandle(CurrentHost().storage().CreateFileW(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST_F(Owners, AFileHandleIsClosedOnce) {
  {
    FileHandle handle = OpenDisk(L"\\\\.\\PhysicalDrive1");
    EXPECT_TRUE(handle);
    const FileHandle moved = std::move(handle);
    EXPECT_FALSE(handle);  // NOLINT(bugprone-use-after-move): a moved owner is empty
    EXPECT_TRUE(moved);
    EXPECT_EQ(host().live().Count(), 1);
  }
  EXPECT_EQ(host().live().Count(), 0);
}

TEST_F(Owners, AFileHandleThatDidNotOpenIsNotClosed) {
  { EXPECT_FALSE(OpenDisk(L"\\\\.\\PhysicalDrive77")); }
  EXPECT_THAT(host().calls().Of("CloseHandle"), IsEmpty());
}

HKEY OpenKey(HKEY* target) {
  EXPECT_EQ(CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, target), ERROR_SUCCESS);
  return *target;
}

TEST_F(Owners, ARegistryKeyIsClosedOnce) {
  {
    RegistryKey key;
    EXPECT_EQ(key.Get(), nullptr);
    const HKEY opened = OpenKey(key.Put());
    EXPECT_EQ(key.Get(), opened);
    EXPECT_EQ(host().live().Count("registry key"), 1);
    key.Reset();
    EXPECT_EQ(key.Get(), nullptr);
  }
  EXPECT_EQ(host().calls().Of("RegCloseKey").size(), 1u);
}

TEST_F(Owners, ARegistryKeyIsClosedBeforeAnotherTakesItsPlace) {
  {
    RegistryKey key;
    OpenKey(key.Put());
    OpenKey(key.Put());
    EXPECT_EQ(host().live().Count("registry key"), 1);
  }
  EXPECT_EQ(host().live().Count("registry key"), 0);
}

TEST_F(Owners, ARegistryKeyThatDidNotOpenIsNotClosed) {
  {
    RegistryKey key;
    EXPECT_EQ(CurrentHost().registry().RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"No\\Such\\Key", 0, KEY_READ, key.Put()),
              ERROR_FILE_NOT_FOUND);
  }
  EXPECT_THAT(host().calls().Of("RegCloseKey"), IsEmpty());
}

TEST_F(Owners, AMessageTextIsFreed) {
  simulator::HostModel model = test::SmallHost();
  model.messages[0x80004005] = L"Unspecified error\r\n";
  Install(std::move(model));
  {
    LocalText text;
    EXPECT_EQ(text.Get(), nullptr);
    const DWORD characters = CurrentHost().messages().FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        0x80004005, 0, text.AsBuffer(), 0, nullptr);
    EXPECT_EQ(characters, 19u);
    EXPECT_STREQ(text.Get(), L"Unspecified error\r\n");
    EXPECT_EQ(host().live().Count(), 1);
  }
  EXPECT_EQ(host().live().Count(), 0);
}

// ---- what holds for every owner ----

// A host that can hand out everything there is an owner for.
simulator::HostModel GenerousHost() {
  simulator::HostModel model = test::SmallHost();
  model.commands = {{L"tool.exe", 0}};
  model.messages = {{5, L"Access is denied."}};
  model.vssMessages = {{{0x80042301, L"bad state"}}};
  return model;
}

// How each owner is filled from the current host.
struct File {
  using Owner = FileHandle;
  static constexpr const char* kName = "File";
  static void Fill(Owner& owner) { owner = OpenDisk(L"\\\\.\\PhysicalDrive1"); }
};
struct Search {
  using Owner = VolumeSearch;
  static constexpr const char* kName = "Search";
  static void Fill(Owner& owner) {
    wchar_t name[MAX_PATH];
    owner = VolumeSearch(CurrentHost().storage().FindFirstVolumeW(name, MAX_PATH));
  }
};
struct Process {
  using Owner = ProcessHandles;
  static constexpr const char* kName = "Process";
  static void Fill(Owner& owner) {
    wchar_t command[] = L"tool.exe";
    STARTUPINFOW startup{};
    EXPECT_TRUE(CurrentHost().processes().CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                                         &startup, owner.Put()));
    EXPECT_NE(owner->hProcess, nullptr);
  }
};
struct Key {
  using Owner = RegistryKey;
  static constexpr const char* kName = "Key";
  static void Fill(Owner& owner) { OpenKey(owner.Put()); }
};
struct ServiceObject {
  using Owner = ServiceHandle;
  static constexpr const char* kName = "ServiceObject";
  static void Fill(Owner& owner) {
    owner = ServiceHandle(CurrentHost().services().OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  }
};
struct LoadedModule {
  using Owner = Module;
  static constexpr const char* kName = "LoadedModule";
  static void Fill(Owner& owner) { owner = Module(CurrentHost().messages().LoadLibraryW(L"vsstrace.dll")); }
};
struct Text {
  using Owner = LocalText;
  static constexpr const char* kName = "Text";
  static void Fill(Owner& owner) {
    CurrentHost().messages().FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0,
                                            owner.AsBuffer(), 0, nullptr);
  }
};
struct Block {
  using Owner = HeapBlock;
  static constexpr const char* kName = "Block";
  static void Fill(Owner& owner) { owner = HeapBlock(10); }
};
struct BasicString {
  using Owner = Bstr;
  static constexpr const char* kName = "BasicString";
  static void Fill(Owner& owner) { *owner.Put() = CurrentHost().vss().SysAllocStringLen(L"three", 5); }
};
wchar_t* MakeTaskText() {
  return dynamic_cast<simulator::SimulatedHost&>(CurrentHost()).machine().MakeTaskText(L"text");
}
struct Properties {
  using Owner = SnapshotProperties;
  static constexpr const char* kName = "Properties";
  static void Fill(Owner& owner) { owner.Put()->m_pwszExposedName = MakeTaskText(); }
};
struct ProviderObject {
  using Owner = VssObject;
  static constexpr const char* kName = "ProviderObject";
  static void Fill(Owner& owner) {
    VSS_OBJECT_PROP& object = *owner.Put();
    object.Type = VSS_OBJECT_PROVIDER;
    object.Obj.Prov.m_pwszProviderName = MakeTaskText();
    object.Obj.Prov.m_pwszProviderVersion = MakeTaskText();
    EXPECT_EQ(owner.provider(), &owner->Obj.Prov);
    EXPECT_EQ(owner.snapshot(), nullptr);
  }
};
struct SnapshotObject {
  using Owner = VssObject;
  static constexpr const char* kName = "SnapshotObject";
  static void Fill(Owner& owner) {
    VSS_OBJECT_PROP& object = *owner.Put();
    object.Type = VSS_OBJECT_SNAPSHOT;
    object.Obj.Snap.m_pwszSnapshotDeviceObject = MakeTaskText();
    EXPECT_EQ(owner.provider(), nullptr);
    EXPECT_EQ(owner.snapshot(), &owner->Obj.Snap);
  }
};

struct NameOfKind {
  template <class Kind>
  static std::string GetName(int /*index*/) {
    return Kind::kName;
  }
};

template <class Kind>
class EveryOwner : public test::HostFixture {
 protected:
  using Owner = typename Kind::Owner;

  void SetUp() override { Install(GenerousHost()); }
  long long Held() { return host().live().Count(); }
};

using Kinds = testing::Types<File, Search, Process, Key, ServiceObject, LoadedModule, Text, Block, BasicString,
                             Properties, ProviderObject, SnapshotObject>;
TYPED_TEST_SUITE(EveryOwner, Kinds, NameOfKind);

TYPED_TEST(EveryOwner, GivesBackWhatItHoldsOnce) {
  {
    typename TypeParam::Owner owner;
    TypeParam::Fill(owner);
    EXPECT_GT(this->Held(), 0);
    owner.Reset();
    EXPECT_EQ(this->Held(), 0);
    owner.Reset();
    TypeParam::Fill(owner);
    EXPECT_GT(this->Held(), 0);
  }
  EXPECT_EQ(this->Held(), 0);
}

TYPED_TEST(EveryOwner, IsFilledAnewWithoutALeak) {
  typename TypeParam::Owner owner;
  TypeParam::Fill(owner);
  const long long held = this->Held();
  TypeParam::Fill(owner);
  EXPECT_EQ(this->Held(), held);
  owner.Put();
  EXPECT_EQ(this->Held(), 0);
}

TYPED_TEST(EveryOwner, IsMovedWithWhatItHolds) {
  typename TypeParam::Owner first;
  TypeParam::Fill(first);
  const long long held = this->Held();
  typename TypeParam::Owner second = std::move(first);
  EXPECT_EQ(this->Held(), held);
  first.Reset();  // NOLINT(bugprone-use-after-move): a moved owner is empty
  EXPECT_EQ(this->Held(), held);
  TypeParam::Fill(first);
  first = std::move(second);
  EXPECT_EQ(this->Held(), held);
  second.Reset();  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(this->Held(), held);
  typename TypeParam::Owner& same = first;
  first = std::move(same);
  EXPECT_EQ(this->Held(), held);
}

TYPED_TEST(EveryOwner, GivesBackToItsOwnHostWhileAnotherIsCurrent) {
  simulator::SimulatedHost other{GenerousHost()};
  typename TypeParam::Owner owner;
  TypeParam::Fill(owner);
  typename TypeParam::Owner moved;
  {
    const ScopedHost current(other);
    moved = std::move(owner);
    EXPECT_GT(this->Held(), 0);
    moved.Reset();
    EXPECT_EQ(this->Held(), 0);
  }
  EXPECT_THAT(other.calls().lines(), IsEmpty());
  EXPECT_THAT(other.live().misuses(), IsEmpty());
}

TYPED_TEST(EveryOwner, BelongsToTheHostThatFilledItLast) {
  simulator::SimulatedHost other{GenerousHost()};
  typename TypeParam::Owner owner;
  TypeParam::Fill(owner);
  {
    const ScopedHost current(other);
    TypeParam::Fill(owner);
    EXPECT_EQ(this->Held(), 0);
    EXPECT_GT(other.live().Count(), 0);
  }
  owner.Reset();
  EXPECT_EQ(other.live().Count(), 0);
}

TYPED_TEST(EveryOwner, GivesBackToItsHostThatIsNoLongerCurrent) {
  typename TypeParam::Owner owner;
  simulator::SimulatedHost other{GenerousHost()};
  {
    const ScopedHost current(other);
    TypeParam::Fill(owner);
  }
  EXPECT_GT(other.live().Count(), 0);
  owner.Reset();
  EXPECT_EQ(other.live().Count(), 0);
  EXPECT_THAT(other.live().misuses(), IsEmpty());
}

// ---- hosts that are gone ----

template <class Owner>
Owner FilledByAHostThatIsGone(void (*fill)(Owner&)) {
  simulator::SimulatedHost gone{GenerousHost()};
  const ScopedHost current(gone);
  Owner owner;
  fill(owner);
  return owner;
}

// Nothing is left to give a handle back to, least of all a host that came later.
TEST_F(Owners, AHandleThatOutlivesItsHostIsGivenBackToNobody) {
  {
    const FileHandle file = FilledByAHostThatIsGone(File::Fill);
    const RegistryKey key = FilledByAHostThatIsGone(Key::Fill);
    EXPECT_TRUE(file);
    EXPECT_TRUE(key);
  }
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_THAT(host().live().misuses(), IsEmpty());
}

// The platform takes it; a leak or a second release would be the sanitizers' to find.
TEST_F(Owners, ABstrOutlivesItsHost) {
  Bstr text = FilledByAHostThatIsGone(BasicString::Fill);
  EXPECT_EQ(text.View(), L"three");
  text = Bstr(L"four");
  text = FilledByAHostThatIsGone(BasicString::Fill);
  EXPECT_EQ(text.View(), L"three");
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(Owners, ABstrIsAssignedAcrossHosts) {
  simulator::SimulatedHost other{GenerousHost()};
  Bstr text(L"one");
  {
    const ScopedHost current(other);
    text = Bstr(L"two");
    EXPECT_EQ(host().live().Count("BSTR"), 0);
    EXPECT_EQ(other.live().Count("BSTR"), 1);
  }
  EXPECT_EQ(text.View(), L"two");
  text = Bstr(L"three");
  EXPECT_EQ(other.live().Count("BSTR"), 0);
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

}  // namespace
}  // namespace varnel
