// The functions that tell what a request knows.
#include "c/handles.h"
#include "c/input.h"

using namespace varnel::c;

namespace {

template <class List>
auto& At(List& list, std::size_t index) {
  if (index >= list.size()) throw Refusal{VARNEL_BAD_ARGUMENT, "the index is beyond the last"};
  return list[index];
}

const VssWriter& WriterOf(Request& request, std::size_t index) {
  return At(request.requestor().GetWriters(), index);
}

const VssComponent& ComponentOf(Request& request, std::size_t writer, std::size_t index) {
  return At(WriterOf(request, writer).components, index);
}

varnel_file FileOf(Request& request, const VssFileDescriptor& file) {
  Texts& texts = request.texts();
  return {sizeof(varnel_file),
          texts.Of(file.path),
          texts.Of(file.expandedPath),
          texts.Of(file.filespec),
          texts.Of(file.pathOnVolume),
          texts.Of(file.volumeName),
          texts.Of(file.snapshotDeviceName),
          texts.Of(file.snapshotDiskName),
          texts.Of(file.snapshotSerialNumber),
          static_cast<int>(file.fileType)};
}

int AskForText(const varnel_request* handle, const char** text, const char* (*answer)(Request&)) {
  return Ask(handle, [&](Request& it) { Required(text) = answer(it); });
}

int AskForCount(const varnel_request* handle, size_t* count, std::size_t (*answer)(Request&)) {
  return Ask(handle, [&](Request& it) { Required(count) = answer(it); });
}

}  // namespace

int varnel_request_get_outcome(varnel_request* request, varnel_outcome* outcome) {
  return Ask(request, [&](Request& it) {
    const Outcome& last = it.outcome();
    varnel_outcome& filled = Known(outcome);
    filled = {sizeof filled,        last.code,           last.hresult,        last.backupStatus, it.details().size(),
              last.message.c_str(), it.details().data(), last.records.c_str()};
  });
}

int varnel_request_get_alert_records(varnel_request* request, const char** records) {
  return AskForText(request, records, [](Request& it) { return it.records().c_str(); });
}

int varnel_request_get_set_id(varnel_request* request, const char** set_id) {
  static constexpr char kKey = 0;
  return AskForText(request, set_id,
                    [](Request& it) { return it.texts().Of(&kKey, it.requestor().GetSnapShotSetId()); });
}

int varnel_request_get_document(varnel_request* request, const char** document) {
  static constexpr char kKey = 0;
  return AskForText(request, document,
                    [](Request& it) { return it.texts().Of(&kKey, it.requestor().GetBackupDocument()); });
}

int varnel_request_get_databases(varnel_request* request, const char** databases) {
  return AskForText(request, databases, [](Request& it) { return it.databases().c_str(); });
}

int varnel_request_get_snapshot_count(varnel_request* request, size_t* count) {
  return AskForCount(request, count, [](Request& it) { return it.requestor().GetSnapshotVolumes().size(); });
}

int varnel_request_get_snapshot(varnel_request* request, size_t index, varnel_snapshot* snapshot) {
  return Ask(request, [&](Request& it) {
    varnel_snapshot& filled = Known(snapshot);
    const SnapshotVolumeInfo& volume = At(it.requestor().GetSnapshotVolumes(), index);
    Texts& texts = it.texts();
    filled = {sizeof filled, texts.Of(volume.volumeName), texts.Of(volume.snapshotId),
              texts.Of(volume.snapshotDeviceName)};
  });
}

int varnel_request_get_writer_count(varnel_request* request, size_t* count) {
  return AskForCount(request, count, [](Request& it) { return it.requestor().GetWriters().size(); });
}

int varnel_request_get_writer(varnel_request* request, size_t index, varnel_writer* writer) {
  return Ask(request, [&](Request& it) {
    varnel_writer& filled = Known(writer);
    const VssWriter& found = WriterOf(it, index);
    Texts& texts = it.texts();
    filled = {sizeof filled,
              texts.Of(found.name),
              texts.Of(found.writerId),
              texts.Of(found.instanceId),
              found.components.size(),
              found.excludeFiles.size(),
              found.excluded,
              static_cast<int>(found.writerRestore),
              found.restoreInvolvesWriter,
              static_cast<int>(found.restoreMethod),
              found.rebootRequiredAfterRestore};
  });
}

int varnel_request_get_excluded_file(varnel_request* request, size_t writer, size_t index, varnel_file* file) {
  return Ask(request, [&](Request& it) { Known(file) = FileOf(it, At(WriterOf(it, writer).excludeFiles, index)); });
}

int varnel_request_get_component(varnel_request* request, size_t writer, size_t index, varnel_component* component) {
  return Ask(request, [&](Request& it) {
    varnel_component& filled = Known(component);
    const VssComponent& found = ComponentOf(it, writer, index);
    Texts& texts = it.texts();
    filled = {sizeof filled,
              texts.Of(found.name),
              texts.Of(found.logicalPath),
              texts.Of(found.fullPath),
              texts.Of(found.caption),
              texts.Of(found.affectedSerialNumbers),
              found.affectedSerialNumbers.size(),
              found.files.size(),
              static_cast<int>(found.type),
              found.selectable,
              found.notifyOnBackupComplete,
              found.topLevel,
              found.excluded,
              found.added,
              found.failed,
              static_cast<int>(found.failureCode)};
  });
}

int varnel_request_get_file(varnel_request* request, size_t writer, size_t component, size_t index, varnel_file* file) {
  return Ask(request,
             [&](Request& it) { Known(file) = FileOf(it, At(ComponentOf(it, writer, component).files, index)); });
}

int varnel_request_get_catalog_count(varnel_request* request, size_t* count) {
  return AskForCount(request, count, [](Request& it) { return it.catalog().size(); });
}

int varnel_request_get_catalog_disk(varnel_request* request, size_t index, varnel_catalog_disk* disk) {
  return Ask(request, [&](Request& it) {
    varnel_catalog_disk& filled = Known(disk);
    const CatalogDisk& found = At(it.catalog(), index);
    filled = {sizeof filled,
              found.serialNumber.c_str(),
              found.ids.pointers.size(),
              found.ids.pointers.data(),
              found.names.pointers.data(),
              found.otherIds.pointers.size(),
              found.otherIds.pointers.data(),
              found.otherNames.pointers.data()};
  });
}
