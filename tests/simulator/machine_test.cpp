// The machine of a simulated host: fault plan, call log, live objects, and texts as it compares and shows them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/machine/machine.h"
#include "simulator/machine/result_names.h"
#include "text/ascii_case.h"

namespace varnel::simulator {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Patterns, StarsStandForAnyTextAndQuestionMarksForOneCharacter) {
  EXPECT_TRUE(ascii::MatchesPattern(L"eseutil.exe /k *", L"eseutil.exe /k \"E:\\MDB1\""));
  EXPECT_TRUE(ascii::MatchesPattern(L"*.EDB", L"mdb1.edb"));
  EXPECT_TRUE(ascii::MatchesPattern(L"a*b*c", L"a-b-b-c"));
  EXPECT_TRUE(ascii::MatchesPattern(L"E0?", L"e01"));
  EXPECT_TRUE(ascii::MatchesPattern(L"*", L""));
  EXPECT_FALSE(ascii::MatchesPattern(L"E0?", L"e0"));
  EXPECT_FALSE(ascii::MatchesPattern(L"a*b", L"a-b-c"));
  EXPECT_FALSE(ascii::MatchesPattern(L"", L"a"));
}

TEST(Patterns, ManyStarsDoNotTakeExponentialTime) {
  const std::wstring text(2000, L'a');
  EXPECT_FALSE(ascii::MatchesPattern(L"*a*a*a*a*a*a*a*a*a*a*a*a*b", text));
}

TEST(Results, KnownCodesHaveNamesAndOthersAreHexadecimal) {
  EXPECT_EQ(ResultName(S_OK), "S_OK");
  EXPECT_EQ(ResultName(VSS_E_BAD_STATE), "VSS_E_BAD_STATE");
  EXPECT_EQ(ResultName(VSS_S_ASYNC_FINISHED), "VSS_S_ASYNC_FINISHED");
  EXPECT_EQ(ResultName(VSS_E_WRITER_STATUS_NOT_AVAILABLE), "VSS_E_WRITER_STATUS_NOT_AVAILABLE");
  EXPECT_EQ(ResultName(E_INVALIDARG), "E_INVALIDARG");
  EXPECT_EQ(ResultName(static_cast<HRESULT>(0x80040e14)), "0x80040e14");
}

TEST(Results, AreReadFromNamesHexadecimalAndDecimalText) {
  EXPECT_EQ(ParseResult("VSS_E_PROVIDER_VETO"), 0x80042306u);
  EXPECT_EQ(ParseResult("VSS_E_FSS_TIMEOUT"), 0x80042417u);
  EXPECT_EQ(ParseResult("0x80040e14"), 0x80040e14u);
  EXPECT_EQ(ParseResult("5"), 5u);
  EXPECT_EQ(ParseResult("4294967295"), 0xFFFFFFFFu);
  for (const char* bad : {"", "VSS_E_NOPE", "0x", "0x123456789", "12x", "-1", "4294967296", " 5"}) {
    EXPECT_EQ(ParseResult(bad), std::nullopt) << bad;
  }
}

// ---- Fault plan, call log, live objects

TEST(FaultPlan, FailsOnlyTheOccurrenceThatWasPlanned) {
  FaultPlan plan;
  plan.FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
  EXPECT_EQ(plan.OnCall("CreateFileW"), std::nullopt);
  EXPECT_EQ(plan.OnCall("DeviceIoControl"), std::nullopt);
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(plan.OnCall("CreateFileW"), std::nullopt);
}

TEST(FaultPlan, OccurrenceZeroFailsEveryOne) {
  FaultPlan plan;
  plan.FailCall("CreateFileW", ERROR_ACCESS_DENIED, 0);
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(plan.OnCall("CreateFileW"), DWORD{ERROR_ACCESS_DENIED});
}

TEST(FaultPlan, CountsOccurrencesFromTheMomentTheFaultIsPlanned) {
  FaultPlan plan;
  plan.FailCall("A", 1, 1);
  plan.OnCall("A");
  plan.OnCall("A");
  plan.FailCall("A", 7, 1);
  EXPECT_EQ(plan.OnCall("A"), 7u);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
}

TEST(FaultPlan, TheNthCallFailsWhateverItIs) {
  FaultPlan plan;
  plan.FailNthCall(2, 5);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
  EXPECT_FALSE(plan.fired());
  EXPECT_EQ(plan.OnCall("B"), 5u);
  EXPECT_EQ(plan.OnCall("C"), std::nullopt);
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(plan.firedAt(), "B");
  EXPECT_EQ(plan.callCount(), 3);
}

