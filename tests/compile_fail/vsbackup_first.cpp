// MinGW's own header of the service after the library's, and before it.
#ifdef VARNEL_WRONG
#include <vsbackup.h>
#endif
#include "core/varnel.h"
// clang-format off
#include <vsbackup.h>
// clang-format on

static_assert(sizeof(IVssWriterComponentsExt) == 2 * sizeof(void*));
