#include "varnelctl/explanation/advice.h"

namespace varnelctl {
namespace {

constexpr CallOrder kCallOrders[] = {
    {"InitializeForBackup", "a new object, and to be called once"},
    {"SetContext", "InitializeForBackup before it; once, and before the gathering, a query or a set"},
    {"SetBackupState", "InitializeForBackup before it, and to be called before PrepareForBackup"},
    {"GatherWriterMetadata", "InitializeForBackup before it; once for each object"},
    {"GetWriterMetadataCount", "a GatherWriterMetadata that has finished, and no FreeWriterMetadata yet"},
    {"GetWriterMetadata", "a GatherWriterMetadata that has finished, and no FreeWriterMetadata yet"},
    {"FreeWriterMetadata", "a GatherWriterMetadata that has finished"},
    {"AddComponent", "a GatherWriterMetadata that has finished, and no PrepareForBackup yet"},
    {"StartSnapshotSet",
     "InitializeForBackup before it, every operation begun to have been waited for, and no set yet"},
    {"AddToSnapshotSet", "StartSnapshotSet before it, and no PrepareForBackup or DoSnapshotSet yet"},
    {"PrepareForBackup", "SetBackupState and StartSnapshotSet before it; once for each object"},
    {"GatherWriterStatus", "a GatherWriterMetadata that has finished"},
    {"GetWriterStatusCount", "a GatherWriterStatus that has finished, and no FreeWriterStatus yet"},
    {"GetWriterStatusEx", "a GatherWriterStatus that has finished, and no FreeWriterStatus yet"},
    {"DoSnapshotSet", "StartSnapshotSet before it, and with writers a PrepareForBackup that has finished"},
    {"SaveAsXML", "a PrepareForBackup that has finished"},
    {"GetWriterComponentsCount", "a PrepareForBackup that has finished"},
    {"GetSnapshotProperties", "a DoSnapshotSet of the set that has finished"},
    {"SetBackupSucceeded", "a DoSnapshotSet that has finished well, and no BackupComplete yet"},
    {"BackupComplete", "a DoSnapshotSet that has finished well; once for each backup"},
    {"AbortBackup", "InitializeForBackup before it"},
    {"BreakSnapshotSet", "a DoSnapshotSet of the set that has finished"},
    {"BreakSnapshotSetEx", "a DoSnapshotSet of the set that has finished"},
    {"DeleteSnapshots", "InitializeForBackup before it"},
    {"Query", "InitializeForBackup before it"},
};

}  // namespace

std::span<const CallOrder> CallOrders() {
  return kCallOrders;
}

}  // namespace varnelctl
