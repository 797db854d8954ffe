// Evidence without names: --anonymise.
#include "simulator/host_file/documents.h"
#include "tests/varnelctl/evidence_support.h"
#include "tests/varnelctl/started_program.h"
#include "varnelctl/evidence/names.h"

namespace varnel::test {
namespace {

using nlohmann::json;

std::string InSmallLetters(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool IsWordByte(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || static_cast<unsigned char>(c) >= 0x80;
}

// Whether a text stands whole in another, in any case.
bool StandsIn(const std::string& name, const std::string& text) {
  for (std::size_t at = text.find(name); at != text.npos; at = text.find(name, at + 1)) {
    const bool begins = at == 0 || !IsWordByte(text[at - 1]);
    const bool ends = at + name.size() == text.size() || !IsWordByte(text[at + name.size()]);
    if (begins && ends) return true;
  }
  return false;
}

class EvidenceNames : public EvidenceFixture {
 protected:
  json Key() const { return json::parse(ReadFile(evidence + ".key.json")).at("names"); }
  std::string ReplacementOf(const std::string& original) const {
    for (const json& name : Key()) {
      if (name.at("original") == original) return name.at("replacement");
    }
    return "";
  }
  /// None of these stands in any file of the evidence, in whatever case.
  void ExpectNone(const std::vector<std::string>& names) const {
    for (const auto& [file, content] : FilesIn(evidence)) {
      const std::string text = InSmallLetters(content);
      for (const std::string& name : names) {
        EXPECT_FALSE(StandsIn(InSmallLetters(name), text)) << name << " in " << file;
      }
    }
  }
  /// Nor does any of those in the key, but for the folders on the command line: pages may have words like theirs.
  void ExpectNoOriginal() const {
    std::vector<std::string> originals;
    const std::string folders = VARNEL_EXAMPLES "/hosts/" + folder.File("journal");
    for (const json& name : Key()) {
      const std::string original = name.at("original");
      if (original != "evidence" && !StandsIn(original, folders)) originals.push_back(original);
    }
    EXPECT_THAT(originals, testing::Not(testing::IsEmpty()));
    ExpectNone(originals);
  }
  CliResult RunOnSample(const std::string& host, const Arguments& request) const {
    Arguments arguments = {"--host",     VARNEL_EXAMPLES "/hosts/" + host + ".json", "snapshot", "--evidence", evidence,
                           "--anonymise"};
    arguments.insert(arguments.end(), request.begin(), request.end());
    return RunCli(arguments);
  }
};

TEST_F(EvidenceNames, OfAFailedRunAreInNoFile) {
  EXPECT_EQ(RunOnSample("sql-server-freeze-timeout", {"--app", "sql", "--disk", "TSL0001", "TSL0003"}).status, 10);

  ExpectNone({"SQL01", "sales", "crm", "TSL0001", "TSL0003", "LOCAL-SSD-0001"});
  ExpectNoOriginal();
  EXPECT_TRUE(Shows(FileOfEvidence("log.txt"), ReplacementOf("sales")));
  EXPECT_TRUE(Shows(FileOfEvidence("calls.txt"), ReplacementOf("sales")));
  EXPECT_TRUE(Shows(FileOfEvidence("writer-01-SqlServerWriter.xml"), ReplacementOf("sales")));
  EXPECT_TRUE(Shows(FileOfEvidence("disks.json"), ReplacementOf("TSL0001")));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "SqlServerWriter failed to freeze"));
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "Who made this folder has the key."));
}

TEST_F(EvidenceNames, OfAGoodRunAreInNoFile) {
  const CliResult result =
      RunOnSample("sql-server", {"--app", "sql", "--disk", "TSL0001", "TSL0002", "TSL0003", "--json", "--context",
                                 "app-rollback", "--journal", folder.File("journal")});
  EXPECT_EQ(result.status, 0) << result.err;

  ExpectNone(
      {"SQL01", "PROD", "sales", "orders", "archive", "tools", "TSL0001", "TSL0002", "TSL0004", "SHADOW-TSL0001"});
  ExpectNoOriginal();
  const json run = JsonOfEvidence("run.json");
  EXPECT_EQ(run.at("catalog").size(), json::parse(result.out).at("catalog").size());
  EXPECT_TRUE(run.at("catalog").contains(ReplacementOf("TSL0001")));
  EXPECT_THAT(SchemaErrors(run), testing::IsEmpty());
}

TEST_F(EvidenceNames, OfVirtualMachinesAndMailboxesAreInNoFile) {
  EXPECT_EQ(RunOnSample("hyperv-one-of-twenty", {"--app", "hyperv", "--disk", "TSL2001", "TSL2002"}).status, 11);
  ExpectNone({"MAIL01", "WEB01", "TSL2001", "1E07EA63-524C-498F-94DC-77A72ED0D50A"});
  ExpectNoOriginal();
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "The guest of " + ReplacementOf("MAIL01") + " has no room"));
}

