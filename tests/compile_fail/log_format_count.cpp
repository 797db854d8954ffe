// A log line with an argument too few.
#include "core/logging.h"

void Write(const std::wstring& wide) {
  varnel::kLog.Error(L"%s", wide);
#if defined(VARNEL_WRONG)
  varnel::kLog.Error(L"%s, Error=0x%x", wide);
#endif
}
