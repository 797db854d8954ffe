#include "varnelctl/capture/host_reader.h"

#include "core/hresult.h"
#include "platform/com_security.h"
#include "platform/host.h"
#include "simulator/machine/result_names.h"
#include "text/format.h"
#include "varnelctl/capture/questions.h"

namespace varnelctl {
namespace capture {

void NoteFailure(CapturedHost& host, std::string_view call, std::string_view of, HRESULT result) {
  std::string line(call);
  if (!of.empty()) line.append(" of ").append(of);
  const std::string code = varnel::FormatNarrow("0x%08x", {result});
  const std::string name = varnel::simulator::ResultName(result);
  host.unanswered.push_back(line + " failed with " + (name == code ? code : name + " (" + code + ")"));
}

void NoteError(CapturedHost& host, std::string_view call, std::string_view of, DWORD error) {
  NoteFailure(host, call, of, varnel::HResultFromWin32(error));
}

void NoteLastError(CapturedHost& host, std::string_view call, std::string_view of) {
  NoteError(host, call, of, varnel::LastErrorOrGeneric());
}

void NoteLeftOut(CapturedHost& host, const std::string& what) {
  host.unanswered.push_back(what);
}

}  // namespace capture

CapturedHost ReadHost() {
  CapturedHost host;
  // Before any other question: the first call to another process, as WMI's is, would settle it, and writers under other
  // accounts could not answer.
  if (const HRESULT result = varnel::SetComSecurity(varnel::CurrentHost()); FAILED(result)) {
    capture::NoteFailure(host, "CoInitializeSecurity", "", result);
  }
  capture::AskMachine(host);
  capture::AskStorage(host);
  capture::AskSessions(host);
  capture::AskService(host);
  capture::AskSurroundings(host);
  capture::AskMessages(host);
  return host;
}

}  // namespace varnelctl
