#include "tests/faults/reference.h"
#include "platform/ansi.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "text/guid.h"

namespace varnel::test::reference {
namespace {

struct File {
  std::wstring expandedPath;
  std::wstring volumeName;
  std::wstring pathOnVolume;
  std::wstring snapshotDeviceName;
  std::wstring snapshotDiskName;
  std::wstring snapshotSerialNumber;
};

struct Component {
  std::wstring name;
  std::wstring logicalPath;
  std::wstring caption;
  std::wstring fullPath;
  int type = 0;
  bool selectable = false;
  bool topLevel = false;
  bool excluded = false;
  bool added = false;
  bool failed = false;
  DWORD failureCode = 0;
  std::vector<File> files;
  std::vector<std::wstring> affectedSerialNumbers;  // ascending, each once
};

struct Writer {
  std::wstring name;
  std::wstring writerId;
  std::wstring instanceId;
  bool excluded = false;
  std::vector<Component> components;
};

struct SnapshotVolume {
  std::wstring volumeName;
  std::wstring snapshotId;
  std::wstring snapshotDeviceName;
};

// ---- text ----

std::wstring Wide(const std::string& text) {
  return Utf8ToWideLossy(text);
}

template <class Integer>
std::wstring Hex(Integer value) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
  return Wide(text);
}

std::wstring EightHexDigits(HRESULT value) {
  const std::wstring digits = Hex(value);
  return std::wstring(8 - digits.size(), L'0') + digits;
}

wchar_t Lower(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c;
}

std::wstring Lower(std::wstring text) {
  for (wchar_t& c : text) c = Lower(c);
  return text;
}

bool SameInAnyCase(const std::wstring& a, const std::wstring& b) {
  return Lower(a) == Lower(b);
}

std::wstring WithBackslash(const std::wstring& text) {
  return text.empty() || text.back() != L'\\' ? text + L"\\" : text;
}

std::wstring Joined(const std::vector<std::wstring>& list) {
  std::wstring text;
  for (const std::wstring& element : list) text += element + L", ";
  return text.empty() ? text : text.substr(0, text.size() - 2);
}

template <class T>
bool Contains(const std::vector<T>& list, const T& element) {
  for (const T& candidate : list) {
    if (candidate == element) return true;
  }
  return false;
}

void InsertInOrder(std::vector<std::wstring>& list, const std::wstring& element) {
  if (Contains(list, element)) return;
  list.push_back(element);
  std::sort(list.begin(), list.end());
}

std::wstring FullPath(const std::wstring& logicalPath, const std::wstring& name) {
  std::wstring path = WithBackslash(logicalPath) + name;
  if (path[0] != L'\\') path = L"\\" + path;
  return path;
}

bool IsAncestor(const Component& a, const Component& b) {
  if (a.fullPath.size() >= b.fullPath.size()) return false;
  const std::wstring start = a.fullPath + L"\\";
  return SameInAnyCase((b.fullPath + L"\\").substr(0, start.size()), start);
}

std::wstring StateName(VSS_WRITER_STATE state) {
  switch (static_cast<int>(state)) {
    case 0:
      return L"VSS_WS_UNKNOWN";
    case 1:
      return L"VSS_WS_STABLE";
    case 2:
      return L"VSS_WS_WAITING_FOR_FREEZE";
    case 3:
      return L"VSS_WS_WAITING_FOR_THAW";
    case 4:
      return L"VSS_WS_WAITING_FOR_POST_SNAPSHOT";
    case 5:
      return L"VSS_WS_WAITING_FOR_BACKUP_COMPLETE";
    case 6:
      return L"VSS_WS_FAILED_AT_IDENTIFY";
    case 7:
      return L"VSS_WS_FAILED_AT_PREPARE_BACKUP";
    case 8:
      return L"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT";
    case 9:
      return L"VSS_WS_FAILED_AT_FREEZE";
    case 10:
      return L"VSS_WS_FAILED_AT_THAW";
    case 11:
      return L"VSS_WS_FAILED_AT_POST_SNAPSHOT";
    case 12:
      return L"VSS_WS_FAILED_AT_BACKUP_COMPLETE";
    case 13:
      return L"VSS_WS_FAILED_AT_PRE_RESTORE";
    case 14:
      return L"VSS_WS_FAILED_AT_POST_RESTORE";
    case 15:
      return L"VSS_WS_FAILED_AT_BACKUPSHUTDOWN";
    default:
      return L"Writer status " + std::to_wstring(static_cast<int>(state));
  }
}

std::wstring StateMessage(VSS_WRITER_STATE state, const std::wstring& writer) {
  const std::wstring look = L"Check the Application event log on the application server for more information. ";
  switch (static_cast<int>(state)) {
    case 0:
      return writer + L" failed with unknown error. ";
    case 6:
      return writer + L" has failed the Identify event. " + look;
    case 7:
      return writer + L" has failed to prepare for backup. " + look;
    case 8:
      return writer + L" has failed to prepare for snapshot. " + look;
    case 9:
      return writer + L" failed to freeze the I/O operations. ";
    case 10:
      return writer + L" has failed during thaw event. " + look;
    case 11:
      return writer + L" has failed during post snapshot event. ";
    case 12:
      return writer + L" has failed during backup complete event. ";
    case 13:
      return writer + L" has failed during pre-restore event. ";
    case 14:
      return writer + L" has failed during post-restore event. ";
    case 15:
      return writer + L" failed during the shutdown of backup application. ";
    default:
      return L"";
  }
}

// The names of the results that a scenario can hold; empty for those that have none.
std::wstring SymbolOf(HRESULT hr) {
  switch (static_cast<DWORD>(hr)) {
    case 0:
      return L"S_OK";
    case 1:
      return L"S_FALSE";
    case 0x8000FFFF:
      return L"E_UNEXPECTED";
    case 0x8007000E:
      return L"E_OUTOFMEMORY";
    case 0x80042301:
      return L"VSS_E_BAD_STATE";
    case 0x80042304:
      return L"VSS_E_PROVIDER_NOT_REGISTERED";
    case 0x80042308:
      return L"VSS_E_OBJECT_NOT_FOUND";
    case 0x8004230D:
      return L"VSS_E_OBJECT_ALREADY_EXISTS";
    case 0x80042336:
      return L"VSS_E_WRITERERROR_PARTIAL_FAILURE";
    case 0x800423F2:
      return L"VSS_E_WRITERERROR_TIMEOUT";
    case 0x800423F3:
      return L"VSS_E_WRITERERROR_RETRYABLE";
    case 0x800423F4:
      return L"VSS_E_WRITERERROR_NONRETRYABLE";
    default:
      return L"";
  }
}

const std::wstring kPartialFailureText =
    L"The writer experienced a partial failure. Check the application event log on the application server to determine "
    L"application objects for which VSS synchronization failed.";

// The objects of one disk.
struct Catalogued {
  std::string key;
  Lines appIds;
  Lines appNames;
  Lines otherIds;
  Lines otherNames;
};

class Reference {
 public:
  Reference(const Scenario& scenario, const ServiceAnswers& service)
      : scenario_(scenario), host_(scenario.host), service_(service), details_(scenario.requestText) {}

