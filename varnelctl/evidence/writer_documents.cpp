#include "varnelctl/evidence/writer_documents.h"

#include <algorithm>

#include "core/vss_call.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "text/format.h"
#include "text/unicode.h"
#include "varnelctl/console/phases.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"

namespace varnelctl {
namespace {

using varnel::Bstr;
using varnel::ComPtr;

constexpr char kGather[] = "IVssBackupComponents::GatherWriterMetadata";

// Until it has ended, for so many milliseconds; what is given up is cancelled, and nobody waits for that.
void WaitFor(IVssAsync& operation, const Interruption* interruption, unsigned long long most) {
  constexpr DWORD kSlice = 500;
  varnel::Time& time = varnel::CurrentHost().time();
  const unsigned long long begun = time.GetTickCount64();
  for (;;) {
    CheckCall("IVssAsync::Wait", operation.Wait(kSlice));
    HRESULT result = S_OK;
    CheckCall("IVssAsync::QueryStatus", operation.QueryStatus(&result, nullptr));
    CheckCall(kGather, result);
    if (result != VSS_S_ASYNC_PENDING) return;
    const bool isUnwanted = interruption != nullptr && interruption->Requested();
    const bool isLate = time.GetTickCount64() - begun >= most;
    if (!isUnwanted && !isLate) continue;
    operation.Cancel();
    if (isUnwanted) throw Interrupted("interrupted while gathering the writers' metadata once more");
    throw PastDeadline("the writers did not answer once more within " + Counted(most / 1000, "second"));
  }
}

// "writer-03-SqlServerWriter.xml": a name of a writer may hold anything.
std::string FileNameOf(UINT index, const std::string& writer) {
  std::string name = varnel::FormatNarrow("writer-%02u-", {index + 1}) + writer;
  std::replace_if(
      name.begin(), name.end(),
      [](unsigned char c) { return c >= 0x80 || (std::isalnum(c) == 0 && c != '-' && c != '_'); }, '-');
  constexpr std::size_t kLongest = 80;
  return name.substr(0, kLongest) + ".xml";
}

EvidenceFile DocumentOf(IVssBackupComponents& service, UINT index) {
  const std::string number = std::to_string(index + 1);
  EvidenceFile file{"writer-" + number + ".xml", "The document of writer " + number, {}, {}};
  try {
    VSS_ID instance{};
    VSS_ID writer{};
    Bstr name;
    Bstr xml;
    VSS_USAGE_TYPE usage = VSS_UT_UNDEFINED;
    VSS_SOURCE_TYPE source = VSS_ST_UNDEFINED;
    ComPtr<IVssExamineWriterMetadata> metadata;
    CheckCall("IVssBackupComponents::GetWriterMetadata", service.GetWriterMetadata(index, &instance, metadata.Put()));
    CheckCall("IVssExamineWriterMetadata", varnel::Delivered(S_OK, metadata));
    CheckCall("IVssExamineWriterMetadata::GetIdentity",
              metadata->GetIdentity(&instance, &writer, name.Put(), &usage, &source));
    file.name = FileNameOf(index, varnel::WideToUtf8Lossy(name.View()));
    file.title = "The document of " + Printable(name.View());
    CheckCall("IVssExamineWriterMetadata::SaveAsXML", metadata->SaveAsXML(xml.Put()));
    file.content = varnel::WideToUtf8Lossy(xml.View());
  } catch (const CallFailure& failure) {
    file.whyNot = Describe(failure);
  }
  return file;
}

}  // namespace

std::vector<EvidenceFile> AskForWriterDocuments(const Interruption* interruption, unsigned long long most) {
  ComPtr<IVssBackupComponents> service;
  CheckCall("CreateVssBackupComponents",
            varnel::Delivered(varnel::CurrentHost().vss().CreateVssBackupComponents(service.Put()), service));
  CheckCall("IVssBackupComponents::InitializeForBackup", service->InitializeForBackup(nullptr));
  ComPtr<IVssAsync> operation;
  CheckCall(kGather, varnel::Delivered(service->GatherWriterMetadata(operation.Put()), operation));
  WaitFor(*operation.Get(), interruption, most);
  UINT count = 0;
  CheckCall("IVssBackupComponents::GetWriterMetadataCount", service->GetWriterMetadataCount(&count));
  std::vector<EvidenceFile> files;
  for (UINT index = 0; index < count; ++index) files.push_back(DocumentOf(*service.Get(), index));
  service->FreeWriterMetadata();
  return files;
}

}  // namespace varnelctl
