// Asking the writers for their metadata, waiting for the service, and giving the metadata back.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include "simulator/vss/vss_async.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

using simulator::HostModel;
using simulator::Writer;
using simulator::WriterComponent;

constexpr char kGatherLine[] = "I Waiting for Operation=m_pVssObject->GatherWriterMetadata(&pAsync) to finish...";

constexpr std::pair<HRESULT, const char*> kFailureCodes[] = {
    {E_UNEXPECTED, "E_UNEXPECTED"},
    {E_OUTOFMEMORY, "E_OUTOFMEMORY"},
    {E_ACCESSDENIED, "Error: 0x80070005"},
    {VSS_E_BAD_STATE, "VSS_E_BAD_STATE"},
    {VSS_E_WRITER_INFRASTRUCTURE, "VSS_E_WRITER_INFRASTRUCTURE"},
    {static_cast<HRESULT>(0x80000000), "Error: 0x80000000"},
};

constexpr HRESULT kSuccessCodes[] = {
    S_OK, S_FALSE, VSS_S_ASYNC_FINISHED, VSS_S_ASYNC_PENDING, VSS_S_ASYNC_CANCELLED, 0x7FFFFFFF};

HostModel ModelWithWriters(DWORD writers) {
  HostModel model = SmallHost();
  for (DWORD n = 1; n <= writers; ++n) {
    model.writers.push_back(MakeWriter(L"Writer" + std::to_wstring(n), n, {MakeComponent(L"", L"db", {L"E:\\data"})}));
  }
  return model;
}

// An initialised requestor; what follows is all that the log and the call log hold.
class StartedRequest : public SnapshotRequest<> {
 public:
  explicit StartedRequest(HostFixture& test) {
    Initialize();
    test.Forget();
  }
};

class GatheringTest : public HostFixture {
 protected:
  void Install(HostModel model) {
    HostFixture::Install(std::move(model));
    log.lines.clear();
  }
  static std::optional<long> Gather(SnapshotRequest<>& request) {
    return ThrownLong([&] { request.requestor.GatherWriterMetadata(request.details()); });
  }
};

// ---- Gathering ----

TEST_F(GatheringTest, AsksWaitsAndReadsEveryWriterInOrder) {
  Install(ModelWithWriters(2));
  model().writers[0].excludeFiles = {{L"E:\\tmp", L"*"}};
  model().writers[0].components[0].notifyOnBackupComplete = true;
  model().writers[1].components.clear();
  StartedRequest request(*this);
  EXPECT_EQ(Gather(request), std::nullopt);
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre(
          "IVssBackupComponents::GatherWriterMetadata() = S_OK", "IVssAsync::Wait(INFINITE) = S_OK",
          "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK",
          "IVssBackupComponents::GetWriterMetadataCount() = S_OK", "IVssBackupComponents::GetWriterMetadata(0) = S_OK",
          "IVssExamineWriterMetadata::GetIdentity() = S_OK", "IVssExamineWriterMetadata::GetRestoreMethod() = S_OK",
          "IVssExamineWriterMetadata::GetFileCounts() = S_OK", "IVssExamineWriterMetadata::GetExcludeFile(0) = S_OK",
          "IVssWMFiledesc::GetPath() = S_OK", "IVssWMFiledesc::GetFilespec() = S_OK",
          "IVssWMFiledesc::GetRecursive() = S_OK", "IVssWMFiledesc::GetAlternateLocation() = S_FALSE",
          "ExpandEnvironmentStringsW(E:\\tmp) = ok", "GetVolumePathNameW(E:\\tmp\\) = ok",
          "GetVolumeNameForVolumeMountPointW(E:\\) = ok", "IVssExamineWriterMetadata::GetComponent(0) = S_OK",
          "IVssWMComponent::GetComponentInfo() = S_OK", "IVssWMComponent::GetFile(0) = S_OK",
          "IVssWMFiledesc::GetPath() = S_OK", "IVssWMFiledesc::GetFilespec() = S_OK",
          "IVssWMFiledesc::GetRecursive() = S_OK", "IVssWMFiledesc::GetAlternateLocation() = S_FALSE",
          "ExpandEnvironmentStringsW(E:\\data) = ok", "GetVolumePathNameW(E:\\data\\) = ok",
          "GetVolumeNameForVolumeMountPointW(E:\\) = ok", "IVssWMComponent::FreeComponentInfo() = S_OK",
          "IVssBackupComponents::GetWriterMetadata(1) = S_OK", "IVssExamineWriterMetadata::GetIdentity() = S_OK",
          "IVssExamineWriterMetadata::GetRestoreMethod() = S_OK", "IVssExamineWriterMetadata::GetFileCounts() = S_OK"));
  EXPECT_THAT(log.All(), ElementsAre(kGatherLine));
  EXPECT_EQ(log.lines.front().source, "varnel");
  EXPECT_EQ(request.alerts(), "");
  ASSERT_THAT(request.requestor.GetWriters(), SizeIs(2));
  EXPECT_EQ(request.requestor.GetWriters()[0].name, L"Writer1");
  EXPECT_EQ(request.requestor.GetWriters()[1].name, L"Writer2");
}

