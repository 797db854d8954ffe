// Writers that lie, each in a way that a seed decides. Whatever they say, a request ends in one of its stated ways,
// nothing of the service's is left behind, the completion leaves the service at rest, and the next request finds it so.
#include <map>
#include <stdexcept>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/faults/lying_service.h"
#include "tests/faults/sample.h"
#include "tests/support/applications.h"
#include "tests/support/total.h"

namespace varnel::test {
namespace {

using testing::StartsWith;

using simulator::FileSpec;
using simulator::Writer;
using simulator::WriterComponent;

constexpr unsigned kHosts = 1000;

// Writers that say odd things about themselves, which the service passes on as they are.
class OddHostMaker {
 public:
  explicit OddHostMaker(Random& random) : random_(random) {}

  simulator::HostModel Make() {
    simulator::HostModel model = SmallHost();
    const unsigned count = 1 + random_.Below(5);
    for (DWORD n = 1; n <= count; ++n) model.writers.push_back(MakeWriter(n));
    return model;
  }

 private:
  bool Oddly() { return random_.Chance(oddPercent_); }

  Writer MakeWriter(DWORD n) {
    const std::wstring_view id = random_.Pick<std::wstring_view>(
        {kSqlServerWriterId, kMsdeWriterId, kExchangeWriterId, kHyperVWriterId, kClusterSharedVolumeWriterId});
    const std::wstring name = Oddly() ? StrangeText(random_) : L"Writer";
    Writer writer = MakeWriterOf(id, name, n, {});
    if (Oddly()) writer.instanceId.Data1 = 1;
    if (Oddly()) writer.excludeFiles = {MakeFile(), MakeFile()};
    for (unsigned c = random_.Below(8); c > 0; --c) writer.components.push_back(MakeComponent(writer.components));
    if (random_.Below(90) == 0) AddThousands(writer);
    return writer;
  }

  WriterComponent MakeComponent(const std::vector<WriterComponent>& others) {
    if (!others.empty() && Oddly()) return random_.PickFrom(others);
    WriterComponent component;
    component.name = Oddly() ? StrangeText(random_) : L"c" + std::to_wstring(others.size());
    if (random_.Chance(50)) component.logicalPath = Oddly() ? StrangeText(random_) : CyclicPath();
    if (random_.Chance(80)) component.caption = Oddly() ? StrangeText(random_) : L"Online\\" + component.name;
    component.selectable = !Oddly();
    if (random_.Chance(30)) component.type = VSS_CT_DATABASE;
    std::vector<FileSpec>& files = component.type == VSS_CT_DATABASE ? component.databaseFiles : component.files;
    for (unsigned f = 1 + random_.Below(3); f > 0; --f) files.push_back(MakeFile());
    if (Oddly()) files.clear();
    return component;
  }

  // The same few names over and over, as if components lay inside each other.
  std::wstring CyclicPath() {
    std::wstring path = L"a";
    for (unsigned depth = random_.Below(40); depth > 0; --depth) path += depth % 2 == 0 ? L"\\a" : L"\\b";
    return path;
  }

  FileSpec MakeFile() {
    FileSpec file{L"E:\\data", L"file.edb"};
    if (Oddly()) file.path = StrangeText(random_);
    if (Oddly()) file.path = L"E:\\" + StrangeText(random_);
    if (Oddly()) file.filespec = StrangeText(random_);
    return file;
  }

  void AddThousands(Writer& writer) {
    for (int i = 0; i < 3000; ++i) {
      WriterComponent component;
      component.logicalPath = L"many\\" + std::to_wstring(i % 50);
      component.name = std::to_wstring(i);
      component.files = {{L"E:\\data\\" + std::to_wstring(i % 100), L"*"}};
      writer.components.push_back(std::move(component));
    }
  }

