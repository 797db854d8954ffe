// What a number or a word that a snapshot ends with means, what to do about it, and whom to ask.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/win32.h"

namespace varnelctl {

enum class AdviceKind {
  ExitStatus,
  Alert,   ///< an alert code, or what a validation returned
  Record,  ///< an alert record, numbered from 1 in the order of varnel::alert::All()
  Code,    ///< an HRESULT, a Win32 code as an HRESULT, or a code of the iSCSI initiator
  Case,    ///< something that no number tells alone
};

struct Advice {
  AdviceKind kind;
  DWORD number;  ///< 0 of a case
  std::string_view name;
  std::string_view meaning;
  std::string_view remedy;
  std::string_view ask;  ///< whom, when the remedy does not help

  /// What `varnelctl explain` finds this, and nothing else, by.
  std::string Key() const;
};

/// The words by which varnelctl itself names a case.
namespace advice {
inline constexpr std::string_view kNoWriter = "no-writer";
inline constexpr std::string_view kNoSqlWriter = "no-sql-writer";
inline constexpr std::string_view kNoExchangeWriter = "no-exchange-writer";
inline constexpr std::string_view kNoHyperVWriter = "no-hyperv-writer";
inline constexpr std::string_view kChildOutside = "child-outside";
inline constexpr std::string_view kCheckerMissing = "checker-missing";
inline constexpr std::string_view kCheckerFailed = "checker-failed";
inline constexpr std::string_view kCopiesLeft = "copies-left";
inline constexpr std::string_view kSessionOpen = "session-open";
inline constexpr std::string_view kSetElsewhere = "set-elsewhere";
inline constexpr std::string_view kOutputLost = "output-lost";
inline constexpr std::string_view kJournal = "journal";
inline constexpr std::string_view kInterrupted = "interrupted";
inline constexpr std::string_view kPastDeadline = "past-deadline";
inline constexpr std::string_view kWrongBitness = "wrong-bitness";
inline constexpr std::string_view kDcomOff = "dcom-off";
inline constexpr std::string_view kNoManifest = "no-manifest";
inline constexpr std::string_view kNoSerialNumber = "no-serial-number";
inline constexpr std::string_view kSameSerialNumber = "same-serial-number";
inline constexpr std::string_view kSeveralDisks = "several-disks";
inline constexpr std::string_view kNotWhole = "not-whole";
inline constexpr std::string_view kOnOtherDisks = "on-other-disks";
inline constexpr std::string_view kLeftoverSet = "leftover-set";
inline constexpr std::string_view kClock = "clock";
inline constexpr std::string_view kEventErrors = "event-errors";
inline constexpr std::string_view kOtherCode = "other-code";
}  // namespace advice

/// The whole table, by kind.
std::span<const Advice> AllAdvice();

/// Null when the table has none.
const Advice* FindAdvice(AdviceKind kind, DWORD number);
const Advice* FindAdvice(std::string_view key);

/// What the service wants before one of its calls, and answers VSS_E_BAD_STATE without.
struct CallOrder {
  std::string_view call;
  std::string_view wants;
};

std::span<const CallOrder> CallOrders();

}  // namespace varnelctl
