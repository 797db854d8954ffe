#include "varnelctl/report/doctor_report.h"

#include <algorithm>
#include <map>

#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/document.h"

namespace varnelctl {
namespace {

struct SeverityHeading {
  Severity severity;
  const char* noun;
  const char* heading;
};

constexpr SeverityHeading kHeadings[] = {{Severity::Error, "error", "Errors"},
                                         {Severity::Warning, "warning", "Warnings"},
                                         {Severity::Note, "note", "Notes"}};

Json FindingJson(const FoundBy& found) {
  const Finding& finding = found.finding;
  return {{"severity", WordFor(finding.severity)},
          {"check", found.check->name},
          {"object", finding.object},
          {"found", finding.found},
          {"wanted", finding.wanted},
          {"code", finding.code ? Json(Hex(*finding.code)) : Json(nullptr)},
          {"remedy", finding.remedy},
          {"explain", finding.explain}};
}

Json CheckJson(const CheckMade& made) {
  return {{"name", made.check->name},
          {"asked", made.asked},
          {"lacks", made.lacks},
          {"saw", made.saw},
          {"findings", made.findings}};
}

void Print(Console& console, const Finding& finding) {
  console.Line("  " + finding.object + ": " + finding.found);
  if (!finding.wanted.empty()) console.Line("    wanted: " + finding.wanted);
  console.Line("    what to do: " + finding.remedy);
  console.Line("    next: varnelctl explain " + finding.explain);
}

// "; 2 more with --disk"
std::string NotMade(const Diagnosis& diagnosis) {
  std::map<std::string, std::size_t> counts;
  for (const CheckMade& made : diagnosis.checks) {
    if (!made.lacks.empty()) ++counts[made.lacks];
  }
  std::string text;
  for (const auto& [lacks, count] : counts) text += "; " + std::to_string(count) + " more with " + lacks;
  return text;
}

}  // namespace

Json DoctorDocument(const Diagnosis& diagnosis) {
  return {{"findings", ArrayOf(diagnosis.findings, FindingJson)},
          {"checks", ArrayOf(diagnosis.checks, CheckJson)},
          {"errors", diagnosis.Count(Severity::Error)},
          {"plan", diagnosis.verdict.empty() ? Json(nullptr) : Json(diagnosis.verdict)}};
}

void PrintDiagnosis(Console& console, const Diagnosis& diagnosis) {
  for (const SeverityHeading& heading : kHeadings) {
    if (diagnosis.Count(heading.severity) != 0) console.Line(heading.heading);
    for (const FoundBy& found : diagnosis.findings) {
      if (found.finding.severity == heading.severity) Print(console, found.finding);
    }
  }
  if (!diagnosis.verdict.empty()) console.Line("A snapshot of these disks: " + diagnosis.verdict);
}

std::string SummaryOf(const Diagnosis& diagnosis) {
  const auto made = std::count_if(diagnosis.checks.begin(), diagnosis.checks.end(),
                                  [](const CheckMade& check) { return check.lacks.empty(); });
  std::string found;
  for (const SeverityHeading& heading : kHeadings) {
    const std::size_t count = diagnosis.Count(heading.severity);
    if (count != 0) found += (found.empty() ? ": " : ", ") + Counted(count, heading.noun);
  }
  return Counted(static_cast<std::size_t>(made), "check") + (found.empty() ? ", nothing found" : found) +
         NotMade(diagnosis);
}

}  // namespace varnelctl