  Story Tell();

 private:
  // ---- the three channels ----

  void Log(char category, const std::wstring& text) { log_.push_back(std::string(1, category) + " " + Narrow(text)); }
  void Alert(char category, const std::wstring& before, const std::wstring& record, const std::string& ending) {
    Log(category, before + record);
    details_ += Narrow(record) + ending;
  }
  std::wstring ResultText(HRESULT hr) const;
  std::wstring ErrorText(HRESULT hr);
  [[noreturn]] static void Throw(HRESULT hr) { throw EndingWithLong(hr); }
  void CheckCall(HRESULT hr, const std::wstring& call);
  void CheckComCall(HRESULT hr, const std::wstring& call);

  // ---- the steps ----

  void Create();
  void GatherWriters();
  File BuildFile(const simulator::FileSpec& spec) const;
  Component BuildComponent(const simulator::WriterComponent& source) const;
  void MarkTopLevels();

  void Select();
  int WriterCode();
  void GetComponentsList();
  std::wstring NetworkNameOf(const std::wstring& name);
  bool PassesComponentList(const Component& component) const;
  bool IsEligible(Component& component, int writerCode);
  bool FindSerialNumber(const std::wstring& volume, std::wstring& serialNumber) const;
  bool IsDiskEligible(const std::wstring& serialNumber);
  std::wstring SystemSerialNumber() const;
  std::vector<simulator::Disk> DisksByNumber() const;
  void IncludeParents();
  void VerifySelection();
  void DiscardEmptyWriters();
  void VerifyProtectionSet();
  [[noreturn]] void ReportMismatch();
  void AddComponents();
  HRESULT AnswerOf(const std::vector<HRESULT>& answers, std::size_t& next) const;

  void AddVolumes();
  bool IsVolumeAdded(const std::wstring& volume) const;
  std::vector<std::wstring> ExtraVolumes();
  void CheckStatus();
  void CheckEntry(const Check& check, const StatusEntry& entry, bool& cameThrough, bool& failureSeen);
  Writer* SelectedWriter(const std::wstring& instanceId);
  std::wstring FailWriter(Writer& writer, HRESULT hr);
  std::wstring FailPartially(Writer& writer, const Check& check, bool& cameThrough);
  void ReadDocument(Writer& writer, const Check& check, std::wstring& text);
  void ReadDocumentComponent(Writer& writer, const DocumentComponent& told, std::wstring& text);
  void ReadProperties();
  std::wstring ShadowSerialNumber(const std::wstring& volume) const;

  void Catalogue();
  Catalogued& EntryOf(const std::wstring& key);
  void Complete(int code);
  void MarkComponents(int code);
  void BackupComplete();

  void TellState(Story& story) const;
  void TellCatalogue(Story& story);

  const Scenario& scenario_;
  const simulator::HostModel& host_;
  const ServiceAnswers& service_;

