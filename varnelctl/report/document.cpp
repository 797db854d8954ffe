#include "varnelctl/report/document.h"

#include <utility>

#include "text/format.h"
#include "varnelctl/console/json.h"

namespace varnelctl {
namespace {

constexpr char kSchema[] = "varnelctl/1";

Json WarningJson(const Warning& warning) {
  return {{"code", warning.code}, {"text", warning.text}};
}

}  // namespace

Document::Document(Console& console, Format format) : console_(console), format_(format) {}

Document::~Document() = default;

void Document::Begin(Header header) {
  header_ = std::move(header);
  Event("start", {{"schema", kSchema}, {"header", HeaderJson(*header_)}});
}

void Document::Warn(const Warning& warning) {
  warnings_.push_back(warning);
  Event("warning", WarningJson(warning));
}

void Document::ForgetWarnings(std::size_t first, std::size_t last) {
  const auto at = [&](std::size_t n) { return warnings_.begin() + static_cast<std::ptrdiff_t>(n); };
  warnings_.erase(at(first), at(last));
}

void Document::Step(std::string_view name, std::string_view state, unsigned long long milliseconds) {
  Event("step", {{"name", name}, {"state", state}, {"milliseconds", milliseconds}});
}

void Document::Set(std::string_view kind, Json keys) {
  kind_ = kind;
  keys_ = std::make_unique<Json>(std::move(keys));
}

void Document::Add(const char* key, Json value) {
  if (keys_) (*keys_)[key] = std::move(value);
}

void Document::Fail(const Failure& failure, std::string errorDetails) {
  if (failure_) return;
  failure_ = failure;
  errorDetails_ = std::move(errorDetails);
}

void Document::End(ExitStatus status) {
  if (format_ == Format::OneDocument) console_.Document(Whole(status));
  if (format_ == Format::Lines) Event("end", {{"document", Whole(status)}});
}

void Document::Event(std::string_view event, const Json& keys) {
  if (format_ != Format::Lines) return;
  Json line = {{"event", event}};
  line.update(keys);
  console_.DocumentLine(line);
}

Json Document::Whole(ExitStatus status) const {
  Json whole = {{"schema", kSchema},
                {"kind", keys_ ? kind_ : "failure"},
                {"header", HeaderJson(*header_)},
                {"status", static_cast<int>(status)}};
  if (keys_) whole.update(*keys_);
  if (!IsFailureTold()) whole["result"] = ResultJson(failure_);
  if (!keys_) whole["errorDetails"] = errorDetails_;
  whole["warnings"] = ArrayOf(warnings_, WarningJson);
  return whole;
}

// What a command says of its own failure comes before what failed after it.
bool Document::IsFailureTold() const {
  if (!keys_ || !keys_->contains("result")) return false;
  return !failure_ || !keys_->at("result").at("message").get_ref<const std::string&>().empty();
}

std::string Hex(HRESULT hr) {
  return varnel::FormatNarrow("0x%08x", {hr});
}

Json ResultJson(const std::optional<Failure>& failure) {
  if (!failure) {
    return {{"alertCode", 0}, {"hresult", nullptr}, {"message", ""},  {"details", Json::array()},
            {"remedy", ""},   {"explain", ""},      {"step", nullptr}};
  }
  return {{"alertCode", failure->alertCode},
          {"hresult", failure->hresult ? Json(Hex(*failure->hresult)) : Json(nullptr)},
          {"message", failure->message},
          {"details", failure->details},
          {"remedy", failure->remedy},
          {"explain", failure->explain},
          {"step", failure->step.empty() ? Json(nullptr) : Json(failure->step)}};
}

}  // namespace varnelctl
