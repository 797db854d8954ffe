// A requestor on thousands of random hosts against the plain reference of its rules: results, log lines, error details,
// calls and the ways in which the steps end.
#include "tests/faults/reference.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "tests/faults/sample.h"
#include "tests/support/forwarding_vss.h"
#include "tests/support/host_fixture.h"
#include "tests/support/random.h"
#include "tests/support/requestor_probe.h"
#include "tests/support/total.h"
#include "text/guid.h"

namespace varnel::test {
namespace {

using namespace reference;

constexpr unsigned kHosts = 3000;

// What the service of one scenario was asked and answered.
struct Transcript {
  Lines calls;
  ServiceAnswers answers;
  std::size_t adds = 0;
  std::size_t marks = 0;
  std::size_t checks = 0;
};

// Hands out text, or a null one.
HRESULT Give(simulator::Machine& machine, HRESULT result, const std::optional<std::wstring>& text, BSTR* output) {
  *output = SUCCEEDED(result) && text ? machine.MakeBstr(*text) : nullptr;
  return result;
}

// Hands out an object, or none, as the scenario has it.
template <class Object, class Make>
HRESULT Give(const Delivery& delivery, Object** output, Make make) {
  *output = SUCCEEDED(delivery.result) && delivery.object ? make() : nullptr;
  return delivery.result;
}

class ToldComponent final : public DocumentComponentObject {
 public:
  ToldComponent(MachinePtr machine, const DocumentComponent& told)
      : DocumentComponentObject(std::move(machine)), told_(told) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    *object = nullptr;
    if (FAILED(told_.view.result) || !told_.view.object) return told_.view.result;
    const HRESULT result = DocumentComponentObject::QueryInterface(id, object);
    return FAILED(result) ? result : told_.view.result;
  }
  HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* name) override {
    return Give(machine(), told_.naming, told_.name, name);
  }
  HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* path) override {
    return Give(machine(), told_.locating, told_.logicalPath, path);
  }
  HRESULT STDMETHODCALLTYPE GetFailure(HRESULT* failure, HRESULT* applicationResult, BSTR* applicationMessage,
                                       DWORD* reserved) override {
    *failure = told_.failure;
    *applicationResult = told_.applicationResult;
    *reserved = 0;
    return Give(machine(), told_.reading, told_.applicationMessage, applicationMessage);
  }

 private:
  const DocumentComponent& told_;
};

class ToldWriter final : public IVssWriterComponentsExt, private simulator::CountedObject {
 public:
  ToldWriter(MachinePtr machine, const DocumentWriter& told)
      : CountedObject(std::move(machine), "IVssWriterComponentsExt of a test"), told_(told) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return Retain(); }
  ULONG STDMETHODCALLTYPE Release() override { return Drop(); }
  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    *components = static_cast<UINT>(told_.components.size());
    return told_.counting;
  }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writer) override {
    *instance = told_.instanceId;
    *writer = {};
    return told_.identifying;
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssComponent** component) override {
    const DocumentComponent& told = told_.components.at(index);
    return Give(told.delivery, component, [&] { return new ToldComponent(sharedMachine(), told); });
  }

 private:
  const DocumentWriter& told_;
};

