// varnelctl report DIR: the page of a fleet's runs.
//
// With the environment variable VARNEL_UPDATE_GOLDEN set to anything, the text of the page in tests/golden is
// rewritten.
#include <chrono>

#include "tests/support/golden.h"
#include "tests/varnelctl/fleet_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Lt;

using FleetReport = FleetFixture;

// ---- hosts and their sets ----

TEST_F(FleetReport, OneSentenceSaysHowManyHostsAreProtectedAndWhatFailed) {
  json run = FleetRunJson();
  for (const char* name : {"sql-1", "sql-2", "sql-3"}) AddHost(run, "a", FleetHostJson(name), WholeJson());
  AddHost(run, "a", FleetHostJson("sql-4"), TakenJson());
  run["hosts"].push_back(FleetHostJson("sql-5", "unreachable", "no route to host"));
  for (int i = 6; i <= 10; ++i) run["hosts"].push_back(FleetHostJson("sql-" + std::to_string(i), "failed"));
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_EQ(told["fleet"]["headline"],
            "4 of 10 hosts protected, 1 of them in part; failed: sql-6, sql-7, sql-8 and 2 more; unreachable: sql-5");
  EXPECT_TRUE(
      Shows(page,
            "<h1 class=\"verdict\">4 of 10 hosts protected, 1 of them in part<span class=\"hidden\">; </span><span "
            "class=\"rest\">failed: sql-6, sql-7, sql-8 and 2 more; unreachable: sql-5</span></h1>"));
  EXPECT_TRUE(Shows(page, "<article class=\"run fleet partial\">"));
  EXPECT_TRUE(Shows(page, "8 of 9 components are protected. The run took 60.0 s."));
  EXPECT_TRUE(Shows(page, "<title>Fleet production, run of 2026-01-01 00:00:00 UTC: 4 of 10 hosts protected"));
}

TEST_F(FleetReport, WhatAPersonReadsWithoutTheScriptStaysAsItIs) {
  json before = FleetRunJson(1);
  AddHost(before, "a", FleetHostJson("sql-1"), TakenJson());
  AddHost(before, "a", FleetHostJson("sql-2"), WholeJson());
  AddHost(before, "a", FleetHostJson("sql-9"), WholeJson());
  StoreRun("a", before);
  json now = FleetRunJson(2);
  now["groups"][0]["outcome"] = "incomplete";
  now["groups"][0]["message"] = "1 of 3 hosts failed";
  now["groups"].push_back({{"name", "hr"},
                           {"mode", "rolling"},
                           {"onFailure", "end"},
                           {"outcome", "notRun"},
                           {"message", ""},
                           {"consistent", "host"}});
  AddHost(now, "b", FleetHostJson("sql-1"), OnDay(TakenJson(), 2));
  now["hosts"].push_back(FleetHostJson("sql-2", "hung", "no answer within 600 seconds; look at its event log"));
  json late = FleetHostJson("sql-3", "notRun");
  late["group"] = "hr";
  late["seconds"] = nullptr;
  now["hosts"].push_back(late);
  StoreRun("b", now);

  CompareWithGolden(VARNEL_GOLDEN_DIR "/../fleet_page.txt", TextOfPage(Page()));
}

TEST_F(FleetReport, EveryOutcomeHasItsState) {
  json run = FleetRunJson();
  for (const char* outcome : {"failed", "ended", "planned", "refused", "unreachable", "hung", "notRun"}) {
    run["hosts"].push_back(FleetHostJson(outcome, outcome, "because"));
  }
  StoreRun("a", run);

  Page();

  std::vector<std::string> states;
  for (const json& host : told["fleet"]["hosts"]) states.push_back(host["state"]);
  EXPECT_THAT(states, ElementsAre("failed", "set ended", "planned", "refused", "unreachable", "hung", "not run"));
  EXPECT_EQ(
      told["fleet"]["headline"],
      "0 of 7 hosts protected; failed: failed; refused: refused; unreachable: unreachable; hung: hung; set ended: "
      "ended; planned: planned; not run: notRun");
}

