// What earlier requests have left, and the clock that tells what is earlier.
#include <algorithm>

#include "platform/host.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/report/header.h"
#include "varnelctl/sets/set_sessions.h"

namespace varnelctl {
namespace {

// In FILETIME's units, 100 ns.
constexpr long long kHour = 36'000'000'000;
constexpr long long kNobodyRanThisBefore = 134116992000000000;                         // 2026-01-01
constexpr long long kNobodyWillRunThisAfter = kNobodyRanThisBefore + 262'980 * kHour;  // 30 years later

bool IsLeft(const KnownSet& set) {
  return set.IsLeftover() && (set.IsListed() || set.entry->MayHaveSet());
}

long long Now() {
  FILETIME time{};
  varnel::CurrentHost().time().GetSystemTimeAsFileTime(&time);
  return static_cast<long long>(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

void JudgeSession(const SessionOfSet& session, const KnownSet& set, Told& told) {
  if (session.own.empty()) return;
  told.Add(Found(Severity::Warning,
                 "iSCSI session " + session.session.sessionId + " of " + Printable(session.session.targetName),
                 "it carries " + session.Carries() + " of " + NameOf(set) + ", which nobody wants any more", "",
                 advice::kSessionOpen));
}

}  // namespace

void CheckLeftovers(Examination& examination, Told& told) {
  const KnownSets& known = examination.Sets();
  told.saw = Counted(known.sets().size(), "set");
  for (const KnownSet& set : known.sets()) {
    if (IsLeft(set)) told.Add(Found(Severity::Warning, NameOf(set), DescribeState(set), "", advice::kLeftoverSet));
  }
  for (const JournalFault& fault : known.faults()) {
    told.Add(
        Found(Severity::Warning, ShownPath(fault.file), "it cannot be read: " + fault.reason, "", advice::kJournal));
  }
}

void CheckSessions(Examination& examination, Told& told) {
  const KnownSets& known = examination.Sets();
  for (const KnownSet& set : known.sets()) {
    if (!IsLeft(set) || set.Disks().empty()) continue;
    for (const SessionOfSet& session : ReadSessions(set.Disks(), known.DisksOfOthers(set.id))) {
      JudgeSession(session, set, told);
    }
  }
}

void CheckClock(Examination& /*examination*/, Told& told) {
  const long long now = Now();
  told.saw = UtcText(now);
  constexpr char kObject[] = "the clock of this host";
  if (now < kNobodyRanThisBefore || now > kNobodyWillRunThisAfter) {
    return told.Add(Found(Severity::Warning, kObject, "it says " + UtcText(now), "the time", advice::kClock));
  }
  long long latest = 0;
  for (const ListedCopy& copy : SetService().List()) latest = std::max<long long>(latest, copy.created);
  if (latest <= now + kHour) return;
  told.Add(Found(Severity::Warning, kObject,
                 "it says " + UtcText(now) + ", and a shadow copy was made at " + UtcText(latest),
                 "a time after everything that has happened", advice::kClock));
}

}  // namespace varnelctl
