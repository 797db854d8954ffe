/** \file
 * The C interface of varnel: application-consistent snapshots of Windows hosts for storage arrays.
 *
 * One varnel_request takes one snapshot set: it is created, told the disks of a protection set, initialized, takes its
 * set, is asked for the results, completed and freed. docs/c-interface.md has the order of calls and an example.
 *
 * Texts are UTF-8 and end with a NUL. Those that are handed in are read during the call alone; a null text is an empty
 * one where nothing else is said. Those that a request hands out belong to it: nobody frees or changes them. They stay
 * valid until the next function of "What a request does" is called with it, or it is freed.
 *
 * Functions that return int return a code (VARNEL_DONE, ...). Nothing is thrown across this interface and no wrong
 * argument ends the process, as long as pointers that are not null point at what their type says. A request serves one
 * thread at a time: a function that is called while another thread is in one with the same request, or by the log
 * function meanwhile, does nothing and returns VARNEL_BUSY. Requests on several threads do not disturb each other.
 *
 * The interface only grows: functions and codes are added, and members at the end of structures. A structure begins
 * with its size, which the caller sets to what sizeof gives it.
 */
#ifndef VARNEL_C_H
#define VARNEL_C_H

/** NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers): this is C */
#include <stddef.h>

#if defined(_WIN32) && !defined(VARNEL_C_STATIC)
/** Where the functions come from: varnel-c.dll or libvarnel-c.so. */
#define VARNEL_C_API __declspec(dllimport)
#elif defined(__GNUC__) && !defined(_WIN32)
/** Where the functions come from: varnel-c.dll or libvarnel-c.so. */
#define VARNEL_C_API __attribute__((visibility("default")))
#else
#define VARNEL_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Raised by each version of this header that has more than the one before. */
#define VARNEL_C_INTERFACE 1

/** Codes */
enum {
  VARNEL_DONE = 0,
  VARNEL_BAD_ARGUMENT = 1, /**< a null pointer, a number that means nothing, or an index beyond the last */
  VARNEL_BAD_HANDLE = 2,   /**< no request, or one that was freed */
  VARNEL_BAD_VERSION = 3,  /**< the size of a structure is none that this library knows */
  VARNEL_BAD_TEXT = 4,     /**< a text is not UTF-8 */
  VARNEL_BAD_ORDER = 5,    /**< not at this point of a request */
  VARNEL_BUSY = 6,         /**< the request is in use by another call; this one did nothing */
  VARNEL_NO_MEMORY = 7,
  VARNEL_NO_HOST = 8,       /**< this platform has no Volume Shadow Copy service, and no simulated host is in use */
  VARNEL_CALL_FAILED = 9,   /**< a call of the platform failed; its HRESULT is in the outcome */
  VARNEL_COM_TOO_LATE = 10, /**< COM's security was set before, by somebody else and perhaps otherwise */
  VARNEL_UNEXPECTED = 11,   /**< the message says what */

  /* The host or its volumes cannot be protected (varnel_request_validate_host, _volumes) */
  VARNEL_MIXED_CSV = 250,         /**< cluster shared volumes with others */
  VARNEL_CLUSTERED_NO_CSV = 251,  /**< clustered volumes that are no cluster shared volumes */
  VARNEL_VALIDATION_FAILED = 252, /**< the disks could not be asked */
  VARNEL_MIXED_CLUSTER = 253,     /**< clustered volumes with others */
  VARNEL_UNSUPPORTED_OS = 254,
  VARNEL_MISSING_HOTFIXES = 255,

  /* Alerts: how a request ended */
  VARNEL_WRITER_FAILURE = 600,       /**< selected writers failed */
  VARNEL_PARTIAL_SUCCESS = 601,      /**< the set stands, but messages were collected */
  VARNEL_CONFIGURATION_ERROR = 602,  /**< nothing eligible, or the protection set is wrong */
  VARNEL_VERIFICATION_FAILURE = 603, /**< a file of the snapshot failed its check */
  VARNEL_EXTRA_VOLUMES = 701         /**< the set stands, but holds volumes that the application does not use */
};

/** Applications */
enum {
  VARNEL_NO_APPLICATION = 0, /**< none in particular: every writer takes part */
  VARNEL_SQL_SERVER = 1,
  VARNEL_EXCHANGE = 2,
  VARNEL_HYPER_V = 3
};

/** Contexts, as the service numbers them; flags of the service may be added */
#define VARNEL_CONTEXT_BACKUP 0x00000000u       /**< the set goes with its request */
#define VARNEL_CONTEXT_APP_ROLLBACK 0x00000009u /**< the set outlives the process */

