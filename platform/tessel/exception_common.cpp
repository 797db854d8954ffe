#include "platform/tessel/TesselCommonClasses.h"
#include "text/unicode.h"

namespace TesselCommonClasses {

ExceptionCommon::ExceptionCommon(DWORD code, std::wstring message)
    : code_(code), message_(std::move(message)), narrow_(varnel::WideToUtf8Lossy(message_)) {}

}  // namespace TesselCommonClasses
