#include "varnelctl/report/selection_text.h"

#include <algorithm>

#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/not_in_set.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

// More lines of one kind are for --verbose.
constexpr std::size_t kLinesShown = 10;

std::string DisksOf(const VssComponent& component) {
  const std::string disks =
      SerialNumberList({component.affectedSerialNumbers.begin(), component.affectedSerialNumbers.end()});
  return disks.empty() ? disks : "  on " + disks;
}

// One line per captured component that `wanted` holds for, under its writer's name.
template <class Wanted>
std::size_t PrintComponents(Console& console, const Explanation& explanation, Wanted wanted) {
  std::size_t count = 0;
  for (const WriterExplanation& writer : explanation) {
    bool named = false;
    for (const ComponentExplanation& explained : writer.components) {
      const VssComponent& component = *explained.component;
      const bool captured = explained.place != Place::LeftOut && explained.place != Place::Container;
      if (!captured || !wanted(component)) continue;
      if (!named) console.Line("  " + Printable(writer.writer->name));
      named = true;
      ++count;
      std::string line = "    " + Printable(component.fullPath) + DisksOf(component);
      if (varnel::HasFailed(component)) {
        line += ": " + FailureName(component);
      }
      console.Line(line);
    }
  }
  return count;
}

// The lines under a heading, which stands only where there are some.
class Section {
 public:
  Section(Console& console, const char* heading) : console_(console), heading_(heading) {}
  void Line(const std::string& text) {
    if (heading_ != nullptr) console_.Line(heading_);
    heading_ = nullptr;
    console_.Line(text);
  }

 private:
  Console& console_;
  const char* heading_;
};

void PrintLeftOut(Section& section, const WriterExplanation& writer) {
  if (writer.reason != Reason::None && writer.writer != nullptr) {
    section.Line("  " + Printable(writer.writer->name) + ": " + ReasonText(writer));
  }
  bool named = false;
  for (const ComponentExplanation& explained : writer.components) {
    if (explained.place != Place::LeftOut) continue;
    if (!named) section.Line("  " + Printable(writer.writer->name));
    named = true;
    section.Line("    " + Printable(explained.component->fullPath) + ": " + ReasonText(explained));
  }
}

}  // namespace

std::string FailureName(const VssComponent& component) {
  return OneLine(WideToUtf8Lossy(CVarnel::HResult2String(static_cast<long>(component.failureCode))));
}

void PrintCaptured(Console& console, const std::string& heading, const Explanation& explanation) {
  console.Line(heading);
  if (PrintComponents(console, explanation, [](const auto& component) { return !varnel::HasFailed(component); }) == 0) {
    console.Line("  nothing");
  }
  const bool anyFailed = std::any_of(explanation.begin(), explanation.end(), [](const WriterExplanation& writer) {
    return std::any_of(writer.components.begin(), writer.components.end(),
                       [](const auto& explained) { return varnel::HasFailed(*explained.component); });
  });
  if (!anyFailed) return;
  console.Line("In the set, but failed by their writer");
  PrintComponents(console, explanation, varnel::HasFailed);
}

void PrintLeftOut(Console& console, const Explanation& explanation) {
  Section section(console, "Left out");
  for (const WriterExplanation& writer : explanation) PrintLeftOut(section, writer);
}

void PrintLines(Console& console, const std::string& heading, const std::vector<std::string>& lines,
                std::string_view noun, bool verbose) {
  if (lines.empty()) return;
  console.Line(heading);
  const std::size_t shown = verbose || lines.size() <= kLinesShown ? lines.size() : kLinesShown - 1;
  for (std::size_t i = 0; i < shown; ++i) console.Line("  " + lines[i]);
  if (shown == lines.size()) return;
  console.Line("  and " + Counted(lines.size() - shown, "more " + std::string(noun)) + " (--verbose lists them)");
}

void PrintOtherWriters(Console& console, const Explanation& explanation, bool verbose) {
  const std::string text = OtherWritersText(explanation);
  if (!text.empty()) console.Line(text + (verbose ? "" : " (--verbose lists them)"));
}

}  // namespace varnelctl
