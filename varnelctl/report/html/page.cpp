#include "varnelctl/report/html/page.h"

#include <algorithm>
#include <span>

#include "varnelctl/report/html/comparison.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/run_sections.h"

namespace varnelctl::html {
namespace {

// The files page.css and page.js and the SHA-256 of each, byte by byte.
constexpr unsigned char kStyle[] = {
#include "page.css.inc"
};
constexpr unsigned char kStyleHash[] = {
#include "page.css.hash.inc"
};
constexpr unsigned char kScript[] = {
#include "page.js.inc"
};
constexpr unsigned char kScriptHash[] = {
#include "page.js.hash.inc"
};

std::string TextOf(std::span<const unsigned char> bytes) {
  return {bytes.begin(), bytes.end()};
}

// Nothing is fetched and nothing runs but what the page brings: whatever else a text of the host might become.
std::string Policy() {
  return "default-src 'none'; script-src 'sha256-" + Base64(kScriptHash) + "'; style-src 'sha256-" +
         Base64(kStyleHash) + "'; base-uri 'none'; form-action 'none'";
}

std::string Head(const std::string& title) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
         Policy() +
         "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"generator\" content=\"varnelctl " VARNELCTL_VERSION "\">\n" +
         Element("title", title) + "\n<style>" + TextOf(kStyle) + "</style>\n</head>\n<body>\n<main>\n";
}

std::string Tail() {
  return "</main>\n<script>" + TextOf(kScript) + "</script>\n</body>\n</html>\n";
}

std::string EarlierRun(const StoredRun& run, const std::string& id) {
  return "<details class=\"earlier\"><summary>" + Escaped(TitleOf(run.document)) + "</summary>\n" +
         RunArticle(run, id, 2) + "</details>\n";
}

std::string ComparingPage(const std::vector<StoredRun>& runs) {
  std::string page = Head(std::to_string(runs.size()) + " runs, the last: " + TitleOf(runs.back().document));
  page += Comparison(runs);
  for (std::size_t i = runs.size(); i-- > 0;) {
    const std::string id = "run-" + std::to_string(i);
    page += i + 1 == runs.size() ? RunArticle(runs[i], id, 2) : EarlierRun(runs[i], id);
  }
  return page + Tail();
}

}  // namespace

std::string ReportPage(std::vector<StoredRun> runs) {
  std::stable_sort(runs.begin(), runs.end(), [](const StoredRun& a, const StoredRun& b) {
    return a.document["header"]["start"] < b.document["header"]["start"];
  });
  if (runs.size() > 1) return ComparingPage(runs);
  const nlohmann::json& run = runs.front().document;
  return Head(TitleOf(run) + ": " + VerdictText(run)) + RunArticle(runs.front(), "run-0", 1) + Tail();
}

}  // namespace varnelctl::html
