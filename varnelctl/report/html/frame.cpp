#include "varnelctl/report/html/frame.h"

#include <span>

#include "varnelctl/report/html/markup.h"

namespace varnelctl::html {
namespace {

constexpr unsigned char kRunStyle[] = {
#include "run.css.inc"
};
constexpr unsigned char kRunStyleHash[] = {
#include "run.css.hash.inc"
};
constexpr unsigned char kRunScript[] = {
#include "run.js.inc"
};
constexpr unsigned char kRunScriptHash[] = {
#include "run.js.hash.inc"
};
constexpr unsigned char kFleetStyle[] = {
#include "fleet.css.inc"
};
constexpr unsigned char kFleetStyleHash[] = {
#include "fleet.css.hash.inc"
};
constexpr unsigned char kFleetScript[] = {
#include "fleet.js.inc"
};
constexpr unsigned char kFleetScriptHash[] = {
#include "fleet.js.hash.inc"
};

// A text and its SHA-256, byte by byte.
struct Part {
  std::span<const unsigned char> text;
  std::span<const unsigned char> hash;
};

Part StyleOf(Script script) {
  return script == Script::OfFleet ? Part{kFleetStyle, kFleetStyleHash} : Part{kRunStyle, kRunStyleHash};
}

Part ScriptOf(Script script) {
  return script == Script::OfFleet ? Part{kFleetScript, kFleetScriptHash} : Part{kRunScript, kRunScriptHash};
}

std::string TextOf(std::span<const unsigned char> bytes) {
  return {bytes.begin(), bytes.end()};
}

// Nothing is fetched and nothing runs but what the page brings: whatever else a text of the host might become.
std::string Policy(Script script) {
  const std::string scripts =
      script == Script::None ? "" : " script-src 'sha256-" + Base64(ScriptOf(script).hash) + "';";
  return "default-src 'none';" + scripts + " style-src 'sha256-" + Base64(StyleOf(script).hash) +
         "'; base-uri 'none'; form-action 'none'";
}

std::string Head(const std::string& title, Script script) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
         Policy(script) +
         "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"generator\" content=\"varnelctl " VARNELCTL_VERSION "\">\n" +
         Element("title", title) + "\n<style>" + TextOf(StyleOf(script).text) + "</style>\n</head>\n<body>\n<main>\n";
}

std::string Tail(Script script) {
  const std::string text = script == Script::None ? "" : "<script>" + TextOf(ScriptOf(script).text) + "</script>\n";
  return "</main>\n" + text + "</body>\n</html>\n";
}

}  // namespace

std::string WholePage(const std::string& title, const std::string& content, Script script) {
  return Head(title, script) + content + Tail(script);
}

}  // namespace varnelctl::html
