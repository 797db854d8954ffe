// Writers that lie, each in a way that a seed decides. Whatever they say, a request ends in one of its stated ways,
// nothing of the service's is left behind, the completion leaves the service at rest, and the next request finds it so.
#include <map>
#include <stdexcept>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/faults/lying_service.h"
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
  const std::vector<unsigned> seeds = Seeds(kHosts);
  unsigned lies = 0;
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
  }
  TellTotal(HostsText(seeds));
  if (seeds.size() < kHosts) return;
  // Enough requests get through that lies of every step are met.
  EXPECT_GE(lies, kHosts / 2);
  for (const End end : {End::returned, End::number, End::request}) {
    EXPECT_GE(created[end], static_cast<int>(kHosts / 20));
    EXPECT_GE(completed[end], static_cast<int>(kHosts / 200));
  }
}

// ---- counts that no memory holds ----

constexpr UINT kMost = 0xFFFFFFFF;

enum class Boast { writers, components, excludeFiles, files, statuses, documentWriters, documentComponents };

class BoastingComponent final : public ForwardingComponent {
 public:
  using ForwardingComponent::ForwardingComponent;
  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    const HRESULT result = inner().GetComponentInfo(&truth_);
    if (FAILED(result)) return result;
    told_ = *truth_;
    told_.cFileCount = kMost;
    *info = &told_;
    return result;
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO) override { return inner().FreeComponentInfo(truth_); }

 private:
  PVSSCOMPONENTINFO truth_ = nullptr;
  VSS_COMPONENTINFO told_{};
};

class BoastingMetadata final : public ForwardingMetadata {
 public:
  BoastingMetadata(MachinePtr machine, ComPtr<IVssExamineWriterMetadata> truth, Boast boast)
      : ForwardingMetadata(std::move(machine), "IVssExamineWriterMetadata of a boaster", std::move(truth)),
        boast_(boast) {}
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    const HRESULT result = inner().GetFileCounts(includeFiles, excludeFiles, components);
    if (boast_ == Boast::excludeFiles) *excludeFiles = kMost;
    if (boast_ == Boast::components) *components = kMost;
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    ComPtr<IVssWMComponent> truth;
    const HRESULT result = inner().GetComponent(index, truth.Put());
    if (FAILED(result)) return result;
    *component = boast_ == Boast::files
                     ? new BoastingComponent(sharedMachine(), "IVssWMComponent of a boaster", std::move(truth))
                     : truth.Detach();
    return result;
  }

 private:
  Boast boast_;
};

class BoastingWriterComponents final : public ForwardingWriterComponents {
 public:
  using ForwardingWriterComponents::ForwardingWriterComponents;
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    *components = kMost;
    return S_OK;
  }
};

class BoastingBackup final : public ForwardingBackup {
 public:
  BoastingBackup(MachinePtr machine, ComPtr<IVssBackupComponentsEx4> truth, Boast boast)
      : ForwardingBackup(std::move(machine), "IVssBackupComponents of a boaster", std::move(truth)), boast_(boast) {}
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
    if (SUCCEEDED(result)) *metadata = new BoastingMetadata(sharedMachine(), std::move(truth), boast_);
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    const HRESULT result = inner().GetWriterComponents(index, writer);
    if (FAILED(result) || boast_ != Boast::documentComponents) return result;
    auto truth = ComPtr<IVssWriterComponentsExt>::Attach(*writer);
    *writer = new BoastingWriterComponents(sharedMachine(), "IVssWriterComponentsExt of a boaster", std::move(truth));
    return result;
  }

 private:
  HRESULT Count(UINT* count, Boast boast, HRESULT (STDMETHODCALLTYPE IVssBackupComponents::*ask)(UINT*)) {
    const HRESULT result = (inner().*ask)(count);
    if (boast == boast_) *count = kMost;
    return result;
  }

  Boast boast_;
};

class BoastingService final : public ForwardingVss {
 public:
  BoastingService(simulator::SimulatedHost& host, Boast boast)
      : ForwardingVss(host.vss()), host_(host), boast_(boast) {}

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponentsEx4> backup) override {
    return new BoastingBackup(host_.machine().shared_from_this(), std::move(backup), boast_);
  }

  simulator::SimulatedHost& host_;
  Boast boast_;
};

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
    BoastingService service(host(), boast);
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

}  // namespace
}  // namespace varnel::test
