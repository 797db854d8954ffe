// The event log in the evidence of a run.
#include "tests/varnelctl/evidence_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;

// The runs begin with the clock of their host, at 2026-01-01T00:00:00Z.
class EvidenceEvents : public EvidenceFixture {
 protected:
  void AddEvent(const char* channel, const char* source, unsigned id, const char* message,
                const char* time = "2026-01-01T00:00:00Z") {
    hostFile["events"].push_back({{"channel", channel},
                                  {"source", source},
                                  {"id", id},
                                  {"level", "error"},
                                  {"time", time},
                                  {"message", message}});
  }
};

TEST_F(EvidenceEvents, AreThoseOfTheServiceTheApplicationsTheProviderAndTheDisks) {
  AddEvent("Application", "VSS", 12289, "Unexpected error DeviceIoControl");
  AddEvent("Application", "MSSQL$PROD", 3041, "BACKUP failed to complete");
  AddEvent("Application", "MSExchangeIS", 9782, "Exchange VSS Writer failed");
  AddEvent("Application", "Tessel VSS Hardware Provider", 7, "The array did not answer");
  AddEvent("Application", "Word", 1, "A letter was printed");
  AddEvent("System", "VolSnap", 14, "The shadow copies were aborted");
  AddEvent("System", "iScsiPrt", 20, "Connection to the target was lost");
  AddEvent("System", "disk", 7, "The device has a bad block");
  AddEvent("System", "Dhcp", 1, "A lease was given");

  SnapshotWithEvidence();

  EXPECT_EQ(FileOfEvidence("events-System.txt"),
            "2026-01-01T00:00:00.000Z error VolSnap 14 (record 1, SQL01)\n"
            "    The shadow copies were aborted\n"
            "2026-01-01T00:00:00.000Z error iScsiPrt 20 (record 2, SQL01)\n"
            "    Connection to the target was lost\n"
            "2026-01-01T00:00:00.000Z error disk 7 (record 3, SQL01)\n"
            "    The device has a bad block\n");
  const std::string application = FileOfEvidence("events-Application.txt");
  EXPECT_THAT(application, testing::AllOf(HasSubstr("error VSS 12289"), HasSubstr("BACKUP failed to complete"),
                                          HasSubstr("Exchange VSS Writer failed"),
                                          HasSubstr("The array did not answer"), Not(HasSubstr("A letter"))));
  const std::string xml = FileOfEvidence("events-Application.xml");
  EXPECT_THAT(xml, testing::AllOf(StartsWith("<Events>\n<Event "), HasSubstr("12289"), EndsWith("</Events>\n")));
}

TEST_F(EvidenceEvents, AreThoseOfTheTimeOfTheRun) {
  AddEvent("System", "disk", 1, "long before", "2025-12-31T23:58:00Z");
  AddEvent("System", "disk", 2, "just before", "2025-12-31T23:59:30Z");
  AddEvent("System", "disk", 3, "long after", "2026-01-01T00:10:00Z");

  SnapshotWithEvidence();

  const std::string text = FileOfEvidence("events-System.txt");
  EXPECT_THAT(text, testing::AllOf(HasSubstr("just before"), Not(HasSubstr("long"))));
}

TEST_F(EvidenceEvents, ThatNobodyWroteAreToldInTheIndex) {
  SnapshotWithEvidence();

  EXPECT_THAT(WhyNot(evidence, "events-System.txt"), HasSubstr("nothing of this kind was written"));
}

TEST_F(EvidenceEvents, ThatOthersHideByTheirNumberAreNotToldAsUnwritten) {
  AddEvent("System", "disk", 7, "The device has a bad block");
  const json dhcp = {{"channel", "System"},
                     {"source", "Dhcp"},
                     {"id", 1},
                     {"level", "information"},
                     {"time", "2026-01-01T00:00:00Z"},
                     {"message", "A lease was given"}};
  for (int i = 0; i < 5000; ++i) hostFile["events"].push_back(dhcp);

  SnapshotWithEvidence();

  EXPECT_THAT(WhyNot(evidence, "events-System.txt"),
              EndsWith(": nothing of this kind is among the 5000 newest events of the time of the run"));
}

TEST_F(EvidenceEvents, OfTheApplicationComeFromItsChannels) {
  AddEvent("Microsoft-Windows-Hyper-V-VMMS-Admin", "Microsoft-Windows-Hyper-V-VMMS", 10150, "no room in the guest");

  Run({"snapshot", "--app", "hyperv", "--disk", "TSL0001", "--evidence", evidence});

  EXPECT_THAT(FileOfEvidence("events-Microsoft-Windows-Hyper-V-VMMS-Admin.txt"), HasSubstr("no room in the guest"));
  EXPECT_THAT(WhyNot(evidence, "events-Microsoft-Windows-FailoverClustering-Operational.txt"),
              HasSubstr("is not on this host"));
  EXPECT_EQ(WhyNot(evidence, "events-Microsoft-Exchange-HighAvailability-Operational.txt"), "");
}

TEST_F(EvidenceEvents, OfAChannelThatMayNotBeReadAreToldInTheIndex) {
  hostFile["faults"] = json::array({{{"call", "EvtQuery"}, {"result", 5}, {"occurrence", 2}}});
  AddEvent("Application", "VSS", 12289, "Unexpected error");

  SnapshotWithEvidence();

  EXPECT_THAT(WhyNot(evidence, "events-System.txt"), HasSubstr("may not be read by this account"));
  EXPECT_THAT(FileOfEvidence("events-Application.txt"), HasSubstr("Unexpected error"));
}

// As under Wine.
TEST_F(EvidenceEvents, OfASystemWithoutAnEventLogAreToldInTheIndex) {
  hostFile["faults"] = json::array({{{"call", "EvtQuery"}, {"result", 0}, {"occurrence", 0}}});

  SnapshotWithEvidence();

  for (const char* file : {"events-Application.txt", "events-System.txt"}) {
    EXPECT_THAT(WhyNot(evidence, file), HasSubstr("this system has no event log that could be read")) << file;
  }
}

#ifdef _WIN32
// Where Wine stands in for Windows nothing can be read.
TEST(EvidenceOfThisMachine, HasItsEventsOrTellsInTheIndexWhyNot) {
  const TemporaryFolder folder;
  const std::string evidence = folder.File("evidence");
  const bool isWine = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  const CliResult result =
      RunCli({"--no-journal", "snapshot", "--app", "none", "--disk", "no such disk", "--evidence", evidence});

  EXPECT_NE(result.status, 0);
  for (const char* file : {"events-Application.txt", "events-System.txt"}) {
    const std::string whyNot = WhyNot(evidence, file);
    EXPECT_TRUE(!whyNot.empty() || FilesIn(evidence).count(file) == 1) << file << "\n" << result.err;
    if (isWine) EXPECT_THAT(whyNot, HasSubstr("this system has no event log that could be read"));
  }
}
#endif

}  // namespace
}  // namespace varnel::test
