// varnelctl snapshot --report: the page of the run at hand.
#include "tests/varnelctl/report_support.h"
#include "varnelctl/report/html/page.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using RunReport = SnapshotCommand;

TEST_F(RunReport, AStoredRunAndTheRunItselfGiveTheSamePageButForTheLog) {
  const std::string page = folder.File("page.html");
  const json document = SnapshotJson({"--report", page});
  ASSERT_EQ(RunCli({"report", folder.Write("run.json", document.dump(2))}).status, 0);

  std::string own = ReadFile(page);
  const std::size_t log = own.find("<section class=\"wide log\">");
  ASSERT_NE(log, own.npos);
  own.erase(log, own.find("<script type=\"application/json\" class=\"document\">") - log);

  EXPECT_EQ(own, ReadFile(folder.File("run.html")));
  EXPECT_THAT(DocumentsOfPage(own), ElementsAre(document));
}

// A name of the host must not end the script element that holds the log.
TEST_F(RunReport, HasTheLogAtFullDetailAlsoWhereNobodyAskedForOne) {
  hostFile["writers"][0]["name"] = "</script><b>Demo";
  const std::string page = folder.File("page.html");
  SnapshotJson({"--report", page});

  const std::string text = ReadFile(page);
  constexpr std::string_view kBegin = "<script type=\"application/json\" class=\"log-text\">";
  const std::size_t begin = text.find(kBegin) + kBegin.size();
  const std::string log = json::parse(text.substr(begin, text.find("</script>", begin) - begin));

  EXPECT_THAT(log, HasSubstr(" I varnelctl(0) ends with exit status 0: CAPTURED"));
  EXPECT_THAT(log, HasSubstr("</script><b>Demo"));
  EXPECT_THAT(log, AllOf(HasSubstr(" W varnel("), HasSubstr(") Volume not in input list, State=NotEligible\n")));
}

TEST_F(RunReport, OfALongLogThePageHasTheBeginningAndTheEnd) {
  varnelctl::html::StoredRun run = varnelctl::html::ReadRun("run.json", SnapshotJson().dump());
  for (int i = 0; i < 30'000; ++i)
    run.log += "2026-01-01 00:00:00.000 I here(1) line " + std::to_string(i) + '\n' + std::string(60, '.');

  const std::string page = varnelctl::html::ReportPage({run});

  EXPECT_TRUE(Shows(page, "line 0\\n"));
  EXPECT_TRUE(Shows(page, "line 29999\\n"));
  EXPECT_TRUE(Shows(page, " lines left out here ..."));
  EXPECT_THAT(page.size(), testing::Lt(2'200'000u));
}

TEST_F(RunReport, ARunThatPrintsTextHasAPageToo) {
  const std::string page = folder.File("page.html");
  const std::string out = Snapshot({"--report", page}).out;

  const json document = DocumentsOfPage(ReadFile(page)).at(0);

  EXPECT_THAT(SchemaErrors(document), IsEmpty());
  EXPECT_THAT(out, testing::EndsWith(document.at("verdict").at("text").get<std::string>() + "\n"));
}

TEST_F(RunReport, ARefusedRunHasAPageThatSaysWhy) {
  const std::string page = folder.File("page.html");
  const CliResult result = Run({"snapshot", "--app", "none", "--disk", "TSL0009", "--report", page, "--json"});

  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Shows(ReadFile(page), ">FAILED<"));
  EXPECT_EQ(DocumentsOfPage(ReadFile(page)).at(0), json::parse(result.out));
}

TEST_F(RunReport, AnUnfinishedRunHasAPageToo) {
  const std::string page = folder.File("page.html");
  hostFile["faults"] = json::array({{{"call", "IVssBackupComponents::PrepareForBackup"}, {"result", "E_FAIL"}}});

  const json document = SnapshotJson({"--report", page}, 15);

  EXPECT_THAT(DocumentsOfPage(ReadFile(page)), ElementsAre(document));
  EXPECT_TRUE(Shows(ReadFile(page), "asking the writers to prepare <span class=\"mark\">failed</span>"));
}

TEST_F(RunReport, TheWritersStatesAreThereAsOftenAsTheyWereRead) {
  const json document = SnapshotJson();

  std::vector<std::string> read;
  for (const json& states : document.at("writerStates")) {
    const json& status = states.at("writers").at(0);
    read.push_back(states.at("step").get<std::string>() + " " + status.at("state").get<std::string>() + " " +
                   status.at("failure").get<std::string>());
  }

  EXPECT_EQ(document.at("writerStates").at(0).at("writers").at(0).at("name"), "Demo Writer");
  EXPECT_THAT(
      read, ElementsAre("preparing VSS_WS_STABLE 0x00000000", "snapshot VSS_WS_WAITING_FOR_BACKUP_COMPLETE 0x00000000",
                        "completing VSS_WS_STABLE 0x00000000"));
}

TEST_F(RunReport, ShowsWhatAWriterWasToldAndHowItStoodAfterEachStep) {
  hostFile["timing"] = {{"freezeMilliseconds", 61'000}};
  const std::string page = folder.File("page.html");

  const json document = SnapshotJson({"--report", page}, 10);

  std::vector<std::string> told;
  for (const json& moment : document.at("moments")) {
    told.push_back(std::to_string(moment.at("time").get<int>()) + " " + moment.at("event").get<std::string>());
  }
  EXPECT_THAT(told, ElementsAre("0 Identify", "0 PrepareBackup", "0 PrepareSnapshot", "0 Freeze", "60000 Abort"));
  EXPECT_TRUE(Shows(ReadFile(page), "<th scope=\"col\">Prepared</th><th scope=\"col\">After the snapshot</th>"));
  EXPECT_TRUE(Shows(ReadFile(page), "<td>stable</td><td>failed at freeze; 0x800423f2</td>"));
  EXPECT_TRUE(Shows(ReadFile(page), "What the writers of this simulated host were told (5 events)"));
  EXPECT_TRUE(Shows(ReadFile(page), "<td class=\"number\">60.0 s</td><td>Abort</td><td>Demo Writer</td>"));
}

// Of a run that an older varnelctl stored.
TEST_F(RunReport, ADocumentWithoutStatesIsARunToo) {
  json document = SnapshotJson();
  document.erase("writerStates");
  document.erase("moments");

  ASSERT_EQ(RunCli({"report", folder.Write("run.json", document.dump(2))}).status, 0);

  EXPECT_TRUE(Shows(ReadFile(folder.File("run.html")), "<td>no failure told</td>"));
}

TEST_F(RunReport, TwoFilesAreNeverOne) {
  const std::string page = folder.File("page.html");
  ExpectRefused(Run(Whole({"--report", page, "--document", page})),
                "varnelctl: --report and --document name one file, ");
}

TEST_F(RunReport, AFolderThatIsNotThereIsToldBeforeAnythingIsDone) {
  const CliResult result = Snapshot({"--report", folder.File("nowhere/page.html")}, 2);

  EXPECT_THAT(result.err, HasSubstr("--report " + folder.File("nowhere/page.html") + ": there is no folder"));
  EXPECT_EQ(result.out, "");
}

#ifndef _WIN32
TEST_F(RunReport, APageThatIsNotWholeIsToldInTheVerdict) {
  EXPECT_THAT(Snapshot({"--report", "/dev/full"}, 18).out, HasSubstr("NOT ALL DONE: --report /dev/full was not"));
}
#endif

}  // namespace
}  // namespace varnel::test
