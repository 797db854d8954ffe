#include "varnelctl/snapshot_run.h"

#include <algorithm>
#include <set>

#include "platform/ascii_case.h"
#include "platform/unicode.h"
#include "varnelctl/text.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::WindowsDiskDevice;

// Blanks count in a serial number, so it is always shown in quotes.
std::string Quoted(const std::wstring& text) {
  return "\"" + Printable(text) + "\"";
}

std::wstring Trimmed(const std::wstring& text) {
  const std::size_t first = text.find_first_not_of(L' ');
  return first == text.npos ? std::wstring() : text.substr(first, text.find_last_not_of(L' ') - first + 1);
}

// What the user may have meant by a serial number that no disk has.
std::string HintFor(const std::wstring& serialNumber, const std::vector<WindowsDiskDevice>& disks) {
  for (const WindowsDiskDevice& disk : disks) {
    if (!disk.serialNumber.empty() &&
        varnel::ascii::EqualIgnoringCase(Trimmed(disk.serialNumber), Trimmed(serialNumber))) {
      return "; there is " + Quoted(disk.serialNumber);
    }
  }
  return {};
}

// The serial numbers of the component's disks, each once; `unknown` is a directory whose disk cannot be told.
std::set<std::wstring> DisksOf(const VssComponent& component, VolumeSerials& serials, std::wstring& unknown) {
  std::set<std::wstring> disks;
  for (const VssFileDescriptor& file : component.files) {
    const std::wstring& serialNumber = serials.Of(file.volumeName);
    if (serialNumber.empty()) {
      unknown = file.expandedPath;
    } else {
      disks.insert(serialNumber);
    }
  }
  return disks;
}

}  // namespace

bool IsCaptured(const VssWriter& writer, const VssComponent& component) {
  if (writer.excluded || component.excluded) return false;
  return component.added || std::any_of(writer.components.begin(), writer.components.end(), [&](const auto& parent) {
           return parent.added && varnel::IsAncestor(parent, component);
         });
}

SnapshotRun::SnapshotRun(Session& session, const SnapshotOptions& options, PhaseListener& listener)
    : session_(session),
      options_(options),
      listener_(listener),
      requestor_(std::make_unique<CVarnel>(options.testPoints)) {
  for (const std::string& disk : options.disks) serialNumbers_.push_back(varnel::Utf8ToWideLossy(disk));
}

SnapshotRun::~SnapshotRun() = default;

void SnapshotRun::Run() {
  try {
    Sequence();
  } catch (...) {
    NoteFailure();
  }
  // What can be told after a failure is told, too; what cannot is one more detail of it.
  try {
    FindShadowCopies();
    ExplainWhatWasLeftOut();
  } catch (...) {
    NoteFailure();
  }
}

void SnapshotRun::Sequence() {
  CheckDisks();
  Validate();
  CheckPresence();
  const std::string requestText = "writer=" + std::to_string(options_.writerCode) + ",";
  session_.errorDetails = requestText;
  requestTextLength_ = requestText.size();
  InPhase("Initialize", [&] {
    requestor_->SetInputDriveSerialNos(serialNumbers_);
    requestor_->Initialize(options_.context, L"", false, options_.backupType, session_.errorDetails, &enumerator_);
  });
  InPhase("CreateVssSnapshotSet", [&] { Create(); });
  InPhase("GetSnapshotMeatadata", [&] { ReadResults(); });
}

// The library takes a serial number that no disk has for an extra disk; a typing error deserves a plainer word.
void SnapshotRun::CheckDisks() {
  InPhase("EnumerateDisks", [&] {
    const std::vector<WindowsDiskDevice>& disks = enumerator_.GetDisks();
    for (const std::wstring& serialNumber : serialNumbers_) {
      const bool known =
          std::any_of(disks.begin(), disks.end(), [&](const auto& disk) { return disk.serialNumber == serialNumber; });
      if (!known)
        listener_.Warned("no disk of this host has serial " + Quoted(serialNumber) + HintFor(serialNumber, disks));
    }
  });
}

void SnapshotRun::Validate() {
  InPhase("ValidateHostConfiguration", [&] {
    if (const DWORD code = requestor_->ValidateHostConfiguration(session_.errorDetails)) throw ValidationFailure(code);
  });
  InPhase("ValidateVolumes", [&] {
    std::vector<std::string> volumes;
    for (const std::wstring& serialNumber : serialNumbers_) {
      std::vector<std::wstring> names;
      enumerator_.GetUniqueVolumeNamesForDisk(serialNumber, names);
      for (const std::wstring& name : names) volumes.push_back(varnel::WideToAnsi(name));
    }
    std::string status;
    if (const DWORD code = requestor_->ValidateVolumes(volumes, status, session_.errorDetails, options_.disks, "")) {
      throw ValidationFailure(code);
    }
  });
}

