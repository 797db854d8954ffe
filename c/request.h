// What a handle of the interface stands for: a requestor, what it borrows, and how far its request has come.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "c/outcome.h"
#include "c/texts.h"
#include "c/varnel-c.h"
#include "core/provider.h"
#include "core/varnel.h"

namespace varnel::c {

/// Texts and the pointers to them, for as long as they are kept.
struct TextList {
  TextList() = default;
  explicit TextList(std::vector<std::string> all);
  TextList(TextList&&) = default;
  TextList& operator=(TextList&&) = default;

  std::vector<std::string> texts;
  std::vector<const char*> pointers;
};

/// The objects on one disk.
struct CatalogDisk {
  std::string serialNumber;
  TextList ids, names, otherIds, otherNames;
};

class Request {
 public:
  /// Throws Refusal for options that mean nothing.
  explicit Request(const varnel_request_options& options);
  ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  /// Runs an operation and keeps its outcome, whose code it returns. Texts that were handed out before are gone.
  template <class Operation>
  int Run(Operation operation) noexcept {
    Outcome outcome;
    try {
      Begin();
      const ScopedProvider provider(providerId_);
      operation();
    } catch (...) {
      outcome = OutcomeOfException();
    }
    return End(std::move(outcome));
  }

  // Operations. They throw what the requestor throws, and Refusal.
  void SetProvider(const char* providerId);
  void AddDisks(const char* const* serialNumbers, std::size_t count);
  void ValidateHost();
  void ValidateVolumes(const char* const* volumes, std::size_t count);
  bool FindWriter();
  bool FindDisk(const char* serialNumber);
  const TextList& ReadDisks();
  void Initialize();
  void Gather();
  void Snapshot();
  void Verify();
  void ReadCatalog();
  void Complete(int backupStatus);
  /// One of the requestor's operations on its set.
  void ChangeSet(void (CVarnel::*operation)(std::string&));

  CVarnel& requestor() { return *requestor_; }
  Texts& texts() { return texts_; }
  const Outcome& outcome() const { return outcome_; }
  const std::vector<const char*>& details() const { return details_; }
  const std::string& records() const { return records_; }
  const std::vector<CatalogDisk>& catalog() const { return catalog_; }
  const std::string& databases() const { return databases_; }

  /// False while another call has it.
  bool Take() noexcept { return !isTaken_.exchange(true); }
  void GiveBack() noexcept { isTaken_ = false; }
  /// Whoever frees it keeps it: nobody takes it again.
  void Dispose() noexcept;

 private:
  void Begin();
  int End(Outcome outcome) noexcept;
  void NoteDatabases();
  void Require(bool holds, const char* reason) const;

  std::atomic<bool> isTaken_{false};
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::unique_ptr<CVarnel> requestor_;
  GUID providerId_{};
  DWORD context_ = 0;
  VSS_BACKUP_TYPE backupType_ = VSS_BT_FULL;
  bool restores_ = false;
  std::wstring document_;
  std::string requestText_;
  std::vector<std::string> serialNumbers_;

  bool isBegun_ = false;      // initialize was called
  bool isReady_ = false;      // it succeeded
  bool isGathered_ = false;   // gather was called
  bool isTried_ = false;      // snapshot was called
  bool isCompleted_ = false;  // complete was called
  std::string errorDetails_;  // of the operation at hand
  std::string records_;       // of all
  Outcome outcome_;           // of the last operation
  std::vector<const char*> details_;
  Texts texts_;
  std::string databases_;
  TextList disks_;
  std::vector<CatalogDisk> catalog_;
};

}  // namespace varnel::c
