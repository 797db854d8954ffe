// What the reference remembers of a request, and its steps: reference.cpp has the writers' metadata, the catalogue and
// the completion, reference_selection.cpp the selection, reference_snapshot.cpp the volumes and the writers' status.
#pragma once

#include <string>
#include <vector>

#include "tests/faults/reference.h"
#include "tests/faults/reference_texts.h"

namespace varnel::test::reference {

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

bool IsAncestor(const Component& a, const Component& b);

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

// What counts as the result of a call that hands out an object.
inline HRESULT ResultOf(const Delivery& delivery) {
  return delivery.result >= 0 && !delivery.object ? E_UNEXPECTED : delivery.result;
}

}  // namespace varnel::test::reference
