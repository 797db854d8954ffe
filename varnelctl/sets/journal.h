// What is remembered of each request beyond its process, so that no set is lost: one file per request, which every
// later command finds.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "varnelctl/explanation/failure.h"
#include "varnelctl/sets/process_identity.h"

namespace varnelctl {

/// How far a request came. What is said here is written before it is done.
enum class JournalStage {
  Begun,           ///< nothing was asked of the service yet
  Started,         ///< the set has its identifier
  TakingSnapshot,  ///< DoSnapshotSet was called: the set may be there, or still come
  Taken,           ///< the copies are there, and the backup is to be completed
  Completed,       ///< the writers were told
  Breaking,
  Masking,
  Deleting,
  Ended,  ///< `end` says what the set is now
};

/// What a request left of its set.
enum class JournalEnd {
  Nothing,   ///< no set was taken
  Released,  ///< goes with the process
  Kept,      ///< stays until somebody deletes it
  Broken,    ///< its disks are ordinary disks of this host
  Masked,    ///< broken, and its disks were taken from this host
  Deleted,
  ToBeEnded,  ///< it should have gone and may still be there
};

/// A shadow copy, with what was known of it. Empty texts were not told.
struct JournalCopy {
  std::wstring snapshotId;
  std::wstring volume;      ///< the source's unique name
  std::wstring mountPoint;  ///< the source's
  std::wstring sourceDisk;  ///< the serial number of the source's disk
  std::wstring device;
  std::wstring disk;          ///< \\.\PhysicalDriveN
  std::wstring serialNumber;  ///< of the copy's own disk
};

/// An iSCSI session that carried disks of the set.
struct JournalSession {
  std::wstring targetName;
  std::string sessionId;            ///< as iscsicli writes and takes it
  std::vector<std::wstring> disks;  ///< of the set: their serial numbers, else their names
};

struct JournalEntry {
  std::filesystem::path file;  ///< where it stands; empty until it was written
  std::string host;            ///< the computer's name; empty where it was not told
  ProcessIdentity process;
  bool isRunning = false;                ///< its process, when it was read; where it is not, this is its last word
  std::string start;                     ///< UTC, "2026-11-20T18:52:44.123Z"
  std::vector<std::string> commandLine;  ///< the arguments
  std::string application;
  std::vector<std::string> disks;  ///< the serial numbers that were asked for
  std::uint32_t context = 0;
  JournalStage stage = JournalStage::Begun;
  /// With the last stage. Kept also while such a set is broken or masked: it is not ended for that.
  std::optional<JournalEnd> end;
  std::wstring setId;         ///< "{...}", empty before StartSnapshotSet
  bool disconnected = false;  ///< its iSCSI sessions were ended
  std::vector<JournalCopy> copies;
  std::vector<JournalSession> sessions;

  bool IsTransportable() const;
  /// It stays when its process ends.
  bool IsPersistent() const;
  /// No set, or one that is gone, or that goes with its process.
  bool IsOver() const;
  /// Its request may have left a set.
  bool MayHaveSet() const { return stage != JournalStage::Begun && stage != JournalStage::Started; }
  /// It was not brought to its end, or its end left something. With its process gone nobody wants the set.
  bool IsLeftover() const;
};

/// A file of the journal that cannot be taken for an entry. It is left as it is.
struct JournalFault {
  std::filesystem::path file;
  std::string reason;
};

/// The entries of one folder. Several processes may use it at a time: each writes its own files.
class Journal {
 public:
  struct Content {
    std::vector<JournalEntry> entries;  ///< oldest first
    std::vector<JournalFault> faults;
  };

  /// Nothing is touched yet.
  explicit Journal(std::filesystem::path folder) : folder_(std::move(folder)) {}

  const std::filesystem::path& folder() const { return folder_; }

  /// All that stands there; nothing where there is no folder. An entry of another host is a fault. Throws JournalError
  /// for a folder that cannot be read.
  Content Read() const;
  /// Puts the entry into its file, whole and so that it outlives the system's end, and makes folder and file where
  /// there are none. Throws JournalError; the entry that stood there then still stands.
  void Write(JournalEntry& entry) const;
  /// Takes the entry's file away. Throws JournalError.
  void Remove(const JournalEntry& entry) const;
  /// Takes away the entries that are over and whose process is gone. What cannot be taken away stays.
  /// Returns the others. Throws JournalError for a folder that cannot be read.
  Content Tidy() const;

 private:
  std::filesystem::path folder_;
};

/// This machine's: for administrators alone.
std::filesystem::path DefaultJournalFolder();

const char* WordFor(JournalStage stage);
const char* WordFor(JournalEnd end);

}  // namespace varnelctl
