#include "varnelctl/doctor/examination.h"

#include <algorithm>
#include <utility>

#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/requested_disks.h"
#include "varnelctl/sets/set_service.h"

namespace varnelctl {

using TesselCommonClasses::WindowsDiskDevice;

// The plan's own steps and warnings are told to nobody: the checks tell what comes of it.
struct Examination::Quiet {
  explicit Quiet(const InterruptionSource& source) : session(console, Format::OneDocument, false, {}, source) {}
  std::ostringstream out;
  std::ostringstream err;
  Console console{out, err};
  Session session;
};

// The requestor that has asked the writers: the plan's, or one of its own.
struct Examination::Gathering {
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  PlanningRequestor own;
  const CVarnel* requestor = nullptr;
  std::function<IVssBackupComponents*()> service;
};

Examination::Examination(Session& session, const DoctorOptions& options) : session_(session), options_(options) {}
Examination::~Examination() = default;

bool Examination::Concerns(Application application) {
  if (options_.application) return *options_.application == application;
  const std::vector<VssWriter>& writers = Writers();
  return std::any_of(writers.begin(), writers.end(),
                     [&](const VssWriter& writer) { return IsWriterOf(application, writer); });
}

const PlanOutcome* Examination::Plan() {
  if (plan_ || !options_.application || options_.disks.empty()) return plan_.get();
  SnapshotOptions options;
  options.application = *options_.application;
  options.disks = options_.disks;
  options.acceptUnknownDisks = options_.acceptUnknownDisks;
  CheckSnapshotOptions(options, false);
  quiet_ = std::make_unique<Quiet>(session_.watchInterruption);
  plan_ = std::make_unique<PlanOutcome>(options);
  MakePlan(quiet_->session, options, *plan_);
  return plan_.get();
}

const StorageView& Examination::Storage() {
  return storage_.Of([] { return ReadStorage(); });
}

std::vector<std::wstring> Examination::WantedSerialNumbers() const {
  if (!options_.disks.empty()) {
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    CheckDiskArguments(options_.disks);
    return ReadRequestedDisks(options_.disks, enumerator, options_.acceptUnknownDisks).serialNumbers;
  }
  std::vector<std::wstring> wanted;
  for (const WindowsDiskDevice& disk : TesselCommonClasses::WMIDiskHelper().GetDiskDevices2k8(true)) {
    wanted.push_back(disk.serialNumber);
  }
  return wanted;
}

const std::vector<const DiskView*>& Examination::Disks() {
  return disks_.Of([&] {
    const std::vector<std::wstring> wanted = WantedSerialNumbers();
    std::vector<const DiskView*> disks;
    for (const DiskView& disk : Storage().disks) {
      const std::wstring& serial = disk.device.serialNumber;
      if (!serial.empty() && std::find(wanted.begin(), wanted.end(), serial) != wanted.end()) disks.push_back(&disk);
    }
    return disks;
  });
}

bool Examination::IsConcerned(const std::vector<DWORD>& numbers) {
  const std::vector<const DiskView*>& disks = Disks();
  return std::any_of(disks.begin(), disks.end(), [&](const DiskView* disk) {
    return std::find(numbers.begin(), numbers.end(), disk->device.diskNumber) != numbers.end();
  });
}

std::unique_ptr<Examination::Gathering> Examination::Gather() {
  auto gathered = std::make_unique<Gathering>();
  const PlanOutcome* const plan = Plan();
  if (plan != nullptr && !plan->requestor->GetWriters().empty()) {
    gathered->requestor = plan->requestor.get();
    gathered->service = plan->service;
    return gathered;
  }
  gathered->own = MakePlanningRequestor(options_.application.value_or(Application::None));
  CVarnel& requestor = *gathered->own.requestor;
  gathered->requestor = &requestor;
  gathered->service = gathered->own.service;
  std::string records;  // the failure itself is told
  session_.Ask("Initialize", [&] { requestor.Initialize(0, L"", false, VSS_BT_FULL, records, &gathered->enumerator); });
  session_.Ask("GatherWriterMetadata", [&] { requestor.GatherWriterMetadata(records); });
  return gathered;
}

const Examination::Gathering& Examination::Gathered() {
  return *gathered_.Of([&] { return Gather(); });
}

const std::vector<VssWriter>& Examination::Writers() {
  return Gathered().requestor->GetWriters();
}

IVssBackupComponents& Examination::Service() {
  return *Gathered().service();
}

std::vector<std::wstring> Examination::SerialNumbers() {
  std::vector<std::wstring> serialNumbers;
  for (const DiskView* disk : Disks()) serialNumbers.push_back(disk->device.serialNumber);
  return serialNumbers;
}

const std::vector<ApplicationView>& Examination::Applications() {
  return applications_.Of([&] {
    const std::vector<VssWriter>& writers = Writers();
    std::vector<Application> applications;
    if (options_.application) applications.push_back(*options_.application);
    for (const Application application : {Application::Sql, Application::Exchange, Application::HyperV}) {
      if (!options_.application && Concerns(application)) applications.push_back(application);
    }
    TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
    VolumeLocations locations(enumerator);
    std::vector<ApplicationView> views;
    for (const Application application : applications) {
      ApplicationView& view = views.emplace_back();
      view.application = application;
      view.explanation = Explain(writers, application, SerialNumbers(), locations);
      view.objects = ObjectsOf(view.explanation, application);
    }
    return views;
  });
}

const KnownSets& Examination::Sets() {
  return *sets_.Of([&] { return std::make_unique<KnownSets>(SetService(), session_.journal); });
}

std::string NameOf(const VolumeView& volume, const DiskView* disk) {
  std::string name = Printable(volume.mountPoints.empty() ? volume.name : volume.mountPoints.front());
  if (disk != nullptr) name += " on disk " + Quoted(disk->device.serialNumber);
  return name;
}

}  // namespace varnelctl
