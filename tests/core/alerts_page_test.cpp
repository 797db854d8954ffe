// docs/alerts.md states every alert record, reason, action, code and message as the library has them.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "requestors/HyperVReq.h"
#include "resources/catalog.h"
#include "tests/core/alert_examples.h"
#include "tests/support/golden.h"
#include "tests/support/host_fixture.h"

namespace varnel::test {
namespace {

// The lines below a heading, up to the next one of its rank or a higher one.
Lines Section(const Lines& page, const std::string& heading) {
  const std::string rank = heading.substr(0, heading.find(' '));
  Lines section;
  bool inside = false;
  for (const std::string& line : page) {
    const std::size_t hashes = line.find_first_not_of('#');
    const bool ends = hashes != line.npos && hashes > 0 && hashes <= rank.size() && line[hashes] == ' ';
    if (inside && ends) break;
    if (inside) section.push_back(line);
    inside = inside || line == heading;
  }
  return section;
}

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

using Row = std::vector<std::string>;

// The rows of every table in the lines, without their head; a cell is what stands between two bars.
std::vector<Row> Rows(const Lines& lines) {
  std::vector<Row> rows;
  bool body = false;
  for (const std::string& line : lines) {
    if (!line.starts_with("|")) {
      body = false;
      continue;
    }
    if (line.starts_with("|---")) {
      body = true;
      continue;
    }
    if (!body) continue;
    Row row;
    for (std::size_t begin = 1; begin < line.size();) {
      const std::size_t end = std::min(line.find('|', begin), line.size());
      row.push_back(Trimmed(line.substr(begin, end - begin)));
      begin = end + 1;
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

// A text as the page shows it: line breaks as "\n".
std::string Shown(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (c == '\n') {
      shown += "\\n";
    } else {
      shown += c;
    }
  }
  return shown;
}

std::string Code(std::string_view text) {
  return "`" + Shown(text) + "`";
}

// What the page says of one record.
struct RecordOnPage {
  std::string example;
  std::map<std::string, std::string> rows;
};

RecordOnPage ReadRecord(const Lines& section) {
  RecordOnPage record;
  const auto fence = std::find(section.begin(), section.end(), "```text");
  if (fence != section.end() && fence + 1 != section.end()) record.example = *(fence + 1);
  for (const Row& row : Rows(section)) record.rows.emplace(row.at(0), row.at(1));
  return record;
}

// The keys of a record's details, in order: what is neither its first field nor its reason and actions.
Lines DetailKeys(const AlertRecord& record) {
  const std::set<std::string> others = {"status", "RequestStatus", "rc", "ca"};
  const AlertParts parts = PartsOf(record);
  const std::string text = parts.Join(Lines(parts.values.size()));
  Lines keys;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(", ", begin), text.size());
    const std::string field = text.substr(begin, end - begin);
    const std::string key = Trimmed(field.substr(0, field.find('=')));
    const bool isDetail = field.find('=') != field.npos && !key.empty() && !others.contains(key);
    if (isDetail) keys.push_back(key);
    begin = end + 2;
  }
  return keys;
}

// The values of a key over all records: of "rc", every reason.
std::set<std::string> WordsOf(const std::string& key) {
  std::set<std::string> words;
  for (const AlertRecord* record : alert::All()) {
    const std::string format = record->format;
    const std::string mark = " " + key + "=";
    for (std::size_t at = format.find(mark); at != format.npos; at = format.find(mark, at + 1)) {
      const std::size_t begin = at + mark.size();
      words.insert(format.substr(begin, std::min(format.find_first_of(",;", begin), format.size()) - begin));
    }
  }
  return words;
}

std::string CatalogText(int id) {
  for (const CatalogEntry& entry : Catalog()) {
    if (entry.id == id) return WideToUtf8(entry.text);
  }
  return "there is no such message";
}

class AlertPage : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(page_.empty()) << "docs/alerts.md cannot be read";
    for (const std::string& line : Section(page_, "## The records")) {
      if (line.starts_with("### ")) headings_.push_back(line);
    }
    ASSERT_THAT(headings_, SizeIs(alert::All().size()));
  }
  const AlertRecord& record(std::size_t i) const { return *alert::All()[i]; }
  Lines section(std::size_t i) const { return Section(page_, headings_.at(i)); }
  std::string row(std::size_t i, const std::string& name) const {
    const RecordOnPage record = ReadRecord(section(i));
    const auto found = record.rows.find(name);
    return found == record.rows.end() ? "there is no such row" : found->second;
  }

  const Lines page_ = LinesOf(ReadText(std::filesystem::path(VARNEL_DOCS_DIR) / "alerts.md"));
  Lines headings_;
};

TEST_F(AlertPage, NumbersTheRecordsInTheOrderOfTheTable) {
  for (std::size_t i = 0; i < headings_.size(); ++i) {
    EXPECT_THAT(headings_[i], StartsWith("### " + std::to_string(i + 1) + ". "));
  }
}

