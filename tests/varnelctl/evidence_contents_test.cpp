// varnelctl snapshot --evidence and plan --evidence: what the folder of a run holds, and what its index says of the
// rest.
#include "tests/varnelctl/evidence_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Evidence = EvidenceFixture;

constexpr char kAskedNothing[] = "after a run that ended well the service is asked nothing more";

TEST_F(Evidence, OfAGoodRunHoldsWhatTheRunFound) {
  const json document = SnapshotJson(
      {"--evidence", evidence, "--document", folder.File("backup.xml"), "--catalog", folder.File("catalog.json")});

  EXPECT_THAT(NamesIn(evidence),
              ElementsAre("backup.xml", "calls.txt", "catalog.json", "disks.json", "header.txt", "index.html",
                          "iscsi.json", "log.txt", "providers.json", "report.html", "run.json"));
  EXPECT_EQ(JsonOfEvidence("run.json"), document);
  EXPECT_EQ(FileOfEvidence("backup.xml"), ReadFile(folder.File("backup.xml")));
  EXPECT_EQ(FileOfEvidence("catalog.json"), ReadFile(folder.File("catalog.json")));
  EXPECT_THAT(DocumentsOfPage(FileOfEvidence("report.html")), ElementsAre(document));
  EXPECT_THAT(FileOfEvidence("header.txt"), StartsWith("varnelctl " VARNEL_VERSION " on SQL01, process "));
  EXPECT_EQ(JsonOfEvidence("disks.json").at("disks").size(), 3);
  EXPECT_EQ(JsonOfEvidence("providers.json").at("arrayProviderPresent"), true);
  EXPECT_EQ(JsonOfEvidence("iscsi.json").at("sessions"), json::array());
}

// Looks at all calls, those of the evidence too.
class CallsOfEvidence : public EvidenceFixture {
 protected:
  CallsOfEvidence() { hostFile = json(); }

  std::vector<std::string> CallsOfRun(const Arguments& more, int status, HRESULT prepared = S_OK) {
    Install(simulator::ParseHostFile(SmallHostJson().dump(), "host", {}));
    if (FAILED(prepared)) Fail("IVssBackupComponents::PrepareForBackup", prepared);
    SnapshotJson(more, status);
    return host().calls().lines();
  }
  // What is asked only with evidence, which comes after all of the run's own calls.
  std::vector<std::string> CallsOfEvidenceAlone(int status, HRESULT prepared = S_OK) {
    const std::vector<std::string> without = CallsOfRun({}, status, prepared);
    const std::vector<std::string> with = CallsOfRun({"--evidence", evidence}, status, prepared);
    const auto differs = std::mismatch(without.begin(), without.end(), with.begin(), with.end());
    EXPECT_EQ(differs.first, without.end()) << *differs.first;
    return {differs.second, with.end()};
  }
  static std::size_t CountOf(const std::string& call, const std::vector<std::string>& calls) {
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(), [&](const auto& line) { return line.starts_with(call + "("); }));
  }
};

TEST_F(CallsOfEvidence, OfAGoodRunAskTheServiceNothing) {
  const std::vector<std::string> calls = CallsOfEvidenceAlone(0);

  EXPECT_THAT(calls, Not(IsEmpty()));
  for (const std::string& call : calls) {
    EXPECT_THAT(call, AllOf(Not(HasSubstr("IVss")), Not(StartsWith("CreateVss")), Not(StartsWith("CoCreate"))));
  }
  EXPECT_THAT(WhyNot(evidence, "writer-*"), HasSubstr(kAskedNothing));
}

TEST_F(CallsOfEvidence, OfAFailedRunAreOneMoreGathering) {
  const std::vector<std::string> calls = CallsOfEvidenceAlone(15, E_FAIL);

  EXPECT_EQ(CountOf("IVssBackupComponents::GatherWriterMetadata", calls), 1);
  EXPECT_EQ(CountOf("IVssExamineWriterMetadata::SaveAsXML", calls), 1);
  EXPECT_EQ(CountOf("IVssAdmin::QueryProviders", calls), 1);
  EXPECT_EQ(CountOf("IVssBackupComponents::StartSnapshotSet", calls), 0);
}