  Random& random_;
  unsigned oddPercent_ = random_.Pick({0u, 3u, 15u});
};

// How a step may end besides returning.
enum class End { returned, number, request, text, other };

template <class Action>
End EndOf(Action action, int& code) {
  try {
    action();
  } catch (long hr) {
    code = static_cast<int>(hr);
    return End::number;
  } catch (const VarnelException& exception) {
    code = exception.GetAlertCode();
    return End::request;
  } catch (const std::range_error&) {
    code = -1;
    return End::text;  // text that is no text cannot be converted
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "ended with " << exception.what();
    code = -1;
    return End::other;
  }
  return End::returned;
}

class LyingWriters : public HostFixture {
 protected:
  /// One request of every step, as a liar answers it.
  template <class Requestor>
  void Request(Liar& liar, unsigned failingPercent) {
    LyingService service(host(), liar, failingPercent);
    HostWithService lying(host(), service);
    SnapshotRequest<Requestor> request;
    {
      const ScopedHost current(lying);
      RunSteps(request);
    }
    ExpectTheServiceIsAtRest();
    const ScopedHost current(lying);
    Maintain(request);
  }

  // Most of the questions are about metadata; liars on one of the other subjects let requests get that far.
  static Liar MakeLiar(Random& random, unsigned seed) {
    const auto subject = random.Pick<std::optional<Subject>>(
        {std::nullopt, Subject::metadata, Subject::status, Subject::document, Subject::document});
    const bool rarely = subject.value_or(Subject::metadata) == Subject::metadata;
    const unsigned perMille = rarely ? random.Pick({0u, 2u, 10u, 50u, 200u}) : random.Pick({20u, 100u, 300u});
    return {seed, subject, perMille, random.Pick({1u, 3u, 1000u})};
  }

  void RequestOfAnyKind(Random& random, Liar& liar) {
    const unsigned failingPercent = random.Pick({0u, 0u, 30u, 80u});
    switch (random.Below(5)) {
      case 0:
        return Request<CVarnel>(liar, failingPercent);
      case 1:
        return Request<PartialRequestor>(liar, failingPercent);
      case 2:
        return Request<SqlReq>(liar, failingPercent);
      case 3:
        return Request<ExchangeReq>(liar, failingPercent);
      default:
        return Request<HyperVReq>(liar, failingPercent);
    }
  }

  std::map<End, int> created;
  std::map<End, int> completed;

 private:
  template <class Requestor>
  void RunSteps(SnapshotRequest<Requestor>& request) {
    int code = 0;
    const End end = EndOf(
        [&] {
          request.Start();
          request.requestor.CreateVssSnapshotSet(request.details());
        },
        code);
    ++created[end];
    EXPECT_NE(end, End::text);
    EXPECT_THAT(request.details(), StartsWith("writer=0,"));
    EXPECT_NO_THROW(Utf8ToWide(request.details())) << "the array cannot read its records";
    EXPECT_TRUE(end != End::number || !log.Errors().empty()) << "a failed call left no trace";
    int ignored = 0;
    EndOf([&] { CatalogueLines(request.requestor); }, ignored);
    if (end == End::returned) EndOf([&] { request.requestor.VerifySnapShotData(); }, ignored);
    const End completion = EndOf([&] { request.requestor.SetBackupStatus(code, request.details()); }, ignored);
    EXPECT_NE(completion, End::text);
    ++completed[completion];
  }

  template <class Requestor>
  void Maintain(SnapshotRequest<Requestor>& request) {
    int ignored = 0;
    EndOf([&] { request.requestor.BreakSnapshotSet(request.details()); }, ignored);
    EndOf([&] { request.requestor.IsWriterPresent(request.details()); }, ignored);
  }

