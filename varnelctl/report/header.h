// What a run says of itself before anything else, in its documents and in its log.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "varnelctl/console/console.h"

namespace varnelctl {

/// The set that was asked for, in the words of the command line. UTF-8.
struct RequestedSet {
  std::string application;
  std::vector<std::string> disks;  ///< serial numbers
  std::string type;
  std::string context;
  std::string provider;  ///< the identifier of the one that the library asks for
};

/// UTF-8, whatever the arguments were.
struct Header {
  std::string version;              ///< varnelctl's
  std::optional<std::string> host;  ///< the computer's name; nothing where the host does not say, or there is none
  std::vector<std::string> commandLine;
  std::string start;                     ///< UTC: "2026-11-20T18:52:44.123Z"
  std::optional<unsigned long> process;  ///< nothing where there is no host
  std::optional<RequestedSet> request;
  long long fileTime = 0;  ///< the start: UTC, 100 ns since 1601
};

/// By the current host's clock, without a host by this process's: UTC, 100 ns since 1601.
long long FileTimeNow();

/// "2026-11-20T18:52:44.123Z" \param fileTime 100 ns since 1601.
std::string UtcText(long long fileTime);

/// "varnelctl snapshot --disk \"A B\"": for people.
std::string CommandLineText(const std::vector<std::string>& arguments);

/// As the current host says it, of itself; nothing where it does not, or there is none.
std::optional<std::string> ComputerName();

/// Asks the current host, if there is one; without one the time is this process's. Throws nothing for what a host does
/// not say.
Header ReadHeader(const std::vector<std::string>& arguments, std::optional<RequestedSet> request);

Json HeaderJson(const Header& header);

/// For the log, one entry a line: "varnelctl VERSION on HOST, process N, START: ARGUMENTS", and what was requested.
std::vector<std::string> HeaderLines(const Header& header);

}  // namespace varnelctl
