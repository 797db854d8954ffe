#include "varnelctl/report/header.h"

#include <array>
#include <chrono>
#include <utility>

#include "platform/host.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

using Ticks = std::chrono::duration<long long, std::ratio<1, 10'000'000>>;  // FILETIME's

std::chrono::sys_time<Ticks> TimeAt(long long ticks) {
  return std::chrono::sys_days(std::chrono::year(1601) / 1 / 1) + Ticks(ticks);
}

std::string Iso8601(std::chrono::sys_time<Ticks> time) {
  const auto midnight = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::milliseconds>(time - midnight));
  return varnel::FormatNarrow(
      "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
      {static_cast<int>(date.year()), static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
       clock.hours().count(), clock.minutes().count(), clock.seconds().count(), clock.subseconds().count()});
}

std::string Utf8(const std::string& argument) {
  return varnel::WideToUtf8Lossy(varnel::Utf8ToWideLossy(argument));
}

std::string PrintableUtf8(const std::string& text) {
  return Printable(varnel::Utf8ToWideLossy(text));
}

// An argument as a shell would take it.
std::string Shown(const std::string& argument) {
  const std::string text = PrintableUtf8(argument);
  const bool isPlain = !text.empty() && text.find_first_of(" \"'") == text.npos;
  return isPlain ? text : '"' + text + '"';
}

std::string RequestLine(const RequestedSet& request) {
  std::string line = "application " + request.application + ", disks ";
  for (const std::string& disk : request.disks) {
    line += (&disk == &request.disks.front() ? "\"" : ", \"") + PrintableUtf8(disk) + '"';
  }
  return line + ", type " + request.type + ", context " + request.context + ", provider " + request.provider;
}

}  // namespace

long long FileTimeNow() {
  varnel::Host* const host = varnel::CurrentHostOrNull();
  if (host == nullptr) {
    return (std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now()) - TimeAt(0)).count();
  }
  FILETIME time{};
  host->time().GetSystemTimeAsFileTime(&time);
  return static_cast<long long>(static_cast<unsigned long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

std::string UtcText(long long fileTime) {
  return Iso8601(TimeAt(fileTime));
}

std::string CommandLineText(const std::vector<std::string>& arguments) {
  std::string line = "varnelctl";
  for (const std::string& argument : arguments) line += ' ' + Shown(argument);
  return line;
}

std::optional<std::string> ComputerName() {
  varnel::Host* const host = varnel::CurrentHostOrNull();
  if (host == nullptr) return std::nullopt;
  std::array<wchar_t, 256> name{};
  auto characters = static_cast<DWORD>(name.size());
  // Of the machine itself: a cluster may have this process go by another name.
  if (!host->system().GetComputerNameExW(ComputerNamePhysicalDnsHostname, name.data(), &characters))
    return std::nullopt;
  return varnel::WideToUtf8Lossy(name.data());
}

Header ReadHeader(const std::vector<std::string>& arguments, std::optional<RequestedSet> request) {
  varnel::Host* const host = varnel::CurrentHostOrNull();
  const long long now = FileTimeNow();
  Header header{VARNELCTL_VERSION, {}, {}, UtcText(now), {}, std::move(request), now};
  for (const std::string& argument : arguments) header.commandLine.push_back(Utf8(argument));
  if (host != nullptr) {
    header.host = ComputerName();
    header.process = host->processes().GetCurrentProcessId();
  }
  return header;
}

Json HeaderJson(const Header& header) {
  Json json = {{"version", header.version},
               {"host", header.host ? Json(*header.host) : Json(nullptr)},
               {"commandLine", header.commandLine},
               {"start", header.start},
               {"process", header.process ? Json(*header.process) : Json(nullptr)}};
  if (!header.request) return json;
  json["application"] = header.request->application;
  json["disks"] = header.request->disks;
  json["type"] = header.request->type;
  json["context"] = header.request->context;
  json["provider"] = header.request->provider;
  return json;
}

std::vector<std::string> HeaderLines(const Header& header) {
  std::string line = "varnelctl " + header.version;
  if (header.host) line += " on " + PrintableUtf8(*header.host);
  if (header.process) line += ", process " + std::to_string(*header.process);
  line += ", " + header.start + ":";
  for (const std::string& argument : header.commandLine) line += ' ' + Shown(argument);
  std::vector<std::string> lines = {line};
  if (header.request) lines.push_back(RequestLine(*header.request));
  return lines;
}

}  // namespace varnelctl
