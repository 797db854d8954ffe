#include "varnelctl/sets/plan_run.h"

#include <algorithm>
#include <set>

#include "text/ascii_case.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/sets/request_run.h"
#include "varnelctl/sets/snapshot_steps.h"

namespace varnelctl {
namespace {

class PlanRun final : private RequestRun, private SelectionWatcher, private RequestWatcher {
 public:
  PlanRun(Session& session, const SnapshotOptions& options, PlanOutcome& outcome)
      : RequestRun(session, options, outcome), plan_(outcome) {}

  void Run() {
    Attempt([&] {
      Begin();
      phases_.Run(step::kGatheringForPlan, [&] { Select(); });
      phases_.ThrowIfInterrupted();
    });
    ExplainFailure(outcome_.failure && outcome_.failure->hresult ? checking_ : L"");
    outcome_.gotThrough = !outcome_.failure || GotThrough(*outcome_.failure);
    ListVolumes();
    Conclude();
  }

 private:
  void Before(ServiceCall call) override {
    if (call == ServiceCall::AddComponent) phases_.Enter(step::kAdding);
  }
  void After(ServiceCall call, HRESULT result) override {
    if (call == ServiceCall::GatherWriterMetadata && SUCCEEDED(result)) phases_.Enter(step::kSelecting);
  }
  void Selected() override {
    phases_.Enter(step::kAdding);
    CheckRequirement();
  }
  void Checking(const std::wstring& volume) override { checking_ = volume; }

  void Select() {
    requestor_.GatherWriterMetadata(details_);
    try {
      plan_.select(*this, details_);
    } catch (const VarnelException& alert) {
      NoteMessages(alert);
    }
    checking_.clear();
  }

  void ListVolumes() {
    std::set<std::wstring> used;
    for (const VssWriter& writer : requestor_.GetWriters()) {
      if (writer.excluded) continue;
      for (const VssComponent& component : writer.components) {
        if (component.excluded) continue;
        for (const VssFileDescriptor& file : component.files) used.insert(varnel::ascii::ToLower(file.volumeName));
      }
    }
    for (const SnapshotVolumeInfo& volume : requestor_.GetSnapshotVolumes()) {
      const VolumeLocation& location = locations_.Of(volume.volumeName);
      plan_.volumes.push_back({volume.volumeName, location.mountPoint, location.serialNumber,
                               !used.contains(varnel::ascii::ToLower(volume.volumeName))});
    }
  }

  PlanOutcome& plan_;
  std::wstring checking_;  // the volume that the service was asked about last
  const WatchedHost::Watching watching_{outcome_.host, *this};
};

}  // namespace

void MakePlan(Session& session, const SnapshotOptions& options, PlanOutcome& outcome) {
  PlanRun(session, options, outcome).Run();
}

}  // namespace varnelctl
