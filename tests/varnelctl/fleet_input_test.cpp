// What varnelctl report says of a fleet's folder that is not as it should be.
#include "tests/varnelctl/fleet_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using varnelctl::UsageError;

class FleetInput : public FleetFixture {
 protected:
  static std::string Refusal(const std::string& text) {
    try {
      varnelctl::fleet::ReadRun("fleet.json", text);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "taken";
  }
  static json Sample() {
    json run = FleetRunJson();
    run["hosts"] = {FleetHostJson("sql-1"), FleetHostJson("sql-2", "failed", "no")};
    run["hosts"][1]["documents"]["plan"] = "hosts/sql-2/plan.json";
    run["hosts"][1]["evidence"] = "hosts/sql-2/evidence";
    return run;
  }
  static std::string RefusalWith(const std::string& pointer, const json& value) {
    json run = Sample();
    run[json::json_pointer(pointer)] = value;
    return Refusal(run.dump());
  }
};

// ---- fleet.json ----

TEST_F(FleetInput, TheSchemaDescribesWhatIsRead) {
  EXPECT_THAT(FleetSchemaErrors(Sample()), IsEmpty());
  EXPECT_EQ(Refusal(Sample().dump()), "taken");
  for (const char* path : {"../x", "/x", "\\x", "a/../x", "C:\\x", "a\\..\\x", "..", "a/.. /x"}) {
    json run = Sample();
    run["hosts"][0]["evidence"] = path;
    EXPECT_FALSE(FleetSchemaErrors(run).empty()) << path;
  }
}

TEST_F(FleetInput, TextThatIsNoJsonIsRefusedWithItsPlace) {
  EXPECT_EQ(Refusal(" \n"), "fleet.json: no JSON: the file is empty");
  EXPECT_THAT(Refusal("{\"schemaVersion\": 1,\n \"hosts\": [{}"), StartsWith("fleet.json: no JSON: line 2, column 14"));
  EXPECT_EQ(Refusal("{\"fleet\": 1, \"fleet\": 2}"), "fleet.json: /fleet: the key stands twice");
  EXPECT_EQ(Refusal("[]"), "fleet.json: expected object, found array");
}

TEST_F(FleetInput, AFileThatIsCutOffAnywhereIsRefused) {
  const std::string text = Sample().dump();
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_THAT(Refusal(text.substr(0, length)), StartsWith("fleet.json: no JSON: ")) << length;
  }
}

TEST_F(FleetInput, WhateverByteIsAnotherTheFileIsReadOrRefused) {
  const std::string text = Sample().dump();
  for (std::size_t at = 0; at < text.size(); ++at) {
    for (const char byte : {'\0', '"', '9', '{', '\\', '\xFF'}) {
      std::string other = text;
      other[at] = byte;
      EXPECT_THAT(Refusal(other), testing::AnyOf("taken", StartsWith("fleet.json: "))) << at;
    }
  }
}

TEST_F(FleetInput, AnotherVersionIsRefused) {
  EXPECT_EQ(Refusal("{}"), "fleet.json: /schemaVersion: the key is missing");
  EXPECT_EQ(RefusalWith("/schemaVersion", 2), "fleet.json: /schemaVersion: 2 is not 1, which this version reads");
  EXPECT_EQ(RefusalWith("/schemaVersion", "1"), "fleet.json: /schemaVersion: expected whole number, found string");
}

TEST_F(FleetInput, EachKeyThatIsMissingOrOfAnotherTypeIsRefused) {
  const json run = Sample();
  for (const char* pointer :
       {"/fleet", "/startedAt", "/endedAt", "/groups", "/groups/0/name", "/groups/0/mode", "/groups/0/onFailure",
        "/groups/0/outcome", "/groups/0/message", "/hosts", "/hosts/1/name", "/hosts/1/outcome", "/hosts/1/message",
        "/hosts/1/seconds", "/hosts/1/documents", "/hosts/1/evidence"}) {
    const json::json_pointer place(pointer);
    json without = run;
    without[place.parent_pointer()].erase(place.back());
    EXPECT_EQ(Refusal(without.dump()), std::string("fleet.json: ") + pointer + ": the key is missing");
    EXPECT_THAT(RefusalWith(pointer, true), StartsWith(std::string("fleet.json: ") + pointer + ": expected "));
  }
  EXPECT_EQ(RefusalWith("/hosts/1", 7), "fleet.json: /hosts/1: expected object, found number");
  EXPECT_EQ(RefusalWith("/hosts/1/documents/plan", 7),
            "fleet.json: /hosts/1/documents/plan: expected string, found number");
}

