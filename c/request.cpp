#include "c/request.h"

#include <map>
#include <optional>
#include <stdexcept>

#include "c/input.h"
#include "core/configuration.h"
#include "core/metadata_bridge.h"
#include "platform/ansi.h"
#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "resources/catalog.h"
#include "text/format.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::c {
namespace {

std::unique_ptr<CVarnel> MakeExchange(DWORD testPoints, bool skipsDatabases) {
  auto requestor = std::make_unique<ExchangeReq>(testPoints);
  if (skipsDatabases) requestor->SetSkipDBVerification();
  return requestor;
}

std::unique_ptr<CVarnel> MakeRequestor(const varnel_request_options& options) {
  switch (options.application) {
    case VARNEL_NO_APPLICATION:
      return std::make_unique<CVarnel>(options.test_points);
    case VARNEL_SQL_SERVER:
      return std::make_unique<SqlReq>(options.test_points);
    case VARNEL_EXCHANGE:
      return MakeExchange(options.test_points, options.skip_database_verification != 0);
    case VARNEL_HYPER_V:
      return std::make_unique<HyperVReq>(options.test_points);
    default:
      throw Refusal{VARNEL_BAD_ARGUMENT, "no application has the number " + std::to_string(options.application)};
  }
}

VSS_BACKUP_TYPE BackupTypeOf(int number) {
  if (number == 0) return VSS_BT_FULL;
  if (number < VARNEL_BACKUP_FULL || number > VARNEL_BACKUP_OTHER) {
    throw Refusal{VARNEL_BAD_ARGUMENT, "no type of backup has the number " + std::to_string(number)};
  }
  return static_cast<VSS_BACKUP_TYPE>(number);
}

// What the catalog of messages says of a host or volumes that cannot be protected.
std::string CatalogText(DWORD id) {
  for (const CatalogEntry& entry : Catalog()) {
    if (static_cast<DWORD>(entry.id) == id) return WideToUtf8Lossy(FormatWide(entry.text, {}));
  }
  return varnel_code_text(static_cast<int>(id));
}

void ThrowUnless0(DWORD id) {
  if (id != 0) throw Refusal{static_cast<int>(id), CatalogText(id)};
}

TextList Utf8Of(const std::vector<std::string>& texts) {
  std::vector<std::string> converted;
  converted.reserve(texts.size());
  for (const std::string& text : texts) converted.push_back(ToUtf8(text));
  return TextList(std::move(converted));
}

}  // namespace

TextList::TextList(std::vector<std::string> all) : texts(std::move(all)), pointers(PointersTo(texts)) {}

Request::Request(const varnel_request_options& options)
    : requestor_(MakeRequestor(options)),
      context_(options.context),
      backupType_(BackupTypeOf(options.backup_type)),
      restores_(options.restore != 0),
      document_(WideOf(options.document)),
      requestText_("writer=" + std::to_string(options.writer_code) + ","),
      databases_(kAllDatabasesList) {
  SetProvider(options.provider_id);
  requestor_->SetDiskAndVolumeEnumeratorObj(&enumerator_);
}

Request::~Request() = default;

void Request::Begin() {
  texts_.Clear();
  errorDetails_ = requestText_;
}

// What is lost for want of memory is told by the code, as far as that does not tell of more.
int Request::End(Outcome outcome) noexcept {
  std::string_view added = errorDetails_;
  if (added.starts_with(requestText_)) added.remove_prefix(requestText_.size());
  try {
    if (!added.empty()) outcome.records = ToUtf8(added);
    records_ += outcome.records;
    details_ = PointersTo(outcome.details);
  } catch (const std::exception&) {
    details_.clear();
    outcome.details.clear();
    if (outcome.code == VARNEL_DONE) outcome.code = VARNEL_NO_MEMORY;
  }
  outcome_ = std::move(outcome);
  return outcome_.code;
}

void Request::Require(bool holds, const char* reason) const {
  if (!holds) throw Refusal{VARNEL_BAD_ORDER, reason};
}

void Request::Dispose() noexcept {
  texts_.Clear();
  requestor_.reset();
}

void Request::SetProvider(const char* providerId) {
  if (providerId == nullptr) {
    providerId_ = CVarnel::TesselVssProviderID;
    return;
  }
  const std::optional<GUID> id = TryParseGuid<GUID>(std::wstring_view(WideOf(providerId)));
  if (!id) throw Refusal{VARNEL_BAD_ARGUMENT, "the provider's identifier is no GUID in braces"};
  providerId_ = *id;
}