TEST_F(FleetReport, ASetThatWentWithItsProgramProtectsNothing) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("gone"), SnapshotJson());
  json deleted = TakenJson();
  deleted["setState"] = "deleted";
  AddHost(run, "a", FleetHostJson("deleted"), deleted);
  json unknown = TakenJson();
  unknown.erase("setState");
  AddHost(run, "a", FleetHostJson("unknown"), unknown);
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_EQ(WhyOf("gone"), "the set ended with the program that took it");
  EXPECT_EQ(WhyOf("deleted"), "the set was deleted by the run that took it");
  EXPECT_EQ(WhyOf("unknown"), "nobody can say whether there is a set");
  EXPECT_EQ(StateOf("gone"), "nothing protected");
  EXPECT_TRUE(Shows(page, "<article class=\"run fleet bad\">"));
}

TEST_F(FleetReport, ASetThatWasBrokenOrMaskedIsThere) {
  json run = FleetRunJson();
  for (const char* state : {"broken", "masked"}) {
    json document = WholeJson();
    document["setState"] = state;
    AddHost(run, "a", FleetHostJson(state), document);
  }
  StoreRun("a", run);

  EXPECT_EQ(Headline(), "2 of 2 hosts protected");
}

TEST_F(FleetReport, WhatTheRunCallsTakenAndTheDocumentFailedIsNotProtected) {
  hostFile["faults"] = json::array({{{"call", "IVssBackupComponents::PrepareForBackup"}, {"result", "E_FAIL"}}});
  json run = FleetRunJson();
  const json failed = SnapshotJson({"--context", "app-rollback"}, 15);
  AddHost(run, "a", FleetHostJson("sql-1"), failed);
  AddHost(run, "a", FleetHostJson("sql-2", "failed"), failed);
  StoreRun("a", run);

  Page();

  EXPECT_EQ(StateOf("sql-1"), "nothing protected");
  EXPECT_EQ(StateOf("sql-2"), "failed");
  EXPECT_EQ(WhyOf("sql-1"),
            failed["result"]["message"].get<std::string>() + ". " + failed["result"]["remedy"].get<std::string>());
  EXPECT_EQ(WhyOf("sql-2"), WhyOf("sql-1"));
}

TEST_F(FleetReport, AWholeFleetIsGood) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1"), WholeJson());
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_TRUE(Shows(page, "<article class=\"run fleet good\">"));
  EXPECT_TRUE(Shows(page, "<h1 class=\"verdict\">1 of 1 host protected</h1>"));
  EXPECT_FALSE(Shows(page, "id=\"not-protected\""));
}

TEST_F(FleetReport, ARunThatOnlyPlansSaysSo) {
  json run = FleetRunJson();
  run["groups"][0]["outcome"] = "planned";
  AddHost(run, "a", FleetHostJson("sql-1", "planned"),
          Document({"plan", "--app", "none", "--disk", "TSL0001", "TSL0002"}), "plan");
  run["hosts"].push_back(FleetHostJson("sql-2", "refused", "nothing would be captured"));
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_EQ(told["fleet"]["headline"], "1 of 2 hosts planned, nothing taken; refused: sql-2");
  EXPECT_EQ(told["fleet"]["runs"][0]["isPlan"], true);
  EXPECT_THAT(ObjectRowsOf(page), ElementsAre("sql-1 SQL01\\sales: not taken", "sql-1 SQL01\\crm: not taken",
                                              "sql-1 SQL01\\tools: left out, disk \"SYS\" holds the system"));
}

TEST_F(FleetReport, ARunThatBrokeOffAfterItsPlansTookNothingForCertain) {
  json run = FleetRunJson();
  run["plan"] = false;
  run["endedAt"] = nullptr;
  run["groups"][0]["outcome"] = "planned";
  run["hosts"].push_back(FleetHostJson("sql-1", "planned"));
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_EQ(told["fleet"]["headline"], "0 of 1 host protected; planned: sql-1");
  EXPECT_EQ(told["fleet"]["runs"][0]["isPlan"], false);
  EXPECT_FALSE(Shows(page, "<article class=\"run fleet good\">"));
}

// ---- databases ----

