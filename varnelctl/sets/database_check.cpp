#include "varnelctl/sets/database_check.h"

#include "core/configuration.h"
#include "core/logging.h"
#include "platform/forwarding_host.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/exchange_installation.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/program_search.h"

namespace varnelctl {
namespace {

// Remembers the program that was run last, and how it ended.
class LastProgram final : public varnel::ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;

  BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, void* processSecurity, void* threadSecurity,
                      BOOL inheritHandles, DWORD flags, void* environment, LPCWSTR directory, STARTUPINFOW* startup,
                      PROCESS_INFORMATION* process) override {
    commandLine_ = commandLine;
    exitCode_ = 0;
    return ForwardingProcesses::CreateProcessW(application, commandLine, processSecurity, threadSecurity,
                                               inheritHandles, flags, environment, directory, startup, process);
  }
  BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode) override {
    const BOOL known = ForwardingProcesses::GetExitCodeProcess(process, exitCode);
    if (known) exitCode_ = *exitCode;
    return known;
  }

  const std::wstring& commandLine() const { return commandLine_; }
  /// 0 as long as it has not ended.
  DWORD exitCode() const { return exitCode_; }

 private:
  std::wstring commandLine_;
  DWORD exitCode_ = 0;
};

class CheckerHost final : public varnel::ForwardingHost {
 public:
  explicit CheckerHost(varnel::Host& inner) : ForwardingHost(inner), last_(inner.processes()) {}
  varnel::Processes& processes() override { return last_; }
  const LastProgram& last() const { return last_; }

 private:
  LastProgram last_;
};

std::string MissingChecker(const std::wstring& folder) {
  const std::string place = folder.empty() ? ", and the registry knows no installation of Exchange"
                                           : " nor in " + Printable(folder) + ", where Exchange is installed";
  return "the checker " + Printable(varnel::kDatabaseChecker) + " was not found on the PATH" + place +
         ": install it, or add its folder to the PATH";
}

// Whether the command line checks this file; of logs the checker is told the base name.
bool Checks(const std::wstring& commandLine, const VssFileDescriptor& file) {
  const std::wstring name = file.pathOnVolume + L"\\" + file.filespec.substr(0, file.filespec.find(L'*')) + L"\"";
  return !file.snapshotDeviceName.empty() && commandLine.find(file.snapshotDeviceName) != commandLine.npos &&
         commandLine.find(name) != commandLine.npos;
}

// The file as people know it: on its own volume, and whose it is.
std::string CheckedFile(const CVarnel& requestor, const std::wstring& commandLine) {
  for (const VssWriter& writer : requestor.GetWriters()) {
    for (const VssComponent& component : writer.components) {
      for (const VssFileDescriptor& file : component.files) {
        if (!Checks(commandLine, file)) continue;
        const std::wstring& owner = component.caption.empty() ? component.fullPath : component.caption;
        return Printable(file.expandedPath + file.filespec) + " (" + Printable(owner) + ")";
      }
    }
  }
  return "a file of the snapshot";
}

[[noreturn]] void ThrowExitCode(const CVarnel& requestor, const VarnelException& failure, const LastProgram& last) {
  const std::string message =
      varnel::FormatNarrow("the checker %S ended with exit code %d on %s",
                           {varnel::kDatabaseChecker, last.exitCode(), CheckedFile(requestor, last.commandLine())});
  throw FailedCheck(advice::kCheckerFailed, message,
                    {OneLine(varnel::WideToUtf8Lossy(failure.GetMessageText())), Printable(last.commandLine())});
}

}  // namespace

// The requestor starts the checker by its bare name. The text of its failure is the same for a checker that is not
// there and for one that ends with the exit code 2.
void VerifyExchangeFiles(CVarnel& requestor) {
  const std::wstring folder = ExchangeProgramFolder();
  const ProgramSearch search(folder);
  CheckerHost host(varnel::CurrentHost());
  const varnel::ScopedHost current(host);
  try {
    requestor.VerifySnapShotData();
  } catch (const VarnelException& failure) {
    if (!ProgramSearch::Finds(varnel::kDatabaseChecker)) {
      throw FailedCheck(advice::kCheckerMissing, MissingChecker(folder),
                        {OneLine(varnel::WideToUtf8Lossy(failure.GetMessageText()))});
    }
    if (host.last().exitCode() != 0) ThrowExitCode(requestor, failure, host.last());
    throw;
  }
}

}  // namespace varnelctl
