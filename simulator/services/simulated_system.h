// The machine's names, environment and version, and the versions of its files.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/host.h"

namespace varnel::simulator {

class Machine;
struct HostModel;

/// A variable of the environment; nothing when there is none of that name.
std::optional<std::wstring> EnvironmentValue(const HostModel& model, std::wstring_view name);

/// Text with the variables in it replaced. A name that is not known stays as it stands; its second '%' may begin the
/// next name.
std::wstring ExpandVariables(const HostModel& model, std::wstring_view source);

std::unique_ptr<SystemInformation> MakeSystemInformation(Machine& machine);
std::unique_ptr<FileVersions> MakeFileVersions(Machine& machine);

}  // namespace varnel::simulator