TEST_F(Evidence, OfAFailedRunHasTheWritersDocuments) {
  FailCallOfHost("IVssBackupComponents::PrepareForBackup");

  SnapshotWithEvidence({}, 15);

  EXPECT_THAT(FileOfEvidence("writer-01-Demo-Writer.xml"),
              AllOf(HasSubstr("friendlyName=\"Demo Writer\""), HasSubstr("E:\\data")));
  EXPECT_THAT(FileOfEvidence("calls.txt"), HasSubstr("PrepareForBackup() = E_FAIL"));
  EXPECT_THAT(FileOfEvidence("calls.txt"), Not(HasSubstr("IVssExamineWriterMetadata::SaveAsXML")));
  EXPECT_THAT(WhyNot(evidence, "backup.xml"), HasSubstr("the request did not come so far"));
  EXPECT_THAT(WhyNot(evidence, "catalog.json"), HasSubstr("the run did not come so far"));
}

TEST_F(Evidence, OfAFailedRunTellsOfADocumentThatCannotBeHad) {
  FailCallOfHost("IVssBackupComponents::PrepareForBackup");
  FailCallOfHost("IVssExamineWriterMetadata::SaveAsXML", "E_OUTOFMEMORY");

  SnapshotWithEvidence({}, 15);

  EXPECT_THAT(WhyNot(evidence, "writer-01-Demo-Writer.xml"),
              HasSubstr("IVssExamineWriterMetadata::SaveAsXML failed: E_OUTOFMEMORY"));
  EXPECT_EQ(FilesIn(evidence).count("writer-01-Demo-Writer.xml"), 0);
}

TEST_F(Evidence, TellsWhatCannotBeHadAndTheRunEndsAsItDoes) {
  hostFile["faults"] = json::array(
      {{{"call", "IVssBackupComponents::GatherWriterMetadata"}, {"result", "VSS_E_UNEXPECTED"}, {"occurrence", 0}},
       {{"call", "GetIScsiSessionListW"}, {"result", "5"}, {"occurrence", 0}}});

  const CliResult result = SnapshotWithEvidence({}, 15);

  EXPECT_THAT(WhyNot(evidence, "writer-*"),
              HasSubstr("IVssBackupComponents::GatherWriterMetadata failed: VSS_E_UNEXPECTED"));
  EXPECT_THAT(result.err, Not(HasSubstr("evidence")));
}

TEST_F(Evidence, HasTheWholeLogThoughNoneOrLessWasAskedFor) {
  const std::string log = folder.File("run.log");
  SnapshotWithEvidence({"--log", log, "--log-level", "error"});

  const std::string kept = FileOfEvidence("log.txt");
  EXPECT_THAT(kept, HasSubstr(" I varnel("));
  EXPECT_THAT(kept, HasSubstr("CreateVssSnapshotSet : Enter"));
  EXPECT_THAT(kept, HasSubstr("ends with exit status 0: CAPTURED "));
  EXPECT_THAT(ReadFile(log), Not(HasSubstr("CreateVssSnapshotSet : Enter")));
}

TEST_F(Evidence, OfARefusedRunHasTheDisksAndAsksNoWriter) {
  const CliResult result = Run({"snapshot", "--app", "none", "--disk", "TSL0009", "--evidence", evidence, "--json"});

  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(JsonOfEvidence("run.json"), json::parse(result.out));
  EXPECT_THAT(FileOfEvidence("disks.json"), HasSubstr("TSL0002"));
  EXPECT_THAT(FileOfEvidence("providers.json"), HasSubstr("Tessel VSS Hardware Provider"));
  EXPECT_THAT(WhyNot(evidence, "writer-*"), HasSubstr("refused before anything was asked of the writers"));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "no disk of this host has serial &quot;TSL0009&quot;"));
}

TEST_F(Evidence, OfAHostThatCannotBeReadHasTheHeaderAndTheReasons) {
  hostFile["disks"] = "none";

  SnapshotWithEvidence({}, 2);

  EXPECT_THAT(NamesIn(evidence), ElementsAre("header.txt", "index.html", "log.txt", "report.html", "run.json"));
  EXPECT_THAT(WhyNot(evidence, "disks.json"), HasSubstr("the host was not asked"));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "/disks"));
}

TEST_F(Evidence, OfAPlanIsTheSameButForTheSet) {
  const CliResult result =
      Run({"plan", "--app", "none", "--disk", "TSL0001", "TSL0002", "--evidence", evidence, "--json"});

  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(JsonOfEvidence("run.json"), json::parse(result.out));
  EXPECT_THAT(NamesIn(evidence), ElementsAre("calls.txt", "disks.json", "header.txt", "index.html", "iscsi.json",
                                             "log.txt", "report.html", "run.json"));
  EXPECT_THAT(WhyNot(evidence, "providers.json"), HasSubstr(kAskedNothing));
  EXPECT_THAT(WhyNot(evidence, "catalog.json"), HasSubstr("the run did not come so far"));
}

