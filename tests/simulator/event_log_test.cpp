// The event log of a simulated host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/owners.h"
#include "simulator/machine/utc_time.h"
#include "simulator/services/event_query.h"
#include "tests/simulator/fixture.h"

namespace varnel::simulator {
namespace {

using testing::ElementsAre;
using testing::Optional;

constexpr wchar_t kAll[] =
    L"*[System[TimeCreated[@SystemTime>='2025-01-01T00:00:00.000Z' and @SystemTime<='2027-01-01T00:00:00.000Z']]]";

LONGLONG At(std::string_view text) {
  const std::optional<LONGLONG> time = ParseUtc(text);
  EXPECT_TRUE(time.has_value()) << text;
  return time.value_or(0);
}

class EventLogTest : public test::HostFixture {
 protected:
  void SetUp() override {
    HostModel model = test::SmallHost();
    model.seed = 1;
    model.domain = L"corp.example";
    LoggedEvent vss{L"Application", L"VSS", 8193, EventLevel::error};
    vss.texts = {L"a<b&'c'", L"0x80070005"};
    vss.data = L"00FF2D";
    vss.message = L"The service failed.\r\n";
    LoggedEvent disk{L"System", L"disk", 0xC0040007, EventLevel::warning, At("2026-01-01T00:00:05.25Z"), L"OLD"};
    model.events = {vss, disk, {L"Application", L"MSSQL$A", 3041, EventLevel::critical, At("2026-01-02T00:00:00Z")}};
    Install(model);
  }

  EventLog& events() { return host().eventLog(); }

  EventHandle Query(LPCWSTR channel, LPCWSTR query = kAll, DWORD direction = EvtQueryForwardDirection) {
    return EventHandle(events().EvtQuery(nullptr, channel, query, EvtQueryChannelPath | direction));
  }

  std::vector<EventHandle> Next(const EventHandle& results, DWORD count = 16) {
    std::array<EVT_HANDLE, 16> handles{};
    DWORD returned = 99;
    const BOOL ok = events().EvtNext(results.Get(), count, handles.data(), INFINITE, 0, &returned);
    EXPECT_EQ(ok != FALSE, returned != 0);
    std::vector<EventHandle> next;
    for (DWORD i = 0; i < returned; ++i) next.emplace_back(handles[i]);
    return next;
  }

  std::string Render(const EventHandle& event) {
    DWORD used = 0;
    DWORD properties = 99;
    EXPECT_THAT(events().EvtRender(nullptr, event.Get(), EvtRenderEventXml, 0, nullptr, &used, &properties),
                FailsWith(ERROR_INSUFFICIENT_BUFFER));
    std::wstring xml(used / sizeof(wchar_t), L'?');
    EXPECT_EQ(events().EvtRender(nullptr, event.Get(), EvtRenderEventXml, used, xml.data(), &used, &properties), TRUE);
    EXPECT_EQ(properties, 0u);
    EXPECT_EQ(xml.back(), L'\0');
    xml.pop_back();
    return WideToUtf8(xml);
  }

