// Metadata that cannot be read: every call on the service's objects and on the host that fails.
#include <optional>

#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;

struct MetadataCall {
  const char* call;
  const char* text;
  bool deliversAnObject;
};

constexpr MetadataCall kMetadataCalls[] = {
    {"IVssExamineWriterMetadata::GetIdentity",
     "pMetadata->GetIdentity(&idInstance, &idWriter, &bstrWriterName, &usage, &source)", false},
    {"IVssExamineWriterMetadata::GetRestoreMethod",
     "pMetadata->GetRestoreMethod(&restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, "
     "&rebootRequiredAfterRestore, &iMappings)",
     false},
    {"IVssExamineWriterMetadata::GetFileCounts",
     "pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)", false},
    {"IVssExamineWriterMetadata::GetExcludeFile", "pMetadata->GetExcludeFile(i, &pFileDesc)", true},
    {"IVssExamineWriterMetadata::GetComponent", "pMetadata->GetComponent(iComponent, &pComponent)", true},
    {"IVssWMComponent::GetComponentInfo", "pComponent->GetComponentInfo(&pInfo)", true},
    {"IVssWMComponent::GetFile", "pComponent->GetFile(i, &pFileDesc)", true},
    {"IVssWMComponent::GetDatabaseFile", "pComponent->GetDatabaseFile(i, &pFileDesc)", true},
    {"IVssWMComponent::GetDatabaseLogFile", "pComponent->GetDatabaseLogFile(i, &pFileDesc)", true},
    {"IVssWMFiledesc::GetPath", "pFileDesc->GetPath(&bstrPath)", false},
    {"IVssWMFiledesc::GetFilespec", "pFileDesc->GetFilespec(&bstrFilespec)", false},
    {"IVssWMFiledesc::GetRecursive", "pFileDesc->GetRecursive(&bRecursive)", false},
    {"IVssWMFiledesc::GetAlternateLocation", "pFileDesc->GetAlternateLocation(&bstrAlternate)", false},
};

struct Code {
  HRESULT value;
  const char* digits;
  const char* text;
};

constexpr Code kCodes[] = {
    {E_UNEXPECTED, "0x8000ffff", "E_UNEXPECTED"},
    {E_OUTOFMEMORY, "0x8007000e", "E_OUTOFMEMORY"},
    {E_ACCESSDENIED, "0x80070005", "Access is denied.\r\n"},
    {VSS_E_BAD_STATE, "0x80042301", "VSS_E_BAD_STATE"},
    {VSS_E_OBJECT_NOT_FOUND, "0x80042308", "VSS_E_OBJECT_NOT_FOUND"},
    {VSS_E_INVALID_XML_DOCUMENT, "0x80042311", "VSS_E_INVALID_XML_DOCUMENT"},
    {static_cast<HRESULT>(0x80000000), "0x80000000", "Error: 0x80000000"},
};

class MetadataFailureTest : public HostFixture {
 protected:
  /// Two writers with everything that can be read, then an empty one.
  static HostModel Model() {
    HostModel model = SmallHost();
    model.messages[5] = L"Access is denied.\r\n";
    for (const DWORD n : {1u, 2u}) {
      WriterComponent files = MakeComponent(L"", L"files", {L"E:\\1", L"E:\\2"});
      files.files[0].alternatePath = L"F:\\1";
      WriterComponent database = MakeComponent(L"a", L"database", {});
      database.type = VSS_CT_DATABASE;
      database.databaseFiles = {{L"E:\\3", L"3"}};
      database.logFiles = {{L"F:\\4", L"4"}};
      Writer writer = MakeWriter(L"Writer", n, {std::move(files), std::move(database)});
      writer.restoreMethod->service = L"service";
      writer.restoreMethod->userProcedure = L"procedure";
      writer.restoreMethod->method = VSS_RME_STOP_RESTORE_START;
      writer.excludeFiles = {{L"E:\\5", L"5"}};
      model.writers.push_back(std::move(writer));
    }
    model.writers.push_back(MakeWriter(L"Empty", 3, {}));
    return model;
  }

  /// Makes one call fail (or succeed without doing anything) and reads. The end of the reading is looked at; what the
  /// requestor held must be gone afterwards. False when the call was not made so often.
  bool ReadWithFault(const MetadataCall& call, int occurrence, HRESULT injected, const Code& expected) {
    Install(Model());
    log.lines.clear();
    FailCall(call.call, injected, occurrence);
    bool failed = false;
    {
      SnapshotRequest<> request;
      const std::optional<long> thrown = ThrownLong([&] { request.Gather(); });
      failed = thrown.has_value();
      if (failed) {
        EXPECT_EQ(thrown, Failure(expected.value));
        EXPECT_THAT(log.Errors(), ElementsAre(std::string("ERROR: COM call \"") + call.text + "\" failed.",
                                              std::string("- Returned HRESULT = ") + expected.digits,
                                              std::string("- Error text: ") + expected.text));
        ExpectWritersReadSoFar(request.requestor);
        EXPECT_TRUE(request.probe.metadataGathered());
      }
      EXPECT_EQ(request.alerts(), "");
    }
    ExpectNothingLive();
    EXPECT_THAT(host().live().misuses(), IsEmpty());
    return failed;
  }

