/*
 * The header is C89, and no structure changes but at its end: what a program was compiled with stays where it is. All
 * platforms have the same layout, that of 64 bits.
 */
#include "varnel-c.h"

#define AT(structure, member, offset) \
  typedef char structure##_##member[offsetof(structure, member) == (offset) ? 1 : -1]
#define BYTES(structure, bytes) typedef char structure##_bytes[sizeof(structure) == (bytes) ? 1 : -1]

AT(varnel_request_options, size, 0);
AT(varnel_request_options, application, 8);
AT(varnel_request_options, context, 12);
AT(varnel_request_options, backup_type, 16);
AT(varnel_request_options, restore, 20);
AT(varnel_request_options, skip_database_verification, 24);
AT(varnel_request_options, writer_code, 28);
AT(varnel_request_options, test_points, 32);
AT(varnel_request_options, document, 40);
AT(varnel_request_options, provider_id, 48);
BYTES(varnel_request_options, 56);

AT(varnel_outcome, size, 0);
AT(varnel_outcome, code, 8);
AT(varnel_outcome, hresult, 12);
AT(varnel_outcome, backup_status, 16);
AT(varnel_outcome, detail_count, 24);
AT(varnel_outcome, message, 32);
AT(varnel_outcome, details, 40);
AT(varnel_outcome, alert_records, 48);
BYTES(varnel_outcome, 56);

AT(varnel_snapshot, size, 0);
AT(varnel_snapshot, volume, 8);
AT(varnel_snapshot, snapshot_id, 16);
AT(varnel_snapshot, device, 24);
BYTES(varnel_snapshot, 32);

AT(varnel_writer, size, 0);
AT(varnel_writer, name, 8);
AT(varnel_writer, writer_id, 16);
AT(varnel_writer, instance_id, 24);
AT(varnel_writer, component_count, 32);
AT(varnel_writer, excluded_file_count, 40);
AT(varnel_writer, excluded, 48);
AT(varnel_writer, writer_restore, 52);
AT(varnel_writer, restore_involves_writer, 56);
AT(varnel_writer, restore_method, 60);
AT(varnel_writer, reboot_required_after_restore, 64);
BYTES(varnel_writer, 72);

AT(varnel_component, size, 0);
AT(varnel_component, name, 8);
AT(varnel_component, logical_path, 16);
AT(varnel_component, full_path, 24);
AT(varnel_component, caption, 32);
AT(varnel_component, disks, 40);
AT(varnel_component, disk_count, 48);
AT(varnel_component, file_count, 56);
AT(varnel_component, type, 64);
AT(varnel_component, selectable, 68);
AT(varnel_component, notify_on_backup_complete, 72);
AT(varnel_component, top_level, 76);
AT(varnel_component, excluded, 80);
AT(varnel_component, added, 84);
AT(varnel_component, failed, 88);
AT(varnel_component, failure_code, 92);
BYTES(varnel_component, 96);

AT(varnel_file, size, 0);
AT(varnel_file, path, 8);
AT(varnel_file, expanded_path, 16);
AT(varnel_file, filespec, 24);
AT(varnel_file, path_on_volume, 32);
AT(varnel_file, volume, 40);
AT(varnel_file, snapshot_device, 48);
AT(varnel_file, snapshot_disk, 56);
AT(varnel_file, snapshot_serial_number, 64);
AT(varnel_file, type, 72);
BYTES(varnel_file, 80);

AT(varnel_catalog_disk, size, 0);
AT(varnel_catalog_disk, serial_number, 8);
AT(varnel_catalog_disk, object_count, 16);
AT(varnel_catalog_disk, object_ids, 24);
AT(varnel_catalog_disk, object_names, 32);
AT(varnel_catalog_disk, other_count, 40);
AT(varnel_catalog_disk, other_ids, 48);
AT(varnel_catalog_disk, other_names, 56);
BYTES(varnel_catalog_disk, 64);