  std::string details_;
  Lines log_;
  Lines calls_;
  std::vector<Writer> writers_;
  std::vector<std::wstring> inputComponents_;  // ascending
  std::wstring databases_ = L"ALL_DB";
  std::vector<std::wstring> eligible_;
  std::vector<std::wstring> extra_;
  std::vector<SnapshotVolume> volumes_;
  std::wstring errorText_;
  std::vector<std::wstring> failedComponents_;
  Ending deferred_;
  bool snapshotDone_ = false;
  std::size_t checks_ = 0;
  std::size_t adds_ = 0;
  std::size_t marks_ = 0;
  std::vector<Catalogued> catalogue_;
};

// ---- failures ----

std::wstring Reference::ResultText(HRESULT hr) const {
  if (!SymbolOf(hr).empty()) return SymbolOf(hr);
  for (const auto& [code, text] : host_.messages) {
    if (code == static_cast<DWORD>(hr)) return text;
  }
  return L"Error: 0x" + Hex(hr);
}

std::wstring Reference::ErrorText(HRESULT hr) {
  if (hr == VSS_E_WRITERERROR_PARTIAL_FAILURE) return kPartialFailureText;
  if (!host_.vssMessages) Log('W', L"Failed to load vsstrace.dll. Error 126");
  if (host_.vssMessages) {
    for (const auto& [code, text] : *host_.vssMessages) {
      if (code == static_cast<DWORD>(hr)) return text;
    }
  }
  for (const auto& [code, text] : host_.messages) {
    if (code == static_cast<DWORD>(hr)) return text;
  }
  Log('W', L"FormatMessage failed. Error 317");
  return ResultText(hr);
}

void Reference::CheckCall(HRESULT hr, const std::wstring& call) {
  if (hr >= 0) return;
  Alert('E', L" ", call + L"=Failed, error=" + ResultText(hr) + L", rc=COMMError, ca=ContactTechSupport;", "\n");
  Throw(hr);
}

void Reference::CheckComCall(HRESULT hr, const std::wstring& call) {
  if (hr >= 0) return;
  Log('E', L"ERROR: COM call \"" + call + L"\" failed.");
  Log('E', L"- Returned HRESULT = 0x" + EightHexDigits(hr));
  Log('E', L"- Error text: " + ResultText(hr));
  Throw(hr);
}

// What counts as the result of a call that hands out an object.
HRESULT ResultOf(const Delivery& delivery) {
  return delivery.result >= 0 && !delivery.object ? E_UNEXPECTED : delivery.result;
}

HRESULT Reference::AnswerOf(const std::vector<HRESULT>& answers, std::size_t& next) const {
  const std::size_t index = next++;
  return index < answers.size() ? answers[index] : S_OK;
}

// ---- the writers' metadata ----

void Reference::Create() {
  if (scenario_.context != 0)
    Log('I', L"- Setting VssContext=0x" + EightHexDigits(static_cast<HRESULT>(scenario_.context)));
  Log('I', L"CreateVssSnapshotSet : Enter");
  GatherWriters();
  Select();
  AddVolumes();
  Log('I', L"Waiting for Operation=PrepareForBackup() to finish...");
  CheckStatus();
  Log('I', L"Waiting for Operation=DoSnapshotSet() to finish...");
  snapshotDone_ = true;
  CheckStatus();
  if ((scenario_.testPoints & 1) != 0) {
    Log('E', L"***Testpoint enabled. Throwing error unexpected writer error after DoSnapshotSet***");
    Throw(static_cast<HRESULT>(0x80042315));
  }
  if ((scenario_.context & 0x20) == 0) ReadProperties();
  if (!errorText_.empty()) throw EndingWithException(601, errorText_, failedComponents_);
  if (!deferred_.Returned()) throw deferred_;
}

void Reference::GatherWriters() {
  Log('I', L"Waiting for Operation=m_pVssObject->GatherWriterMetadata(&pAsync) to finish...");
  for (const simulator::Writer& source : host_.writers) {
    Writer writer;
    writer.name = source.name;
    writer.writerId = FormatGuid(source.writerId);
    writer.instanceId = FormatGuid(source.instanceId);
    for (const simulator::WriterComponent& component : source.components) {
      writer.components.push_back(BuildComponent(component));
    }
    writers_.push_back(std::move(writer));
  }
  MarkTopLevels();
}

Component Reference::BuildComponent(const simulator::WriterComponent& source) const {
  Component component;
  component.name = source.name;
  component.logicalPath = source.logicalPath.value_or(L"");
  component.caption = source.caption.value_or(L"");
  component.fullPath = FullPath(component.logicalPath, component.name);
  component.type = source.type;
  component.selectable = source.selectable;
  for (const simulator::FileSpec& file : source.files) component.files.push_back(BuildFile(file));
  for (const simulator::FileSpec& file : source.databaseFiles) component.files.push_back(BuildFile(file));
  for (const simulator::FileSpec& file : source.logFiles) component.files.push_back(BuildFile(file));
  return component;
}

// The volume with the longest name that holds the path.
File Reference::BuildFile(const simulator::FileSpec& spec) const {
  std::wstring path = spec.path;
  for (const auto& [name, value] : host_.environment) {
    const std::wstring variable = L"%" + name + L"%";
    if (path.starts_with(variable)) path = value + path.substr(variable.size());
  }
  File file;
  file.expandedPath = WithBackslash(path);
  file.volumeName = file.expandedPath;
  std::size_t longest = 0;
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& volume : disk.volumes) {
      std::vector<std::wstring> names = volume.mountPoints;
      names.push_back(volume.name);
      for (const std::wstring& name : names) {
        if (!SameInAnyCase(file.expandedPath.substr(0, name.size()), name) || name.size() <= longest) continue;
        longest = name.size();
        file.volumeName = volume.name;
        file.pathOnVolume = file.expandedPath.substr(name.size());
      }
    }
  }
  return file;
}

void Reference::MarkTopLevels() {
  for (Writer& writer : writers_) {
    for (Component& c : writer.components) {
      c.topLevel = true;
      for (const Component& d : writer.components) {
        if (IsAncestor(d, c)) c.topLevel = false;
      }
    }
  }
}

// ---- selection ----

void Reference::Select() {
  bool anyEligible = false;
  for (Writer& writer : writers_) {
    writer.excluded = Contains(scenario_.ineligibleWriters, writer.name);
    if (writer.excluded) continue;
    anyEligible = true;
    const int code = WriterCode();
    if (code == 2 || code == 3 || code == 4) GetComponentsList();
    for (Component& component : writer.components) component.excluded = !IsEligible(component, code);
  }
  if (!anyEligible) {
    const std::wstring message = L"VSS writer is not present on the host.";
    throw EndingWithException(602, message, {message});
  }
  IncludeParents();
  VerifySelection();
  DiscardEmptyWriters();
  VerifyProtectionSet();
  AddComponents();
}

