#include "varnelctl/report/html/page.h"

#include <algorithm>

#include "varnelctl/report/html/comparison.h"
#include "varnelctl/report/html/frame.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/run_sections.h"

namespace varnelctl::html {
namespace {

std::string EarlierRun(const StoredRun& run, const std::string& id) {
  return "<details class=\"earlier\"><summary>" + Escaped(TitleOf(run.document)) + "</summary>\n" +
         RunArticle(run, id, 2) + "</details>\n";
}

std::string ComparingPage(const std::vector<StoredRun>& runs) {
  std::string page = Comparison(runs);
  for (std::size_t i = runs.size(); i-- > 0;) {
    const std::string id = "run-" + std::to_string(i);
    page += i + 1 == runs.size() ? RunArticle(runs[i], id, 2) : EarlierRun(runs[i], id);
  }
  return WholePage(std::to_string(runs.size()) + " runs, the last: " + TitleOf(runs.back().document), page,
                   Script::OfRuns);
}

}  // namespace

std::string ReportPage(std::vector<StoredRun> runs) {
  std::stable_sort(runs.begin(), runs.end(), [](const StoredRun& a, const StoredRun& b) {
    return a.document["header"]["start"] < b.document["header"]["start"];
  });
  if (runs.size() > 1) return ComparingPage(runs);
  const nlohmann::json& run = runs.front().document;
  return WholePage(TitleOf(run) + ": " + VerdictText(run), RunArticle(runs.front(), "run-0", 1), Script::OfRuns);
}

}  // namespace varnelctl::html
