// Which of a sweep's many runs a test makes.
#pragma once

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/random.h"

namespace varnel::test {

/// All runs, or with VARNEL_SAMPLE=N in the environment about one in N, chosen by VARNEL_SAMPLE_SEED. One object for
/// each test, so that a test alone makes the runs that it makes among the others.
class Sample {
 public:
  bool IsWhole() const { return oneIn_ <= 1; }

  /// Those of the runs that are made, in their order: at least one.
  template <class Run>
  std::vector<Run> Of(std::vector<Run> all) {
    if (IsWhole() || all.empty()) return all;
    std::vector<Run> one = {random_.PickFrom(all)};
    std::erase_if(all, [&](const Run&) { return random_.Below(oneIn_) != 0; });
    return all.empty() ? one : all;
  }

  /// What the runs may find and, when none is left out, all find.
  testing::Matcher<const std::set<std::string>&> Finds(const std::set<std::string>& all) const {
    if (IsWhole()) return testing::ContainerEq(all);
    return testing::IsSubsetOf(all);
  }

  /// What follows a number of runs: how they were chosen.
  static std::string Text() {
    const Sample sample;
    if (sample.IsWhole()) return {};
    return ", one in " + std::to_string(sample.oneIn_) + " by VARNEL_SAMPLE_SEED=" + std::to_string(sample.seed_);
  }

 private:
  unsigned oneIn_ = EnvironmentNumber("VARNEL_SAMPLE").value_or(1);
  unsigned seed_ = EnvironmentNumber("VARNEL_SAMPLE_SEED").value_or(1);
  Random random_{seed_};
};

}  // namespace varnel::test