TEST_F(FleetInput, AWordThatIsNoneIsRefused) {
  EXPECT_EQ(RefusalWith("/groups/0/mode", "once"), "fleet.json: /groups/0/mode: \"once\" is none of together, rolling");
  EXPECT_EQ(RefusalWith("/groups/0/onFailure", ""), "fleet.json: /groups/0/onFailure: \"\" is none of end, keep");
  EXPECT_EQ(RefusalWith("/groups/0/outcome", "hung"),
            "fleet.json: /groups/0/outcome: \"hung\" is none of taken, incomplete, ended, stopped, planned, notRun");
  EXPECT_EQ(RefusalWith("/hosts/0/outcome", "TAKEN"),
            "fleet.json: /hosts/0/outcome: \"TAKEN\" is none of taken, failed, ended, planned, refused, unreachable, "
            "hung, notRun");
}

TEST_F(FleetInput, TimesAndSecondsThatAreNoneAreRefused) {
  EXPECT_EQ(RefusalWith("/startedAt", "yesterday"),
            "fleet.json: /startedAt: \"yesterday\" is no time like 2026-11-22T16:05:00Z");
  EXPECT_EQ(RefusalWith("/endedAt", "2026-02-30T00:00:00Z"),
            "fleet.json: /endedAt: \"2026-02-30T00:00:00Z\" is no time like 2026-11-22T16:05:00Z");
  EXPECT_EQ(RefusalWith("/endedAt", "2026-01-02T00:00:00.5Z"), "taken");
  EXPECT_EQ(RefusalWith("/hosts/0/seconds", -1),
            "fleet.json: /hosts/0/seconds: expected number of seconds or null, found number");
  EXPECT_EQ(RefusalWith("/hosts/0/seconds", 1e300),
            "fleet.json: /hosts/0/seconds: expected number of seconds or null, found number");
}

TEST_F(FleetInput, PathsThatLeaveTheFolderAreRefused) {
  for (const char* path : {"", "../x", "..", "/etc/passwd", "\\\\server\\share", "hosts/../../x", "hosts\\..\\x", "C:x",
                           "C:\\x", "hosts/.. /x", "hosts/.../x"}) {
    const std::string quoted = "\"" + std::string(path) + "\" leaves the folder of the run";
    EXPECT_EQ(RefusalWith("/hosts/1/documents/plan", path), "fleet.json: /hosts/1/documents/plan: " + quoted);
    EXPECT_EQ(RefusalWith("/hosts/1/documents/other", path), "fleet.json: /hosts/1/documents/other: " + quoted);
    EXPECT_EQ(RefusalWith("/hosts/1/evidence", path), "fleet.json: /hosts/1/evidence: " + quoted);
  }
  EXPECT_EQ(RefusalWith("/hosts/1/evidence", "hosts/..a/./b..c"), "taken");
  EXPECT_EQ(RefusalWith("/hosts/1/evidence", std::string("a\0b", 3)),
            "fleet.json: /hosts/1/evidence: a path has no control characters");
}

TEST_F(FleetInput, AHostThatStandsTwiceOrHasNoNameIsRefused) {
  EXPECT_EQ(RefusalWith("/hosts/1/name", "sql-1"), "fleet.json: /hosts/1/name: \"sql-1\" is /hosts/0 already");
  EXPECT_EQ(RefusalWith("/hosts/1/name", ""), "fleet.json: /hosts/1/name: a host has a name");
}

TEST_F(FleetInput, KeysThatAreNotKnownAreSkipped) {
  json run = Sample();
  run["later"] = {1, 2};
  run["hosts"][0]["later"] = "x";
  EXPECT_EQ(Refusal(run.dump()), "taken");
}

// ---- folders ----

