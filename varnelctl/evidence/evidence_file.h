// One thing that the evidence of a run consists of.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/machine/model.h"
#include "varnelctl/providers.h"

namespace varnelctl {

/// A file, or why there is none.
struct EvidenceFile {
  std::string name;     ///< in the folder: "disks.json"
  std::string title;    ///< what it is, for people
  std::string content;  ///< UTF-8
  std::string whyNot;   ///< why there is none; empty where there is one
};

/// What a run found and hands over while it has it; whoever wants no evidence has none of these. The files are there
/// for any thread, the rest for that of the run.
class FoundEvidence {
 public:
  void Add(EvidenceFile file) {
    const std::lock_guard lock(mutex_);
    if (!isClosed_) files_.push_back(std::move(file));
  }
  /// Whether there is one of this name or, where it ends with '*', of one that begins so.
  bool Has(std::string_view name) const {
    const std::lock_guard lock(mutex_);
    const std::string_view start = name.substr(0, name.find('*'));
    return std::any_of(files_.begin(), files_.end(), [&](const EvidenceFile& file) {
      return start == name ? file.name == name : file.name.starts_with(start);
    });
  }
  std::vector<EvidenceFile> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(files_, {});
  }
  /// The same for the last time: what is added after it is dropped.
  std::vector<EvidenceFile> Close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    return std::exchange(files_, {});
  }

  std::vector<Provider> providers;                 ///< the registered ones; none where nobody asked
  bool wantsNames = false;                         ///< whether names are to be replaced
  std::vector<varnel::simulator::Writer> writers;  ///< where they are: those that the request knew

 private:
  mutable std::mutex mutex_;  // of what follows
  std::vector<EvidenceFile> files_;
  bool isClosed_ = false;
};

}  // namespace varnelctl
