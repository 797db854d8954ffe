// What programs read: the frame that every document has, its warnings and failures, the lines of --json-lines, and the
// schema that describes it all.
#include <regex>
#include <streambuf>

#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/sets/snapshot_options.h"

namespace varnel::test {
namespace {

using nlohmann::json;

constexpr char kStart[] = "2026-01-01T00:00:00.000Z";

// The text of a document up to the first of its own keys.
std::string FrameOf(const std::string& out, const std::string& firstKey) {
  return out.substr(0, out.find("\n  \"" + firstKey + "\": ") + 1);
}

std::vector<std::string> CodesIn(const json& document) {
  std::vector<std::string> codes;
  for (const json& warning : document.at("warnings")) codes.push_back(warning.at("code"));
  return codes;
}

class DocumentOnHost : public CliFixture {
 protected:
  json Failure(Arguments arguments, int status) {
    json document = Document(std::move(arguments), status);
    EXPECT_EQ(document.at("kind"), "failure");
    EXPECT_EQ(document.at("status"), status);
    return document;
  }
};

// The header

TEST_F(DocumentOnHost, BeginsWithTheSchemaItsKindTheHeaderAndTheExitStatus) {
  EXPECT_EQ(FrameOf(Output({"providers", "--json"}), "providers"), R"({
  "schema": "varnelctl/1",
  "kind": "providers",
  "header": {
    "version": ")" VARNEL_VERSION R"(",
    "host": "HOST",
    "commandLine": [
      "providers",
      "--json"
    ],
    "start": "2026-01-01T00:00:00.000Z",
    "process": 4242
  },
  "status": 0,
)");
}

TEST_F(DocumentOnHost, OfASetSaysWhatWasAskedFor) {
  const json header =
      Document({"plan", "--app", "sql", "--disk", "TSL0001", "TSL0002", "--backup-type", "copy", "--context", "0x29"},
               12)
          .at("header");

  EXPECT_EQ(header, json::parse(R"({
    "version": ")" VARNEL_VERSION R"(", "host": "HOST", "start": "2026-01-01T00:00:00.000Z", "process": 4242,
    "commandLine": ["plan", "--app", "sql", "--disk", "TSL0001", "TSL0002", "--backup-type", "copy", "--context",
                    "0x29", "--json"],
    "application": "sql", "disks": ["TSL0001", "TSL0002"], "type": "copy", "context": "app-rollback+transportable",
    "provider": "{374579ad-285c-49b9-ab8a-950e0e252de2}" })"));
}

TEST_F(DocumentOnHost, TellsTheTimeOfTheHostsClock) {
  host().machine().now = 3723004;

  EXPECT_EQ(Document({"disks"}).at("header").at("start"), "2026-01-01T01:02:03.004Z");
}

TEST_F(DocumentOnHost, HasNoHostWhereTheHostDoesNotSay) {
  Fail("GetComputerNameExW", HRESULT{ERROR_ACCESS_DENIED});

  EXPECT_TRUE(Document({"disks"}).at("header").at("host").is_null());
}

TEST_F(DocumentOnHost, HasArgumentsThatAreNoUtf8) {
  const json document = Failure({"disks", "\xFF"}, 2);

  EXPECT_EQ(document.at("header").at("commandLine")[1], "\xEF\xBF\xBD");
}

TEST_F(DocumentOnHost, AsksNothingForAHeaderThatNobodyReads) {
  Output({"disks"});
  EXPECT_THAT(CallsOf("GetComputerNameExW"), IsEmpty());

  Output({"disks", "--json"});
  EXPECT_THAT(CallsOf("GetComputerNameExW"), SizeIs(1));
}

TEST(DocumentWithoutAHost, HasAHeaderAllTheSame) {
  if (MachineHost() != nullptr) GTEST_SKIP() << "this platform has a machine to ask";
  const CliResult result = RunCli({"--json", "frobnicate"});

  const json header = json::parse(result.out).at("header");
  EXPECT_TRUE(header.at("host").is_null());
  EXPECT_TRUE(header.at("process").is_null());
  EXPECT_NE(header.at("start"), kStart);
}

// Failures

TEST_F(DocumentOnHost, OfAMistypedCommandTellsTheMistake) {
  const json document = Failure({"disk"}, 2);

  EXPECT_EQ("varnelctl: " + document.at("result").at("message").get<std::string>() + "\n", err);
  EXPECT_EQ(document.at("result").at("alertCode"), 0);
  EXPECT_TRUE(document.at("result").at("hresult").is_null());
  EXPECT_EQ(document.at("errorDetails"), "");
}

TEST_F(DocumentOnHost, OfAFailedParserIsPrintedWhereverJsonStands) {
  for (const Arguments& arguments :
       std::vector<Arguments>{{"--json"}, {"disks", "--json", "--frobnicate"}, {"snapshot", "--app", "x", "--json"}}) {
    const CliResult result = Run(arguments);
    EXPECT_EQ(result.status, 2);
    ExpectOnlyTrouble(result);
  }
}

TEST_F(DocumentOnHost, OfAHostFileThatCannotBeReadNamesIt) {
  const std::string file = folder.Write("bad.json", "{");
  const json document = Failure({"disks", "--host", file}, 2);

  EXPECT_THAT(document.at("result").at("message").get<std::string>(), StartsWith(file + ": /: "));
}

TEST_F(DocumentOnHost, OfARefusedOptionHasTheHeaderOfTheSet) {
  const json document = Failure({"snapshot", "--app", "sql", "--disk", "TSL0001", "--skip-db-verification"}, 2);

  EXPECT_EQ(document.at("header").at("disks"), json({"TSL0001"}));
  EXPECT_EQ(document.at("header").at("host"), "HOST");
}

TEST_F(DocumentOnHost, OfAFailedCallHasItsResultAndTheAlertRecord) {
  host().faults().FailAsync("GatherWriterMetadata", VSS_E_WRITER_INFRASTRUCTURE);
  const json document = Failure({"writers"}, 15);

  EXPECT_EQ(document.at("result").at("hresult"), "0x80042318");
  EXPECT_EQ(document.at("errorDetails"),
            "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_WRITER_INFRASTRUCTURE, "
            "rc=SystemError, ca=ContactSupport");
}

TEST_F(DocumentOnHost, IsNotPrintedWhereHelpIsAskedFor) {
  EXPECT_THAT(Output({"--json", "--help"}), Not(StartsWith("{")));
  EXPECT_EQ(Output({"--version", "--json"}), "varnelctl " VARNEL_VERSION "\n");
}

// Warnings

TEST_F(DocumentOnHost, HasTheWarningsOfDisks) {
  FailCall("GetVolumePathNamesForVolumeNameW", ERROR_ACCESS_DENIED, 2);
  const json document = Document({"disks"});

  EXPECT_THAT(CodesIn(document), ElementsAre("mountPointsUnknown"));
  EXPECT_EQ("varnelctl: warning: " + document.at("warnings")[0].at("text").get<std::string>() + "\n", err);
}

TEST_F(DocumentOnHost, HasTheWarningOfWriters) {
  FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED, 0);
  const json document = Document({"writers"});

