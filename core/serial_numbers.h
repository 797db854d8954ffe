// The disks that a component touches. Thousands of components lie on the same few disks.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <utility>

/// Serial numbers, each once and in order. Reads like a std::set<std::wstring>; copies share what they hold until one
/// of them changes.
class SerialNumbers {
 public:
  using Set = std::set<std::wstring>;
  using value_type = Set::value_type;
  using iterator = Set::const_iterator;
  using const_iterator = Set::const_iterator;

  /// Order for look-ups with any sorted range of texts.
  struct ByContent {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
    }
  };

  SerialNumbers() noexcept = default;
  SerialNumbers(Set set) : set_(set.empty() ? nullptr : std::make_shared<Set>(std::move(set))) {}
  SerialNumbers(std::initializer_list<std::wstring> list) : SerialNumbers(Set(list)) {}

  const Set& Get() const noexcept {
    static const Set none;
    return set_ ? *set_ : none;
  }
  operator const Set&() const noexcept { return Get(); }
  const_iterator begin() const noexcept { return Get().begin(); }
  const_iterator end() const noexcept { return Get().end(); }
  std::size_t size() const noexcept { return Get().size(); }
  bool empty() const noexcept { return set_ == nullptr; }
  bool contains(const std::wstring& serialNumber) const { return Get().contains(serialNumber); }

  void insert(const std::wstring& serialNumber) {
    if (!contains(serialNumber)) Own().insert(serialNumber);
  }
  /// Afterwards this holds all of `others` as well.
  void insert(const SerialNumbers& others) {
    if (set_ == others.set_ || others.empty()) return;
    if (empty()) {
      set_ = others.set_;
      return;
    }
    for (const std::wstring& serialNumber : others) insert(serialNumber);
  }
  void clear() noexcept { set_.reset(); }

  friend bool operator==(const SerialNumbers& a, const SerialNumbers& b) noexcept {
    return a.set_ == b.set_ || a.Get() == b.Get();
  }
  friend bool operator==(const SerialNumbers& a, const Set& b) noexcept { return a.Get() == b; }

 private:
  // The set that no copy sees.
  Set& Own() {
    if (set_ == nullptr || set_.use_count() > 1) set_ = std::make_shared<Set>(Get());
    return *set_;
  }

  std::shared_ptr<Set> set_;
};
