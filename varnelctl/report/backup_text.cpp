#include "varnelctl/report/backup_text.h"

#include "varnelctl/sets/snapshot_options.h"

namespace varnelctl {
namespace {

constexpr char kOwnAffair[] = "each writer decides what that means to its logs and to later backups";

const char* EffectOnSql(VSS_BACKUP_TYPE type) {
  switch (type) {
    case VSS_BT_FULL:
      return "SQL Server takes it for the base of later differential backups; no log is truncated";
    case VSS_BT_DIFFERENTIAL:
      return "SQL Server keeps the last full backup as the base of differential ones; no log is truncated";
    case VSS_BT_COPY:
      return "SQL Server changes neither the base of differential backups nor its logs";
    default:
      return "SQL Server's writer offers full, differential and copy backups only: nothing is known of this type";
  }
}

const char* EffectOnExchange(VSS_BACKUP_TYPE type) {
  switch (type) {
    case VSS_BT_FULL:
      return "Exchange takes it for the base of later backups, and truncates its logs once it is told of the success";
    case VSS_BT_INCREMENTAL:
      return "Exchange truncates its logs once it is told of the success; it needs an earlier full backup";
    case VSS_BT_DIFFERENTIAL:
      return "Exchange keeps its logs; it needs an earlier full backup";
    case VSS_BT_COPY:
      return "Exchange changes neither its logs nor the base of later backups";
    default:
      return kOwnAffair;
  }
}

const char* EffectOnOthers(VSS_BACKUP_TYPE type) {
  switch (type) {
    case VSS_BT_FULL:
      return "a writer may truncate its logs and take it for the base of later backups";
    case VSS_BT_COPY:
      return "the writers are asked to change neither their logs nor the base of later backups";
    default:
      return kOwnAffair;
  }
}

// How long the context keeps a set.
const char* Duration(DWORD context) {
  if ((context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0) return "for the array";
  if ((context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0) return "auto-release";
  return (context & VSS_VOLSNAP_ATTR_PERSISTENT) == 0 ? "no auto-release" : "persistent";
}

}  // namespace

std::string BackupText(VSS_BACKUP_TYPE type, DWORD context) {
  const bool writers = (context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0;
  std::string name = BackupTypeName(type);
  name.front() = static_cast<char>(name.front() - 'a' + 'A');
  return name + " backup, context " + ContextName(context) + " (" + Duration(context) +
         (writers ? ", with writers)" : ", without writers)");
}

std::string BackupEffect(Application application, VSS_BACKUP_TYPE type, DWORD context) {
  if ((context & VSS_VOLSNAP_ATTR_NO_WRITERS) != 0) return "no application is told of it";
  switch (application) {
    case Application::Sql:
      return EffectOnSql(type);
    case Application::Exchange:
      return EffectOnExchange(type);
    default:
      return EffectOnOthers(type);
  }
}

}  // namespace varnelctl