TEST_F(EvidenceNames, OfAnExchangeServerAreInNoFile) {
  EXPECT_EQ(RunOnSample("exchange-damaged", {"--app", "exchange", "--disk", "TSL1001", "TSL1002", "--verify"}).status,
            13);
  ExpectNone({"Mailbox Database 2", "MDB2", "TSL1001"});
  ExpectNoOriginal();
}

TEST_F(EvidenceNames, InEventsAreReplacedAndTheirBinaryDataIsLeftOut) {
  hostFile["events"] = json::array({{{"channel", "Application"},
                                     {"source", "VSS"},
                                     {"id", 12289},
                                     {"time", "2026-01-01T00:00:00Z"},
                                     {"texts", {"crm on SQL01"}},
                                     {"data", "63726D"},
                                     {"message", "The files of crm on SQL01 cannot be read"}}});

  SnapshotWithEvidence({"--anonymise"});

  ExpectNone({"crm", "SQL01"});
  EXPECT_THAT(FileOfEvidence("events-Application.txt"),
              HasSubstr("The files of " + ReplacementOf("crm") + " on " + ReplacementOf("SQL01")));
  EXPECT_THAT(FileOfEvidence("events-Application.xml"), testing::AllOf(HasSubstr("VSS"), Not(HasSubstr("63726D"))));
}

TEST_F(EvidenceNames, OfFilesOnTheCommandLineAreReplaced) {
  SnapshotWithEvidence({"--anonymise", "--document", folder.File("Contoso backup.xml")});

  ExpectNone({"Contoso backup"});
}

TEST_F(EvidenceNames, HaveAKeyBesideTheFolderThatStaysThere) {
  const CliResult result = SnapshotWithEvidence({"--anonymise"});

  EXPECT_THAT(result.err, HasSubstr("the key to the names in the evidence is " + evidence +
                                    ".key.json; it stays with you, do not send it"));
  EXPECT_NE(ReplacementOf("sales"), "");
#ifndef _WIN32
  EXPECT_EQ(std::filesystem::status(PathOf(evidence + ".key.json")).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
#endif
}

TEST_F(EvidenceNames, AreNotReplacedOverAnEarlierKey) {
  folder.Write("evidence.key.json", "mine");

  ExpectRefused(Run(Whole({"--evidence", evidence, "--anonymise"})),
                "varnelctl: --anonymise: " + evidence + ".key.json is there already");

  EXPECT_EQ(ReadFile(evidence + ".key.json"), "mine");
  EXPECT_FALSE(std::filesystem::exists(PathOf(evidence)));
}

TEST_F(EvidenceNames, AreNotReplacedWithoutEvidence) {
  ExpectRefused(Run(Whole({"--anonymise"})), "varnelctl: --anonymise");
}

// What nobody looked through is not sent.
TEST(EvidenceDocuments, ThatCannotBeReadAreTakenOut) {
  const std::string document =
      simulator::FormatWriterMetadata({.name = L"Demo Writer", .components = {{.name = L"crm"}}});
  std::vector<varnelctl::EvidenceFile> files = {{"writer-01-A.xml", "A", document, ""},
                                                {"writer-02-B.xml", "B", "<WRITER_METADATA sales", ""},
                                                {"backup.xml", "Backup", "<other/>", ""}};
  std::vector<simulator::Writer> writers;

  varnelctl::ReadWriterDocuments(files, writers);

  EXPECT_EQ(files[0].content, document);
  EXPECT_EQ(files[1].content, "");
  EXPECT_THAT(files[1].whyNot, StartsWith("the names in it cannot be found out: "));
  EXPECT_EQ(files[2].content, "<other/>");
  ASSERT_EQ(writers.size(), 1);
  EXPECT_EQ(writers[0].components.at(0).name, L"crm");
}

TEST_F(EvidenceNames, OfARunThatHungKeepItsLogOut) {
  hostFile["faults"] = json::array({{{"call", "IVssBackupComponents::DoSnapshotSet"}, {"hangs", true}}});
  StartedProgram program(folder, "hung", hostFile, Whole({"--deadline", "1", "--evidence", evidence, "--anonymise"}));

  EXPECT_EQ(program.Wait(), 17);

  EXPECT_THAT(WhyNot(evidence, "log.txt"), HasSubstr("the names in it could not be found out"));
  EXPECT_THAT(WhyNot(evidence, "calls.txt"), HasSubstr("the names in it could not be found out"));
  ExpectNone({"SQL01", "sales", "crm", "TSL0001"});
  EXPECT_TRUE(Shows(FileOfEvidence("index.html"), "IVssBackupComponents::DoSnapshotSet does not return"));
}

}  // namespace
}  // namespace varnel::test
