// Asking the writers for their metadata, and waiting for the service.
#include "core/alerts.h"
#include "core/metadata_reader.h"
#include "core/varnel.h"
#include "core/vss_call.h"

using varnel::AlertAndThrow;
using varnel::kLog;

void CVarnel::GatherWriterMetadata(std::string& errorDetails) {
  constexpr char kCall[] = "m_pVssObject->GatherWriterMetadata(&pAsync)";
  const auto async = varnel::Obtain<IVssAsync>(AlertAndThrow(kCall, errorDetails), m_pVssObject,
                                               &IVssBackupComponents::GatherWriterMetadata);
  WaitAndCheckForAsyncOperation(async.Get(), kCall, errorDetails);
  m_metadataGathered = true;
  InitializeWriterMetadata(errorDetails);
}

void CVarnel::WaitAndCheckForAsyncOperation(IVssAsync* async, std::string operationName, std::string& errorDetails) {
  constexpr char kQuery[] = "pAsync->QueryStatus()";
  kLog.Info(L"Waiting for Operation=%S to finish...", operationName);
  varnel::CheckedCall(AlertAndThrow("pAsync->Wait()", errorDetails), async, &IVssAsync::Wait, INFINITE);
  HRESULT result = S_OK;
  varnel::CheckedCall(AlertAndThrow(kQuery, errorDetails), async, &IVssAsync::QueryStatus, &result, nullptr);
  if (SUCCEEDED(result)) return;
  varnel::WriteAlert<varnel::alert::kQueryStatus>(errorDetails, kQuery, varnel::HResultText(result));
  varnel::ThrowHResult(result);
}

void CVarnel::InitializeWriterMetadata(std::string& errorDetails) {
  UINT count = 0;
  varnel::CheckedCall(AlertAndThrow("GetWriterMetadataCount()", errorDetails), m_pVssObject,
                      &IVssBackupComponents::GetWriterMetadataCount, &count);
  varnel::DirectoryResolver directories;
  for (UINT index = 0; index < count; ++index) {
    VSS_ID instanceId{};
    const auto metadata =
        varnel::Obtain<IVssExamineWriterMetadata>(AlertAndThrow("GetWriterMetadata()", errorDetails), m_pVssObject,
                                                  &IVssBackupComponents::GetWriterMetadata, index, &instanceId);
    VssWriter writer;
    varnel::BuildWriter(writer, metadata.Get(), directories);
    m_writers.push_back(std::move(writer));
  }
}

void CVarnel::FreeWriterMetadata() noexcept {
  if (m_pVssObject && m_metadataGathered) {
    try {
      const HRESULT hr = m_pVssObject->FreeWriterMetadata();
      if (FAILED(hr)) kLog.Error(L"FreeWriterMetadata failed with error: 0x%x", hr);
    } catch (...) {
      // Whoever threw, nobody is left to tell.
    }
  }
  m_metadataGathered = false;
}