  EXPECT_EQ(document.at("warnings"), json::parse(R"([{ "code": "disksUnknown",
    "text": "GetSystemDirectoryW() failed with 5; disks are not shown" }])"));
  EXPECT_EQ(err, "varnelctl: warning: GetSystemDirectoryW() failed with 5; disks are not shown\n");
}

class DocumentOfSnapshot : public SnapshotCommand {};

TEST_F(DocumentOfSnapshot, HasTheWarningsOfARequestInTheirOrder) {
  hostFile["providers"] = json::array();
  const json outcome = SnapshotJson({"--verify", "--app", "exchange", "--then", "delete"}, 12);

  EXPECT_THAT(CodesIn(outcome), ElementsAre("providerMissing", "leftOut"));
  EXPECT_EQ(outcome["warnings"][1]["text"], "--then delete is left out: no snapshot set was taken");
}

TEST_F(DocumentOfSnapshot, HasTheWarningAboutAcceptedVolumes) {
  const json outcome = SnapshotJson({"--disk", "TSL0001", "--require", "sales", "--accept-extra-volumes"});

  EXPECT_THAT(CodesIn(outcome), IsEmpty());
  hostFile["writers"][0]["components"].erase(1);
  EXPECT_THAT(CodesIn(SnapshotJson({"--accept-extra-volumes"})), ElementsAre("extraVolumesAccepted"));
}

