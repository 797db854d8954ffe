// A host agent's request: a snapshot set of the SQL Server databases on some disks of the array.
#pragma once

#include <string>
#include <vector>

struct SnapshotResult {
  int outcome = 0;           // 0, an alert code, an HRESULT, or -1 for a failure without either
  std::wstring setId;        // the set's identifier; the set is gone unless the outcome is 0 or 601
  std::string alertRecords;  // for the array
  std::string trouble;       // for people: a line for each failure
};

/// Throws nothing that the library throws.
SnapshotResult TakeSnapshot(const std::vector<std::wstring>& diskSerialNumbers);
