// The requestor of Hyper-V virtual machines, on a stand-alone host and on a cluster node.
#pragma once

#include <string>
#include <vector>

#include "core/varnel.h"

/// Takes application-consistent snapshots of virtual machines: the Hyper-V writer and the cluster shared volume writer
/// take part. Some machines may fail while the set still stands.
class VARNEL_API HyperVReq : public CVarnel {
 public:
  /// \param testPoints as for CVarnel.
  explicit HyperVReq(DWORD testPoints);
  ~HyperVReq() override;

  /// On a cluster node the volumes must be all stand-alone or all cluster shared volumes. Appends the alert to
  /// `errorDetails`. \return 0; 250 CSVs with other clustered volumes; 251 clustered volumes that are no CSVs; 252 the
  /// disks could not be asked; 253 clustered with stand-alone volumes.
  /// Throws E_POINTER as a `long` on a cluster node while no enumerator is set.
  DWORD ValidateVolumes(const std::vector<std::string>& volumes, std::string& status, std::string& errorDetails,
                        std::vector<std::string> serialNumbers, const std::string& hostName) override;
  /// The host must be a server of version 6.3 or later whose virtual machine management service is new enough. Appends
  /// the alert to `errorDetails`. \return 0; 254 the operating system; 255 the hotfix is missing.
  DWORD ValidateHostConfiguration(std::string& errorDetails) override;

 private:
  friend class varnel::RequestorProbe;

  bool IsWriterEligible(VssWriter& writer) override;
  void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) override;
  bool ArePartialFailuresSupported() override;
};