int Reference::WriterCode() {
  std::string code;
  std::istringstream fields(scenario_.requestText);
  for (std::string field; std::getline(fields, field, ',');) {
    if (field.find("writer") == field.npos) continue;
    code = field.find('=') == field.npos ? field : field.substr(field.find('=') + 1);
    break;
  }
  Log('I', L"Writer code received from Array is: " + Wide(code));
  try {
    return std::stoi(code);
  } catch (const std::invalid_argument&) {
    Log('E', L"Writer code is not a number: " + Wide(code));
    throw EndingWithOther("std::invalid_argument");
  } catch (const std::out_of_range&) {
    Log('E', L"Writer code is not a number: " + Wide(code));
    throw EndingWithOther("std::out_of_range");
  }
}

void Reference::GetComponentsList() {
  if (scenario_.inputSerialNumbers.empty()) {
    Log('E', L"Invalid number of serial nos");
    Throw(E_INVALIDARG);
  }
  const std::wstring& first = scenario_.inputSerialNumbers.front();
  const auto known = host_.databases.find(first);
  if (known != host_.databases.end()) {
    databases_ = known->second;
  } else {
    Log('I', L" GetdbFilesToQuiescePtr failed with error =No protection set holds the disk " + first);
  }
  if (databases_ == L"ALL_DB") {
    InsertInOrder(inputComponents_, L"ALL_DB");
    return;
  }
  std::wistringstream entries(databases_);
  for (std::wstring entry; std::getline(entries, entry, L'\t');) {
    const std::size_t at = entry.find(L'@');
    if (at == entry.npos) {
      Log('W', L"Database entry without a server is skipped, Entry=" + entry);
      continue;
    }
    const std::wstring database = entry.substr(0, at);
    const std::wstring server = entry.substr(at + 1);
    const std::wstring network = NetworkNameOf(server);
    std::wstring path = L"\\" + network + L"\\";
    if (Lower(server) != network) path += server + L"\\";
    InsertInOrder(inputComponents_, Lower(path + database));
  }
}

std::wstring Reference::NetworkNameOf(const std::wstring& name) {
  std::wstring result;
  if (host_.cluster) {
    bool found = false;
    for (const auto& [known, network] : host_.cluster->networkNames) {
      if (found || !SameInAnyCase(known, name)) continue;
      found = true;
      result = network;
    }
    if (!found) Log('I', L" GetClusterName failed. Falling back to local hostname");
  }
  return Lower(result.empty() ? host_.computerName : result);
}

bool Reference::PassesComponentList(const Component& component) const {
  if (inputComponents_.empty()) return false;
  return inputComponents_.front() == L"ALL_DB" || Contains(inputComponents_, Lower(component.fullPath));
}

bool Reference::IsEligible(Component& component, int writerCode) {
  if (component.files.empty()) return false;
  std::vector<std::wstring> passed;
  for (const File& file : component.files) {
    const bool narrowed = writerCode == 2 || writerCode == 3 || writerCode == 4;
    if (narrowed && !PassesComponentList(component)) {
      Log('W', L"Component not in input file, State=NotEligible");
      return false;
    }
    std::wstring serialNumber;
    if (!FindSerialNumber(file.volumeName, serialNumber)) {
      Log('E', L"GetDiskSerialNumberForVolume() Failed, Volume=" + file.volumeName + L", Component=" +
                   component.caption + L", State=NotEligible");
      return false;
    }
    Log('I', L"Component=" + component.caption + L", File=" + file.expandedPath + L", AffectedVolume=" +
                 file.volumeName + L", SerialNumber=" + serialNumber);
    InsertInOrder(component.affectedSerialNumbers, serialNumber);
    if (!IsDiskEligible(serialNumber)) {
      Log('W', L"Volume not in input list, State=NotEligible");
      return false;
    }
    InsertInOrder(passed, serialNumber);
  }
  for (const std::wstring& serialNumber : passed) {
    if (!Contains(eligible_, serialNumber)) eligible_.push_back(serialNumber);
  }
  return true;
}

bool Reference::FindSerialNumber(const std::wstring& volume, std::wstring& serialNumber) const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& candidate : disk.volumes) {
      if (!SameInAnyCase(candidate.name, volume)) continue;
      serialNumber = disk.reportsSerial ? disk.serial : L"";
      return !serialNumber.empty();
    }
  }
  return false;
}

// The disk that holds C:\.
std::wstring Reference::SystemSerialNumber() const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& volume : disk.volumes) {
      if (Contains(volume.mountPoints, std::wstring(L"C:\\"))) return disk.reportsSerial ? disk.serial : L"";
    }
  }
  return L"";
}

bool Reference::IsDiskEligible(const std::wstring& serialNumber) {
  if (!Contains(scenario_.inputSerialNumbers, serialNumber)) return false;
  if (serialNumber == SystemSerialNumber()) {
    Log('W', L"Affected volume " + serialNumber +
                 L" of file descriptor is a system volume. Hence not including in the snapshot set.");
    return false;
  }
  return true;
}

void Reference::IncludeParents() {
  Log('I', L"Including implicit components");
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (Component& p : writer.components) {
      for (Component& c : writer.components) {
        if (!IsAncestor(p, c) || c.excluded) continue;
        if (p.excluded) {
          Log('I', L"Including, Component='" + p.fullPath + L", BecauseOf='" + c.fullPath);
          p.excluded = false;
        }
        for (const std::wstring& serialNumber : c.affectedSerialNumbers) {
          InsertInOrder(p.affectedSerialNumbers, serialNumber);
        }
      }
    }
  }
}