// Answers what the scenario decides and writes down what it is asked and what the simulated service answers.
class ToldBackup final : public OnMachine<ForwardingBackup> {
 public:
  ToldBackup(MachinePtr machine, ComPtr<IVssBackupComponents> wrapped, const Scenario& scenario, Transcript& transcript)
      : OnMachine(std::move(machine), std::move(wrapped)), scenario_(scenario), transcript_(transcript) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const bool asked = id == kIidVssBackupComponentsEx3;
    const Delivery told = asked ? Latest().view : Delivery{};
    *object = nullptr;
    if (FAILED(told.result) || !told.object) return told.result;
    const HRESULT result = ForwardingBackup::QueryInterface(id, object);
    return FAILED(result) ? result : told.result;
  }
  HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,
                                         LPCWSTR name) override {
    transcript_.calls.push_back("AddComponent " + ComponentText(instance, writer, type, logicalPath, name));
    return Next(scenario_.addAnswers, transcript_.adds);
  }
  HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type,
                                               LPCWSTR logicalPath, LPCWSTR name, VssBool succeeded) override {
    transcript_.calls.push_back("SetBackupSucceeded " + ComponentText(instance, writer, type, logicalPath, name) +
                                (succeeded ? " 1" : " 0"));
    return Next(scenario_.successAnswers, transcript_.marks);
  }
  HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* setId) override {
    const HRESULT result = ForwardingBackup::StartSnapshotSet(setId);
    transcript_.answers.setId = *setId;
    return result;
  }
  HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ volume, VSS_ID provider, VSS_ID* snapshot) override {
    transcript_.calls.push_back("AddToSnapshotSet \"" + WideToUtf8Lossy(volume) + "\" " +
                                WideToUtf8Lossy(FormatGuid(provider)));
    const HRESULT result = ForwardingBackup::AddToSnapshotSet(volume, provider, snapshot);
    transcript_.answers.volumes.push_back({result, *snapshot});
    return result;
  }
  HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** async) override {
    ++transcript_.checks;
    return ForwardingBackup::GatherWriterStatus(async);
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    *writers = static_cast<UINT>(Latest().entries.size());
    return Latest().counting;
  }
  HRESULT STDMETHODCALLTYPE FreeWriterStatus() override { return Latest().freeing; }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* applicationMessage) override {
    const StatusEntry& entry = Latest().entries.at(index);
    *instance = entry.instanceId;
    *writer = {};
    *state = entry.state;
    *failure = entry.failure;
    *applicationResult = entry.applicationResult;
    Give(machine(), entry.reading, entry.applicationMessage, applicationMessage);
    return Give(machine(), entry.reading, entry.name, name);
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override {
    *components = static_cast<UINT>(Latest().document.size());
    return Latest().countingDocument;
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    const DocumentWriter& told = Latest().document.at(index);
    return Give(told.delivery, writer, [&] { return new ToldWriter(sharedMachine(), told); });
  }

 private:
  const Check& Latest() const { return scenario_.checks.at(transcript_.checks - 1); }
  static HRESULT Next(const std::vector<HRESULT>& answers, std::size_t& next) {
    const std::size_t index = next++;
    return index < answers.size() ? answers[index] : S_OK;
  }
  static std::string ComponentText(const VSS_ID& instance, const VSS_ID& writer, VSS_COMPONENT_TYPE type,
                                   LPCWSTR logicalPath, LPCWSTR name) {
    return WideToUtf8Lossy(FormatGuid(instance) + L" " + FormatGuid(writer) + L" " +
                           std::to_wstring(static_cast<int>(type)) + L" \"" + logicalPath + L"\" \"" + name + L"\"");
  }

  const Scenario& scenario_;
  Transcript& transcript_;
};

class ToldService final : public ForwardingVss {
 public:
  ToldService(simulator::SimulatedHost& host, const Scenario& scenario, Transcript& transcript)
      : ForwardingVss(host.vss()), host_(host), scenario_(scenario), transcript_(transcript) {}

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new ToldBackup(host_.machine().shared_from_this(), std::move(backup), scenario_, transcript_);
  }

  simulator::SimulatedHost& host_;
  const Scenario& scenario_;
  Transcript& transcript_;
};

// Accepts the writers of the scenario.
class ScenarioRequestor final : public CVarnel {
 public:
  explicit ScenarioRequestor(const Scenario& scenario) : CVarnel(scenario.testPoints), scenario_(scenario) {}
  bool IsWriterEligible(VssWriter& writer) override {
    const auto& names = scenario_.ineligibleWriters;
    return std::find(names.begin(), names.end(), writer.name) == names.end();
  }

 private:
  bool ArePartialFailuresSupported() override { return scenario_.partialFailures; }

  const Scenario& scenario_;
};

template <class Action>
Ending EndingOf(Action action) {
  try {
    action();
  } catch (long hr) {
    return EndingWithLong(hr);
  } catch (const VarnelException& exception) {
    return EndingWithException(exception.GetAlertCode(), exception.GetMessageText(), exception.GetMessageList());
  } catch (const std::invalid_argument&) {
    return EndingWithOther("std::invalid_argument");
  } catch (const std::out_of_range&) {
    return EndingWithOther("std::out_of_range");
  }
  return {};
}

class ReferenceTest : public HostFixture {
 protected:
  /// The request as the library goes through it.
  Story Run(const Scenario& scenario, Transcript& transcript) {
    Install(scenario.host).calls().enabled = false;
    log.lines.clear();
    ToldService service(host(), scenario, transcript);
    HostWithService told(host(), service);
    const ScopedHost current(told);
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    ScenarioRequestor requestor(scenario);
    return TellRun(scenario, transcript, requestor, enumerator);
  }

  /// How many of the stories so far say this.
  int Count(const std::string& part) { return seen_[part]; }
  void CountEndings(const Story& story) {
    for (const std::string& line : story) {
      if (line.starts_with("creation: ") || line.starts_with("completion: ")) ++seen_[line.substr(0, line.find(" \""))];
    }
  }

