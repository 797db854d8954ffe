// An alert record with a number of 64 bits.
#include "core/alerts.h"

void Write(std::string& errorDetails, const std::wstring& wide) {
  varnel::WriteAlert<varnel::alert::kAddComponentFailed>(errorDetails, wide);
#if defined(VARNEL_WRONG)
  varnel::WriteAlert<varnel::alert::kLunMismatch>(errorDetails, 1, 2LL);
#endif
}