TEST_F(Evidence, HasTheEntryOfTheJournal) {
  SnapshotWithEvidence({"--journal", folder.File("journal"), "--context", "app-rollback"});

  const json entries = JsonOfEvidence("journal.json");
  ASSERT_EQ(entries.size(), 1);
  EXPECT_EQ(entries[0].at("setId"), JsonOfEvidence("run.json").at("snapshotSetId"));
  EXPECT_EQ(entries[0].at("end"), "kept");
}

TEST_F(Evidence, OfAnInterruptedRunAsksTheServiceNothingMore) {
  class Asked final : public varnelctl::Interruption {
    bool Requested() const override { return true; }
  };

  SnapshotWithEvidence({}, 17, [] { return std::make_unique<Asked>(); });

  EXPECT_EQ(JsonOfEvidence("run.json").at("status"), 17);
  EXPECT_THAT(WhyNot(evidence, "providers.json"), HasSubstr("the run was made to end"));
  EXPECT_THAT(WhyNot(evidence, "writer-*"), HasSubstr("the run was made to end"));
  EXPECT_THAT(FileOfEvidence("disks.json"), HasSubstr("TSL0001"));
}

TEST_F(Evidence, OfARunPastItsDeadlineIsThere) {
  hostFile["faults"] = json::array({{{"async", "PrepareForBackup"}, {"hangs", true}}});

  SnapshotWithEvidence({"--deadline", "30"}, 17);

  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "the deadline of 30 seconds (--deadline 30)"));
  EXPECT_THAT(FileOfEvidence("calls.txt"), HasSubstr("IVssAsync::Cancel"));
}

// Writers that do not answer once more are not waited for as long as they please.
TEST_F(Evidence, DoesNotWaitForWritersForEver) {
  hostFile["faults"] = json::array({{{"call", "IVssBackupComponents::PrepareForBackup"}, {"result", "E_FAIL"}},
                                    {{"async", "GatherWriterMetadata"}, {"hangs", true}, {"occurrence", 2}}});

  SnapshotWithEvidence({}, 15);

  EXPECT_THAT(WhyNot(evidence, "writer-*"), HasSubstr("the writers did not answer once more within 120 seconds"));
  EXPECT_THAT(FileOfEvidence("log.txt"), HasSubstr("ends with exit status 15"));
}

TEST_F(Evidence, WhatAHostSaysIsTextInTheIndex) {
  hostFile["writers"][0]["name"] = "<script>alert(1)</script>/../x";
  FailCallOfHost("IVssBackupComponents::PrepareForBackup");

  SnapshotWithEvidence({}, 15);

  const std::string index = FileOfEvidence("index.html");
  EXPECT_THAT(index, Not(HasSubstr("<script")));
  EXPECT_TRUE(Shows(index, "The document of &lt;script&gt;alert(1)&lt;/script&gt;/../x"));
  EXPECT_TRUE(Shows(index, "default-src 'none'; style-src 'sha256-"));
  EXPECT_EQ(FilesIn(evidence).count("writer-01--script-alert-1---script-----x.xml"), 1);
}

TEST_F(Evidence, EveryLinkOfTheIndexLeadsToAFileOfTheFolder) {
  FailCallOfHost("IVssBackupComponents::PrepareForBackup");
  SnapshotWithEvidence({}, 15);

  const std::string index = FileOfEvidence("index.html");
  std::vector<std::string> linked = {"index.html"};
  constexpr std::string_view kBegin = "<a href=\"";
  for (std::size_t at = index.find(kBegin); at != index.npos; at = index.find(kBegin, at + 1)) {
    const std::size_t begin = at + kBegin.size();
    linked.push_back(index.substr(begin, index.find('"', begin) - begin));
  }
  EXPECT_THAT(linked, testing::UnorderedElementsAreArray(NamesIn(evidence)));
}

TEST_F(Evidence, NoFailureOfACallLeavesItOut) {
  hostFile = json();
  const simulator::HostModel model = simulator::ParseHostFile(SmallHostJson().dump(), "host", {});
  int run = 0;
  FailEachCall(model, Whole({"--evidence", folder.File("each")}), [&](const CliResult& result) {
    const std::string each = folder.File("each");
    EXPECT_THAT(NamesIn(each), testing::IsSupersetOf({"index.html", "run.json", "report.html", "log.txt"}));
    EXPECT_EQ(json::parse(ReadFile(each + "/run.json")).at("status"), result.status);
    std::filesystem::remove_all(PathOf(each));
    ++run;
  });
  EXPECT_GT(run, 5);
}

}  // namespace
}  // namespace varnel::test
