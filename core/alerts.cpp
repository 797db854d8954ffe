#include "core/alerts.h"

#include <algorithm>
#include <cstdint>
#include <variant>
#include <vector>

#include "text/unicode.h"

namespace varnel {
namespace {

constexpr std::string_view kDots = "...";

// Shortens text so that `excess` bytes of its UTF-8 form go, the three dots counted, without cutting a character.
std::string Shortened(std::string text, std::size_t excess) {
  std::size_t length = text.size() > excess + kDots.size() ? text.size() - excess - kDots.size() : 0;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
  text.resize(length);
  return text += kDots;
}

// Formats with every text already in UTF-8; the format's text conversions see narrow or wide text alike.
std::string FormatWith(const char* format, const std::vector<std::string>& texts,
                       std::span<const FormatArgument> arguments) {
  std::vector<FormatArgument> shortened(arguments.begin(), arguments.end());
  for (std::size_t i = 0; i < shortened.size(); ++i) {
    if (!std::holds_alternative<std::uint32_t>(arguments[i].value())) shortened[i] = FormatArgument(texts[i]);
  }
  return FormatNarrow(format, shortened);
}

std::string TextOf(const FormatArgument& argument) {
  if (const auto* wide = std::get_if<std::wstring_view>(&argument.value())) return WideToUtf8Lossy(*wide);
  if (const auto* narrow = std::get_if<std::string_view>(&argument.value())) return std::string(*narrow);
  return {};
}

// The longest text gives way, then the next longest; the first argument, which names the event, only after all others.
// A text of three bytes or fewer is left: the dots would not be shorter.
std::string FitInto(const AlertRecord& record, std::span<const FormatArgument> arguments, std::string formatted) {
  std::vector<std::string> texts;
  for (const FormatArgument& argument : arguments) texts.push_back(TextOf(argument));
  const auto shorten = [&](std::string& text) {
    text = Shortened(std::move(text), formatted.size() - record.bytes + 1);
    formatted = FormatWith(record.format, texts, arguments);
  };
  for (std::size_t round = 1; round < texts.size() && formatted.size() >= record.bytes; ++round) {
    std::string& longest = *std::max_element(texts.begin() + 1, texts.end(),
                                             [](const auto& a, const auto& b) { return a.size() < b.size(); });
    if (longest.size() <= kDots.size()) break;
    shorten(longest);
  }
  if (formatted.size() >= record.bytes) shorten(texts.front());
  return formatted;
}

}  // namespace

namespace alert {

std::span<const AlertRecord* const> All() {
#define VARNEL_ALERT(name, ...) &name,
  static constexpr const AlertRecord* kAll[] = {
#include "core/alert_records.inc"
  };
#undef VARNEL_ALERT
  static_assert(std::all_of(std::begin(kAll), std::end(kAll), [](const AlertRecord* record) {
    return FormatTakes<std::string>(std::wstring_view(record->logFormat));
  }));
  return kAll;
}

}  // namespace alert

std::string FormatAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments) {
  std::vector<FormatArgument> all;
  if (record.tag != nullptr) all.emplace_back(record.tag);
  all.insert(all.end(), arguments);
  std::string formatted = FormatNarrow(record.format, all);
  return formatted.size() < record.bytes ? formatted : FitInto(record, all, std::move(formatted));
}

void WriteAlert(const AlertRecord& record, std::initializer_list<FormatArgument> arguments, const AlertTarget& target) {
  const std::string formatted = FormatAlert(record, arguments);
  target.log.WriteText(record.category, target.line, record.logFormat, formatted);
  target.errorDetails += formatted + record.ending;
}

}  // namespace varnel
