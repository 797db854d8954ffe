#include "take_snapshot.h"

#include <varnel-c.h>

/* What became of the last step. Returns what the completion is to be told of it. */
static int tell(varnel_request* request, const char* step, FILE* out) {
  varnel_outcome outcome = {0};
  size_t i;
  outcome.size = sizeof outcome;
  if (varnel_request_get_outcome(request, &outcome) != VARNEL_DONE) return -1;
  if (outcome.code == VARNEL_DONE) return 0;
  fprintf(out, "%s: %s\n", step, outcome.message);
  for (i = 0; i < outcome.detail_count; ++i) fprintf(out, "  %s\n", outcome.details[i]);
  if (outcome.alert_records[0] != '\0') fprintf(out, "  for the array: %s\n", outcome.alert_records);
  return outcome.backup_status;
}

static void tell_set(varnel_request* request, FILE* out) {
  const char* id = "";
  size_t count = 0;
  size_t i;
  varnel_request_get_set_id(request, &id);
  varnel_request_get_snapshot_count(request, &count);
  fprintf(out, "set %s\n", id);
  for (i = 0; i < count; ++i) {
    varnel_snapshot snapshot = {0};
    snapshot.size = sizeof snapshot;
    if (varnel_request_get_snapshot(request, i, &snapshot) == VARNEL_DONE) {
      fprintf(out, "  %s: %s\n", snapshot.volume, snapshot.device);
    }
  }
}

/* Each step only where the one before it succeeded. */
static int run(varnel_request* request, const char* const* serial_numbers, size_t count) {
  int code = varnel_request_add_disks(request, serial_numbers, count);
  if (code == VARNEL_DONE) code = varnel_request_initialize(request);
  if (code == VARNEL_DONE) code = varnel_request_snapshot(request);
  return code;
}

int take_snapshot(const char* const* serial_numbers, size_t count, FILE* out) {
  varnel_request_options options = {0};
  varnel_request* request = NULL;
  int code;
  int completed;

  options.size = sizeof options;
  options.application = VARNEL_SQL_SERVER;
  options.context = VARNEL_CONTEXT_APP_ROLLBACK;
  code = varnel_request_create(&options, &request);
  if (code != VARNEL_DONE) {
    fprintf(out, "no request: %s\n", varnel_code_text(code));
    return code;
  }
  code = run(request, serial_numbers, count);
  /* Deletes the set of a failed request. One that was never initialized has nothing to complete. */
  completed = varnel_request_complete(request, tell(request, "the snapshot", out));
  if (completed != VARNEL_BAD_ORDER) tell(request, "the completion", out);
  if (code == VARNEL_DONE) code = completed;
  if (code == VARNEL_DONE || code == VARNEL_PARTIAL_SUCCESS) tell_set(request, out);
  varnel_request_free(request);
  return code;
}