  /// Honest writers on the same service, while the object of the request before still lives.
  void ExpectTheServiceIsAtRest() {
    host().model().writers = {
        test::MakeWriter(L"Honest", 1, {MakeComponent(L"", L"one", {L"E:\\one"})}),
    };
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
  }
};

TEST_F(LyingWriters, WhateverTheySayARequestEndsAsStatedAndTheNextOneWorks) {
  const std::vector<unsigned> seeds = Sample().Of(Seeds(kHosts));
  unsigned lies = 0;
  std::map<std::pair<Subject, Lie>, unsigned> told;
  for (const unsigned seed : seeds) {
    SCOPED_TRACE(SeedText(seed));
    Random random(seed);
    Install(OddHostMaker(random).Make()).calls().enabled = false;
    log.lines.clear();
    Liar liar = MakeLiar(random, seed);
    RequestOfAnyKind(random, liar);
    ASSERT_EQ(host().live().Describe(), "");
    ASSERT_THAT(host().live().misuses(), IsEmpty());
    ASSERT_FALSE(HasFailure());
    lies += liar.lies();
    for (const auto& [lie, times] : liar.told()) told[lie] += times;
  }
  TellTotal(HostsText(seeds) + Sample::Text());
  if (seeds.size() < kHosts) return;
  // Enough requests get through that lies of every step are met.
  EXPECT_GE(lies, kHosts / 2);
  for (const Subject subject : {Subject::metadata, Subject::status, Subject::document}) {
    for (const Lie lie : {Lie::failure, Lie::failureWithAnswer, Lie::nothing, Lie::falseNothing, Lie::strange}) {
      EXPECT_GE((told[{subject, lie}]), kHosts / 100);
    }
  }
  for (const End end : {End::returned, End::number, End::request}) {
    EXPECT_GE(created[end], static_cast<int>(kHosts / 20));
    EXPECT_GE(completed[end], static_cast<int>(kHosts / 200));
  }
}

// ---- counts that are not true, up to such as no memory holds ----

constexpr UINT kMost = 0xFFFFFFFF;

enum class Boast { writers, components, excludeFiles, files, statuses, documentWriters, documentComponents };

// A count instead of the true one.
struct Claim {
  Boast of;
  UINT count = kMost;
};

class BoastingComponent final : public OnMachine<ForwardingComponent> {
 public:
  BoastingComponent(MachinePtr machine, ComPtr<IVssWMComponent> truth, UINT files)
      : OnMachine(std::move(machine), std::move(truth)), files_(files) {}
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    const HRESULT result = inner().GetComponentInfo(&truth_);
    if (FAILED(result)) return result;
    told_ = *truth_;
    told_.cFileCount = files_;
    *info = &told_;
    return result;
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO) override { return inner().FreeComponentInfo(truth_); }

 private:
  UINT files_;
  PVSSCOMPONENTINFO truth_ = nullptr;
  VSS_COMPONENTINFO told_{};
};

class BoastingMetadata final : public OnMachine<ForwardingMetadata> {
 public:
  BoastingMetadata(MachinePtr machine, ComPtr<IVssExamineWriterMetadata> truth, Claim claim)
      : OnMachine(std::move(machine), std::move(truth)), claim_(claim) {}
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    const HRESULT result = inner().GetFileCounts(includeFiles, excludeFiles, components);
    if (claim_.of == Boast::excludeFiles) *excludeFiles = claim_.count;
    if (claim_.of == Boast::components) *components = claim_.count;
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    ComPtr<IVssWMComponent> truth;
    const HRESULT result = inner().GetComponent(index, truth.Put());
    if (FAILED(result)) return result;
    *component = claim_.of == Boast::files ? new BoastingComponent(sharedMachine(), std::move(truth), claim_.count)
                                           : truth.Detach();
    return result;
  }

 private:
  Claim claim_;
};

class BoastingWriterComponents final : public OnMachine<ForwardingWriterComponents> {
 public:
  BoastingWriterComponents(MachinePtr machine, ComPtr<IVssWriterComponentsExt> truth, UINT components)
      : OnMachine(std::move(machine), std::move(truth)), components_(components) {}
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    *components = components_;
    return S_OK;
  }

 private:
  UINT components_;
};

class BoastingBackup final : public OnMachine<ForwardingBackup> {
 public:
  BoastingBackup(MachinePtr machine, ComPtr<IVssBackupComponents> truth, Claim claim)
      : OnMachine(std::move(machine), std::move(truth)), claim_(claim) {}
  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override {
    return Count(writers, Boast::writers, &IVssBackupComponents::GetWriterMetadataCount);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    return Count(writers, Boast::statuses, &IVssBackupComponents::GetWriterStatusCount);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* writers) override {
    return Count(writers, Boast::documentWriters, &IVssBackupComponents::GetWriterComponentsCount);
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    ComPtr<IVssExamineWriterMetadata> truth;
    const HRESULT result = inner().GetWriterMetadata(index, instance, truth.Put());
    if (SUCCEEDED(result)) *metadata = new BoastingMetadata(sharedMachine(), std::move(truth), claim_);
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    const HRESULT result = inner().GetWriterComponents(index, writer);
    if (FAILED(result) || claim_.of != Boast::documentComponents) return result;
    auto truth = ComPtr<IVssWriterComponentsExt>::Attach(*writer);
    *writer = new BoastingWriterComponents(sharedMachine(), std::move(truth), claim_.count);
    return result;
  }

