// Every sample host on which a run fails: its evidence holds the cause, not only what the run makes of it.
#include "tests/varnelctl/evidence_support.h"

namespace varnel::test {
namespace {

struct FailingSample {
  const char* name;
  const char* host;
  Arguments request;
  int status;
  std::vector<std::pair<const char*, const char*>> causes;  // file of the folder, and what it says
};

std::ostream& operator<<(std::ostream& out, const FailingSample& sample) {
  return out << sample.name;
}

class EvidenceOfSample : public EvidenceFixture, public testing::WithParamInterface<FailingSample> {};

TEST_P(EvidenceOfSample, HoldsTheCause) {
  const FailingSample& sample = GetParam();
  Arguments arguments = {"--host", std::string(VARNEL_EXAMPLES "/hosts/") + sample.host + ".json", "snapshot",
                         "--evidence", evidence};
  arguments.insert(arguments.end(), sample.request.begin(), sample.request.end());

  EXPECT_EQ(RunCli(arguments).status, sample.status);

  EXPECT_EQ(JsonOfEvidence("run.json").at("status"), sample.status);
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "<h1 class=\"verdict\">"));
  for (const auto& [file, cause] : sample.causes) {
    EXPECT_TRUE(Shows(FileOfEvidence(file), cause)) << file << " of " << sample.name;
  }
}

std::string NameOf(const testing::TestParamInfo<FailingSample>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Failing, EvidenceOfSample,
    testing::Values(
        // A required database has a disk outside the set.
        FailingSample{"ArchiveOutside",
                      "sql-server",
                      {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "--require", "sales", "archive"},
                      19,
                      {{"writer-06-SqlServerWriter.xml", "componentName=\"archive\""},
                       {"disks.json", "\"TSL0004\""},
                       {"run.json", "not in the protection set: disk \\\"TSL0004\\\""}}},
        // The log of a database was moved to another disk.
        FailingSample{
            "LogMoved",
            "sql-server-torn",
            {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003"},
            14,
            {{"writer-01-SqlServerWriter.xml", "<FILE_LIST path=\"G:\\MSSQL\\Log\" filespec=\"orders_log.ldf\""},
             {"disks.json", "\"G:\\\\\""}}},
        FailingSample{
            "HalfADatabase",
            "sql-server-torn",
            {"--app", "sql", "--disk", "TSL0002"},
            12,
            {{"writer-01-SqlServerWriter.xml", "<FILE_LIST path=\"G:\\MSSQL\\Log\" filespec=\"orders_log.ldf\""}}},
        FailingSample{"FreezeTimeout",
                      "sql-server-freeze-timeout",
                      {"--app", "sql", "--disk", "TSL0001", "TSL0003"},
                      10,
                      {{"log.txt", "VSS_E_WRITERERROR_TIMEOUT"}, {"run.json", "VSS_WS_FAILED_AT_FREEZE"}}},
        FailingSample{"LogsOutside",
                      "exchange",
                      {"--app", "exchange", "--disk", "TSL1001"},
                      12,
                      {{"writer-11-Microsoft-Exchange-Writer.xml", "path=\"C:\\Mounts\\ExchangeLogs"},
                       {"disks.json", "\"TSL1002\""}}},
        FailingSample{"DamagedDatabase",
                      "exchange-damaged",
                      {"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"},
                      13,
                      {{"log.txt", "Command Failed, Command=eseutil.exe /k /i "},
                       {"log.txt", "\\MDB2\\\\MDB2.edb\", Error=0x1"}}},
        FailingSample{"NoChecker",
                      "exchange-not-installed",
                      {"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"},
                      13,
                      {{"log.txt", "- GetLastError() == 2"}, {"calls.txt", "CreateProcessW(eseutil.exe"}}},
        FailingSample{
            "OneOfTwenty",
            "hyperv-one-of-twenty",
            {"--app", "hyperv", "--disk", "TSL2001", "TSL2002"},
            11,
            {{"backup.xml", "The guest of MAIL01 has no room"}, {"log.txt", "The guest of MAIL01 has no room"}}},
        FailingSample{
            "MixedVolumes",
            "hyperv-mixed-volumes",
            {"--app", "hyperv", "--disk", "TSL2001", "TSL2003"},
            16,
            {{"run.json", "TesselHyperVValidation_MixOfCSV_NonCSVVolumes"}, {"disks.json", "\"clustered\": true"}}},
        FailingSample{"ClusteredOnly",
                      "hyperv-mixed-volumes",
                      {"--app", "hyperv", "--disk", "TSL2003"},
                      16,
                      {{"disks.json", "\"clustered\": true"}}},
        FailingSample{"ClusteredAndLocal",
                      "hyperv-mixed-volumes",
                      {"--app", "hyperv", "--disk", "TSL2001", "TSL2004"},
                      16,
                      {{"disks.json", "\"clustered\": false"}}},
        FailingSample{"MissingHotfix",
                      "hyperv-missing-hotfix",
                      {"--app", "hyperv", "--disk", "TSL2901"},
                      16,
                      {{"log.txt",
                        "File is older than required, File=C:\\Windows\\system32\\Vmms.exe, "
                        "Version=6.3.9600.16384"}}},
        FailingSample{"NoSuchDisk",
                      "plain",
                      {"--app", "none", "--disk", "TSL3001", "TSL3002", "TSL3999"},
                      2,
                      {{"header.txt", "TSL3999"}, {"disks.json", "\"TSL3002\""}}},
        FailingSample{"DiskOfAnotherHost",
                      "plain",
                      {"--app", "none", "--disk", "TSL3001", "TSL3002", "TSL3999", "--accept-unknown-disks"},
                      14,
                      {{"run.json", "Extra volumes in the volume collection : TSL3999"}}}),
    NameOf);

}  // namespace
}  // namespace varnel::test
