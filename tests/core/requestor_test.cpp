// The requestor object: its members, Initialize with every way it can fail, accessors, converters and constants.
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include "simulator/vss/backup_document.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;

constexpr char kEnding[] = ", rc=COMMError, ca=ContactTechSupport;\n";
constexpr char kCreate[] = "CreateVssBackupComponents() = S_OK";

std::wstring SavedDocument() {
  return Utf8ToWide(simulator::FormatBackupDocument(simulator::BackupDocument{}));
}

// ---- The object ----

TEST(RequestorObject, IsAPolymorphicClassThatIsNeitherCopiedNorMoved) {
  static_assert(std::is_constructible_v<CVarnel, DWORD>);
  static_assert(!std::is_default_constructible_v<CVarnel>);
  static_assert(std::has_virtual_destructor_v<CVarnel>);
  static_assert(!std::is_copy_constructible_v<CVarnel> && !std::is_copy_assignable_v<CVarnel>);
  static_assert(!std::is_move_constructible_v<CVarnel> && !std::is_move_assignable_v<CVarnel>);
  static_assert(std::is_nothrow_destructible_v<CVarnel>);
  SUCCEED();
}

TEST(RequestorObject, StartsWithEveryMemberAtItsInitialValue) {
  CVarnel requestor(0x80000003);
  RequestorProbe probe(requestor);
  EXPECT_THAT(probe.systemDisks(), IsEmpty());
  EXPECT_THAT(probe.inputComponents(), IsEmpty());
  EXPECT_STREQ(probe.successfulDBList(), "ALL_DB");
  EXPECT_FALSE(probe.vssObject());
  EXPECT_EQ(probe.snapshotSetId(), L"");
  EXPECT_FALSE(probe.initialized());
  EXPECT_FALSE(probe.restoreMode());
  EXPECT_EQ(probe.context(), 0u);
  EXPECT_THAT(probe.writers(), IsEmpty());
  EXPECT_THAT(probe.snapshotVolumes(), IsEmpty());
  EXPECT_THAT(probe.inputSerialNumbers(), IsEmpty());
  EXPECT_THAT(probe.eligibleSerialNumbers(), IsEmpty());
  EXPECT_FALSE(probe.snapshotDone());
  EXPECT_EQ(probe.writerErrorText(), L"");
  EXPECT_THAT(probe.failedComponents(), IsEmpty());
  EXPECT_EQ(probe.backupDocument().Get(), nullptr);
  EXPECT_FALSE(probe.metadataGathered());
  EXPECT_EQ(probe.messageBuffer(), nullptr);
  EXPECT_EQ(probe.lastException().GetAlertCode(), 0);
  EXPECT_EQ(probe.lastException().GetMessageText(), L"");
  EXPECT_THAT(probe.lastException().GetMessageList(), IsEmpty());
  EXPECT_THAT(probe.extraSerialNumbers(), IsEmpty());
  EXPECT_EQ(probe.writerCode(), "");
  EXPECT_EQ(probe.diskAndVolumeEnumerator(), nullptr);
  EXPECT_EQ(probe.testPoints(), 0x80000003u);
}

// Where a member begins and ends.
struct Place {
  template <class Member>
  explicit Place(const Member& member)
      : begin(reinterpret_cast<std::uintptr_t>(&member)), end(begin + sizeof member), alignment(alignof(Member)) {}
  std::uintptr_t begin;
  std::uintptr_t end;
  std::size_t alignment;
};

std::vector<Place> PlacesOfMembers(RequestorProbe& probe) {
  return {Place(probe.systemDisks()),
          Place(probe.inputComponents()),
          Place(probe.successfulDBList()),
          Place(probe.vssObject()),
          Place(probe.snapshotSetId()),
          Place(probe.initialized()),
          Place(probe.restoreMode()),
          Place(probe.context()),
          Place(probe.writers()),
          Place(probe.snapshotVolumes()),
          Place(probe.inputSerialNumbers()),
          Place(probe.eligibleSerialNumbers()),
          Place(probe.snapshotDone()),
          Place(probe.writerErrorText()),
          Place(probe.failedComponents()),
          Place(probe.backupDocument()),
          Place(probe.metadataGathered()),
          Place(probe.messageBuffer()),
          Place(probe.lastException()),
          Place(probe.extraSerialNumbers()),
          Place(probe.writerCode()),
          Place(probe.diskAndVolumeEnumerator()),
          Place(probe.testPoints())};
}

