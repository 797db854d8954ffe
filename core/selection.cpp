// Which writers and components take part, and the writer code that can narrow them to named databases.
#include <algorithm>
#include <optional>
#include <stdexcept>

#include "core/alerts.h"
#include "core/component_tree.h"
#include "core/configuration.h"
#include "core/message_catalog.h"
#include "core/metadata_bridge.h"
#include "core/varnel.h"
#include "core/vss_call.h"
#include "text/ascii_case.h"
#include "text/guid.h"

using varnel::ComponentTree;
using varnel::kLog;
namespace ascii = varnel::ascii;
namespace message = varnel::message;

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

// The check of a component looks at the first input component and at its own: it gets these, not a copy of thousands.
std::set<std::wstring> InputFor(const std::wstring& fullPath, const std::set<std::wstring>& inputComponents) {
  if (inputComponents.empty()) return {};
  std::set<std::wstring> input = {*inputComponents.begin()};
  if (const auto own = inputComponents.find(ascii::ToLower(fullPath)); own != inputComponents.end()) input.insert(*own);
  return input;
}

// Why it was not fetched, if so: a bridge that cannot answer leaves the list as it is.
std::optional<std::string> FetchDatabaseList(const std::string& serialNumber, const char*& list) {
  MetadataWrapper* bridge = MetadataWrapper::GetMetadataWrapperInstance();
  if (bridge == nullptr) return "the metadata bridge is not available";
  if (bridge->W_FindDataBaseToQuiesce(serialNumber.c_str())) {
    list = bridge->GetdbFilesToQuiescePtr();
    return std::nullopt;
  }
  const char* const reason = bridge->W_GetErrorDetailStructurePtr();
  return reason == nullptr ? "" : reason;
}

// The list as long as it is the caller's, and what is to be logged of it afterwards: whoever is told a line of the log
// may want the bridge, too.
std::string DatabaseListOf(const std::string& serialNumber, const char*& list) {
  std::unique_lock held = varnel::HoldMetadataBridge();
  const std::optional<std::string> failure = FetchDatabaseList(serialNumber, list);
  const bool isThere = list != nullptr;
  std::string databases = isThere ? list : "";
  held.unlock();
  if (failure) kLog.Info(L" GetdbFilesToQuiescePtr failed with error =%s", varnel::Widened{*failure});
  if (!isThere) kLog.Info(L" GetdbFilesToQuiescePtr failed ");
  return databases;
}

// "\network name\database" for the default instance of a host, "\network name\instance\database" for a named one.
std::wstring ComponentPathOf(const std::wstring& database, const std::wstring& server,
                             const std::wstring& networkName) {
  std::wstring path = L"\\" + networkName + L"\\";
  if (ascii::ToLower(server) != networkName) path += server + L"\\";
  return ascii::ToLower(path + database);
}

// Writers whose components are all at the top have no pairs of parent and child.
bool IsNested(const VssWriter& writer) {
  return !writer.excluded && !std::all_of(writer.components.begin(), writer.components.end(),
                                          [](const VssComponent& component) { return component.topLevel; });
}

bool AnyExcluded(const VssWriter& writer) {
  return std::any_of(writer.components.begin(), writer.components.end(),
                     [](const VssComponent& component) { return component.excluded; });
}

// What is included below one path.
struct Included {
  std::size_t first = ComponentTree::kNone;  // in list order
  std::set<std::wstring> serialNumbers;

  // Whether anything changed. What a path knows, the paths above it know too: nothing new here is nothing new there.
  bool Add(std::size_t component, const std::set<std::wstring>& serials) {
    const std::size_t known = serialNumbers.size();
    serialNumbers.insert(serials.begin(), serials.end());
    if (component >= first) return serialNumbers.size() > known;
    first = component;
    return true;
  }
};

