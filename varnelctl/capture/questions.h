// The questions of a capture, by whom they go to. Each adds what it learns to the captured host.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32.h"
#include "varnelctl/capture/host_reader.h"

namespace varnelctl::capture {

/// Remembers that a call failed with a result. \param of what it was about, empty for the host itself.
void NoteFailure(CapturedHost& host, std::string_view call, std::string_view of, HRESULT result);
void NoteError(CapturedHost& host, std::string_view call, std::string_view of, DWORD error);
/// The same with the host's last error.
void NoteLastError(CapturedHost& host, std::string_view call, std::string_view of);
/// What was told but is nothing that a host file can hold.
void NoteLeftOut(CapturedHost& host, const std::string& what);

/// The writer of a document (UTF-8); a stray document, with a note, where no host file can hold it.
void AddWriter(CapturedHost& host, std::string document);

/// Names, version, cluster, services, process.
void AskMachine(CapturedHost& host);
/// Disks, volumes, and what the metadata service and the initiator know of them.
void AskStorage(CapturedHost& host);
void AskSessions(CapturedHost& host);
/// Providers and writers. Wants the volumes.
void AskService(CapturedHost& host);
/// Files, keys of the registry, programs and variables that requestors and writers go by. Wants the writers.
void AskSurroundings(CapturedHost& host);
/// The texts of the codes that a request may meet.
void AskMessages(CapturedHost& host);

}  // namespace varnelctl::capture
