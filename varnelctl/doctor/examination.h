// What the doctor's checks share: each question is asked once, when the first check needs its answer.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "varnelctl/explanation/objects.h"
#include "varnelctl/sets/known_sets.h"
#include "varnelctl/sets/plan_run.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// The answer to a question, or its failure.
template <class Answer>
class Once {
 public:
  /// Asks at the first time. Throws what `ask` has thrown, each time.
  template <class Ask>
  const Answer& Of(Ask ask) {
    if (!answer_ && !failure_) {
      try {
        answer_.emplace(ask());
      } catch (...) {
        failure_ = std::current_exception();
      }
    }
    if (failure_) std::rethrow_exception(failure_);
    return *answer_;
  }

 private:
  std::optional<Answer> answer_;
  std::exception_ptr failure_;
};

/// An application that a snapshot could be asked for, with its objects.
struct ApplicationView {
  Application application = Application::None;
  Explanation explanation;
  std::vector<ApplicationObject> objects;  ///< borrows the explanation
};

class Examination {
 public:
  /// Borrows both.
  Examination(Session& session, const DoctorOptions& options);
  ~Examination();
  Examination(const Examination&) = delete;
  Examination& operator=(const Examination&) = delete;

  const DoctorOptions& options() const { return options_; }
  bool Concerns(Application application);

  /// Of a snapshot of these disks for this application; null unless both are asked for. Throws UsageError for a disk
  /// that this host does not have.
  const PlanOutcome* Plan();
  /// Null as long as nobody has asked for it.
  const PlanOutcome* MadePlan() const { return plan_.get(); }
  const StorageView& Storage();
  /// Those that are asked for, else the array's. Throws UsageError for a disk that this host does not have.
  const std::vector<const DiskView*>& Disks();
  /// Whether one of the disks, which have these numbers, is among Disks().
  bool IsConcerned(const std::vector<DWORD>& numbers);
  const std::vector<VssWriter>& Writers();
  /// The object of the service that has asked the writers.
  IVssBackupComponents& Service();
  /// The application that is asked for, else every one that has a writer here. Throws what Writers throws.
  const std::vector<ApplicationView>& Applications();
  /// Throws CallFailure and JournalError.
  const KnownSets& Sets();

 private:
  struct Quiet;
  struct Gathering;
  const Gathering& Gathered();
  std::unique_ptr<Gathering> Gather();
  std::vector<std::wstring> WantedSerialNumbers() const;
  std::vector<std::wstring> SerialNumbers();

  Session& session_;
  const DoctorOptions& options_;
  std::unique_ptr<Quiet> quiet_;
  std::unique_ptr<PlanOutcome> plan_;
  Once<StorageView> storage_;
  Once<std::vector<const DiskView*>> disks_;
  Once<std::unique_ptr<Gathering>> gathered_;
  Once<std::vector<ApplicationView>> applications_;
  Once<std::unique_ptr<KnownSets>> sets_;
};

/// "E:\ on disk "TSL0001"", or its unique name where it is not mounted.
std::string NameOf(const VolumeView& volume, const DiskView* disk);

}  // namespace varnelctl
