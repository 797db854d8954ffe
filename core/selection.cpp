// Which writers and components take part, and the writer code that can narrow them to named databases.
#include <algorithm>
#include <array>
#include <cstddef>
#include <memory_resource>
#include <span>
#include <stdexcept>

#include "core/logging.h"
#include "core/varnel.h"
#include "platform/tessel/MetadataWrapper.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"

using varnel::kLog;
namespace ascii = varnel::ascii;

namespace {

// Logs before it lets the conversion's own exception pass: the request text comes from the array.
int WriterCodeNumber(const std::string& code) {
  try {
    return std::stoi(code);
  } catch (const std::logic_error&) {
    kLog.Error(L"Writer code is not a number: %S", code);
    throw;
  }
}

// The codes whose backup is limited to the databases that the metadata service names.
bool NamesDatabases(int writerCode) {
  return writerCode >= 2 && writerCode <= 4;
}

// None has a descendant then.
bool AllTopLevel(const VssWriter& writer) {
  return std::all_of(writer.components.begin(), writer.components.end(),
                     [](const VssComponent& component) { return component.topLevel; });
}

bool AnyExcluded(const VssWriter& writer) {
  return std::any_of(writer.components.begin(), writer.components.end(),
                     [](const VssComponent& component) { return component.excluded; });
}

// The entries between the separators; a separator at the end adds none.
std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
  std::vector<std::wstring> entries;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    entries.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return entries;
}

}  // namespace

bool CVarnel::IsWriterEligible(VssWriter& /*writer*/) {
  return true;
}

void CVarnel::VerifyComponentFile(VssFileDescriptor& /*file*/) {}

bool CVarnel::ArePartialFailuresSupported() {
  return false;
}

void CVarnel::SelectComponentsForBackup(std::string& errorDetails) {
  constexpr int kNoWriterMessage = 126;
  std::map<std::wstring, std::wstring> volumeSerials;
  bool anyEligible = false;
  for (VssWriter& writer : m_writers) {
    writer.excluded = !IsWriterEligible(writer);
    if (writer.excluded) continue;
    anyEligible = true;
    SelectComponentsOf(writer, volumeSerials, errorDetails);
  }
  if (!anyEligible) {
    std::wstring message;
    GetErrorMessageFromCatalog(kNoWriterMessage, message);
    throw VarnelException(VarnelException::ConfigurationError, message);
  }
  IncludeImplicitComponents();
  VerifyComponentSelection();
  DiscardEmptyWriters();
  VerifyProtectionSetDiskList(errorDetails);
  AddSelectedComponents(errorDetails);
}

void CVarnel::SelectComponentsOf(VssWriter& writer, std::map<std::wstring, std::wstring>& volumeSerials,
                                 const std::string& errorDetails) {
  if (NamesDatabases(WriterCodeNumber(parseWriterCode(errorDetails)))) GetComponentsList(m_inputComponents);
  for (VssComponent& component : writer.components) component.excluded = !IsComponentEligible(component, volumeSerials);
}

bool CVarnel::IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials) {
  constexpr std::size_t kUsualDisks = 16;
  if (component.files.empty()) return false;
  // The same answer for every file, so it is asked once.
  if (!IsInInputComponents(m_inputComponents, component.fullPath)) {
    kLog.Warning(L"Component not in input file, State=NotEligible");
    return false;
  }
  // Usually so few that they need no memory from outside.
  std::array<std::byte, kUsualDisks * sizeof(std::wstring_view)> room;
  std::pmr::monotonic_buffer_resource arena(room.data(), room.size());
  std::pmr::vector<std::wstring_view> serialNumbers(&arena);
  serialNumbers.reserve(kUsualDisks);
  const bool eligible = AreFilesEligible(component, volumeSerials, serialNumbers);
  std::sort(serialNumbers.begin(), serialNumbers.end());
  component.affectedSerialNumbers.insert(ShareSerialNumbers(serialNumbers));
  if (!eligible) return false;
  for (const std::wstring_view serialNumber : serialNumbers) AddEligibleSerialNumber(serialNumber);
  return true;
}

// Up to the first file that is not; the disks of the files looked at, each once.
bool CVarnel::AreFilesEligible(const VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials,
                               std::pmr::vector<std::wstring_view>& serialNumbers) {
  const SharedText* volume = nullptr;
  const std::wstring* serialNumber = nullptr;
  for (const VssFileDescriptor& file : component.files) {
    // Most files lie on the volume of the one before.
    if (volume == nullptr || *volume != file.volumeName) {
      volume = &file.volumeName;
      serialNumber = SerialNumberOf(*volume, volumeSerials);
    }
    if (serialNumber == nullptr) {
      kLog.Error(L"GetDiskSerialNumberForVolume() Failed, Volume=%s, Component=%s, State=NotEligible", file.volumeName,
                 component.caption);
      return false;
    }
    kLog.Info(L"Component=%s, File=%s, AffectedVolume=%s, SerialNumber=%s", component.caption, file.expandedPath,
              file.volumeName, *serialNumber);
    if (std::find(serialNumbers.begin(), serialNumbers.end(), *serialNumber) != serialNumbers.end()) continue;
    serialNumbers.push_back(*serialNumber);
    if (!IsOnEligibleDisk(*serialNumber)) {
      kLog.Warning(L"Volume not in input list, State=NotEligible");
      return false;
    }
  }
  return true;
}

