// Random tests that are the same on every run and every platform, and whose failures can be replayed.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace varnel::test {

/// Numbers from a seed. The distributions of the standard library differ between its makers, so none is used.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned Below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  bool Chance(unsigned percent) { return Below(100) < percent; }
  template <class T>
  const T& PickFrom(const std::vector<T>& choices) {
    return choices[Below(static_cast<unsigned>(choices.size()))];
  }
  template <class T>
  T Pick(std::initializer_list<T> choices) {
    return choices.begin()[Below(static_cast<unsigned>(choices.size()))];
  }
  template <class T>
  void Shuffle(std::vector<T>& list) {
    for (std::size_t i = list.size(); i > 1; --i) std::swap(list[i - 1], list[Below(static_cast<unsigned>(i))]);
  }

 private:
  std::mt19937 engine_;
};

/// A number in the environment.
inline std::optional<unsigned> EnvironmentNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

/// The seeds of a random test: 1 to `count`, or to VARNEL_HOSTS where that is set; VARNEL_SEED alone where that is.
inline std::vector<unsigned> Seeds(unsigned count) {
  if (const auto seed = EnvironmentNumber("VARNEL_SEED")) return {*seed};
  std::vector<unsigned> seeds;
  for (unsigned seed = 1; seed <= EnvironmentNumber("VARNEL_HOSTS").value_or(count); ++seed) seeds.push_back(seed);
  return seeds;
}

/// What a random test says of the hosts that it made.
inline std::string HostsText(const std::vector<unsigned>& seeds) {
  return std::to_string(seeds.size()) + " hosts, seeds " + std::to_string(seeds.front()) + " to " +
         std::to_string(seeds.back());
}

/// What a failure says of its host.
inline std::string SeedText(unsigned seed) {
  return "the host of seed " + std::to_string(seed) + " (VARNEL_SEED=" + std::to_string(seed) + " replays it alone)";
}

}  // namespace varnel::test