TEST_F(GatheringTest, KeepsNothingOfTheServicesButItsObject) {
  Install(ModelWithWriters(3));
  GatheredRequest request;
  EXPECT_EQ(host().live().Describe(), "1 IVssBackupComponents");
}

TEST_F(GatheringTest, AHostWithoutWritersIsNoFailure) {
  GatheredRequest request;
  EXPECT_THAT(request.requestor.GetWriters(), IsEmpty());
  EXPECT_TRUE(request.probe.metadataGathered());
}

TEST_F(GatheringTest, TheErrorDetailsAreLeftAlone) {
  Install(ModelWithWriters(1));
  SnapshotRequest<> request;
  request.details() = "writer=1,";
  request.Gather();
  EXPECT_EQ(request.details(), "writer=1,");
}

TEST_F(GatheringTest, WithoutAnObjectIsABadState) {
  SnapshotRequest<> request;
  EXPECT_EQ(Gather(request), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->GatherWriterMetadata(&pAsync)", "VSS_E_BAD_STATE"));
  EXPECT_FALSE(request.probe.metadataGathered());
}

TEST_F(GatheringTest, ASuccessWithoutAnOperationIsUnexpected) {
  for (const HRESULT success : {S_OK, S_FALSE}) {
    StartedRequest request(*this);
    FailCall("IVssBackupComponents::GatherWriterMetadata", success);
    EXPECT_EQ(Gather(request), Failure(E_UNEXPECTED));
    EXPECT_EQ(request.alerts(), ComRecord("m_pVssObject->GatherWriterMetadata(&pAsync)", "E_UNEXPECTED"));
    EXPECT_THAT(Calls("IVssAsync::Wait"), IsEmpty());
  }
}

TEST_F(GatheringTest, ASuccessWithoutAWritersMetadataIsUnexpected) {
  Install(ModelWithWriters(2));
  StartedRequest request(*this);
  FailCall("IVssBackupComponents::GetWriterMetadata", S_FALSE, 2);
  EXPECT_EQ(Gather(request), Failure(E_UNEXPECTED));
  EXPECT_EQ(request.alerts(), ComRecord("GetWriterMetadata()", "E_UNEXPECTED"));
  EXPECT_THAT(request.requestor.GetWriters(), SizeIs(1));
}

// A call on the service's objects while metadata is gathered.
struct GatheringCall {
  const char* call;
  const char* operation;
  int occurrence;
  bool metadataGathered;
  std::size_t writersKept;
};

constexpr GatheringCall kGatheringCalls[] = {
    {"IVssBackupComponents::GatherWriterMetadata", "m_pVssObject->GatherWriterMetadata(&pAsync)", 1, false, 0},
    {"IVssAsync::Wait", "pAsync->Wait()", 1, false, 0},
    {"IVssAsync::QueryStatus", "pAsync->QueryStatus()", 1, false, 0},
    {"IVssBackupComponents::GetWriterMetadataCount", "GetWriterMetadataCount()", 1, true, 0},
    {"IVssBackupComponents::GetWriterMetadata", "GetWriterMetadata()", 1, true, 0},
    {"IVssBackupComponents::GetWriterMetadata", "GetWriterMetadata()", 3, true, 2},
};

TEST_F(GatheringTest, EveryFailingCallLeavesItsAlertAndIsThrown) {
  for (const GatheringCall& failing : kGatheringCalls) {
    for (const auto& [code, name] : kFailureCodes) {
      SCOPED_TRACE(std::string(failing.operation) + " " + name);
      Install(ModelWithWriters(3));
      {
        StartedRequest request(*this);
        request.details() = "writer=1,";
        FailCall(failing.call, code, failing.occurrence);
        EXPECT_EQ(Gather(request), Failure(code));
        const std::string record = ComRecord(failing.operation, name);
        EXPECT_EQ(request.details(), "writer=1," + record);
        EXPECT_THAT(log.Errors(), ElementsAre(LogLineOf(record)));
        EXPECT_EQ(request.probe.metadataGathered(), failing.metadataGathered);
        EXPECT_THAT(request.requestor.GetWriters(), SizeIs(failing.writersKept));
        EXPECT_EQ(host().live().Describe(), "1 IVssBackupComponents");
      }
      EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(failing.metadataGathered ? 1u : 0u));
      ExpectNothingLive();
    }
  }
}