TEST_F(FleetInput, AFolderWithoutRunsIsRefused) {
  Store("empty/readme.txt", "nothing");

  ExpectRefused(RunCli({"report", Fleet()}),
                "varnelctl: " + Fleet() + ": neither this folder nor one in it has a fleet.json");
  EXPECT_FALSE(std::filesystem::exists(PathOf(Fleet()) / "fleet.html"));
}

TEST_F(FleetInput, AFileInPlaceOfAFleetIsNamed) {
  Store("fleet.json", "{");
  ExpectRefused(RunCli({"report", Fleet()}), "varnelctl: ");
  EXPECT_THAT(RunCli({"report", Fleet()}).err, HasSubstr("fleet.json: no JSON: line 1, column 2"));

  std::filesystem::remove(PathOf(Fleet()) / "fleet.json");
  std::filesystem::create_directory(PathOf(Fleet()) / "fleet.json");
  EXPECT_THAT(RunCli({"report", Fleet()}).err, HasSubstr("fleet.json: it is a folder"));
}

TEST_F(FleetInput, ABrokenRunAmongGoodOnesIsNamedOnThePage) {
  json run = FleetRunJson();
  AddHost(run, "good", FleetHostJson("sql-1"), WholeJson());
  StoreRun("good", run);
  Store("cut/fleet.json", run.dump().substr(0, 50));

  const std::string page = Page();

  ASSERT_EQ(told["fleet"]["unreadable"].size(), 1u);
  const std::string reason = told["fleet"]["unreadable"][0];
  EXPECT_THAT(reason, HasSubstr("fleet.json: no JSON: line 1, column "));
  EXPECT_EQ(told["warnings"][0]["code"], "runUnreadable");
  EXPECT_EQ(told["warnings"][0]["text"], reason);
  EXPECT_TRUE(Shows(page, "Runs that cannot be read"));
  EXPECT_EQ(told["fleet"]["headline"], "1 of 1 host protected");
}

TEST_F(FleetInput, NothingButBrokenRunsIsRefusedWithTheLastOne) {
  Store("a/fleet.json", "[]");
  Store("b/fleet.json", "{}");

  const CliResult result = RunCli({"report", Fleet()});

  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("fleet.json: /schemaVersion: the key is missing"));
}

TEST_F(FleetInput, AFleetIsReportedByItself) {
  StoreRun("a", FleetRunJson());
  const std::string run = folder.Write("run.json", TakenJson().dump());

  ExpectRefused(RunCli({"report", run, Fleet()}),
                "varnelctl: a folder of a fleet's runs is reported by itself; name it alone");
}

TEST_F(FleetInput, ThePageIsNotTheFileThatItIsMadeOf) {
  json run = FleetRunJson();
  StoreRun(".", run);

  ExpectRefused(RunCli({"report", Fleet(), "--output", Fleet() + "/fleet.json"}),
                "varnelctl: --output and RUN.json name one file, ");
}

// ---- documents of hosts ----

// Each host is called what its document is.
class BrokenDocuments : public FleetFixture {
 protected:
  BrokenDocuments() {
    json run = FleetRunJson();
    AddHost(run, "a", FleetHostJson("good"), WholeJson());
    AddHost(run, "a", FleetHostJson("cut"), WholeJson());
    Store("a/hosts/cut/snapshot.json", WholeJson().dump().substr(0, 100));
    json version = WholeJson();
    version["schema"] = "varnelctl/2";
    AddHost(run, "a", FleetHostJson("version"), version);
    AddHost(run, "a", FleetHostJson("foreign"), {{"name", "something else"}});
    AddHost(run, "a", FleetHostJson("plan"), Document({"plan", "--app", "none", "--disk", "TSL0001"}));
    AddHost(run, "a", FleetHostJson("missing"), WholeJson());
    std::filesystem::remove(PathOf(folder.File("fleet/a/hosts/missing/snapshot.json")));
    AddHost(run, "a", FleetHostJson("empty", "failed", "it broke off"), WholeJson());
    Store("a/hosts/empty/snapshot.json", "");
    run["hosts"].push_back(FleetHostJson("none"));
    StoreRun("a", run);
  }
};