// What is missing here makes a later step fail with its own message; a warning says it early.
void SnapshotRun::CheckPresence() {
  InPhase("IsTesselVSSProviderPresent", [&] {
    if (!requestor_->IsTesselVSSProviderPresent()) {
      listener_.Warned("the array's VSS hardware provider is not registered on this host");
    }
  });
  InPhase("IsWriterPresent", [&] {
    if (!requestor_->IsWriterPresent(session_.errorDetails)) {
      listener_.Warned("no writer of this application is present on this host");
    }
  });
}

// A set that exists with messages is shown like one without.
void SnapshotRun::Create() {
  try {
    requestor_->CreateVssSnapshotSet(session_.errorDetails);
  } catch (const VarnelException& alert) {
    const int code = alert.GetAlertCode();
    if (code != VarnelException::PartialSuccess && code != VarnelException::ExtraVolumes) throw;
    NoteFailure();
    if (code == VarnelException::ExtraVolumes && options_.acceptExtraVolumes) failure_->status = ExitStatus::Done;
  }
  taken_ = true;
}

void SnapshotRun::ReadResults() {
  requestor_->GetSnapshotMeatadata(catalog_);
  if (const char* databases = requestor_->getSuccesfulDBList()) databases_ = databases;
}

// Also after a failure: a set that was begun may be there, and its identifiers are what one needs to remove it.
void SnapshotRun::FindShadowCopies() {
  for (const SnapshotVolumeInfo& volume : requestor_->GetSnapshotVolumes()) {
    ShadowCopyView& view = shadowCopies_.emplace_back();
    view.volume = volume;
    WindowsDiskDevice source;
    enumerator_.GetDiskDeviceForUniqueVolume(volume.volumeName, source);
    view.sourceSerialNumber = source.serialNumber;
    std::vector<TesselCommonClasses::WindowsVolumeInfo> volumes;
    enumerator_.GetVolumesForGivenDisk(source.serialNumber, volumes);
    for (const auto& candidate : volumes) {
      if (varnel::ascii::EqualIgnoringCase(candidate.uniqueVolumeName, volume.volumeName)) {
        view.mountPoint = candidate.mountPoint;
      }
    }
    if (!volume.snapshotDeviceName.empty()) {
      enumerator_.GetDiskDeviceForUniqueVolume(volume.snapshotDeviceName, view.disk);
    }
  }
}

void SnapshotRun::ExplainWhatWasLeftOut() {
  VolumeSerials serials(enumerator_);
  for (const VssWriter& writer : requestor_->GetWriters()) {
    for (const VssComponent& component : writer.components) {
      if (!IsCaptured(writer, component)) {
        leftOut_.push_back({&writer, &component, ReasonFor(writer, component, serials)});
      }
    }
  }
}

std::string SnapshotRun::ReasonFor(const VssWriter& writer, const VssComponent& component, VolumeSerials& serials) {
  if (!component.excluded && !writer.excluded) {
    return component.selectable ? "the request ended before it was added"
                                : "it is not selectable, and no selectable parent is included";
  }
  if (component.files.empty()) return "it has no files";
  std::wstring unknown;
  std::string missing;
  for (const std::wstring& serialNumber : DisksOf(component, serials, unknown)) {
    if (serialNumber == DiskAndVolumeEnumerator::systemDriveSerialNumber) {
      return "disk " + Quoted(serialNumber) + " holds the system";
    }
    if (std::find(serialNumbers_.begin(), serialNumbers_.end(), serialNumber) == serialNumbers_.end()) {
      missing += (missing.empty() ? "" : ", ") + Quoted(serialNumber);
    }
  }
  if (!missing.empty()) return "not in the protection set: disk " + missing;
  if (!unknown.empty()) return "the disk of " + Printable(unknown) + " is not known";
  return "it is not among the databases that the array named";
}

std::string SnapshotRun::errorDetails() const {
  return session_.errorDetails.substr(std::min(requestTextLength_, session_.errorDetails.size()));
}

void SnapshotRun::InPhase(const std::string& name, const std::function<void()>& action) {
  varnel::Time& time = varnel::CurrentHost().time();
  const ULONGLONG start = time.GetTickCount64();
  listener_.Started(name);
  const auto end = [&](bool succeeded) {
    phases_.push_back({name, time.GetTickCount64() - start});
    listener_.Ended(phases_.back(), succeeded);
  };
  try {
    session_.Ask(name, action);
  } catch (...) {
    end(false);
    throw;
  }
  end(true);
}

// The first failure is the outcome of the request; what fails behind it is a detail.
void SnapshotRun::NoteFailure() {
  Failure failure = DescribeFailure(std::current_exception(), session_.call());
  if (failure_) {
    failure_->details.push_back(failure.message);
  } else {
    failure_ = std::move(failure);
  }
}

}  // namespace varnelctl
