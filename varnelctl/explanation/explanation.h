// Where every writer and component stands towards a set: what is in it and why, what is not and why not. The text, the
// JSON documents, plans and reports tell the same from here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/varnel.h"
#include "varnelctl/application.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// Where a component stands in the selection. Whether the set then came about is told elsewhere.
enum class Place {
  Captured,    ///< all its files are in the set, and it was named to the service
  Implicit,    ///< named to the service because a part of it is captured
  WithParent,  ///< captured with a parent that was named to the service
  Container,   ///< has no files of its own; all that lies below it is captured
  LeftOut,
};

/// Why a component, or a whole writer, is left out; of one that is captured for the sake of another: why it is torn.
enum class Reason {
  None,              ///< all of it is in the set
  OtherApplication,  ///< its writer is none of this application
  NoComponents,      ///< of a writer
  NoFiles,
  NotNamed,       ///< the array named the databases, and this is none of them
  SystemDisk,     ///< a file lies on the disk that holds the system
  SeveralDisks,   ///< a file's volume lies on several disks
  DiskUnknown,    ///< the disk of a file's volume cannot be told
  DiskNotInSet,   ///< a file lies on a disk that the protection set does not have
  NotSelectable,  ///< it is selected only with a parent, and no parent that can be selected takes part
  ChildMissing,   ///< a part of it is left out, and the parts of a component go together
  WriterAbsent,   ///< no writer of the application answered
  RequestEnded,   ///< the request ended before the component was named to the service
};

/// The word that JSON documents have.
const char* WordFor(Place place);
const char* WordFor(Reason reason);

struct ComponentExplanation {
  const VssComponent* component = nullptr;
  Place place = Place::LeftOut;
  Reason reason = Reason::None;
  Reason ofFiles = Reason::None;  ///< what its files and their disks alone say, whatever became of the request
  /// The captured part of an implicit one, the parent that one is captured with, the part that is missing; else null.
  const VssComponent* because = nullptr;
  /// What people select it with: itself or the nearest component above it that can be selected; itself where none can.
  const VssComponent* object = nullptr;
  std::vector<std::wstring> disks;         ///< serial numbers of its own files' disks, each once
  std::vector<std::wstring> missingDisks;  ///< those of them that the set does not have, but for the system's
  std::vector<DWORD> severalDisks;         ///< the numbers of the disks of its first volume that has several
  std::vector<std::wstring> files;         ///< its own files that are not in the set, with their paths
};

struct WriterExplanation {
  const VssWriter* writer = nullptr;  ///< null where no writer of the application answered
  Reason reason = Reason::None;       ///< why it is left out as a whole; its components are then not explained
  std::vector<ComponentExplanation> components;
};

using Explanation = std::vector<WriterExplanation>;

/// Everything that was gathered, in the writers' order. Borrows the writers.
/// \param serialNumbers of the protection set.
/// \param locations as the request saw them.
Explanation Explain(const std::vector<VssWriter>& writers, Application application,
                    const std::vector<std::wstring>& serialNumbers, VolumeLocations& locations);

/// Why the component, or the writer, is left out: a sentence without its end; empty for one that is not.
std::string ReasonText(const ComponentExplanation& component);
std::string ReasonText(const WriterExplanation& writer);
/// Why a component is captured that is not captured for its own sake; empty for any other.
std::string BecauseText(const ComponentExplanation& component);

/// The caption with the path after it in parentheses, or the path alone.
std::string NameOf(const VssComponent& component);

/// "A", "B"
std::string SerialNumberList(const std::vector<std::wstring>& serialNumbers);

}  // namespace varnelctl
