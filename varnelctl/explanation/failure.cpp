#include "varnelctl/explanation/failure.h"

#include "core/alerts.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "resources/catalog.h"
#include "simulator/machine/state_file.h"
#include "simulator/simulated_host.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/requirement.h"

namespace varnelctl {
namespace {

using varnel::WideToUtf8Lossy;

// A code of 0 would tell the writers that all went well.
int BackupStatusOf(int code) {
  return code == 0 ? -1 : code;
}

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
  failure.message = varnel::FormatNarrow(
      "%s failed: %s (0x%08x)", {call, std::string_view(OneLine(WideToUtf8Lossy(CVarnel::HResult2String(hr)))), hr});
  return failure;
}

Failure Alert(const VarnelException& exception) {
  Failure failure;
  failure.status = StatusOfAlert(exception.GetAlertCode());
  failure.alertCode = exception.GetAlertCode();
  failure.backupStatus = BackupStatusOf(exception.GetAlertCode());
  failure.message = OneLine(WideToUtf8Lossy(exception.GetMessageText()));
  if (failure.message.empty()) failure.message = varnel::FormatNarrow("alert %d", {exception.GetAlertCode()});
  for (const std::wstring& entry : exception.GetMessageList()) {
    std::string detail = OneLine(WideToUtf8Lossy(entry));
    if (!detail.empty() && detail != failure.message) failure.details.push_back(std::move(detail));
  }
  if (exception.GetAlertCode() == VarnelException::VerificationFailure) {
    failure.details.emplace_back(
        "a check of the snapshot failed; the log (--log FILE) has its command line and its file");
  }
  return failure;
}

Failure Plain(ExitStatus status, std::string_view message) {
  Failure failure;
  failure.status = status;
  failure.message = OneLine(FromLibrary(message));
  return failure;
}

Failure Refusal(const ValidationFailure& refusal) {
  Failure failure = Plain(ExitStatus::Validation, refusal.what());
  failure.alertCode = refusal.catalogId();
  if (!refusal.statusWord().empty()) failure.details.push_back("status " + refusal.statusWord());
  return failure;
}

Failure Ended(const Interrupted& interrupted) {
  Failure failure = Plain(ExitStatus::Stopped, interrupted.what());
  failure.details = interrupted.details();
  const bool isLate = dynamic_cast<const PastDeadline*>(&interrupted) != nullptr;
  failure.explain = isLate ? advice::kPastDeadline : advice::kInterrupted;
  failure.quiet = dynamic_cast<const Abandoned*>(&interrupted) != nullptr;
  return failure;
}

Failure Unremembered(const JournalError& error) {
  Failure failure = Plain(ExitStatus::Usage, error.what());
  failure.explain = advice::kJournal;
  return failure;
}

Failure Missing(const NotContained& error) {
  Failure failure = Plain(ExitStatus::NotContained, error.what());
  failure.details = error.objects();
  return failure;
}

Failure Check(const FailedCheck& check) {
  Failure failure;
  failure.status = ExitStatus::VerificationFailure;
  failure.alertCode = VarnelException::VerificationFailure;
  failure.backupStatus = failure.alertCode;
  failure.message = check.what();
  failure.details = check.details();
  failure.explain = check.advice();
  return failure;
}

// What the library throws for a call.
Failure Thrown(std::string_view call, long hr) {
  Failure failure = FailedCall(call, varnel::AsHResult(hr));
  failure.backupStatus = BackupStatusOf(varnel::AsHResult(hr));
  return failure;
}

}  // namespace

std::string Describe(const CallFailure& failure) {
  return FailedCall(failure.what(), failure.hresult()).message;
}

void ThrowLastError(const char* call) {
  throw CallFailure(call, varnel::HResultFromWin32(varnel::LastErrorOrGeneric()));
}

bool GotThrough(const Failure& failure) {
  return failure.alertCode == VarnelException::PartialSuccess || failure.status == ExitStatus::Done;
}

std::string CatalogText(DWORD id) {
  for (const varnel::CatalogEntry& entry : varnel::Catalog()) {
    if (static_cast<DWORD>(entry.id) == id) return OneLine(WideToUtf8Lossy(varnel::FormatWide(entry.text, {})));
  }
  return "the library refuses this request (message " + std::to_string(id) + ")";
}

ValidationFailure::ValidationFailure(DWORD catalogId, std::string statusWord)
    : std::runtime_error(CatalogText(catalogId)),
      catalogId_(static_cast<int>(catalogId)),
      statusWord_(std::move(statusWord)) {}

Failure DescribeFailure(const std::exception_ptr& exception, std::string_view call) {
  try {
    std::rethrow_exception(exception);
  } catch (long hr) {
    return Thrown(call, hr);
  } catch (const CallFailure& failure) {
    return FailedCall(failure.what(), failure.hresult());
  } catch (const UnfitMachine& unfit) {
    Failure failure = Plain(ExitStatus::FailedCall, unfit.what());
    failure.hresult = unfit.hresult();
    return failure;
  } catch (const NotAllDone& missing) {
    Failure failure = Plain(ExitStatus::NotAllDone, missing.what());
    failure.hresult = missing.hresult();
    return failure;
  } catch (const VarnelException& alert) {
    return Alert(alert);
  } catch (const Interrupted& interrupted) {
    return Ended(interrupted);
  } catch (const FailedCheck& check) {
    return Check(check);
  } catch (const UsageError& error) {
    return Plain(ExitStatus::Usage, error.what());
  } catch (const JournalError& error) {
    return Unremembered(error);
  } catch (const NotContained& error) {
    return Missing(error);
  } catch (const ValidationFailure& error) {
    return Refusal(error);
  } catch (const varnel::simulator::HostFileError& error) {
    return Plain(ExitStatus::Usage, error.what());
  } catch (const varnel::simulator::StateFileError& error) {
    return Plain(ExitStatus::Usage, error.what());
  } catch (const std::exception& error) {
    return Plain(ExitStatus::Unexpected, error.what());
  } catch (...) {
    return Plain(ExitStatus::Unexpected, "unknown exception");
  }
}

}  // namespace varnelctl
