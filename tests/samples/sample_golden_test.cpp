// A request on every sample host against texts that were read once and kept in tests/golden/samples: how it and its
// completion ended, what the array is told, what is left on the host, the log and the calls.
//
// With the environment variable VARNEL_UPDATE_GOLDEN set to anything, the texts are rewritten from the runs; read the
// difference before keeping it. The texts hold on every platform.
#include <regex>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/samples/sample_run.h"
#include "tests/support/golden.h"

namespace varnel::test {
namespace {

// Looking things up: the same on every host, and kept in tests/golden for a small one.
const std::regex kLookUps(
    "CloseHandle|CreateFileW|DeviceIoControl|ExpandEnvironmentStringsW|Find|FreeLibrary|GetModuleHandleExW|"
    "GetSystemDirectoryW|GetVolume|IVssAsync::|IVssBackupComponents::GetWriter(Components\\(|Metadata|StatusCount)|"
    "IVssBackupComponents::QueryInterface|IVssBackupComponentsEx3::|IVssComponent|IVssEnumObject::|"
    "IVssExamineWriterMetadata::|IVssWMComponent::|IVssWMFiledesc::|IVssWriterComponents::|LoadLibraryW|LoadStringW|"
    "malloc");

bool IsLookUp(const std::string& line) {
  return std::regex_search(line, kLookUps, std::regex_constants::match_continuous);
}

class SampleGolden : public SampleFixture {
 protected:
  /// Compares a request on a host file with the golden text of its name, or of `golden`.
  template <class Requestor>
  void Compare(const std::string& name, AgentOptions options, const std::string& golden = "") {
    std::string text;
    {
      const auto run = Run<Requestor>(name + ".json", std::move(options));
      text = run.refusal != 0 ? Refusal(run) : Endings(run);
      text += GoldenSection("error details", LinesOf(run.alerts()));
      if (!run.catalogue.empty()) text += GoldenSection("catalogue", run.catalogue);
      text += GoldenSection("shadow copies left", Copies());
    }
    text += GoldenSection("log", log.AllWithSources()) + GoldenSection("calls but look-ups", CallsThatMatter());
    CompareWithGolden(std::filesystem::path(VARNEL_GOLDEN_DIR) / ((golden.empty() ? name : golden) + ".txt"), text);
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
    std::vector<std::string> calls = host().calls().lines();
    std::erase_if(calls, IsLookUp);
    return calls;
  }
};

TEST_F(SampleGolden, ASqlServerWithAWholeProtectionSet) {
  Compare<SqlReq>("sql-server", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}, .disconnect = true});
}

TEST_F(SampleGolden, ASqlServerWithATornDatabase) {
  Compare<SqlReq>("sql-server-torn", {.disks = {L"TSL0001", L"TSL0002", L"TSL0003"}});
}

TEST_F(SampleGolden, ASqlServerWithNothingButHalfADatabase) {
  Compare<SqlReq>("sql-server-torn", {.disks = {L"TSL0002"}}, "sql-server-torn-half");
}

TEST_F(SampleGolden, ASqlServerWhoseWritersTimeOut) {
  Compare<SqlReq>("sql-server-freeze-timeout", {.disks = {L"TSL0001", L"TSL0003"}});
}

TEST_F(SampleGolden, AnExchangeServerWithAWholeProtectionSet) {
  Compare<ExchangeReq>("exchange", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true, .disconnect = true});
}

TEST_F(SampleGolden, AnExchangeServerWithoutItsLogs) {
  Compare<ExchangeReq>("exchange", {.disks = {L"TSL1001"}}, "exchange-without-logs");
}

TEST_F(SampleGolden, AnExchangeServerWithADamagedDatabase) {
  Compare<ExchangeReq>("exchange-damaged", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});
}

TEST_F(SampleGolden, AnExchangeServerWithoutItsUtility) {
  Compare<ExchangeReq>("exchange-no-utility", {.disks = {L"TSL1001", L"TSL1002"}, .verify = true});
}

TEST_F(SampleGolden, AHyperVClusterWithItsSharedVolumes) {
  Compare<HyperVReq>("hyperv-cluster", {.disks = {L"TSL2001", L"TSL2002"}, .disconnect = true});
}

TEST_F(SampleGolden, AHyperVClusterWithOneFailedMachineOfTwenty) {
  Compare<HyperVReq>("hyperv-one-of-twenty", {.disks = {L"TSL2001", L"TSL2002"}});
}

TEST_F(SampleGolden, AHyperVClusterWithSharedAndOtherVolumes) {
  Compare<HyperVReq>("hyperv-mixed-volumes", {.disks = {L"TSL2001", L"TSL2003"}});
}

TEST_F(SampleGolden, AHyperVHostWithoutTheHotfix) {
  Compare<HyperVReq>("hyperv-missing-hotfix", {.disks = {L"TSL2901"}});
}

TEST_F(SampleGolden, APlainFileServer) {
  Compare<CVarnel>("plain", {.disks = {L"TSL3001", L"TSL3002"}, .disconnect = true});
}

}  // namespace
}  // namespace varnel::test
