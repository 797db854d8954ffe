// What a failed call leaves: its alert or its log lines, and what is thrown.
#include <optional>
#include <type_traits>

#include "core/alerts.h"
#include "core/logging.h"
#include "core/vss_call.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

class CheckCommErrorTest : public HostFixture {
 protected:
  std::optional<long> Check(long hr, std::string call) {
    return ThrownLong([&] { requestor_.CheckCommError(hr, std::move(call), details_); });
  }

  CVarnel requestor_{0};
  std::string details_;
};

TEST_F(CheckCommErrorTest, SuccessCodesReturnWithoutWritingAnything) {
  details_ = "writer=1,";
  for (const HRESULT hr : {S_OK, S_FALSE, VSS_S_ASYNC_PENDING, VSS_S_ASYNC_CANCELLED, HRESULT{0x7FFFFFFF}}) {
    EXPECT_EQ(Check(hr, "X()"), std::nullopt) << hr;
  }
  EXPECT_EQ(details_, "writer=1,");
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(host().calls().lines(), IsEmpty());
}

TEST_F(CheckCommErrorTest, AFailureIsLoggedAppendedAndThrown) {
  details_ = "writer=1,";
  EXPECT_EQ(Check(static_cast<HRESULT>(0x80042301), "X()"), Failure(VSS_E_BAD_STATE));
  EXPECT_EQ(details_, "writer=1,X()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n");
  EXPECT_THAT(log.All(), ElementsAre("E  X()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;"));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(CheckCommErrorTest, RecordsAreAppendedOldestFirst) {
  Check(VSS_E_BAD_STATE, "m_pVssObject->StartSnapshotSet()");
  Check(E_OUTOFMEMORY, "DoSnapshotSet()");
  EXPECT_EQ(details_,
            "m_pVssObject->StartSnapshotSet()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n"
            "DoSnapshotSet()=Failed, error=E_OUTOFMEMORY, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CheckCommErrorTest, TheThrownLongIsNegativeHoweverTheResultWasWidened) {
  const long expected = -2147212543L;  // 0x80042301
  EXPECT_EQ(Check(VSS_E_BAD_STATE, "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0x0000000080042301LL), "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0x1234567880042301LL), "X()"), expected);
  EXPECT_EQ(Check(static_cast<long>(0xFFFFFFFF00000001LL), "X()"), std::nullopt);
}

TEST_F(CheckCommErrorTest, WhatIsThrownIsABareLongAndNothingElse) {
  try {
    requestor_.CheckCommError(E_FAIL, "X()", details_);
    FAIL() << "returned";
  } catch (const std::exception&) {
    FAIL() << "an exception object";
  } catch (int) {
    static_assert(!std::is_same_v<int, long>);
    FAIL() << "an int";
  } catch (long hr) {
    EXPECT_EQ(hr, Failure(E_FAIL));
  }
}

TEST_F(CheckCommErrorTest, ASystemTextIsTakenAsItStands) {
  model().messages[0x80004005] = L"Unspecified error\r\n";
  Check(E_FAIL, "X()");
  EXPECT_EQ(details_, "X()=Failed, error=Unspecified error\r\n, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(CheckCommErrorTest, PercentSignsInTheCallAreText) {
  Check(E_UNEXPECTED, "100%s%n()");
  EXPECT_EQ(details_, "100%s%n()=Failed, error=E_UNEXPECTED, rc=COMMError, ca=ContactTechSupport;\n");
}

class ReportTest : public HostFixture {};

TEST_F(ReportTest, AFailedComCallLeavesThreeLinesAndThrows) {
  EXPECT_EQ(ThrownLong([] { LogAndThrow(L"pX->Y(&z)")(VSS_E_OBJECT_NOT_FOUND); }), Failure(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(log.All(), ElementsAre("E ERROR: COM call \"pX->Y(&z)\" failed.", "E - Returned HRESULT = 0x80042308",
                                     "E - Error text: VSS_E_OBJECT_NOT_FOUND"));
  for (const RecordingLog::Line& line : log.lines) EXPECT_EQ(line.source, "varnel");
}

TEST_F(ReportTest, AResultIsShownWithEightDigits) {
  EXPECT_EQ(ThrownLong([] { LogAndThrow(L"f()", CallText::bare)(E_FAIL); }), Failure(E_FAIL));
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: COM call f() failed.", "- Returned HRESULT = 0x80004005",
                                        "- Error text: Error: 0x80004005"));
}

TEST_F(ReportTest, ASuccessfulComCallLeavesNothing) {
  for (const HRESULT hr : {S_OK, S_FALSE, VSS_S_ASYNC_FINISHED}) {
    EXPECT_EQ(ThrownLong([&] { LogAndThrow(L"f()", CallText::bare)(hr); }), std::nullopt);
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(ReportTest, AFailedWin32CallLeavesThreeLinesAndThrowsItsHresult) {
  model().messages[5] = L"Access is denied.\r\n";
  EXPECT_EQ(
      ThrownLong([] { LogAndThrowWin32(L"GetComputerNameW(buffer, &size)", ERROR_ACCESS_DENIED, CallText::bare); }),
      Failure(E_ACCESSDENIED));
  EXPECT_THAT(log.All(), ElementsAre("E ERROR: Win32 call GetComputerNameW(buffer, &size) failed.",
                                     "E - GetLastError() == 5", "E - Error text: Access is denied.\r\n"));
}

TEST_F(ReportTest, AFailureWithoutAnErrorCodeCountsAsAGeneralOne) {
  EXPECT_EQ(ThrownLong([] { LogAndThrowWin32(L"f()", 0, CallText::bare); }), Win32Failure(31));
  EXPECT_THAT(log.Errors(), ElementsAre("ERROR: Win32 call f() failed.", "- GetLastError() == 31",
                                        "- Error text: Error: 0x8007001f"));
  host().machine().lastError = 0;
  EXPECT_EQ(LastErrorOrGeneric(), ERROR_GEN_FAILURE);
  host().machine().lastError = 5;
  EXPECT_EQ(LastErrorOrGeneric(), ERROR_ACCESS_DENIED);
}

TEST_F(ReportTest, AnHresultIsThrownAsASignExtendedLong) {
  EXPECT_EQ(ThrownLong([] { ThrowHResult(E_FAIL); }), -2147467259L);
  static_assert(AsHResult(static_cast<long>(0x1234567880042301LL)) == VSS_E_BAD_STATE);
  static_assert(AsHResult(-1) == -1);
}

TEST_F(ReportTest, ASuccessThatDeliversNothingIsUnexpected) {
  const int* nothing = nullptr;
  const int object = 1;
  EXPECT_EQ(Delivered(S_OK, nothing), E_UNEXPECTED);
  EXPECT_EQ(Delivered(S_FALSE, nothing), E_UNEXPECTED);
  EXPECT_EQ(Delivered(S_FALSE, &object), S_FALSE);
  EXPECT_EQ(Delivered(E_FAIL, nothing), E_FAIL);
}

TEST(ReportsWithoutAListener, ChangeNothing) {
  simulator::SimulatedHost host(SmallHost());
  const ScopedHost current(host);
  EXPECT_EQ(ThrownLong([] { LogAndThrow(L"f()", CallText::bare)(E_FAIL); }), Failure(E_FAIL));
  EXPECT_EQ(ThrownLong([] { LogAndThrowWin32(L"f()", 5, CallText::bare); }), Failure(E_ACCESSDENIED));
  CVarnel requestor(0);
  std::string details;
  EXPECT_EQ(ThrownLong([&] { requestor.CheckCommError(E_UNEXPECTED, "f()", details); }), Failure(E_UNEXPECTED));
  EXPECT_EQ(details, "f()=Failed, error=E_UNEXPECTED, rc=COMMError, ca=ContactTechSupport;\n");
}

}  // namespace
}  // namespace varnel::test