  std::vector<std::string> Xml(LPCWSTR channel, LPCWSTR query = kAll, DWORD direction = EvtQueryForwardDirection) {
    std::vector<std::string> all;
    const EventHandle results = Query(channel, query, direction);
    for (auto next = Next(results, 2); !next.empty(); next = Next(results, 2)) {
      for (const EventHandle& event : next) all.push_back(Render(event));
    }
    EXPECT_EQ(host().GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
    return all;
  }

  std::optional<std::wstring> Format(const EventHandle& publisher, const EventHandle& event) {
    DWORD used = 0;
    const auto format = [&](DWORD characters, LPWSTR buffer) {
      return events().EvtFormatMessage(publisher.Get(), event.Get(), 0, 0, nullptr, EvtFormatMessageEvent, characters,
                                       buffer, &used);
    };
    EXPECT_EQ(format(0, nullptr), FALSE);
    if (host().GetLastError() != ERROR_INSUFFICIENT_BUFFER) return std::nullopt;
    std::wstring text(used, L'?');
    EXPECT_EQ(format(used, text.data()), TRUE);
    text.pop_back();
    return text;
  }

  EventHandle Publisher(LPCWSTR name) {
    return EventHandle(events().EvtOpenPublisherMetadata(nullptr, name, nullptr, 0, 0));
  }
};

constexpr char kVssEvent[] =
    "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider Name='VSS'/>"
    "<EventID Qualifiers='0'>8193</EventID><Version>0</Version><Level>2</Level><Task>0</Task><Opcode>0</Opcode>"
    "<Keywords>0x80000000000000</Keywords><TimeCreated SystemTime='2026-01-01T00:00:00.0000000Z'/>"
    "<EventRecordID>1</EventRecordID><Correlation/><Execution ProcessID='0' ThreadID='0'/>"
    "<Channel>Application</Channel><Computer>HOST.corp.example</Computer><Security/></System>"
    "<EventData><Data>a&lt;b&amp;&apos;c&apos;</Data><Data>0x80070005</Data><Binary>00FF2D</Binary></EventData>"
    "</Event>";

constexpr char kDiskEvent[] =
    "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider Name='disk'/>"
    "<EventID Qualifiers='49156'>7</EventID><Version>0</Version><Level>3</Level><Task>0</Task><Opcode>0</Opcode>"
    "<Keywords>0x80000000000000</Keywords><TimeCreated SystemTime='2026-01-01T00:00:05.2500000Z'/>"
    "<EventRecordID>1</EventRecordID><Correlation/><Execution ProcessID='0' ThreadID='0'/>"
    "<Channel>System</Channel><Computer>OLD</Computer><Security/></System><EventData/></Event>";

TEST_F(EventLogTest, AnEventIsToldAsXml) {
  const std::vector<std::string> application = Xml(L"application");
  ASSERT_EQ(application.size(), 2u);
  EXPECT_EQ(application[0], kVssEvent);
  EXPECT_THAT(application[1], testing::HasSubstr("<EventRecordID>2</EventRecordID>"));
  EXPECT_THAT(Xml(L"System"), ElementsAre(kDiskEvent));
}

TEST_F(EventLogTest, EventsComeInTheDirectionThatIsAskedFor) {
  const std::vector<std::string> newestFirst = Xml(L"Application", kAll, EvtQueryReverseDirection);
  ASSERT_EQ(newestFirst.size(), 2u);
  EXPECT_THAT(newestFirst[0], testing::HasSubstr("'MSSQL$A'"));
  EXPECT_EQ(newestFirst[1], kVssEvent);
}

TEST_F(EventLogTest, AQueryTakesSourcesAndAStretchOfTime) {
  const auto found = [&](const std::wstring& sources, const std::wstring& until) {
    return Xml(L"Application", (L"*[System[" + sources + L"TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z' and " +
                                L"@SystemTime<='" + until + L"']]]")
                                   .c_str())
        .size();
  };
  EXPECT_EQ(found(L"", L"2026-01-02T00:00:00.000Z"), 2u);
  EXPECT_EQ(found(L"", L"2026-01-01T23:59:59.999Z"), 1u);
  EXPECT_EQ(found(L"Provider[@Name='VSS'] and ", L"2026-01-02T00:00:00.000Z"), 1u);
  EXPECT_EQ(found(L"Provider[@Name=\"VSS\" or @Name='MSSQL$A'] and ", L"2026-01-02T00:00:00.000Z"), 2u);
  EXPECT_EQ(found(L"Provider[@Name='vss'] and ", L"2026-01-02T00:00:00.000Z"), 0u);
}

TEST_F(EventLogTest, AQueryOfAnotherFormIsRefused) {
  for (const wchar_t* query :
       {L"", L"*", L"Event/System[EventID=1]", L"*[System[TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z']]]",
        L"*[System[TimeCreated[@SystemTime>='yesterday' and @SystemTime<='2026-01-01T00:00:00.000Z']]]",
        L"*[System[TimeCreated[@SystemTime>=2026 and @SystemTime<='2026-01-01T00:00:00.000Z']]]",
        L"*[System[TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z and @SystemTime<=]]]",
        L"*[System[Provider[@Name='VSS' or] and TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z' and "
        L"@SystemTime<='2026-01-01T00:00:00.000Z']]]",
        L"*[System[TimeCreated[@SystemTime>='2026-01-01T00:00:00.000Z' and "
        L"@SystemTime<='2026-01-01T00:00:00.000Z']]] "}) {
    EXPECT_FALSE(Query(L"Application", query)) << WideToUtf8(query);
    EXPECT_EQ(host().GetLastError(), DWORD{ERROR_EVT_INVALID_QUERY});
  }
}

TEST_F(EventLogTest, OnlyWindowsOwnChannelsAndThoseWithEventsAreThere) {
  for (const wchar_t* channel : {L"Application", L"SYSTEM", L"Security", L"Setup"}) EXPECT_TRUE(Query(channel));
  constexpr wchar_t kHyperV[] = L"Microsoft-Windows-Hyper-V-VMMS-Admin";
  EXPECT_FALSE(Query(kHyperV));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_EVT_CHANNEL_NOT_FOUND});
  model().events.push_back({kHyperV, L"Microsoft-Windows-Hyper-V-VMMS", 10150});
  EXPECT_TRUE(Query(kHyperV));
}

TEST_F(EventLogTest, AChannelCanBeForbiddenAndTheWholeLogBeMissing) {
  FailCall("EvtQuery", ERROR_ACCESS_DENIED, 1);
  FailCall("EvtQuery", ERROR_SUCCESS, 2);
  EXPECT_FALSE(Query(L"Application"));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_FALSE(Query(L"Application"));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(Query(L"Application"));
}

TEST_F(EventLogTest, ASourceWithMessagesTellsTheTextOfItsEvents) {
  model().events.push_back({L"Application", L"VSS", 8194});
  const std::vector<EventHandle> found = Next(Query(L"Application"));
  ASSERT_EQ(found.size(), 3u);
  const EventHandle publisher = Publisher(L"VSS");
  EXPECT_THAT(Format(publisher, found[0]), Optional(std::wstring(L"The service failed.\r\n")));
  EXPECT_EQ(Format(publisher, found[1]), std::nullopt);
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_EVT_MESSAGE_NOT_FOUND});
  EXPECT_EQ(Format(publisher, found[2]), std::nullopt);
  EXPECT_FALSE(Publisher(L"MSSQL$A"));
  EXPECT_EQ(host().GetLastError(), DWORD{ERROR_EVT_PUBLISHER_METADATA_NOT_FOUND});
}

