// Pages of runs, and what is on them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {

/// A page is long: what it lacks is told, not the page.
inline testing::AssertionResult Shows(const std::string& page, const std::string& part) {
  if (page.find(part) != std::string::npos) return testing::AssertionSuccess() << "it shows " << part;
  return testing::AssertionFailure() << "a page of " << page.size() << " bytes lacks " << part;
}

/// What the page holds of each run, in its order.
inline std::vector<nlohmann::json> DocumentsOfPage(const std::string& page) {
  constexpr std::string_view kBegin = "<script type=\"application/json\" class=\"document\">";
  std::vector<nlohmann::json> documents;
  for (std::size_t at = page.find(kBegin); at != page.npos; at = page.find(kBegin, at + 1)) {
    const std::size_t begin = at + kBegin.size();
    documents.push_back(nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin)));
  }
  return documents;
}

}  // namespace varnel::test
