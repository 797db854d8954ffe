#include "simulator/vss/snapshot_service.h"

#include <algorithm>
#include <array>
#include <utility>

#include "simulator/machine/service_events.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

constexpr std::size_t kMaxVolumesPerSet = 64;
constexpr std::size_t kMaxSystemCopies = 512;
constexpr std::size_t kMaxClientAccessibleCopies = 64;

constexpr LONG kContextBits = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE |
                              VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE | VSS_VOLSNAP_ATTR_NO_WRITERS;
constexpr LONG kKinds = VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_PLEX;
constexpr LONG kAllContexts = static_cast<LONG>(VSS_CTX_ALL);

bool Has(LONG attributes, LONG bits) {
  return (attributes & bits) != 0;
}

bool IsKnown(const ShadowCopy& copy) {
  return copy.surfaced && !copy.forgotten;
}

bool NamesVolume(std::wstring_view name, const Volume& volume) {
  const auto same = [&](std::wstring_view candidate) {
    if (!candidate.ends_with(L'\\')) return ascii::EqualIgnoringCase(name.substr(0, name.size() - 1), candidate);
    return ascii::EqualIgnoringCase(name, candidate);
  };
  return same(volume.name) || std::any_of(volume.mountPoints.begin(), volume.mountPoints.end(), same);
}

// The kinds of copies that a provider makes when it does not say so itself.
LONG UsualKinds(VSS_PROVIDER_TYPE type) {
  constexpr LONG kDifferential = VSS_VOLSNAP_ATTR_DIFFERENTIAL;
  return type == VSS_PROV_HARDWARE ? kKinds : kDifferential;
}

bool SupportsContext(const Provider& provider, LONG context) {
  switch (provider.type) {
    case VSS_PROV_HARDWARE:
    case VSS_PROV_SOFTWARE:
      return !Has(context, VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE) &&
             !Has(context & kKinds, ~provider.supports.value_or(UsualKinds(provider.type)));
    case VSS_PROV_SYSTEM:
      return !Has(context & kKinds, ~UsualKinds(provider.type));
    default:  // a file-share provider has no local volume to copy
      return false;
  }
}

bool Supports(const Provider& provider, LONG context, const std::wstring& volume) {
  const std::vector<std::wstring>& refused = provider.unsupportedVolumes;
  return SupportsContext(provider, context) && std::find(refused.begin(), refused.end(), volume) == refused.end();
}

}  // namespace

bool IsWithoutWriters(LONG context) {
  return context != kAllContexts && Has(context, VSS_VOLSNAP_ATTR_NO_WRITERS);
}

bool IsValidContext(LONG context) {
  if (context == kAllContexts) return true;
  constexpr std::array<LONG, 6> kContexts = {
      VSS_CTX_BACKUP,       VSS_CTX_FILE_SHARE_BACKUP, VSS_CTX_NAS_ROLLBACK,
      VSS_CTX_APP_ROLLBACK, VSS_CTX_CLIENT_ACCESSIBLE, VSS_CTX_CLIENT_ACCESSIBLE_WRITERS};
  constexpr LONG kBothKinds = VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_PLEX;
  constexpr LONG kMayBeAdded = kKinds | VSS_VOLSNAP_ATTR_NO_AUTORECOVERY | VSS_VOLSNAP_ATTR_NOT_TRANSACTED |
                               VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY | VSS_VOLSNAP_ATTR_TXF_RECOVERY;
  if (std::find(kContexts.begin(), kContexts.end(), context & kContextBits) == kContexts.end()) return false;
  if (Has(context, ~(kContextBits | kMayBeAdded)) || (context & kBothKinds) == kBothKinds) return false;
  return !Has(context, VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE) || !Has(context, kKinds);
}

std::wstring MachineName(const HostModel& model) {
  return model.domain.empty() ? model.computerName : model.computerName + L'.' + model.domain;
}

SnapshotService::SnapshotService(Machine& machine) : machine_(machine) {}

SnapshotService::~SnapshotService() = default;

std::list<ShadowCopy>& SnapshotService::ChangeCopies() {
  surfaced_.reset();
  NoticeChange();
  return copies_;
}

template <class Condition>
std::vector<const ShadowCopy*> SnapshotService::CopiesWhere(Condition&& condition) const {
  std::vector<const ShadowCopy*> copies;
  for (const ShadowCopy& copy : copies_) {
    if (condition(copy)) copies.push_back(&copy);
  }
  return copies;
}

