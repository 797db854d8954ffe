// A host agent in miniature, built against the installed library only. It asks for nothing that needs a host.
#include <cstdio>
#include <string>

#include "core/varnel.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"

namespace {

long RefusalOfAnEmptyDiskList(CVarnel& requestor) {
  try {
    requestor.SetInputDriveSerialNos({});
  } catch (long hr) {
    return hr;
  }
  return 0;
}

bool Check(bool holds, const char* claim) {
  if (!holds) std::printf("not so: %s\n", claim);
  return holds;
}

bool Accepts(CVarnel& requestor, const wchar_t* writerId) {
  VssWriter writer;
  writer.writerId = writerId;
  return requestor.IsWriterEligible(writer);
}

bool CheckApplications() {
  SqlReq sql(0);
  ExchangeReq exchange(0, true);
  HyperVReq hyperV(0);
  exchange.SetSkipDBVerification();
  bool good = Check(Accepts(sql, varnel::kSqlServerWriterId) && !Accepts(sql, varnel::kExchangeWriterId),
                    "SQL Server's requestor takes its own writer only");
  good &= Check(Accepts(exchange, varnel::kExchangeWriterId) && !Accepts(exchange, varnel::kHyperVWriterId),
                "Exchange's requestor takes its own writer only");
  good &= Check(Accepts(hyperV, varnel::kHyperVWriterId) && !Accepts(hyperV, varnel::kSqlServerWriterId),
                "Hyper-V's requestor takes its own writer only");
  return good;
}

#ifdef _WIN32
bool CheckManifest() {
  const HRSRC resource = ::FindResourceW(nullptr, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
  if (resource == nullptr) return Check(false, "the program has a manifest");
  const auto* text = static_cast<const char*>(::LockResource(::LoadResource(nullptr, resource)));
  const std::string manifest(text, ::SizeofResource(nullptr, resource));
  return Check(manifest.find("{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}") != manifest.npos,
               "the manifest names the versions of Windows");
}
#else
bool CheckManifest() {
  return true;
}
#endif

}  // namespace

int main() {
  CVarnel requestor(0);
  requestor.SetInputDriveSerialNos({L"TSL0001"});

  bool good = Check(requestor.GetSnapShotSetId().empty(), "a new requestor has no snapshot set");
  good &= Check(requestor.GetBackupDocument().empty(), "a new requestor has no backup document");
  good &= Check(RefusalOfAnEmptyDiskList(requestor) == static_cast<long>(E_INVALIDARG),
                "an empty disk list is refused with a thrown E_INVALIDARG");
  good &= Check(CVarnel::VectorToString({L"a", L"b"}) == L"a, b", "lists join with a comma");
  good &=
      Check(CVarnel::HResult2String(static_cast<long>(VSS_E_BAD_STATE)) == L"VSS_E_BAD_STATE", "results have names");
  good &= CheckApplications();
  good &= CheckManifest();
  return good ? 0 : 1;
}
