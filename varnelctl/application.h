// The applications that a snapshot can be consistent for.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "core/varnel.h"

namespace varnelctl {

enum class Application {
  None,  ///< none in particular: every writer takes part
  Sql,
  Exchange,
  HyperV,
};

/// The application's requestor. \param testPoints as for CVarnel. \param skipDbVerification is Exchange's alone.
std::unique_ptr<CVarnel> MakeRequestor(Application application, DWORD testPoints, bool skipDbVerification);

/// Whether the writer takes part in a request for the application.
bool IsWriterOf(Application application, const VssWriter& writer);

/// Hears of a plan's selection as it goes on. What a member throws ends it.
class SelectionWatcher {
 public:
  virtual ~SelectionWatcher() = default;
  /// The selection is final: here a request would start its set.
  virtual void Selected() {}
  /// Here a request would add the volume to its set; the service is asked whether it can be added.
  virtual void Checking(const std::wstring& /*volume*/) {}
};

/// A requestor that goes no further than its selection.
struct PlanningRequestor {
  std::unique_ptr<CVarnel> requestor;
  /// Selects from what was gathered, as a request would, and lists the volumes of the set (GetSnapshotVolumes, without
  /// identifiers). Asks the service whether the array's provider supports them; nothing is asked of a writer. Throws
  /// what CreateVssSnapshotSet would throw for it, VarnelException 701 at the end included.
  std::function<void(SelectionWatcher& watcher, std::string& errorDetails)> select;
  /// Its object of the service; null before Initialize.
  std::function<IVssBackupComponents*()> service;
};
PlanningRequestor MakePlanningRequestor(Application application);

/// The case of the advice table for a host where no writer of the application answers.
std::string_view MissingWriterCase(Application application);

}  // namespace varnelctl
