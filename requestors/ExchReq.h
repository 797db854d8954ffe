// The requestor of Exchange Server databases.
#pragma once

#include <string>

#include "core/varnel.h"

/// Takes application-consistent snapshots of Exchange databases: only the Exchange writer takes part. Databases and
/// logs are verified on the snapshot with the server's own utility, which must be on the search path. (It is looked for
/// in the folder of the installation only after a plain code 2 or 3; ExecCommand reports HRESULTs.)
class VARNEL_API ExchangeReq : public CVarnel {
 public:
  /// \param testPoints as for CVarnel.
  explicit ExchangeReq(DWORD testPoints);
  /// \param testPoints as for CVarnel.
  /// \param flag is kept for the host agent; nothing here reads it.
  ExchangeReq(DWORD testPoints, bool flag);
  ~ExchangeReq() override;

  /// Leaves databases unverified from now on; logs are verified all the same. Belongs before CreateVssSnapshotSet.
  void SetSkipDBVerification();

  /// Verifies a database or a set of logs on the snapshot; checkpoint files are passed over, anything else is logged
  /// and passed over. Throws VarnelException 603 when the utility finds damage or cannot be run.
  void VerifyComponentFile(VssFileDescriptor& file) override;

 private:
  friend class varnel::RequestorProbe;

  bool IsWriterEligible(VssWriter& writer) override;
  void GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) override;

  // What follows the utility's name on its command line, the blank before it included.
  void BuildVerificationArgsForLogs(const VssFileDescriptor& file, std::wstring& args);
  void BuildVerificationArgsForEDBs(const VssFileDescriptor& file, std::wstring& args);
  void GetVerificationFilePathForEDB(const VssFileDescriptor& file, std::wstring& path);

  // 0 and the folder with a backslash at its end; 3 without an installation path; else an HRESULT.
  long FindExchangeServerBinFolder(std::wstring& folder);
  // Each returns a Win32 code and leaves in `errorText` what went wrong. The caller closes `versionKey`.
  long FindVersionSubKey(HKEY parent, HKEY& versionKey, std::wstring& errorText);
  long GetSetupInstallPathByVersionKey(HKEY versionKey, std::wstring& installPath, std::wstring& errorText);

  [[maybe_unused]] DWORD m_flag;
  DWORD m_skipDBVerification = 0;
};
