// Whole runs against texts that were read once and kept: outcome, error details, log lines and platform calls.
//
// With the environment variable VARNEL_UPDATE_GOLDEN set to anything, the texts in tests/golden are rewritten from the
// runs; read the difference before keeping it. The texts hold on every platform.
#include <filesystem>

#include "tests/support/golden.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

std::filesystem::path GoldenFile(const std::string& name) {
  return std::filesystem::path(VARNEL_GOLDEN_DIR) / (name + ".txt");
}

class GoldenTest : public HostFixture {
 protected:
  /// A mail writer with two databases and a web writer; all files lie on TSL0001.
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {
        MakeWriter(L"Mail", 1,
                   {MakeComponent(L"mail", L"db1", {L"E:\\db1", L"%MailData%\\log"}),
                    MakeComponent(L"mail", L"db2", {L"E:\\db2"})}),
        MakeWriter(L"Web", 2, {MakeComponent(L"", L"site", {L"E:\\web"})}),
    };
    model.environment[L"MailData"] = L"E:\\mail";
    Install(std::move(model));
  }

  /// A whole life of a requestor; `completed`: with what became of the request told to SetBackupStatus.
  template <class Requestor>
  std::string Run(RequestOptions options, bool completed) {
    std::string endings;
    std::string details;
    {
      SnapshotRequest<Requestor> request(std::move(options));
      const Outcome outcome = request.StartAndCreate();
      endings = GoldenSection("outcome", GoldenOutcome(outcome));
      if (completed) endings += GoldenSection("completion", GoldenOutcome(request.Complete(StatusCode(outcome))));
      details = request.details();
    }
    return endings + GoldenSection("error details", LinesOf(details)) + GoldenSection("log", log.All()) +
           GoldenSection("calls", host().calls().lines());
  }
  template <class Requestor = CVarnel>
  std::string RunRequest(RequestOptions options = {}) {
    return Run<Requestor>(std::move(options), false);
  }
  template <class Requestor = CVarnel>
  std::string RunBackup(RequestOptions options = {}) {
    return Run<Requestor>(std::move(options), true);
  }

  /// Mail's second database fails while the first does well.
  static WriterFault PartialFault() {
    WriterFault fault;
    fault.writer = L"Mail";
    fault.event = WriterEvent::postSnapshot;
    fault.failure = VSS_E_WRITERERROR_PARTIAL_FAILURE;
    fault.applicationResult = static_cast<HRESULT>(0x80040e14);
    fault.applicationMessage = L"one database is offline";
    fault.components = {
        {L"\\mail\\db2", VSS_E_WRITERERROR_RETRYABLE, static_cast<HRESULT>(0x80040e15), L"db2 is offline"}};
    return fault;
  }

  static void Compare(const std::string& name, const std::string& text) { CompareWithGolden(GoldenFile(name), text); }
};

TEST_F(GoldenTest, ACleanRequest) {
  Compare("clean", RunRequest());
}

TEST_F(GoldenTest, ARequestWithAPartialWriterFailure) {
  FailWriter(PartialFault());
  Compare("partial", RunRequest<PartialRequestor>());
}

TEST_F(GoldenTest, ARequestWhoseDisksHoldNoApplication) {
  Compare("mismatch", RunRequest({.serialNumbers = {L"TSL0002", L"TSL0003"}}));
}

TEST_F(GoldenTest, ARequestWithExtraVolumes) {
  Compare("extra_volumes", RunRequest(BothDisks()));
}

TEST_F(GoldenTest, ACompletedBackup) {
  Compare("completed", RunBackup());
}

TEST_F(GoldenTest, ABackupCompletedWithMessages) {
  FailWriter(PartialFault());
  Compare("completed_partial", RunBackup<PartialRequestor>());
}

TEST_F(GoldenTest, AFailedBackupWhoseSetIsDeleted) {
  FailWriter(PartialFault());
  Compare("failed", RunBackup());
}

TEST_F(GoldenTest, AFailedBackupWhoseTransportableSetIsKept) {
  Compare("failed_transportable",
          RunBackup({.context = VSS_VOLSNAP_ATTR_TRANSPORTABLE, .testPoints = kTestPointFailDoSnapshotSet}));
}

TEST_F(GoldenTest, ABackupAbortedBeforeItsSnapshot) {
  host().faults().FailAsync("PrepareForBackup", VSS_E_WRITER_INFRASTRUCTURE);
  Compare("aborted", RunBackup());
}

TEST_F(GoldenTest, ABackupThatNeverBegan) {
  FailCall("CreateVssBackupComponents", E_ACCESSDENIED);
  Compare("never_begun", RunBackup());
}

TEST_F(GoldenTest, ABackupWithoutWriterComponents) {
  FailCall("IVssBackupComponents::AddComponent", S_OK, 0);  // the service lost them
  Compare("no_writer_components", RunBackup());
}

}  // namespace
}  // namespace varnel::test