// Components that lie on the same disks share one set.
const SerialNumbers& CVarnel::ShareSerialNumbers(std::span<const std::wstring_view> sorted) {
  auto known = m_serialNumberSets.find(sorted);
  if (known == m_serialNumberSets.end()) {
    known = m_serialNumberSets.insert(SerialNumbers::Set(sorted.begin(), sorted.end())).first;
  }
  return *known;
}

// Each volume is asked for once in a request; null when its disk cannot be told.
const std::wstring* CVarnel::SerialNumberOf(const std::wstring& volume,
                                            std::map<std::wstring, std::wstring>& volumeSerials) {
  const auto known = volumeSerials.find(volume);
  if (known != volumeSerials.end()) return &known->second;
  std::wstring diskName;
  std::wstring serialNumber;
  if (GetDiskSerialNumberForVolume(volume, diskName, serialNumber) != ERROR_SUCCESS) return nullptr;
  return &volumeSerials.emplace(volume, std::move(serialNumber)).first->second;
}

void CVarnel::AddEligibleSerialNumber(std::wstring_view serialNumber) {
  if (std::find(m_eligibleSerialNumbers.begin(), m_eligibleSerialNumbers.end(), serialNumber) ==
      m_eligibleSerialNumbers.end()) {
    m_eligibleSerialNumbers.emplace_back(serialNumber);
  }
}

bool CVarnel::checkComponents(std::set<std::wstring> inputComponents, std::wstring componentFullPath) {
  return IsInInputComponents(inputComponents, componentFullPath);
}

bool CVarnel::IsInInputComponents(const std::set<std::wstring>& inputComponents,
                                  const std::wstring& componentFullPath) {
  if (!NamesDatabases(WriterCodeNumber(m_writerCode))) return true;
  if (inputComponents.empty()) return false;
  return *inputComponents.begin() == varnel::kAllDatabases ||
         inputComponents.contains(ascii::ToLower(componentFullPath));
}

void CVarnel::GetComponentsList(std::set<std::wstring>& components) {
  if (m_inputSerialNumbers.empty()) {
    kLog.Error(L"Invalid number of serial nos");
    varnel::ThrowHResult(E_INVALIDARG);
  }
  FetchDatabaseList();
  const std::wstring databases = stringToWstring(m_successfulDBList);
  if (databases == varnel::kAllDatabases) {
    components.insert(varnel::kAllDatabases);
    return;
  }
  for (const std::wstring& entry : Split(databases, L'\t')) {
    const std::size_t separator = entry.find(L'@');
    if (separator == entry.npos) {
      kLog.Warning(L"Database entry without a server is skipped, Entry=%s", entry);
      continue;
    }
    components.insert(ComponentPathOfDatabase(entry.substr(0, separator), entry.substr(separator + 1)));
  }
}

// A bridge that cannot answer leaves the list as it is.
void CVarnel::FetchDatabaseList() {
  MetadataWrapper* bridge = MetadataWrapper::GetMetadataWrapperInstance();
  const std::string serialNumber = wstringTostring(m_inputSerialNumbers.front().c_str());
  if (bridge != nullptr && bridge->W_FindDataBaseToQuiesce(serialNumber.c_str())) {
    m_successfulDBList = bridge->GetdbFilesToQuiescePtr();
  } else {
    const char* reason =
        bridge == nullptr ? "the metadata bridge is not available" : bridge->W_GetErrorDetailStructurePtr();
    kLog.Info(L" GetdbFilesToQuiescePtr failed with error =%s",
              varnel::Utf8ToWideLossy(reason == nullptr ? "" : reason));
  }
  if (m_successfulDBList == nullptr) kLog.Info(L" GetdbFilesToQuiescePtr failed ");
}

// "\network name\database" for the default instance of a host, "\network name\instance\database" for a named one.
std::wstring CVarnel::ComponentPathOfDatabase(const std::wstring& database, const std::wstring& server) {
  const std::wstring networkName = GetHostnameNetworkName(server);
  std::wstring path = L"\\" + networkName + L"\\";
  if (ascii::ToLower(server) != networkName) path += server + L"\\";
  return ascii::ToLower(path + database);
}

