// Words of the host file that are both read and written.
#pragma once

#include "platform/vss.h"
#include "simulator/host_file/words.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

inline constexpr Word<VSS_PROVIDER_TYPE> kProviderTypes[] = {
    {"system", VSS_PROV_SYSTEM},       {"software", VSS_PROV_SOFTWARE}, {"hardware", VSS_PROV_HARDWARE},
    {"fileshare", VSS_PROV_FILESHARE}, {"unknown", VSS_PROV_UNKNOWN},
};

inline constexpr Word<LONG> kCopyKinds[] = {
    {"transportable", VSS_VOLSNAP_ATTR_TRANSPORTABLE},
    {"differential", VSS_VOLSNAP_ATTR_DIFFERENTIAL},
    {"plex", VSS_VOLSNAP_ATTR_PLEX},
};

inline constexpr Word<DWORD> kServiceStarts[] = {
    {"boot", SERVICE_BOOT_START},     {"system", SERVICE_SYSTEM_START}, {"automatic", SERVICE_AUTO_START},
    {"manual", SERVICE_DEMAND_START}, {"disabled", SERVICE_DISABLED},
};

inline constexpr Word<DWORD> kServiceStates[] = {
    {"stopped", SERVICE_STOPPED}, {"starting", SERVICE_START_PENDING}, {"stopping", SERVICE_STOP_PENDING},
    {"running", SERVICE_RUNNING}, {"paused", SERVICE_PAUSED},
};

/// By the event that the writer failed at.
inline constexpr Word<VSS_WRITER_STATE> kFailedStates[] = {
    {"prepareBackup", VSS_WS_FAILED_AT_PREPARE_BACKUP},
    {"prepareSnapshot", VSS_WS_FAILED_AT_PREPARE_SNAPSHOT},
    {"freeze", VSS_WS_FAILED_AT_FREEZE},
    {"thaw", VSS_WS_FAILED_AT_THAW},
    {"postSnapshot", VSS_WS_FAILED_AT_POST_SNAPSHOT},
    {"backupComplete", VSS_WS_FAILED_AT_BACKUP_COMPLETE},
    {"backupShutdown", VSS_WS_FAILED_AT_BACKUPSHUTDOWN},
    {"preRestore", VSS_WS_FAILED_AT_PRE_RESTORE},
    {"postRestore", VSS_WS_FAILED_AT_POST_RESTORE},
};

inline constexpr Word<WriterEvent> kWriterEvents[] = {
    {"identify", WriterEvent::identify},
    {"prepareBackup", WriterEvent::prepareBackup},
    {"prepareSnapshot", WriterEvent::prepareSnapshot},
    {"freeze", WriterEvent::freeze},
    {"thaw", WriterEvent::thaw},
    {"postSnapshot", WriterEvent::postSnapshot},
    {"backupComplete", WriterEvent::backupComplete},
    {"backupShutdown", WriterEvent::backupShutdown},
    {"preRestore", WriterEvent::preRestore},
    {"postRestore", WriterEvent::postRestore},
};

}  // namespace varnel::simulator