void Reference::VerifySelection() {
  const std::wstring message =
      L"Protection set does not contain all the volumes required to take application consistent snapshot. Check the "
      L"protection set configuration.";
  Log('I', L"VerifyComponentSelection");
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& p : writer.components) {
      for (const Component& c : writer.components) {
        if (!IsAncestor(p, c) || p.excluded || !c.excluded) continue;
        Log('E', L"IncludedParent=" + p.caption + L", ExcludedChild=" + c.caption +
                     L". Ensure that protection set is complete");
        throw EndingWithException(
            602, message,
            {message + L"Component " + c.caption + L" needs to be in the protection set as parent " + p.caption +
             L" is included. Make sure volumes affected by " + c.caption + L" are included in volume collection."});
      }
    }
  }
}

void Reference::DiscardEmptyWriters() {
  Log('I', L"Discarding empty writers");
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    int count = 0;
    for (const Component& component : writer.components) {
      if (!component.excluded) ++count;
    }
    if (count != 0) continue;
    Log('I', L"Discarding writer. Writer=" + writer.name);
    writer.excluded = true;
  }
}

void Reference::ReportMismatch() {
  const std::vector<std::wstring>& input = scenario_.inputSerialNumbers;
  Alert('E', L" ",
        L"status=LunMismatch, VolCollVolumes=" + std::to_wstring(input.size()) + L", VolumesInvolvedInSnapshot=" +
            std::to_wstring(eligible_.size()) +
            L", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
        ";\n");
  const std::wstring inputLine = L"Input list of volumes in volume collection: " + Joined(input);
  Log('E', L" " + inputLine);
  details_ += WideToAnsi(inputLine) + ";\n";
  const std::wstring applicationLine = L"List of volumes used by application writer : " + Joined(eligible_);
  Log('E', L" " + applicationLine);
  details_ += WideToAnsi(applicationLine) + ";\n";
  throw EndingWithException(
      602,
      L"Number of disks added in the snapshot set were different than listed in the protection set. This can happen "
      L"due to incorrect configuration or application objects in incorrect state. Check the protection set "
      L"configuration and ensure that objects being backed up are in correct state.",
      {L"\n Volumes in volume collection: " + Joined(input) +
       L" \n Volumes containing application components eligible for backup: " + Joined(eligible_)});
}

void Reference::VerifyProtectionSet() {
  const std::vector<std::wstring>& input = scenario_.inputSerialNumbers;
  const std::vector<std::wstring>& application = eligible_;
  if (input.size() == application.size()) return;
  if (application.empty()) ReportMismatch();
  for (const std::wstring& serialNumber : input) {
    bool used = false;
    for (const std::wstring& candidate : application) used = used || SameInAnyCase(candidate, serialNumber);
    if (!used) extra_.push_back(serialNumber);
  }
  Alert('W', L"",
        L"status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =" + std::to_wstring(application.size()) +
            L" , ExtraVolumes =" + std::to_wstring(extra_.size()) +
            L", rc=ConfigWarning, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
        ";\n");
  deferred_ = EndingWithException(701, L"Extra volumes found in the volume collection. ",
                                  {L"Extra volumes in the volume collection : " + Joined(extra_)});
  const std::wstring line = L"Extra volumes in volume collection are:" + Joined(extra_);
  Log('W', L" " + line);
  details_ += WideToAnsi(line) + ":\n";
}

void Reference::AddComponents() {
  Log('I', L"Selecting components");
  int count = 0;
  for (Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (Component& component : writer.components) {
      if (component.excluded || !component.selectable) continue;
      Log('I', L"Add Component=" + component.fullPath + L" ");
      calls_.push_back(Narrow(L"AddComponent " + writer.instanceId + L" " + writer.writerId + L" " +
                              std::to_wstring(component.type) + L" \"" + component.logicalPath + L"\" \"" +
                              component.name + L"\""));
      const HRESULT hr = AnswerOf(scenario_.addAnswers, adds_);
      if (hr != 0) {
        Alert('E', L"  ",
              L"status=AddComponentFailed, Component=" + component.fullPath +
                  L", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes",
              ";\n");
        CheckCall(hr, L"m_pVssObject->AddComponent()");
      }
      component.added = true;
      ++count;
    }
  }
  if (count == 0) {
    Alert('E', L"  ",
          L"status=NoComponentsEligibleForBackup, rc=ConfigError, ca=CheckVolumeCollection, "
          L"ca=CheckHostsVolumes/Connections",
          ";\n");
    const std::wstring message =
        L"Protection set does not contain any application components for backup. Make sure that all the files to be "
        L"backed up reside on volumes in the protection set.";
    throw EndingWithException(602, message, {message});
  }
  Log('I', L"Number of components explicitly included in snapshot set = " + std::to_wstring(count) + L" ");
}

// ---- the volumes ----

bool Reference::IsVolumeAdded(const std::wstring& volume) const {
  for (const SnapshotVolume& added : volumes_) {
    if (SameInAnyCase(added.volumeName, volume)) return true;
  }
  return false;
}