TEST_F(GatheringTest, AnOperationThatFailedIsReportedAndThrown) {
  for (const auto& [code, name] : kFailureCodes) {
    SCOPED_TRACE(name);
    Install(ModelWithWriters(1));
    {
      StartedRequest request(*this);
      request.details() = "writer=1,";
      host().faults().FailAsync("GatherWriterMetadata", code);
      EXPECT_EQ(Gather(request), Failure(code));
      EXPECT_EQ(request.details(), "writer=1," + QueryStatusRecord(name));
      EXPECT_THAT(log.All(), ElementsAre(kGatherLine, "E   " + QueryStatusRecord(name)));
      EXPECT_FALSE(request.probe.metadataGathered());
      EXPECT_THAT(request.requestor.GetWriters(), IsEmpty());
    }
    EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(0u));
    ExpectNothingLive();
  }
}

TEST_F(GatheringTest, ACancelledOperationIsNoFailureOfTheWait) {
  Install(ModelWithWriters(1));
  StartedRequest request(*this);
  host().faults().FailAsync("GatherWriterMetadata", VSS_S_ASYNC_CANCELLED);
  // The service then has no metadata to count.
  EXPECT_EQ(Gather(request), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(request.alerts(), ComRecord("GetWriterMetadataCount()", "VSS_E_BAD_STATE"));
  EXPECT_TRUE(request.probe.metadataGathered());
}

class WaitingTest : public GatheringTest {
 protected:
  /// Waits for an operation that ends with this result.
  std::optional<long> Wait(HRESULT result, const std::string& operation) {
    auto work = std::make_shared<simulator::AsyncOperation>();
    work->result = result;
    const auto async =
        ComPtr<IVssAsync>::Attach(simulator::MakeAsync(host().machine().shared_from_this(), std::move(work)));
    return ThrownLong([&] { probe_.WaitAndCheckForAsyncOperation(async.Get(), operation, details_); });
  }

  CVarnel requestor_{0};
  RequestorProbe probe_{requestor_};
  std::string details_ = "old";
};

TEST_F(WaitingTest, EndsWithAnySuccessCode) {
  for (const HRESULT success : kSuccessCodes) {
    log.lines.clear();
    host().calls().Clear();
    EXPECT_EQ(Wait(success, "DoSnapshotSet()"), std::nullopt) << success;
    EXPECT_THAT(log.All(), ElementsAre("I Waiting for Operation=DoSnapshotSet() to finish..."));
    EXPECT_THAT(host().calls().lines(), SizeIs(2));
  }
  EXPECT_EQ(details_, "old");
}

TEST_F(WaitingTest, WaitsWithoutALimitAndAsksOnce) {
  Wait(VSS_S_ASYNC_FINISHED, "X()");
  EXPECT_THAT(host().calls().lines(), ElementsAre("IVssAsync::Wait(INFINITE) = S_OK",
                                                  "IVssAsync::QueryStatus(-> VSS_S_ASYNC_FINISHED) = S_OK"));
}

TEST_F(WaitingTest, AFailureNamesTheQueryWhateverTheOperationWas) {
  EXPECT_EQ(Wait(VSS_E_HOLD_WRITES_TIMEOUT, "DoSnapshotSet()"), Failure(VSS_E_HOLD_WRITES_TIMEOUT));
  EXPECT_EQ(details_, "old" + QueryStatusRecord("VSS_E_HOLD_WRITES_TIMEOUT"));
  EXPECT_THAT(log.All(), ElementsAre("I Waiting for Operation=DoSnapshotSet() to finish...",
                                     "E   " + QueryStatusRecord("VSS_E_HOLD_WRITES_TIMEOUT")));
  EXPECT_EQ(log.lines.back().source, "varnel");
}

TEST_F(WaitingTest, ARecordFollowsTheOneBeforeWithoutALineBreak) {
  Wait(E_UNEXPECTED, "X()");
  Wait(E_OUTOFMEMORY, "X()");
  EXPECT_EQ(details_, "old" + QueryStatusRecord("E_UNEXPECTED") + QueryStatusRecord("E_OUTOFMEMORY"));
}

TEST_F(WaitingTest, AFailingWaitIsACallThatFailed) {
  FailCall("IVssAsync::Wait", E_ACCESSDENIED);
  EXPECT_EQ(Wait(VSS_S_ASYNC_FINISHED, "X()"), Failure(E_ACCESSDENIED));
  EXPECT_EQ(details_, "old" + ComRecord("pAsync->Wait()", "Error: 0x80070005"));
  EXPECT_THAT(Calls("IVssAsync::QueryStatus"), IsEmpty());
}

TEST_F(WaitingTest, AFailingQueryIsACallThatFailed) {
  FailCall("IVssAsync::QueryStatus", VSS_E_UNEXPECTED);
  EXPECT_EQ(Wait(VSS_S_ASYNC_FINISHED, "X()"), Failure(VSS_E_UNEXPECTED));
  EXPECT_EQ(details_, "old" + ComRecord("pAsync->QueryStatus()", "VSS_E_UNEXPECTED"));
}

TEST_F(WaitingTest, AQueryThatSaysNothingLeavesASuccess) {
  FailCall("IVssAsync::QueryStatus", S_FALSE);
  EXPECT_EQ(Wait(E_UNEXPECTED, "X()"), std::nullopt);
  EXPECT_EQ(details_, "old");
}

// ---- Giving the metadata back ----

TEST_F(GatheringTest, TheDestructorGivesTheMetadataBack) {
  Install(ModelWithWriters(1));
  {
    GatheredRequest request;
    EXPECT_TRUE(request.probe.metadataGathered());
    EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(0u));
  }
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"),
              ElementsAre("IVssBackupComponents::FreeWriterMetadata() = S_OK"));
}

