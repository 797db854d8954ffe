// The table of advice: it has something for everything that a request ends with, and the page of alerts leads to it.
#include "varnelctl/explanation/advice.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <set>

#include "core/varnel.h"
#include "tests/support/golden.h"
#include "text/unicode.h"
#include "varnelctl/explanation/exit_status.h"
#include "varnelctl/explanation/look_up.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/explanation/records.h"

namespace varnel::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using varnelctl::Advice;
using varnelctl::AdviceKind;
using varnelctl::AllAdvice;
using varnelctl::ExitStatus;
using varnelctl::Failure;
using varnelctl::FindAdvice;

TEST(Advice, EveryEntryIsWholeAndFoundByItsKeyAlone) {
  std::set<std::string> keys;
  for (const Advice& advice : AllAdvice()) {
    const std::string key = advice.Key();
    SCOPED_TRACE(key);
    EXPECT_TRUE(keys.insert(key).second) << "two entries of one key";
    EXPECT_EQ(FindAdvice(key), &advice);
    for (const std::string_view text : {advice.meaning, advice.remedy}) EXPECT_TRUE(text.ends_with('.')) << text;
    EXPECT_FALSE(advice.name.empty());
    EXPECT_FALSE(advice.ask.empty());
  }
}

TEST(Advice, EveryExitStatusHasSome) {
  std::set<DWORD> listed;
  for (const auto& [status, text] : varnelctl::kExitStatuses) {
    listed.insert(static_cast<DWORD>(status));
    EXPECT_NE(FindAdvice(AdviceKind::ExitStatus, static_cast<DWORD>(status)), nullptr) << text;
  }
  for (const Advice& advice : AllAdvice()) {
    if (advice.kind == AdviceKind::ExitStatus) EXPECT_EQ(listed.count(advice.number), 1u) << advice.number;
  }
}

TEST(Advice, EveryAlertCodeAndResultOfAValidationHasSome) {
  for (const DWORD code : {600U, 601U, 602U, 603U, 701U, 250U, 251U, 252U, 253U, 254U, 255U}) {
    EXPECT_NE(FindAdvice(AdviceKind::Alert, code), nullptr) << code;
  }
}

// The library's own name of a code; empty where it has none and the system's text would do.
std::string LibrarysName(HRESULT hr) {
  std::string name = WideToUtf8Lossy(CVarnel::HResult2String(hr));
  const bool isName = name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789") == name.npos;
  return isName ? name : std::string();
}

TEST(Advice, EveryNameOfAnHResultHasSomeOrTheGeneralStep) {
  int names = 0;
  for (DWORD low = 0; low <= 0xFFFF; ++low) {
    for (const DWORD high : {0U, 0x00040000U, 0x80000000U, 0x80040000U, 0x80070000U}) {
      const std::string name = LibrarysName(static_cast<HRESULT>(high | low));
      if (name.empty()) continue;
      ++names;
      const auto explained = varnelctl::LookUp(name);
      ASSERT_EQ(explained.size(), 1u) << name;
      EXPECT_THAT(explained[0].title, StartsWith(name));
      EXPECT_EQ(varnelctl::CodeCalled(name), static_cast<HRESULT>(high | low)) << name;
    }
  }
  EXPECT_EQ(names, 72);
}

TEST(Advice, EveryCodeIsCalledAsTheLibraryCallsIt) {
  for (const Advice& advice : AllAdvice()) {
    if (advice.kind != AdviceKind::Code) continue;
    const std::string name = LibrarysName(static_cast<HRESULT>(advice.number));
    if (!name.empty()) EXPECT_EQ(name, advice.name);
    EXPECT_EQ(varnelctl::CodeCalled(advice.name), static_cast<HRESULT>(advice.number)) << advice.name;
  }
}

TEST(Advice, ACallThatIsInNoOrderHasNoPrerequisites) {
  EXPECT_EQ(varnelctl::WantsOf("AddComponent"),
            "AddComponent() wants a GatherWriterMetadata that has finished, and no PrepareForBackup yet");
  EXPECT_EQ(varnelctl::WantsOf("IsVolumeSupported"), "");
}

// ---- what a failure is advised on ----

Failure Advised(Failure failure, const std::string& errorDetails = {}) {
  varnelctl::Advise(failure, errorDetails);
  return failure;
}

Failure OfAlert(int code, ExitStatus status, const std::string& message = "message") {
  Failure failure;
  failure.status = status;
  failure.alertCode = code;
  failure.message = message;
  return failure;
}

Failure OfCall(HRESULT hr) {
  Failure failure;
  failure.status = ExitStatus::FailedCall;
  failure.hresult = hr;
  return failure;
}

