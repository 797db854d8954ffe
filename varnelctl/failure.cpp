#include "varnelctl/failure.h"

#include "core/errors.h"
#include "core/varnel.h"
#include "platform/format.h"
#include "simulator/simulated_host.h"
#include "varnelctl/text.h"

namespace varnelctl {
namespace {

ExitStatus StatusOfAlert(int alertCode) {
  switch (alertCode) {
    case VarnelException::WriterFailure:
      return ExitStatus::WriterFailure;
    case VarnelException::PartialSuccess:
      return ExitStatus::PartialSuccess;
    case VarnelException::ConfigurationError:
      return ExitStatus::ConfigurationError;
    case VarnelException::VerificationFailure:
      return ExitStatus::VerificationFailure;
    case VarnelException::ExtraVolumes:
      return ExitStatus::ExtraVolumes;
    default:
      return ExitStatus::Unexpected;
  }
}

Failure FailedCall(std::string_view call, HRESULT hr) {
  Failure failure;
  failure.status = ExitStatus::FailedCall;
  failure.hresult = hr;
  failure.message = varnel::FormatNarrow("%s failed: %s (0x%08x)",
                                         {call, std::string_view(OneLine(Utf8(CVarnel::HResult2String(hr)))), hr});
  return failure;
}

Failure Alert(const VarnelException& exception) {
  Failure failure;
  failure.status = StatusOfAlert(exception.GetAlertCode());
  failure.alertCode = exception.GetAlertCode();
  failure.message = OneLine(Utf8(exception.GetMessageText()));
  if (failure.message.empty()) failure.message = varnel::FormatNarrow("alert %d", {exception.GetAlertCode()});
  for (const std::wstring& entry : exception.GetMessageList()) {
    std::string detail = OneLine(Utf8(entry));
    if (!detail.empty() && detail != failure.message) failure.details.push_back(std::move(detail));
  }
  return failure;
}

Failure Plain(ExitStatus status, std::string_view message) {
  Failure failure;
  failure.status = status;
  failure.message = OneLine(message);
  return failure;
}

Failure Refusal(const ValidationFailure& refusal) {
  Failure failure = Plain(ExitStatus::Validation, refusal.what());
  failure.alertCode = refusal.catalogId();
  return failure;
}

}  // namespace

Failure DescribeFailure(const std::exception_ptr& exception, std::string_view call) {
  try {
    std::rethrow_exception(exception);
  } catch (long hr) {
    return FailedCall(call, varnel::AsHResult(hr));
  } catch (const CallFailure& failure) {
    return FailedCall(failure.what(), failure.hresult());
  } catch (const VarnelException& alert) {
    return Alert(alert);
  } catch (const UsageError& error) {
    return Plain(ExitStatus::Usage, error.what());
  } catch (const ValidationFailure& error) {
    return Refusal(error);
  } catch (const varnel::simulator::HostFileError& error) {
    return Plain(ExitStatus::Usage, error.what());
  } catch (const std::exception& error) {
    return Plain(ExitStatus::Unexpected, error.what());
  } catch (...) {
    return Plain(ExitStatus::Unexpected, "unknown exception");
  }
}

}  // namespace varnelctl
