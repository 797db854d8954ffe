#include "varnelctl/report/html/alert_section.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "varnelctl/explanation/look_up.h"
#include "varnelctl/explanation/records.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/sections.h"

namespace varnelctl::html {
namespace {

// Distinct records of one kind, by how often they stand there.
struct Kind {
  DWORD number = 0;
  std::vector<std::pair<RecordText, std::size_t>> records;
  std::map<std::string_view, std::size_t> places;

  void Add(const RecordText& record) {
    const auto [place, isNew] = places.emplace(record.text, records.size());
    if (isNew) records.emplace_back(record, 0);
    ++records[place->second].second;
  }
};

std::vector<Kind> KindsIn(std::string_view errorDetails) {
  std::vector<Kind> kinds;
  for (const RecordText& record : RecordsIn(errorDetails)) {
    auto kind = std::find_if(kinds.begin(), kinds.end(), [&](const Kind& k) { return k.number == record.number; });
    if (kind == kinds.end()) kind = kinds.insert(kinds.end(), Kind{record.number, {}, {}});
    kind->Add(record);
  }
  return kinds;
}

std::string Labelled(std::string_view label, std::string_view text) {
  return "<p><strong>" + std::string(label) + "</strong> " + Escaped(text) + "</p>\n";
}

std::string AdviceText(const Advice& advice) {
  return Labelled("What it means.", advice.meaning) + Labelled("What to do.", advice.remedy) +
         Labelled("Whom to ask.", advice.ask);
}

std::string Fields(const RecordText& record, std::size_t count) {
  std::string list = "<dl class=\"fields\">\n";
  for (const RecordField& field : FieldsOf(record)) {
    if (!field.value.empty()) list += Element("dt", field.key) + Element("dd", field.value) + "\n";
  }
  list += "</dl>\n";
  return count == 1 ? list : list + Element("p", "told " + std::to_string(count) + " times", "quiet") + "\n";
}

// What the codes of the records mean, each once.
std::string Codes(const Kind& kind, std::size_t listed) {
  std::set<std::string> told;
  std::string text;
  for (std::size_t i = 0; i < listed; ++i) {
    const std::vector<Explained> all = LookUp(kind.records[i].first.text);
    for (const Explained& explained : all) {
      if (explained.advice->kind == AdviceKind::Record || !told.insert(explained.key).second) continue;
      text += "<details><summary>" + Escaped(explained.title) + "</summary>\n" + AdviceText(*explained.advice);
      for (const std::string& line : explained.particulars) text += Element("p", line) + "\n";
      text += "</details>\n";
    }
  }
  return text;
}

std::string KindText(const Kind& kind) {
  const Explained explained = AsExplained(*FindAdvice(AdviceKind::Record, kind.number));
  const std::size_t listed = std::min(kind.records.size(), kMostListed);
  std::string text =
      "<div class=\"record\">\n" + Element("p", explained.title, "title") + "\n" + AdviceText(*explained.advice);
  for (std::size_t i = 0; i < listed; ++i) text += Fields(kind.records[i].first, kind.records[i].second);
  return text + AndMore(kind.records.size() - listed) + Codes(kind, listed) + "</div>\n";
}

}  // namespace

std::string AlertSection(std::string_view errorDetails) {
  std::string text;
  for (const Kind& kind : KindsIn(errorDetails)) text += KindText(kind);
  return text;
}

}  // namespace varnelctl::html
