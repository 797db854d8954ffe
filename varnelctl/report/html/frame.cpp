#include "varnelctl/report/html/frame.h"

#include <span>

#include "varnelctl/report/html/markup.h"

namespace varnelctl::html {
namespace {

// The files page.css and page.js and the SHA-256 of each, byte by byte.
constexpr unsigned char kStyle[] = {
#include "page.css.inc"
};
constexpr unsigned char kStyleHash[] = {
#include "page.css.hash.inc"
};
constexpr unsigned char kScript[] = {
#include "page.js.inc"
};
constexpr unsigned char kScriptHash[] = {
#include "page.js.hash.inc"
};

std::string TextOf(std::span<const unsigned char> bytes) {
  return {bytes.begin(), bytes.end()};
}

// Nothing is fetched and nothing runs but what the page brings: whatever else a text of the host might become.
std::string Policy(Script script) {
  const std::string scripts = script == Script::None ? "" : " script-src 'sha256-" + Base64(kScriptHash) + "';";
  return "default-src 'none';" + scripts + " style-src 'sha256-" + Base64(kStyleHash) +
         "'; base-uri 'none'; form-action 'none'";
}

std::string Head(const std::string& title, Script script) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
         Policy(script) +
         "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"generator\" content=\"varnelctl " VARNELCTL_VERSION "\">\n" +
         Element("title", title) + "\n<style>" + TextOf(kStyle) + "</style>\n</head>\n<body>\n<main>\n";
}

std::string Tail(Script script) {
  const std::string text = script == Script::None ? "" : "<script>" + TextOf(kScript) + "</script>\n";
  return "</main>\n" + text + "</body>\n</html>\n";
}

}  // namespace

std::string WholePage(const std::string& title, const std::string& content, Script script) {
  return Head(title, script) + content + Tail(script);
}

}  // namespace varnelctl::html