std::vector<const ShadowCopy*> SnapshotService::SurfacedCopies() const {
  return CopiesWhere([](const ShadowCopy& copy) { return copy.surfaced && !copy.masked; });
}

const SnapshotService::Surfaced& SnapshotService::SurfacedNow() const {
  if (surfaced_) return *surfaced_;
  Surfaced surfaced;
  for (const ShadowCopy* copy : SurfacedCopies()) {
    surfaced.byDevice.emplace(ascii::ToLower(copy->device), copy);
    if (copy->ownDisk) surfaced.byDisk.emplace(copy->diskNumber, copy);
    if (Has(copy->attributes, VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY)) surfaced.mounted.push_back(copy);
  }
  return surfaced_.emplace(std::move(surfaced));
}

const ShadowCopy* SnapshotService::CopyOnDisk(DWORD number) const {
  const auto found = SurfacedNow().byDisk.find(number);
  return found == SurfacedNow().byDisk.end() ? nullptr : found->second;
}

const ShadowCopy* SnapshotService::CopyOfDevice(std::wstring_view device) const {
  const auto found = SurfacedNow().byDevice.find(ascii::ToLower(device));
  return found == SurfacedNow().byDevice.end() ? nullptr : found->second;
}

const std::vector<const ShadowCopy*>& SnapshotService::MountedCopies() const {
  return SurfacedNow().mounted;
}

HRESULT SnapshotService::StartSet(const GUID& session, LONG context, GUID& setId) {
  if (context == kAllContexts) return VSS_E_UNSUPPORTED_CONTEXT;
  if (openSet_ || IsCommitUnderWay()) return VSS_E_SNAPSHOT_SET_IN_PROGRESS;
  openSet_ = OpenSet{session, machine_.NewId(), context, {}};
  setId = openSet_->id;
  KnowSession(session);
  return Saved();
}

OpenSet* SnapshotService::OpenSetOf(const GUID& session) {
  return openSet_ && openSet_->session == session ? &*openSet_ : nullptr;
}

HRESULT SnapshotService::AddVolume(const GUID& session, std::wstring_view volume, const GUID& provider, GUID& copyId) {
  OpenSet* set = OpenSetOf(session);
  if (set == nullptr) return VSS_E_BAD_STATE;
  if (!volume.ends_with(L'\\')) return E_INVALIDARG;
  const std::optional<Location> location = Resolve(volume);
  if (!location) return VSS_E_OBJECT_NOT_FOUND;
  const std::wstring& name = location->volume->name;
  const auto isSame = [&](const PlannedCopy& copy) { return ascii::EqualIgnoringCase(copy.volume, name); };
  if (std::any_of(set->copies.begin(), set->copies.end(), isSame)) return VSS_E_OBJECT_ALREADY_EXISTS;
  if (set->copies.size() == kMaxVolumesPerSet) return VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED;
  const Provider* chosen = nullptr;
  if (const HRESULT result = ChooseProvider(provider, set->context, name, chosen); FAILED(result)) return result;
  if (chosen->veto == ProviderStep::beginPrepare) {
    LogProviderFailure(machine_, chosen->id, L"BeginPrepareSnapshot", VSS_E_PROVIDER_VETO);
    return VSS_E_PROVIDER_VETO;
  }
  if (ReachedLimit(*chosen, set->context, name)) return VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED;
  copyId = machine_.NewId();
  set->copies.push_back({copyId, *chosen, name});
  return Saved();
}

bool SnapshotService::HasVolumes(const GUID& session) const {
  return openSet_ && openSet_->session == session && !openSet_->copies.empty();
}

HRESULT SnapshotService::AskProviders(const GUID& session, ProviderStep step) {
  const OpenSet* set = OpenSetOf(session);
  if (set == nullptr) return VSS_E_BAD_STATE;
  const auto refuses = [&](const PlannedCopy& copy) { return copy.provider.veto == step; };
  const auto refused = std::find_if(set->copies.begin(), set->copies.end(), refuses);
  if (refused == set->copies.end()) return S_OK;
  const wchar_t* routine = step == ProviderStep::commit ? L"CommitSnapshots" : L"EndPrepareSnapshots";
  LogProviderFailure(machine_, refused->provider.id, routine, VSS_E_PROVIDER_VETO);
  return VSS_E_PROVIDER_VETO;
}