void CVarnel::IncludeImplicitComponents() {
  kLog.Info(L"Including implicit components");
  for (VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    if (AllTopLevel(writer)) continue;
    const varnel::Descendants descendants{varnel::ComponentTree(writer.components)};
    for (std::size_t index = 0; index < writer.components.size(); ++index) {
      VssComponent& parent = writer.components[index];
      for (const std::size_t descendant : descendants.Of(index)) {
        const VssComponent& child = writer.components[descendant];
        if (child.excluded) continue;
        if (parent.excluded) {
          kLog.Info(L"Including, Component='%s, BecauseOf='%s", parent.fullPath, child.fullPath);
          parent.excluded = false;
        }
        parent.affectedSerialNumbers.insert(child.affectedSerialNumbers);
      }
    }
  }
}

void CVarnel::VerifyComponentSelection() {
  constexpr int kIncompleteMessage = 113;
  constexpr int kMissingChildMessage = 124;
  kLog.Info(L"VerifyComponentSelection");
  for (const VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    if (AllTopLevel(writer) || !AnyExcluded(writer)) continue;
    const varnel::Descendants descendants{varnel::ComponentTree(writer.components)};
    for (std::size_t index = 0; index < writer.components.size(); ++index) {
      const VssComponent& parent = writer.components[index];
      if (parent.excluded) continue;
      for (const std::size_t descendant : descendants.Of(index)) {
        const VssComponent& child = writer.components[descendant];
        if (!child.excluded) continue;
        kLog.Error(L"IncludedParent=%s, ExcludedChild=%s. Ensure that protection set is complete", parent.caption,
                   child.caption);
        std::wstring message;
        std::wstring detail;
        GetErrorMessageFromCatalog(kIncompleteMessage, message);
        GetErrorMessageFromCatalog(kMissingChildMessage, detail, child.caption, parent.caption, child.caption);
        throw VarnelException(VarnelException::ConfigurationError, message, {message + detail});
      }
    }
  }
}

void CVarnel::DiscardEmptyWriters() {
  kLog.Info(L"Discarding empty writers");
  for (VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    writer.excluded = std::all_of(writer.components.begin(), writer.components.end(),
                                  [](const VssComponent& component) { return component.excluded; });
    if (writer.excluded) kLog.Info(L"Discarding writer. Writer=%s", writer.name);
  }
}

void CVarnel::AddSelectedComponents(std::string& errorDetails) {
  constexpr int kNothingEligibleMessage = 114;
  kLog.Info(L"Selecting components");
  int count = 0;
  for (VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    const WriterIds ids(writer);
    for (VssComponent& component : writer.components) {
      if (component.excluded || !component.selectable) continue;
      AddSelectedComponent(ids, component, errorDetails);
      ++count;
    }
  }
  if (count == 0) {
    varnel::WriteAlert(varnel::alert::kNoComponents, {}, errorDetails);
    std::wstring message;
    GetErrorMessageFromCatalog(kNothingEligibleMessage, message);
    throw VarnelException(VarnelException::ConfigurationError, message);
  }
  kLog.Info(L"Number of components explicitly included in snapshot set = %d ", count);
}

void CVarnel::AddSelectedComponent(const WriterIds& writer, VssComponent& component, std::string& errorDetails) {
  kLog.Info(L"Add Component=%s ", component.fullPath);
  const HRESULT hr = OnVssObject([&](auto& vss) {
    return vss.AddComponent(writer.instanceId, writer.writerId, static_cast<VSS_COMPONENT_TYPE>(component.type),
                            component.logicalPath.c_str(), component.name.c_str());
  });
  if (hr != S_OK) {
    varnel::WriteAlert(varnel::alert::kAddComponentFailed, {component.fullPath}, errorDetails);
    CheckCommError(hr, "m_pVssObject->AddComponent()", errorDetails);
  }
  component.added = true;
}

VssWriter* CVarnel::FindSelectedWriter(const GUID& instanceId) {
  const std::wstring text = varnel::FormatGuid(instanceId);
  const auto found = std::find_if(m_writers.begin(), m_writers.end(), [&](const VssWriter& writer) {
    return !writer.excluded && writer.instanceId == text;
  });
  return found == m_writers.end() ? nullptr : &*found;
}

bool CVarnel::IsWriterSelected(GUID instanceId) {
  return FindSelectedWriter(instanceId) != nullptr;
}

std::string CVarnel::parseWriterCode(std::string requestText) {
  std::string code;
  for (std::size_t begin = 0; begin <= requestText.size();) {
    const std::size_t end = std::min(requestText.find(',', begin), requestText.size());
    const std::string field = requestText.substr(begin, end - begin);
    if (field.find("writer") != field.npos) {
      code = field.substr(field.find('=') + 1);  // the whole field when there is no "="
      break;
    }
    begin = end + 1;
  }
  setWriterCode(code);
  kLog.Info(L"Writer code received from Array is: %s", varnel::Utf8ToWideLossy(code));
  return code;
}

void CVarnel::setWriterCode(std::string code) {
  m_writerCode = std::move(code);
}

std::string CVarnel::getWriterCode() {
  return m_writerCode;
}
