// What the service, its providers' failures and its writers leave in the event log.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulator/machine/model.h"

namespace varnel::simulator {

class Machine;

/// A call of an object of the service failed without doing its work. Failures that the service does not write down
/// leave nothing.
void LogCallFailure(Machine& machine, std::string_view call, HRESULT result);
/// An operation of the service failed, named by the method that starts it; these volumes were in its set.
void LogOperationFailure(Machine& machine, std::string_view operation, HRESULT result,
                         const std::vector<std::wstring>& volumes);
/// A provider failed in one of its routines.
void LogProviderFailure(Machine& machine, const GUID& provider, std::wstring_view routine, HRESULT result);
/// A writer rejected an event with this failure. What it says besides, of itself and of its components, is in `fault`,
/// which may be null.
void LogRejection(Machine& machine, const Writer& writer, WriterEvent event, HRESULT failure, const WriterFault* fault);

}  // namespace varnel::simulator