std::vector<std::wstring> SnapshotService::VolumesOfOpenSet(const GUID& session) const {
  std::vector<std::wstring> volumes;
  if (!HasVolumes(session)) return volumes;
  for (const PlannedCopy& copy : openSet_->copies) volumes.push_back(copy.volume);
  return volumes;
}

bool SnapshotService::HasHangingProvider(const GUID& session) const {
  if (!HasVolumes(session)) return false;
  return std::any_of(openSet_->copies.begin(), openSet_->copies.end(), [&](const PlannedCopy& copy) {
    const Provider* provider = FindProvider(copy.provider.id);
    return provider != nullptr && provider->hangs;
  });
}

HRESULT SnapshotService::CommitSet(const GUID& session) {
  if (const HRESULT result = AskProviders(session, ProviderStep::commit); FAILED(result)) return result;
  const HRESULT result = MakeCopies(session);
  return FAILED(result) ? result : Saved();
}

HRESULT SnapshotService::MakeCopies(const GUID& session) {
  if (OpenSetOf(session) == nullptr) return VSS_E_BAD_STATE;
  const OpenSet set = std::move(*openSet_);
  openSet_.reset();
  std::vector<Location> locations;
  for (const PlannedCopy& planned : set.copies) {
    const std::optional<Location> location = Resolve(planned.volume);
    if (!location) return VSS_E_OBJECT_NOT_FOUND;
    if (FindProvider(planned.provider.id) == nullptr) return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    locations.push_back(*location);
  }
  for (std::size_t i = 0; i < set.copies.size(); ++i) {
    ChangeCopies().push_back(MakeCopy(set, set.copies[i], locations[i]));
  }
  return S_OK;
}

HRESULT SnapshotService::AbandonSet(const GUID& session) {
  if (OpenSetOf(session) == nullptr) return S_OK;
  openSet_.reset();
  return Saved();
}

HRESULT SnapshotService::IsVolumeSupported(std::wstring_view volume, const GUID& provider, LONG context,
                                           bool& supported) const {
  if (!volume.ends_with(L'\\')) return E_INVALIDARG;
  if (provider != GUID{} && FindProvider(provider) == nullptr) return VSS_E_PROVIDER_NOT_REGISTERED;
  const std::optional<Location> location = Resolve(volume);
  if (!location) return VSS_E_OBJECT_NOT_FOUND;
  const Provider* chosen = nullptr;
  supported = SUCCEEDED(ChooseProvider(provider, context, location->volume->name, chosen));
  return S_OK;
}

HRESULT SnapshotService::IsSnapshotted(std::wstring_view volume, bool& snapshotted) const {
  if (!volume.ends_with(L'\\')) return E_INVALIDARG;
  const std::optional<Location> location = Resolve(volume);
  if (!location) return VSS_E_OBJECT_NOT_FOUND;
  const auto isOfVolume = [&](const ShadowCopy& copy) {
    return IsKnown(copy) && copy.originalVolume == location->volume->name;
  };
  snapshotted = std::any_of(copies_.begin(), copies_.end(), isOfVolume);
  return S_OK;
}

const ShadowCopy* SnapshotService::Find(const GUID& copyId) const {
  const auto found = std::find_if(copies_.begin(), copies_.end(),
                                  [&](const ShadowCopy& copy) { return IsKnown(copy) && copy.id == copyId; });
  return found == copies_.end() ? nullptr : &*found;
}

std::vector<const ShadowCopy*> SnapshotService::CopiesOfContext(LONG context) const {
  return CopiesWhere([&](const ShadowCopy& copy) {
    const bool sameContext = ((copy.attributes ^ context) & kContextBits) == 0;
    return IsKnown(copy) && (context == kAllContexts || sameContext);
  });
}

std::vector<const ShadowCopy*> SnapshotService::CopiesOfSet(const GUID& setId) const {
  return CopiesWhere([&](const ShadowCopy& copy) { return !copy.forgotten && copy.setId == setId; });
}

HRESULT SnapshotService::Delete(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, GUID& notDeleted) {
  const HRESULT result = DeleteEach(id, type, deleted, notDeleted);
  if (deleted == 0) return result;
  const HRESULT saved = Saved();
  if (SUCCEEDED(saved)) return result;
  deleted = 0;
  notDeleted = KnownCopies(id, type).front()->id;
  return saved;
}

