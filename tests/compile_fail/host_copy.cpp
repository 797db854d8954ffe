// A host is the current one for one lifetime of its guard.
#include "platform/host.h"

void Install(varnel::Host& host) {
  const varnel::ScopedHost first(host);
#ifdef VARNEL_WRONG
  const varnel::ScopedHost second(first);
#endif
}
