// What is a machine's own: its identifiers, its clock, its name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

HostModel HostWithSeed(std::optional<WORD> seed) {
  HostModel model = VssHost();
  model.seed = seed;
  return model;
}

// The identifiers that a machine makes one after the other.
std::vector<std::string> Identifiers(std::optional<WORD> seed) {
  simulator::Machine machine(HostWithSeed(seed));
  std::vector<std::string> ids(3);
  for (std::string& id : ids) id = WideToUtf8(FormatGuid(machine.NewId()));
  return ids;
}

// Now, in 100 ns since 1601.
VSS_TIMESTAMP Clock() {
  constexpr VSS_TIMESTAMP kFrom1601To1970 = 116444736000000000;
  using Ticks = std::chrono::duration<VSS_TIMESTAMP, std::ratio<1, 10000000>>;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return kFrom1601To1970 + std::chrono::duration_cast<Ticks>(now).count();
}

TEST(Identity, IsTheSameOnEveryRunWithASeed) {
  EXPECT_THAT(Identifiers(1),
              ElementsAre("{00000001-5e1f-4c3d-9a0b-000000000000}", "{00000002-5e1f-4c3d-9a0b-000000000000}",
                          "{00000003-5e1f-4c3d-9a0b-000000000000}"));
  EXPECT_EQ(Identifiers(7), Identifiers(7));
  EXPECT_NE(Identifiers(7), Identifiers(1));
}

TEST(Identity, IsRandomWithoutASeed) {
  std::set<std::string> seen;
  for (int i = 0; i < 20; ++i) {
    for (const std::string& id : Identifiers(std::nullopt)) {
      EXPECT_TRUE(seen.insert(id).second) << id;
      EXPECT_EQ(id[15], '4') << id << ": version 4";
      EXPECT_THAT(std::string("89ab"), HasSubstr(id.substr(20, 1))) << id << ": the usual variant";
    }
  }
}

VSS_TIMESTAMP ToldTime() {
  FILETIME time{};
  CurrentHost().time().GetSystemTimeAsFileTime(&time);
  return static_cast<VSS_TIMESTAMP>(static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

TEST_F(ShadowCopyService, TellsTheTimeByWhichItDatesItsCopies) {
  constexpr VSS_TIMESTAMP kSecond = 10000000;
  constexpr VSS_TIMESTAMP kStartOf2026 = 134116992000000000;
  Install(HostWithSeed(1));
  EXPECT_EQ(ToldTime(), kStartOf2026);
  host().machine().now = 2000;
  EXPECT_EQ(ToldTime(), kStartOf2026 + 2 * kSecond);

  Install(HostWithSeed(std::nullopt));
  host().machine().now = 2000;
  const VSS_TIMESTAMP before = Clock();
  const VSS_TIMESTAMP told = ToldTime();
  EXPECT_GE(told, before + 2 * kSecond);
  EXPECT_LE(told, Clock() + 2 * kSecond);
}

TEST(Identity, IsOfTheSameProcessOnEveryHost) {
  simulator::SimulatedHost first(VssHost());
  simulator::SimulatedHost second(VssHost());
  EXPECT_NE(first.processes().GetCurrentProcessId(), 0u);
  EXPECT_EQ(first.processes().GetCurrentProcessId(), second.processes().GetCurrentProcessId());
}

TEST_F(ShadowCopyService, DatesCopiesByTheMachinesClockAndWhatPassedOnTheVirtualOne) {
  constexpr VSS_TIMESTAMP kHour = 36000000000;
  Install(HostWithSeed(std::nullopt));
  host().machine().now = 3600000;
  const VSS_TIMESTAMP before = Clock();
  Backup backup(Phase::snapshotDone);
  EXPECT_GE(Copies().at(0)->timestamp, before + kHour);
  EXPECT_LE(Copies().at(0)->timestamp, Clock() + kHour);
}

TEST_F(ShadowCopyService, DatesCopiesAlikeOnEveryRunWithASeed) {
  Install(HostWithSeed(1));
  host().machine().now = 1000;
  Backup backup(Phase::snapshotDone);
  EXPECT_EQ(Copies().at(0)->timestamp, 134116992000000000 + 10000000);
}

TEST_F(ShadowCopyService, NamesAMemberOfADomainInFullInTheProperties) {
  host().model().domain = L"corp.example";
  Backup backup(Phase::snapshotDone);
  SnapshotProperties properties;
  ASSERT_THAT(backup->GetSnapshotProperties(backup.copyIds.at(0), properties.Put()), Gives(S_OK));
  EXPECT_EQ(Wide(properties->m_pwszOriginatingMachine), L"SQL01.corp.example");
  EXPECT_EQ(Wide(properties->m_pwszServiceMachine), L"SQL01.corp.example");
  wchar_t name[16] = {};
  DWORD characters = 16;
  ASSERT_TRUE(CurrentHost().system().GetComputerNameW(name, &characters));
  EXPECT_STREQ(name, L"SQL01");
}

}  // namespace
}  // namespace varnel::test