TEST_F(DocumentOfSnapshot, HasTheWarningAboutADiskThatIsNotThere) {
  const json outcome = SnapshotJson({"--disk", "TSL0001", "XYZ", "--accept-unknown-disks"}, 14);

  EXPECT_THAT(CodesIn(outcome), ElementsAre("diskUnknown"));
}

TEST_F(DocumentOfSnapshot, TellsWhatWentWrongAfterTheRequest) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that takes nothing";
  const json outcome = SnapshotJson({"--calls", "/dev/full"}, 18);

  EXPECT_EQ(outcome["status"], 18);
  EXPECT_EQ(outcome["result"]["message"], "--calls /dev/full was not written whole: No space left on device");
  EXPECT_EQ(outcome["setState"], "released");
}

// Lines

// Counts how often it is flushed, and what it had by then.
class Chunks : public std::stringbuf {
 public:
  std::vector<std::string> chunks;

 protected:
  int sync() override {
    if (!str().empty()) chunks.push_back(str());
    str("");
    return 0;
  }
};

std::vector<json> LinesOfRun(const CliResult& result) {
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'),
            static_cast<std::ptrdiff_t>(DocumentsIn(result.out).size()));
  return DocumentsIn(result.out);
}

// "start", "warning providerMissing", "step adding done", "end"
std::vector<std::string> EventsIn(const std::vector<json>& lines) {
  std::vector<std::string> events;
  for (const json& line : lines) {
    std::string event = line.at("event");
    for (const char* key : {"code", "name", "state"}) {
      if (line.contains(key)) event += " " + line.at(key).get<std::string>();
    }
    events.push_back(event);
  }
  return events;
}

TEST_F(DocumentOfSnapshot, LinesTellEachStepAndEndWithTheWhole) {
  hostFile["providers"] = json::array();
  const std::vector<json> lines = LinesOfRun(Snapshot({"--json-lines"}, 15));

  EXPECT_THAT(
      EventsIn(lines),
      ElementsAre("start", "step lookingForDisks started", "step lookingForDisks done", "step checkingHost started",
                  "step checkingHost done", "step checkingVolumes started", "step checkingVolumes done",
                  "step lookingForProvider started", "warning providerMissing", "step lookingForProvider done",
                  "step starting started", "step starting done", "step gathering started", "step gathering done",
                  "step selecting started", "step selecting done", "step adding started", "step adding failed",
                  "step completing started", "step completing done", "end"));
  EXPECT_EQ(lines.front().at("schema"), "varnelctl/1");
  EXPECT_EQ(lines.back().at("document").at("header"), lines.front().at("header"));
  EXPECT_EQ(lines.back().at("document").at("status"), 15);
}

TEST_F(DocumentOfSnapshot, LinesEndWithTheDocumentThatJsonPrints) {
  json whole = LinesOfRun(Snapshot({"--json-lines"})).back().at("document");
  json printed = SnapshotJson();

  whole.at("header").erase("commandLine");
  printed.at("header").erase("commandLine");
  EXPECT_EQ(whole, printed);
}

TEST_F(DocumentOfSnapshot, LinesTellHowLongAStepTook) {
  hostFile["timing"] = {{"freezeMilliseconds", 1500}};
  const std::vector<json> lines = LinesOfRun(Snapshot({"--json-lines"}));

  const auto ended = std::find_if(lines.begin(), lines.end(), [](const json& line) {
    return line.value("name", "") == "snapshot" && line.value("state", "") != "started";
  });
  ASSERT_NE(ended, lines.end());
  EXPECT_EQ(ended->at("milliseconds"), 1500);
}