TEST_F(EventLogTest, WhatIsReportedIsReadAgain) {
  host().time().Sleep(1500);
  {
    const EventSource source(events().RegisterEventSourceW(nullptr, L"varnel"));
    std::array<LPCWSTR, 2> texts = {L"one", L""};
    std::array<char, 2> data = {'\x01', 'z'};
    EXPECT_EQ(events().ReportEventW(source.Get(), EVENTLOG_WARNING_TYPE, 3, 0x80000065, nullptr, 2, 2, texts.data(),
                                    data.data()),
              TRUE);
  }
  const std::vector<std::string> all = Xml(L"Application");
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[2],
            "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider Name='varnel'/>"
            "<EventID Qualifiers='32768'>101</EventID><Version>0</Version><Level>3</Level><Task>0</Task>"
            "<Opcode>0</Opcode><Keywords>0x80000000000000</Keywords>"
            "<TimeCreated SystemTime='2026-01-01T00:00:01.5000000Z'/><EventRecordID>3</EventRecordID><Correlation/>"
            "<Execution ProcessID='0' ThreadID='0'/><Channel>Application</Channel>"
            "<Computer>HOST.corp.example</Computer><Security/></System>"
            "<EventData><Data>one</Data><Data/><Binary>017A</Binary></EventData></Event>");
}

TEST_F(EventLogTest, TheTypeOfAReportIsItsLevel) {
  const EventSource source(events().RegisterEventSourceW(nullptr, L"varnel"));
  constexpr WORD kTypes[] = {EVENTLOG_SUCCESS, EVENTLOG_ERROR_TYPE, EVENTLOG_WARNING_TYPE, EVENTLOG_INFORMATION_TYPE};
  for (const WORD type : kTypes) {
    EXPECT_EQ(events().ReportEventW(source.Get(), type, 0, 1, nullptr, 0, 0, nullptr, nullptr), TRUE);
  }
  std::vector<EventLevel> levels;
  for (const LoggedEvent& event : host().machine().newEvents) levels.push_back(event.level);
  EXPECT_THAT(levels, ElementsAre(EventLevel::always, EventLevel::error, EventLevel::warning, EventLevel::information));
}

