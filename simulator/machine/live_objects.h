// What the host handed out and did not get back.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace varnel::simulator {

/// Counted by kind ("IVssAsync", "BSTR", "file handle", ...).
class LiveObjects {
 public:
  /// One more of this kind.
  void Add(std::string_view kind);
  /// One less of this kind; a misuse where there is none.
  void Remove(std::string_view kind);
  /// Of every kind.
  long long Count() const;
  /// Of this kind.
  long long Count(std::string_view kind) const;
  /// "2 BSTR, 1 IVssAsync", empty when nothing is live.
  std::string Describe() const;
  /// Objects given back twice or never handed out; each is a fault of the caller.
  const std::vector<std::string>& misuses() const { return misuses_; }
  /// Tells of a fault of the caller.
  void AddMisuse(std::string what) { misuses_.push_back(std::move(what)); }

 private:
  std::map<std::string, long long, std::less<>> counts_;
  std::vector<std::string> misuses_;
};

}  // namespace varnel::simulator