TEST_F(DocumentOnHost, EachLineLeavesAtOnce) {
  Chunks chunks;
  std::ostream out(&chunks);
  std::ostringstream trouble;
  varnelctl::RunVarnelctl({"disks", "--json-lines"}, out, trouble);

  ASSERT_THAT(chunks.chunks, SizeIs(2));
  EXPECT_THAT(chunks.chunks[0], StartsWith(R"({"event":"start","schema":"varnelctl/1","header":{"version":)"));
  EXPECT_THAT(chunks.chunks[1], StartsWith(R"({"event":"end","document":{"schema":"varnelctl/1","kind":"disks",)"));
}

TEST_F(DocumentOnHost, LinesOfAMistypedCommandEndWithTheFailure) {
  const CliResult result = Run({"disk", "--json-lines"});

  const std::vector<json> lines = LinesOfRun(result);
  EXPECT_THAT(EventsIn(lines), ElementsAre("start", "end"));
  EXPECT_EQ(lines[1].at("document").at("kind"), "failure");
  EXPECT_EQ(result.status, 2);
}

TEST_F(DocumentOnHost, LinesAndOneDocumentExcludeEachOther) {
  ExpectRefused(Run({"disks", "--json", "--json-lines"}), "varnelctl: --json excludes --json-lines (");
}

// The schema

// Calls `visit` with the place and the value of every schema of an object.
template <class Visit>
void VisitObjects(Visit visit) {
  std::vector<std::pair<std::string, const json*>> left = {{"", &DocumentSchema()}};
  while (!left.empty()) {
    const auto [place, schema] = left.back();
    left.pop_back();
    if (schema->is_object() && schema->contains("properties")) visit(place, *schema);
    if (!schema->is_structured()) continue;
    for (const auto& [key, value] : schema->items()) left.emplace_back(place + "/" + key, &value);
  }
}

TEST(DocumentSchemaTest, DescribesEveryKey) {
  int keys = 0;
  VisitObjects([&](const std::string& place, const json& object) {
    if (place.ends_with("/if")) return;
    for (const auto& [key, value] : object.at("properties").items()) {
      EXPECT_NE(value.value("description", ""), "") << place << ": " << key;
      ++keys;
    }
  });
  EXPECT_GT(keys, 100);
}

TEST(DocumentSchemaTest, KnowsEveryKeyOfAnObjectAndRequiresOnlyThose) {
  VisitObjects([](const std::string& place, const json& object) {
    if (place == "/definitions/document" || place == "/definitions/event" || place.ends_with("/if")) return;
    EXPECT_EQ(object.value("additionalProperties", json()), false) << place;
    for (const json& key : object.at("required")) EXPECT_TRUE(object.at("properties").contains(key)) << place << key;
  });
}

TEST(DocumentSchemaTest, IsTheVersionThatDocumentsName) {
  const json document = json::parse(RunCli({"--json", "frobnicate"}).out);
  EXPECT_EQ(DocumentSchema().at("definitions").at("failureDocument").at("properties").at("schema").at("const"),
            document.at("schema"));
}

TEST_F(DocumentOnHost, WithAKeyThatTheSchemaDoesNotKnowIsRefusedByItsName) {
  json document = Document({"disks"});
  EXPECT_THAT(SchemaErrors(document), IsEmpty());

  document["disks"][1]["colour"] = "grey";
  EXPECT_THAT(SchemaErrors(document), Contains(testing::AllOf(HasSubstr("[disks][1]: "), HasSubstr("'colour'"))));
  document = Document({"disks"});
  document["header"].erase("process");
  EXPECT_THAT(SchemaErrors(document), Contains(HasSubstr("'process'")));
  document = Document({"disks"});
  document["kind"] = "dusks";
  EXPECT_THAT(SchemaErrors(document), Contains(StartsWith("<root>[kind]: ")));
}

TEST_F(DocumentOfSnapshot, HasACatalogueOfItsOwnThatTheSchemaDescribes) {
  const std::string file = folder.File("catalog.json");
  const json outcome = SnapshotJson({"--catalog", file});

  EXPECT_EQ(json::parse(ReadFile(file)), outcome.at("catalog"));
}

}  // namespace
}  // namespace varnel::test