// The outcome of going through all pairs of parent and child in list order, without visiting each pair: every included
// component is carried up to the paths above it, first those that are included by themselves, then each parent in its
// turn, so that a later parent sees it.
void IncludeParents(std::vector<VssComponent>& components) {
  const ComponentTree tree(components);
  std::vector<Included> below(tree.paths());
  const auto carryUp = [&](std::size_t index) {
    tree.VisitAncestors(
        index, [&](std::size_t path) { return below[path].Add(index, components[index].affectedSerialNumbers); });
  };
  for (std::size_t index = 0; index < components.size(); ++index) {
    if (!components[index].excluded) carryUp(index);
  }
  for (std::size_t index = 0; index < components.size(); ++index) {
    VssComponent& parent = components[index];
    const Included& children = below[tree.PathOf(index)];
    if (children.first == ComponentTree::kNone) continue;
    if (parent.excluded) {
      kLog.Info(L"Including, Component='%s, BecauseOf='%s", parent.fullPath, components[children.first].fullPath);
      parent.excluded = false;
      carryUp(index);
    }
    parent.affectedSerialNumbers.insert(children.serialNumbers.begin(), children.serialNumbers.end());
  }
}

struct ParentAndChild {
  const VssComponent* parent = nullptr;
  const VssComponent* child = nullptr;
};

// The first pair in list order whose parent takes part without its child.
ParentAndChild FindMissingChild(const std::vector<VssComponent>& components) {
  const ComponentTree tree(components);
  std::vector<const VssComponent*> firstExcluded(tree.paths());  // below each path
  for (std::size_t index = 0; index < components.size(); ++index) {
    if (!components[index].excluded) continue;
    tree.VisitAncestors(index, [&](std::size_t path) {
      if (firstExcluded[path] != nullptr) return false;
      firstExcluded[path] = &components[index];
      return true;
    });
  }
  for (std::size_t index = 0; index < components.size(); ++index) {
    const VssComponent* child = firstExcluded[tree.PathOf(index)];
    if (!components[index].excluded && child != nullptr) return {&components[index], child};
  }
  return {};
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
  std::map<std::wstring, std::wstring> volumeSerials;
  bool anyEligible = false;
  for (VssWriter& writer : m_writers) {
    writer.excluded = !IsWriterEligible(writer);
    if (writer.excluded) continue;
    anyEligible = true;
    if (NamesDatabases(WriterCodeNumber(parseWriterCode(errorDetails)))) GetComponentsList(m_inputComponents);
    for (VssComponent& component : writer.components) {
      component.excluded = !IsComponentEligible(component, volumeSerials);
    }
  }
  if (!anyEligible) {
    std::wstring text;
    GetErrorMessageFromCatalog(message::kNoWriter, text);
    throw VarnelException(VarnelException::ConfigurationError, text);
  }
  IncludeImplicitComponents();
  VerifyComponentSelection();
  DiscardEmptyWriters();
  VerifyProtectionSetDiskList(errorDetails);
  AddSelectedComponents(errorDetails);
}

bool CVarnel::IsComponentEligible(VssComponent& component, std::map<std::wstring, std::wstring>& volumeSerials) {
  if (component.files.empty()) return false;
  // The same answer for every file, so it is asked once.
  if (!checkComponents(InputFor(component.fullPath, m_inputComponents), component.fullPath)) {
    kLog.Warning(L"Component not in input file, State=NotEligible");
    return false;
  }
  std::set<std::wstring_view> serialNumbers;  // held by volumeSerials
  for (const VssFileDescriptor& file : component.files) {
    auto known = volumeSerials.find(file.volumeName);
    if (known == volumeSerials.end()) {
      std::wstring diskName;
      std::wstring found;
      if (GetDiskSerialNumberForVolume(file.volumeName, diskName, found) != ERROR_SUCCESS) {
        kLog.Error(L"GetDiskSerialNumberForVolume() Failed, Volume=%s, Component=%s, State=NotEligible",
                   file.volumeName, component.caption);
        return false;
      }
      known = volumeSerials.emplace(file.volumeName, std::move(found)).first;
    }
    const std::wstring& serialNumber = known->second;
    kLog.Info(L"Component=%s, File=%s, AffectedVolume=%s, SerialNumber=%s", component.caption, file.expandedPath,
              file.volumeName, serialNumber);
    component.affectedSerialNumbers.insert(serialNumber);
    if (serialNumbers.contains(serialNumber)) continue;
    if (!isVolumeEligible(serialNumber)) {
      kLog.Warning(L"Volume not in input list, State=NotEligible");
      return false;
    }
    serialNumbers.insert(serialNumber);
  }
  for (const std::wstring_view serialNumber : serialNumbers) {
    if (std::find(m_eligibleSerialNumbers.begin(), m_eligibleSerialNumbers.end(), serialNumber) ==
        m_eligibleSerialNumbers.end()) {
      m_eligibleSerialNumbers.emplace_back(serialNumber);
    }
  }
  return true;
}

