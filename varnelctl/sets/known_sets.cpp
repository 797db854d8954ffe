#include "varnelctl/sets/known_sets.h"

#include <algorithm>

#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/nearest_name.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::WindowsDiskDevice;

// Those of the set, which are then no longer in `listed`.
std::vector<ListedCopy> Take(const std::wstring& setId, std::vector<ListedCopy>& listed) {
  const auto others =
      std::stable_partition(listed.begin(), listed.end(), [&](const ListedCopy& copy) { return copy.setId != setId; });
  std::vector<ListedCopy> taken(std::make_move_iterator(others), std::make_move_iterator(listed.end()));
  listed.erase(others, listed.end());
  return taken;
}

std::string StateOfUnfinished(const KnownSet& set) {
  const JournalEntry& entry = *set.entry;
  const bool runs = set.IsProcessRunning();
  const std::string process = ProcessText(entry) + (runs ? ", still runs" : ", has ended");
  switch (entry.stage) {
    case JournalStage::Begun:
    case JournalStage::Started:
      return runs ? "no snapshot was taken yet: " + process : "nothing was taken: " + process;
    case JournalStage::TakingSnapshot:
      if (runs) return "the snapshot is being taken: " + process;
      return set.IsListed() ? "to be ended: " + process + " while the snapshot was taken"
                            : "it may still come: " + process + " while the snapshot was taken";
    case JournalStage::Breaking:
    case JournalStage::Masking: {
      const std::string what = entry.stage == JournalStage::Breaking ? "broken" : "masked";
      if (runs) return "it is being " + what + ": " + process;
      if (!set.IsListed()) return "it was being " + what + ", and the service does not list it any more: " + process;
      return (entry.end ? "kept until it is deleted; it was to be " : "to be ended; it was to be ") + what + ": " +
             process;
    }
    case JournalStage::Deleting:
      return (runs ? "it is being deleted: " : "to be ended; it was being deleted: ") + process;
    default:
      return runs ? "its request still runs: " + process : "to be ended: " + process + " before the request was done";
  }
}

std::string StateOfEnd(const KnownSet& set) {
  switch (*set.entry->end) {
    case JournalEnd::Nothing:
      return "nothing was taken";
    case JournalEnd::Released:
      return set.IsProcessRunning() ? "it goes when its process ends: " + ProcessText(*set.entry)
                                    : "it went with its process: " + ProcessText(*set.entry);
    case JournalEnd::Kept:
      return "kept until it is deleted";
    case JournalEnd::Broken:
      return "broken: its disks are ordinary disks of this host";
    case JournalEnd::Masked:
      return "broken and masked: its disks are hidden from this host";
    case JournalEnd::Deleted:
      return "deleted";
    case JournalEnd::ToBeEnded:
      break;
  }
  return "to be ended: its request did not end it";
}

// The service lists no such set.
std::string WhyNotListed(const KnownSet& set) {
  const JournalEntry& entry = *set.entry;
  if (entry.end == JournalEnd::Broken || entry.end == JournalEnd::Masked) return {};
  if (entry.IsTransportable()) {
    return "; transportable: this host does not see it before it is imported here, the array knows it";
  }
  if (entry.disconnected) return "; its iSCSI sessions were ended: this host does not see its disks";
  if (entry.stage != JournalStage::Ended) return {};
  return "; the service does not list it: its disks are not seen here now, or somebody else has deleted or broken it";
}

std::string StateOfOther(const KnownSet& set) {
  const ListedCopy& copy = *set.copies.front().listed;
  if ((copy.attributes & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) != 0) return "kept until it is deleted";
  return "it goes when the program that made it ends";
}

}  // namespace

SetKind KnownSet::Kind() const {
  if (!entry) return SetKind::NotJournalled;
  return IsListed() ? SetKind::There : SetKind::NotVisible;
}

bool KnownSet::IsInUse() const {
  return IsProcessRunning() && (entry->stage != JournalStage::Ended || entry->end == JournalEnd::Released);
}