/** Types of backup, as the service numbers them */
enum {
  VARNEL_BACKUP_FULL = 1, /**< 0 means it, too */
  VARNEL_BACKUP_INCREMENTAL = 2,
  VARNEL_BACKUP_DIFFERENTIAL = 3,
  VARNEL_BACKUP_LOG = 4,
  VARNEL_BACKUP_COPY = 5,
  VARNEL_BACKUP_OTHER = 6
};

/** Categories of log lines, the more important the higher */
enum { VARNEL_LOG_VERBOSE = 1, VARNEL_LOG_INFORMATION = 2, VARNEL_LOG_WARNING = 3, VARNEL_LOG_ERROR = 4 };

/** A request. Not an address: nothing can be read through it. */
typedef struct varnel_request varnel_request;

/** What a request is made of. Members that are 0 have their usual meaning. */
typedef struct varnel_request_options {
  size_t size;                    /**< sizeof the structure, as the caller knows it */
  int application;                /**< VARNEL_SQL_SERVER, ... */
  unsigned int context;           /**< VARNEL_CONTEXT_APP_ROLLBACK, ... */
  int backup_type;                /**< VARNEL_BACKUP_COPY, ... */
  int restore;                    /**< not 0: initialize for a restore; the context is then not set */
  int skip_database_verification; /**< not 0, for Exchange: verify logs alone */
  int writer_code;                /**< the array's: 0, or what it says of its databases */
  unsigned int test_points;       /**< bits that make parts of the sequence fail on purpose */
  const char* document;           /**< a saved backup components document */
  const char* provider_id;        /**< the array's VSS hardware provider, a GUID in braces; null: the built-in one */
} varnel_request_options;

/** How the last function that did something with a request ended. */
typedef struct varnel_outcome {
  size_t size;         /**< set to what was filled */
  int code;            /**< a code of this header */
  int hresult;         /**< of VARNEL_CALL_FAILED, else 0 */
  int backup_status;   /**< what varnel_request_complete is to be told when the request ended with this outcome */
  size_t detail_count; /**< of `details` */
  const char* message; /**< empty only with VARNEL_DONE */
  const char* const* details; /**< an entry for each failed writer or component */
  const char* alert_records;  /**< for the array; what was added by this function */
} varnel_outcome;

/** One volume of the set and its shadow copy. */
typedef struct varnel_snapshot {
  size_t size;             /**< sizeof the structure, as the caller knows it */
  const char* volume;      /**< its unique name */
  const char* snapshot_id; /**< a GUID in braces; empty before the volume was added */
  const char* device;      /**< the device object with a backslash at its end; empty until it is known */
} varnel_snapshot;

/** A writer, as it described itself. */
typedef struct varnel_writer {
  size_t size;                       /**< sizeof the structure, as the caller knows it */
  const char* name;                  /**< for people */
  const char* writer_id;             /**< the GUID of its class in braces */
  const char* instance_id;           /**< the GUID of this running writer in braces */
  size_t component_count;            /**< of the components below it */
  size_t excluded_file_count;        /**< files that are not to be backed up */
  int excluded;                      /**< it takes no part in the backup */
  int writer_restore;                /**< as the service numbers it, as are the next members */
  int restore_involves_writer;       /**< not 0: it takes part in a restore */
  int restore_method;                /**< how it wants to be restored */
  int reboot_required_after_restore; /**< not 0: the host must be restarted after one */
} varnel_writer;

/** A component of a writer. */
typedef struct varnel_component {
  size_t size;                   /**< sizeof the structure, as the caller knows it */
  const char* name;              /**< for people */
  const char* logical_path;      /**< empty at the root */
  const char* full_path;         /**< by which requests name it */
  const char* caption;           /**< for people; often empty */
  const char* const* disks;      /**< serial numbers of the disks of its files, as far as they were looked for */
  size_t disk_count;             /**< of `disks` */
  size_t file_count;             /**< of its files */
  int type;                      /**< 1 database, 2 file group */
  int selectable;                /**< not 0: it may be left out */
  int notify_on_backup_complete; /**< not 0: its writer wants to hear of the end */
  int top_level;                 /**< not 0: no other component holds it */
  int excluded;                  /**< it takes no part in the backup */
  int added;                     /**< it was added by itself; others take part through an ancestor */
  int failed;                    /**< its writer said how it did, in the next member */
  int failure_code;              /**< an HRESULT */
} varnel_component;

