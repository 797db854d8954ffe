// The library's log as varnelctl keeps it.
#pragma once

#include <memory>

#include "platform/tessel/log_sink.h"

namespace varnelctl {

/// A sink whose texts pass PrintableLines before `sink` gets them: names that a host gives its things shall neither
/// move the cursor nor hide something where the log is looked at.
std::unique_ptr<varnel::LogSink> MakePrintableLog(std::unique_ptr<varnel::LogSink> sink);

}  // namespace varnelctl
