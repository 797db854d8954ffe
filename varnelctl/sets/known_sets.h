// The snapshot sets that the service lists on this host, and those that the journal remembers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/tessel/TesselCommonClasses.h"
#include "varnelctl/console/warning.h"
#include "varnelctl/providers.h"
#include "varnelctl/sets/journal.h"
#include "varnelctl/sets/set_service.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// A shadow copy, with what the service and the journal tell of it. Empty texts are not told by either.
struct KnownCopy {
  std::wstring snapshotId;
  std::wstring volume;      ///< the source's unique name
  std::wstring mountPoint;  ///< the source's
  std::wstring sourceDisk;  ///< the serial number of the source's disk
  std::wstring device;
  /// Its own; without a name where it has none, or none of this host.
  TesselCommonClasses::WindowsDiskDevice disk;
  std::optional<ListedCopy> listed;  ///< nothing where the service does not list it

  /// The source, as people know it.
  const std::wstring& Source() const { return mountPoint.empty() ? volume : mountPoint; }
};

/// As the journal has it.
KnownCopy FromJournal(const JournalCopy& copy);

/// Where a set is known from.
enum class SetKind { There, NotVisible, NotJournalled };

struct KnownSet {
  std::wstring id;  ///< "{...}"; empty of a request that has none yet
  std::optional<JournalEntry> entry;
  std::vector<KnownCopy> copies;  ///< the listed ones first

  bool IsProcessRunning() const { return entry && entry->isRunning; }
  bool IsListed() const { return !copies.empty() && copies.front().listed.has_value(); }
  SetKind Kind() const;
  /// Its request is not done, or the set goes with the process.
  bool IsInUse() const;
  /// Nobody wants it, and nobody works on it.
  bool IsLeftover() const;
  /// Where the service does not list it, that is because this host does not see its disks.
  bool IsElsewhere() const;
  /// The service would list it if it were there: what it does not list is gone.
  bool WouldBeListed() const;
  /// The listed copies of it.
  std::vector<ListedCopy> Listed() const;
  /// The sources of these copies, as people know them.
  std::vector<std::wstring> Sources(const std::vector<ListedCopy>& of) const;
  /// The copies' own disks, also those that the journal alone knows.
  std::vector<TesselCommonClasses::WindowsDiskDevice> Disks() const;
};

/// What a set is now, in words: "kept until it is deleted".
std::string DescribeState(const KnownSet& set);

/// "set {...}"
std::string NameOf(const KnownSet& set);

/// "process 4242, started 2026-11-20T18:52:44.123Z"
std::string ProcessText(const JournalEntry& entry);

/// For people.
std::string ShownPath(const std::filesystem::path& path);

/// All of them at one time. Listed copies are looked up on this host's disks.
class KnownSets {
 public:
  /// Asks the service, and reads the journal where there is one. Throws CallFailure and JournalError. What else cannot
  /// be told is a warning.
  KnownSets(const SetService& service, const std::optional<Journal>& journal);

  /// The journal's in its order, then the others by their creation. Those that are over are not among them.
  const std::vector<KnownSet>& sets() const { return sets_; }
  const std::vector<JournalFault>& faults() const { return faults_; }
  const std::vector<Warning>& warnings() const { return warnings_; }
  /// The set of this identifier, with or without braces, in any case. Throws UsageError with the way to the right one.
  const KnownSet& Find(const std::string& id) const;
  /// The disks of the listed copies of other sets.
  std::vector<TesselCommonClasses::WindowsDiskDevice> DisksOfOthers(const std::wstring& setId) const;
  /// For people: its name in quotes, or its identifier.
  std::string NameOfProvider(const GUID& provider) const;

 private:
  void Add(JournalEntry entry, std::vector<ListedCopy>& listed);
  KnownCopy Locate(const ListedCopy& copy);
  void RememberVolumes();

  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  VolumeLocations locations_{enumerator_};
  std::vector<KnownSet> sets_;
  std::vector<JournalFault> faults_;
  std::vector<Warning> warnings_;
  mutable std::optional<std::vector<Provider>> providers_;  // read when they are needed
};

}  // namespace varnelctl
