#include "requestors/SqlReq.h"

#include <algorithm>

#include "core/configuration.h"
#include "core/logging.h"

namespace {
constexpr varnel::Logger kLog(L"SqlReq");
}

SqlReq::SqlReq(DWORD testPoints) : CVarnel(testPoints) {}

SqlReq::~SqlReq() = default;

bool SqlReq::IsWriterEligible(VssWriter& writer) {
  const bool eligible = std::any_of(std::begin(varnel::kSqlWriterIds), std::end(varnel::kSqlWriterIds),
                                    [&](const wchar_t* id) { return writer.writerId == id; });
  if (eligible) {
    kLog.Info(L"Found SQL writer %s ", writer.name);
  } else {
    kLog.Verbose(L"Writer %s is not an SQL writer ", writer.name);
  }
  return eligible;
}

void SqlReq::VerifyComponentFile(VssFileDescriptor& /*file*/) {}

void SqlReq::VerifyLogNCheckPtFiles(VssFileDescriptor& /*file*/) {}

void SqlReq::GetComponentInfoForCataloging(const VssComponent& component, ComponentCatalogingInfo& info) {
  info.appObjectName.clear();
  info.appObjectId = component.fullPath;
  if (info.appObjectId.empty()) {
    kLog.Error(L"Unexcpected app object id in SQL requester! The component full path was empty.");
    info.appObjectId = varnel::kUnknown;
  }
}
