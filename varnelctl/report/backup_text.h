// What kind of backup a set is and what that means to the application. Plans tell it before, runs afterwards.
#pragma once

#include <string>

#include "platform/vss.h"
#include "varnelctl/application.h"

namespace varnelctl {

/// "Full backup, context app-rollback (persistent, with writers)"
std::string BackupText(VSS_BACKUP_TYPE type, DWORD context);

/// What the application makes of such a backup that succeeds: to its logs, and to later backups. A sentence without its
/// end.
std::string BackupEffect(Application application, VSS_BACKUP_TYPE type, DWORD context);

}  // namespace varnelctl