HRESULT SnapshotService::DeleteEach(const GUID& id, VSS_OBJECT_TYPE type, LONG& deleted, GUID& notDeleted) {
  deleted = 0;
  notDeleted = GUID{};
  if (type != VSS_OBJECT_SNAPSHOT && type != VSS_OBJECT_SNAPSHOT_SET) return E_INVALIDARG;
  const std::vector<ShadowCopy*> copies = KnownCopies(id, type);
  if (copies.empty()) return VSS_E_OBJECT_NOT_FOUND;
  for (const ShadowCopy* copy : copies) {
    if (const HRESULT result = AskToDelete(*copy); FAILED(result)) {
      notDeleted = copy->id;
      return result;
    }
    Withdraw(copy->id);
    ++deleted;
  }
  return S_OK;
}

HRESULT SnapshotService::AskToDelete(const ShadowCopy& copy) const {
  if (FindProvider(copy.providerId) == nullptr) return VSS_E_UNEXPECTED_PROVIDER_ERROR;
  const HRESULT result = machine_.faults.OnDeletion(copy.originalSerial).value_or(S_OK);
  if (FAILED(result)) LogProviderFailure(machine_, copy.providerId, L"DeleteSnapshots", result);
  return result;
}

HRESULT SnapshotService::CanBreak(const GUID& setId) const {
  bool known = false;
  for (const ShadowCopy& copy : copies_) {
    if (!IsKnown(copy) || copy.setId != setId) continue;
    if (!copy.ownDisk) return VSS_E_PROVIDER_VETO;
    known = true;
  }
  return known ? S_OK : VSS_E_OBJECT_NOT_FOUND;
}

HRESULT SnapshotService::Break(const GUID& setId, DWORD flags) {
  if (const HRESULT result = CanBreak(setId); FAILED(result)) return result;
  const std::vector<ShadowCopy*> copies = KnownCopies(setId, VSS_OBJECT_SNAPSHOT_SET);
  const bool revert = (flags & VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL) != 0;
  const auto originalIsHere = [&](const ShadowCopy* copy) {
    const auto isOriginal = [&](const Disk& disk) { return disk.serial == copy->originalSerial; };
    return std::any_of(machine_.model().disks.begin(), machine_.model().disks.end(), isOriginal);
  };
  if (revert && std::any_of(copies.begin(), copies.end(), originalIsHere)) return VSS_E_BREAK_REVERT_ID_FAILED;
  for (ShadowCopy* copy : copies) {
    copy->forgotten = true;
    copy->masked = (flags & VSS_BREAKEX_FLAG_MASK_LUNS) != 0;
    if (revert) copy->serial = copy->originalSerial;
  }
  return Saved();
}

HRESULT SnapshotService::Import(const GUID& session, std::span<const ShadowCopy> copies) {
  std::size_t done = 0;
  for (const ShadowCopy& source : copies) {
    if (std::find(imported_.begin(), imported_.end(), source.id) != imported_.end()) continue;
    const Provider* provider = FindProvider(source.providerId);
    if (provider == nullptr || !SupportsContext(*provider, VSS_VOLSNAP_ATTR_TRANSPORTABLE)) {
      return VSS_E_PROVIDER_NOT_REGISTERED;
    }
    Withdraw(source.id);
    ShadowCopy copy = source;
    copy.owner = session;
    copy.attributes &= ~VSS_VOLSNAP_ATTR_NOT_SURFACED;
    Surface(copy);
    ChangeCopies().push_back(std::move(copy));
    imported_.push_back(source.id);
    ++done;
  }
  if (done == 0) return VSS_E_NO_SNAPSHOTS_IMPORTED;
  KnowSession(session);
  if (const HRESULT saved = Saved(); FAILED(saved)) return saved;
  return done == copies.size() ? VSS_S_ASYNC_FINISHED : VSS_S_SOME_SNAPSHOTS_NOT_IMPORTED;
}

void SnapshotService::Withdraw(GUID id) {
  ChangeCopies().remove_if([&](const ShadowCopy& copy) { return copy.id == id || copy.setId == id; });
}

void SnapshotService::EndSession(const GUID& session) {
  if (OpenSetOf(session) != nullptr) openSet_.reset();
  ChangeCopies().remove_if([&](const ShadowCopy& copy) {
    return copy.owner == session && IsKnown(copy) && !Has(copy.attributes, VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE);
  });
  ForgetSession(session);
}

std::optional<SnapshotService::Location> SnapshotService::Resolve(std::wstring_view name) const {
  for (const Disk& disk : machine_.model().disks) {
    for (const Volume& volume : disk.volumes) {
      if (NamesVolume(name, volume)) return Location{&disk, &volume};
    }
  }
  return std::nullopt;
}