TEST_F(AlertPage, StatesEveryRecordAsTheTableHasIt) {
  for (std::size_t i = 0; i < headings_.size(); ++i) {
    SCOPED_TRACE(headings_[i]);
    EXPECT_EQ(row(i, "format"), Code(record(i).format));
    EXPECT_THAT(row(i, "tag"), StartsWith(record(i).tag == nullptr ? "none" : Code(record(i).tag)));
    EXPECT_THAT(row(i, "ending"), StartsWith(*record(i).ending == '\0' ? "none" : Code(record(i).ending)));
    EXPECT_EQ(row(i, "longest"), std::to_string(record(i).bytes - 1));
    const std::string level = record(i).category == CFileLog::Warning ? "warning" : "error";
    EXPECT_EQ(row(i, "log"), level + ", `\"" + WideToUtf8(record(i).logFormat) + "\"`");
  }
}

TEST_F(AlertPage, ShowsWhatTheLibraryWrites) {
  ASSERT_THAT(ExampleValues(), SizeIs(headings_.size()));
  for (std::size_t i = 0; i < headings_.size(); ++i) {
    SCOPED_TRACE(headings_[i]);
    std::string written;
    WriteAlertWith(record(i), ExampleValues()[i], written);
    if (written.ends_with('\n')) written.pop_back();
    EXPECT_EQ(ReadRecord(section(i)).example, written);
  }
}

TEST_F(AlertPage, ExplainsEveryFieldOfEveryRecord) {
  for (std::size_t i = 0; i < headings_.size(); ++i) {
    SCOPED_TRACE(headings_[i]);
    Lines explained;
    for (const Row& row : Rows(section(i))) {
      const bool isKey = row.at(0).starts_with('`') && row.at(0).ends_with('`');
      if (isKey) explained.push_back(row.at(0).substr(1, row.at(0).size() - 2));
    }
    EXPECT_EQ(explained, DetailKeys(record(i)));
  }
}

TEST_F(AlertPage, SaysOfEveryRecordWhenItIsWrittenWhatFollowsAndWhatToDo) {
  for (std::size_t i = 0; i < headings_.size(); ++i) {
    SCOPED_TRACE(headings_[i]);
    EXPECT_THAT(section(i), Contains(StartsWith("- Written when: ")));
    EXPECT_THAT(section(i), Contains(StartsWith("- What follows: ")));
    EXPECT_THAT(section(i), Contains(StartsWith("- What to do: ")));
  }
}

TEST_F(AlertPage, ListsEveryReasonAndEveryAction) {
  for (const auto& [heading, key] : {std::pair{"## Reasons", "rc"}, std::pair{"## Actions", "ca"}}) {
    std::set<std::string> listed;
    for (const Row& row : Rows(Section(page_, heading))) listed.insert(row.at(0));
    std::set<std::string> used;
    for (const std::string& word : WordsOf(key)) used.insert(Code(word));
    EXPECT_EQ(listed, used) << heading;
  }
}

TEST_F(AlertPage, ListsEveryAlertCodeByItsName) {
  std::map<std::string, std::string> listed;
  for (const Row& row : Rows(Section(page_, "## Alert codes"))) listed.emplace(row.at(0), row.at(1));
  const std::map<std::string, std::string> codes = {
      {std::to_string(VarnelException::WriterFailure), "`WriterFailure`"},
      {std::to_string(VarnelException::PartialSuccess), "`PartialSuccess`"},
      {std::to_string(VarnelException::ConfigurationError), "`ConfigurationError`"},
      {std::to_string(VarnelException::VerificationFailure), "`VerificationFailure`"},
      {std::to_string(VarnelException::ExtraVolumes), "`ExtraVolumes`"}};
  EXPECT_EQ(listed, codes);
  EXPECT_TRUE(listed.contains("600") && listed.contains("603") && listed.contains("701"));
}

TEST_F(AlertPage, GivesTheMessagesOfTheCatalog) {
  std::set<std::string> listed;
  for (const Row& row : Rows(Section(page_, "## Messages"))) {
    EXPECT_EQ(row.at(1), Code(CatalogText(std::stoi(row.at(0)))));
    EXPECT_TRUE(listed.insert(row.at(0)).second) << row.at(0) << " stands there twice";
  }
  // Those below are the host agent's own.
  for (const CatalogEntry& entry : Catalog()) {
    if (entry.id < 107 || entry.id >= 250) continue;
    EXPECT_EQ(listed.count(std::to_string(entry.id)), 1u) << entry.id;
  }
}

TEST_F(AlertPage, GivesTheValidationResultsWithTheirRecords) {
  const std::map<std::string, const AlertRecord*> records = {
      {"250", &alert::kMixedCsv},     {"251", &alert::kClusterDisk},   {"252", &alert::kValidationException},
      {"253", &alert::kMixedCluster}, {"254", &alert::kUnsupportedOs}, {"255", &alert::kMissingHotfixes}};
  std::set<std::string> listed;
  for (const Row& row : Rows(Section(page_, "## Validation results"))) {
    SCOPED_TRACE(row.at(0));
    listed.insert(row.at(0));
    ASSERT_TRUE(records.contains(row.at(0)));
    EXPECT_EQ(&record(std::stoul(row.at(1)) - 1), records.at(row.at(0)));
    EXPECT_THAT(section(std::stoul(row.at(1)) - 1), Contains(HasSubstr("returns " + row.at(0))));
    EXPECT_EQ(row.at(2), Code(CatalogText(std::stoi(row.at(0)))));
  }
  EXPECT_THAT(listed, SizeIs(records.size()));
}

}  // namespace
}  // namespace varnel::test
