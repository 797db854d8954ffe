/** \file
 * Simulated hosts for programs of varnel-c.h. These functions are in the varnel-c of the simulator's folder
 * (lib/varnel/dropin), which takes the place of the product's in a program's tests; the product's has none of them.
 * Texts and codes are as in varnel-c.h.
 */
#ifndef VARNEL_C_SIMULATOR_H
#define VARNEL_C_SIMULATOR_H

#include "varnel-c.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes the host of this JSON file the process's, in place of the one before; null: the built-in sample host.
 * state_file keeps what happens at it for later processes; null: it ends with the host. VARNEL_BAD_ORDER while a
 * request holds something of the host before, VARNEL_BAD_ARGUMENT for a file that cannot be used. Not while another
 * thread has requests.
 */
VARNEL_C_API int varnel_simulator_use(const char* host_file, const char* state_file);
/** Ends it: the process has no simulated host. VARNEL_BAD_ORDER while a request holds something of it. */
VARNEL_C_API int varnel_simulator_end(void);
/** Why the last of the two on this thread failed; empty when it did not. Valid until this thread's next one. */
VARNEL_C_API const char* varnel_simulator_message(void);
/** The calls that were made at the host, a line each. Valid until the next function of this header. */
VARNEL_C_API const char* varnel_simulator_calls(void);

#ifdef __cplusplus
}
#endif

#endif
