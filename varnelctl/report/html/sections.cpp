#include "varnelctl/report/html/sections.h"

#include <algorithm>

#include "text/format.h"
#include "varnelctl/report/html/markup.h"

namespace varnelctl::html {
namespace {

std::string Percent(unsigned long long part, unsigned long long whole) {
  constexpr unsigned kTenths = 1000;
  const auto tenths = static_cast<unsigned>(part * kTenths / whole);
  return varnel::FormatNarrow("%u.%u%%", {tenths / 10, tenths % 10});
}

}  // namespace

std::string Section(const std::string& id, int level, const std::string& heading, const std::string& content,
                    std::string_view className) {
  if (content.empty()) return {};
  const std::string tag = "h" + std::to_string(level);
  return "<section class=\"" + std::string(className) + "\">\n<" + tag + " id=\"" + id + "\">" + Escaped(heading) +
         "</" + tag + ">\n" + content + "</section>\n";
}

std::string Place(const std::string& kind) {
  return "<div class=\"filled\" data-fill=\"" + kind + "\"></div>\n";
}

std::string VerdictHeading(const std::string& text, int level) {
  constexpr std::size_t kBetween = 2;
  const std::size_t end = std::min({text.find(": "), text.find("; "), text.size()});
  const std::string tag = "h" + std::to_string(level);
  std::string heading = "<" + tag + " class=\"verdict\">" + Escaped(text.substr(0, end));
  if (end != text.size()) {
    heading += "<span class=\"hidden\">" + Escaped(text.substr(end, kBetween)) + "</span><span class=\"rest\">" +
               Escaped(text.substr(end + kBetween)) + "</span>";
  }
  return heading + "</" + tag + ">\n";
}

std::string ListOf(const std::vector<std::string>& entries, std::string_view className) {
  if (entries.empty()) return {};
  std::string list = "<ul class=\"" + std::string(className) + "\">\n";
  const std::size_t listed = std::min(entries.size(), kMostListed);
  for (std::size_t i = 0; i < listed; ++i) list += Element("li", entries[i]) + "\n";
  return list + "</ul>\n" + AndMore(entries.size() - listed);
}

std::string AndMore(std::size_t count) {
  return count == 0 ? std::string() : Element("p", "and " + std::to_string(count) + " more", "quiet") + "\n";
}

std::string Names(const std::vector<std::string>& names, std::size_t mostNamed) {
  const std::size_t named = std::min(names.size(), mostNamed);
  std::string text;
  for (std::size_t i = 0; i < named; ++i) text += (i == 0 ? "" : ", ") + names[i];
  return named == names.size() ? text : text + " and " + std::to_string(names.size() - named) + " more";
}

void ReasonList::Add(const std::string& name, const std::string& reason) {
  const auto [place, isNew] = places_.emplace(reason, reasons_.size());
  if (isNew) reasons_.push_back({reason, {}});
  reasons_[place->second].names.push_back(name);
}

std::string ReasonList::Markup() const {
  if (reasons_.empty()) return {};
  std::string list = "<dl class=\"reasons\">\n";
  const std::size_t listed = std::min(reasons_.size(), kMostListed);
  for (std::size_t i = 0; i < listed; ++i) {
    list += Element("dt", Names(reasons_[i].names)) + Element("dd", reasons_[i].why) + "\n";
  }
  return list + "</dl>\n" + AndMore(reasons_.size() - listed);
}

std::string Fact(std::string_view name, const std::string& value) {
  return value.empty() ? value : Element("dt", name) + Element("dd", value) + "\n";
}

std::string ScrollingTable(const std::string& label, const std::string& className, const std::string& head,
                           const std::string& rows) {
  return "<div class=\"scroll\" role=\"group\" aria-label=\"" + label + "\" tabindex=\"0\"><table class=\"" +
         className + "\">\n<thead><tr>" + head + "</tr></thead>\n<tbody>\n" + rows + "</tbody></table></div>\n";
}

std::string ColumnHead(const std::string& text, bool isNumber) {
  return std::string("<th scope=\"col\"") + (isNumber ? " class=\"number\">" : ">") + Escaped(text) + "</th>";
}

// A class instead of a style: the page allows none in elements.
std::string Bar(unsigned long long start, unsigned long long end, unsigned long long whole) {
  if (whole == 0) return {};
  const unsigned long long least = std::max<unsigned long long>(whole / 200, 1);
  const unsigned long long length = std::max(end - start, least);
  return "<svg class=\"bar\" aria-hidden=\"true\" focusable=\"false\"><rect x=\"" +
         Percent(std::min(start, whole - std::min(whole, length)), whole) + "\" width=\"" + Percent(length, whole) +
         "\" height=\"100%\"/></svg>";
}

}  // namespace varnelctl::html