bool CVarnel::checkComponents(std::set<std::wstring> inputComponents, std::wstring componentFullPath) {
  if (!NamesDatabases(WriterCodeNumber(getWriterCode()))) return true;
  if (inputComponents.empty()) return false;
  return *inputComponents.begin() == varnel::kAllDatabases ||
         inputComponents.contains(ascii::ToLower(componentFullPath));
}

void CVarnel::GetComponentsList(std::set<std::wstring>& components) {
  if (m_inputSerialNumbers.empty()) {
    kLog.Error(L"Invalid number of serial nos");
    varnel::ThrowHResult(E_INVALIDARG);
  }
  const std::string serialNumber = wstringTostring(m_inputSerialNumbers.front().c_str());
  const std::wstring databases = stringToWstring(DatabaseListOf(serialNumber, m_successfulDBList).c_str());
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
    const std::wstring server = entry.substr(separator + 1);
    components.insert(ComponentPathOf(entry.substr(0, separator), server, GetHostnameNetworkName(server)));
  }
}

void CVarnel::IncludeImplicitComponents() {
  kLog.Info(L"Including implicit components");
  for (VssWriter& writer : m_writers) {
    if (IsNested(writer)) IncludeParents(writer.components);
  }
}

void CVarnel::VerifyComponentSelection() {
  kLog.Info(L"VerifyComponentSelection");
  for (const VssWriter& writer : m_writers) {
    if (!IsNested(writer) || !AnyExcluded(writer)) continue;
    const auto [parent, child] = FindMissingChild(writer.components);
    if (parent == nullptr) continue;
    kLog.Error(L"IncludedParent=%s, ExcludedChild=%s. Ensure that protection set is complete", parent->caption,
               child->caption);
    std::wstring text;
    std::wstring detail;
    GetErrorMessageFromCatalog(message::kVolumesMissing, text);
    GetErrorMessageFromCatalog(message::kChildMissing, detail, child->caption, parent->caption, child->caption);
    throw VarnelException(VarnelException::ConfigurationError, text, {text + detail});
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
  kLog.Info(L"Selecting components");
  int count = 0;
  for (VssWriter& writer : m_writers) {
    if (writer.excluded) continue;
    const auto instanceId = varnel::GuidOrNull<GUID>(writer.instanceId);
    const auto writerId = varnel::GuidOrNull<GUID>(writer.writerId);
    for (VssComponent& component : writer.components) {
      if (component.excluded || !component.selectable) continue;
      kLog.Info(L"Add Component=%s ", component.fullPath);
      const HRESULT hr = varnel::ResultOf(m_pVssObject, &IVssBackupComponents::AddComponent, instanceId, writerId,
                                          static_cast<VSS_COMPONENT_TYPE>(component.type),
                                          component.logicalPath.c_str(), component.name.c_str());
      if (hr != S_OK) {
        varnel::WriteAlert<varnel::alert::kAddComponentFailed>(errorDetails, component.fullPath);
        CheckCommError(hr, "m_pVssObject->AddComponent()", errorDetails);
      }
      component.added = true;
      ++count;
    }
  }
  if (count == 0) {
    varnel::WriteAlert<varnel::alert::kNoComponents>(errorDetails);
    std::wstring text;
    GetErrorMessageFromCatalog(message::kNothingEligible, text);
    throw VarnelException(VarnelException::ConfigurationError, text);
  }
  kLog.Info(L"Number of components explicitly included in snapshot set = %d ", count);
}

bool CVarnel::IsWriterSelected(GUID instanceId) {
  const std::wstring text = varnel::FormatGuid(instanceId);
  return std::any_of(m_writers.begin(), m_writers.end(),
                     [&](const VssWriter& writer) { return !writer.excluded && writer.instanceId == text; });
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
  kLog.Info(L"Writer code received from Array is: %s", varnel::Widened{code});
  return code;
}

void CVarnel::setWriterCode(std::string code) {
  m_writerCode = std::move(code);
}

std::string CVarnel::getWriterCode() {
  return m_writerCode;
}
