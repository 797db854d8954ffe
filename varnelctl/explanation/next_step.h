// From a failure to its advice: the one place that chooses what a person is told to do.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "varnelctl/explanation/failure.h"
#include "varnelctl/explanation/objects.h"

namespace varnelctl {

/// Fills the failure's `explain`, unless somebody who knows the case has, and its `remedy`.
/// \param errorDetails the alert records of the run: they name the call, the writer or the component that has failed.
/// \param objects of the application, where the run came to know them: they name the disks that are missing.
void Advise(Failure& failure, std::string_view errorDetails, std::span<const ApplicationObject> objects = {});

/// The HRESULT, Win32 or iSCSI code of this name, in any case.
std::optional<HRESULT> CodeCalled(std::string_view name);

/// The name of a code, else the system's text for it, else its number; one line.
std::string NameOfCode(HRESULT code);

/// "What StartSnapshotSet wants: ..."; empty for a call that is in no order.
std::string WantsOf(std::string_view method);

}  // namespace varnelctl