/** A file entry of a component or of a writer. */
typedef struct varnel_file {
  size_t size;                        /**< sizeof the structure, as the caller knows it */
  const char* path;                   /**< as the writer reported it */
  const char* expanded_path;          /**< the same without environment variables */
  const char* filespec;               /**< a name, or a pattern with wildcards */
  const char* path_on_volume;         /**< below the volume's mount point */
  const char* volume;                 /**< its unique name */
  const char* snapshot_device;        /**< empty until it is known, as are the next members */
  const char* snapshot_disk;          /**< the physical drive */
  const char* snapshot_serial_number; /**< of that drive */
  int type;                           /**< 1 excluded, 2 file, 3 database file, 4 database log file */
} varnel_file;

/** The application objects (databases, virtual machines) on one disk. */
typedef struct varnel_catalog_disk {
  size_t size;                     /**< sizeof the structure, as the caller knows it */
  const char* serial_number;       /**< as the device reports it */
  size_t object_count;             /**< captured by their writer */
  const char* const* object_ids;   /**< of the captured ones */
  const char* const* object_names; /**< in the order of their identifiers */
  size_t other_count;              /**< not captured, and volumes of a disk without objects */
  const char* const* other_ids;    /**< of the others */
  const char* const* other_names;  /**< in the order of their identifiers */
} varnel_catalog_disk;

/* The process */

/** The library's version: major * 10000 + minor * 100 + patch, and as text. */
VARNEL_C_API int varnel_version(void);
/** The same as text, such as "0.1.0". Never null. */
VARNEL_C_API const char* varnel_version_text(void);
/** VARNEL_C_INTERFACE of the library, which may be newer than that of this header. */
VARNEL_C_API int varnel_interface(void);
/** What a code means, in one sentence. Never null. */
VARNEL_C_API const char* varnel_code_text(int code);

/**
 * COM on this thread, in the multithreaded apartment, and the process's COM security as writers need it of a requestor.
 * To be called before anything else uses COM, once for each thread that has requests; varnel_uninitialize_com ends it.
 * VARNEL_COM_TOO_LATE (hresult RPC_E_TOO_LATE): something else set the security before, as .NET and PowerShell may have
 * done. COM is there then, but it may refuse the writers' calls, and nothing in this process changes that.
 * VARNEL_CALL_FAILED: there is no COM on this thread; RPC_E_CHANGED_MODE tells of a single-threaded apartment. With a
 * simulated host in use nothing is done, and VARNEL_DONE returned. hresult may be null.
 */
VARNEL_C_API int varnel_initialize_com(int* hresult);
/**
 * Ends what varnel_initialize_com did on this thread; after the last of its requests, and as often as that was called.
 * VARNEL_BAD_ORDER: it has done nothing here that is not ended.
 */
VARNEL_C_API int varnel_uninitialize_com(void);

/**
 * Who is told the log lines of the whole process, on the threads that write them and on several at once; a null
 * function ends it, after the last line has been taken. Lines below the lowest category are never made. VARNEL_BUSY
 * when the log function itself calls it.
 */
typedef void (*varnel_log_function)(void* user, int category, const char* source, int line, const char* text);
/** Puts the function in place, or takes it away with null. user is handed to it as it stands. */
VARNEL_C_API int varnel_set_log(varnel_log_function function, void* user, int lowest_category);

/* Making and freeing requests */

/** Options may be null: no application, a full backup. */
VARNEL_C_API int varnel_request_create(const varnel_request_options* options, varnel_request** request);
/**
 * Frees it; shadow copies whose context is a plain backup go with it. A request that was initialized and is not
 * completed leaves the writers waiting: complete it first. VARNEL_BUSY: it is in use, and stays.
 */
VARNEL_C_API int varnel_request_free(varnel_request* request);

/* What a request does. Each leaves an outcome, unless it returns VARNEL_BAD_HANDLE or VARNEL_BUSY. */

/** Another provider from here on, a GUID in braces; null: the built-in one. */
VARNEL_C_API int varnel_request_set_provider(varnel_request* request, const char* provider_id);
/** Adds disks to protect, by the serial numbers that the devices report. Before the snapshot. */
VARNEL_C_API int varnel_request_add_disks(varnel_request* request, const char* const* serial_numbers, size_t count);
/** Whether this host can run the request: VARNEL_DONE, _UNSUPPORTED_OS or _MISSING_HOTFIXES. */
VARNEL_C_API int varnel_request_validate_host(varnel_request* request);
/** Whether these volumes (unique names or mount points) can be protected together: VARNEL_DONE, or a code from 250 on.
 */
VARNEL_C_API int varnel_request_validate_volumes(varnel_request* request, const char* const* volumes, size_t count);
/** Whether the array's provider is registered: found is 1 or 0. */
VARNEL_C_API int varnel_request_find_provider(varnel_request* request, int* found);
/** Whether a writer of the application is there. Before varnel_request_initialize; every writer is asked. */
VARNEL_C_API int varnel_request_find_writer(varnel_request* request, int* found);
/** Whether a disk of the array with this serial number is there, in any case of letters. */
VARNEL_C_API int varnel_request_find_disk(varnel_request* request, const char* serial_number, int* found);
/** Serial numbers of the array's disks. */
VARNEL_C_API int varnel_request_read_disks(varnel_request* request, const char* const** serial_numbers, size_t* count);

