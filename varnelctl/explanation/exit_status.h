// How varnelctl ends. Scripts depend on the numbers.
#pragma once

#include <array>
#include <string_view>

namespace varnelctl {

enum class ExitStatus : int {
  Done = 0,
  Unexpected = 1,
  Usage = 2,
  WriterFailure = 10,
  PartialSuccess = 11,
  ConfigurationError = 12,
  VerificationFailure = 13,
  ExtraVolumes = 14,
  FailedCall = 15,
  Validation = 16,
  Stopped = 17,
  NotAllDone = 18,
  NotContained = 19,
};

struct ExitStatusText {
  ExitStatus status;
  std::string_view text;
};

/// Every status in ascending order, as the help lists them.
inline constexpr std::array kExitStatuses = {
    ExitStatusText{ExitStatus::Done, "done"},
    ExitStatusText{ExitStatus::Unexpected, "unexpected failure"},
    ExitStatusText{ExitStatus::Usage, "usage error or unreadable input"},
    ExitStatusText{ExitStatus::WriterFailure, "writers failed (alert 600)"},
    ExitStatusText{ExitStatus::PartialSuccess, "got through, with messages (alert 601)"},
    ExitStatusText{ExitStatus::ConfigurationError,
                   "nothing eligible, or wrong protection set (alert 602); of doctor: it found an error"},
    ExitStatusText{ExitStatus::VerificationFailure, "verification failed (alert 603)"},
    ExitStatusText{ExitStatus::ExtraVolumes, "extra volumes in the collection (alert 701)"},
    ExitStatusText{ExitStatus::FailedCall, "a platform call failed with an HRESULT"},
    ExitStatusText{ExitStatus::Validation, "validation refused the volumes or the host (250-255)"},
    ExitStatusText{ExitStatus::Stopped, "interrupted, or past its deadline (--deadline, --deadline-step)"},
    ExitStatusText{ExitStatus::NotAllDone, "taken, but what was asked for afterwards is not all done"},
    ExitStatusText{ExitStatus::NotContained, "not everything that was required would be in the set (--require)"},
};

}  // namespace varnelctl