TEST_F(FleetReport, EachDatabaseSaysWhetherItIsProtectedAndWhyNot) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1"), TakenJson());
  json failing = WholeJson();
  failing["objects"][1]["captured"] = false;
  failing["objects"][1]["failed"] = true;
  failing["result"]["remedy"] = "Try again.";
  AddHost(run, "a", FleetHostJson("sql-2"), failing);
  AddHost(run, "a", FleetHostJson("sql-3", "ended", "another host of its group failed"), WholeJson());
  StoreRun("a", run);

  EXPECT_THAT(ObjectRowsOf(Page()),
              ElementsAre("sql-1 SQL01\\sales: protected", "sql-1 SQL01\\crm: protected",
                          "sql-1 SQL01\\tools: left out, disk \"SYS\" holds the system",
                          "sql-2 SQL01\\sales: protected", "sql-2 SQL01\\crm: failed, failed by its writer. Try again.",
                          "sql-3 SQL01\\sales: set ended, another host of its group failed",
                          "sql-3 SQL01\\crm: set ended, another host of its group failed"));
  EXPECT_EQ(StateOf("sql-2"), "protected in part");
}

TEST_F(FleetReport, TheTimeOfASetIsThatOfItsSnapshotByTheClockOfItsHost) {
  json run = FleetRunJson();
  json document = WholeJson();
  for (json& step : document["steps"]) step["end"] = step["name"] == "snapshot" ? 5'500 : 9'000;
  AddHost(run, "a", FleetHostJson("sql-1"), document);
  StoreRun("a", run);

  const json data = FleetDataOf(Page());

  const json& host = data["hosts"][0];
  EXPECT_EQ(data["texts"][host[6].get<std::size_t>()], "2026-01-01 00:00:05 UTC");
  EXPECT_EQ(data["texts"][host[7].get<std::size_t>()], "2026-01-01 00:00:00 UTC") << "the moment of the document";
}

TEST_F(FleetReport, ADatabaseThatIsNotProtectedSaysInWhichRunItLastWas) {
  for (const int day : {1, 2}) {
    json run = FleetRunJson(day);
    AddHost(run, std::to_string(day), FleetHostJson("sql-1"), OnDay(WholeJson(), day));
    StoreRun(std::to_string(day), run);
  }
  json broken = FleetRunJson(3);
  AddHost(broken, "3", FleetHostJson("sql-1", "failed", "out of space"), OnDay(SnapshotJson(), 3));
  StoreRun("3", broken);
  json now = FleetRunJson(4);
  now["hosts"].push_back(FleetHostJson("sql-1", "unreachable", "no route to host"));
  StoreRun("4", now);

  const std::string page = Page();

  EXPECT_THAT(
      ObjectRowsOf(page),
      ElementsAre("sql-1 SQL01\\sales: not taken, no route to host, 2026-01-02 00:00:00 UTC, 2026-01-02 00:00:00 UTC",
                  "sql-1 SQL01\\crm: not taken, no route to host, 2026-01-02 00:00:00 UTC, 2026-01-02 00:00:00 UTC",
                  "sql-1 SQL01\\tools: not taken, no route to host"))
      << "the run before knew of tools; none ever took it";
  EXPECT_TRUE(Shows(
      page,
      "<dt>sql-1: SQL01\\sales, SQL01\\crm</dt><dd>protected until 2026-01-02 00:00:00 UTC: last taken in the run "
      "of 2026-01-02 00:00:00 UTC</dd>"));
  EXPECT_TRUE(Shows(page, "<dt>sql-1: SQL01\\tools</dt><dd>never taken in these runs</dd>"));
}

TEST_F(FleetReport, AHostWithoutASnapshotHasTheDatabasesOfItsPlan) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1", "refused", "its plan says that it would fail"),
          Document({"plan", "--app", "none", "--disk", "TSL0001", "TSL0002"}), "plan");
  StoreRun("a", run);

  EXPECT_THAT(ObjectRowsOf(Page()), Contains("sql-1 SQL01\\sales: not taken, its plan says that it would fail"));
}

