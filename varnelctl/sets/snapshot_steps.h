// The steps of a request for a snapshot, in their order.
#pragma once

#include "varnelctl/console/step.h"

namespace varnelctl::step {

inline constexpr StepName kLookingForDisks{"lookingForDisks", "looking for the disks", "EnumerateDisks"};
inline constexpr StepName kCheckingHost{"checkingHost", "checking the host", "ValidateHostConfiguration"};
inline constexpr StepName kCheckingVolumes{"checkingVolumes", "checking the volumes", "ValidateVolumes"};
inline constexpr StepName kLookingForProvider{"lookingForProvider", "looking for the array's provider",
                                              "IsTesselVSSProviderPresent"};
inline constexpr StepName kStarting{"starting", "starting the request", "Initialize"};
inline constexpr StepName kGathering{"gathering", "gathering the writers' metadata", "CreateVssSnapshotSet"};
inline constexpr StepName kGatheringForPlan{"gathering", "gathering the writers' metadata", "GatherWriterMetadata"};
inline constexpr StepName kSelecting{"selecting", "selecting the components", "CreateVssSnapshotSet"};
inline constexpr StepName kAdding{"adding", "adding the components and volumes", "CreateVssSnapshotSet"};
inline constexpr StepName kPreparing{"preparing", "asking the writers to prepare", "CreateVssSnapshotSet"};
// A requestor sees neither the freeze nor the thaw.
inline constexpr StepName kSnapshot{"snapshot", "taking the snapshot", "CreateVssSnapshotSet",
                                    " (preparing, freezing, thawing, after the snapshot)"};
inline constexpr StepName kReading{"reading", "reading the results", "CreateVssSnapshotSet"};
inline constexpr StepName kCataloguing{"cataloguing", "making the catalogue", "GetSnapshotMeatadata"};
inline constexpr StepName kVerifying{"verifying", "verifying the snapshot", "VerifySnapShotData"};
inline constexpr StepName kCompleting{"completing", "completing the backup", "SetBackupStatus"};
inline constexpr StepName kBreaking{"breaking", "breaking the set", "BreakSnapshotSet"};
inline constexpr StepName kMasking{"masking", "masking the set", "MaskSnapshotSet"};
inline constexpr StepName kDeleting{"deleting", "deleting the set", "DeleteSnapshotSet"};
inline constexpr StepName kDisconnecting{"disconnecting", "ending the iSCSI sessions", "DisconnectSnapshotLuns"};

}  // namespace varnelctl::step
