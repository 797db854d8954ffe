// What a host is asked for besides a run, as documents have it.
#pragma once

#include <vector>

#include "varnelctl/console/console.h"
#include "varnelctl/providers.h"
#include "varnelctl/sets/iscsi_sessions.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {

/// "hardware"
const char* ProviderTypeName(VSS_PROVIDER_TYPE type);
Json ProvidersJson(const std::vector<Provider>& providers);
Json StorageJson(const StorageView& storage);
Json SessionsJson(const std::vector<OpenSession>& sessions);

}  // namespace varnelctl