const Provider* SnapshotService::FindProvider(const GUID& id) const {
  const auto& providers = machine_.model().providers;
  const auto found =
      std::find_if(providers.begin(), providers.end(), [&](const Provider& provider) { return provider.id == id; });
  return found == providers.end() ? nullptr : &*found;
}

HRESULT SnapshotService::ChooseProvider(const GUID& wanted, LONG context, const std::wstring& volume,
                                        const Provider*& chosen) const {
  if (wanted != GUID{}) {
    chosen = FindProvider(wanted);
    if (chosen == nullptr) return VSS_E_PROVIDER_NOT_REGISTERED;
    return Supports(*chosen, context, volume) ? S_OK : VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER;
  }
  for (const VSS_PROVIDER_TYPE type : {VSS_PROV_HARDWARE, VSS_PROV_SOFTWARE, VSS_PROV_SYSTEM}) {
    for (const Provider& provider : machine_.model().providers) {
      if (provider.type != type || !Supports(provider, context, volume)) continue;
      chosen = &provider;
      return S_OK;
    }
  }
  return VSS_E_VOLUME_NOT_SUPPORTED;
}

bool SnapshotService::ReachedLimit(const Provider& provider, LONG context, const std::wstring& volume) const {
  if (provider.type != VSS_PROV_SYSTEM) return false;
  const bool clientAccessible = Has(context, VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE);
  const auto counts = [&](const ShadowCopy& copy) {
    return copy.providerId == provider.id && copy.originalVolume == volume &&
           (!clientAccessible || Has(copy.attributes, VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE));
  };
  return CopiesWhere(counts).size() >= (clientAccessible ? kMaxClientAccessibleCopies : kMaxSystemCopies);
}

ShadowCopy SnapshotService::MakeCopy(const OpenSet& set, const PlannedCopy& planned, const Location& location) {
  ShadowCopy copy;
  copy.id = planned.id;
  copy.setId = set.id;
  copy.providerId = planned.provider.id;
  copy.owner = set.session;
  copy.attributes = set.context;
  copy.timestamp = machine_.SystemTime();
  copy.copiesInSet = static_cast<LONG>(set.copies.size());
  copy.originatingMachine = MachineName(machine_.model());
  copy.originalVolume = location.volume->name;
  copy.originalSerial = location.disk->serial;
  const bool hardware = planned.provider.type == VSS_PROV_HARDWARE;
  const bool transportable = Has(set.context, VSS_VOLSNAP_ATTR_TRANSPORTABLE);
  copy.ownDisk = hardware || transportable;
  copy.serial = copy.ownDisk ? L"SHADOW-" + copy.originalSerial : copy.originalSerial;
  copy.diskNumber = location.disk->number;
  if (hardware) copy.attributes |= VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED;
  if (planned.provider.type == VSS_PROV_SYSTEM) copy.attributes |= VSS_VOLSNAP_ATTR_DIFFERENTIAL;
  if (transportable) {
    copy.attributes |= VSS_VOLSNAP_ATTR_NOT_SURFACED;
  } else {
    Surface(copy);
  }
  return copy;
}

void SnapshotService::Surface(ShadowCopy& copy) {
  copy.surfaced = true;
  copy.device = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_wstring(++devices_);
  if (!copy.ownDisk) return;
  copy.diskNumber = NextFreeDisk();
  copy.attributes |= VSS_VOLSNAP_ATTR_IMPORTED;
}

DWORD SnapshotService::NextFreeDisk() const {
  std::vector<DWORD> used;
  for (const Disk& disk : machine_.model().disks) used.push_back(disk.number);
  for (const ShadowCopy* copy : SurfacedCopies()) used.push_back(copy->diskNumber);
  DWORD number = 0;
  while (std::find(used.begin(), used.end(), number) != used.end()) ++number;
  return number;
}

std::vector<ShadowCopy*> SnapshotService::KnownCopies(const GUID& id, VSS_OBJECT_TYPE type) {
  std::vector<ShadowCopy*> copies;
  for (ShadowCopy& copy : ChangeCopies()) {
    if (IsKnown(copy) && (type == VSS_OBJECT_SNAPSHOT ? copy.id : copy.setId) == id) copies.push_back(&copy);
  }
  return copies;
}

}  // namespace varnel::simulator
