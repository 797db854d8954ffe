#include "c/outcome.h"

#include <exception>
#include <new>
#include <stdexcept>

#include "core/exception.h"
#include "core/hresult.h"
#include "platform/ansi.h"
#include "platform/host.h"
#include "platform/tessel/TesselCommonClasses.h"
#include "text/format.h"
#include "text/unicode.h"

namespace varnel::c {
namespace {

constexpr int kFailed = -1;  // what the library is told of a failure that has no number

Outcome Plain(int code, std::string message) {
  return {code, S_OK, kFailed, std::move(message), {}, {}};
}

Outcome OfCall(HRESULT hr, std::string message) {
  return {VARNEL_CALL_FAILED, hr, hr, std::move(message), {}, {}};
}

std::string NamedResult(HRESULT hr) {
  return WideToUtf8Lossy(HResultText(hr)) + FormatNarrow(" (0x%08x)", {hr});
}

Outcome OfAlert(const VarnelException& alert) {
  Outcome outcome = Plain(alert.GetAlertCode(), WideToUtf8Lossy(alert.GetMessageText()));
  outcome.backupStatus = alert.GetAlertCode();
  for (const std::wstring& entry : alert.GetMessageList()) outcome.details.push_back(WideToUtf8Lossy(entry));
  if (outcome.message.empty()) outcome.message = varnel_code_text(outcome.code);
  return outcome;
}

Outcome Describe() {
  try {
    throw;
  } catch (const Refusal& refusal) {
    return Plain(refusal.code, refusal.reason);
  } catch (long hr) {
    return OfCall(AsHResult(hr), NamedResult(AsHResult(hr)));
  } catch (const VarnelException& alert) {
    return OfAlert(alert);
  } catch (const TesselCommonClasses::ExceptionCommon& failure) {
    return OfCall(HResultFromWin32(failure.GetErrorCode()), WideToUtf8Lossy(failure.GetErrorMessage()));
  } catch (const NoHostError&) {
    return Plain(VARNEL_NO_HOST, varnel_code_text(VARNEL_NO_HOST));
  } catch (const std::bad_alloc&) {
    return Plain(VARNEL_NO_MEMORY, varnel_code_text(VARNEL_NO_MEMORY));
  } catch (const std::exception& error) {
    return Plain(VARNEL_UNEXPECTED, ToUtf8(error.what()));
  } catch (...) {
    return Plain(VARNEL_UNEXPECTED, varnel_code_text(VARNEL_UNEXPECTED));
  }
}

}  // namespace

Outcome OutcomeOfException() noexcept {
  try {
    return Describe();
  } catch (const std::exception&) {
    Outcome outcome;
    outcome.code = VARNEL_NO_MEMORY;
    outcome.backupStatus = kFailed;
    outcome.message = varnel_code_text(VARNEL_NO_MEMORY);  // short enough to need none
    return outcome;
  }
}

std::string ToUtf8(std::string_view text) {
  try {
    return WideToUtf8(Utf8ToWide(text));
  } catch (const std::range_error&) {
    return WideToUtf8Lossy(AnsiToWide(text));
  }
}

}  // namespace varnel::c