TEST_F(FleetReport, DatabasesAreKnownAgainWhateverTheCaseOfTheirPaths) {
  json run = FleetRunJson(1);
  AddHost(run, "a", FleetHostJson("sql-1"), WholeJson());
  StoreRun("a", run);
  json now = FleetRunJson(2);
  json document = OnDay(WholeJson(), 2);
  document["objects"][0]["path"] = "\\sql01\\SALES";
  AddHost(now, "b", FleetHostJson("sql-1", "failed", "no"), document);
  StoreRun("b", now);

  EXPECT_THAT(ObjectRowsOf(Page()),
              Contains("sql-1 SQL01\\sales: failed, no, 2026-01-01 00:00:00 UTC, 2026-01-01 00:00:00 UTC"));
}

// ---- groups ----

TEST_F(FleetReport, AGroupHasItsModeItsOutcomeAndTheSentenceOnConsistency) {
  json run = FleetRunJson();
  run["groups"][0]["outcome"] = "ended";
  run["groups"][0]["onFailure"] = "end";
  run["groups"][0]["message"] = "sql-2 failed";
  run["hosts"].push_back(FleetHostJson("sql-1", "ended"));
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_TRUE(Shows(page,
                    "Each set is consistent in itself, and not with the sets of other hosts: also where they were "
                    "taken together."));
  EXPECT_TRUE(Shows(page,
                    "<tr class=\"bad\"><th scope=\"row\">erp</th><td class=\"number\">0 of 1</td><td>together</td>"
                    "<td>the other sets are ended</td><td>ended: no set of it is left"
                    "<p class=\"note\">sql-2 failed</p></td></tr>"));
}

TEST_F(FleetReport, HostsInNoGroupOfTheRunAreCounted) {
  json run = FleetRunJson();
  for (const json& group : {json(nullptr), json(""), json("elsewhere")}) {
    json host = FleetHostJson("sql-" + std::to_string(run["hosts"].size()), "failed");
    host["group"] = group;
    run["hosts"].push_back(host);
  }
  run["hosts"][0].erase("group");
  StoreRun("a", run);

  EXPECT_TRUE(Shows(Page(), "<th scope=\"row\">in no group of the run</th><td class=\"number\">0 of 3</td>"));
}

TEST_F(FleetReport, ARunWithoutHostsIsShown) {
  json run = FleetRunJson();
  run["groups"] = json::array();
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_TRUE(Shows(page,
                    "<h1 class=\"verdict\">No hosts<span class=\"hidden\">: </span><span class=\"rest\">this run had "
                    "none</span></h1>"));
  EXPECT_FALSE(Shows(page, "<div class=\"filled\""));
  EXPECT_FALSE(Shows(page, "are protected"));
}

// ---- runs ----

TEST_F(FleetReport, TheTrendHasEveryRunTheLastOneFirst) {
  json first = FleetRunJson(1);
  AddHost(first, "z", FleetHostJson("sql-1"), WholeJson());
  StoreRun("z", first);
  json second = FleetRunJson(2);
  second["endedAt"] = nullptr;
  second["hosts"].push_back(FleetHostJson("sql-1", "hung"));
  StoreRun("a", second);

  const std::string page = Page();

  const json& runs = told["fleet"]["runs"];
  ASSERT_EQ(runs.size(), 2u) << "by their start, whatever their folders are called";
  EXPECT_EQ(runs[0]["objects"], (json{{"of", 2}, {"protected", 2}}));
  EXPECT_EQ(runs[1]["objects"], (json{{"of", 2}, {"protected", 0}}));
  EXPECT_EQ(runs[0]["hosts"], (json{{"of", 1}, {"protected", 1}, {"inPart", 0}}));
  EXPECT_EQ(runs[0]["end"], "2026-01-01T00:01:00Z");
  EXPECT_EQ(runs[1]["end"], nullptr);
  EXPECT_TRUE(Shows(page, "This run did not come to its end."));
  const std::size_t last = page.find("<th scope=\"row\">2026-01-02 00:00:00 UTC</th>");
  EXPECT_THAT(last, Lt(page.find("<th scope=\"row\">2026-01-01 00:00:00 UTC</th>")));
}