std::string WriterRecord(const std::string& error, const std::string& message = {}) {
  return "RequestStatus=WriterFailure, WriterName=SqlServerWriter, WriterError=" + error +
         ", WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=" + message +
         ", rc=VssWriterStatusError, ca=CheckWriterState;\n";
}

TEST(Advise, AFailedCallIsItsResults) {
  const Failure failure = Advised(OfCall(VSS_E_PROVIDER_VETO));
  EXPECT_EQ(failure.explain, "VSS_E_PROVIDER_VETO");
  EXPECT_EQ(failure.remedy, FindAdvice("VSS_E_PROVIDER_VETO")->remedy);
}

TEST(Advise, ABadStateTellsWhatTheCallThatFailedWants) {
  const std::string records =
      "m_pVssObject->AddComponent()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, "
      "ca=ContactTechSupport;\n";
  EXPECT_THAT(Advised(OfCall(VSS_E_BAD_STATE), records).remedy,
              testing::EndsWith(" AddComponent() wants a GatherWriterMetadata that has finished, and no "
                                "PrepareForBackup yet."));
  EXPECT_THAT(Advised(OfCall(VSS_E_BAD_STATE)).remedy, Not(HasSubstr(" wants ")));
}

TEST(Advise, AResultThatTheTableLacksHasTheGeneralStepUnderItsNumber) {
  const Failure failure = Advised(OfCall(static_cast<HRESULT>(0x80042999)));
  EXPECT_EQ(failure.explain, "0x80042999");
  EXPECT_EQ(failure.remedy, FindAdvice("other-code")->remedy);
}

TEST(Advise, AWriterIsNamedWithItsErrorsRemedyAndWhatItsApplicationSaid) {
  const Failure failure = Advised(OfAlert(600, ExitStatus::WriterFailure),
                                  WriterRecord("VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT", "no, not whole"));
  EXPECT_EQ(failure.explain, "VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT");
  EXPECT_THAT(failure.remedy, StartsWith("SqlServerWriter said \"no, not whole\": List the files of "));
}

TEST(Advise, AComponentThatFailedOutweighsItsWriter) {
  const std::string records =
      WriterRecord("VSS_E_WRITERERROR_PARTIAL_FAILURE") +
      "RequestStatus=ComponentLevelFailure, Component=\\HOST\\sales, "
      "ComponentLevelError=VSS_E_WRITERERROR_OUTOFRESOURCES, ApplicationError=0x0, ApplicationMsg=, "
      "rc=VssPartialWriterError, ca=CheckWriterState;\n";
  const Failure failure = Advised(OfAlert(601, ExitStatus::PartialSuccess), records);
  EXPECT_EQ(failure.explain, "VSS_E_WRITERERROR_OUTOFRESOURCES");
  EXPECT_THAT(failure.remedy, StartsWith("\\HOST\\sales: "));
}

TEST(Advise, AWriterWithoutARecordOrWithAnErrorThatNobodyKnowsIsTheAlerts) {
  for (const std::string& records : {std::string(), WriterRecord("Zugriff verweigert.\r\n")}) {
    EXPECT_EQ(Advised(OfAlert(600, ExitStatus::WriterFailure), records).explain, "600");
  }
}

TEST(Advise, AWrongProtectionSetIsItsRecordsOrItsMessages) {
  const std::string end = ", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n";
  const Failure plain = OfAlert(602, ExitStatus::ConfigurationError);
  EXPECT_EQ(Advised(plain, "status=LunMismatch, VolCollVolumes=2, VolumesInvolvedInSnapshot=0" + end).explain,
            "record:10");
  EXPECT_EQ(Advised(plain, "status=NoComponentsEligibleForBackup" + end).explain, "record:9");
  EXPECT_EQ(Advised(plain).explain, "602");
  EXPECT_EQ(Advised(OfAlert(602, plain.status, varnelctl::CatalogText(126))).explain, "no-writer");
  EXPECT_EQ(Advised(OfAlert(602, plain.status, varnelctl::CatalogText(113))).explain, "child-outside");
}

TEST(Advise, TheDisksThatObjectsLackComeFirst) {
  VssComponent component;
  std::vector<varnelctl::ApplicationObject> objects(6);
  for (std::size_t i = 0; i < objects.size(); ++i) {
    objects[i].name = "db" + std::to_string(i);
    objects[i].component = &component;
    objects[i].disks = {L"A", L"B"};
    objects[i].missingDisks = {L"B"};
  }
  objects[0].missingDisks = {};
  objects[1].missingDisks = objects[1].disks;

  Failure failure = OfAlert(602, ExitStatus::ConfigurationError);
  varnelctl::Advise(failure, {}, objects);
  EXPECT_THAT(failure.remedy,
              StartsWith("db1 lacks disk \"A\", \"B\"; db2 lacks disk \"B\"; db3 lacks disk \"B\"; and 2 "
                         "more objects. "));
  failure = OfAlert(701, ExitStatus::ExtraVolumes);
  varnelctl::Advise(failure, {}, objects);
  EXPECT_THAT(failure.remedy, StartsWith("db2 lacks disk \"B\"; db3 lacks disk \"B\"; db4 lacks disk \"B\"; and 1 more "
                                         "object. "))
      << "what lies on other disks altogether leaves none of these over";
}

