// The doctor's checks: one function each, which asks what it needs and tells what it found.
#pragma once

#include <span>
#include <string>

#include "varnelctl/doctor/examination.h"
#include "varnelctl/doctor/finding.h"

namespace varnelctl {

/// What a check tells.
struct Told {
  std::string saw;  ///< what there is, also where nothing is wrong; may be empty
  Findings findings;

  void Add(Finding finding) { findings.push_back(std::move(finding)); }
};

/// What must have been asked for, or be there, so that there is something to check.
enum class Needs { Nothing, Disks, ApplicationAndDisks, Journal };

struct Check {
  const char* name;     ///< for programs
  const char* subject;  ///< for people
  Needs needs;
  /// Of a question that fails: whether a snapshot needs its answer, too.
  Severity whenNotAsked;
  /// Throws what its questions throw, which is a finding then.
  void (*run)(Examination& examination, Told& told);
};

/// Every check, in the order in which they are made: what a snapshot needs first comes first.
std::span<const Check> AllChecks();

void CheckProcess(Examination& examination, Told& told);
void CheckComSecurity(Examination& examination, Told& told);
void CheckServices(Examination& examination, Told& told);
void CheckProvider(Examination& examination, Told& told);
void CheckSerialNumbers(Examination& examination, Told& told);
void CheckSeveralDisks(Examination& examination, Told& told);
void CheckWriters(Examination& examination, Told& told);
void CheckWriterStates(Examination& examination, Told& told);
void CheckManifest(Examination& examination, Told& told);
void CheckHyperVHost(Examination& examination, Told& told);
void CheckDatabases(Examination& examination, Told& told);
void CheckVolumeSupport(Examination& examination, Told& told);
void CheckSetSize(Examination& examination, Told& told);
void CheckChecker(Examination& examination, Told& told);
void CheckSpace(Examination& examination, Told& told);
void CheckLeftovers(Examination& examination, Told& told);
void CheckSessions(Examination& examination, Told& told);
void CheckClock(Examination& examination, Told& told);
void CheckEvents(Examination& examination, Told& told);
void CheckPlan(Examination& examination, Told& told);

/// What is wrong with what was asked for is an error, with the rest of the host a warning.
Severity SeverityHere(const Examination& examination);

/// How a service of Windows stands, in words: "it is stopped"; empty where that cannot be told.
std::string StateOfService(const wchar_t* name);

}  // namespace varnelctl
