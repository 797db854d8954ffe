#include "varnelctl/evidence/events.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>

#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/event_log/reader.h"
#include "varnelctl/report/header.h"

namespace varnelctl {
namespace {

// Of the channels that everybody writes to.
constexpr std::wstring_view kSources[] = {
    L"VSS",      L"VolSnap",  L"swprv",     L"varnel",                               // the service and this program
    L"MSSQL*",   L"SQLVDI",   L"SQLWRITER", L"MSExchange*", L"ESE",   L"*Hyper-V*",  // the applications
    L"iScsiPrt", L"*MSiSCSI", L"*disk",     L"*partmgr",    L"*mpio", L"*storport", L"*Ntfs", L"*FailoverClustering*"};

struct Channel {
  std::string_view application;  // that writes all of it; empty where everybody does
  const char* name;
};

constexpr Channel kChannels[] = {
    {"", "Application"},
    {"", "System"},
    {"hyperv", "Microsoft-Windows-Hyper-V-VMMS-Admin"},
    {"hyperv", "Microsoft-Windows-FailoverClustering/Operational"},
    {"hyperv", "Microsoft-Windows-FailoverClustering-CsvFs/Operational"},
    {"exchange", "Microsoft-Exchange-HighAvailability/Operational"},
    {"exchange", "Microsoft-Exchange-MailboxDatabaseFailureItems/Operational"},
};

bool IsOneOfOurs(const Event& event, const std::vector<std::string>& providers) {
  const std::wstring source = varnel::Utf8ToWideLossy(event.source);
  const auto fits = [&](std::wstring_view pattern) { return varnel::ascii::MatchesPattern(pattern, source); };
  return std::any_of(std::begin(kSources), std::end(kSources), fits) ||
         std::any_of(providers.begin(), providers.end(), [&](const std::string& provider) {
           return varnel::ascii::EqualIgnoringCase(source, varnel::Utf8ToWideLossy(provider));
         });
}

// A line of what it is, and its text below.
std::string TextOfEvent(const Event& event) {
  std::string text = UtcText(event.time) + " " + LevelName(event.level) + " " + event.source + " " +
                     std::to_string(event.id) + " (record " + std::to_string(event.record) + ", " + event.computer +
                     ")\n";
  std::istringstream lines(event.text);
  for (std::string line; std::getline(lines, line);) text += "    " + line + "\n";
  return PrintableLines(text);
}

std::string FileNameOf(std::string channel) {
  std::replace(channel.begin(), channel.end(), '/', '-');
  return "events-" + channel;
}

std::string WhyNothing(const ChannelEvents& read) {
  if (std::string problem = ProblemOf(read); read.state != ChannelState::read && read.events.empty()) return problem;
  if (!read.events.empty()) return {};
  if (!read.cutShort) return "nothing of this kind was written in the time of the run";
  return "nothing of this kind is among the " + std::to_string(kMostEvents) + " newest events of the time of the run";
}

void AddChannel(const ChannelEvents& read, std::vector<EvidenceFile>& files) {
  const std::string name = FileNameOf(read.channel);
  EvidenceFile text{name + ".txt", "Events of the channel " + read.channel, {}, WhyNothing(read)};
  if (!text.whyNot.empty()) return files.push_back(std::move(text));
  if (read.state != ChannelState::read) text.title += "; not all, as " + ProblemOf(read);
  if (read.cutShort) text.title += "; not all, as there were too many";
  EvidenceFile xml{name + ".xml", "The same as the event log has them", "<Events>\n", {}};
  for (const Event& event : read.events) {
    text.content += TextOfEvent(event);
    xml.content += event.xml + "\n";
  }
  xml.content += "</Events>\n";
  files.push_back(std::move(text));
  files.push_back(std::move(xml));
}

}  // namespace

std::vector<EvidenceFile> ReadEventEvidence(const std::string& application, const std::vector<std::string>& providers,
                                            long long from, long long to) {
  std::vector<EvidenceFile> files;
  for (const Channel& channel : kChannels) {
    const bool isOfAll = channel.application.empty();
    if (!isOfAll && channel.application != application) continue;
    ChannelEvents read = ReadEvents(channel.name, {}, from, to);
    if (isOfAll) std::erase_if(read.events, [&](const Event& event) { return !IsOneOfOurs(event, providers); });
    AddChannel(read, files);
  }
  return files;
}

}  // namespace varnelctl
