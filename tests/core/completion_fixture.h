// The fixture of the end of a backup: its host, what it logs, and what the writers were told.
#pragma once

#include <functional>

#include "simulator/vss/backup_document.h"
#include "simulator/vss/snapshot_service.h"
#include "tests/support/request_fixture.h"
#include "text/format.h"
#include "text/guid.h"

namespace varnel::test {

inline constexpr char kBackup[] = "IVssBackupComponents::";
inline constexpr char kCountFailed[] =
    "E ERROR: COM call \"m_pVssObject->GetWriterComponentsCount(&cWriters)\" failed.";
inline constexpr char kCompleteFailed[] = "E ERROR: COM call \"m_pVssObject->BackupComplete(&pAsync)\" failed.";
inline constexpr char kDeleteFailed[] =
    "E ERROR: COM call L\"m_pVssObject->DeleteSnapshots(snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,"
    "&idNonDeleted)\" failed.";
inline constexpr char kTransportableLine[] =
    "W Backup failed, but snapshopts won't be cleaned up by Vorn as they are transportable. The array should clean up "
    "the snapshots if failure is terminating.";
inline constexpr char kMessagesLine[] =
    "W - Backup was partially successful. Mark components as SUCCEEDED unless overriden by component level failure.";

using Lines = std::vector<std::string>;

inline Lines Joined(std::initializer_list<Lines> parts) {
  Lines lines;
  for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
  return lines;
}

inline std::string CalledLine(int code) {
  return FormatNarrow("I Backup shutdown phase: SetBackupStatus called with snapErrorCode %d...", {code});
}

// The log of a completion up to the first component.
inline Lines MarkingSucceeded() {
  return {"I - Mark components as succesfully backed up",
          "I ***Reporting component status as SUCCEEDED unless overriden***"};
}
inline Lines MarkingSucceededWithMessages() {
  return {kMessagesLine, "I ***Reporting component status as SUCCEEDED unless overriden***"};
}
inline Lines MarkingFailed() {
  return {"W - Mark components as failed.", "I ***Reporting component status as FAILED unless overriden***"};
}
inline Lines Deleting() {
  return {"I Delete snapshots before exiting...", "I Deleting shadow copy set {00000002-5e1f-4c3d-9a0b-000000000000}"};
}

// The log of BackupComplete up to the writers' status.
inline Lines Completing() {
  return {"I Waiting for Operation=BackupComplete() to finish...", "I GatherWriterStatus",
          "I Waiting for Operation=m_pVssObject->GatherWriterStatus(&pAsync) to finish..."};
}

// The log of BackupComplete when the writers do well.
inline Lines Completed() {
  return Joined({Completing(),
                 {"I Writer=Mail, WriterStatus=VSS_WS_STABLE, WriterError=S_OK",
                  "I Writer=Web, WriterStatus=VSS_WS_STABLE, WriterError=S_OK"}});
}

// What is logged of a failed call after the line that names it.
inline Lines CallFailure(const std::string& line, const std::string& hresult, const std::string& name) {
  return {line, "E - Returned HRESULT = " + hresult, "E - Error text: " + name};
}

inline Lines DeletionFailure(const std::string& copy, const std::string& hresult, const std::string& name) {
  return Joined({Deleting(),
                 {"E DeleteSnapshots() Failed, SnapshotID=" + copy + ", Error=" + hresult},
                 CallFailure(kDeleteFailed, hresult, name),
                 {"E Failed to delete the snapshots."}});
}

// The message of a writer that fails at BackupComplete, and its entry in the list of messages.
inline std::string CompleteText(const std::string& writer) {
  return writer + " has failed during backup complete event. Try again.";
}
inline std::string CompleteEntry(const std::string& writer, const std::string& components) {
  return CompleteText(writer) +
         " Application error code: 0x0, Application error message:  \nFailed application components: " + components +
         " \n";
}

// The record of Mail after that.
inline std::string MailRecord() {
  return WriterRecord("Mail", "VSS_E_WRITERERROR_RETRYABLE", "VSS_WS_FAILED_AT_BACKUP_COMPLETE");
}

// Fails while it writes a line that holds the text.
class FailingLog : public RecordingLog {
 public:
  FailingLog(std::string text, std::function<void()> fail) : text_(std::move(text)), fail_(std::move(fail)) {}
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    RecordingLog::Write(category, source, line, text);
    if (lines.back().text.find(text_) != text_.npos) fail_();
  }

 private:
  std::string text_;
  std::function<void()> fail_;
};

class CompletionTest : public HostFixture {
 protected:
  /// Two writers whose files lie on the protected disk, and one whose do not.
  void SetUp() override { Install(Model()); }

  static simulator::HostModel Model() {
    simulator::HostModel model = HostOfThreeWriters();
    model.vssMessages = {{{static_cast<DWORD>(VSS_E_WRITERERROR_RETRYABLE), L"Try again."}}};
    simulator::WriterComponent& site = model.writers[1].components[0];
    site.type = VSS_CT_DATABASE;
    site.databaseFiles = std::move(site.files);
    site.files.clear();
    return model;
  }

  /// How the request up to the completion ends; what it logged is forgotten.
  template <class Requestor>
  Outcome Take(SnapshotRequest<Requestor>& request) {
    const Outcome outcome = request.StartAndCreate();
    Forget();
    return outcome;
  }

  Lines BackupCalls() { return CallNames(host().calls(), {"IVssBackupComponents"}); }
  int TimesCalled(const std::string& method) { return static_cast<int>(Calls(kBackup + method).size()); }

  /// What the service was told of each component: `"mail", "db1", true`.
  Lines Reported() {
    Lines reported;
    for (const std::string& line : Calls(std::string(kBackup) + "SetBackupSucceeded")) {
      const std::size_t begin = line.find('"');
      reported.push_back(line.substr(begin, line.rfind(')') - begin));
    }
    return reported;
  }

  /// The components in the document that the writers see, and how they stand there.
  template <class Requestor>
  static Lines Marks(SnapshotRequest<Requestor>& request) {
    Bstr xml;
    EXPECT_EQ(request.probe.vssObject()->SaveAsXML(xml.Put()), S_OK);
    Lines marks;
    for (const auto& writer : simulator::ParseBackupDocument(WideToUtf8Lossy(xml.View())).writers) {
      for (const simulator::DocumentComponent& component : writer.components) {
        const char* state = !component.succeeded ? " unmarked" : *component.succeeded ? " succeeded" : " failed";
        marks.push_back(WideToUtf8Lossy(component.name) + state);
      }
    }
    return marks;
  }

  /// The writers that were told of BackupComplete, in order.
  Lines ToldOfBackupComplete() {
    Lines writers;
    for (const simulator::RaisedEvent& raised : host().machine().snapshots->raisedEvents) {
      if (raised.event == WriterEvent::backupComplete) writers.push_back(WideToUtf8Lossy(raised.writer));
    }
    return writers;
  }

  /// How many shadow copies of the request's set there are, also ones that are not on this host.
  template <class Requestor>
  std::size_t Copies(const SnapshotRequest<Requestor>& request) {
    return host().machine().snapshots->CopiesOfSet(GuidOrNull<GUID>(request.requestor.GetSnapShotSetId())).size();
  }

  /// The service is free for the next request, while the requestor before it still lives.
  void ExpectTheServiceIsFree() {
    host().faults() = {};
    RecordingLog other;
    const ScopedLog guard(other);
    EXPECT_EQ(PlainRequest(), Outcome::Returned());
  }
};

}  // namespace varnel::test
