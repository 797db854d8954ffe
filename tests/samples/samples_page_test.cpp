// docs/samples.md against the sample hosts: it names every one of them, and each command line on it, run in this
// process, ends and prints as the page says; so do those of docs/simulator.md.
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "tests/samples/sample_run.h"
#include "tests/support/golden.h"
#include "tests/varnelctl/cli_support.h"

namespace varnel::test {
namespace {

using testing::ElementsAreArray;
using testing::Not;

struct QuotedCommand {
  std::string line;
  std::optional<int> status;
  std::vector<std::string> shown;  // "..." stands for lines left out, and at the end of a line for the rest of it
  std::vector<std::string> calls;  // lines of the call log
};

// Both by file name.
struct SamplesPage {
  std::map<std::string, std::vector<QuotedCommand>> sections;
  std::map<std::string, std::vector<int>> tableStatuses;  // the last column of the table
};

std::vector<std::string> SplitAtBlanks(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// The text between the first two of `mark`; empty without them.
std::string Between(const std::string& line, char mark) {
  const std::size_t begin = line.find(mark);
  const std::size_t end = begin == line.npos ? line.npos : line.find(mark, begin + 1);
  return end == line.npos ? std::string() : line.substr(begin + 1, end - begin - 1);
}

std::vector<int> Numbers(const std::string& text) {
  std::vector<int> numbers;
  for (std::string word : SplitAtBlanks(text)) {
    if (word.back() == ',') word.pop_back();
    if (!word.empty() && word.find_first_not_of("0123456789") == word.npos) numbers.push_back(std::stoi(word));
  }
  return numbers;
}

class PageReader {
 public:
  SamplesPage Read(const std::string& text) {
    for (const std::string& line : LinesOf(text)) ReadLine(line);
    return std::move(page_);
  }

 private:
  void ReadLine(const std::string& line) {
    if (line.starts_with("```")) {
      block_ = block_.empty() && line.size() > 3 ? line.substr(3) : std::string();
    } else if (!block_.empty()) {
      ReadBlockLine(line);
    } else if (line.starts_with("## `")) {
      section_ = &page_.sections[Between(line, '`')];
    } else if (line.starts_with("### ")) {
      section_ = &page_.sections[line.substr(4)];
    } else if (line.starts_with("| [`")) {
      const std::size_t lastColumn = line.rfind('|', line.size() - 2);
      page_.tableStatuses[Between(line, '`')] = Numbers(line.substr(lastColumn + 1, line.size() - lastColumn - 2));
    } else if (line.starts_with("Exit status ") && section_ != nullptr && !section_->empty()) {
      const std::vector<int> numbers = Numbers(line.substr(0, line.find('.')));
      if (!numbers.empty()) section_->back().status = numbers.front();
    }
  }

  void ReadBlockLine(const std::string& line) {
    if (section_ == nullptr) return;
    if (block_ == "sh") section_->push_back({line, std::nullopt, {}, {}});
    if (block_ == "text") section_->back().shown.push_back(line);
    if (block_ == "calls") section_->back().calls.push_back(line);
  }

  SamplesPage page_;
  std::vector<QuotedCommand>* section_ = nullptr;
  std::string block_;  // the language of the open block
};

SamplesPage ReadPage(const char* name = "samples.md") {
  return PageReader().Read(ReadText(std::filesystem::path(VARNEL_DOCS) / name));
}

std::set<std::string> SampleFiles() {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(SampleFolder())) {
    if (entry.path().extension() == ".json") files.insert(entry.path().filename().string());
  }
  return files;
}

// The page's paths are those of the checkout, but for files that a command makes, which are put into `folder`.
// What is printed is as on a terminal, which shows both streams.
CliResult RunQuoted(const std::string& command, const TemporaryFolder& folder) {
  constexpr std::string_view kFolder = "examples/";
  Arguments arguments = SplitAtBlanks(command);
  arguments.erase(arguments.begin());
  for (std::string& argument : arguments) {
    if (argument.starts_with(kFolder)) argument = VARNEL_EXAMPLES "/" + argument.substr(kFolder.size());
    if (argument == "calls.txt" || argument == "state.json") argument = folder.File(argument);
  }
  std::ostringstream terminal;
  const int status = varnelctl::RunVarnelctl(std::move(arguments), terminal, terminal);
  return {status, terminal.str(), "", ""};
}

bool Matches(const std::string& shown, const std::string& line) {
  constexpr std::string_view kRest = "...";
  if (!shown.ends_with(kRest)) return line == shown;
  return line.starts_with(shown.substr(0, shown.size() - kRest.size()));
}

// The lines that the run did not print, or not in this order.
std::vector<std::string> Missing(const std::vector<std::string>& shown, const std::vector<std::string>& printed) {
  std::vector<std::string> missing;
  auto at = printed.begin();
  for (const std::string& line : shown) {
    if (line == "...") continue;
    const auto found = std::find_if(at, printed.end(), [&](const std::string& text) { return Matches(line, text); });
    if (found == printed.end()) {
      missing.push_back(line);
    } else {
      at = found + 1;
    }
  }
  return missing;
}

TEST(SamplesPage, HasASectionAndATableRowForEverySampleHost) {
  const SamplesPage page = ReadPage();
  std::set<std::string> sections;
  std::set<std::string> rows;
  for (const auto& [file, section] : page.sections) sections.insert(file);
  for (const auto& [file, statuses] : page.tableStatuses) rows.insert(file);

  EXPECT_EQ(sections, SampleFiles());
  EXPECT_EQ(rows, SampleFiles());
}

TEST(SamplesPage, EverySampleHostLoads) {
  for (const std::string& file : SampleFiles()) {
    SCOPED_TRACE(file);
    EXPECT_NO_THROW(simulator::LoadHostFile(SampleFolder() / file));
  }
}

TEST(SamplesPage, TheTableTellsTheExitStatusesOfTheSections) {
  const SamplesPage page = ReadPage();
  for (const auto& [file, section] : page.sections) {
    SCOPED_TRACE(file);
    std::vector<int> statuses;
    for (const QuotedCommand& command : section) {
      if (command.status) statuses.push_back(*command.status);
    }
    ASSERT_TRUE(page.tableStatuses.contains(file));
    EXPECT_THAT(statuses, ElementsAreArray(page.tableStatuses.at(file)));
  }
}

void ExpectAsQuoted(const QuotedCommand& command, const TemporaryFolder& folder) {
  SCOPED_TRACE(command.line);
  ASSERT_TRUE(command.status) << "the page does not say how it ends";
  EXPECT_THAT(command.shown, Not(IsEmpty())) << "the page does not say what it prints";
  const CliResult result = RunQuoted(command.line, folder);
  EXPECT_EQ(result.status, *command.status);
  EXPECT_THAT(Missing(command.shown, LinesOf(result.out)), IsEmpty()) << result.out;
  EXPECT_TRUE(Matches(command.shown.back(), LinesOf(result.out).back())) << result.out;
  if (command.calls.empty()) return;
  EXPECT_THAT(Missing(command.calls, LinesOf(ReadText(PathOf(folder.File("calls.txt"))))), IsEmpty());
}

TEST(SamplesPage, EveryCommandEndsAndPrintsAsThePageSays) {
  const TemporaryFolder folder;
  for (const auto& [file, section] : ReadPage().sections) {
    EXPECT_THAT(section, Not(IsEmpty())) << file;
    for (const QuotedCommand& command : section) {
      EXPECT_TRUE(command.line.starts_with("varnelctl --host examples/hosts/" + file + " ")) << command.line;
      ExpectAsQuoted(command, folder);
    }
  }
}

TEST(SimulatorPage, EveryCommandEndsAndPrintsAsThePageSays) {
  int commands = 0;
  for (const auto& [title, section] : ReadPage("simulator.md").sections) {
    const TemporaryFolder folder;
    for (const QuotedCommand& command : section) {
      ExpectAsQuoted(command, folder);
      ++commands;
    }
  }
  EXPECT_EQ(commands, 4);
}

}  // namespace
}  // namespace varnel::test