bool KnownSet::IsLeftover() const {
  return entry && !IsProcessRunning() && entry->IsLeftover();
}

bool KnownSet::IsElsewhere() const {
  return entry && (entry->IsTransportable() || entry->disconnected);
}

bool KnownSet::WouldBeListed() const {
  if (!entry) return true;
  const bool mayBeBroken = entry->stage == JournalStage::Breaking || entry->stage == JournalStage::Masking ||
                           entry->end == JournalEnd::Broken || entry->end == JournalEnd::Masked;
  return !mayBeBroken && !IsElsewhere() && entry->stage != JournalStage::TakingSnapshot;
}

std::vector<ListedCopy> KnownSet::Listed() const {
  std::vector<ListedCopy> listed;
  for (const KnownCopy& copy : copies) {
    if (copy.listed) listed.push_back(*copy.listed);
  }
  return listed;
}

std::vector<std::wstring> KnownSet::Sources(const std::vector<ListedCopy>& of) const {
  std::vector<std::wstring> sources;
  for (const ListedCopy& copy : of) {
    const auto known = std::find_if(copies.begin(), copies.end(),
                                    [&](const KnownCopy& other) { return other.snapshotId == copy.snapshotId; });
    sources.push_back(known == copies.end() ? copy.volume : known->Source());
  }
  return sources;
}

std::vector<WindowsDiskDevice> KnownSet::Disks() const {
  std::vector<WindowsDiskDevice> disks;
  for (const KnownCopy& copy : copies) {
    if (!copy.disk.diskName.empty()) disks.push_back(copy.disk);
  }
  return disks;
}

std::string DescribeState(const KnownSet& set) {
  if (!set.entry) return StateOfOther(set);
  const bool hasEnded = set.entry->stage == JournalStage::Ended;
  const std::string state = hasEnded ? StateOfEnd(set) : StateOfUnfinished(set);
  if (!set.IsListed()) return state + WhyNotListed(set);
  const bool shouldBeGone =
      hasEnded && !set.IsProcessRunning() && !set.entry->IsLeftover() && set.entry->end != JournalEnd::Kept;
  return shouldBeGone ? state + "; yet the service lists it" : state;
}

std::string NameOf(const KnownSet& set) {
  return set.id.empty() ? "a request without a set" : "set " + Printable(set.id);
}

std::string ProcessText(const JournalEntry& entry) {
  return "process " + std::to_string(entry.process.id) + ", started " + Printable(varnel::Utf8ToWideLossy(entry.start));
}

std::string ShownPath(const std::filesystem::path& path) {
  return Printable(varnel::WideFileName(path.native()));
}

// A software provider's copy lies on its source's disk.
KnownCopy FromJournal(const JournalCopy& copy) {
  KnownCopy known{copy.snapshotId, copy.volume, copy.mountPoint, copy.sourceDisk, copy.device, {}, {}};
  if (copy.disk.empty() || copy.serialNumber == copy.sourceDisk) return known;
  known.disk.diskName = copy.disk;
  known.disk.serialNumber = copy.serialNumber;
  return known;
}

KnownSets::KnownSets(const SetService& service, const std::optional<Journal>& journal) {
  std::vector<ListedCopy> listed = service.List();
  RememberVolumes();
  if (journal) {
    Journal::Content content = journal->Read();
    faults_ = std::move(content.faults);
    for (JournalEntry& entry : content.entries) Add(std::move(entry), listed);
  }
  std::stable_sort(listed.begin(), listed.end(),
                   [](const ListedCopy& a, const ListedCopy& b) { return a.created < b.created; });
  while (!listed.empty()) {
    KnownSet set{listed.front().setId, {}, {}};
    for (const ListedCopy& copy : Take(set.id, listed)) set.copies.push_back(Locate(copy));
    sets_.push_back(std::move(set));
  }
  for (const JournalFault& fault : faults_) {
    warnings_.push_back(
        {"journalFault", "the journal's " + ShownPath(fault.file) + " is left as it is: " + fault.reason});
  }
}