TEST_F(BrokenDocuments, AreToldInTheRowsOfTheirHosts) {
  const std::string page = Page();

  EXPECT_EQ(StateOf("good"), "protected");
  for (const char* name : {"cut", "version", "foreign", "plan", "missing", "none"})
    EXPECT_EQ(StateOf(name), "not known");
  EXPECT_THAT(WhyOf("cut"),
              StartsWith("Its document cannot be read: hosts/cut/snapshot.json: no JSON: line 1, column "));
  EXPECT_EQ(WhyOf("version"),
            "Its document cannot be read: hosts/version/snapshot.json: /schema: \"varnelctl/2\" is not "
            "\"varnelctl/1\", which this version reads");
  EXPECT_THAT(WhyOf("foreign"),
              StartsWith("Its document cannot be read: hosts/foreign/snapshot.json: /schema: the key is missing"));
  EXPECT_EQ(WhyOf("plan"),
            "Its document cannot be read: hosts/plan/snapshot.json: /kind: \"plan\" is not \"snapshot\"");
  EXPECT_EQ(WhyOf("missing"), "Its document cannot be read: hosts/missing/snapshot.json: there is no such file");
  EXPECT_EQ(WhyOf("none"), "There is no document of its snapshot");
  EXPECT_EQ(WhyOf("empty"),
            "it broke off. Its document cannot be read: hosts/empty/snapshot.json: no JSON: the file is "
            "empty");
  EXPECT_EQ(
      told["warnings"],
      (json{{{"code", "documentUnreadable"}, {"text", "documents of 6 hosts cannot be read; the page names them"}}}));
  EXPECT_EQ(told["status"], 0);
  EXPECT_TRUE(
      Shows(page, "not known: Its document cannot be read: hosts/missing/snapshot.json: there is no such file"));
}

TEST_F(FleetInput, ABrokenPlanIsToldBesideWhatBecameOfTheHost) {
  json run = FleetRunJson();
  AddHost(run, "a", FleetHostJson("sql-1", "refused", "it would fail"), 7, "plan");
  StoreRun("a", run);

  Page();

  EXPECT_EQ(WhyOf("sql-1"),
            "it would fail. Its plan cannot be read: hosts/sql-1/plan.json: expected object, found number");
}

TEST_F(FleetInput, ARunThatFailedBeforeItFoundAnythingIsADocument) {
  json run = FleetRunJson();
  const json failure = Document({"snapshot", "--app", "none", "--disk", "NOTHING"}, 2);
  ASSERT_EQ(failure["kind"], "failure");
  AddHost(run, "a", FleetHostJson("sql-1", "failed"), failure);
  AddHost(run, "a", FleetHostJson("sql-2"), failure);
  StoreRun("a", run);

  Page();

  EXPECT_THAT(WhyOf("sql-1"), StartsWith(failure["result"]["message"].get<std::string>()));
  EXPECT_EQ(StateOf("sql-2"), "nothing protected");
}

TEST_F(FleetInput, AFailureThatPretendsToHaveFoundSomethingIsRefused) {
  json run = FleetRunJson();
  json failure = Document({"snapshot", "--app", "none", "--disk", "NOTHING"}, 2);
  failure["objects"] = {1, 2};
  AddHost(run, "a", FleetHostJson("sql-1"), failure);
  StoreRun("a", run);

  Page();

  EXPECT_EQ(WhyOf("sql-1"), "Its document cannot be read: hosts/sql-1/snapshot.json: /verdict: the key is missing");
}

// Whatever a document says in place of what it should, the page is made.
TEST_F(FleetInput, EachKeyOfADocumentMayBeAnything) {
  const json document = TakenJson();
  json run = FleetRunJson();
  for (const auto& [key, value] : document.items()) {
    for (const json& other : {json(nullptr), json(7), json("x"), json::array({1}), json({{"a", 1}})}) {
      json changed = document;
      changed[key] = other;
      AddHost(run, "a", FleetHostJson("sql-" + std::to_string(run["hosts"].size())), changed);
    }
  }
  StoreRun("a", run);

  Page();

  EXPECT_EQ(told["fleet"]["hosts"].size(), document.size() * 5);
}

}  // namespace
}  // namespace varnel::test
