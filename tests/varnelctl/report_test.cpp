// varnelctl report and --report: pages of runs.
#include <chrono>
#include <regex>

#include "tests/varnelctl/report_support.h"
#include "text/unicode.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/records.h"
#include "varnelctl/report/html/comparison.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/page.h"
#include "varnelctl/report/html/run_file.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Lt;
using testing::StartsWith;

using varnelctl::UsageError;
using varnelctl::html::ChangesOf;
using varnelctl::html::ReadRun;
using varnelctl::html::ReportPage;
using varnelctl::html::StoredRun;

// ---- text of the host ----

TEST(ReportMarkup, TextIsNeverMarkup) {
  EXPECT_EQ(varnelctl::html::Escaped(R"(<b title="x" id='y'>&amp;)"),
            "&lt;b title=&quot;x&quot; id=&#39;y&#39;&gt;&amp;amp;");
}

TEST(ReportMarkup, TextThatHidesOrTurnsRoundIsReplaced) {
  const std::string turn = WideToUtf8Lossy(std::wstring(1, wchar_t{0x202E}));
  const std::string replaced = "\xEF\xBF\xBD";

  EXPECT_EQ(varnelctl::html::Escaped("a\x1b" + turn + "b\xFF"), "a" + replaced + replaced + "b" + replaced);
}

TEST(ReportMarkup, NoTextOfADocumentEndsItsScript) {
  const std::string separators = WideToUtf8Lossy(L"\u2028\u2029");
  const std::string dash = WideToUtf8Lossy(L"\u2013");
  const json document = {{"</script><!--", "&" + separators + dash}};

  const std::string text = varnelctl::html::EscapedJson(document);

  EXPECT_EQ(text, R"({"\u003c/script\u003e\u003c!--":"\u0026\u2028\u2029)" + dash + "\"}");
  EXPECT_EQ(json::parse(text), document);
}

