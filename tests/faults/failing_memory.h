// The operators new and delete of a test program that links failing_memory.cpp. Requests for memory are counted, and
// fail as planned, only while they are armed, so that the code under test meets the shortage and the test itself does
// not. Blocks that are not given back are counted always. For one thread.
#pragma once

namespace varnel::test::memory {

/// From now on the nth armed request fails, with `persistent` every later one too. 0: none. The count starts anew.
void FailNth(int nth, bool persistent);
/// Armed requests since then.
int Requests() noexcept;
/// Whether the failure that was planned has happened.
bool Fired() noexcept;
/// Blocks that the program holds, whoever asked for them.
long LiveBlocks() noexcept;

/// Requests count for the lifetime of the guard, or do not; then it is as before.
class Switch {
 public:
  explicit Switch(bool armed) noexcept;
  ~Switch();
  Switch(const Switch&) = delete;
  Switch& operator=(const Switch&) = delete;

 private:
  bool before_;
};

/// Code under test.
class Armed : private Switch {
 public:
  Armed() noexcept : Switch(true) {}
};

/// Whatever that code calls which is not under test.
class Outside : private Switch {
 public:
  Outside() noexcept : Switch(false) {}
};

}  // namespace varnel::test::memory
