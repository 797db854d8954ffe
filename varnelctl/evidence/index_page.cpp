#include "varnelctl/evidence/index_page.h"

#include <nlohmann/json.hpp>

#include "varnelctl/report/html/frame.h"
#include "varnelctl/report/html/markup.h"
#include "varnelctl/report/html/run_sections.h"

namespace varnelctl {
namespace {

using html::Element;
using html::Escaped;

// "12 bytes", "34 KB"
std::string SizeText(std::size_t bytes) {
  constexpr std::size_t kThousand = 1000;
  if (bytes < kThousand) return std::to_string(bytes) + " bytes";
  return std::to_string((bytes + kThousand / 2) / kThousand) + " KB";
}

// Names of files are this program's: they need no more than escaping.
std::string Link(const std::string& file) {
  return "<a href=\"" + Escaped(file) + "\">" + Escaped(file) + "</a>";
}

std::string Section(std::string_view heading, const std::string& entries) {
  if (entries.empty()) return {};
  return "<section>\n" + Element("h2", heading) + "\n<dl class=\"reasons\">\n" + entries + "</dl>\n</section>\n";
}

}  // namespace

std::string EvidenceIndex(const nlohmann::json& run, const std::vector<EvidenceFile>& files, bool anonymised) {
  std::string had;
  std::string missing;
  for (const EvidenceFile& file : files) {
    if (file.whyNot.empty()) {
      had += "<dt>" + Link(file.name) + "</dt><dd>" + Escaped(file.title + ", " + SizeText(file.content.size())) +
             "</dd>\n";
    } else {
      missing += Element("dt", file.name) + "<dd>" + Escaped(file.title + ": " + file.whyNot) + "</dd>\n";
    }
  }
  const std::string note =
      "Names of hosts, domains, databases, machines and files are replaced by others, the same in "
      "every file. Who made this folder has the key.";
  const std::string page = "<article class=\"run " + std::string(html::ClassOf(html::StandingOf(run))) + "\">\n" +
                           html::RunHeader(run, 1) + (anonymised ? Element("p", note, "note") + "\n" : "") +
                           Section("Files", had) + Section("Not here, and why", missing) + "</article>\n";
  return html::WholePage("Evidence of " + html::TitleOf(run), page, html::Script::None);
}

}  // namespace varnelctl
