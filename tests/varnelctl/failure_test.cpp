// From exceptions to statuses, and why a process cannot use the service.
#include "varnelctl/explanation/failure.h"

#include <gmock/gmock.h>

#include "core/varnel.h"
#include "platform/host.h"
#include "varnelctl/machine_session.h"

namespace varnel::test {
namespace {

using testing::ElementsAre;
using varnelctl::ExitStatus;

template <class Exception>
varnelctl::Failure Described(const Exception& exception) {
  return varnelctl::DescribeFailure(std::make_exception_ptr(exception), "SomeCall");
}

TEST(Failure, EachAlertCodeHasItsStatus) {
  const std::pair<int, int> expected[] = {{600, 10}, {601, 11}, {602, 12}, {603, 13}, {701, 14}, {999, 1}};
  for (const auto& [alert, status] : expected) {
    const varnelctl::Failure failure = Described(VarnelException(alert, L"text"));

    EXPECT_EQ(static_cast<int>(failure.status), status) << alert;
    EXPECT_EQ(failure.alertCode, alert);
    EXPECT_EQ(failure.message, "text");
    EXPECT_EQ(failure.details.size(), alert == VarnelException::VerificationFailure ? 1u : 0u);
  }
}

TEST(Failure, AFailedVerificationSaysWhereItsFileIsNamed) {
  EXPECT_THAT(Described(VarnelException(VarnelException::VerificationFailure, L"text")).details,
              ElementsAre("a check of the snapshot failed; the log (--log FILE) has its command line and its file"));
}

TEST(Failure, AnUnfitMachineIsOneSentenceAndAFailedCall) {
  const varnelctl::Failure failure = Described(varnelctl::UnfitMachine("no service here", E_ACCESSDENIED));

  EXPECT_EQ(failure.status, ExitStatus::FailedCall);
  EXPECT_EQ(failure.message, "no service here");
  EXPECT_EQ(failure.hresult, E_ACCESSDENIED);
}

TEST(Failure, AProcessIsToldWhyTheServiceWillNotAnswerIt) {
  EXPECT_EQ(varnelctl::WhyUnfit(true, true, true), "");
  EXPECT_EQ(varnelctl::WhyUnfit(true, true, false),
            "this machine has no Volume Shadow Copy service: vssapi.dll cannot be loaded");
  EXPECT_EQ(varnelctl::WhyUnfit(true, false, true),
            "the Volume Shadow Copy service of 64-bit Windows answers 64-bit programs only, and this one has 32");
  EXPECT_EQ(varnelctl::WhyUnfit(false, true, true),
            "the Volume Shadow Copy service answers administrators only: start varnelctl elevated");
}

TEST(Failure, AnAlertsListFollowsItsMessage) {
  const varnelctl::Failure failure = Described(VarnelException(600, L"two\r\nlines", {L"first", L"", L"second\r\n"}));

  EXPECT_EQ(failure.message, "two lines");
  EXPECT_THAT(failure.details, ElementsAre("first", "second"));
}

TEST(Failure, AThrownLongIsAFailedCall) {
  const varnelctl::Failure failure = Described(static_cast<long>(VSS_E_BAD_STATE));

  EXPECT_EQ(failure.status, ExitStatus::FailedCall);
  EXPECT_EQ(failure.hresult, VSS_E_BAD_STATE);
  EXPECT_EQ(failure.message, "SomeCall failed: VSS_E_BAD_STATE (0x80042301)");
}

TEST(Failure, ARefusalHasTheCataloguesMessageAndTheStatusWord) {
  const varnelctl::Failure failure = Described(varnelctl::ValidationFailure(252, "TesselHyperVValidation_Exception"));

  EXPECT_EQ(failure.status, ExitStatus::Validation);
  EXPECT_EQ(failure.alertCode, 252);
  EXPECT_EQ(failure.message,
            "An error occurred while validating volumes in volume collection. Please refer to logs on the host for "
            "more details.");
  EXPECT_THAT(failure.details, ElementsAre("status TesselHyperVValidation_Exception"));
  EXPECT_EQ(Described(varnelctl::ValidationFailure(99, "")).message, "the library refuses this request (message 99)");
}

TEST(Failure, TheCompletionIsToldAnAlertsCodeOrAThrownResultElseMinusOne) {
  EXPECT_EQ(Described(VarnelException(601, L"text")).backupStatus, 601);
  EXPECT_EQ(Described(static_cast<long>(VSS_E_BAD_STATE)).backupStatus, static_cast<int>(VSS_E_BAD_STATE));
  EXPECT_EQ(Described(122L).backupStatus, 122);
  EXPECT_EQ(Described(varnelctl::ValidationFailure(250, "")).backupStatus, -1);
  EXPECT_EQ(Described(varnelctl::CallFailure("SomeCall", E_FAIL)).backupStatus, -1);
  EXPECT_EQ(Described(std::runtime_error("broken")).backupStatus, -1);
  EXPECT_EQ(Described(VarnelException()).backupStatus, -1) << "0 would be a success";
  EXPECT_EQ(Described(0L).backupStatus, -1);
}

TEST(Failure, AnythingElseIsUnexpected) {
  EXPECT_EQ(Described(NoHostError()).status, ExitStatus::Unexpected);
  EXPECT_EQ(Described(std::runtime_error("broken")).message, "broken");
  EXPECT_EQ(Described(7).status, ExitStatus::Unexpected);
}

}  // namespace
}  // namespace varnel::test