std::vector<simulator::Disk> Reference::DisksByNumber() const {
  std::vector<simulator::Disk> disks = host_.disks;
  std::sort(disks.begin(), disks.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
  return disks;
}

std::vector<std::wstring> Reference::ExtraVolumes() {
  std::vector<std::wstring> names;
  for (const std::wstring& serialNumber : extra_) {
    if (SameInAnyCase(serialNumber, SystemSerialNumber())) {
      Log('I', L"Excluding volume = " + serialNumber + L" from extra volume.");
      continue;
    }
    for (const simulator::Disk& disk : DisksByNumber()) {
      if (!disk.reportsSerial || disk.serial.empty() || !SameInAnyCase(disk.serial, serialNumber)) continue;
      for (const simulator::Volume& volume : disk.volumes) names.push_back(volume.name);
    }
  }
  return names;
}

void Reference::AddVolumes() {
  const std::wstring setId = FormatGuid(service_.setId);
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& component : writer.components) {
      if (component.excluded) continue;
      for (const File& file : component.files) {
        if (!IsVolumeAdded(file.volumeName)) volumes_.push_back({file.volumeName, L"", L""});
      }
    }
  }
  for (const std::wstring& name : ExtraVolumes()) {
    if (IsVolumeAdded(name)) {
      Log('W',
          L"Volume to be added is a system drive hence excluding from snapshot set even though this volume was "
          L"detected as an extra volume.");
      continue;
    }
    Log('I', L"Adding extra volume = " + name + L" to the snapshot set");
    volumes_.push_back({name, L"", L""});
  }
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    Log('I', L"Add Volume=" + volumes_[i].volumeName + L", SnapshotSetID=" + setId + L" ");
    calls_.push_back(
        Narrow(L"AddToSnapshotSet \"" + volumes_[i].volumeName + L"\" {374579ad-285c-49b9-ab8a-950e0e252de2}"));
    const ServiceAnswers::Volume answer =
        i < service_.volumes.size() ? service_.volumes[i] : ServiceAnswers::Volume{E_FAIL, {}};
    CheckCall(answer.result, L"m_pVssObject->AddToSnapshotSet()");
    volumes_[i].snapshotId = FormatGuid(answer.snapshotId);
  }
}

std::wstring Reference::ShadowSerialNumber(const std::wstring& volume) const {
  for (const simulator::Disk& disk : host_.disks) {
    for (const simulator::Volume& candidate : disk.volumes) {
      if (SameInAnyCase(candidate.name, volume)) return L"SHADOW-" + disk.serial;
    }
  }
  return L"";
}

// Every shadow copy is on a disk of its own, with the lowest free number.
void Reference::ReadProperties() {
  std::vector<DWORD> used;
  for (const simulator::Disk& disk : host_.disks) used.push_back(disk.number);
  Log('I', L"Getting snapshot properties...");
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    SnapshotVolume& entry = volumes_[i];
    DWORD number = 0;
    while (Contains(used, number)) ++number;
    used.push_back(number);
    const std::wstring disk = L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
    const std::wstring serialNumber = ShadowSerialNumber(entry.volumeName);
    entry.snapshotDeviceName = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_wstring(i + 1) + L"\\";
    Log('I', L"re-enumerating cache");
    Log('I', L"SnapshotdeviceName=" + entry.snapshotDeviceName + L", volume=" + entry.volumeName + L", DiskName=" +
                 disk + L", SerialNumber=" + serialNumber);
    for (Writer& writer : writers_) {
      if (writer.excluded) continue;
      for (Component& component : writer.components) {
        if (component.excluded) continue;
        for (File& file : component.files) {
          if (file.volumeName != entry.volumeName) continue;
          file.snapshotDeviceName = entry.snapshotDeviceName;
          file.snapshotDiskName = disk;
          file.snapshotSerialNumber = serialNumber;
        }
      }
    }
  }
}

// ---- the writers' status ----

void Reference::CheckStatus() {
  const Check& check = scenario_.checks.at(checks_++);
  bool cameThrough = false;
  bool failureSeen = false;
  Log('I', L"GatherWriterStatus");
  Log('I', L"Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish...");
  CheckCall(check.counting, L"m_pVssObject->GetWriterStatusCount()");
  CheckComCall(ResultOf(check.view), L"m_pVssObject->QueryInterface(IID_IVssBackupComponentsEx3, (void**)&bucompEx3)");
  for (const StatusEntry& entry : check.entries) CheckEntry(check, entry, cameThrough, failureSeen);
  CheckCall(check.freeing, L"m_pVssObject->FreeWriterStatus()");
  if (scenario_.partialFailures ? !cameThrough : failureSeen) {
    throw EndingWithException(600, errorText_, failedComponents_);
  }
}

Writer* Reference::SelectedWriter(const std::wstring& instanceId) {
  for (Writer& writer : writers_) {
    if (!writer.excluded && writer.instanceId == instanceId) return &writer;
  }
  return nullptr;
}

void Reference::CheckEntry(const Check& check, const StatusEntry& entry, bool& cameThrough, bool& failureSeen) {
  CheckCall(entry.reading, L"bucompEx3->GetWriterStatusEx()");
  Writer* writer = SelectedWriter(FormatGuid(entry.instanceId));
  if (writer == nullptr) return;
  const std::wstring name = entry.name.value_or(L"");
  const std::wstring message = entry.applicationMessage.value_or(L"");
  if (entry.failure == 0) {
    cameThrough = true;
    Log('I', L"Writer=" + name + L", WriterStatus=" + StateName(entry.state) + L", WriterError=S_OK");
    return;
  }
  failureSeen = true;
  Alert('E', L"  ",
        L"RequestStatus=WriterFailure, WriterName=" + name + L", WriterError=" + ResultText(entry.failure) +
            L", WriterStatus=" + StateName(entry.state) + L", ApplicationError=0x" + Hex(entry.applicationResult) +
            L", ApplicationMsg=" + message + L", rc=VssWriterStatusError, ca=CheckWriterState;\n",
        "");
  const std::wstring stateText = StateMessage(entry.state, name);
  const std::wstring errorText = ErrorText(entry.failure);
  errorText_ += stateText + errorText;
  std::wstring text = stateText + errorText + L" Application error code: 0x" + Hex(entry.applicationResult) +
                      L", Application error message: " + message + L" \n";
  text += entry.failure == VSS_E_WRITERERROR_PARTIAL_FAILURE ? FailPartially(*writer, check, cameThrough)
                                                             : FailWriter(*writer, entry.failure);
  failedComponents_.push_back(text);
}

