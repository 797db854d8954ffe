#include "varnelctl/console/console.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <ostream>

#include "varnelctl/console/interruption.h"
#include "varnelctl/console/layout.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

std::string_view ColourOf(Tone tone) {
  switch (tone) {
    case Tone::Good:
      return "\x1b[32m";
    case Tone::Warning:
      return "\x1b[33m";
    case Tone::Bad:
      return "\x1b[31m";
    case Tone::Plain:
      break;
  }
  return {};
}

// Each line by itself, so that no other is coloured when the output is cut.
std::string Coloured(std::string_view lines, std::string_view colour) {
  constexpr std::string_view kOff = "\x1b[0m";
  std::string coloured;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    coloured.append(colour).append(lines.substr(0, end)).append(kOff);
    if (end == lines.size()) break;
    coloured += '\n';
    lines.remove_prefix(end + 1);
  }
  return coloured;
}

std::string LayOut(std::string_view lines, const Terminal& terminal, Tone tone) {
  std::string text = PrintableLines(lines);
  if (terminal.columns != 0) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    text = Wrapped(text, terminal.columns);
  }
  return terminal.colour && tone != Tone::Plain ? Coloured(text, ColourOf(tone)) : text;
}

// Text that is no UTF-8 is no reason to print nothing.
std::string Dump(const Json& document, int indent) {
  return EscapeUnprintable(document.dump(indent, ' ', false, Json::error_handler_t::replace));
}

}  // namespace

void Console::Line(std::string_view text, Tone tone) {
  Write(LayOut(text, out_.terminal, tone) + '\n');
}

void Console::Document(const Json& document) {
  constexpr int kIndent = 2;
  Write(Dump(document, kIndent) + '\n');
}

void Console::DocumentLine(const Json& document) {
  constexpr int kOneLine = -1;
  Write(Dump(document, kOneLine) + '\n', true);
}

void Console::Text(std::string_view text) {
  Write(LayOut(text, out_.terminal, Tone::Plain));
}

void Console::Live(std::string_view text) {
  if (!out_.terminal.erases) return;
  live_ = PrintableLines(text);
  // Only one line can be erased.
  if (out_.terminal.columns != 0) live_ = FirstColumns(live_, out_.terminal.columns - 1);
  ShowLive();
}

void Console::EndLive(std::string_view text) {
  HideLive();
  live_.clear();
  Write(LayOut(text, out_.terminal, Tone::Plain) + '\n', true);
}

void Console::ShowLive() {
  if (!live_.empty()) Write(live_, true);
}

void Console::HideLive() {
  if (!live_.empty()) Write("\r\x1b[K", true);
}

void Console::Error(std::string_view text) {
  Detail("varnelctl: " + std::string(text), Tone::Bad);
}

void Console::Warning(std::string_view text) {
  Detail("varnelctl: warning: " + std::string(text), Tone::Warning);
}

void Console::Detail(std::string_view lines, Tone tone) {
  if (lines.empty()) return;
  if (lines.back() == '\n') lines.remove_suffix(1);
  HideLive();
  err_.stream << LayOut(lines, err_.terminal, tone) << '\n';
  ShowLive();
}

bool Console::Flush() {
  Write({}, true);
  err_.stream.flush();
  return out_.stream.good();
}

// A stream that has failed once takes nothing any more.
void Console::Write(std::string_view bytes, bool flush) {
  if (!out_.stream.good()) return;
  errno = 0;
  out_.stream << bytes;
  if (flush) out_.stream.flush();
  if (!out_.stream.good()) abandoned_ = LastWriteHadNoReader();
}

}  // namespace varnelctl