void KnownSets::RememberVolumes() {
  try {
    locations_.RememberAll();
  } catch (const TesselCommonClasses::ExceptionCommon& error) {
    warnings_.push_back({"disksUnknown", "the disks of the sets cannot be told: " + OneLine(error.what())});
  }
}

void KnownSets::Add(JournalEntry entry, std::vector<ListedCopy>& listed) {
  KnownSet set{
      entry.setId.empty() ? L"" : varnel::FormatGuid(varnel::GuidOrNull<GUID>(entry.setId)), std::move(entry), {}};
  if (!set.id.empty()) {
    for (const ListedCopy& copy : Take(set.id, listed)) set.copies.push_back(Locate(copy));
  }
  if (set.entry->IsOver() && !set.IsInUse() && set.copies.empty()) return;
  for (const JournalCopy& copy : set.entry->copies) {
    const auto same = [&](const KnownCopy& known) { return known.snapshotId == copy.snapshotId; };
    const auto known = std::find_if(set.copies.begin(), set.copies.end(), same);
    if (known == set.copies.end()) {
      set.copies.push_back(FromJournal(copy));
    } else if (known->mountPoint.empty() && known->sourceDisk.empty()) {
      known->mountPoint = copy.mountPoint;
      known->sourceDisk = copy.sourceDisk;
    }
  }
  sets_.push_back(std::move(set));
}

KnownCopy KnownSets::Locate(const ListedCopy& copy) {
  const VolumeLocation& source = locations_.Of(copy.volume);
  KnownCopy known{copy.snapshotId, copy.volume, source.mountPoint, source.serialNumber, copy.device, {}, copy};
  constexpr LONG kOwnDisk = VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED | VSS_VOLSNAP_ATTR_TRANSPORTABLE;
  if ((copy.attributes & kOwnDisk) == 0 || copy.device.empty()) return known;
  try {
    enumerator_.GetDiskDeviceForUniqueVolume(copy.device, known.disk);
  } catch (const TesselCommonClasses::ExceptionCommon&) {
    return known;  // told already
  }
  if (known.disk.serialNumber == known.sourceDisk) known.disk = {};
  return known;
}

const KnownSet& KnownSets::Find(const std::string& id) const {
  const std::wstring wide = varnel::Utf8ToWideLossy(id);
  const std::wstring braced = wide.starts_with(L'{') ? wide : L"{" + wide + L"}";
  const std::optional<GUID> guid = varnel::TryParseGuid<GUID>(std::wstring_view(braced));
  const std::wstring wanted = guid ? varnel::FormatGuid(*guid) : std::wstring();
  std::vector<std::wstring> ids;
  for (const KnownSet& set : sets_) {
    if (set.id.empty()) continue;
    if (varnel::ascii::EqualIgnoringCase(set.id, wanted)) return set;
    ids.push_back(set.id);
  }
  const std::string nearest = varnel::DidYouMean(varnel::WideToUtf8Lossy(braced), ids);
  throw UsageError((guid ? "no set " + Printable(wanted) + " is known here"
                         : "\"" + Printable(wide) + "\" is no identifier of a set") +
                   nearest + " (varnelctl sets list names those that are)");
}

std::string KnownSets::NameOfProvider(const GUID& provider) const {
  if (!providers_) {
    try {
      providers_ = ReadProviders();
    } catch (const CallFailure&) {
      providers_.emplace();  // identifiers name them, too
    }
  }
  for (const Provider& known : *providers_) {
    if (known.id == provider) return Quoted(known.name);
  }
  return varnel::WideToUtf8Lossy(varnel::FormatGuid(provider));
}

std::vector<WindowsDiskDevice> KnownSets::DisksOfOthers(const std::wstring& setId) const {
  std::vector<WindowsDiskDevice> disks;
  for (const KnownSet& set : sets_) {
    for (const KnownCopy& copy : set.copies) {
      if (set.id != setId && copy.listed && !copy.disk.diskName.empty()) disks.push_back(copy.disk);
    }
  }
  return disks;
}

}  // namespace varnelctl
