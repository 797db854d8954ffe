// The numbers of varnelctl's own events. They never change; docs/event-log.md lists them, message_table.cmake makes the
// messages of varnelctl.exe for them.
#pragma once

#include "platform/win32.h"

namespace varnelctl {

/// A verdict's number is that of its command plus the exit status.
inline constexpr DWORD kSnapshotEvents = 100;
inline constexpr DWORD kPlanEvents = 200;
inline constexpr DWORD kSetsEvents = 300;
/// An alert record's number is this plus its place in core/alert_records.inc, from 1.
inline constexpr DWORD kAlertEvents = 1000;

}  // namespace varnelctl