 private:
  // Every writer but the one whose reading failed.
  void ExpectWritersReadSoFar(const CVarnel& requestor) {
    const std::size_t asked = Calls("IVssBackupComponents::GetWriterMetadata").size();
    ASSERT_THAT(requestor.GetWriters(), SizeIs(asked - 1));
    for (const VssWriter& writer : requestor.GetWriters()) {
      EXPECT_EQ(writer.name, L"Writer");
      EXPECT_THAT(writer.components, SizeIs(2));
      EXPECT_THAT(writer.excludeFiles, SizeIs(1));
    }
  }
};

TEST_F(MetadataFailureTest, EveryGetterMayFailAnyTimeWithEveryCode) {
  for (const MetadataCall& call : kMetadataCalls) {
    for (const Code& code : kCodes) {
      SCOPED_TRACE(std::string(call.call) + " " + code.digits);
      int failures = 0;
      while (failures < 100 && ReadWithFault(call, failures + 1, code.value, code)) ++failures;
      EXPECT_GE(failures, 2);
      EXPECT_LT(failures, 100);
    }
  }
}

TEST_F(MetadataFailureTest, ASuccessWithoutAnObjectIsUnexpected) {
  constexpr Code kUnexpected = {E_UNEXPECTED, "0x8000ffff", "E_UNEXPECTED"};
  for (const MetadataCall& call : kMetadataCalls) {
    if (!call.deliversAnObject) continue;
    for (const HRESULT success : {S_OK, S_FALSE}) {
      SCOPED_TRACE(call.call);
      EXPECT_TRUE(ReadWithFault(call, 1, success, kUnexpected));
      EXPECT_TRUE(ReadWithFault(call, 2, success, kUnexpected));
    }
  }
}

TEST_F(MetadataFailureTest, ASuccessWithoutATextIsTheEmptyText) {
  for (const char* call : {"IVssExamineWriterMetadata::GetIdentity", "IVssExamineWriterMetadata::GetRestoreMethod",
                           "IVssWMFiledesc::GetPath", "IVssWMFiledesc::GetFilespec", "IVssWMFiledesc::GetRecursive",
                           "IVssWMFiledesc::GetAlternateLocation"}) {
    Install(Model());
    FailCall(call, S_FALSE, 0);
    GatheredRequest request;
    ASSERT_THAT(request.requestor.GetWriters(), SizeIs(3));
    const VssWriter& writer = request.requestor.GetWriters()[0];
    const bool isIdentity = std::string_view(call).ends_with("GetIdentity");
    EXPECT_EQ(writer.name, isIdentity ? L"" : L"Writer");
    EXPECT_EQ(writer.excludeFiles.at(0).filespec, std::string_view(call).ends_with("GetFilespec") ? L"" : L"5");
    EXPECT_EQ(writer.excludeFiles.at(0).path, std::string_view(call).ends_with("GetPath") ? L"" : L"E:\\5");
  }
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(MetadataFailureTest, TheLinesAreErrorsOfTheCore) {
  ReadWithFault(kMetadataCalls[0], 1, E_UNEXPECTED, kCodes[0]);
  ASSERT_GE(log.lines.size(), 3u);
  for (std::size_t i = log.lines.size() - 3; i < log.lines.size(); ++i) {
    EXPECT_EQ(log.lines[i].source, "varnel");
    EXPECT_EQ(log.lines[i].category, 4);
  }
}

// The environment of a path that cannot be expanded.
class ExpansionFailureTest : public HostFixture {
 protected:
  std::optional<long> Read(std::wstring path, int occurrence, DWORD error) {
    HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Before", 1, {}),
                     MakeWriter(L"Writer", 2, {MakeComponent(L"", L"c", {std::move(path)})})};
    model.faults.calls = {{"ExpandEnvironmentStringsW", occurrence, error}};
    Install(std::move(model));
    log.lines.clear();
    SnapshotRequest<> request;
    const std::optional<long> thrown = ThrownLong([&] { request.Gather(); });
    EXPECT_EQ(request.alerts(), "");
    EXPECT_THAT(request.requestor.GetWriters(), SizeIs(1));
    return thrown;
  }
};

TEST_F(ExpansionFailureTest, IsLoggedWithThePathAsItWasReported) {
  EXPECT_EQ(Read(L"%SystemRoot%\\temp", 1, ERROR_NOT_ENOUGH_MEMORY), Win32Failure(ERROR_NOT_ENOUGH_MEMORY));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=%SystemRoot%\\temp, Error=0x8"));
}

TEST_F(ExpansionFailureTest, WithoutAnErrorCodeCountsAsAGeneralOne) {
  EXPECT_EQ(Read(L"E:\\x", 1, 0), Win32Failure(31));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=E:\\x, Error=0x1f"));
}

TEST_F(ExpansionFailureTest, MayHappenAtTheSecondAttempt) {
  const std::wstring path = L"E:\\" + std::wstring(300, L'x');
  EXPECT_EQ(Read(path, 2, ERROR_ACCESS_DENIED), Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.Errors(),
              ElementsAre("ExpandEnvironmentStringsW() Failed, Path=" + WideToUtf8(path) + ", Error=0x5"));
}

TEST_F(ExpansionFailureTest, AnHresultAsErrorCodeStaysAsItIs) {
  EXPECT_EQ(Read(L"E:\\x", 1, static_cast<DWORD>(E_ACCESSDENIED)), Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.Errors(), ElementsAre("ExpandEnvironmentStringsW() Failed, Path=E:\\x, Error=0x80070005"));
}

}  // namespace
}  // namespace varnel::test
