// What a page says of one run, readable without a script.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "varnelctl/report/html/run_file.h"

namespace varnelctl::html {

/// How a run stands: everything captured, or something is missing, or nothing is there.
enum class Standing { Whole, Partial, Failed };

Standing StandingOf(const nlohmann::json& run);
/// The class of an element that says so.
std::string_view ClassOf(Standing standing);
/// What the run comes to, in one line.
std::string VerdictText(const nlohmann::json& run);
/// "Snapshot of SQL01, 2026-01-01 00:00:00 UTC"
std::string TitleOf(const nlohmann::json& run);
/// "2026-01-01 00:00:00 UTC" of the start in a header.
std::string TimeText(const std::string& start);

/// What the run was, what it came to and why: the `header` of an article of class "run".
std::string RunHeader(const nlohmann::json& run, int level);
/// All of a run. \param id of the run, which begins the identifiers of its elements. \param level of its heading.
std::string RunArticle(const StoredRun& stored, const std::string& id, int level);

}  // namespace varnelctl::html