TEST_F(FleetReport, OfManyRunsTheLastOnesAreLookedAt) {
  for (int day = 1; day <= 4; ++day) {
    json run = FleetRunJson(day);
    run["hosts"].push_back(FleetHostJson("sql-1", "failed"));
    StoreRun(std::to_string(day), run);
  }

  const auto protection = varnelctl::fleet::ProtectionOf(varnelctl::fleet::ReadRuns(Fleet()), 3);

  EXPECT_EQ(protection.runs.size(), 3u);
  EXPECT_TRUE(Shows(varnelctl::fleet::FleetPage(protection, {}), "1 earlier run in this folder not looked at"));
}

TEST_F(FleetReport, HostsThatCameAndWentAreNamed) {
  json before = FleetRunJson(1);
  before["hosts"].push_back(FleetHostJson("old", "failed"));
  StoreRun("a", before);
  json now = FleetRunJson(2);
  now["hosts"].push_back(FleetHostJson("new", "failed"));
  StoreRun("b", now);

  const std::string page = Page();

  EXPECT_TRUE(Shows(page, "<h3>Not in this run</h3>\n<ul class=\"removed\">\n<li>old</li>"));
  EXPECT_TRUE(Shows(page, "<h3>New</h3>\n<ul class=\"added\">\n<li>new</li>"));
}

TEST_F(FleetReport, TheFolderOfOneRunIsAFleetToo) {
  json run = FleetRunJson();
  AddHost(run, ".", FleetHostJson("sql-1"), WholeJson());
  StoreRun(".", run);
  StoreRun("older", FleetRunJson(2));

  EXPECT_EQ(Headline(), "1 of 1 host protected");
  EXPECT_EQ(told["fleet"]["runs"].size(), 1u);
}

TEST_F(FleetReport, ClocksThatAreOutsideTheRunAreNamed) {
  json run = FleetRunJson(2);
  AddHost(run, "a", FleetHostJson("late"), OnDay(WholeJson(), 3));
  AddHost(run, "a", FleetHostJson("early"), OnDay(WholeJson(), 1));
  AddHost(run, "a", FleetHostJson("right"), OnDay(WholeJson(), 2));
  StoreRun("a", run);

  EXPECT_TRUE(Shows(Page(),
                    "<summary>2 hosts</summary>\n<ul class=\"\">\n<li>late: 2026-01-03 00:00:00 UTC</li>\n<li>early: "
                    "2026-01-01 00:00:00 UTC</li>\n</ul>"));
}

TEST_F(FleetReport, TheSlowestTenHostsAreThere) {
  json run = FleetRunJson();
  for (int i = 0; i < 12; ++i) {
    run["hosts"].push_back(FleetHostJson("sql-" + std::to_string(i), "failed"));
    run["hosts"].back()["seconds"] = i * 100;
  }
  StoreRun("a", run);

  const std::string page = Page();
  const std::string slowest =
      page.substr(page.find("id=\"slowest\""), page.find("id=\"trend\"") - page.find("id=\"slowest\""));

  EXPECT_THAT(slowest, HasSubstr("<th scope=\"row\">sql-11</th>"));
  EXPECT_THAT(slowest, HasSubstr("<td class=\"number\">18 min 20 s</td>"));
  EXPECT_THAT(slowest, testing::Not(HasSubstr("<th scope=\"row\">sql-1</th>")));
}

TEST(FleetDuration, IsReadable) {
  using varnelctl::fleet::DurationText;
  EXPECT_EQ(DurationText(0), "0.0 s");
  EXPECT_EQ(DurationText(12.34), "12.3 s");
  EXPECT_EQ(DurationText(119.4), "119.4 s");
  EXPECT_EQ(DurationText(119.6), "2 min 0 s");
  EXPECT_EQ(DurationText(7199), "119 min 59 s");
  EXPECT_EQ(DurationText(7500), "2 h 5 min");
}

// ---- what is written ----

