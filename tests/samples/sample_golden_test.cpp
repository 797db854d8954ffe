// A request on every sample host against texts that were read once and kept in tests/golden/samples: how it and its
// completion ended, what the array is told, what is left on the host, the log and the calls.
//
// With the environment variable VARNEL_UPDATE_GOLDEN set to anything, the texts are rewritten from the runs; read the
// difference before keeping it. The texts hold on every platform.
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/samples/sample_run.h"
#include "tests/support/golden.h"

namespace varnel::test {
namespace {

// Looking things up: the same on every host, and kept in tests/golden for a small one.
constexpr std::string_view kLookUps[] = {
    "CloseHandle",
    "CreateFileW",
    "DeviceIoControl",
    "ExpandEnvironmentStringsW",
    "Find",
    "FreeLibrary",
    "GetModuleHandleExW",
    "GetSystemDirectoryW",
    "GetVolume",
    "IVssAsync::",
    "IVssBackupComponents::GetWriterComponents(",
    "IVssBackupComponents::GetWriterMetadata",
    "IVssBackupComponents::GetWriterStatusCount",
    "IVssBackupComponents::QueryInterface",
    "IVssBackupComponentsEx3::",
    "IVssComponent",
    "IVssEnumObject::",
    "IVssExamineWriterMetadata::",
    "IVssWMComponent::",
    "IVssWMFiledesc::",
    "IVssWriterComponents::",
    "LoadLibraryW",
    "LoadStringW",
    "malloc",
};

bool IsLookUp(std::string_view line) {
  return std::any_of(std::begin(kLookUps), std::end(kLookUps),
                     [&](std::string_view start) { return line.starts_with(start); });
}

class SampleGolden : public SampleFixture {
 protected:
  /// Compares a request on the host file `file` with the golden text `golden`.
  template <class Requestor>
  void Compare(const std::string& golden, const std::string& file, AgentOptions options) {
    Load(file);
    std::string text;
    {
      const AgentRun<Requestor> run(std::move(options));
      text = run.refusal != 0 ? Refusal(run) : Endings(run);
      text += GoldenSection("error details", LinesOf(run.alerts()));
      if (!run.catalogue.empty()) text += GoldenSection("catalogue", run.catalogue);
      text += GoldenSection("shadow copies left", Copies());
    }
    text += GoldenSection("log", log.AllWithSources()) + GoldenSection("calls but look-ups", CallsThatMatter());
    CompareWithGolden(std::filesystem::path(VARNEL_GOLDEN_DIR) / (golden + ".txt"), text);
  }

 private:
  template <class Requestor>
  static std::string Refusal(const AgentRun<Requestor>& run) {
    std::vector<std::string> lines = {"message " + std::to_string(run.refusal)};
    if (!run.statusWord.empty()) lines.push_back("status " + run.statusWord);
    return GoldenSection("refused", lines);
  }
  template <class Requestor>
  static std::string Endings(const AgentRun<Requestor>& run) {
    return GoldenSection("outcome", GoldenOutcome(run.outcome)) +
           GoldenSection("completion", GoldenOutcome(run.completion));
  }
  std::vector<std::string> CallsThatMatter() {
    std::vector<std::string> calls;
    for (const std::string& line : host().calls().lines()) {
      if (!IsLookUp(line)) calls.push_back(line);
    }
    return calls;
  }
};

TEST_F(SampleGolden, ASqlServerWithAWholeProtectionSet) {
  Compare<SqlReq>("sql-server", "sql-server.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}, .disconnect = true});
}

TEST_F(SampleGolden, ASqlServerWithATornDatabase) {
  Compare<SqlReq>("sql-server-torn", "sql-server-torn.json", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}});
}

TEST_F(SampleGolden, ASqlServerWithNothingButHalfADatabase) {
  Compare<SqlReq>("sql-server-torn-half", "sql-server-torn.json", {.disks = {L"TSL0002"}});
}

TEST_F(SampleGolden, ASqlServerWhoseWritersTimeOut) {
  Compare<SqlReq>("sql-server-freeze-timeout", "sql-server-freeze-timeout.json", {.disks = {L"TSL0001", L"TSL0003"}});
}

TEST_F(SampleGolden, AnExchangeServerWithAWholeProtectionSet) {
  Compare<ExchangeReq>("exchange", "exchange.json",
                       {.disks = {L"TSL1001", L"TSL1002"}, .verify = true, .disconnect = true});
}

TEST_F(SampleGolden, AnExchangeServerWithoutItsLogs) {
  Compare<ExchangeReq>("exchange-without-logs", "exchange.json", {.disks = {L"TSL1001"}});
}

TEST_F(SampleGolden, AnExchangeServerWithADamagedDatabase) {
  Compare<ExchangeReq>("exchange-damaged", "exchange-damaged.json",
                       {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});
}

TEST_F(SampleGolden, AnExchangeServerWithoutItsUtility) {
  Compare<ExchangeReq>("exchange-no-utility", "exchange-no-utility.json",
                       {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});
}

TEST_F(SampleGolden, AHyperVClusterWithItsSharedVolumes) {
  Compare<HyperVReq>("hyperv-cluster", "hyperv-cluster.json", {.disks = {L"TSL2001", L"TSL2002"}, .disconnect = true});
}

TEST_F(SampleGolden, AHyperVClusterWithOneFailedMachineOfTwenty) {
  Compare<HyperVReq>("hyperv-one-of-twenty", "hyperv-one-of-twenty.json", {.disks = {L"TSL2001", L"TSL2002"}});
}

TEST_F(SampleGolden, AHyperVClusterWithSharedAndOtherVolumes) {
  Compare<HyperVReq>("hyperv-mixed-volumes", "hyperv-mixed-volumes.json", {.disks = {L"TSL2001", L"TSL2003"}});
}

TEST_F(SampleGolden, AHyperVHostWithoutTheHotfix) {
  Compare<HyperVReq>("hyperv-missing-hotfix", "hyperv-missing-hotfix.json", {.disks = {L"TSL2901"}});
}

TEST_F(SampleGolden, APlainFileServer) {
  Compare<CVarnel>("plain", "plain.json", {.disks = {L"TSL3001", L"TSL3002"}, .disconnect = true});
}

}  // namespace
}  // namespace varnel::test