 private:
  HRESULT Count(UINT* count, Boast boast, HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*ask)(UINT*)) {
    const HRESULT result = (inner().*ask)(count);
    if (boast == claim_.of) *count = claim_.count;
    return result;
  }

  Claim claim_;
};

// Wraps every backup components object in a Backup that is made with the other arguments.
template <class Backup, class Argument>
class WrappingService final : public ForwardingVss {
 public:
  WrappingService(simulator::SimulatedHost& host, Argument argument)
      : ForwardingVss(host.vss()), host_(host), argument_(argument) {}

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new Backup(host_.machine().shared_from_this(), std::move(backup), argument_);
  }

  simulator::SimulatedHost& host_;
  Argument argument_;
};

using BoastingService = WrappingService<BoastingBackup, Claim>;

class BoastingWriters : public HostFixture {
 protected:
  /// A writer with one component, of which some count is far beyond what there is, fails partially. Then the request
  /// ends with the first object that is not there, or does without the component's failures.
  void Expect(Boast boast, int expectedCode, const std::string& errorLine) {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Boaster", 1, {MakeComponent(L"", L"one", {L"E:\\one"})})};
    model.writers[0].excludeFiles = {{L"E:\\tmp", L"*"}};
    Install(std::move(model));
    simulator::WriterFault partial;
    partial.writer = L"Boaster";
    partial.event = simulator::WriterEvent::postSnapshot;
    partial.failure = VSS_E_WRITERERROR_PARTIAL_FAILURE;
    host().faults().FailWriter(partial);
    BoastingService service(host(), {boast});
    HostWithService boasting(host(), service);
    SnapshotRequest request;
    {
      const ScopedHost current(boasting);
      const Outcome outcome = request.StartAndCreate();
      EXPECT_EQ(StatusCode(outcome), expectedCode);
      EXPECT_THAT(log.Errors(), testing::Contains(HasSubstr(errorLine)));
      request.Complete(StatusCode(outcome));
    }
    host().faults() = {};
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
  }
};

constexpr int kMissing = VSS_E_OBJECT_NOT_FOUND;

TEST_F(BoastingWriters, WritersThatAreNotThereEndTheRequest) {
  Expect(Boast::writers, kMissing, "GetWriterMetadata()=Failed, error=VSS_E_OBJECT_NOT_FOUND");
}

TEST_F(BoastingWriters, ComponentsThatAreNotThereEndTheRequest) {
  Expect(Boast::components, kMissing, "\"pMetadata->GetComponent(iComponent, &pComponent)\" failed");
}

TEST_F(BoastingWriters, ExcludeFilesThatAreNotThereEndTheRequest) {
  Expect(Boast::excludeFiles, kMissing, "\"pMetadata->GetExcludeFile(i, &pFileDesc)\" failed");
}

TEST_F(BoastingWriters, FilesThatAreNotThereEndTheRequest) {
  Expect(Boast::files, kMissing, "\"pComponent->GetFile(i, &pFileDesc)\" failed");
}

TEST_F(BoastingWriters, StatusEntriesThatAreNotThereEndTheRequest) {
  Expect(Boast::statuses, kMissing, "bucompEx3->GetWriterStatusEx()=Failed, error=VSS_E_OBJECT_NOT_FOUND");
}

TEST_F(BoastingWriters, WritersMissingFromTheDocumentMakeAPartialFailureACompleteOne) {
  Expect(Boast::documentWriters, VarnelException::WriterFailure, "Marking all components of writer Boaster as FAILED!");
}

TEST_F(BoastingWriters, ComponentsMissingFromTheDocumentMakeAPartialFailureACompleteOne) {
  Expect(Boast::documentComponents, VarnelException::WriterFailure,
         "Marking all components of writer Boaster as FAILED!");
}

// ---- one lie at a time, and how the request then ends ----