TEST(Advise, NoMemoryForSessionsIsItsRecords) {
  const std::string end = "RequestStatus=LowMemory, rc=SystemError, ca=CallSupport;\n";
  EXPECT_EQ(Advised(OfCall(122), "malloc() Failed, Variable=SessionInfo, " + end).explain, "record:6");
  EXPECT_EQ(Advised(OfCall(122), end).explain, "record:7");
}

TEST(Advise, AnythingElseIsItsExitStatuses) {
  Failure failure;
  EXPECT_EQ(Advised(failure).explain, "exit:1");
  failure.status = ExitStatus::NotContained;
  EXPECT_EQ(Advised(failure).explain, "exit:19");
  failure = OfAlert(999, ExitStatus::Unexpected);
  EXPECT_EQ(Advised(failure).explain, "exit:1") << "an alert code that nobody knows";
}

TEST(Advise, WhoeverKnowsTheCaseHasChosen) {
  Failure failure = OfAlert(603, ExitStatus::VerificationFailure);
  EXPECT_EQ(Advised(failure).explain, "603");
  failure.explain = varnelctl::advice::kCheckerMissing;
  EXPECT_THAT(Advised(failure).remedy, StartsWith("Repair the installation of Exchange"));
}

// ---- records in a text ----

TEST(RecordsInText, HaveTheirFieldsAndTheirCall) {
  const std::string text =
      "writer=0,pVssObject2->BreakSnapshotSetEx()=Failed, error=E_FAIL, rc=COMMError, ca=ContactTechSupport;\n" +
      WriterRecord("VSS_E_UNEXPECTED");
  const auto records = varnelctl::RecordsIn(text);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(varnelctl::CallOf(records[0]), "pVssObject2->BreakSnapshotSetEx()");
  EXPECT_EQ(varnelctl::MethodOf(varnelctl::CallOf(records[0])), "BreakSnapshotSetEx");
  EXPECT_EQ(varnelctl::MethodOf("IVssBackupComponents::SetContext(0)"), "SetContext");
  EXPECT_EQ(varnelctl::FieldOf(records[0], "error"), "E_FAIL");
  EXPECT_EQ(varnelctl::FieldOf(records[1], "WriterName"), "SqlServerWriter");
  EXPECT_EQ(varnelctl::FieldOf(records[1], "Component"), "");
  EXPECT_EQ(varnelctl::CallOf(records[1]), "");
}

TEST(RecordsInText, AreNoneInOtherText) {
  for (const char* text : {"", "rc=", "rc=a, ca=b", "ca=", "nothing of the kind"}) {
    EXPECT_THAT(varnelctl::RecordsIn(text), IsEmpty()) << text;
  }
}

// ---- docs/alerts.md ----

// The words in back-quotes of the page's index.
std::set<std::string> IndexedWords() {
  const std::string page = ReadText(std::filesystem::path(VARNEL_DOCS) / "alerts.md");
  const std::size_t begin = page.find("\n## By exit status\n");
  const std::string index = page.substr(begin, page.find("\n## How a failure is told\n") - begin);
  std::set<std::string> words;
  const std::regex quoted("`(?:explain )?([^`]+)`");
  for (std::sregex_iterator at(index.begin(), index.end(), quoted); at != std::sregex_iterator(); ++at) {
    words.insert((*at)[1]);
  }
  return words;
}

TEST(AlertsPageIndex, NamesEveryExitStatusAlertCodeRecordAndCase) {
  const std::set<std::string> words = IndexedWords();
  for (const Advice& advice : AllAdvice()) {
    if (advice.kind != AdviceKind::Code) EXPECT_EQ(words.count(advice.Key()), 1u) << advice.Key();
  }
}

TEST(AlertsPageIndex, LeadsToWhatIsThere) {
  const std::set<std::string> others = {"varnelctl explain", "varnelctl disks", "PATH"};
  for (const std::string& word : IndexedWords()) {
    if (!others.contains(word)) EXPECT_NE(FindAdvice(word), nullptr) << word;
  }
}

}  // namespace
}  // namespace varnel::test
