#include "tests/faults/reference.h"

#include <algorithm>
#include <utility>

#include "platform/ansi.h"
#include "tests/faults/reference_rules.h"
#include "text/guid.h"

namespace varnel::test::reference {

static const std::wstring kPartialFailureText =
    L"The writer experienced a partial failure. Check the application event log on the application server to determine "
    L"application objects for which VSS synchronization failed.";

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

bool IsAncestor(const Component& a, const Component& b) {
  if (a.fullPath.size() >= b.fullPath.size()) return false;
  const std::wstring start = a.fullPath + L"\\";
  return SameInAnyCase((b.fullPath + L"\\").substr(0, start.size()), start);
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
        if (!volume.otherDisks.empty()) continue;
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
  if (!saved.Returned()) throw Ending{saved};
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
static Ending EndingOf(Action action) {
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
