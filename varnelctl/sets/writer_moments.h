// What the writers of a simulated host were told while a request ran, which no requestor hears of.
#pragma once

#include <cstddef>
#include <vector>

#include "varnelctl/sets/snapshot_run.h"

namespace varnelctl {

/// Begins with the request.
class WriterMoments {
 public:
  /// The session is borrowed.
  explicit WriterMoments(const Session& session);

  /// Since then, in the order of time. \param start of the run, as GetTickCount64 counts. None on a real machine.
  std::vector<WriterMoment> Since(unsigned long long start) const;

 private:
  const Session& session_;
  std::size_t before_;
};

}  // namespace varnelctl
