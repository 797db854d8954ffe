// Asking the writers for their metadata, and waiting for the service.
#include "core/logging.h"
#include "core/varnel.h"
#include "platform/owners.h"

using varnel::ComPtr;
using varnel::kLog;

void CVarnel::GatherWriterMetadata(std::string& errorDetails) {
  const std::string operationName = "m_pVssObject->GatherWriterMetadata(&pAsync)";
  ComPtr<IVssAsync> async;
  const HRESULT hr = OnVssObject([&](auto& vss) { return vss.GatherWriterMetadata(async.Put()); });
  CheckCommError(varnel::Delivered(hr, async), operationName, errorDetails);
  WaitAndCheckForAsyncOperation(async.Get(), operationName, errorDetails);
  m_metadataGathered = true;
  InitializeWriterMetadata(errorDetails);
}

void CVarnel::WaitAndCheckForAsyncOperation(IVssAsync* async, std::string operationName, std::string& errorDetails) {
  kLog.Info(L"Waiting for Operation=%S to finish...", operationName);
  // Names are made for failures only: behind an operation that did its work nothing asks for memory, so that the caller
  // learns of it.
  const HRESULT waited = async->Wait(INFINITE);
  if (FAILED(waited)) CheckCommError(waited, "pAsync->Wait()", errorDetails);
  HRESULT result = S_OK;
  const HRESULT queried = async->QueryStatus(&result, nullptr);
  if (SUCCEEDED(queried) && SUCCEEDED(result)) return;
  operationName = "pAsync->QueryStatus()";
  CheckCommError(queried, operationName, errorDetails);
  varnel::WriteAlert(varnel::alert::kQueryStatus, {operationName, HResult2String(result)}, errorDetails);
  varnel::ThrowHResult(result);
}

void CVarnel::InitializeWriterMetadata(std::string& errorDetails) {
  UINT count = 0;
  CheckCommError(OnVssObject([&](auto& vss) { return vss.GetWriterMetadataCount(&count); }), "GetWriterMetadataCount()",
                 errorDetails);
  varnel::DirectoryResolver directories;
  for (UINT index = 0; index < count; ++index) {
    VSS_ID instanceId{};
    ComPtr<IVssExamineWriterMetadata> metadata;
    const HRESULT hr = m_pVssObject->GetWriterMetadata(index, &instanceId, metadata.Put());
    CheckCommError(varnel::Delivered(hr, metadata), "GetWriterMetadata()", errorDetails);
    VssWriter writer;
    varnel::BuildWriter(writer, metadata.Get(), directories);
    m_writers.push_back(std::move(writer));
  }
}

void CVarnel::FreeWriterMetadata() {
  if (m_pVssObject && m_metadataGathered) {
    const HRESULT hr = m_pVssObject->FreeWriterMetadata();
    if (FAILED(hr)) kLog.Error(L"FreeWriterMetadata failed with error: 0x%x", hr);
  }
  m_metadataGathered = false;
}
