// What the sections of a page are made of.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace varnelctl::html {

/// Lists of a page end after so many entries and say how many more there are: the tables hold them all.
inline constexpr std::size_t kMostListed = 200;

/// A heading and what follows it; empty without content.
std::string Section(const std::string& id, int level, const std::string& heading, const std::string& content,
                    std::string_view className = {});
/// What the script fills.
std::string Place(const std::string& kind);
/// What a page comes to: the words up to the first ": " or "; " large, the rest of the sentence smaller.
std::string VerdictHeading(const std::string& text, int level);

/// `<li>` each, at most kMostListed, in a list; empty where there are none.
std::string ListOf(const std::vector<std::string>& entries, std::string_view className = {});
/// What ends a list that is cut off; empty for 0.
std::string AndMore(std::size_t count);
/// "sales, crm and 7 more"
std::string Names(const std::vector<std::string>& names, std::size_t mostNamed = 20);

/// Names that have a reason in common.
class ReasonList {
 public:
  void Add(const std::string& name, const std::string& reason);
  /// Names and reason, by the order in which the reasons came; empty where there are none.
  std::string Markup() const;

 private:
  struct Reason {
    std::string why;
    std::vector<std::string> names;
  };
  std::vector<Reason> reasons_;
  std::map<std::string, std::size_t> places_;  // of the reasons
};

/// An entry of a `<dl>`; empty without a value.
std::string Fact(std::string_view name, const std::string& value);

/// \param head, rows markup.
std::string ScrollingTable(const std::string& label, const std::string& className, const std::string& head,
                           const std::string& rows);
std::string ColumnHead(const std::string& text, bool isNumber = false);
/// From `start` to `end` on a line as long as `whole`; empty where that is 0.
std::string Bar(unsigned long long start, unsigned long long end, unsigned long long whole);

}  // namespace varnelctl::html