// Null in place of every empty text, and in place of every text of the document and the status when it says so.
struct Silence {
  bool inStatus = false;
};

class SilentFile final : public OnMachine<ForwardingFile> {
 public:
  using OnMachine::OnMachine;
  HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) override { return NullIfEmpty(inner().GetPath(path), path); }
  HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) override {
    return NullIfEmpty(inner().GetFilespec(filespec), filespec);
  }

 private:
  HRESULT NullIfEmpty(HRESULT result, BSTR* text) {
    if (SUCCEEDED(result) && ::SysStringLen(*text) == 0) machine().FreeBstr(std::exchange(*text, nullptr));
    return result;
  }
};

class SilentComponent final : public OnMachine<ForwardingComponent> {
 public:
  using OnMachine::OnMachine;
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    const HRESULT result = inner().GetComponentInfo(&truth_);
    if (FAILED(result)) return result;
    told_ = *truth_;
    for (BSTR* text : {&told_.bstrLogicalPath, &told_.bstrComponentName, &told_.bstrCaption}) {
      if (::SysStringLen(*text) == 0) *text = nullptr;
    }
    *info = &told_;
    return result;
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO) override { return inner().FreeComponentInfo(truth_); }
  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override {
    ComPtr<IVssWMFiledesc> truth;
    const HRESULT result = inner().GetFile(index, truth.Put());
    if (SUCCEEDED(result)) *file = new SilentFile(sharedMachine(), std::move(truth));
    return result;
  }

 private:
  PVSSCOMPONENTINFO truth_ = nullptr;
  VSS_COMPONENTINFO told_{};
};

class SilentMetadata final : public OnMachine<ForwardingMetadata> {
 public:
  using OnMachine::OnMachine;
  HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                        VSS_SOURCE_TYPE* source) override {
    const HRESULT result = inner().GetIdentity(instance, writer, name, usage, source);
    if (SUCCEEDED(result) && ::SysStringLen(*name) == 0) machine().FreeBstr(std::exchange(*name, nullptr));
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    ComPtr<IVssWMComponent> truth;
    const HRESULT result = inner().GetComponent(index, truth.Put());
    if (SUCCEEDED(result)) *component = new SilentComponent(sharedMachine(), std::move(truth));
    return result;
  }
};

class SilentBackup final : public OnMachine<ForwardingBackup> {
 public:
  SilentBackup(MachinePtr machine, ComPtr<IVssBackupComponents> truth, Silence silence)
      : OnMachine(std::move(machine), std::move(truth)), silence_(silence) {}
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    ComPtr<IVssExamineWriterMetadata> truth;
    const HRESULT result = inner().GetWriterMetadata(index, instance, truth.Put());
    if (SUCCEEDED(result)) *metadata = new SilentMetadata(sharedMachine(), std::move(truth));
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* message) override {
    const HRESULT result =
        ForwardingBackup::GetWriterStatusEx(index, instance, writer, name, state, failure, applicationResult, message);
    if (FAILED(result) || !silence_.inStatus) return result;
    machine().FreeBstr(std::exchange(*name, nullptr));
    machine().FreeBstr(std::exchange(*message, nullptr));
    return result;
  }

 private:
  Silence silence_;
};

// Status entries, all of them of writers that nobody knows.
class StrangersBackup final : public OnMachine<ForwardingBackup> {
 public:
  StrangersBackup(MachinePtr machine, ComPtr<IVssBackupComponents> truth, HRESULT failure)
      : OnMachine(std::move(machine), std::move(truth)), failure_(failure) {}
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* message) override {
    const HRESULT result =
        ForwardingBackup::GetWriterStatusEx(index, instance, writer, name, state, failure, applicationResult, message);
    *instance = GUID{99, 99, 99, {}};
    *failure = failure_;
    return result;
  }

 private:
  HRESULT failure_;
};

class OneLie : public HostFixture {
 protected:
  void InstallWriters(std::vector<Writer> writers) {
    simulator::HostModel model = SmallHost();
    model.writers = std::move(writers);
    Install(std::move(model));
  }
  static simulator::WriterFault Fault(simulator::WriterEvent event, HRESULT failure) {
    simulator::WriterFault fault;
    fault.writer = L"Liar";
    fault.event = event;
    fault.failure = failure;
    return fault;
  }
  static simulator::WriterFault PartialFault() {
    return Fault(simulator::WriterEvent::postSnapshot, VSS_E_WRITERERROR_PARTIAL_FAILURE);
  }

