#include "varnelctl/console/console.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace varnelctl {

void Console::Line(std::string_view text) {
  out_ << text << '\n';
}

void Console::Document(const Json& document) {
  constexpr int kIndent = 2;
  Line(document.dump(kIndent));
}

void Console::Text(std::string_view text) {
  out_ << text;
}

void Console::Live(std::string_view text) {
  if (terminal_) out_ << text << std::flush;
}

void Console::EndLive(std::string_view text) {
  constexpr std::string_view kEraseLine = "\r\x1b[K";
  out_ << (terminal_ ? kEraseLine : "") << text << '\n' << std::flush;
}

void Console::Error(std::string_view text) {
  err_ << "varnelctl: " << text << '\n';
}

void Console::Warning(std::string_view text) {
  err_ << "varnelctl: warning: " << text << '\n';
}

void Console::Detail(std::string_view lines) {
  err_ << lines;
  if (!lines.empty() && lines.back() != '\n') err_ << '\n';
}

bool Console::Flush() {
  out_.flush();
  err_.flush();
  return out_.good();
}

}  // namespace varnelctl
