#include "varnelctl/application.h"

#include <algorithm>
#include <unordered_set>

#include "core/configuration.h"
#include "core/provider.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "varnelctl/explanation/advice.h"

namespace varnelctl {
namespace {

template <class Requestor>
class Planner final : public Requestor {
 public:
  Planner() : Requestor(0) {}

  void Select(SelectionWatcher& watcher, std::string& errorDetails) {
    this->SelectComponentsForBackup(errorDetails);
    watcher.Selected();
    ListVolumes();
    for (const SnapshotVolumeInfo& volume : this->m_snapshotVolumes) {
      watcher.Checking(volume.volumeName);
      CheckVolume(volume.volumeName, errorDetails);
    }
    if (this->m_lastException.GetAlertCode() != VarnelException::None) throw VarnelException(this->m_lastException);
  }

  IVssBackupComponents* Service() const { return this->m_pVssObject.Get(); }

 private:
  // Those of the files, then those of the extra disks, each once.
  void ListVolumes() {
    std::vector<std::wstring> volumes;
    std::unordered_set<std::wstring_view> seen;
    for (const VssWriter& writer : this->m_writers) {
      if (writer.excluded) continue;
      for (const VssComponent& component : writer.components) {
        if (component.excluded) continue;
        for (const VssFileDescriptor& file : component.files) {
          if (seen.insert(file.volumeName).second) volumes.push_back(file.volumeName);
        }
      }
    }
    this->GetVolumeListForExtraVolumes(volumes);
    for (const std::wstring& volume : volumes) {
      if (!this->IsVolumeAlreadyAdded(volume)) this->m_snapshotVolumes.push_back({volume, {}, {}});
    }
  }

  // Fails as the set would when the volume is added to it.
  void CheckVolume(const std::wstring& volume, std::string& errorDetails) {
    BOOL supported = TRUE;
    std::wstring name = volume;  // the service takes a text that it might change
    HRESULT hr = this->m_pVssObject->IsVolumeSupported(varnel::ArrayProviderId(), name.data(), &supported);
    if (SUCCEEDED(hr) && !supported) hr = VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER;
    this->CheckCommError(hr, "m_pVssObject->AddToSnapshotSet()", errorDetails);
  }
};

template <class Requestor>
PlanningRequestor MakePlanner() {
  auto planner = std::make_unique<Planner<Requestor>>();
  Planner<Requestor>& borrowed = *planner;
  return {std::move(planner),
          [&borrowed](SelectionWatcher& watcher, std::string& errorDetails) { borrowed.Select(watcher, errorDetails); },
          [&borrowed] { return borrowed.Service(); }};
}

}  // namespace

std::unique_ptr<CVarnel> MakeRequestor(Application application, DWORD testPoints, bool skipDbVerification) {
  switch (application) {
    case Application::Sql:
      return std::make_unique<SqlReq>(testPoints);
    case Application::Exchange: {
      auto requestor = std::make_unique<ExchangeReq>(testPoints);
      if (skipDbVerification) requestor->SetSkipDBVerification();
      return requestor;
    }
    case Application::HyperV:
      return std::make_unique<HyperVReq>(testPoints);
    case Application::None:
      break;
  }
  return std::make_unique<CVarnel>(testPoints);
}

PlanningRequestor MakePlanningRequestor(Application application) {
  switch (application) {
    case Application::Sql:
      return MakePlanner<SqlReq>();
    case Application::Exchange:
      return MakePlanner<ExchangeReq>();
    case Application::HyperV:
      return MakePlanner<HyperVReq>();
    case Application::None:
      break;
  }
  return MakePlanner<CVarnel>();
}

bool IsWriterOf(Application application, const VssWriter& writer) {
  const auto isOneOf = [&](const auto&... ids) { return (... || (writer.writerId == ids)); };
  switch (application) {
    case Application::Sql:
      return isOneOf(varnel::kSqlServerWriterId, varnel::kMsdeWriterId);
    case Application::Exchange:
      return isOneOf(varnel::kExchangeWriterId);
    case Application::HyperV:
      return isOneOf(varnel::kHyperVWriterId, varnel::kClusterSharedVolumeWriterId);
    case Application::None:
      break;
  }
  return true;
}

std::string_view MissingWriterCase(Application application) {
  switch (application) {
    case Application::Sql:
      return advice::kNoSqlWriter;
    case Application::Exchange:
      return advice::kNoExchangeWriter;
    case Application::HyperV:
      return advice::kNoHyperVWriter;
    case Application::None:
      break;
  }
  return advice::kNoWriter;
}

}  // namespace varnelctl
