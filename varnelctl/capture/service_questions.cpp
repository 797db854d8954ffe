#include <algorithm>

#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "simulator/host_file/documents.h"
#include "simulator/host_file/host_words.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/capture/questions.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/providers.h"

namespace varnelctl::capture {
namespace {

using varnel::ComPtr;
using varnel::CurrentHost;
using varnel::WideToUtf8Lossy;
using varnel::simulator::Disk;
using varnel::simulator::kFailedStates;
using varnel::simulator::Volume;
using varnel::simulator::Writer;

// An object of the service that may be asked; empty, with a note, where there is none.
ComPtr<IVssBackupComponents> NewBackup(CapturedHost& host, LONG context = VSS_CTX_BACKUP) {
  ComPtr<IVssBackupComponents> backup;
  const auto note = [&](const char* call, HRESULT result) {
    if (SUCCEEDED(result)) return false;
    NoteFailure(host, call, "", result);
    return true;
  };
  if (note("CreateVssBackupComponents",
           varnel::Delivered(CurrentHost().vss().CreateVssBackupComponents(backup.Put()), backup)) ||
      note("IVssBackupComponents::InitializeForBackup", backup->InitializeForBackup(nullptr)) ||
      (context != VSS_CTX_BACKUP && note("IVssBackupComponents::SetContext", backup->SetContext(context)))) {
    return {};
  }
  return backup;
}

// Whether a provider copies a volume; nothing, with a note, where the service does not tell.
std::optional<bool> AskSupport(CapturedHost& host, IVssBackupComponents& backup, const GUID& provider,
                               const std::wstring& volume) {
  BOOL supported = FALSE;
  std::wstring name = volume;  // the service takes a text that it might change
  const HRESULT result = backup.IsVolumeSupported(provider, name.data(), &supported);
  if (SUCCEEDED(result)) return supported != FALSE;
  NoteFailure(host, "IVssBackupComponents::IsVolumeSupported",
              WideToUtf8Lossy(varnel::FormatGuid(provider) + L" for " + volume), result);
  return std::nullopt;
}

constexpr LONG kKinds[] = {VSS_VOLSNAP_ATTR_TRANSPORTABLE, VSS_VOLSNAP_ATTR_DIFFERENTIAL, VSS_VOLSNAP_ATTR_PLEX};

std::optional<bool> AskKind(CapturedHost& host, LONG kind, const GUID& provider, const std::wstring& volume) {
  const ComPtr<IVssBackupComponents> backup = NewBackup(host, static_cast<LONG>(VSS_CTX_BACKUP) | kind);
  return backup ? AskSupport(host, *backup, provider, volume) : std::nullopt;
}

// Whether it copies the volume at all: some make copies of one kind only.
std::optional<bool> AskEveryKind(CapturedHost& host, IVssBackupComponents& backup,
                                 const varnel::simulator::Provider& provider, const std::wstring& volume) {
  std::optional<bool> answer = AskSupport(host, backup, provider.id, volume);
  if (provider.type == VSS_PROV_SYSTEM) return answer;
  for (const LONG kind : kKinds) {
    if (answer != false) return answer;
    answer = AskKind(host, kind, provider.id, volume);
  }
  return answer;
}

// The first volume that the provider copies at all; nothing without one.
std::optional<std::wstring> AskVolumes(CapturedHost& host, IVssBackupComponents& backup,
                                       varnel::simulator::Provider& provider) {
  std::optional<std::wstring> supported;
  for (const Disk& disk : host.model.disks) {
    for (const Volume& volume : disk.volumes) {
      const std::optional<bool> answer = AskEveryKind(host, backup, provider, volume.name);
      if (answer == false) provider.unsupportedVolumes.push_back(volume.name);
      if (answer == true && !supported) supported = volume.name;
    }
  }
  return supported;
}

// A provider says what it supports volume by volume: that of one which it copies is taken for all.
void AskKinds(CapturedHost& host, varnel::simulator::Provider& provider, const std::wstring& volume) {
  LONG kinds = 0;
  for (const LONG kind : kKinds) {
    const std::optional<bool> answer = AskKind(host, kind, provider.id, volume);
    if (!answer) return;
    if (*answer) kinds |= kind;
  }
  provider.supports = kinds;
}

// Only these copy volumes of this host.
bool CopiesVolumes(const varnel::simulator::Provider& provider) {
  return provider.type == VSS_PROV_SYSTEM || provider.type == VSS_PROV_SOFTWARE || provider.type == VSS_PROV_HARDWARE;
}

void AskProviders(CapturedHost& host) {
  std::vector<Provider> told;
  try {
    told = ReadProviders();
  } catch (const CallFailure& failure) {
    return NoteFailure(host, failure.what(), "", failure.hresult());
  }
  const ComPtr<IVssBackupComponents> backup = NewBackup(host);
  for (const Provider& one : told) {
    varnel::simulator::Provider provider{one.id, one.name, one.type, one.version};
    if (backup && CopiesVolumes(provider)) {
      const std::optional<std::wstring> volume = AskVolumes(host, *backup, provider);
      if (volume && provider.type != VSS_PROV_SYSTEM) AskKinds(host, provider, *volume);
    }
    host.model.providers.push_back(std::move(provider));
  }
}

// False, with a note, when the operation did not end well.
bool Wait(CapturedHost& host, const char* call, HRESULT started, const ComPtr<IVssAsync>& async) {
  HRESULT result = varnel::Delivered(started, async);
  if (SUCCEEDED(result)) result = async->Wait(INFINITE);
  HRESULT outcome = S_OK;
  if (SUCCEEDED(result)) result = async->QueryStatus(&outcome, nullptr);
  if (SUCCEEDED(result) && outcome != VSS_S_ASYNC_FINISHED) result = FAILED(outcome) ? outcome : E_UNEXPECTED;
  if (FAILED(result)) NoteFailure(host, call, "", result);
  return SUCCEEDED(result);
}

void AskDocuments(CapturedHost& host, IVssBackupComponents& backup) {
  UINT count = 0;
  if (const HRESULT result = backup.GetWriterMetadataCount(&count); FAILED(result)) {
    return NoteFailure(host, "IVssBackupComponents::GetWriterMetadataCount", "", result);
  }
  for (UINT index = 0; index < count; ++index) {
    VSS_ID instance{};
    ComPtr<IVssExamineWriterMetadata> metadata;
    varnel::Bstr document;
    HRESULT result = varnel::Delivered(backup.GetWriterMetadata(index, &instance, metadata.Put()), metadata);
    if (SUCCEEDED(result)) result = metadata->SaveAsXML(document.Put());
    if (SUCCEEDED(result)) {
      AddWriter(host, WideToUtf8Lossy(document.View()));
    } else {
      NoteFailure(host, "the metadata", "writer " + std::to_string(index + 1), result);
    }
  }
}

// Remembers a failure of an earlier backup, where a host file can say it.
void TakeFailure(CapturedHost& host, const VSS_ID& instance, std::wstring_view name, VSS_WRITER_STATE state,
                 HRESULT failure) {
  if (SUCCEEDED(failure)) return;
  auto& writers = host.model.writers;
  const auto writer =
      std::find_if(writers.begin(), writers.end(), [&](const Writer& one) { return one.instanceId == instance; });
  const bool canBeSaid = std::any_of(std::begin(kFailedStates), std::end(kFailedStates),
                                     [&](const auto& word) { return word.value == state; });
  if (writer != writers.end() && canBeSaid) {
    writer->lastFailure = {state, failure};
  } else {
    const std::string stood = " in state " + std::to_string(static_cast<int>(state));
    NoteFailure(host, "writer", WideToUtf8Lossy(name) + stood, failure);
  }
}

void AskStates(CapturedHost& host, IVssBackupComponents& backup) {
  ComPtr<IVssAsync> async;
  const HRESULT started = backup.GatherWriterStatus(async.Put());
  if (!Wait(host, "IVssBackupComponents::GatherWriterStatus", started, async)) return;
  UINT count = 0;
  if (const HRESULT result = backup.GetWriterStatusCount(&count); FAILED(result)) {
    return NoteFailure(host, "IVssBackupComponents::GetWriterStatusCount", "", result);
  }
  for (UINT index = 0; index < count; ++index) {
    VSS_ID instance{};
    VSS_ID writer{};
    varnel::Bstr name;
    VSS_WRITER_STATE state{};
    HRESULT failure = S_OK;
    const HRESULT result = backup.GetWriterStatus(index, &instance, &writer, name.Put(), &state, &failure);
    if (FAILED(result)) {
      NoteFailure(host, "IVssBackupComponents::GetWriterStatus", "writer " + std::to_string(index + 1), result);
    } else {
      TakeFailure(host, instance, name.View(), state, failure);
    }
  }
  backup.FreeWriterStatus();
}

void AskWriters(CapturedHost& host) {
  const ComPtr<IVssBackupComponents> backup = NewBackup(host);
  if (!backup) return;
  ComPtr<IVssAsync> async;
  const HRESULT started = backup->GatherWriterMetadata(async.Put());
  if (!Wait(host, "IVssBackupComponents::GatherWriterMetadata", started, async)) return;
  AskDocuments(host, *backup);
  AskStates(host, *backup);
  backup->FreeWriterMetadata();
}

}  // namespace

void AddWriter(CapturedHost& host, std::string document) {
  try {
    Writer writer = varnel::simulator::ReadWriterDocument(document);
    const auto same = [&](const Writer& other) { return other.instanceId == writer.instanceId; };
    if (std::none_of(host.model.writers.begin(), host.model.writers.end(), same)) {
      host.model.writers.push_back(std::move(writer));
      return;
    }
    NoteLeftOut(host, "a second document of writer " + WideToUtf8Lossy(writer.name) + " left out");
    host.strays.push_back({WideToUtf8Lossy(writer.name), std::move(document)});
  } catch (const varnel::simulator::DocumentError& error) {
    NoteLeftOut(host, std::string("a writer left out, whose document cannot be read: ") + error.what());
    host.strays.push_back({"unknown", std::move(document)});
  }
}

void AskService(CapturedHost& host) {
  AskProviders(host);
  AskWriters(host);
}

}  // namespace varnelctl::capture
