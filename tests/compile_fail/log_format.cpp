// A log line whose format does not fit its arguments.
#include "core/logging.h"

void Write(const std::wstring& wide, const std::string& narrow) {
  varnel::kLog.Info(L"%s, %S, %d of 100 %%", wide, narrow, 7);
#if defined(VARNEL_WRONG)
  varnel::kLog.Info(L"%S", wide);
#endif
}