TEST_F(EventLogTest, AReportThatTheSystemWouldNotTakeIsRefused) {
  const EventSource source(events().RegisterEventSourceW(nullptr, L"varnel"));
  const std::wstring longest(31839, L'x');
  const std::wstring tooLong = longest + L"x";
  const auto report = [&](HANDLE log, LPCWSTR text) {
    return events().ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, &text, nullptr);
  };
  EXPECT_EQ(report(source.Get(), longest.c_str()), TRUE);
  EXPECT_THAT(report(source.Get(), tooLong.c_str()), FailsWith(1734));
  EXPECT_THAT(report(source.Get(), nullptr), FailsWith(ERROR_INVALID_PARAMETER));
  EXPECT_THAT(report(nullptr, L"text"), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(events().RegisterEventSourceW(nullptr, L""), FailsWith(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(host().machine().newEvents.size(), 1u);
}

TEST_F(EventLogTest, HandlesAreOfTheirKindAndGivenBackOnce) {
  const EventHandle results = Query(L"Application");
  const std::vector<EventHandle> found = Next(results, 1);
  ASSERT_EQ(found.size(), 1u);
  DWORD number = 0;
  EXPECT_THAT(events().EvtNext(found[0].Get(), 1, nullptr, 0, 0, &number), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(events().EvtRender(nullptr, results.Get(), EvtRenderEventXml, 0, nullptr, &number, &number),
              FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_EQ(host().live().Describe(), "1 event, 1 event query");
  EXPECT_THAT(events().EvtClose(nullptr), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(events().DeregisterEventSource(results.Get()), FailsWith(ERROR_INVALID_HANDLE));
  EXPECT_THAT(host().live().misuses(), ElementsAre("EvtClose of a handle that is not open",
                                                   "DeregisterEventSource of a handle that is not open"));
  Install(test::SmallHost());
}

TEST_F(EventLogTest, TheCallsAreInTheCallLog) {
  Forget();
  {
    const std::vector<EventHandle> found = Next(Query(L"Application"), 1);
    Render(found.at(0));
    const EventHandle publisher = Publisher(L"VSS");
    Format(publisher, found.at(0));
    const EventSource source(events().RegisterEventSourceW(nullptr, L"varnel"));
    LPCWSTR text = L"text";
    events().ReportEventW(source.Get(), EVENTLOG_ERROR_TYPE, 0, 300, nullptr, 1, 0, &text, nullptr);
  }
  EXPECT_THAT(
      host().calls().lines(),
      ElementsAre("EvtQuery(\"Application\", \"" + WideToUtf8(kAll) + "\") = ok", "EvtNext(1) = ok", "EvtClose() = ok",
                  "EvtRender() = error 122", "EvtRender() = ok", "EvtOpenPublisherMetadata(VSS) = ok",
                  "EvtFormatMessage() = error 122", "EvtFormatMessage() = ok", "RegisterEventSourceW(varnel) = ok",
                  "ReportEventW(1, 0, 300) = ok", "DeregisterEventSource() = ok", "EvtClose() = ok",
                  "EvtClose() = ok"));
}

TEST(UtcTime, IsReadAndWrittenToTheTick) {
  EXPECT_THAT(ParseUtc("1601-01-01T00:00:00Z"), Optional(LONGLONG{0}));
  EXPECT_THAT(ParseUtc("2026-01-01T00:00:00Z"), Optional(LONGLONG{134116992000000000}));
  EXPECT_THAT(ParseUtc("2026-01-01T00:00:00.1Z"), Optional(LONGLONG{134116992001000000}));
  EXPECT_THAT(ParseUtc("2026-01-01T00:00:00.123456789Z"), Optional(LONGLONG{134116992001234567}));
  EXPECT_EQ(FormatUtc(134116992001234567), "2026-01-01T00:00:00.1234567Z");
  EXPECT_EQ(FormatUtc(At("2024-02-29T23:59:59.0000001Z")), "2024-02-29T23:59:59.0000001Z");
}

TEST(UtcTime, IsNothingElse) {
  for (const char* text : {"", "2026-01-01", "2026-01-01T00:00:00", "2026-01-01T00:00:00.Z", "2026-01-01 00:00:00Z",
                           "2026-13-01T00:00:00Z", "2025-02-29T00:00:00Z", "2026-01-01T24:00:00Z",
                           "2026-01-01T00:60:00Z", "2026-01-01T00:00:60Z", "1600-01-01T00:00:00Z",
                           "2026-01-01T00:00:00Zx", "26-01-01T00:00:00Z", "2026-01-01T00:00:00+01:00"}) {
    EXPECT_EQ(ParseUtc(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace varnel::simulator
