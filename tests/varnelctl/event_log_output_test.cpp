// --event-log: what a run leaves in the event log.
#include <array>
#include <filesystem>
#include <map>
#include <sstream>

#include "platform/tessel/FileLog.h"
#include "tests/varnelctl/snapshot_support.h"
#include "varnelctl/event_log/event_ids.h"
#include "varnelctl/event_log/writer.h"
#include "varnelctl/explanation/failure.h"

namespace varnel::test {
namespace {

using nlohmann::json;
using simulator::EventLevel;
using simulator::LoggedEvent;

// On the installed host, whose event log is looked at.
class EventLogOutput : public SnapshotFixture {
 protected:
  void SetUp() override {
    hostFile = nullptr;
    Install(simulator::ParseHostFile(SmallHostJson().dump(), "host.json", {}));
  }

  // Those of varnelctl.
  std::vector<LoggedEvent> Events() {
    std::vector<LoggedEvent> events = host().machine().newEvents;
    std::erase_if(events, [](const LoggedEvent& event) { return event.source != L"varnel"; });
    return events;
  }
  LoggedEvent Event() {
    const std::vector<LoggedEvent> events = Events();
    EXPECT_THAT(events, SizeIs(1));
    return events.empty() ? LoggedEvent() : events[0];
  }
  void ExpectEvent(const LoggedEvent& event, DWORD id, EventLevel level, const std::string& text) {
    EXPECT_EQ(event.channel, L"Application");
    EXPECT_EQ(event.id, id);
    EXPECT_EQ(event.level, level);
    ASSERT_THAT(event.texts, SizeIs(2));
    EXPECT_EQ(WideToUtf8(event.texts[0]), text);
    EXPECT_EQ(event.data, L"");
  }
  static std::string LastLine(const std::string& out) {
    const std::size_t end = out.find_last_not_of('\n') + 1;
    return out.substr(out.rfind('\n', end - 1) + 1, end - out.rfind('\n', end - 1) - 1);
  }
  void FailTheWriter(HRESULT failure) {
    FailWriter({L"Demo Writer", WriterEvent::freeze, failure, 0x40, L"log full", {}});
  }
  using WriterEvent = simulator::WriterEvent;
};

TEST_F(EventLogOutput, ASuccessIsOneEvent) {
  const std::string out = Snapshot({"--event-log"}).out;

  ExpectEvent(Event(), 100, EventLevel::information, LastLine(out));
  EXPECT_EQ(WideToUtf8(Event().texts.at(1)), "varnelctl snapshot --app none --disk TSL0001 TSL0002 --event-log");
}

TEST_F(EventLogOutput, NobodyIsToldWithoutTheOption) {
  FailTheWriter(VSS_E_WRITERERROR_NONRETRYABLE);
  Snapshot({}, 10);

  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_THAT(Calls("RegisterEventSourceW"), IsEmpty());
}

TEST_F(EventLogOutput, AFailureIsItsAlertRecordsAndThenTheVerdict) {
  FailTheWriter(VSS_E_WRITERERROR_NONRETRYABLE);
  const json document = SnapshotJson({"--event-log"}, 10);

  const std::vector<LoggedEvent> events = Events();
  ASSERT_THAT(events, SizeIs(3));
  const std::string record =
      "RequestStatus=WriterFailure, WriterName=Demo Writer, WriterError=VSS_E_WRITERERROR_NONRETRYABLE, "
      "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x40, ApplicationMsg=log full, rc=VssWriterStatusError, "
      "ca=CheckWriterState";
  ASSERT_EQ(document.at("errorDetails"), record + ";\n" + record + ";\n");  // after the snapshot and at its end
  ExpectEvent(events[0], 1002, EventLevel::error, record);
  ExpectEvent(events[1], 1002, EventLevel::error, record);
  ExpectEvent(events[2], 110, EventLevel::error, document.at("verdict").at("text"));
}

TEST_F(EventLogOutput, ARequestThatIsRefusedIsAnEventToo) {
  const CliResult result = Run({"snapshot", "--app", "none", "--disk", "TSL0009", "--event-log"});

  EXPECT_EQ(result.status, 2);
  ExpectEvent(Event(), 102, EventLevel::error, LastLine(result.out));
}

TEST_F(EventLogOutput, APlanHasNumbersOfItsOwn) {
  const CliResult plan = Run({"plan", "--app", "none", "--disk", "TSL0001", "--event-log"});

  EXPECT_EQ(plan.status, 0);
  ExpectEvent(Event(), 200, EventLevel::information, LastLine(plan.out));
}

TEST_F(EventLogOutput, AnActionOnASetHasNumbersOfItsOwn) {
  const std::string set = SnapshotJson({"--context", "app-rollback"}).at("snapshotSetId");
  const CliResult deleted = Run({"sets", "delete", set, "--force", "--event-log"});

  EXPECT_EQ(deleted.status, 0) << deleted.err;
  ExpectEvent(Event(), 300, EventLevel::information, LastLine(deleted.out));
  EXPECT_EQ(WideToUtf8(Event().texts.at(1)), "varnelctl sets delete " + set + " --force --event-log");
}

TEST_F(EventLogOutput, IsRefusedWhereThereIsNoVerdict) {
  ExpectRefused(Run({"sets", "list", "--event-log"}), "varnelctl: sets list changes nothing: it takes no --event-log");
  const CliResult plan = Run({"plan", "--app", "none", "--for", "sales", "--event-log"});
  ExpectRefused(plan, "varnelctl: --event-log takes the verdict of a plan of --disk, and --for makes none");
}

TEST_F(EventLogOutput, ASourceThatCannotBeHadEndsASuccessIn18) {
  FailCall("RegisterEventSourceW", ERROR_ACCESS_DENIED);
  const CliResult result = Snapshot({"--event-log"}, 18);

  EXPECT_THAT(result.err,
              StartsWith("varnelctl: --event-log: the event log did not take the events of this run: error 5\n"));
  EXPECT_THAT(LastLine(result.out),
              StartsWith("CAPTURED 2 of 3 components; NOT ALL DONE: --event-log: the event log did not take the events "
                         "of this run: error 5; "));
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(EventLogOutput, AVerdictThatIsNotTakenEndsASuccessIn18) {
  FailCall("ReportEventW", 1502);
  const json document = SnapshotJson({"--event-log"}, 18);

  EXPECT_EQ(document.at("result").at("message"), "--event-log: the event log did not take the verdict: error 1502");
  EXPECT_EQ(document.at("verdict").at("status"), 18);
}

// The first record; what else there is, is written all the same.
TEST_F(EventLogOutput, AFailureStaysWhatItIsWhenAnEventIsNotTaken) {
  FailTheWriter(VSS_E_WRITERERROR_NONRETRYABLE);
  FailCall("ReportEventW", 1502);
  const CliResult result = Snapshot({"--event-log"}, 10);

  EXPECT_THAT(result.err,
              HasSubstr("varnelctl: --event-log: the event log did not take an alert record: error 1502\n"));
  EXPECT_EQ(Events().back().id, 110U);
}

#ifndef _WIN32
TEST_F(EventLogOutput, WhatTheLogOfTheRunLostIsInTheVerdict) {
  const std::string out =
      Run({"--log", "/dev/full", "snapshot", "--app", "none", "--disk", "TSL0001", "--event-log"}).out;

  ExpectEvent(Event(), 118, EventLevel::warning, LastLine(out));
  EXPECT_THAT(LastLine(out), HasSubstr("the log /dev/full lost"));
}
#endif

TEST_F(EventLogOutput, ALongTextIsCutShort) {
  varnelctl::WriteEvents(
      {varnelctl::kSnapshotEvents, varnelctl::ExitStatus::Done, std::string(40000, 'x'), "", std::string(12000, 'y')});

  EXPECT_EQ(Event().texts.at(0), std::wstring(12000, L'x') + L"...");
  EXPECT_EQ(Event().texts.at(1), std::wstring(12000, L'y'));
}

std::string LevelOf(WORD type) {
  return type == EVENTLOG_INFORMATION_TYPE ? "information" : type == EVENTLOG_WARNING_TYPE ? "warning" : "error";
}

struct Record {
  std::string name;  // as core/alert_records.inc has it
  int category;
};

std::vector<Record> Records() {
  return {
#define VARNEL_ALERT(name, tag, ending, category, ...) {#name, category},
#include "core/alert_records.inc"
#undef VARNEL_ALERT
  };
}

// Every row that the page's tables have for the numbers.
TEST(EventLogPage, ListsEveryNumber) {
  std::string rows;
  for (const varnelctl::ExitStatusText& entry : varnelctl::kExitStatuses) {
    const auto status = static_cast<DWORD>(entry.status);
    for (const DWORD base : {varnelctl::kSnapshotEvents, varnelctl::kPlanEvents, varnelctl::kSetsEvents}) {
      rows += "| " + std::to_string(base + status) + " ";
    }
    rows += "| " + LevelOf(varnelctl::EventTypeOf(entry.status)) + " | " + std::to_string(status) + ": " +
            std::string(entry.text) + " |\n";
  }
  DWORD number = varnelctl::kAlertEvents;
  for (const Record& record : Records()) {
    const std::string level = record.category == CFileLog::Warning ? "warning" : "error";
    rows +=
        "| " + std::to_string(++number) + " | " + level + " | " + record.name.substr(1) + " |\n";  // without its "k"
  }
  std::string found;
  std::istringstream page(ReadFile(VARNEL_DOCS "/event-log.md"));
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("| ") && line[2] >= '0' && line[2] <= '9') found += line + "\n";
  }
  EXPECT_EQ(found, rows);
}

#ifdef _WIN32
// The text of a message of varnelctl.exe; empty without one.
std::string MessageOf(HMODULE program, DWORD id) {
  std::array<wchar_t, 2000> text{};
  wchar_t first[] = L"FIRST";
  wchar_t second[] = L"SECOND";
  std::array<DWORD_PTR, 2> inserted = {reinterpret_cast<DWORD_PTR>(first), reinterpret_cast<DWORD_PTR>(second)};
  constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY;
  ::FormatMessageW(kFlags, program, id, 0, text.data(), static_cast<DWORD>(text.size()),
                   reinterpret_cast<va_list*>(inserted.data()));
  return WideToUtf8(text.data());
}

TEST(EventMessages, AreThoseOfTheNumbersAndNoOthers) {
  const std::wstring path = std::filesystem::path(VARNEL_PROGRAM).make_preferred().wstring();
  const HMODULE program = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(program, nullptr) << ::GetLastError();
  std::map<DWORD, std::string> messages;
  for (const auto& [command, base] :
       {std::pair("snapshot", varnelctl::kSnapshotEvents), std::pair("plan", varnelctl::kPlanEvents),
        std::pair("sets", varnelctl::kSetsEvents)}) {
    for (const varnelctl::ExitStatusText& entry : varnelctl::kExitStatuses) {
      const auto status = static_cast<DWORD>(entry.status);
      const std::string number = std::to_string(status);
      messages[base + status] = std::string("FIRST\r\n\r\nvarnelctl ") + command + " ended with exit status " + number +
                                ": " + std::string(entry.text) + ". varnelctl explain " + number +
                                " says more.\r\nCommand: SECOND\r\n";
    }
  }
  DWORD number = varnelctl::kAlertEvents;
  for (const Record& record : Records()) {
    messages[++number] = "FIRST\r\n\r\nThis is the alert record " + record.name.substr(1) +
                         ". varnelctl explain with the record in quotation marks says what to do.\r\nCommand: "
                         "SECOND\r\n";
  }
  for (DWORD id = 0; id < 2000; ++id) EXPECT_EQ(MessageOf(program, id), messages[id]) << id;
  ::FreeLibrary(program);
}
#endif

}  // namespace
}  // namespace varnel::test