TEST_F(FleetReport, LinksLeadFromThePageToTheDocuments) {
  json run = FleetRunJson();
  json host = FleetHostJson("sql 1%");
  host["evidence"] = "hosts/sql 1%/evidence";
  AddHost(run, "run#1", host, WholeJson());
  StoreRun("run#1", run);

  EXPECT_EQ(FleetDataOf(Page())["hosts"][0][9],
            json::array({{"snapshot", "run%231/hosts/sql%201%25/snapshot.json"},
                         {"evidence", "run%231/hosts/sql%201%25/evidence/index.html"}}));

  const std::string beside = folder.File("page.html");
  ASSERT_EQ(RunCli({"report", Fleet(), "--output", beside}).status, 0);
  EXPECT_EQ(FleetDataOf(ReadFile(beside))["hosts"][0][9][0][1], "fleet/run%231/hosts/sql%201%25/snapshot.json");

  const std::string inside = folder.File("fleet/run#1/page.html");
  ASSERT_EQ(RunCli({"report", folder.File("fleet/run#1/"), "--output", inside}).status, 0);
  EXPECT_EQ(FleetDataOf(ReadFile(inside))["hosts"][0][9][0][1], "hosts/sql%201%25/snapshot.json");
}

TEST_F(FleetReport, PeopleAreToldTheSentenceAndWhereThePageIs) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1"), WholeJson());
  StoreRun("a", run);

  const CliResult result = RunCli({"report", Fleet()});

  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const std::filesystem::path page = PathOf(Fleet()) / "fleet.html";
  const std::u8string name = page.u8string();
  EXPECT_EQ(result.out, "1 of 1 host protected\nwrote " + std::string(name.begin(), name.end()) + "\n");
}

TEST_F(FleetReport, NamesAreText) {
  const std::string evil = "</script><img src=x onerror=alert(1)>";
  json run = FleetRunJson();
  run["fleet"] = evil;
  run["groups"][0]["name"] = evil;
  run["groups"][0]["message"] = evil;
  json host = FleetHostJson(evil, "failed", evil);
  host["group"] = evil;
  run["hosts"].push_back(host);
  run["hosts"].push_back(FleetHostJson("caf\xC3\xA9-\xE6\x9D\xB1\xE4\xBA\xAC", "failed", "arr\xC3\xAAt\xC3\xA9"));
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_FALSE(Shows(page, "<img"));
  EXPECT_TRUE(Shows(page, "&lt;/script&gt;&lt;img src=x onerror=alert(1)&gt;"));
  EXPECT_EQ(FleetDataOf(page)["hosts"][0][0], evil);
  EXPECT_TRUE(Shows(page, "<dt>caf\xC3\xA9-\xE6\x9D\xB1\xE4\xBA\xAC</dt><dd>failed: arr\xC3\xAAt\xC3\xA9</dd>"));
}

TEST_F(FleetReport, NothingOnThePageComesFromOutside) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1"), TakenJson());
  StoreRun("a", run);

  const std::string page = Page();

  EXPECT_TRUE(Shows(page, "Content-Security-Policy\" content=\"default-src 'none'; script-src 'sha256-"));
  for (const char* outside : {" src=", "<link", "@import", "url(", "https:", " style=", " onclick="}) {
    EXPECT_FALSE(Shows(page, outside));
  }
}

// ---- a large fleet ----

TEST_F(FleetReport, AThousandHostsWithTwentyDatabasesEachAreNoBurden) {
  constexpr std::size_t kHosts = 1000;
  constexpr std::size_t kDatabases = 20;
  json document = WholeJson();
  const json like = document["objects"][0];
  document["objects"].clear();
  for (std::size_t i = 0; i < kDatabases; ++i) {
    document["objects"].push_back(like);
    document["objects"].back()["name"] = "SQL01\\database" + std::to_string(i);
    document["objects"].back()["path"] = "\\SQL01\\database" + std::to_string(i);
  }
  json run = FleetRunJson();
  for (std::size_t i = 0; i < kHosts; ++i) AddHost(run, "a", FleetHostJson("sql-" + std::to_string(i)), document);
  StoreRun("a", run);

  const auto start = std::chrono::steady_clock::now();
  const std::string page = Page();
  const auto took = std::chrono::steady_clock::now() - start;

  EXPECT_EQ(told["fleet"]["headline"], "1000 of 1000 hosts protected");
  EXPECT_EQ(FleetDataOf(page)["objects"].size(), kHosts * kDatabases);
  EXPECT_THAT(page.size(), Lt(2'000'000u));
  // Optimised it is near a second; this is a build with sanitizers on a busy machine.
  EXPECT_THAT(took, Lt(std::chrono::seconds(120)));
}

}  // namespace
}  // namespace varnel::test