  /// How a request ends, how its completion does, and what it writes. The next one, of honest writers, gets through.
  struct Ends {
    Outcome created;
    Outcome completed;
    std::string alerts;
    std::vector<std::string> lines;
    friend bool operator==(const Ends&, const Ends&) = default;
  };
  template <class Requestor = CVarnel>
  Ends Request(VssService& service) {
    Ends ends;
    {
      log.lines.clear();
      HostWithService lying(host(), service);
      const ScopedHost current(lying);
      SnapshotRequest<Requestor> request;
      ends.created = request.StartAndCreate();
      ends.completed = request.Complete(StatusCode(ends.created));
      ends.alerts = request.alerts();
      ends.lines = log.All();
    }
    EXPECT_EQ(host().live().Describe(), "");
    host().faults() = {};
    host().model().writers = {test::MakeWriter(L"Honest", 1, {MakeComponent(L"", L"one", {L"E:\\one"})})};
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
    return ends;
  }
  template <class Requestor = CVarnel>
  Ends Request() {
    return Request<Requestor>(host().vss());
  }
};

Writer LiarWith(std::vector<WriterComponent> components) {
  return MakeWriter(L"Liar", 1, std::move(components));
}

TEST_F(OneLie, ANullTextIsAsGoodAsAnEmptyOne) {
  const auto install = [&] {
    Writer writer = LiarWith({MakeComponent(L"", L"", {L"E:\\one", L"E:\\two"}), MakeComponent(L"", L"x", {L""})});
    writer.components[0].files[1].filespec = L"";
    writer.name = L"";
    InstallWriters({writer});
  };
  install();
  const Ends empty = Request();
  install();
  WrappingService<SilentBackup, Silence> silent(host(), {});
  const Ends null = Request(silent);
  EXPECT_EQ(null, empty);
  EXPECT_EQ(empty.created, Outcome::Returned());
  EXPECT_EQ(empty.completed, Outcome::Returned());
  EXPECT_THAT(empty.lines, testing::Contains("W Component not in input file, State=NotEligible").Times(0));
}

TEST_F(OneLie, AFailureWithoutAnyTextIsStillReported) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})})});
  host().faults().FailWriter(Fault(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT));
  WrappingService<SilentBackup, Silence> silent(host(), {.inStatus = true});
  const Ends ends = Request(silent);
  EXPECT_EQ(ends.created.alertCode, VarnelException::WriterFailure);
  EXPECT_THAT(ends.alerts,
              StartsWith("RequestStatus=WriterFailure, WriterName=, WriterError=VSS_E_WRITERERROR_TIMEOUT, "
                         "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=, "));
}

TEST_F(OneLie, AComponentOfASecondWriterWithTheSameInstanceIdIsRefused) {
  Writer twin = MakeWriter(L"Twin", 1, {MakeComponent(L"", L"two", {L"E:\\two"})});
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})}), twin});
  const Ends ends = Request();
  EXPECT_EQ(ends.created, Outcome::Thrown(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_EQ(ends.completed, Outcome::Returned());
  EXPECT_THAT(ends.alerts, StartsWith("status=AddComponentFailed, Component=\\two, rc=ConfigError, "));
}

TEST_F(OneLie, OfWritersWithOneInstanceIdTheFirstAnswersForBoth) {
  Writer twin = MakeWriter(L"Twin", 1, {MakeComponent(L"", L"two", {L"E:\\two"})});
  twin.components[0].selectable = false;
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})}), twin});
  simulator::WriterFault fault = Fault(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT);
  fault.writer = L"Twin";
  host().faults().FailWriter(fault);
  const Ends ends = Request();
  EXPECT_EQ(ends.created.alertCode, VarnelException::WriterFailure);
  EXPECT_THAT(ends.alerts, StartsWith("RequestStatus=WriterFailure, WriterName=Twin, "));
  EXPECT_THAT(ends.lines, testing::Contains("E Marking all components of writer Liar as FAILED!"));
  EXPECT_THAT(ends.lines, testing::Not(testing::Contains("E Marking all components of writer Twin as FAILED!")));
}

