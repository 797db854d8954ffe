#include "varnelctl/explanation/advice.h"

#include <algorithm>
#include <iterator>

namespace varnelctl {
namespace {

constexpr std::string_view kHost = "the administrator of this host";
constexpr std::string_view kApplication = "the administrator of the application";
constexpr std::string_view kArray = "the administrator of the array";
constexpr std::string_view kMaker = "the maker of the array's VSS hardware provider";
constexpr std::string_view kMicrosoft = "the administrator of this host, then Microsoft's support";
constexpr std::string_view kVendor = "the maker of the writer's application, with its messages of the event log";
constexpr std::string_view kAgent =
    "whoever supports varnel or the agent, with the log of a run (--log FILE --log-level verbose)";
constexpr std::string_view kNobody = "nobody";

constexpr Advice kAdvice[] = {
    {AdviceKind::ExitStatus, 0, "done", "Everything that was asked for is done.",
     "Nothing. What a snapshot set does not hold is listed under \"Not in the set\" with the reason; with --require "
     "such a "
     "run ends with 19 instead.",
     kNobody},
    {AdviceKind::ExitStatus, 1, "unexpected", "varnelctl met something that it has no status for.",
     "Read the message: it is all that is known. Run the command again with --log FILE --log-level verbose and hand "
     "the log to support.",
     kAgent},
    {AdviceKind::ExitStatus, 2, "usage", "The command line, or a file that it names, cannot be used. Nothing was done.",
     "Correct what the message names. varnelctl COMMAND --help lists every option with an example.", kNobody},
    {AdviceKind::ExitStatus, 10, "writer-failure",
     "A writer of the application failed (alert 600). The set is deleted.",
     "See the WriterFailure record: varnelctl explain with the name after WriterError= tells what to do.",
     kApplication},
    {AdviceKind::ExitStatus, 11, "partial-success",
     "The set stands, but a writer reported failures (alert 601): of some components, or after the snapshot.",
     "What is listed as failed by its writer is no good copy; everything else in the set is. Mend each object that a "
     "ComponentLevelFailure record names, and take the next snapshot.",
     kApplication},
    {AdviceKind::ExitStatus, 12, "configuration-error",
     "Nothing of the application can be captured with these disks, or its writer is not there (alert 602). No set was "
     "taken.",
     "See the reasons under \"Not in the set\": each names the disk that is missing. Add it to --disk, or start the "
     "writer's "
     "service when the message says that no writer is present.",
     kHost},
    {AdviceKind::ExitStatus, 13, "verification-failure",
     "A file of the snapshot failed its check, or could not be checked (alert 603). The set is deleted.",
     "See whether the message says that the checker was not found (install it or add its folder to the PATH), or that "
     "it found damage (the database itself is likely to be damaged: keep the last good snapshot).",
     kApplication},
    {AdviceKind::ExitStatus, 14, "extra-volumes",
     "The disks hold volumes that nothing captured of the application uses (alert 701). The set is deleted.",
     "Take the disks that the message lists out of --disk. Where a database under \"Not in the set\" should have used "
     "one, "
     "add the disk that its reason names. --accept-extra-volumes keeps such a set.",
     kHost},
    {AdviceKind::ExitStatus, 15, "failed-call",
     "A call of the service, the provider or Windows failed; the message names it.",
     "Look up the code of the message: varnelctl explain 0x....", kHost},
    {AdviceKind::ExitStatus, 16, "validation",
     "The volumes do not go together, or the host cannot take part (250 to 255). Nothing was asked of the writers.",
     "Look up the status word in the last record: varnelctl explain STATUS.", kHost},
    {AdviceKind::ExitStatus, 17, "stopped",
     "Somebody ended the run, or it was past the deadline that it was given, before it was done.",
     "The last line tells what there is of the set. See the step that the message names: varnelctl explain interrupted "
     "or varnelctl explain past-deadline tells what to do.",
     kHost},
    {AdviceKind::ExitStatus, 18, "not-all-done",
     "The set was taken, but what was to happen to it or to its results afterwards did not all happen.",
     "The snapshot itself is good: do not take it again for this. Do by hand what the message names: delete the "
     "copies that are left, end the sessions that are open, or write the output elsewhere.",
     kHost},
    {AdviceKind::ExitStatus, 19, "not-contained",
     "Something that --require names would not be in the set, so it was given up before the writers prepared.",
     "Add the disks that the message names for each object, or take the object out of --require.", kHost},

    {AdviceKind::Alert, 600, "WriterFailure", "Selected writers failed; the set is not usable and is deleted.",
     "See the WriterFailure record: varnelctl explain with the name after WriterError= tells what to do. On the host, "
     "vssadmin list writers shows the same, and the application's event log why.",
     kApplication},
    {AdviceKind::Alert, 601, "PartialSuccess",
     "The set is usable but for the components that failed, or a writer failed after the snapshot was taken.",
     "Keep the set. Mend each object that a ComponentLevelFailure record names (its ApplicationMsg says why), and "
     "take the next snapshot; until then that object has no good copy.",
     kApplication},
    {AdviceKind::Alert, 602, "ConfigurationError", "Nothing can be captured with these disks; no set was taken.",
     "Compare the disks of the protection set with those of the application's files (varnelctl writers lists every "
     "file with its disk), and correct the protection set. When no writer is present, start its service.",
     kHost},
    {AdviceKind::Alert, 603, "VerificationFailure",
     "A file of the snapshot is damaged or could not be checked; the set is deleted.",
     "The log has the checker's command line. A checker that is missing is installed or put on the PATH; for a file "
     "that is damaged see varnelctl explain checker-failed.",
     kApplication},
    {AdviceKind::Alert, 701, "ExtraVolumes", "The disks hold volumes that nothing captured of the application uses.",
     "Where an object lacks a disk, add that disk: what is left out because part of it lies elsewhere leaves its other "
     "disks over. Otherwise take the disks that the message lists out of the protection set, or bring files of the "
     "application onto them.",
     kHost},
    {AdviceKind::Alert, 250, "TesselHyperVValidation_MixOfCSV_NonCSVVolumes",
     "The disks hold cluster shared volumes and clustered volumes that are none; a Hyper-V set cannot have both.",
     "The record lists the volumes of each kind. Make one protection set of the cluster shared volumes; turn the "
     "others into cluster shared volumes in the Failover Cluster Manager before they can be protected.",
     kHost},
    {AdviceKind::Alert, 251, "TesselHyperVValidation_ClusterDiskFound",
     "The disks are clustered, but no cluster shared volumes; Hyper-V cannot capture machines on them.",
     "Turn the volumes that the record lists into cluster shared volumes in the Failover Cluster Manager, or take "
     "their "
     "disks out of the protection set.",
     kHost},
    {AdviceKind::Alert, 252, "TesselHyperVValidation_Exception",
     "The volumes could not be examined: the cluster or a volume did not answer, or a volume lies on several disks.",
     "ErrMsg in the record says why. Check that the service \"Cluster Service\" (ClusSvc) runs on this node and that "
     "varnelctl disks lists every volume of the disks, each on one disk; the log names the call that failed.",
     kHost},
    {AdviceKind::Alert, 253, "TesselHyperVValidation_MixOfStandalone_ClusterVolumes",
     "The disks hold volumes of the cluster and volumes of this node alone; a Hyper-V set cannot have both.",
     "The record lists the volumes of each kind. Make one protection set of the "
     "cluster's disks and another one of the node's own.",
     kHost},
    {AdviceKind::Alert, 254, "UnsupportedOSVersion",
     "Hyper-V sets need Windows Server 2012 R2 (6.3) or later; this host is older, no server, or says it is because "
     "the "
     "agent's program has no manifest.",
     "Move the virtual machines to a supported host; no update helps. If this host is one, give the agent's program a "
     "manifest that names the versions of Windows it supports.",
     kHost},
    {AdviceKind::Alert, 255, "MissingHotfixes",
     "Vmms.exe in the system directory is missing or older than 6.3.9600.17120, from which on machines can be "
     "captured.",
     "Install the current updates of Windows on this host and restart it. (Get-Item "
     "C:\\Windows\\System32\\vmms.exe).VersionInfo in PowerShell shows the version.",
     kHost},

    {AdviceKind::Record, 1, "COMMError",
     "A call of the Volume Shadow Copy service failed; the first field is the call.",
     "Look up the name after error=: varnelctl explain NAME.", kHost},
    {AdviceKind::Record, 2, "WriterFailure", "A writer that takes part reported a failure after one of the steps.",
     "Look up the name after WriterError=: varnelctl explain NAME. vssadmin list writers on the host shows the same; "
     "ApplicationError and ApplicationMsg are the application's own words, to be looked up in its log.",
     kApplication},
    {AdviceKind::Record, 3, "ComponentLevelFailure",
     "One component (a database, mailbox database or virtual machine) failed; Component names it.",
     "Look up the name after ComponentLevelError=, and ApplicationMsg in the application's own log; of a virtual "
     "machine, in the event log of its guest. The rest of the application is not concerned.",
     kApplication},
    {AdviceKind::Record, 4, "GetDiskSerialNumberForVolume()_failed",
     "The set was taken, but the disk behind one of its shadow copies, or that disk's serial number, cannot be read.",
     "Check that the shadow copy's disk arrives on this host (disk management; the iSCSI or Fibre Channel paths to the "
     "array), then take the snapshot again.",
     kArray},
    {AdviceKind::Record, 5, "QueryStatus()",
     "Something that the service does in its own time ended badly; Error says how.",
     "Look up the name after Error=: varnelctl explain NAME. The log's line \"Waiting for Operation=\" before it names "
     "the operation.",
     kHost},
    {AdviceKind::Record, 6, "LowMemory", "There was no memory for the list of iSCSI sessions; none was ended.",
     "Free memory on the host, then end the sessions of the set's disks: iscsicli SessionList names them, iscsicli "
     "LogoutTarget SESSIONID ends one.",
     kHost},
    {AdviceKind::Record, 7, "LowMemory",
     "There was no memory for the devices of one iSCSI session; sessions before it may have been ended.",
     "Free memory on the host, then end the sessions of the set's disks that are left: iscsicli SessionList names "
     "them, iscsicli LogoutTarget SESSIONID ends one.",
     kHost},
    {AdviceKind::Record, 8, "AddComponentFailed", "The service did not take the component into the backup.",
     "Check that the application has not changed while the request ran and that its writer still lists the component "
     "(varnelctl writers), then take the snapshot again.",
     kApplication},
    {AdviceKind::Record, 9, "NoComponentsEligibleForBackup",
     "The disks are right, but nothing on them can be selected: what lies there belongs to a parent that is not whole.",
     "Add the disks that the parent's other parts lie on (\"Not in the set\" lists them) to the protection set.",
     kHost},
    {AdviceKind::Record, 10, "LunMismatch",
     "Nothing that the application can have captured lies wholly on the disks of the protection set.",
     "Add the disks that an object lacks (\"Not in the set\" lists them all) to the protection set, or move the "
     "object's "
     "files "
     "onto its disks. An object that is not listed at all is offline: bring it online.",
     kHost},
    {AdviceKind::Record, 11, "ExtarVolumesInVolColl",
     "The protection set has disks that nothing captured of the application uses; the list follows the record.",
     "Take these disks out of the protection set. Where an object under \"Not in the set\" should have used one, add "
     "the "
     "disk "
     "that it lacks. A serial number that no disk has is listed too: correct it.",
     kHost},
    {AdviceKind::Record, 12, "TesselHyperVValidation_MixOfStandalone_ClusterVolumes",
     "Volumes of the cluster and volumes of this node alone cannot be in one Hyper-V set (253).",
     "Make one protection set of the volumes after \"Clustered:\" and another one of those after \"Standalone:\".",
     kHost},
    {AdviceKind::Record, 13, "TesselHyperVValidation_MixOfCSV_NonCSVVolumes",
     "Cluster shared volumes and other clustered volumes cannot be in one Hyper-V set (250).",
     "Make one protection set of the volumes after \"CSV:\"; turn those after \"Non CSV:\" into cluster shared volumes "
     "before they can be protected.",
     kHost},
    {AdviceKind::Record, 14, "TesselHyperVValidation_ClusterDiskFound",
     "Clustered volumes that are no cluster shared volumes cannot be in a Hyper-V set (251).",
     "Turn the volumes after \"Cluster Disk:\" into cluster shared volumes in the Failover Cluster Manager, or take "
     "their disks out of the protection set.",
     kHost},
    {AdviceKind::Record, 15, "TesselHyperVValidation_Exception",
     "The volumes could not be examined (252); ErrMsg says why.",
     "Check that the service \"Cluster Service\" (ClusSvc) runs on this node and that every volume of the disks lies "
     "on "
     "one disk; the log names the call that failed.",
     kHost},
    {AdviceKind::Record, 16, "MissingHotfixes", "Vmms.exe is missing or older than 6.3.9600.17120 (255).",
     "Install the current updates of Windows on this host and restart it.", kHost},
    {AdviceKind::Record, 17, "UnsupportedOSVersion", "Hyper-V sets need Windows Server 2012 R2 (6.3) or later (254).",
     "Move the virtual machines to a supported host; no update of this one helps.", kHost},

    // ---- codes: no failures ----
    {AdviceKind::Code, 0x00000000, "S_OK", "The call succeeded.", "Nothing.", kNobody},
    {AdviceKind::Code, 0x00000001, "S_FALSE", "The call succeeded, and there was nothing (more) to give.", "Nothing.",
     kNobody},
    {AdviceKind::Code, 0x00042309, "VSS_S_ASYNC_PENDING", "The operation is still running.",
     "Wait for it: an agent asks IVssAsync::QueryStatus again after IVssAsync::Wait.", kAgent},
    {AdviceKind::Code, 0x0004230A, "VSS_S_ASYNC_FINISHED", "The operation has ended well.", "Nothing.", kNobody},
    {AdviceKind::Code, 0x0004230B, "VSS_S_ASYNC_CANCELLED", "The operation was cancelled before its end.",
     "Take the snapshot again; nothing is wrong with the host.", kNobody},

    // ---- codes: what the service answers ----
    {AdviceKind::Code, 0x80042301, "VSS_E_BAD_STATE",
     "The service took the call for one out of order, or for one on an object that is not initialised.",
     "varnelctl makes its calls in order, so the service has lost the request or another operation of it was still "
     "running. Take the snapshot again. If it comes back, restart the service \"Volume Shadow Copy\" (VSS) while no "
     "backup is running; the Application event log, source VSS, tells more.",
     kMicrosoft},
    {AdviceKind::Code, 0x80042302, "VSS_E_UNEXPECTED",
     "The service met an error that it has no code for, and logged it.",
     "Read the newest entries of sources VSS and VolSnap in the event logs (Application, System): they name the cause. "
     "Then restart the service \"Volume Shadow Copy\" (VSS) while no backup is running, and try again.",
     kMicrosoft},
    {AdviceKind::Code, 0x80042304, "VSS_E_PROVIDER_NOT_REGISTERED",
     "The array's VSS hardware provider is not installed on this host, or under another identifier.",
     "Run varnelctl providers. If the array's own is not registered, install or repair the array's host software, then "
     "try again; no disk or writer is at fault.",
     kMaker},
    {AdviceKind::Code, 0x80042306, "VSS_E_PROVIDER_VETO", "The provider refused, for a reason that it has logged.",
     "Read the newest entries of the provider's own name and of source VSS in the Application event log, and the "
     "array's log of that minute: no room, no licence, no connection to the array and a limit of snapshots are what "
     "providers refuse for. Mend that, then try again.",
     kArray},
    {AdviceKind::Code, 0x80042307, "VSS_E_PROVIDER_IN_USE",
     "The provider cannot be unregistered while shadow copies of it are made.",
     "Wait until no backup is running, then try again.", kMaker},
    {AdviceKind::Code, 0x80042308, "VSS_E_OBJECT_NOT_FOUND",
     "The volume, shadow copy, set or component that the call names is not there (any more).",
     "If a volume was being added: check with varnelctl disks that it is still online, then try again. If a set was to "
     "be deleted, broken or read: it was deleted, broken or released already; vssadmin list shadows shows what there "
     "is.",
     kHost},
    {AdviceKind::Code, 0x8004230C, "VSS_E_VOLUME_NOT_SUPPORTED",
     "No provider can take a shadow copy of the volume in this way.",
     "Check that the volume lies on a disk of the array (varnelctl disks) and has a file system that can be shadowed "
     "(NTFS or ReFS), and that the context asks for nothing that the provider lacks.",
     kArray},
    {AdviceKind::Code, 0x8004230D, "VSS_E_OBJECT_ALREADY_EXISTS", "The volume or component is in the set already.",
     "Nothing is to be mended on the host. Two names of one volume, or two components of one name, are the cause: hand "
     "the log to support.",
     kAgent},
    {AdviceKind::Code, 0x8004230E, "VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER",
     "The array's provider does not know the volume as one of its own.",
     "Check with varnelctl disks that the volume's disk is the array's, and that the provider is connected to that "
     "array (its own configuration tool). Take other disks out of the protection set.",
     kArray},
    {AdviceKind::Code, 0x8004230F, "VSS_E_UNEXPECTED_PROVIDER_ERROR",
     "The provider failed in a way that it does not explain.",
     "Read the provider's own log and its entries and those of source VSS in the Application event log. Restart the "
     "provider's service; wait ten minutes before the next try, and try at most three times.",
     kMaker},
    {AdviceKind::Code, 0x80042310, "VSS_E_CORRUPT_XML_DOCUMENT", "A document of a writer or of the backup is damaged.",
     "Restart the service of the writer that the log names last, then try again.", kMicrosoft},
    {AdviceKind::Code, 0x80042311, "VSS_E_INVALID_XML_DOCUMENT",
     "A document of a writer or of the backup cannot be read.",
     "Run vssadmin list writers and restart the service of any writer in a failed state, then try again. The log names "
     "the writer that was being read.",
     kVendor},
    {AdviceKind::Code, 0x80042312, "VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED",
     "The set would have more than 64 volumes.",
     "Divide the protection set into several of at most 64 volumes each; keep all disks of one database together.",
     kHost},
    {AdviceKind::Code, 0x80042313, "VSS_E_FLUSH_WRITES_TIMEOUT",
     "The file systems could not be flushed in the 10 seconds that Windows gives for it: too much was being written.",
     "Wait ten minutes, then try again, at most three times. If it comes back, take snapshots when the disks are less "
     "busy, with fewer volumes in one set, and look for slow disks (System event log, source disk).",
     kHost},
    {AdviceKind::Code, 0x80042314, "VSS_E_HOLD_WRITES_TIMEOUT",
     "Windows holds writes to the volumes for at most 10 seconds, and the provider's snapshot took longer.",
     "Wait ten minutes, then try again, at most three times. If it comes back, the array is too slow or too busy to "
     "take the snapshot: look at its load and its log of that minute, and take fewer volumes in one set.",
     kArray},
    {AdviceKind::Code, 0x80042315, "VSS_E_UNEXPECTED_WRITER_ERROR",
     "A writer failed in a way that it does not explain.",
     "Run vssadmin list writers, restart the service of any writer in a failed state, then try again. The Application "
     "event log has the writer's own message.",
     kVendor},
    {AdviceKind::Code, 0x80042316, "VSS_E_SNAPSHOT_SET_IN_PROGRESS",
     "Another snapshot set is being made on this host (or, of a cluster shared volume, on another node): the service "
     "takes one at a time.",
     "Wait until the other backup has taken its snapshot, some minutes, then try again. If nothing else is running, "
     "vssadmin list writers shows writers that wait; restart the service \"Volume Shadow Copy\" (VSS).",
     kHost},
    {AdviceKind::Code, 0x80042317, "VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED",
     "The volume has as many shadow copies as its provider allows.",
     "Delete old shadow copies of the volume (vssadmin list shadows, or in the array's management), then try again.",
     kArray},
    {AdviceKind::Code, 0x80042318, "VSS_E_WRITER_INFRASTRUCTURE", "The service cannot reach the writers at all.",
     "Check that the services \"COM+ Event System\" (EventSystem) and \"Volume Shadow Copy\" (VSS) are not disabled, "
     "start the first, and run vssadmin list writers: it must list writers before a snapshot can be taken.",
     kMicrosoft},
    {AdviceKind::Code, 0x80042319, "VSS_E_WRITER_NOT_RESPONDING", "A writer did not answer the service.",
     "Run vssadmin list writers, restart the service of the writer that is missing or failed, then try again. If every "
     "writer is concerned, COM security keeps them out: see varnelctl explain E_ACCESSDENIED.",
     kApplication},
    {AdviceKind::Code, 0x8004231A, "VSS_E_WRITER_ALREADY_SUBSCRIBED", "A writer is registered already.",
     "Restart the service of that writer, then try again.", kVendor},
    {AdviceKind::Code, 0x8004231B, "VSS_E_UNSUPPORTED_CONTEXT",
     "The provider cannot make a set in the context that was asked for.",
     "Take another --context: backup and app-rollback are what providers have. Attributes like transportable need a "
     "provider that can move its disks.",
     kMaker},
    {AdviceKind::Code, 0x8004231D, "VSS_E_VOLUME_IN_USE",
     "The volume is in use, so that the operation cannot have it for itself.",
     "Close the programs that have files open on it, then try again.", kHost},
    {AdviceKind::Code, 0x8004231E, "VSS_E_MAXIMUM_DIFFAREA_ASSOCIATIONS_REACHED",
     "No further storage area for shadow copies can be associated with a volume.",
     "vssadmin list shadowstorage shows the associations; delete one that is not used, then try again.", kHost},
    {AdviceKind::Code, 0x8004231F, "VSS_E_INSUFFICIENT_STORAGE",
     "There is no room for the shadow copy of a volume of the set.",
     "Make room where the provider keeps its copies: on the array for its own (delete old snapshots, or grow the "
     "pool), "
     "for the system provider on the volume itself (vssadmin list shadowstorage, vssadmin resize shadowstorage). The "
     "volume is the one that the message lists; of several, the System event log, source VolSnap, or the provider's "
     "log names it.",
     kArray},
    {AdviceKind::Code, 0x80042320, "VSS_E_NO_SNAPSHOTS_IMPORTED", "None of the shadow copies could be imported.",
     "Check that the array presents the copies' disks to this host, then try again.", kArray},
    {AdviceKind::Code, 0x80042321, "VSS_E_SOME_SNAPSHOTS_NOT_IMPORTED",
     "Some of the shadow copies could not be imported.",
     "Check that the array presents every disk of the set to this host, then try again.", kArray},
    {AdviceKind::Code, 0x80042327, "VSS_E_REBOOT_REQUIRED",
     "The provider needs a restart of the host before it can go on.", "Restart the host, then try again.", kHost},
    {AdviceKind::Code, 0x80042328, "VSS_E_TRANSACTION_FREEZE_TIMEOUT",
     "Transactions of the file system could not be frozen in time.",
     "Wait ten minutes, then try again, at most three times; take snapshots when the host is less busy.", kMicrosoft},
    {AdviceKind::Code, 0x80042329, "VSS_E_TRANSACTION_THAW_TIMEOUT",
     "Transactions of the file system took too long to thaw.",
     "Wait ten minutes, then try again, at most three times; take snapshots when the host is less busy.", kMicrosoft},
    {AdviceKind::Code, 0x8004232C, "VSS_E_NESTED_VOLUME_LIMIT",
     "A volume lies on a virtual disk in a file of another volume, deeper than can be shadowed or with both in one "
     "set.",
     "Take the volume of the virtual disk and the volume that holds its file in two sets.", kHost},
    {AdviceKind::Code, 0x8004232D, "VSS_E_VOLUME_NOT_LOCAL", "The volume is not mounted on this node.",
     "Take the snapshot on the node that owns the volume.", kHost},
    {AdviceKind::Code, 0x8004232E, "VSS_E_CLUSTER_TIMEOUT", "The cluster did not answer in time.",
     "Check in the Failover Cluster Manager that every node and disk of the cluster is up, then try again.", kHost},
    {AdviceKind::Code, 0x8004232F, "VSS_E_NOT_SUPPORTED", "The service or the provider has no such operation.",
     "Check that Windows and the array's host software are up to date; leave out the option that the message is about.",
     kMaker},

    // ---- codes: how writers fail ----
    {AdviceKind::Code, 0x80042336, "VSS_E_WRITERERROR_PARTIAL_FAILURE",
     "Some components of the writer failed, the others did not.",
     "See the ComponentLevelFailure records: each names a component and its error. What else is in the set is good.",
     kApplication},
    {AdviceKind::Code, 0x800423F0, "VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT",
     "The set does not hold all the volumes of something that the writer has to capture whole.",
     "List the files of the objects that the message names with varnelctl writers, add every disk that they lie on to "
     "the protection set, and take the snapshot again. Trying again without that fails again.",
     kApplication},
    {AdviceKind::Code, 0x800423F1, "VSS_E_WRITERERROR_OUTOFRESOURCES",
     "The writer ran out of memory or of another resource.",
     "Take load off the host, or put fewer databases into one set; wait ten minutes, then try again, at most three "
     "times.",
     kApplication},
    {AdviceKind::Code, 0x800423F2, "VSS_E_WRITERERROR_TIMEOUT",
     "The writer was frozen longer than it may be: 60 seconds for most writers, 20 for Exchange.",
     "Wait ten minutes, then try again, at most three times. If it comes back, take snapshots when the disks are less "
     "busy, and put fewer databases into one set: all of a set's databases are frozen at once.",
     kApplication},
    {AdviceKind::Code, 0x800423F3, "VSS_E_WRITERERROR_RETRYABLE", "The writer failed for a reason that may pass.",
     "Wait ten minutes, then try again. If it comes back, restart the writer's service and read the application's "
     "event "
     "log.",
     kApplication},
    {AdviceKind::Code, 0x800423F4, "VSS_E_WRITERERROR_NONRETRYABLE",
     "The writer failed for a reason that will not pass by itself.",
     "Read the application's own event log of that minute (of a virtual machine, its guest's) and ApplicationMsg in "
     "the "
     "record, and mend what they name. If they name nothing, restart the writer's service. Trying again without that "
     "fails again.",
     kApplication},
    {AdviceKind::Code, 0x800423F5, "VSS_E_WRITERERROR_RECOVERY_FAILED",
     "The writer could not bring its files on the copy in order.",
     "Read the application's event log of that minute; check the database itself, then take the snapshot again.",
     kApplication},
    {AdviceKind::Code, 0x80042409, "VSS_E_WRITER_STATUS_NOT_AVAILABLE",
     "The writer keeps no status of this request: too many requests have been running at once.",
     "Wait until other backups have ended, then try again. If none is running, restart the writer's service.",
     kApplication},

    // ---- codes: what becomes of sets ----
    {AdviceKind::Code, 0x800423F6, "VSS_E_BREAK_REVERT_ID_FAILED",
     "The disks of the broken set could not get their own identity.",
     "Bring the copies' disks offline in disk management before the originals are brought online beside them.", kArray},
    {AdviceKind::Code, 0x800423F7, "VSS_E_LEGACY_PROVIDER", "The provider is too old for this operation.",
     "Update the array's host software.", kMaker},
    {AdviceKind::Code, 0x800423F8, "VSS_E_MISSING_DISK", "A disk of the set did not arrive on this host.",
     "Check that the array presents it to this host (its paths, iSCSI sessions and zones), rescan the disks, try "
     "again.",
     kArray},
    {AdviceKind::Code, 0x800423F9, "VSS_E_MISSING_HIDDEN_VOLUME", "A volume of the copy did not arrive on this host.",
     "Rescan the disks in disk management, check the paths to the array, then try again.", kArray},
    {AdviceKind::Code, 0x800423FA, "VSS_E_MISSING_VOLUME", "A volume of the copy did not arrive on this host.",
     "Rescan the disks in disk management, check the paths to the array, then try again.", kArray},
    {AdviceKind::Code, 0x800423FB, "VSS_E_AUTORECOVERY_FAILED", "The files on the copy could not be brought in order.",
     "Read the application's event log of that minute; then take the snapshot again.", kApplication},
    {AdviceKind::Code, 0x800423FC, "VSS_E_DYNAMIC_DISK_ERROR", "A dynamic disk is in the way.",
     "Take dynamic disks out of the protection set; the array's provider works on basic disks.", kHost},
    {AdviceKind::Code, 0x800423FD, "VSS_E_NONTRANSPORTABLE_BCD", "The document is not one of a transportable set.",
     "Import the document of a set that was taken with --context transportable.", kHost},
    {AdviceKind::Code, 0x800423FE, "VSS_E_CANNOT_REVERT_DISKID", "A disk of the set cannot be given back its identity.",
     "Bring the original disk offline, then try again.", kArray},
    {AdviceKind::Code, 0x800423FF, "VSS_E_RESYNC_IN_PROGRESS", "The disks are being brought back to an earlier state.",
     "Wait until that has ended, then try again.", kArray},
    {AdviceKind::Code, 0x80042400, "VSS_E_CLUSTER_ERROR", "The cluster refused or did not answer.",
     "Check in the Failover Cluster Manager that every node and disk of the cluster is up, then try again.", kHost},
    {AdviceKind::Code, 0x80042417, "VSS_E_FSS_TIMEOUT", "The file server of a share did not answer in time.",
     "Check the file server, then try again.", kHost},

    // ---- codes: COM ----
    {AdviceKind::Code, 0x80004001, "E_NOTIMPL", "Windows or the provider does not have this function.",
     "Check that Windows and the array's host software are up to date.", kMaker},
    {AdviceKind::Code, 0x80004002, "E_NOINTERFACE",
     "The service is older than what is asked of it, or its registration is damaged.",
     "The library needs Windows Server 2008 R2 or later. On such a host, run vssadmin list writers: if that fails too, "
     "the service itself has to be repaired.",
     kMicrosoft},
    {AdviceKind::Code, 0x80004003, "E_POINTER", "The agent did not give the library what it needs.",
     "An agent of your own calls SetDiskAndVolumeEnumeratorObj or Initialize first. Otherwise hand the log to support.",
     kAgent},
    {AdviceKind::Code, 0x80004004, "E_ABORT", "The operation was broken off.", "Try again.", kHost},
    {AdviceKind::Code, 0x80004005, "E_FAIL", "The call failed and says nothing of the reason.",
     "Read the newest entries of source VSS in the Application event log, then restart the service \"Volume Shadow "
     "Copy\" (VSS) while no backup is running, and try again.",
     kMicrosoft},
    {AdviceKind::Code, 0x8000FFFF, "E_UNEXPECTED",
     "The call failed in a way that nobody expected, or delivered nothing.",
     "Read the newest entries of source VSS in the Application event log, then try again. If it comes back, hand the "
     "log of a run to support.",
     kMicrosoft},
    {AdviceKind::Code, 0x80010106, "RPC_E_CHANGED_MODE", "COM was initialised in another way on this thread before.",
     "An agent initialises COM once, multithreaded (CoInitializeEx with COINIT_MULTITHREADED), before it uses the "
     "library.",
     kAgent},
    {AdviceKind::Code, 0x80010108, "RPC_E_DISCONNECTED", "The service or a writer ended while it was being asked.",
     "Check whether the service \"Volume Shadow Copy\" (VSS) was restarted or has crashed (Application event log), "
     "then "
     "take the snapshot again.",
     kHost},
    {AdviceKind::Code, 0x8001010D, "RPC_E_CANTCALLOUT_ININPUTSYNCCALL",
     "The call was made while a window message was answered.", "An agent calls the library from a thread of its own.",
     kAgent},
    {AdviceKind::Code, 0x80010119, "RPC_E_TOO_LATE", "COM security was set up after COM had been used.",
     "An agent calls CoInitializeSecurity right after CoInitializeEx, before anything else of the process uses COM.",
     kAgent},
    {AdviceKind::Code, 0x80040154, "REGDB_E_CLASSNOTREG",
     "The class that was to be made is not registered on this host.",
     "The Volume Shadow Copy service is not (wholly) installed: run vssadmin list providers, and repair Windows if "
     "that "
     "fails too.",
     kMicrosoft},
    {AdviceKind::Code, 0x800401F0, "CO_E_NOTINITIALIZED", "The thread has not initialised COM.",
     "An agent calls CoInitializeEx on each thread that uses the library.", kAgent},
    {AdviceKind::Code, 0x80080005, "CO_E_SERVER_EXEC_FAILURE", "The service could not be started for the call in time.",
     "Check that the service \"Volume Shadow Copy\" (VSS) is not disabled and starts; then try again.", kHost},
    {AdviceKind::Code, 0x80070005, "E_ACCESSDENIED",
     "Windows refused the call: the program is not elevated, or COM security keeps it or the writers out.",
     "Start varnelctl or the agent elevated, as a member of Administrators or Backup Operators. If it is, event 8194 "
     "of "
     "source VSS in the Application event log names the account that was refused: COM's access limits (dcomcnfg, My "
     "Computer, COM Security) and the agent's CoInitializeSecurity must let in Local System, Local Service, Network "
     "Service, Administrators and Backup Operators.",
     kHost},
    {AdviceKind::Code, 0x80070006, "E_HANDLE", "A handle is no longer valid.",
     "Try again; if it comes back, hand the log to support.", kAgent},
    {AdviceKind::Code, 0x8007000E, "E_OUTOFMEMORY", "There was no memory for the call.",
     "Free memory on the host (end what does not have to run, or add memory), then try again.", kHost},
    {AdviceKind::Code, 0x80070057, "E_INVALIDARG", "The call was given something that it does not take.",
     "Check the values of the command line: a --disk list that is empty and a --context of attributes that do not go "
     "together (differential with plex, transportable with client-accessible) end so.",
     kAgent},

    // ---- codes: Windows ----
    {AdviceKind::Code, 0x80070001, "ERROR_INVALID_FUNCTION",
     "The device does not have this function; or a program that was run ended with exit code 1.",
     "If a file of the snapshot was being checked, see varnelctl explain checker-failed. Otherwise the driver of a "
     "disk "
     "does not answer what it was asked: update it.",
     kHost},
    {AdviceKind::Code, 0x80070002, "ERROR_FILE_NOT_FOUND",
     "A file, program or device is not there; or a program that was run ended with exit code 2.",
     "If a file of the snapshot was being checked, see varnelctl explain checker-missing. If a disk was being read, it "
     "has gone from this host: check its paths.",
     kHost},
    {AdviceKind::Code, 0x80070003, "ERROR_PATH_NOT_FOUND",
     "A folder is not there; or a program that was run ended with exit code 3.",
     "If a file of the snapshot was being checked, see varnelctl explain checker-missing. Otherwise the folder that "
     "the "
     "log names has been moved since the writer listed it: try again.",
     kHost},
    {AdviceKind::Code, 0x80070015, "ERROR_NOT_READY", "A disk or volume is offline.",
     "Bring it online in disk management or the Failover Cluster Manager, then try again.", kHost},
    {AdviceKind::Code, 0x8007001F, "ERROR_GEN_FAILURE", "A device or a call failed and says nothing of the reason.",
     "Look for errors of the disks in the System event log; check the paths to the array, then try again.", kHost},
    {AdviceKind::Code, 0x80070020, "ERROR_SHARING_VIOLATION", "Another program has the file open.",
     "End that program or name another file, then try again.", kHost},
    {AdviceKind::Code, 0x80070032, "ERROR_NOT_SUPPORTED", "The device or driver does not have this function.",
     "Update the driver or the array's host software.", kHost},
    {AdviceKind::Code, 0x80070070, "ERROR_DISK_FULL", "There is no room on the disk that was written to.",
     "Make room on it, or name another place.", kHost},
    {AdviceKind::Code, 0x80070079, "ERROR_SEM_TIMEOUT", "A device did not answer in time.",
     "Check the paths to the array (System event log, sources disk and iScsiPrt), then try again.", kArray},
    {AdviceKind::Code, 0x8007007A, "ERROR_INSUFFICIENT_BUFFER", "There was no memory or room for an answer.",
     "Free memory on the host, then try again.", kHost},
    {AdviceKind::Code, 0x8007007B, "ERROR_INVALID_NAME", "A name of a volume or path is not one that Windows takes.",
     "Run varnelctl writers: it lists what has no volume. Hand the log to support if nothing there is wrong.", kAgent},
    {AdviceKind::Code, 0x8007007E, "ERROR_MOD_NOT_FOUND", "A library of Windows cannot be loaded.",
     "Check that the feature it belongs to is installed (the log names the library); repair Windows otherwise.",
     kMicrosoft},
    {AdviceKind::Code, 0x8007041D, "ERROR_SERVICE_REQUEST_TIMEOUT", "A service did not start in time.",
     "Start the service that the System event log names, then try again.", kHost},
    {AdviceKind::Code, 0x80070422, "ERROR_SERVICE_DISABLED", "A service that is needed is disabled.",
     "Set the services \"Volume Shadow Copy\" (VSS) and the provider's own to start by hand (services.msc), then try "
     "again.",
     kHost},
    {AdviceKind::Code, 0x80070424, "ERROR_SERVICE_DOES_NOT_EXIST", "A service that is needed is not installed.",
     "Install the part of Windows or of the application that brings it; the Volume Shadow Copy service belongs to "
     "every "
     "Windows (sfc /scannow repairs it).",
     kHost},
    {AdviceKind::Code, 0x80070426, "ERROR_SERVICE_NOT_ACTIVE", "A service that is needed does not run.",
     "Start it: \"Microsoft iSCSI Initiator Service\" (MSiSCSI) when sessions were to be ended, \"Cluster Service\" "
     "(ClusSvc) when a cluster was asked, otherwise the provider's own.",
     kHost},
    {AdviceKind::Code, 0x8007045D, "ERROR_IO_DEVICE", "A disk could not be read or written.",
     "Look for errors of the disks in the System event log, check the paths to the array, then try again.", kArray},
    {AdviceKind::Code, 0x8007048F, "ERROR_DEVICE_NOT_CONNECTED", "A disk has gone from this host.",
     "Check the paths, sessions and zones between this host and the array, rescan the disks, then try again.", kArray},
    {AdviceKind::Code, 0x800705AA, "ERROR_NO_SYSTEM_RESOURCES", "Windows ran out of memory of its own.",
     "Take load off the host or restart it, then try again.", kHost},
    {AdviceKind::Code, 0x800705B4, "ERROR_TIMEOUT", "Something did not answer in time.",
     "Try again when the host is less busy; the log names what was asked last.", kHost},
    {AdviceKind::Code, 0x800706B5, "RPC_S_UNKNOWN_IF", "The service that was asked does not have this interface.",
     "Restart the service \"Volume Shadow Copy\" (VSS), then try again.", kMicrosoft},
    {AdviceKind::Code, 0x800706BA, "RPC_S_SERVER_UNAVAILABLE",
     "The service, writer or provider that was asked does not run.",
     "Check that the services \"Volume Shadow Copy\" (VSS), \"COM+ Event System\" (EventSystem), \"Remote Procedure "
     "Call\" (RpcSs) and the provider's own can start; vssadmin list writers must answer. Then try again.",
     kHost},
    {AdviceKind::Code, 0x800706BE, "RPC_S_CALL_FAILED",
     "The service, a writer or the provider ended in the middle of a call.",
     "Look in the Application event log for the program that has crashed, restart its service, then try again.",
     kMicrosoft},
    {AdviceKind::Code, 0x800706BF, "RPC_S_CALL_FAILED_DNE",
     "The service, a writer or the provider ended before it took the call.",
     "Look in the Application event log for the program that has crashed, restart its service, then try again.",
     kMicrosoft},

    // ---- codes: the iSCSI initiator ----
    {AdviceKind::Code, 0xEFFF0002, "ISDSC_LOGIN_FAILED", "The target refused the login.",
     "Check in the iSCSI initiator (iscsicpl) and on the array that this initiator may log in to the target.", kArray},
    {AdviceKind::Code, 0xEFFF0003, "ISDSC_CONNECTION_FAILED", "The connection to the target failed.",
     "Check the network between this host and the array's iSCSI portals.", kArray},
    {AdviceKind::Code, 0xEFFF0009, "ISDSC_AUTHENTICATION_FAILURE", "The target does not accept the initiator's secret.",
     "Correct the CHAP name and secret on the array or in the iSCSI initiator (iscsicpl).", kArray},
    {AdviceKind::Code, 0xEFFF000A, "ISDSC_AUTHORIZATION_FAILURE", "The target does not allow this initiator.",
     "Add this host's initiator name to the target's list on the array.", kArray},
    {AdviceKind::Code, 0xEFFF0012, "ISDSC_TARGET_ERROR", "The target reported an error.",
     "Look at the array's log of that minute.", kArray},
    {AdviceKind::Code, 0xEFFF001C, "ISDSC_INVALID_SESSION_ID", "The session is not there any more.",
     "Nothing, when it was to be ended: iscsicli SessionList shows what is left.", kHost},
    {AdviceKind::Code, 0xEFFF001F, "ISDSC_SESSION_BUSY", "The session is in use.",
     "Close what uses its disks (an Explorer window, a backup, a check), then end it: iscsicli LogoutTarget SESSIONID.",
     kHost},
    {AdviceKind::Code, 0xEFFF0039, "ISDSC_SERVICE_DID_NOT_RESPOND", "The iSCSI initiator service does not answer.",
     "Restart the service \"Microsoft iSCSI Initiator Service\" (MSiSCSI) when no disk of the array is in use: its "
     "sessions end with it.",
     kHost},
    {AdviceKind::Code, 0xEFFF003D, "ISDSC_CANT_REMOVE_LAST_CONNECTION",
     "The last connection of a session ends with the session.",
     "End the session itself: iscsicli LogoutTarget SESSIONID.", kHost},
    {AdviceKind::Code, 0xEFFF003E, "ISDSC_SERVICE_NOT_RUNNING", "The iSCSI initiator service does not run.",
     "Start the service \"Microsoft iSCSI Initiator Service\" (MSiSCSI), then try again.", kHost},
    {AdviceKind::Code, 0xEFFF0040, "ISDSC_DEVICE_BUSY_ON_SESSION",
     "A disk of the session is in use, so that it cannot be ended.",
     "Close what uses the disk (an Explorer window, a backup, a check), bring it offline in disk management, then end "
     "the session: iscsicli SessionList names it, iscsicli LogoutTarget SESSIONID ends it.",
     kHost},

    // ---- cases ----
    {AdviceKind::Case, 0, advice::kNoWriter,
     "No writer of any application answered: writers that are stopped or fail at Identify are just not there.",
     "Check that the service \"COM+ Event System\" (EventSystem) runs; start it. varnelctl writers then lists the "
     "writers. If none comes back, the Application event log, source VSS, says who failed at Identify.",
     kMicrosoft},
    {AdviceKind::Case, 0, advice::kNoSqlWriter,
     "SQL Server is missing: no SqlServerWriter answered. Its service is stopped, or it failed at Identify.",
     "Start the service \"SQL Server VSS Writer\" (SQLWriter); varnelctl writers then lists the writer. If it runs, "
     "restart it: the Application event log, sources SQLWRITER and VSS, says why it failed at Identify.",
     kApplication},
    {AdviceKind::Case, 0, advice::kNoExchangeWriter,
     "Exchange is missing: no Microsoft Exchange Writer answered. Its service is stopped, or it failed at Identify.",
     "Start the service \"Microsoft Exchange Replication\" (MSExchangeRepl) or \"Microsoft Exchange Information "
     "Store\" "
     "(MSExchangeIS); varnelctl writers then lists the writer. If they run, restart the first: the Application event "
     "log says why the writer failed at Identify.",
     kApplication},
    {AdviceKind::Case, 0, advice::kNoHyperVWriter,
     "Hyper-V is missing: no Microsoft Hyper-V VSS Writer answered. Its service is stopped, or it failed at Identify.",
     "Start the service \"Hyper-V Virtual Machine Management\" (vmms); varnelctl writers then lists the writer. If it "
     "runs, restart it (machines go on running): the event log Hyper-V-VMMS says why it failed at Identify.",
     kHost},
    {AdviceKind::Case, 0, advice::kChildOutside,
     "An object is captured with all its parts or not at all, and a part of it lies outside the protection set.",
     "The message names the part and its parent. Add the disks that the part's files lie on (varnelctl writers lists "
     "them) to the protection set; the databases of an Exchange server go together.",
     kHost},
    {AdviceKind::Case, 0, advice::kCheckerMissing,
     "eseutil.exe, with which Exchange's files are checked, was not found. Nothing is known to be damaged.",
     "Repair the installation of Exchange on this host, or add the folder Bin of it to the system's Path and restart "
     "the agent, which has read Path at its start. Without --verify the snapshot is taken unchecked.",
     kApplication},
    {AdviceKind::Case, 0, advice::kCheckerFailed,
     "eseutil.exe ran and ended with an exit code that is not 0: the file that it was given is damaged, or could not "
     "be "
     "read whole.",
     "Keep the last good snapshot, and take the damage seriously: most likely it is in the live database too. Run the "
     "command line of the message on another snapshot to see every damaged page, then move the mailboxes to another "
     "database or restore it. --skip-db-verification only keeps a copy of the damaged state.",
     kApplication},
    {AdviceKind::Case, 0, advice::kCopiesLeft, "Shadow copies of the set could not be deleted and take up room.",
     "varnelctl sets delete {ID}, with the set's identifier of the message, deletes them. If that fails too, close "
     "what "
     "uses the copies' disks and try again; the last resort is to delete them in the array's management.",
     kArray},
    {AdviceKind::Case, 0, advice::kSessionOpen, "An iSCSI session of the set's disks did not end.",
     "Close what uses its disks (an Explorer window, a backup, a check) and bring them offline in disk management. "
     "Then "
     "iscsicli SessionList names the session of the message's target, and iscsicli LogoutTarget SESSIONID ends it.",
     kHost},
    {AdviceKind::Case, 0, advice::kSetElsewhere,
     "A set could not be ended from here: this host does not see its disks, or the service or the initiator refused.",
     "Look at it with varnelctl sets show {ID}. What failed for a while is ended by another varnelctl sets clean-up. A "
     "set whose disks are not seen here is deleted in the array's management; varnelctl sets delete {ID} --force then "
     "makes the journal forget it.",
     kArray},
    {AdviceKind::Case, 0, advice::kOutputLost,
     "A file, the log or the output was not written whole: part of the results is lost.",
     "Make room where it was written, or name another place. What the command did is done: a set that was taken "
     "stands, "
     "so do not take it again only for this.",
     kHost},
    {AdviceKind::Case, 0, advice::kJournal,
     "The journal, where every request is remembered so that no set is lost, cannot be read or written.",
     "Make room and access for the folder of the message: it must belong to the administrators, the system or who runs "
     "varnelctl. Or name another with --journal DIR. With --no-journal a set that a killed run leaves is listed by "
     "nobody.",
     kHost},
    {AdviceKind::Case, 0, advice::kInterrupted, "Somebody ended the run, and the request was completed as a failure.",
     "Run the command again. What is left of the set is listed with the message.", kNobody},
    {AdviceKind::Case, 0, advice::kPastDeadline,
     "A step did not end in the time that --deadline or --deadline-step gave it, so it was cancelled and the request "
     "was completed as a failure.",
     "See the step that the message names. While gathering, preparing or completing it is a writer that does not "
     "answer: vssadmin list writers shows those that are failed or wait; restart their services. While taking the "
     "snapshot it is a writer's freeze or the array's provider: see their entries in the Application event log and the "
     "array's log of that minute. Then run the command again, with a longer deadline where the host is only slow.",
     kHost},
    {AdviceKind::Case, 0, advice::kWrongBitness,
     "A 32-bit program runs on a 64-bit Windows, whose service does not answer it.",
     "Install the 64-bit varnelctl, or build the agent for 64 bits.", kHost},
    {AdviceKind::Case, 0, advice::kDcomOff,
     "DCOM is switched off on this host, so that no writer can call back into the program that takes the snapshot.",
     "Run dcomcnfg, open the properties of the computer, and check \"Enable Distributed COM on this computer\" (or set "
     "EnableDCOM below HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Ole to Y), then restart the host.",
     kHost},
    {AdviceKind::Case, 0, advice::kNoManifest,
     "Windows tells a program without a manifest that it is an older Windows, and Hyper-V sets are then refused (254).",
     "Give the agent's program a manifest that names the versions of Windows it supports, as varnel's own does; a "
     "varnelctl.exe that lacks it is not as it was installed.",
     kAgent},
    {AdviceKind::Case, 0, advice::kNoSerialNumber,
     "A disk tells no serial number, by which alone the array and this host know what they both mean.",
     "Nothing, when it is no disk of the array. Otherwise let the array's management show the number, check the driver "
     "(multipath, virtual machine settings such as disk.EnableUUID), and rescan the disks.",
     kArray},
    {AdviceKind::Case, 0, advice::kSameSerialNumber,
     "Two disks tell the same serial number, so that nobody can say which of them a set is to hold.",
     "When both are paths to one disk, set up multipath (MPIO) for the array. Otherwise one is a clone or an exposed "
     "copy: take it away from this host, or have the array give it a number of its own.",
     kArray},
    {AdviceKind::Case, 0, advice::kSeveralDisks,
     "A volume lies on several disks, and no snapshot of one of them holds it whole.",
     "Move what is on it to a volume on one disk of the array, and grow that disk on the array where it is too small. "
     "varnelctl disks shows which disks the volume lies on.",
     kHost},
    {AdviceKind::Case, 0, advice::kNotWhole,
     "A database or machine is in a set only when all of its files lie on the set's disks.",
     "Add the disks that its other files lie on (varnelctl plan --for NAME names them), or move the files onto disks "
     "of the set.",
     kHost},
    {AdviceKind::Case, 0, advice::kOnOtherDisks,
     "A database or machine lies on none of the disks that are asked for, so the set does not hold it.",
     "Nothing, when it is not to be in the set. Otherwise add the disks that it lies on: varnelctl plan --for NAME "
     "names them.",
     kHost},
    {AdviceKind::Case, 0, advice::kLeftoverSet,
     "A request ended before it was done, and what it has taken may still be there.",
     "varnelctl sets show {ID} tells what is left; varnelctl sets clean-up ends all that such requests have left.",
     kHost},
    {AdviceKind::Case, 0, advice::kClock,
     "The clock of this host is not right: logs, events and shadow copies cannot be brought together by their times, "
     "and the domain refuses the host.",
     "Set the time (w32tm /resync, or w32tm /query /status for the reason) and check where a virtual machine takes it "
     "from.",
     kHost},
    {AdviceKind::Case, 0, advice::kEventErrors,
     "The event log of the last day has errors of something that takes part in a snapshot.",
     "Read the entry in the event viewer, with those of the same minute: what it names is likely to fail again. One "
     "that was seen to is of no concern.",
     kHost},
    {AdviceKind::Case, 0, advice::kOtherCode, "A code that varnelctl has no advice for.",
     "Read the newest entries of source VSS, of the provider and of the application in the event logs of that minute. "
     "If they do not tell, run the command again with --log FILE --log-level verbose and hand the log to support.",
     kAgent},
};

}  // namespace

std::string Advice::Key() const {
  switch (kind) {
    case AdviceKind::ExitStatus:
      return "exit:" + std::to_string(number);
    case AdviceKind::Alert:
      return std::to_string(number);
    case AdviceKind::Record:
      return "record:" + std::to_string(number);
    case AdviceKind::Code:
    case AdviceKind::Case:
      break;
  }
  return std::string(name);
}

std::span<const Advice> AllAdvice() {
  return kAdvice;
}

const Advice* FindAdvice(AdviceKind kind, DWORD number) {
  const auto* const found = std::find_if(std::begin(kAdvice), std::end(kAdvice), [&](const Advice& advice) {
    return advice.kind == kind && advice.number == number;
  });
  return found == std::end(kAdvice) ? nullptr : found;
}

const Advice* FindAdvice(std::string_view key) {
  const auto* const found =
      std::find_if(std::begin(kAdvice), std::end(kAdvice), [&](const Advice& advice) { return advice.Key() == key; });
  return found == std::end(kAdvice) ? nullptr : found;
}

}  // namespace varnelctl