TEST_F(GatheringTest, MetadataIsGivenBackOnce) {
  Install(ModelWithWriters(1));
  GatheredRequest request;
  request.probe.FreeWriterMetadata();
  EXPECT_FALSE(request.probe.metadataGathered());
  request.probe.FreeWriterMetadata();
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(1u));
  EXPECT_THAT(request.requestor.GetWriters(), SizeIs(1));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(GatheringTest, MetadataThatWasNotGatheredIsNotGivenBack) {
  StartedRequest request(*this);
  request.probe.FreeWriterMetadata();
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(GatheringTest, WithoutAnObjectOnlyTheFlagIsCleared) {
  SnapshotRequest<> request;
  request.probe.metadataGathered() = true;
  request.probe.FreeWriterMetadata();
  EXPECT_FALSE(request.probe.metadataGathered());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(GatheringTest, MetadataThatCannotBeGivenBackIsOnlyLogged) {
  GatheredRequest request;
  log.lines.clear();
  FailCall("IVssBackupComponents::FreeWriterMetadata", VSS_E_BAD_STATE);
  EXPECT_NO_THROW(request.probe.FreeWriterMetadata());
  EXPECT_THAT(log.All(), ElementsAre("E FreeWriterMetadata failed with error: 0x80042301"));
  EXPECT_EQ(log.lines.front().source, "varnel");
  EXPECT_FALSE(request.probe.metadataGathered());
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(GatheringTest, APositiveResultOfGivingBackIsASuccess) {
  GatheredRequest request;
  log.lines.clear();
  FailCall("IVssBackupComponents::FreeWriterMetadata", S_FALSE);
  request.probe.FreeWriterMetadata();
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(GatheringTest, TheDestructorOnlyLogsMetadataThatCannotBeGivenBack) {
  {
    GatheredRequest request;
    log.lines.clear();
    FailCall("IVssBackupComponents::FreeWriterMetadata", E_UNEXPECTED);
  }
  EXPECT_THAT(log.All(), ElementsAre("E FreeWriterMetadata failed with error: 0x8000ffff"));
  ExpectNothingLive();
}

TEST_F(GatheringTest, TheDestructorLetsNothingOutThatTheLogThrows) {
  class FullDisk : public LogSink {
   public:
    int LowestCategory() const override { return CFileLog::Error; }
    void Write(int, std::wstring_view, int, std::wstring_view) override {
      ++lines;
      throw std::runtime_error("the disk is full");
    }
    int lines = 0;
  };
  FullDisk full;
  {
    std::optional<SnapshotRequest<>> request(std::in_place);
    request->Gather();
    FailCall("IVssBackupComponents::FreeWriterMetadata", E_UNEXPECTED);
    const ScopedLog current(full);
    request.reset();
  }
  EXPECT_EQ(full.lines, 1);
  ExpectNothingLive();
}

TEST_F(GatheringTest, MetadataOfAReplacedObjectIsNotGivenBackTwice) {
  Install(ModelWithWriters(1));
  {
    GatheredRequest request;
    request.requestor.Initialize(0, L"", false, VSS_BT_FULL, request.details(), &request.enumerator);
    EXPECT_FALSE(request.probe.metadataGathered());
    host().calls().Clear();
  }
  EXPECT_THAT(Calls("IVssBackupComponents::FreeWriterMetadata"), SizeIs(0u));
}

// ---- Cost ----

// Two writers whose components have so many files, all in four directories.
HostModel ModelWithFiles(std::size_t files) {
  HostModel model = SmallHost();
  for (const DWORD n : {1u, 2u}) {
    WriterComponent component = MakeComponent(L"", L"db", {});
    for (std::size_t i = 0; i < files; ++i) {
      component.files.push_back({i % 2 == 0 ? L"E:\\even" : L"F:\\odd", L"file" + std::to_wstring(i)});
    }
    Writer writer = MakeWriter(L"Writer", n, {std::move(component)});
    writer.excludeFiles = {{L"%SystemRoot%", L"1"}, {L"C:\\Windows", L"2"}};
    model.writers.push_back(std::move(writer));
  }
  return model;
}

TEST_F(GatheringTest, TheVolumeOfADirectoryIsAskedForOnce) {
  for (const std::size_t files : {2u, 20u, 500u}) {
    Install(ModelWithFiles(files));
    GatheredRequest request;
    EXPECT_THAT(Calls("GetVolumePathNameW"),
                ElementsAre("GetVolumePathNameW(C:\\Windows\\) = ok", "GetVolumePathNameW(E:\\even\\) = ok",
                            "GetVolumePathNameW(F:\\odd\\) = ok"));
    EXPECT_THAT(Calls("GetVolumeNameForVolumeMountPointW"), SizeIs(3u));
  }
}

TEST_F(GatheringTest, TheNextGatheringAsksForVolumesAgain) {
  Install(ModelWithFiles(2));
  for (const std::size_t asked : {3u, 6u}) {
    GatheredRequest request;
    EXPECT_THAT(Calls("GetVolumePathNameW"), SizeIs(asked));
  }
}

TEST_F(GatheringTest, AFileCostsSixCallsHoweverManyThereAre) {
  int last = 0;
  for (const std::size_t files : {100u, 200u, 300u, 400u}) {
    Install(ModelWithFiles(files));
    GatheredRequest request;
    const int calls = host().faults().callCount();
    if (last != 0) {
      EXPECT_EQ(calls - last, 2 * 100 * 6);
    }
    last = calls;
  }
}

TEST_F(GatheringTest, AComponentCostsThreeCallsHoweverManyThereAre) {
  int last = 0;
  for (const int components : {1000, 2000, 3000}) {
    HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Writer", 1, {})};
    for (int i = 0; i < components; ++i) {
      model.writers[0].components.push_back(MakeComponent(L"a\\b", std::to_wstring(i), {}));
    }
    Install(std::move(model));
    GatheredRequest request;
    const int calls = host().faults().callCount();
    if (last != 0) {
      EXPECT_EQ(calls - last, 3 * 1000);
    }
    last = calls;
  }
}

// ---- Captured documents ----

// What one element of a document says, read without an XML library.
using Attributes = std::map<std::string, std::string>;

constexpr char kBlanks[] = " \t\r\n";

struct Element {
  std::string tag;
  Attributes attributes;
};

Attributes ScanAttributes(std::string_view text) {
  Attributes attributes;
  for (std::size_t equals = text.find("=\""); equals != std::string_view::npos; equals = text.find("=\"", equals)) {
    const std::size_t name = text.find_last_of(kBlanks, equals) + 1;
    const std::size_t end = text.find('"', equals + 2);
    attributes[std::string(text.substr(name, equals - name))] = text.substr(equals + 2, end - equals - 2);
    equals = end + 1;
  }
  return attributes;
}

// The end of the tag that begins at `at`: values may hold any character but the quote.
std::size_t EndOfTag(std::string_view xml, std::size_t at) {
  bool quoted = false;
  for (; at < xml.size() && (quoted || xml[at] != '>'); ++at) {
    if (xml[at] == '"') quoted = !quoted;
  }
  return at;
}

std::vector<Element> ScanElements(std::string_view xml) {
  std::vector<Element> elements;
  for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at)) {
    const std::size_t end = EndOfTag(xml, at);
    const std::string_view content = xml.substr(at + 1, end - at - 1);
    if (!content.starts_with("/")) {
      const std::size_t space = content.find_first_of(std::string(kBlanks) + "/");
      elements.push_back({std::string(content.substr(0, space)), ScanAttributes(content)});
    }
    at = end;
  }
  return elements;
}

struct ScannedFile {
  std::string path;
  std::string filespec;
  friend bool operator==(const ScannedFile&, const ScannedFile&) = default;
};

struct ScannedComponent {
  Attributes attributes;
  std::vector<ScannedFile> files;
};

struct ScannedWriter {
  Attributes identification;
  Attributes restoreMethod;
  std::vector<ScannedComponent> components;
  std::vector<ScannedFile> excludeFiles;
};

ScannedWriter ScanWriter(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  const std::string xml{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  ScannedWriter writer;
  for (Element& element : ScanElements(xml)) {
    ScannedFile entry{element.attributes["path"], element.attributes["filespec"]};
    if (element.tag == "IDENTIFICATION") writer.identification = element.attributes;
    if (element.tag == "RESTORE_METHOD") writer.restoreMethod = element.attributes;
    if (element.tag == "FILE_GROUP") writer.components.push_back({element.attributes, {}});
    if (element.tag == "FILE_LIST") writer.components.back().files.push_back(std::move(entry));
    if (element.tag == "EXCLUDE_FILES") writer.excludeFiles.push_back(std::move(entry));
  }
  return writer;
}

std::string Narrow(const std::wstring& text) {
  return WideToUtf8(text);
}

std::string ValueOr(const Attributes& attributes, const std::string& name, const std::string& otherwise) {
  const auto found = attributes.find(name);
  return found == attributes.end() ? otherwise : found->second;
}

std::string InBraces(std::string id) {
  for (char& c : id) {
    if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
  }
  return "{" + id + "}";
}

// Windows 2012 with a system disk and two data disks; the writers are the captured documents.
std::string CapturedHost(int writers) {
  std::string documents;
  for (int i = 0; i < writers; ++i) {
    documents += (i == 0 ? "" : ", ") + std::string("{ \"document\": \"WM") + std::to_string(i) + ".xml\" }";
  }
  return R"json({
    "environment": { "SystemRoot": "C:\\Windows" },
    "disks": [
      { "serial": "SYS", "number": 0, "system": true, "volumes": [
        { "name": "\\\\?\\Volume{c7463aba-f40d-11e9-80c7-806e6f6e6963}\\", "mountPoints": [] },
        { "name": "\\\\?\\Volume{c7463abb-f40d-11e9-80c7-806e6f6e6963}\\", "mountPoints": ["C:\\"] } ] },
      { "serial": "D1", "number": 1, "volumes": [
        { "name": "\\\\?\\Volume{b26e0a9e-f4a4-11e9-80cd-0050569f7760}\\", "mountPoints": ["E:\\"] } ] },
      { "serial": "D3", "number": 3, "volumes": [
        { "name": "\\\\?\\Volume{43025f8a-07b0-11ea-80d1-0050569f7760}\\", "mountPoints": ["F:\\"] } ] } ],
    "writers": [ )json" +
         documents + " ] }";
}

class CapturedDocumentsTest : public GatheringTest {
 protected:
  static constexpr int kWriters = 11;

  void SetUp() override {
    GatheringTest::SetUp();
    const char* folder = std::getenv("VARNEL_CAPTURES");
    if (folder == nullptr) GTEST_SKIP() << "VARNEL_CAPTURES names no folder with captured writer documents";
    ReadDocuments(folder);
    Install(model_);
    GatheredRequest request;
    EXPECT_EQ(request.alerts(), "");
    writers_ = request.requestor.GetWriters();
    ASSERT_THAT(writers_, SizeIs(kWriters));
  }

  /// The documents are large; every test looks at the same ones.
  static void ReadDocuments(const std::filesystem::path& captures) {
    if (!scanned_.empty()) return;
    for (int i = 0; i < kWriters; ++i) scanned_.push_back(ScanWriter(captures / ("WM" + std::to_string(i) + ".xml")));
    model_ = simulator::ParseHostFile(CapturedHost(kWriters), "captured host", captures);
  }

  static void ExpectSameFiles(const std::vector<VssFileDescriptor>& files, const std::vector<ScannedFile>& scanned,
                              DWORD fileType) {
    ASSERT_THAT(files, SizeIs(scanned.size()));
    for (std::size_t i = 0; i < files.size(); ++i) {
      ASSERT_EQ((ScannedFile{Narrow(files[i].path), Narrow(files[i].filespec)}), scanned[i]) << i;
      ASSERT_EQ(files[i].fileType, fileType);
    }
  }

  static inline std::vector<ScannedWriter> scanned_;
  static inline HostModel model_;
  std::vector<VssWriter> writers_;
};

TEST_F(CapturedDocumentsTest, AreReadWholly) {
  std::size_t components = 0;
  std::size_t files = 0;
  for (const VssWriter& writer : writers_) {
    components += writer.components.size();
    for (const VssComponent& component : writer.components) files += component.files.size();
  }
  EXPECT_EQ(components, 24u);
  EXPECT_EQ(files, 18960u);
}

TEST_F(CapturedDocumentsTest, WritersAreAsTheDocumentsSay) {
  const std::map<std::string, DWORD> methods = {
      {"", 0}, {"RESTORE_IF_CAN_BE_REPLACED", 2}, {"REPLACE_AT_REBOOT", 5}, {"REPLACE_AT_REBOOT_IF_CANNOT_REPLACE", 6}};
  const std::map<std::string, DWORD> restores = {{"", 0}, {"never", 1}, {"ifReplaceFails", 2}, {"always", 3}};
  for (std::size_t i = 0; i < writers_.size(); ++i) {
    const VssWriter& writer = writers_[i];
    const ScannedWriter& scanned = scanned_[i];
    SCOPED_TRACE(Narrow(writer.name));
    EXPECT_EQ(Narrow(writer.name), scanned.identification.at("friendlyName"));
    EXPECT_EQ(Narrow(writer.writerId), InBraces(scanned.identification.at("writerId")));
    EXPECT_EQ(Narrow(writer.instanceId), InBraces(scanned.identification.at("instanceId")));
    EXPECT_EQ(writer.restoreMethod, methods.at(ValueOr(scanned.restoreMethod, "method", "")));
    EXPECT_EQ(writer.writerRestore, restores.at(ValueOr(scanned.restoreMethod, "writerRestore", "")));
    EXPECT_EQ(writer.restoreInvolvesWriter, ValueOr(scanned.restoreMethod, "writerRestore", "") != "never");
    EXPECT_EQ(writer.rebootRequiredAfterRestore, ValueOr(scanned.restoreMethod, "rebootRequired", "no") == "yes");
    ExpectSameFiles(writer.excludeFiles, scanned.excludeFiles, VssFileDescriptor::ExcludeFile);
  }
}

TEST_F(CapturedDocumentsTest, ComponentsAreAsTheDocumentsSay) {
  for (std::size_t i = 0; i < writers_.size(); ++i) {
    ASSERT_THAT(writers_[i].components, SizeIs(scanned_[i].components.size()));
    for (std::size_t j = 0; j < writers_[i].components.size(); ++j) {
      const VssComponent& component = writers_[i].components[j];
      const Attributes& attributes = scanned_[i].components[j].attributes;
      SCOPED_TRACE(Narrow(component.fullPath));
      const std::string logicalPath = ValueOr(attributes, "logicalPath", "");
      EXPECT_EQ(component.writerName, writers_[i].name);
      EXPECT_EQ(Narrow(component.name), attributes.at("componentName"));
      EXPECT_EQ(Narrow(component.logicalPath), logicalPath);
      EXPECT_EQ(Narrow(component.caption), ValueOr(attributes, "caption", ""));
      EXPECT_EQ(component.selectable, attributes.at("selectable") == "yes");
      EXPECT_EQ(component.notifyOnBackupComplete, attributes.at("notifyOnBackupComplete") == "yes");
      EXPECT_EQ(component.type, static_cast<DWORD>(VSS_CT_FILEGROUP));
      EXPECT_EQ(Narrow(component.fullPath),
                (logicalPath.empty() ? "\\" : "\\" + logicalPath + "\\") + attributes.at("componentName"));
      EXPECT_TRUE(component.topLevel);
      ExpectSameFiles(component.files, scanned_[i].components[j].files, VssFileDescriptor::File);
    }
  }
}

TEST_F(CapturedDocumentsTest, EveryFileLiesOnAVolumeOfTheHost) {
  const std::wstring boot = L"\\\\?\\Volume{c7463aba-f40d-11e9-80c7-806e6f6e6963}\\";
  std::set<std::wstring> directories;
  std::size_t bootFiles = 0;
  for (const VssWriter& writer : writers_) {
    std::vector<VssFileDescriptor> files = writer.excludeFiles;
    for (const VssComponent& component : writer.components) {
      files.insert(files.end(), component.files.begin(), component.files.end());
    }
    for (const VssFileDescriptor& file : files) {
      directories.insert(file.expandedPath);
      ASSERT_EQ(file.expandedPath.find(L'%'), std::wstring::npos) << Narrow(file.path);
      ASSERT_EQ(file.expandedPath.back(), L'\\');
      ASSERT_TRUE(file.volumeName.starts_with(L"\\\\?\\Volume{")) << Narrow(file.path);
      ASSERT_TRUE(file.expandedPath.ends_with(file.pathOnVolume)) << Narrow(file.path);
      if (file.volumeName == boot) ++bootFiles;
    }
  }
  EXPECT_EQ(bootFiles, 1u);
  EXPECT_THAT(Calls("GetVolumePathNameW"), SizeIs(directories.size()));
}

}  // namespace
}  // namespace varnel::test
