#include "simulator/services/event_query.h"

#include <algorithm>

#include "simulator/machine/utc_time.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

// Takes a query from its front.
class QueryText {
 public:
  explicit QueryText(std::wstring_view text) : rest_(text) {}

  bool Take(std::wstring_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  // A text in quotation marks of either kind.
  bool TakeQuoted(std::wstring& quoted) {
    if (!rest_.starts_with(L'\'') && !rest_.starts_with(L'"')) return false;
    const std::size_t end = rest_.find(rest_.front(), 1);
    if (end == rest_.npos) return false;
    quoted = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    return true;
  }
  bool TakeTime(LONGLONG& time) {
    std::wstring quoted;
    if (!TakeQuoted(quoted)) return false;
    const std::optional<LONGLONG> parsed = ParseUtc(WideToUtf8Lossy(quoted));
    time = parsed.value_or(0);
    return parsed.has_value();
  }
  bool AtEnd() const { return rest_.empty(); }

 private:
  std::wstring_view rest_;
};

bool TakeSources(QueryText& text, std::vector<std::wstring>& sources) {
  if (!text.Take(L"Provider[")) return true;
  do {
    if (!text.Take(L"@Name=") || !text.TakeQuoted(sources.emplace_back())) return false;
  } while (text.Take(L" or "));
  return text.Take(L"] and ");
}

}  // namespace

bool EventQuery::Matches(const LoggedEvent& event, LONGLONG time) const {
  const bool isSource = sources.empty() || std::find(sources.begin(), sources.end(), event.source) != sources.end();
  return isSource && from <= time && time <= to;
}

std::optional<EventQuery> ParseEventQuery(std::wstring_view text) {
  QueryText rest(text);
  EventQuery query;
  const bool isKnown = rest.Take(L"*[System[") && TakeSources(rest, query.sources) &&
                       rest.Take(L"TimeCreated[@SystemTime>=") && rest.TakeTime(query.from) &&
                       rest.Take(L" and @SystemTime<=") && rest.TakeTime(query.to) && rest.Take(L"]]]") && rest.AtEnd();
  return isKnown ? std::optional(std::move(query)) : std::nullopt;
}

}  // namespace varnel::simulator