std::wstring Reference::FailWriter(Writer& writer, HRESULT hr) {
  Log('E', L"Marking all components of writer " + writer.name + L" as FAILED!");
  std::wstring list;
  for (Component& component : writer.components) {
    if (!component.added) continue;
    component.failed = true;
    component.failureCode = static_cast<DWORD>(hr);
    list += component.name + L"[" + component.fullPath + L"],";
  }
  if (!list.empty()) list.pop_back();
  return L"Failed application components: " + list + L" \n";
}

std::wstring Reference::FailPartially(Writer& writer, const Check& check, bool& cameThrough) {
  std::wstring text;
  try {
    ReadDocument(writer, check, text);
  } catch (const Ending& failure) {
    const std::wstring reason = ErrorText(failure.statusCode);
    Log('E',
        L"Partial writer failure has been reported, but failed to get component level information. Partial failure "
        L"will be treated as complete failure. Error: " +
            reason);
    return FailWriter(writer, failure.statusCode);
  }
  if (scenario_.partialFailures) cameThrough = true;
  return text;
}

void Reference::ReadDocument(Writer& writer, const Check& check, std::wstring& text) {
  bool found = false;
  CheckComCall(check.countingDocument, L"m_pVssObject->GetWriterComponentsCount(&nWritersInBCD)");
  for (const DocumentWriter& told : check.document) {
    CheckComCall(ResultOf(told.delivery), L"m_pVssObject->GetWriterComponents(iBCDWriter, &pWriter)");
    CheckComCall(told.identifying, L"pWriter->GetWriterInfo(&writerInstanceId, &writerId)");
    if (FormatGuid(told.instanceId) != writer.instanceId) continue;
    found = true;
    CheckComCall(told.counting, L"pWriter->GetComponentCount(&nComponents)");
    for (const DocumentComponent& component : told.components) ReadDocumentComponent(writer, component, text);
  }
  if (!found) Log('E', L"Could not find the writer reporting partial failure in BCD -- this is UNEXPECTED!!");
}

void Reference::ReadDocumentComponent(Writer& writer, const DocumentComponent& told, std::wstring& text) {
  CheckComCall(ResultOf(told.delivery), L"pWriter->GetComponent(iBCDComp, &pComponent)");
  CheckComCall(ResultOf(told.view), L"pComponent->QueryInterface(IID_IVssComponentEx2, (void**)&pCompEx2)");
  CheckComCall(told.reading, L"pCompEx2->GetFailure(&hrComp, &hrApplicationComp, &bstrAppMsgComp, &dwReserved)");
  CheckComCall(told.naming, L"pComponent->GetComponentName(&bstrCompName)");
  CheckComCall(told.locating, L"pComponent->GetLogicalPath(&bstrLogicalPath)");
  const std::wstring path = FullPath(told.logicalPath.value_or(L""), told.name.value_or(L""));
  for (Component& component : writer.components) {
    if (!component.added || component.fullPath != path) continue;
    component.failed = true;
    component.failureCode = static_cast<DWORD>(told.failure);
    break;
  }
  if (told.failure == 0) {
    Log('V', L"Component " + path + L" was successfully backed up.");
    return;
  }
  const std::wstring message = told.applicationMessage.value_or(L"");
  Alert('E', L"  ",
        L"RequestStatus=ComponentLevelFailure, Component=" + path + L", ComponentLevelError=" +
            ResultText(told.failure) + L", ApplicationError=0x" + Hex(told.applicationResult) + L", ApplicationMsg=" +
            message + L", rc=VssPartialWriterError, ca=CheckWriterState;\n",
        "");
  text += L"Failed component: " + path + L", Error: 0x" + Hex(told.failure) + L", Application error code: 0x" +
          Hex(told.applicationResult) + L", Application error message: " + message + L" \n";
}

// ---- the catalogue ----

Catalogued& Reference::EntryOf(const std::wstring& key) {
  const std::string narrow = WideToAnsi(key);
  for (Catalogued& entry : catalogue_) {
    if (entry.key == narrow) return entry;
  }
  catalogue_.push_back({narrow, {}, {}, {}, {}});
  return catalogue_.back();
}

void Reference::Catalogue() {
  Log('I', L"Getting snapshot meatadata");
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& component : writer.components) {
      if (component.excluded) continue;
      for (const std::wstring& serialNumber : component.affectedSerialNumbers) {
        Catalogued& entry = EntryOf(serialNumber);
        const bool failed = component.failed && component.failureCode != 0;
        (failed ? entry.otherIds : entry.appIds).push_back(Narrow(component.fullPath));
        if (!component.name.empty()) (failed ? entry.otherNames : entry.appNames).push_back(Narrow(component.name));
      }
    }
  }
  for (const std::wstring& serialNumber : extra_) {
    for (const simulator::Disk& disk : DisksByNumber()) {
      if (!disk.reportsSerial || disk.serial.empty() || !SameInAnyCase(disk.serial, serialNumber)) continue;
      for (const simulator::Volume& volume : disk.volumes) {
        Catalogued& entry = EntryOf(Lower(serialNumber));
        entry.otherIds.push_back(WideToAnsi(volume.name));
        entry.otherNames.push_back(WideToAnsi(volume.mountPoints.empty() ? L"" : volume.mountPoints.front()));
      }
    }
  }
}

// ---- the completion ----