TEST_F(OneLie, AComponentThatIsToldTwiceIsRefusedTheSecondTime) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"}), MakeComponent(L"", L"one", {L"E:\\one"})})});
  const Ends ends = Request();
  EXPECT_EQ(ends.created, Outcome::Thrown(VSS_E_OBJECT_ALREADY_EXISTS));
  EXPECT_EQ(ends.completed, Outcome::Returned());
  EXPECT_THAT(ends.alerts, StartsWith("status=AddComponentFailed, Component=\\one, rc=ConfigError, "));
}

TEST_F(OneLie, ThousandsOfComponentsAreAllAdded) {
  constexpr int kComponents = 5000;
  Writer writer = LiarWith({});
  for (int i = 0; i < kComponents; ++i) {
    writer.components.push_back(MakeComponent(L"many\\" + std::to_wstring(i % 50), std::to_wstring(i), {L"E:\\data"}));
  }
  InstallWriters({writer});
  const Ends ends = Request();
  EXPECT_EQ(ends.created, Outcome::Returned());
  EXPECT_EQ(ends.completed, Outcome::Returned());
  EXPECT_THAT(ends.lines, testing::Contains("I Number of components explicitly included in snapshot set = 5000 "));
}

TEST_F(OneLie, NamesOf64KibAreTakenWholeAndShortenedInRecordsOnly) {
  constexpr std::size_t kLength = 65536;
  const std::wstring name(kLength, L'n');
  Writer writer = MakeWriter(std::wstring(kLength, L'w'), 1, {MakeComponent(L"", name, {L"E:\\one"})});
  InstallWriters({writer});
  simulator::WriterFault fault = Fault(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT);
  fault.writer = writer.name;
  host().faults().FailWriter(fault);
  const Ends ends = Request();
  EXPECT_EQ(ends.created.alertCode, VarnelException::WriterFailure);
  EXPECT_EQ(ends.alerts.find('\n'), 2046U);
  EXPECT_THAT(ends.alerts, StartsWith("RequestStatus=WriterFailure, WriterName=www"));
  EXPECT_THAT(ends.alerts, HasSubstr("w..., WriterError=VSS_E_WRITERERROR_TIMEOUT, "));
  EXPECT_THAT(ends.lines, testing::Contains("I Add Component=\\" + std::string(kLength, 'n') + " "));
}

TEST_F(OneLie, HalfASurrogatePairIsKeptInNamesAndReplacedInRecords) {
  const std::wstring half = {L'a', static_cast<wchar_t>(0xD83D), L'b'};
  Writer writer = MakeWriter(half, 1, {MakeComponent(L"", half, {L"E:\\one"})});
  InstallWriters({writer});
  simulator::WriterFault fault = Fault(simulator::WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT);
  fault.writer = half;
  host().faults().FailWriter(fault);
  SnapshotRequest request;
  EXPECT_EQ(request.StartAndCreate().alertCode, VarnelException::WriterFailure);
  EXPECT_EQ(request.requestor.GetWriters().at(0).components.at(0).name, half);
  EXPECT_THAT(request.alerts(), HasSubstr("WriterName=a\xEF\xBF\xBD"
                                          "b, "));
  EXPECT_THROW(CatalogueLines(request.requestor), std::range_error);  // the catalogue is exact or not at all
  EXPECT_EQ(request.Complete(VarnelException::WriterFailure).alertCode, VarnelException::WriterFailure);
}

TEST_F(OneLie, PathsThatLookCyclicAreWalkedOnce) {
  InstallWriters({LiarWith({MakeComponent(L"", L"a", {L"E:\\one"}), MakeComponent(L"a", L"a", {L"E:\\one"}),
                            MakeComponent(L"a\\a", L"a", {L"E:\\one"}), MakeComponent(L"a\\b", L"a", {L"E:\\one"}),
                            MakeComponent(L"b\\a", L"b", {L"E:\\one"}), MakeComponent(L"\\", L"\\", {L"E:\\one"})})});
  const Ends ends = Request();
  EXPECT_EQ(ends.created, Outcome::Returned());
  EXPECT_EQ(ends.completed, Outcome::Returned());
  EXPECT_THAT(ends.lines, testing::Contains("I Number of components explicitly included in snapshot set = 6 "));
}

