// The requestor of SQL Server databases.
#pragma once

#include "core/varnel.h"

/// Takes application-consistent snapshots of SQL Server databases: only the SQL writers take part, and a failing one
/// fails the request. Files are not verified on the snapshot.
class VARNEL_API SqlReq : public CVarnel {
 public:
  /// \param testPoints as for CVarnel.
  explicit SqlReq(DWORD testPoints);
  ~SqlReq() override;

  /// Nothing to do: databases are not verified.
  void VerifyComponentFile(VssFileDescriptor& file) override;

 private:
  friend class varnel::RequestorProbe;

  bool IsWriterEligible(VssWriter& writer) override;
  // The full path is the database's id; it has no name of its own.
  void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) override;
  // Nothing calls it: logs and checkpoints are not verified either.
  void VerifyLogNCheckPtFiles(VssFileDescriptor& file);
};