 private:
  Story TellRun(const Scenario& scenario, const Transcript& transcript, CVarnel& requestor,
                TesselCommonClasses::DiskAndVolumeEnumerator& enumerator) {
    Story story;
    RequestorProbe probe(requestor);
    std::string details = scenario.requestText;
    const Ending created = EndingOf([&] {
      if (!scenario.inputSerialNumbers.empty()) requestor.SetInputDriveSerialNos(scenario.inputSerialNumbers);
      requestor.Initialize(scenario.context, L"", false, VSS_BT_FULL, details, &enumerator);
      requestor.CreateVssSnapshotSet(details);
    });
    AddText(story, "creation", created.text);
    TellState(probe, story);
    TellCatalogue(requestor, story);
    const Ending completed = EndingOf([&] { requestor.SetBackupStatus(created.statusCode, details); });
    AddText(story, "completion", completed.text);
    TellState(probe, story);
    AddText(story, "databases", requestor.getSuccesfulDBList());
    AddText(story, "details", details);
    story.insert(story.end(), transcript.calls.begin(), transcript.calls.end());
    for (const RecordingLog::Line& line : log.lines) {
      if (line.source == "varnel") AddText(story, "log", std::string(1, "?VIWE"[line.category]) + " " + line.text);
    }
    return story;
  }

  static void TellState(RequestorProbe& probe, Story& story) {
    const std::vector<std::wstring> named(probe.inputComponents().begin(), probe.inputComponents().end());
    AddTexts(story, "named component", named);
    AddTexts(story, "eligible disk", probe.eligibleSerialNumbers());
    AddTexts(story, "extra disk", probe.extraSerialNumbers());
    AddVolumes(story, probe.snapshotVolumes());
    AddText(story, "error text", Narrow(probe.writerErrorText()));
    AddTexts(story, "failed", probe.failedComponents());
    AddWriters(story, probe.writers());
  }

  static void TellCatalogue(CVarnel& requestor, Story& story) {
    std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
    requestor.GetSnapshotMeatadata(metadata);
    for (const auto& [disk, info] : metadata) {
      for (const std::string& id : info.appObjectIds) AddText(story, "object " + disk, id);
      for (const std::string& name : info.appObjectNames) AddText(story, "object name " + disk, name);
      for (const std::string& id : info.otherObjectIds) AddText(story, "other " + disk, id);
      for (const std::string& name : info.otherObjectNames) AddText(story, "other name " + disk, name);
    }
  }

  std::map<std::string, int> seen_;
};

// The first line in which two stories differ, with some of those before it; empty when they are one.
std::string FirstDifference(const Story& library, const Story& expected) {
  const auto line = [](const Story& story, std::size_t at) { return at < story.size() ? story[at] : "(the end)"; };
  std::size_t at = 0;
  while (at < library.size() && at < expected.size() && library[at] == expected[at]) ++at;
  if (at == library.size() && at == expected.size()) return {};
  std::string text;
  for (std::size_t before = at - std::min<std::size_t>(at, 5); before < at; ++before) {
    text += "          " + library[before] + "\n";
  }
  return text + "library   " + line(library, at) + "\nreference " + line(expected, at) + "\n";
}

TEST_F(ReferenceTest, EveryRandomRequestGoesAsTheRulesRead) {
  const std::vector<unsigned> seeds = Sample().Of(Seeds(kHosts));
  for (const unsigned seed : seeds) {
    SCOPED_TRACE(SeedText(seed));
    const Scenario scenario = RandomScenario(seed);
    Transcript transcript;
    const Story library = Run(scenario, transcript);
    const std::string difference = FirstDifference(library, Tell(scenario, transcript.answers));
    ASSERT_TRUE(difference.empty()) << difference;
    ASSERT_EQ(host().live().Describe(), "");
    ASSERT_THAT(host().live().misuses(), IsEmpty());
    CountEndings(library);
  }
  TellTotal(HostsText(seeds) + Sample::Text());
  if (seeds.size() < kHosts) return;
  // The hosts reach every kind of end, or they would show little.
  for (const char* ending :
       {"creation: returned", "creation: VarnelException 600", "creation: VarnelException 601",
        "creation: VarnelException 602", "creation: VarnelException 701", "creation: std::invalid_argument",
        "completion: returned", "completion: VarnelException 600", "completion: VarnelException 601"}) {
    EXPECT_GE(Count(ending), static_cast<int>(kHosts / 100)) << ending;
  }
}

}  // namespace
}  // namespace varnel::test