TEST_F(OneLie, AFailureOfAnUnknownWriterIsNobodys) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})})});
  WrappingService<StrangersBackup, HRESULT> strangers(host(), VSS_E_WRITERERROR_TIMEOUT);
  const Ends ends = Request(strangers);
  EXPECT_EQ(ends.created, Outcome::Returned());
  EXPECT_EQ(ends.completed, Outcome::Returned());
  EXPECT_EQ(ends.alerts, "");
}

TEST_F(OneLie, SuccessOfAnUnknownWriterDoesNotCarryAnApplicationThatToleratesPartialFailures) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})})});
  WrappingService<StrangersBackup, HRESULT> strangers(host(), S_OK);
  const Ends ends = Request<PartialRequestor>(strangers);
  EXPECT_EQ(ends.created, Outcome::Exception(VarnelException::WriterFailure, L"", {}));
  EXPECT_EQ(ends.alerts, "");
}

TEST_F(OneLie, ADocumentWithoutTheFailedWriterLeavesItsComponentsAsTheyAre) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})})});
  host().faults().FailWriter(PartialFault());
  BoastingService service(host(), {Boast::documentWriters, 0});
  const Ends ends = Request<PartialRequestor>(service);
  EXPECT_EQ(ends.created.alertCode, VarnelException::PartialSuccess);
  EXPECT_THAT(ends.lines, testing::Contains(
                              "E Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!"));
  EXPECT_THAT(ends.lines, testing::Contains("W - There were no writer components in this backup"));
  EXPECT_EQ(ends.completed, Outcome::Returned());
}

TEST_F(OneLie, ADocumentWithoutTheFailedComponentsNamesNone) {
  InstallWriters({LiarWith({MakeComponent(L"", L"one", {L"E:\\one"})})});
  simulator::WriterFault fault = PartialFault();
  fault.components = {{L"\\one", VSS_E_WRITERERROR_NONRETRYABLE, S_OK, L"gone"}};
  host().faults().FailWriter(fault);
  BoastingService service(host(), {Boast::documentComponents, 0});
  const Ends ends = Request<PartialRequestor>(service);
  EXPECT_EQ(ends.created.alertCode, VarnelException::PartialSuccess);
  EXPECT_THAT(ends.alerts, StartsWith("RequestStatus=WriterFailure, "));
  EXPECT_THAT(ends.alerts, testing::Not(HasSubstr("RequestStatus=ComponentLevelFailure")));
}

TEST_F(OneLie, CountsThatAreTooLowHideWhatIsBeyondThem) {
  const auto request = [&](Claim claim) {
    InstallWriters(
        {LiarWith({MakeComponent(L"", L"one", {L"E:\\one", L"E:\\two"}), MakeComponent(L"", L"two", {L"E:\\two"})}),
         MakeWriter(L"Other", 2, {MakeComponent(L"", L"three", {L"E:\\three"})})});
    BoastingService service(host(), claim);
    const Ends ends = Request(service);
    return ends;
  };
  for (const Boast boast : {Boast::writers, Boast::components, Boast::files}) {
    const Ends ends = request({boast, 1});
    EXPECT_EQ(ends.created, Outcome::Returned());
    EXPECT_EQ(ends.completed, Outcome::Returned());
  }
  const std::string included = "I Number of components explicitly included in snapshot set = ";
  EXPECT_THAT(request({Boast::writers, 1}).lines, testing::Contains(included + "2 "));
  EXPECT_THAT(request({Boast::components, 1}).lines, testing::Contains(included + "2 "));
  EXPECT_THAT(request({Boast::files, 1}).lines, testing::Contains(included + "3 "));
  EXPECT_EQ(request({Boast::writers, 0}).created.alertCode, VarnelException::ConfigurationError);
  EXPECT_EQ(request({Boast::components, 0}).created.alertCode, VarnelException::ConfigurationError);
}

}  // namespace
}  // namespace varnel::test