/** Begins the backup (or restore) at the service. Once. */
VARNEL_C_API int varnel_request_initialize(varnel_request* request);
/** Asks every writer for its metadata, to look at a host without a snapshot, which does it by itself. Once. */
VARNEL_C_API int varnel_request_gather(varnel_request* request);
/**
 * Takes the set. Once, after varnel_request_initialize. With VARNEL_PARTIAL_SUCCESS and VARNEL_EXTRA_VOLUMES the set
 * stands; VARNEL_EXTRA_VOLUMES is accepted by completing with 0.
 */
VARNEL_C_API int varnel_request_snapshot(varnel_request* request);
/** Has the files checked on the snapshot, where the application has a check. */
VARNEL_C_API int varnel_request_verify(varnel_request* request);
/** Reads the application objects by disk, for varnel_request_get_catalog_disk. */
VARNEL_C_API int varnel_request_read_catalog(varnel_request* request);
/**
 * Ends the request, which belongs after every varnel_request_initialize, failed or not: tells the writers, and deletes
 * the set of a failed request (a transportable one is the array's to delete). Once. backup_status is that of the
 * outcome with which the request ended: 0, an alert, an HRESULT, or -1.
 */
VARNEL_C_API int varnel_request_complete(varnel_request* request, int backup_status);

/* The later life of the set, after the snapshot */

/** Makes the shadow copies ordinary read-write disks of this host. */
VARNEL_C_API int varnel_request_break(varnel_request* request);
/** The same, and hides the disks from this host. */
VARNEL_C_API int varnel_request_mask(varnel_request* request);
/** Deletes the set, by force. What could not be deleted is left. */
VARNEL_C_API int varnel_request_delete(varnel_request* request);
/** Logs this host out of every iSCSI session that carries a disk of the set. */
VARNEL_C_API int varnel_request_disconnect(varnel_request* request);

/* What a request knows, at any time. These leave the outcome as it is. */

/** How the last function that does something ended; its texts are the request's. */
VARNEL_C_API int varnel_request_get_outcome(varnel_request* request, varnel_outcome* outcome);
/** Every alert record since the request was created, for the array. */
VARNEL_C_API int varnel_request_get_alert_records(varnel_request* request, const char** records);
/** The set's identifier, a GUID in braces; empty before the set is started. */
VARNEL_C_API int varnel_request_get_set_id(varnel_request* request, const char** set_id);
/** The backup components document; empty before one was saved. */
VARNEL_C_API int varnel_request_get_document(varnel_request* request, const char** document);
/** The databases that the array's metadata service named, or "ALL_DB"; empty when it named none. */
VARNEL_C_API int varnel_request_get_databases(varnel_request* request, const char** databases);
/** How many volumes the set has. */
VARNEL_C_API int varnel_request_get_snapshot_count(varnel_request* request, size_t* count);
/** The volume of this index, from 0, in the order in which they were added. */
VARNEL_C_API int varnel_request_get_snapshot(varnel_request* request, size_t index, varnel_snapshot* snapshot);
/** How many writers were gathered. */
VARNEL_C_API int varnel_request_get_writer_count(varnel_request* request, size_t* count);
/** The writer of this index, from 0. */
VARNEL_C_API int varnel_request_get_writer(varnel_request* request, size_t index, varnel_writer* writer);
/** A file that the writer of index `writer` wants nobody to back up. */
VARNEL_C_API int varnel_request_get_excluded_file(varnel_request* request, size_t writer, size_t index,
                                                  varnel_file* file);
/** A component of the writer of index `writer`. */
VARNEL_C_API int varnel_request_get_component(varnel_request* request, size_t writer, size_t index,
                                              varnel_component* component);
/** A file of the component of index `component` of the writer of index `writer`. */
VARNEL_C_API int varnel_request_get_file(varnel_request* request, size_t writer, size_t component, size_t index,
                                         varnel_file* file);
/** How many disks varnel_request_read_catalog has found. */
VARNEL_C_API int varnel_request_get_catalog_count(varnel_request* request, size_t* count);
/** The disk of this index, from 0. */
VARNEL_C_API int varnel_request_get_catalog_disk(varnel_request* request, size_t index, varnel_catalog_disk* disk);

#ifdef __cplusplus
}
#endif

/** NOLINTEND(modernize-use-using,modernize-deprecated-headers) */
#endif
