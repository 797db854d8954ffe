#include "varnelctl/console/layout.h"

#include <algorithm>
#include <array>
#include <vector>

namespace varnelctl {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Combining marks, joiners and selectors.
constexpr std::array kWithoutWidth = {Range{0x0300, 0x036F}, Range{0x200B, 0x200D}, Range{0x20D0, 0x20F0},
                                      Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F}, Range{0xFEFF, 0xFEFF}};
// East Asian scripts, full-width forms and pictures.
constexpr std::array kWide = {Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},   Range{0x3041, 0xA4CF},
                              Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},   Range{0xFE30, 0xFE6F},
                              Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},   Range{0x1F300, 0x1F64F},
                              Range{0x1F680, 0x1F6FF}, Range{0x1F900, 0x1F9FF}, Range{0x20000, 0x3FFFD}};

template <std::size_t n>
bool IsIn(const std::array<Range, n>& ranges, char32_t c) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [c](const Range& range) { return c >= range.first && c <= range.last; });
}

int WidthOf(char32_t c) {
  if (IsIn(kWithoutWidth, c)) return 0;
  return IsIn(kWide, c) ? 2 : 1;
}

constexpr bool ContinuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// The bytes of the first character.
std::size_t LengthOfFirst(std::string_view text) {
  std::size_t length = 1;
  while (length < text.size() && ContinuesCharacter(text[length])) ++length;
  return length;
}

// Of valid UTF-8.
char32_t Decode(std::string_view character) {
  const auto lead = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return lead;
  char32_t code = lead & (0x7FU >> character.size());
  for (const char c : character.substr(1)) code = code << 6U | (static_cast<unsigned char>(c) & 0x3FU);
  return code;
}

// A word and the blanks before it.
struct Word {
  std::size_t blanks;
  std::string_view text;
};

// Where the word at the start of `text` ends. A text in quotes is part of one word.
std::size_t EndOfWord(std::string_view text, int columns) {
  std::size_t end = 0;
  while (end < text.size() && text[end] != ' ') {
    if (text[end] != '"') {
      ++end;
      continue;
    }
    const std::size_t quote = text.find('"', end + 1);
    const bool whole = quote != text.npos && ColumnsOf(text.substr(end, quote + 1 - end)) <= columns;
    end = whole ? quote + 1 : end + 1;
  }
  return end;
}

std::vector<Word> WordsOf(std::string_view line, int columns) {
  std::vector<Word> words;
  while (!line.empty()) {
    const std::size_t blanks = std::min(line.find_first_not_of(' '), line.size());
    line.remove_prefix(blanks);
    const std::size_t end = EndOfWord(line, columns);
    if (end != 0) words.push_back({blanks, line.substr(0, end)});
    line.remove_prefix(end);
  }
  return words;
}

// Wraps one line that is too long.
class Wrapper {
 public:
  Wrapper(std::string_view line, int columns) : columns_(columns), words_(WordsOf(line, columns)) {
    const int margin = words_.empty() ? 0 : static_cast<int>(words_[0].blanks);
    const bool isColumn = margin > kDeepest;  // of a table, whose text goes on below itself
    margin_ = margin > columns / 2 ? kBelowLabel : margin;
    indent_ = isColumn ? margin_ : margin_ + 2;
  }

  std::string Wrap() {
    StartLine(margin_);
    for (std::size_t i = 0; i < words_.size(); ++i) Append(words_[i], i == 0);
    return std::move(result_);
  }

 private:
  static constexpr int kBelowLabel = 6;  // the margin of what does not fit beside its label
  static constexpr int kDeepest = 12;    // margin of a list

  void StartLine(int indent) {
    result_.append(static_cast<std::size_t>(indent), ' ');
    at_ = indent;
    isEmpty_ = true;
  }

  // A word that is too long for its indent stands further left.
  void BreakLine(int width) {
    result_ += '\n';
    StartLine(std::clamp(columns_ - width, std::min(margin_, indent_), indent_));
  }

  void Append(const Word& word, bool isFirst) {
    const int width = ColumnsOf(word.text);
    const int column = at_ + static_cast<int>(word.blanks);
    // The first gap parts a label from what it stands for.
    const bool endsLabel = !isFirst && !labelled_ && word.blanks > 1;
    const bool isBeside = column <= columns_ / 2;
    if (endsLabel) indent_ = isBeside ? column : margin_ + 4;
    labelled_ = labelled_ || endsLabel;
    if (!isEmpty_ && (column + width > columns_ || (endsLabel && !isBeside))) BreakLine(width);
    const std::size_t blanks = isEmpty_ ? 0 : word.blanks;
    result_.append(blanks, ' ').append(word.text);
    at_ += static_cast<int>(blanks) + width;
    isEmpty_ = false;
  }

  const int columns_;
  const std::vector<Word> words_;
  int margin_;  // of the first line
  int indent_;  // of the others
  std::string result_;
  int at_ = 0;  // the column
  bool isEmpty_ = true;
  bool labelled_ = false;
};

}  // namespace

int ColumnsOf(std::string_view text) {
  int columns = 0;
  while (!text.empty()) {
    const std::size_t length = LengthOfFirst(text);
    columns += WidthOf(Decode(text.substr(0, length)));
    text.remove_prefix(length);
  }
  return columns;
}

std::string_view FirstColumns(std::string_view text, int columns) {
  std::size_t end = 0;
  while (end < text.size()) {
    const std::size_t length = LengthOfFirst(text.substr(end));
    columns -= WidthOf(Decode(text.substr(end, length)));
    if (columns < 0) break;
    end += length;
  }
  return text.substr(0, end);
}

std::string Wrapped(std::string_view text, int columns) {
  if (columns == 0) return std::string(text);
  std::string wrapped;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    wrapped += ColumnsOf(line) <= columns ? std::string(line) : Wrapper(line, columns).Wrap();
    if (end == text.size()) break;
    wrapped += '\n';
    text.remove_prefix(end + 1);
  }
  return wrapped;
}

}  // namespace varnelctl
