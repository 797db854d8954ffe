// The functions that make, run and free requests.
#include <memory>

#include "c/handles.h"
#include "c/input.h"

using namespace varnel::c;

namespace {

// Options of a later version say something that this one would leave out.
const varnel_request_options& Understood(const varnel_request_options& options) {
  if (options.size == sizeof options) return options;
  throw Refusal{VARNEL_BAD_VERSION, varnel_code_text(VARNEL_BAD_VERSION)};
}

// Nothing is done for an answer that nobody can take.
int Find(const varnel_request* handle, int* found, bool (*question)(Request&, const char*),
         const char* text = nullptr) {
  return Do(handle, [&](Request& request) {
    int& answer = Required(found);
    answer = question(request, text) ? 1 : 0;
  });
}

int ChangeSet(const varnel_request* handle, void (CVarnel::*operation)(std::string&)) {
  return Do(handle, [&](Request& request) { request.ChangeSet(operation); });
}

}  // namespace

int varnel_request_create(const varnel_request_options* options, varnel_request** request) {
  if (request == nullptr) return VARNEL_BAD_ARGUMENT;
  *request = nullptr;
  try {
    const varnel_request_options usual = {};
    *request = AddHandle(std::make_shared<Request>(options == nullptr ? usual : Understood(*options)));
    return VARNEL_DONE;
  } catch (...) {
    return OutcomeOfException().code;
  }
}

int varnel_request_free(varnel_request* request) {
  const std::shared_ptr<Request> found = FindHandle(request);
  if (!found) return VARNEL_BAD_HANDLE;
  if (!found->Take()) return VARNEL_BUSY;
  RemoveHandle(request);
  found->Dispose();
  return VARNEL_DONE;
}

int varnel_request_set_provider(varnel_request* request, const char* provider_id) {
  return Do(request, [&](Request& it) { it.SetProvider(provider_id); });
}

int varnel_request_add_disks(varnel_request* request, const char* const* serial_numbers, size_t count) {
  return Do(request, [&](Request& it) { it.AddDisks(serial_numbers, count); });
}

int varnel_request_validate_host(varnel_request* request) {
  return Do(request, [](Request& it) { it.ValidateHost(); });
}

int varnel_request_validate_volumes(varnel_request* request, const char* const* volumes, size_t count) {
  return Do(request, [&](Request& it) { it.ValidateVolumes(volumes, count); });
}

int varnel_request_find_provider(varnel_request* request, int* found) {
  return Find(request, found, [](Request& it, const char*) { return it.requestor().IsTesselVSSProviderPresent(); });
}

int varnel_request_find_writer(varnel_request* request, int* found) {
  return Find(request, found, [](Request& it, const char*) { return it.FindWriter(); });
}

int varnel_request_find_disk(varnel_request* request, const char* serial_number, int* found) {
  return Find(
      request, found, [](Request& it, const char* serial) { return it.FindDisk(serial); }, serial_number);
}

int varnel_request_read_disks(varnel_request* request, const char* const** serial_numbers, size_t* count) {
  return Do(request, [&](Request& it) {
    const char* const*& all = Required(serial_numbers);
    std::size_t& number = Required(count);
    const TextList& disks = it.ReadDisks();
    all = disks.pointers.data();
    number = disks.pointers.size();
  });
}

int varnel_request_initialize(varnel_request* request) {
  return Do(request, [](Request& it) { it.Initialize(); });
}

int varnel_request_gather(varnel_request* request) {
  return Do(request, [](Request& it) { it.Gather(); });
}

int varnel_request_snapshot(varnel_request* request) {
  return Do(request, [](Request& it) { it.Snapshot(); });
}

int varnel_request_verify(varnel_request* request) {
  return Do(request, [](Request& it) { it.Verify(); });
}

int varnel_request_read_catalog(varnel_request* request) {
  return Do(request, [](Request& it) { it.ReadCatalog(); });
}

int varnel_request_complete(varnel_request* request, int backup_status) {
  return Do(request, [&](Request& it) { it.Complete(backup_status); });
}

int varnel_request_break(varnel_request* request) {
  return ChangeSet(request, &CVarnel::BreakSnapshotSet);
}

int varnel_request_mask(varnel_request* request) {
  return ChangeSet(request, &CVarnel::MaskSnapshotSet);
}

int varnel_request_delete(varnel_request* request) {
  return ChangeSet(request, &CVarnel::DeleteSnapshotSet);
}

int varnel_request_disconnect(varnel_request* request) {
  return ChangeSet(request, &CVarnel::DisconnectSnapshotLuns);
}
