// The writers of one backup: who is gathered, what each of them was told and how it did.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "simulator/machine/machine.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// How a writer stands.
struct WriterStatus {
  VSS_WRITER_STATE state = VSS_WS_STABLE;
  HRESULT failure = S_OK;
  HRESULT applicationResult = S_OK;
  std::optional<std::wstring> applicationMessage;

  bool HasFailed() const { return state >= VSS_WS_FAILED_AT_IDENTIFY; }
};

/// Logical path and name of a component as one key. Case does not matter; no path is the same as an empty one.
std::wstring ComponentKey(std::wstring_view logicalPath, std::wstring_view name);
/// "logicalPath\name" without regard to case and to a backslash before it.
std::wstring FullPathKey(std::wstring_view logicalPath, std::wstring_view name);

/// The components of a writer's metadata by key.
class ComponentIndex {
 public:
  explicit ComponentIndex(const Writer& writer);
  /// Null when the writer has no such component.
  const WriterComponent* Find(VSS_COMPONENT_TYPE type, std::wstring_view logicalPath, std::wstring_view name) const;
  /// Whether a selectable component stands above this logical path.
  bool HasSelectableAncestor(std::wstring_view logicalPath) const;

 private:
  static std::wstring TypedKey(VSS_COMPONENT_TYPE type, std::wstring_view logicalPath, std::wstring_view name);

  std::unordered_map<std::wstring, const WriterComponent*> components_;
  std::unordered_set<std::wstring> selectablePaths_;
};

/// A writer that answered Identify.
struct GatheredWriter {
  std::shared_ptr<const Writer> data;
  WriterStatus status;
  bool takesPart = false;                       // from PrepareSnapshot on
  std::unique_ptr<const ComponentIndex> index;  // built when a component is first looked up
};

class WriterSession {
 public:
  explicit WriterSession(Machine& machine) : machine_(machine) {}

  // Which writers may answer Identify; the enabled classes count first.
  void EnableClasses(const std::vector<GUID>& classes);
  void DisableClasses(const std::vector<GUID>& classes);
  void DisableInstances(const std::vector<GUID>& instances);

  /// Raises Identify: the writers that are allowed and do not fail make up the session. How long one of them hung.
  ULONGLONG Identify();
  std::vector<GatheredWriter>& writers() { return writers_; }
  const std::vector<GatheredWriter>& writers() const { return writers_; }
  GatheredWriter* Find(const GUID& instanceId, const GUID& writerId);
  const ComponentIndex& IndexOf(GatheredWriter& writer) const;

  /// Raises an event at a writer that has not failed: it comes to `reached`, or to `failed` with its fault's result.
  /// A planned fault counts before the writer's `own`, which may be null. The fault, null when it did well.
  const WriterFault* Raise(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE reached, VSS_WRITER_STATE failed,
                           const WriterFault* own = nullptr);
  /// After how many milliseconds the service gives up a writer that hangs in this event.
  ULONGLONG HangLimit(const Writer& writer, WriterEvent event) const;
  /// A writer that has not failed holds its writes back for too long.
  void FailFrozen(GatheredWriter& writer);
  /// Raises Abort at the writers that take part; those that have not failed become stable.
  void Abort();
  void Abort(GatheredWriter& writer) const;
  /// Raises BackupShutdown at the writers that took part.
  void Shutdown();

 private:
  bool IsAllowed(const Writer& writer) const;
  void Fail(GatheredWriter& writer, WriterEvent event, VSS_WRITER_STATE failed, HRESULT failure,
            const WriterFault* fault);

  Machine& machine_;
  std::optional<std::vector<GUID>> enabledClasses_;
  std::vector<GUID> disabledClasses_;
  std::vector<GUID> disabledInstances_;
  std::vector<GatheredWriter> writers_;
};

}  // namespace varnel::simulator