TEST(RequestorObject, HasItsMembersInTheDeclaredOrder) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  const std::vector<Place> members = PlacesOfMembers(probe);
  for (std::size_t i = 1; i < members.size(); ++i) EXPECT_LE(members[i - 1].end, members[i].begin) << i;
  EXPECT_LT(Place(requestor).begin, members.front().begin);
  EXPECT_LE(members.back().end, Place(requestor).end);
}

// Today the sets of serial numbers that components share stand among them.
TEST(RequestorObject, HasNoMemberBesides) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  const std::vector<Place> members = PlacesOfMembers(probe);
  EXPECT_EQ(members.front().begin, Place(requestor).begin + sizeof(void*));
  for (std::size_t i = 1; i < members.size(); ++i) {
    EXPECT_LT(members[i].begin - members[i - 1].end, members[i].alignment) << i;
  }
  EXPECT_LT(Place(requestor).end - members.back().end, alignof(CVarnel));
}

TEST(RequestorObject, KnowsTheProviderOfTheArray) {
  static_assert(std::is_same_v<decltype(CVarnel::TesselVssProviderID), const GUID>);
  EXPECT_EQ(CVarnel::TesselVssProviderID, ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"));
}

TEST(RequestorObject, SharesTheseConstantsWithTheApplications) {
  EXPECT_STREQ(kAllDatabases, L"ALL_DB");
  EXPECT_STREQ(kCatalogModule, L"varnel");
  EXPECT_STREQ(kUnknown, L"UNKNOWN");
  EXPECT_STREQ(kExchangeWriterId, L"{76fe1ac4-15f7-4bcd-987e-8e1acb462fb7}");
  EXPECT_STREQ(kExchangeInstallKey, L"SOFTWARE\\Microsoft\\ExchangeServer");
  EXPECT_STREQ(kExchangeSetupKey, L"Setup");
  EXPECT_STREQ(kExchangeInstallValue, L"MsiInstallPath");
  EXPECT_STREQ(kDatabaseChecker, L"eseutil.exe");
  EXPECT_STREQ(kDatabaseCheckerSwitches, L"/k /i");
  EXPECT_STREQ(kHyperVWriterId, L"{66841cd4-6ded-4f4b-8f17-fd23f8ddc3de}");
  EXPECT_STREQ(kClusterSharedVolumeWriterId, L"{1072ae1c-e5a7-4ea1-9e4a-6f7964656570}");
  EXPECT_STREQ(kSqlServerWriterId, L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_STREQ(kMsdeWriterId, L"{f8544ac1-0611-4fa5-b04b-f7ee00b03277}");
  EXPECT_EQ(kTestPointFailDoSnapshotSet, 0x1u);
  EXPECT_EQ(kTestPointFailFileVerification, 0x2u);
}

TEST(RequestorObject, KnowsTheRegistryNamesOfTheAgent) {
  EXPECT_STREQ(agent_registry::kRoot, L"SOFTWARE\\Tessel Storage");
  EXPECT_STREQ(agent_registry::kConfiguration, L"SOFTWARE\\Tessel Storage\\Configuration");
  EXPECT_STREQ(agent_registry::kTestPointSetting, L"TestPointSetting");
  EXPECT_STREQ(agent_registry::kDisableTransportableSnapshots, L"DisableTransportableSnapshots");
  EXPECT_STREQ(agent_registry::kNoAdditionalVolumeInSnapshot, L"NoAdditionalVolumeInSnapshot");
  EXPECT_STREQ(agent_registry::kCleanPhantomDevices, L"CleanPhantomDevices");
  EXPECT_STREQ(agent_registry::kCleanPhantomDevicesInterval, L"CleanPhantomDevicesInterval");
  EXPECT_STREQ(agent_registry::kCleanPhantomDevicesThreshold, L"CleanPhantomDevicesThreshold");
  EXPECT_STREQ(agent_registry::kMaxArrayVerSupported, L"MaxArrayVerSupported");
  EXPECT_STREQ(agent_registry::kMinArrayVerSupported, L"MinArrayVerSupported");
  EXPECT_STREQ(agent_registry::kExcludedIps, L"ExcludedIps");
  EXPECT_STREQ(agent_registry::kIncludedIps, L"IncludedIps");
  EXPECT_STREQ(agent_registry::kGroupMgmtIps, L"GroupMgmtIps");
  EXPECT_STREQ(agent_registry::kGroupMgmtIp, L"GroupMgmtIP");
  EXPECT_STREQ(agent_registry::kIscsiGlobalDigestPolicy, L"ISCSIGlobalDigestPolicy");
  EXPECT_STREQ(agent_registry::kDisableAutomaticGroupDiscovery, L"DisableAutomaticGroupDiscovery");
}

TEST(RequestorWithoutAHost, CannotBeInitialised) {
  if (CurrentHostOrNull() != nullptr) GTEST_SKIP() << "this platform is a host of its own";
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  DiskAndVolumeEnumerator enumerator;
  std::string details;
  EXPECT_THROW(requestor.Initialize(0, L"", false, VSS_BT_FULL, details, &enumerator), NoHostError);
  EXPECT_TRUE(probe.initialized());
  EXPECT_EQ(details, "");
}

class InitializeTest : public HostFixture {
 protected:
  struct Arguments {
    DWORD context = 0;
    std::wstring document;
    bool restore = false;
    VSS_BACKUP_TYPE type = VSS_BT_FULL;
  };

  void Initialize(CVarnel& requestor, const Arguments& arguments) {
    requestor.Initialize(arguments.context, arguments.document, arguments.restore, arguments.type, details_,
                         &enumerator_);
  }
  std::optional<long> Thrown(CVarnel& requestor, const Arguments& arguments) {
    return ThrownLong([&] { Initialize(requestor, arguments); });
  }
  /// The last call that is not about the text of a result.
  std::string LastServiceCall() {
    std::string last;
    for (const std::string& line : host().calls().lines()) {
      if (!line.starts_with("FormatMessageW(")) last = line;
    }
    return last;
  }
  void Forget() {
    HostFixture::Forget();
    details_.clear();
  }

  std::string details_;
  DiskAndVolumeEnumerator enumerator_;
};

TEST_F(InitializeTest, PreparesANewBackup) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  Initialize(requestor, {});
  EXPECT_THAT(host().calls().lines(), ElementsAre(kCreate, "IVssBackupComponents::InitializeForBackup(null) = S_OK",
                                                  "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK"));
  EXPECT_TRUE(probe.initialized());
  EXPECT_TRUE(probe.vssObject());
  EXPECT_FALSE(probe.restoreMode());
  EXPECT_EQ(requestor.GetContext(), 0u);
  EXPECT_EQ(probe.diskAndVolumeEnumerator(), &enumerator_);
  EXPECT_EQ(details_, "");
}

TEST_F(InitializeTest, AContextOfZeroIsNeitherSetNorLogged) {
  CVarnel requestor(0);
  Initialize(requestor, {});
  EXPECT_THAT(Calls("IVssBackupComponents::SetContext"), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(InitializeTest, AnotherContextIsLoggedAndSetBeforeTheState) {
  CVarnel requestor(0);
  Initialize(requestor, {VSS_CTX_APP_ROLLBACK, L"", false, VSS_BT_COPY});
  EXPECT_THAT(host().calls().lines(), ElementsAre(kCreate, "IVssBackupComponents::InitializeForBackup(null) = S_OK",
                                                  "IVssBackupComponents::SetContext(9) = S_OK",
                                                  "IVssBackupComponents::SetBackupState(true, true, 5, false) = S_OK"));
  EXPECT_EQ(requestor.GetContext(), 9u);
  EXPECT_THAT(log.All(), ElementsAre("I - Setting VssContext=0x00000009"));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(InitializeTest, AContextUsesAll32Bits) {
  CVarnel requestor(0);
  Initialize(requestor, {0xFFFFFFFF, L"", false, VSS_BT_FULL});
  EXPECT_THAT(Calls("IVssBackupComponents::SetContext"), ElementsAre("IVssBackupComponents::SetContext(-1) = S_OK"));
  EXPECT_EQ(requestor.GetContext(), 0xFFFFFFFFu);
  EXPECT_THAT(log.All(), ElementsAre("I - Setting VssContext=0xffffffff"));
}

TEST_F(InitializeTest, TheCallersBackupTypeIsUsed) {
  for (const VSS_BACKUP_TYPE type :
       {VSS_BT_FULL, VSS_BT_INCREMENTAL, VSS_BT_DIFFERENTIAL, VSS_BT_LOG, VSS_BT_COPY, VSS_BT_OTHER}) {
    Forget();
    CVarnel requestor(0);
    Initialize(requestor, {0, L"", false, type});
    EXPECT_THAT(Calls("IVssBackupComponents::SetBackupState"),
                ElementsAre("IVssBackupComponents::SetBackupState(true, true, " +
                            std::to_string(static_cast<int>(type)) + ", false) = S_OK"));
  }
}

TEST_F(InitializeTest, ADocumentIsHandedOverAndFreed) {
  const std::wstring document = SavedDocument();
  const std::string length = std::to_string(document.size());
  CVarnel requestor(0);
  Initialize(requestor, {0, document, false, VSS_BT_FULL});
  EXPECT_THAT(host().calls().lines(),
              ElementsAre(kCreate, "SysAllocStringLen(" + length + ") = ok",
                          "IVssBackupComponents::InitializeForBackup(" + length + " characters) = S_OK",
                          "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK"));
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(InitializeTest, ADocumentThatIsNoneIsReportedUnderTheCallsOtherName) {
  CVarnel requestor(0);
  EXPECT_EQ(Thrown(requestor, {0, L"<NOT_A_DOCUMENT/>", false, VSS_BT_FULL}), Failure(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_EQ(details_, std::string("InitializeForBackup(XmlDoc)=Failed, error=VSS_E_INVALID_XML_DOCUMENT") + kEnding);
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(InitializeTest, ARestoreTakesItsDocumentAndStillSetsTheBackupState) {
  const std::wstring document = SavedDocument();
  const std::string length = std::to_string(document.size());
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  Initialize(requestor, {0, document, true, VSS_BT_FULL});
  EXPECT_THAT(host().calls().lines(),
              ElementsAre(kCreate, "SysAllocStringLen(" + length + ") = ok",
                          "IVssBackupComponents::InitializeForRestore(" + length + " characters) = S_OK",
                          "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK"));
  EXPECT_TRUE(probe.restoreMode());
  EXPECT_EQ(probe.diskAndVolumeEnumerator(), &enumerator_);
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

TEST_F(InitializeTest, ARestoreNeverSetsAContextButKeepsIt) {
  for (const DWORD context : {0u, 9u, 0xFFFFFFFFu}) {
    Forget();
    CVarnel requestor(0);
    Initialize(requestor, {context, SavedDocument(), true, VSS_BT_FULL});
    EXPECT_THAT(Calls("IVssBackupComponents::SetContext"), IsEmpty());
    EXPECT_THAT(Calls("IVssBackupComponents::SetBackupState"), SizeIs(1));
    EXPECT_EQ(requestor.GetContext(), context);
    EXPECT_THAT(log.lines, IsEmpty());
  }
}

TEST_F(InitializeTest, ARestoreWithoutADocumentHandsOverAnEmptyText) {
  FailCall("IVssBackupComponents::InitializeForRestore", S_OK);
  FailCall("IVssBackupComponents::SetBackupState", S_OK);
  CVarnel requestor(0);
  Initialize(requestor, {0, L"", true, VSS_BT_FULL});
  EXPECT_THAT(host().calls().lines(), ElementsAre(kCreate, "SysAllocStringLen(0) = ok",
                                                  "IVssBackupComponents::InitializeForRestore(0 characters) = S_OK",
                                                  "IVssBackupComponents::SetBackupState(true, true, 1, false) = S_OK"));
}

TEST_F(InitializeTest, AServiceThatRefusesTheBackupStateInARestoreMakesItFail) {
  FailCall("IVssBackupComponents::SetBackupState", VSS_E_BAD_STATE);
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  EXPECT_EQ(Thrown(requestor, {9, SavedDocument(), true, VSS_BT_FULL}), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(details_, std::string("SetBackupState()=Failed, error=VSS_E_BAD_STATE") + kEnding);
  EXPECT_TRUE(probe.restoreMode());
  EXPECT_EQ(requestor.GetContext(), 9u);
  EXPECT_EQ(probe.diskAndVolumeEnumerator(), nullptr);
}

// One call of Initialize that fails, and what it leaves in the members.
struct FailingCall {
  const char* call;
  const char* operation;
  bool hasDocument;
  bool restore;
  bool objectKept;
  bool modeKept;
  bool contextKept;
};

constexpr FailingCall kFailingCalls[] = {
    {"CreateVssBackupComponents", "CreateVssBackupComponents()", false, true, false, false, false},
    {"IVssBackupComponents::InitializeForBackup", "InitializeForBackup()", false, false, true, true, false},
    {"IVssBackupComponents::InitializeForBackup", "InitializeForBackup(XmlDoc)", true, false, true, true, false},
    {"IVssBackupComponents::SetContext", "SetContext()", false, false, true, true, false},
    {"IVssBackupComponents::InitializeForRestore", "InitializeForRestore()", true, true, true, true, false},
    {"IVssBackupComponents::SetBackupState", "SetBackupState()", false, false, true, true, true},
    {"IVssBackupComponents::SetBackupState", "SetBackupState()", true, true, true, true, true},
};

constexpr std::pair<HRESULT, const char*> kFailureCodes[] = {
    {E_UNEXPECTED, "E_UNEXPECTED"},
    {E_OUTOFMEMORY, "E_OUTOFMEMORY"},
    {E_ACCESSDENIED, "Error: 0x80070005"},
    {VSS_E_BAD_STATE, "VSS_E_BAD_STATE"},
    {VSS_E_UNSUPPORTED_CONTEXT, "VSS_E_UNSUPPORTED_CONTEXT"},
    {static_cast<HRESULT>(0x80000000), "Error: 0x80000000"},
};

TEST_F(InitializeTest, EveryFailingCallLeavesItsAlertAndIsThrown) {
  for (const FailingCall& failing : kFailingCalls) {
    for (const auto& [code, name] : kFailureCodes) {
      SCOPED_TRACE(std::string(failing.operation) + " " + name);
      Install(SmallHost());
      Forget();
      details_ = "writer=1,";
      FailCall(failing.call, code);
      {
        CVarnel requestor(0);
        RequestorProbe probe(requestor);
        EXPECT_EQ(Thrown(requestor, {9, failing.hasDocument ? SavedDocument() : L"", failing.restore, VSS_BT_FULL}),
                  Failure(code));
        const std::string record = std::string(failing.operation) + "=Failed, error=" + name + kEnding;
        EXPECT_EQ(details_, "writer=1," + record);
        EXPECT_THAT(log.Errors(), ElementsAre(" " + record.substr(0, record.size() - 1)));
        EXPECT_TRUE(probe.initialized());
        EXPECT_EQ(static_cast<bool>(probe.vssObject()), failing.objectKept);
        EXPECT_EQ(probe.restoreMode(), failing.restore && failing.modeKept);
        EXPECT_EQ(requestor.GetContext(), failing.contextKept ? 9u : 0u);
        EXPECT_EQ(probe.diskAndVolumeEnumerator(), nullptr);
        EXPECT_THAT(LastServiceCall(), StartsWith(failing.call));
      }
      ExpectNothingLive();
    }
  }
}

TEST_F(InitializeTest, PositiveResultsAreSuccesses) {
  for (const char* call : {"IVssBackupComponents::InitializeForBackup", "IVssBackupComponents::SetContext",
                           "IVssBackupComponents::SetBackupState"}) {
    FailCall(call, S_FALSE);
  }
  CVarnel requestor(0);
  Initialize(requestor, {9, L"", false, VSS_BT_FULL});
  EXPECT_EQ(details_, "");
  EXPECT_EQ(requestor.GetContext(), 9u);
}

TEST_F(InitializeTest, ASuccessWithoutAnObjectIsUnexpected) {
  for (const HRESULT success : {S_OK, S_FALSE}) {
    Forget();
    FailCall("CreateVssBackupComponents", success);
    CVarnel requestor(0);
    EXPECT_EQ(Thrown(requestor, {}), Failure(E_UNEXPECTED));
    EXPECT_EQ(details_, std::string("CreateVssBackupComponents()=Failed, error=E_UNEXPECTED") + kEnding);
  }
}

TEST_F(InitializeTest, WithoutMemoryForTheDocumentNothingStaysLive) {
  FailCall("SysAllocStringLen", ERROR_NOT_ENOUGH_MEMORY);
  CVarnel requestor(0);
  EXPECT_THROW(Initialize(requestor, {0, SavedDocument(), false, VSS_BT_FULL}), std::bad_alloc);
  EXPECT_THAT(Calls("IVssBackupComponents::InitializeForBackup"), IsEmpty());
}

TEST_F(InitializeTest, ASecondCallReplacesTheObject) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  Initialize(requestor, {9, L"", false, VSS_BT_FULL});
  probe.metadataGathered() = true;
  Initialize(requestor, {0, L"", false, VSS_BT_COPY});
  EXPECT_EQ(host().live().Count("IVssBackupComponents"), 1);
  EXPECT_FALSE(probe.metadataGathered());
  EXPECT_EQ(requestor.GetContext(), 0u);
  EXPECT_EQ(details_, "");
  EXPECT_THAT(Calls("CreateVssBackupComponents"), SizeIs(2));
}

TEST_F(InitializeTest, ASecondCallThatFailsLeavesNoObject) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  Initialize(requestor, {9, L"", false, VSS_BT_FULL});
  FailCall("CreateVssBackupComponents", E_ACCESSDENIED);
  EXPECT_EQ(Thrown(requestor, {}), Failure(E_ACCESSDENIED));
  EXPECT_FALSE(probe.vssObject());
  EXPECT_EQ(host().live().Count("IVssBackupComponents"), 0);
  EXPECT_EQ(requestor.GetContext(), 9u);
  EXPECT_EQ(probe.diskAndVolumeEnumerator(), &enumerator_);
}

TEST_F(InitializeTest, TheWriterListAndTheInputSurviveASecondCall) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  requestor.SetInputDriveSerialNos({L"TSL0001"});
  Initialize(requestor, {});
  probe.writers().emplace_back();
  Initialize(requestor, {});
  EXPECT_THAT(probe.inputSerialNumbers(), ElementsAre(L"TSL0001"));
  EXPECT_THAT(probe.writers(), SizeIs(1));
}

TEST_F(InitializeTest, ARequestorThatWasNeverInitialisedIsDestroyedQuietly) {
  { CVarnel requestor(0); }
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

class AccessorTest : public HostFixture {
 protected:
  CVarnel requestor_{0};
  RequestorProbe probe_{requestor_};
};

TEST_F(AccessorTest, TheEnumeratorIsBorrowedAndMayPrecedeInitialize) {
  DiskAndVolumeEnumerator first;
  DiskAndVolumeEnumerator second;
  requestor_.SetDiskAndVolumeEnumeratorObj(&first);
  EXPECT_EQ(probe_.diskAndVolumeEnumerator(), &first);
  requestor_.SetDiskAndVolumeEnumeratorObj(&second);
  EXPECT_EQ(probe_.diskAndVolumeEnumerator(), &second);
  requestor_.SetDiskAndVolumeEnumeratorObj(nullptr);
  EXPECT_EQ(probe_.diskAndVolumeEnumerator(), nullptr);
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(AccessorTest, InitializeReplacesTheEnumerator) {
  DiskAndVolumeEnumerator first;
  DiskAndVolumeEnumerator second;
  std::string details;
  CVarnel requestor(0);
  requestor.SetDiskAndVolumeEnumeratorObj(&first);
  requestor.Initialize(0, L"", false, VSS_BT_FULL, details, &second);
  EXPECT_EQ(RequestorProbe(requestor).diskAndVolumeEnumerator(), &second);
  requestor.Initialize(0, L"", false, VSS_BT_FULL, details, nullptr);
  EXPECT_EQ(RequestorProbe(requestor).diskAndVolumeEnumerator(), nullptr);
}

TEST_F(AccessorTest, SerialNumbersAccumulateInOrder) {
  requestor_.SetInputDriveSerialNos({L"b", L"a"});
  requestor_.SetInputDriveSerialNos({L"a", L" A ", L""});
  EXPECT_THAT(probe_.inputSerialNumbers(), ElementsAre(L"b", L"a", L"a", L" A ", L""));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(AccessorTest, NoSerialNumbersAreAnInvalidArgument) {
  requestor_.SetInputDriveSerialNos({L"a"});
  EXPECT_EQ(ThrownLong([&] { requestor_.SetInputDriveSerialNos({}); }), Failure(E_INVALIDARG));
  EXPECT_THAT(log.All(), ElementsAre("E Invalid number of serial nos"));
  EXPECT_EQ(log.lines.front().source, "varnel");
  EXPECT_THAT(probe_.inputSerialNumbers(), ElementsAre(L"a"));
}

TEST_F(AccessorTest, TheSnapshotSetIdIsACopy) {
  EXPECT_EQ(requestor_.GetSnapShotSetId(), L"");
  probe_.snapshotSetId() = L"{00000001-0000-0000-0000-000000000000}";
  EXPECT_EQ(requestor_.GetSnapShotSetId(), L"{00000001-0000-0000-0000-000000000000}");
}

TEST_F(AccessorTest, TheBackupDocumentIsEmptyBeforeOneWasSaved) {
  EXPECT_EQ(std::as_const(requestor_).GetBackupDocument(), L"");
}

TEST_F(AccessorTest, TheBackupDocumentIsReadByItsLength) {
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  const std::wstring document = std::wstring(L"<a>\0</a>", 8) + L"\U0001F680";
  probe.backupDocument() = Bstr(document);
  EXPECT_EQ(requestor.GetBackupDocument(), document);
  EXPECT_EQ(host().live().Count("BSTR"), 1);
}

TEST_F(AccessorTest, TheDestructorFreesTheDocumentAndTheMessageBuffer) {
  {
    CVarnel requestor(0);
    RequestorProbe probe(requestor);
    probe.backupDocument() = Bstr(L"<a/>");
    std::wstring text;
    probe.GetErrorMessageFromCatalog(126, text);
    ASSERT_NE(probe.messageBuffer(), nullptr);
  }
  ExpectNothingLive();
}

TEST_F(AccessorTest, ADocumentThatTakesAnothersPlaceFreesIt) {
  SnapshotRequest request;
  Bstr& document = request.probe.backupDocument();
  document = Bstr(L"<first/>");
  document = Bstr(L"<second/>");
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"<second/>");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
  Bstr other(L"<third/>");
  document = std::move(other);
  EXPECT_FALSE(other);
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"<third/>");
  EXPECT_EQ(host().live().Count("BSTR"), 1);
  document = Bstr();
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"");
  EXPECT_EQ(host().live().Count("BSTR"), 0);
}

// A text freed twice, or not at all, ends the run of the sanitized build.
TEST(RequestorWithoutAHost, FreesADocumentThatOutlivedItsHost) {
  if (CurrentHostOrNull() != nullptr) GTEST_SKIP() << "this platform is a host of its own";
  std::optional<simulator::SimulatedHost> host(SmallHost());
  std::optional<ScopedHost> current(*host);
  SnapshotRequest request;
  request.probe.backupDocument() = Bstr(L"<a/>");
  current.reset();
  host.reset();
  EXPECT_EQ(request.requestor.GetBackupDocument(), L"<a/>");
  request.probe.backupDocument().Reset();
  EXPECT_FALSE(request.probe.backupDocument());
}

// ---- Converters ----

TEST(Converters, Utf8BecomesWideText) {
  EXPECT_EQ(CVarnel::stringToWstring(nullptr), L"");
  EXPECT_EQ(CVarnel::stringToWstring(""), L"");
  EXPECT_EQ(CVarnel::stringToWstring("sales"), L"sales");
  EXPECT_EQ(CVarnel::stringToWstring("\xC3\xA9\xE6\x97\xA5"), L"\u00E9\u65E5");
  EXPECT_EQ(CVarnel::stringToWstring("a\xF0\x9F\x9A\x80z"), L"a\U0001F680z");
}

TEST(Converters, WideTextBecomesUtf8) {
  EXPECT_EQ(CVarnel::wstringTostring(L""), "");
  EXPECT_EQ(CVarnel::wstringTostring(L"sales"), "sales");
  EXPECT_EQ(CVarnel::wstringTostring(L"\u00E9\u65E5"), "\xC3\xA9\xE6\x97\xA5");
  EXPECT_EQ(CVarnel::wstringTostring(L"a\U0001F680z"), "a\xF0\x9F\x9A\x80z");
}

TEST(Converters, ThereAndBackIsTheSameText) {
  for (const char* text : {"plain", "\xC3\xA9", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(CVarnel::wstringTostring(CVarnel::stringToWstring(text).c_str()), text);
  }
}

TEST(Converters, InvalidUtf8IsARangeError) {
  for (const char* text : {"\xFF", "a\x80", "\xC3", "\xC3(", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xE6\x97",
                           "\xF0\x9F\x9A", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
    EXPECT_THROW(CVarnel::stringToWstring(text), std::range_error) << testing::PrintToString(text);
  }
}

TEST(Converters, InvalidWideTextIsARangeError) {
  const wchar_t high = static_cast<wchar_t>(0xD83D);
  const wchar_t low = static_cast<wchar_t>(0xDE80);
  for (const std::wstring& text : {std::wstring{high}, std::wstring{low}, std::wstring{high, L'a'},
                                   std::wstring{low, high}, std::wstring{L'a', high, high}}) {
    EXPECT_THROW(CVarnel::wstringTostring(text.c_str()), std::range_error);
  }
}

TEST(Converters, AListIsJoinedWithCommas) {
  EXPECT_EQ(CVarnel::VectorToString({}), L"");
  EXPECT_EQ(CVarnel::VectorToString({L"a"}), L"a");
  EXPECT_EQ(CVarnel::VectorToString({L"a", L"b"}), L"a, b");
  EXPECT_EQ(CVarnel::VectorToString({L"c:\\", L"b,", L", "}), L"c:\\, b,, , ");
  EXPECT_EQ(CVarnel::VectorToString({L""}), L"");
  EXPECT_EQ(CVarnel::VectorToString({L"", L""}), L", ");
}

}  // namespace
}  // namespace varnel::test