TEST(FaultPlan, APersistentFaultFailsTheNthCallAndAllAfterIt) {
  FaultPlan plan;
  plan.FailNthCall(2, 5, true);
  EXPECT_EQ(plan.OnCall("A"), std::nullopt);
  EXPECT_EQ(plan.OnCall("B"), 5u);
  EXPECT_EQ(plan.OnCall("C"), 5u);
  EXPECT_EQ(plan.firedAt(), "B");
}

TEST(FaultPlan, AsynchronousOperationsAndWritersFailByName) {
  FaultPlan plan;
  plan.FailAsync("DoSnapshotSet", VSS_E_HOLD_WRITES_TIMEOUT);
  plan.FailWriter({L"SqlServerWriter", WriterEvent::freeze, VSS_E_WRITERERROR_TIMEOUT, 0, L"", {}});
  EXPECT_EQ(plan.OnAsync("PrepareForBackup"), nullptr);
  const AsyncFault* fault = plan.OnAsync("DoSnapshotSet");
  ASSERT_NE(fault, nullptr);
  EXPECT_EQ(fault->result, VSS_E_HOLD_WRITES_TIMEOUT);
  EXPECT_EQ(plan.OnAsync("DoSnapshotSet"), nullptr);
  ASSERT_NE(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::freeze), nullptr);
  EXPECT_EQ(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::freeze)->failure, VSS_E_WRITERERROR_TIMEOUT);
  EXPECT_EQ(plan.OnWriterEvent(L"SqlServerWriter", WriterEvent::thaw), nullptr);
  EXPECT_EQ(plan.OnWriterEvent(L"System Writer", WriterEvent::freeze), nullptr);
}

TEST(FaultPlan, DeletionsFailByTheDiskUntilThePlanIsReplaced) {
  FaultPlan plan;
  plan.FailDeletion({L"TSL0001", VSS_E_PROVIDER_VETO});
  EXPECT_EQ(plan.OnDeletion(L"TSL0002"), std::nullopt);
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), VSS_E_PROVIDER_VETO);
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), VSS_E_PROVIDER_VETO);
  plan.Load({});
  EXPECT_EQ(plan.OnDeletion(L"TSL0001"), std::nullopt);
}

TEST(CallLog, FindsTheLinesOfOneCall) {
  CallLog log;
  log.Add("A(1) = ok");
  log.Add("AB(2) = ok");
  log.Add("A(3) = ok");
  EXPECT_THAT(log.Of("A"), ElementsAre("A(1) = ok", "A(3) = ok"));
}

TEST(LiveObjects, AreCountedByKindAndDescribedInOrder) {
  LiveObjects live;
  live.Add("IVssAsync");
  live.Add("BSTR");
  live.Add("BSTR");
  EXPECT_EQ(live.Count(), 3);
  EXPECT_EQ(live.Count("BSTR"), 2);
  EXPECT_EQ(live.Describe(), "2 BSTR, 1 IVssAsync");
  live.Remove("IVssAsync");
  EXPECT_EQ(live.Describe(), "2 BSTR");
  EXPECT_THAT(live.misuses(), IsEmpty());
  live.Remove("IVssAsync");
  EXPECT_THAT(live.misuses(), ElementsAre("IVssAsync given back too often"));
}

TEST(Machine, CountsTextsAndRefusesOnesItNeverHandedOut) {
  const auto machine = std::make_shared<Machine>(HostModel{});
  BSTR text = machine->MakeBstr(L"volume");
  EXPECT_EQ(machine->live.Describe(), "1 BSTR");
  machine->FreeTask(text);
  EXPECT_THAT(machine->live.misuses(), SizeIs(1));
  machine->FreeBstr(text);
  machine->FreeBstr(text);
  EXPECT_THAT(machine->live.misuses(), SizeIs(2));
  machine->FreeBstr(nullptr);
  wchar_t* task = machine->MakeTaskText(L"volume");
  EXPECT_STREQ(task, L"volume");
  EXPECT_EQ(machine->live.Describe(), "1 task memory");
  machine->FreeTask(task);
  EXPECT_EQ(machine->live.Describe(), "");
  EXPECT_THAT(machine->live.misuses(), SizeIs(2));
}

}  // namespace
}  // namespace varnel::simulator
