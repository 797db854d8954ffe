// What became of one host and its databases in a run: what the run says of it, and what its documents say.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/report/fleet/fleet_file.h"

namespace varnelctl::fleet {

enum class HostState {
  Protected,  ///< the set is there and has every object
  Partly,     ///< the set is there and has some
  Nothing,    ///< taken, as the run says; its document says of no set that is there
  Unknown,    ///< taken, as the run says; there is no document that can be read
  Failed,
  Ended,
  Planned,
  Refused,
  Unreachable,
  Hung,
  NotRun,
};

enum class ObjectState { Protected, LeftOut, Failed, Ended, NotTaken, Unknown };

/// The set of a run that has an object.
struct LastSet {
  LONGLONG taken = 0;  ///< by the clock of the host
  LONGLONG run = 0;    ///< start of the run
};

/// A database, virtual machine or mailbox database.
struct Object {
  std::wstring key;  ///< equal for the same object of the same host in another run
  std::string name;
  ObjectState state = ObjectState::Unknown;
  std::string why;                   ///< it is not protected, and what to do; may be empty
  std::optional<LastSet> last = {};  ///< of an object that is not protected: of an earlier run
};

struct HostResult {
  HostState state = HostState::Unknown;
  std::string why;  ///< what is wrong, and what to do; may be empty
  bool hasBrokenDocument = false;
  std::string noun;                      ///< of its objects; empty where no document says
  std::optional<LONGLONG> documentTime;  ///< when the document says that it began, by the clock of the host
  std::optional<LONGLONG> taken;         ///< of a set that is there, by the clock of the host
  std::vector<Object> objects;

  /// Its set is there, whole or in part.
  bool IsProtected() const { return state == HostState::Protected || state == HostState::Partly; }
  std::size_t ProtectedCount() const;
};

/// Reads the host's documents. One that is missing or cannot be read is told in `why`.
HostResult ResultOf(const Run& run, const Host& host);

/// The state of an object that nothing is known of but its host's.
ObjectState StateOfObjects(HostState host);

}  // namespace varnelctl::fleet