void Reference::Complete(int code) {
  errorText_.clear();
  failedComponents_.clear();
  Log('I', L"Backup shutdown phase: SetBackupStatus called with snapErrorCode " + std::to_wstring(code) + L"...");
  if (!snapshotDone_) {
    Log('W', L"Snapshot not created, calling AbortBackup");
    return;
  }
  if (code != 0 && code != 601) {
    if ((scenario_.context & 0x20) != 0) {
      Log('W',
          L"Backup failed, but snapshopts won't be cleaned up by Vorn as they are transportable. The array should "
          L"clean up the snapshots if failure is terminating.");
    } else {
      Log('I', L"Delete snapshots before exiting...");
      Log('I', L"Deleting shadow copy set " + FormatGuid(service_.setId));
    }
  }
  Ending saved;
  try {
    const Check& latest = scenario_.checks.at(checks_ - 1);
    CheckComCall(latest.countingDocument, L"m_pVssObject->GetWriterComponentsCount(&cWriters)");
    if (latest.document.empty()) {
      Log('W', L"- There were no writer components in this backup");
      return;
    }
    MarkComponents(code);
  } catch (const Ending& failure) {
    Log('E', L"SetBackupStatus Failed. Error = 0x" + Hex(failure.statusCode));
    saved = failure;
  }
  try {
    BackupComplete();
  } catch (const Ending&) {
    if (saved.Returned()) throw;
  }
  if (!saved.Returned()) throw saved;
}

void Reference::MarkComponents(int code) {
  const bool byDefault = code == 0 || code == 601;
  if (code == 0) {
    Log('I', L"- Mark components as succesfully backed up");
  } else if (code == 601) {
    Log('W',
        L"- Backup was partially successful. Mark components as SUCCEEDED unless overriden by component level "
        L"failure.");
  } else {
    Log('W', L"- Mark components as failed.");
  }
  Log('I', byDefault ? L"***Reporting component status as SUCCEEDED unless overriden***"
                     : L"***Reporting component status as FAILED unless overriden***");
  for (const Writer& writer : writers_) {
    if (writer.excluded) continue;
    for (const Component& component : writer.components) {
      if (!component.added) continue;
      bool succeeded = byDefault;
      if (component.failed) {
        succeeded = component.failureCode == 0;
        Log('I', L"Component level status code has been set for " + component.fullPath + L". Reporting succeeded = " +
                     (succeeded ? L"1" : L"0"));
      }
      calls_.push_back(Narrow(L"SetBackupSucceeded " + writer.instanceId + L" " + writer.writerId + L" " +
                              std::to_wstring(component.type) + L" \"" + component.logicalPath + L"\" \"" +
                              component.name + L"\" " + (succeeded ? L"1" : L"0")));
      CheckCall(AnswerOf(scenario_.successAnswers, marks_), L"SetBackupSucceeded()");
    }
  }
}

void Reference::BackupComplete() {
  Log('I', L"Waiting for Operation=BackupComplete() to finish...");
  CheckStatus();
  if (!errorText_.empty()) throw EndingWithException(601, errorText_, failedComponents_);
}

// ---- the story ----

template <class Action>
Ending EndingOf(Action action) {
  try {
    action();
  } catch (const Ending& ending) {
    return ending;
  }
  return {};
}

void Reference::TellState(Story& story) const {
  AddTexts(story, "named component", inputComponents_);
  AddTexts(story, "eligible disk", eligible_);
  AddTexts(story, "extra disk", extra_);
  reference::AddVolumes(story, volumes_);
  AddText(story, "error text", Narrow(errorText_));
  AddTexts(story, "failed", failedComponents_);
  AddWriters(story, writers_);
}

void Reference::TellCatalogue(Story& story) {
  std::sort(catalogue_.begin(), catalogue_.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  for (const Catalogued& entry : catalogue_) {
    for (const std::string& id : entry.appIds) AddText(story, "object " + entry.key, id);
    for (const std::string& name : entry.appNames) AddText(story, "object name " + entry.key, name);
    for (const std::string& id : entry.otherIds) AddText(story, "other " + entry.key, id);
    for (const std::string& name : entry.otherNames) AddText(story, "other name " + entry.key, name);
  }
}

Story Reference::Tell() {
  Story story;
  const Ending created = EndingOf([&] { Create(); });
  AddText(story, "creation", created.text);
  TellState(story);
  Catalogue();
  TellCatalogue(story);
  AddText(story, "completion", EndingOf([&] { Complete(created.statusCode); }).text);
  TellState(story);
  AddText(story, "databases", Narrow(databases_));
  AddText(story, "details", details_);
  story.insert(story.end(), calls_.begin(), calls_.end());
  for (const std::string& line : log_) AddText(story, "log", line);
  return story;
}

}  // namespace

Ending EndingWithLong(long hr) {
  const auto code = static_cast<unsigned>(static_cast<unsigned long>(hr) & 0xFFFFFFFF);
  return {"long 0x" + Narrow(Hex(code)), static_cast<int>(code)};
}

Ending EndingWithException(int code, const std::wstring& message, const std::vector<std::wstring>& list) {
  std::string text = "VarnelException " + std::to_string(code) + " \"" + Narrow(message) + "\"";
  for (const std::wstring& entry : list) text += " [" + Narrow(entry) + "]";
  return {text, code};
}

Ending EndingWithOther(const std::string& type) {
  return {type, -1};
}

void AddText(Story& story, const std::string& heading, const std::string& text) {
  story.push_back(heading + ": " + text);
}

void AddTexts(Story& story, const std::string& heading, const std::vector<std::wstring>& texts) {
  for (const std::wstring& text : texts) AddText(story, heading, Narrow(text));
}

Story Tell(const Scenario& scenario, const ServiceAnswers& service) {
  return Reference(scenario, service).Tell();
}

}  // namespace varnel::test::reference