TEST(ReportMarkup, Base64IsAsOthersReadIt) {
  const auto encoded = [](std::string_view text) {
    return varnelctl::html::Base64({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
  };
  EXPECT_EQ(encoded(""), "");
  EXPECT_EQ(encoded("f"), "Zg==");
  EXPECT_EQ(encoded("fo"), "Zm8=");
  EXPECT_EQ(encoded("foo"), "Zm9v");
  EXPECT_EQ(encoded("\xFB\xFF\xBF"), "+/+/");
}

TEST(AlertRecord, GivesEachOfItsFields) {
  const auto records = varnelctl::RecordsIn(
      "RequestStatus=ComponentLevelFailure, Component=\\SQL01\\sales, ComponentLevelError=VSS_E_BAD_STATE, "
      "ApplicationError=0x5, ApplicationMsg=torn, twice, rc=VssPartialWriterError, ca=CheckWriterState;\n");
  ASSERT_EQ(records.size(), 1U);

  std::vector<std::string> fields;
  for (const auto& [key, value] : varnelctl::FieldsOf(records[0])) {
    fields.push_back(std::string(key) + "|" + std::string(value));
  }

  EXPECT_THAT(fields, ElementsAre("RequestStatus|ComponentLevelFailure", "Component|\\SQL01\\sales",
                                  "ComponentLevelError|VSS_E_BAD_STATE", "ApplicationError|0x5",
                                  "ApplicationMsg|torn, twice", "rc|VssPartialWriterError", "ca|CheckWriterState"));
}

// ---- pages ----

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

class ReportTest : public SnapshotFixture {
 protected:
  ReportTest() { hostFile = SmallHostJson(); }

  std::string StoreRun(const std::string& name, const json& document) {
    return folder.Write(name, document.dump(2) + "\n");
  }
  std::string PageOf(const json& document) { return ReportPage({ReadRun("run.json", document.dump())}); }
  std::string Refusal(const std::string& text) {
    try {
      ReadRun("run.json", text);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "taken";
  }
};

TEST_F(ReportTest, HoldsTheDocumentOfTheRun) {
  const json document = SnapshotJson();

  const std::string page = PageOf(document);

  EXPECT_THAT(DocumentsOfPage(page), ElementsAre(document));
  EXPECT_TRUE(Shows(page, "<h1 class=\"verdict\">CAPTURED 2 of 3 components<"));
  EXPECT_TRUE(Shows(page, "<dt>SQL01\\tools</dt><dd>disk &quot;SYS&quot; holds the system</dd>"));
}

TEST_F(ReportTest, APlanHasAPage) {
  const std::string page = folder.File("page.html");
  ASSERT_EQ(Run({"plan", "--app", "none", "--disk", "TSL0001", "--report", page}).status, 0);

  EXPECT_TRUE(Shows(ReadFile(page), "WOULD CAPTURE 1 of 3 components"));
  EXPECT_TRUE(Shows(ReadFile(page), "Plan of SQL01"));
}

TEST_F(ReportTest, TheLastOfJsonLinesIsTheRun) {
  const CliResult result = Run({"snapshot", "--app", "none", "--disk", "TSL0001", "--json-lines"});

  const StoredRun run = ReadRun("run.json", result.out);

  EXPECT_EQ(run.document, DocumentsIn(result.out).back().at("document"));
}

TEST_F(ReportTest, NamesOfTheHostAreText) {
  const std::string name = "<script>alert(1)</script>";
  hostFile["writers"][0]["name"] = name;
  hostFile["writers"][0]["components"][0]["caption"] = "</script><img src=x onerror=alert(2)>";
  hostFile["computerName"] = "\"><script>alert(3)</script>";

  const std::string page = PageOf(SnapshotJson());

  EXPECT_FALSE(Shows(page, "alert(1)</script>"));
  EXPECT_FALSE(Shows(page, "<img"));
  EXPECT_FALSE(Shows(page, "<script>alert"));
  EXPECT_EQ(CountOf(page, "<script"), 2U) << "the document and the page's own";
  EXPECT_EQ(CountOf(page, "</script>"), 2U);
  EXPECT_EQ(DocumentsOfPage(page).at(0).at("writers").at(0).at("name"), name);
}

TEST_F(ReportTest, NothingComesFromOutside) {
  const std::string page = PageOf(SnapshotJson());

  EXPECT_TRUE(std::regex_search(page, std::regex("Content-Security-Policy\" content=\"default-src 'none'; script-src "
                                                 "'sha256-[A-Za-z0-9+/]{43}='; style-src 'sha256-[A-Za-z0-9+/]{43}='; "
                                                 "base-uri 'none'; form-action 'none'\"")));
  for (const char* outside : {" src=", "<link", "@import", "url(", "https:", " style=", " onclick="}) {
    EXPECT_FALSE(Shows(page, outside));
  }
}

TEST_F(ReportTest, AlertRecordsAreTakenApart) {
  json document = SnapshotJson();
  document["errorDetails"] =
      "RequestStatus=WriterFailure, WriterName=Demo Writer, WriterError=VSS_E_WRITERERROR_TIMEOUT, "
      "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=, rc=VssWriterStatusError, "
      "ca=CheckWriterState;\n";

  const std::string page = PageOf(document);

  EXPECT_TRUE(Shows(page, "<dt>WriterError</dt><dd>VSS_E_WRITERERROR_TIMEOUT</dd>"));
  EXPECT_TRUE(Shows(page, "Wait ten minutes, then try again"));
  EXPECT_TRUE(Shows(page, "<td>VSS_WS_FAILED_AT_FREEZE, VSS_E_WRITERERROR_TIMEOUT</td>"));
}

TEST_F(ReportTest, ObjectsThatAreLeftOutForOneReasonStandTogether) {
  json document = SnapshotJson();
  const json missing = document["objects"][2];
  for (int i = 0; i < 300; ++i) document["objects"].push_back(missing);

  const std::string page = PageOf(document);

  EXPECT_TRUE(
      Shows(page, "SQL01\\tools, SQL01\\tools and 281 more</dt><dd>disk &quot;SYS&quot; holds the system</dd>"));
}

TEST_F(ReportTest, AnObjectThatItsWriterFailedIsNotCaptured) {
  json document = SnapshotJson();
  document["objects"][0]["captured"] = false;
  document["objects"][0]["failed"] = true;

  EXPECT_TRUE(Shows(PageOf(document), "<dt>SQL01\\sales</dt><dd>failed by its writer</dd>"));
}

TEST_F(ReportTest, LongListsEndWithHowMuchMoreThereIs) {
  json document = SnapshotJson();
  for (int i = 0; i < 203; ++i) {
    document["warnings"].push_back({{"code", "noVolume"}, {"text", "warning " + std::to_string(i)}});
  }

  EXPECT_TRUE(Shows(PageOf(document), "<li>warning 199</li>\n</ul>\n<p class=\"quiet\">and 3 more</p>"));
}

// ---- several runs ----

TEST_F(ReportTest, TellsWhatChangedInTheSet) {
  const json before = SnapshotJson();
  json now = before;
  now["objects"][0]["captured"] = false;
  now["objects"][0]["why"] = "gone astray";
  now["objects"][1]["path"] = "\\SQL01\\new";
  now["objects"][1]["name"] = "new";
  now["objects"][2]["captured"] = true;
  now["header"]["disks"] = {"TSL0002", "TSL0003"};

  const auto changes = ChangesOf(before, now);

  EXPECT_THAT(changes.lost, ElementsAre("SQL01\\sales: gone astray"));
  EXPECT_THAT(changes.gained, ElementsAre("SQL01\\tools"));
  EXPECT_THAT(changes.added, ElementsAre("new: captured"));
  EXPECT_THAT(changes.removed, ElementsAre("SQL01\\crm"));
  EXPECT_THAT(changes.disksAdded, ElementsAre("TSL0003"));
  EXPECT_THAT(changes.disksRemoved, ElementsAre("TSL0001"));
  EXPECT_TRUE(ChangesOf(before, before).IsNone());
}

TEST_F(ReportTest, ComparesRunsInTheOrderOfTheirStart) {
  json first = SnapshotJson();
  json second = SnapshotJson({"--disk", "TSL0001"});
  first["header"]["start"] = "2026-02-01T00:00:00.000Z";
  second["header"]["start"] = "2026-02-02T00:00:00.000Z";
  const std::string page = folder.File("both.html");

  ASSERT_EQ(RunCli({"report", StoreRun("b.json", second), StoreRun("a.json", first), "--output", page}).status, 0);

  const std::string text = ReadFile(page);
  EXPECT_THAT(DocumentsOfPage(text), ElementsAre(second, first)) << "the last run comes first";
  EXPECT_TRUE(Shows(text, "2 runs of SQL01"));
  EXPECT_TRUE(Shows(text, "<h3>Captured then, not now</h3>\n<ul class=\"lost\">\n<li>SQL01\\crm: "));
}

TEST_F(ReportTest, AnOlderRunWithoutTheNewerKeysIsShown) {
  json document = SnapshotJson();
  for (json& object : document["objects"]) object.erase("why");
  for (json& component : document["writers"][0]["components"]) {
    component.erase("why");
    component.erase("volumes");
  }
  document["somethingNew"] = 1;

  EXPECT_TRUE(Shows(PageOf(document), "<dt>SQL01\\tools</dt><dd>systemDisk</dd>"));
}

// ---- what is refused ----

TEST_F(ReportTest, TextThatIsNoJsonIsRefusedWithItsPlace) {
  EXPECT_THAT(Refusal(""), StartsWith("run.json: no JSON: the file is empty"));
  EXPECT_THAT(Refusal("CAPTURED 4 of 4 databases\n"), StartsWith("run.json: no JSON: line 1, column 1"));
  EXPECT_THAT(Refusal("{\"schema\": \"varnelctl/1\",\n \"kind\": snapshot}"),
              StartsWith("run.json: no JSON: line 2, column 10"));
  EXPECT_THAT(Refusal("{\"kind\": 1, \"kind\": 2}"), "run.json: /kind: the key stands twice");
}

TEST_F(ReportTest, AnotherDocumentIsRefusedWithItsPlace) {
  EXPECT_EQ(Refusal("[]"), "run.json: expected object, found array");
  EXPECT_THAT(Refusal("{\"name\": \"x\"}"), StartsWith("run.json: /schema: the key is missing"));
  EXPECT_EQ(Refusal(R"({"schema": "varnelctl/2", "kind": "snapshot"})"),
            "run.json: /schema: \"varnelctl/2\" is not \"varnelctl/1\", which this version reads");
  EXPECT_EQ(Refusal(R"({"schema": "varnelctl/1", "kind": "disks"})"),
            "run.json: /kind: \"disks\" is none of snapshot, plan, failure: only these are runs");
}

// Whatever a page is made of: without it, or with a number in its place, no page is begun.
TEST_F(ReportTest, EachKeyThatIsMissingOrOfAnotherTypeIsRefused) {
  const json document = SnapshotJson();
  for (const char* pointer :
       {"/header", "/header/start", "/header/commandLine", "/status", "/result/message", "/verdict/text",
        "/writers/0/name", "/writers/0/components/0/fullPath", "/objects/1/captured", "/objects/1/disks",
        "/steps/0/start", "/snapshots/0/device", "/warnings", "/errorDetails"}) {
    const json::json_pointer place(pointer);
    json without = document;
    without[place.parent_pointer()].erase(place.back());
    EXPECT_EQ(Refusal(without.dump()), std::string("run.json: ") + pointer + ": the key is missing");

    json other = document;
    other[place] = 1.5;
    EXPECT_THAT(Refusal(other.dump()), StartsWith(std::string("run.json: ") + pointer + ": expected "));
  }
  json element = document;
  element["objects"][1]["disks"][0] = 7;
  EXPECT_EQ(Refusal(element.dump()), "run.json: /objects/1/disks/0: expected string, found number");
}

TEST_F(ReportTest, LinesOfARunThatBrokeOffAreRefused) {
  const std::string out = Run({"snapshot", "--app", "none", "--disk", "TSL0001", "--json-lines"}).out;
  const std::string broken = out.substr(0, out.rfind("{\"event\":\"end\""));

  EXPECT_THAT(Refusal(broken), HasSubstr(": /event: the last line is not the \"end\" of a run: this one broke off"));
  EXPECT_THAT(Refusal(out.substr(0, out.size() - 20)), HasSubstr("no JSON: "));
}

TEST_F(ReportTest, AFileThatIsNotThereIsRefused) {
  ExpectRefused(RunCli({"report", folder.File("nothing.json")}),
                "varnelctl: " + folder.File("nothing.json") + ": there is no such file");
}

TEST_F(ReportTest, ThePageIsNoneOfTheRuns) {
  const std::string run = StoreRun("run.json", SnapshotJson());

  ExpectRefused(RunCli({"report", run, "--output", run}), "varnelctl: --output and RUN.json name one file, ");
}

TEST_F(ReportTest, WhatItMadeIsADocument) {
  const std::string run = StoreRun("run.json", SnapshotJson());

  const CliResult result = RunCli({"report", run, "--json"});

  const json document = json::parse(result.out);
  EXPECT_EQ(document.at("kind"), "report");
  EXPECT_EQ(document.at("page"), folder.File("run.html"));
  EXPECT_EQ(document.at("runs").at(0).at("file"), run);
}

#ifndef _WIN32
TEST_F(ReportTest, AFullDiskIsNoSuccess) {
  const std::string run = StoreRun("run.json", SnapshotJson());

  const CliResult result = RunCli({"report", run, "--output", "/dev/full"});

  EXPECT_EQ(result.status, 18);
  EXPECT_THAT(result.err, HasSubstr("--output /dev/full was not written whole: "));
}
#endif

// ---- the sample hosts ----

struct Sample {
  const char* host;
  Arguments arguments;
};

class SampleReport : public testing::TestWithParam<Sample> {};

TEST_P(SampleReport, HasTheVerdictTheReasonsAndTheRemedy) {
  const TemporaryFolder folder;
  Arguments arguments = {"--host",       std::string(VARNEL_EXAMPLES "/hosts/") + GetParam().host + ".json",
                         "--no-journal", "--json",
                         "snapshot",     "--app"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const std::string run = folder.Write("run.json", RunCli(arguments).out);

  ASSERT_EQ(RunCli({"report", run}).status, 0);

  const std::string text = ReadFile(folder.File("run.html"));
  const json document = json::parse(ReadFile(run));
  EXPECT_THAT(DocumentsOfPage(text), ElementsAre(document));
  const auto has = [&](const std::string& part) { EXPECT_TRUE(Shows(text, varnelctl::html::Escaped(part))); };
  has(document.at("result").at("remedy"));
  for (const json& warning : document.at("warnings")) has(warning.at("text"));
  if (!document.contains("verdict")) return;
  for (const json& object : document.at("objects")) {
    if (object.at("why").is_string() && object.at("reason") != "requestEnded") has(object.at("why"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Samples, SampleReport,
    testing::Values(Sample{"sql-server", {"sql", "--disk", "TSL0001", "TSL0002"}},
                    Sample{"sql-server-torn", {"sql", "--disk", "TSL0002"}},
                    Sample{"sql-server-freeze-timeout", {"sql", "--disk", "TSL0001", "TSL0003"}},
                    Sample{"exchange", {"exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
                    Sample{"exchange-damaged", {"exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
                    Sample{"exchange-no-utility", {"exchange", "--disk", "TSL1001", "TSL1002", "--verify"}},
                    Sample{"exchange-not-installed", {"exchange", "--disk", "TSL1001", "TSL1002"}},
                    Sample{"hyperv-cluster", {"hyperv", "--disk", "TSL2001", "TSL2002"}},
                    Sample{"hyperv-one-of-twenty", {"hyperv", "--disk", "TSL2001", "TSL2002"}},
                    Sample{"hyperv-mixed-volumes", {"hyperv", "--disk", "TSL2001", "TSL2003"}},
                    Sample{"hyperv-missing-hotfix", {"hyperv", "--disk", "TSL2901"}},
                    Sample{"plain", {"none", "--disk", "TSL3001", "TSL3002"}}),
    [](const auto& sample) {
      std::string name;
      for (const char c : std::string(sample.param.host)) name += c == '-' ? '_' : c;
      return name;
    });

// ---- a large host ----

// One database in four has a file on a disk outside the set.
json LargeHost(int databases) {
  json host = SmallHostJson();
  json components = json::array();
  for (int i = 0; i < databases; ++i) {
    const std::string name = "database" + std::to_string(i);
    components.push_back(
        {{"type", "database"},
         {"logicalPath", "SQL01"},
         {"name", name},
         {"selectable", true},
         {"databaseFiles", {{{"path", "E:\\data\\"}, {"filespec", name + ".mdf"}}}},
         {"logFiles", {{{"path", i % 4 == 0 ? "F:\\log\\" : "E:\\log\\"}, {"filespec", name + ".ldf"}}}}});
  }
  host["writers"][0]["components"] = std::move(components);
  return host;
}

TEST_F(ReportTest, TenThousandDatabasesAreNoBurden) {
  constexpr int kDatabases = 10'000;
  constexpr std::size_t kMostBytes = 10'000'000;
  hostFile = LargeHost(kDatabases);
  const std::string run = StoreRun("run.json", SnapshotJson({"--disk", "TSL0001"}));

  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(RunCli({"report", run}).status, 0);
  const auto took = std::chrono::steady_clock::now() - start;

  const std::string page = ReadFile(folder.File("run.html"));
  EXPECT_THAT(page.size(), Lt(kMostBytes));
  EXPECT_EQ(DocumentsOfPage(page).at(0).at("objects").size(), std::size_t{kDatabases});
  // Optimised it is well within a second; this is a build with sanitizers on a busy machine.
  EXPECT_THAT(took, Lt(std::chrono::seconds(60)));
}

}  // namespace
}  // namespace varnel::test
