// The Volume Shadow Copy service, asked for the sets that are there, whoever made them.
#pragma once

#include <string>
#include <vector>

#include "platform/owners.h"
#include "platform/vss.h"

namespace varnelctl {

/// A shadow copy as the service lists it. Empty texts were not told.
struct ListedCopy {
  std::wstring snapshotId;
  std::wstring volume;  ///< the source
  std::wstring device;
  std::wstring setId;
  GUID provider{};
  LONG attributes = 0;
  VSS_TIMESTAMP created = 0;  ///< 100 ns since 1601, UTC
};

/// An object of the service that sees every set. What it does to one is logged as the library does it for its own.
class SetService {
 public:
  /// Throws CallFailure.
  SetService();

  /// Every shadow copy that the service lists on this host. Transportable, masked and broken ones it does not list.
  /// Throws CallFailure.
  std::vector<ListedCopy> List() const;
  std::vector<ListedCopy> List(const std::wstring& setId) const;

  /// Makes the disks of a set ordinary ones. Throws the failed call's HRESULT as a `long`, and writes its alert record.
  void Break(const std::wstring& setId, std::string& errorDetails) const;
  /// The same, and takes the disks from this host.
  void Mask(const std::wstring& setId, std::string& errorDetails) const;
  /// By force; the copies before the first that cannot be deleted are gone. Throws the call's HRESULT as a `long`.
  void Delete(const std::wstring& setId) const;

 private:
  varnel::ComPtr<IVssBackupComponents> vss_;
};

}  // namespace varnelctl