void Request::AddDisks(const char* const* serialNumbers, std::size_t count) {
  Require(!isTried_, "disks are added before the snapshot");
  std::vector<std::wstring> wide = WideListOf(serialNumbers, count);
  std::vector<std::string> narrow(serialNumbers, serialNumbers + count);
  requestor_->SetInputDriveSerialNos(std::move(wide));
  serialNumbers_.insert(serialNumbers_.end(), narrow.begin(), narrow.end());
}

void Request::ValidateHost() {
  ThrowUnless0(requestor_->ValidateHostConfiguration(errorDetails_));
}

void Request::ValidateVolumes(const char* const* volumes, std::size_t count) {
  std::vector<std::string> names;
  for (const std::wstring& name : WideListOf(volumes, count)) names.push_back(WideToAnsi(name));
  std::string status;
  ThrowUnless0(requestor_->ValidateVolumes(names, status, errorDetails_, serialNumbers_, ""));
}

bool Request::FindWriter() {
  Require(!isBegun_, "writers are looked for before varnel_request_initialize");
  return requestor_->IsWriterPresent(errorDetails_);
}

bool Request::FindDisk(const char* serialNumber) {
  return requestor_->IsDiskPresentInSystem(WideOf(serialNumber), errorDetails_);
}

const TextList& Request::ReadDisks() {
  std::vector<std::string> found;
  for (const std::wstring& serial : CVarnel::GetAllSystemDisksEx(errorDetails_))
    found.push_back(WideToUtf8Lossy(serial));
  return disks_ = TextList(std::move(found));
}

void Request::Initialize() {
  Require(!isBegun_, "a request is initialized once");
  isBegun_ = true;
  requestor_->Initialize(context_, document_, restores_, backupType_, errorDetails_, &enumerator_);
  isReady_ = true;
}

void Request::Gather() {
  Require(isReady_ && !isGathered_ && !isTried_ && !isCompleted_,
          "writers are asked once, after varnel_request_initialize; a snapshot asks them itself");
  isGathered_ = true;
  requestor_->GatherWriterMetadata(errorDetails_);
}

// The list is the bridge's, and gone as soon as another request has fetched one.
void Request::NoteDatabases() {
  const auto held = HoldMetadataBridge();
  MetadataWrapper* const bridge = MetadataWrapper::GetMetadataWrapperInstance();
  const char* const list = requestor_->getSuccesfulDBList();
  const bool isThere = list == kAllDatabasesList || (bridge != nullptr && list == bridge->GetdbFilesToQuiescePtr());
  databases_ = isThere && list != nullptr ? ToUtf8(list) : std::string();
}

void Request::Snapshot() {
  Require(isReady_ && !isGathered_ && !isTried_ && !isCompleted_,
          "a set is taken once, after varnel_request_initialize and without varnel_request_gather");
  isTried_ = true;
  try {
    requestor_->CreateVssSnapshotSet(errorDetails_);
  } catch (...) {
    NoteDatabases();
    throw;
  }
  NoteDatabases();
}

void Request::Verify() {
  Require(isTried_, "files are verified after the snapshot");
  requestor_->VerifySnapShotData();
}

void Request::ReadCatalog() {
  std::map<std::string, ApplicationObjectMeatadataInfo> objects;
  requestor_->GetSnapshotMeatadata(objects);
  std::vector<CatalogDisk> disks;
  disks.reserve(objects.size());
  for (const auto& [serial, of] : objects) {
    disks.push_back({ToUtf8(serial), Utf8Of(of.appObjectIds), Utf8Of(of.appObjectNames), Utf8Of(of.otherObjectIds),
                     Utf8Of(of.otherObjectNames)});
  }
  catalog_ = std::move(disks);
}

void Request::Complete(int backupStatus) {
  Require(isBegun_ && !isCompleted_, "a request is completed once, after varnel_request_initialize");
  isCompleted_ = true;
  requestor_->SetBackupStatus(backupStatus, errorDetails_);
}

void Request::ChangeSet(void (CVarnel::*operation)(std::string&)) {
  Require(isTried_, "there is no set before the snapshot");
  (requestor_.get()->*operation)(errorDetails_);
}

}  // namespace varnel::c
