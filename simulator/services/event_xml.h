// An event as the event log tells it.
#pragma once

#include <string>

#include "simulator/machine/model.h"

namespace varnel::simulator {

/// One line of XML. `record` is the event's number in its channel, `time` when it was written.
std::wstring EventXml(const LoggedEvent& event, ULONGLONG record, LONGLONG time, const std::wstring& computer);

}  // namespace varnel::simulator
