// What varnelctl reads of the event log.
#include <algorithm>

#include "platform/forwarding_host.h"
#include "simulator/machine/utc_time.h"
#include "tests/support/host_fixture.h"
#include "varnelctl/event_log/reader.h"

namespace varnel::test {
namespace {

using simulator::EventLevel;
using simulator::LoggedEvent;
using varnelctl::ChannelEvents;
using varnelctl::ChannelState;
using varnelctl::Event;

long long At(std::string_view text) {
  return simulator::ParseUtc(text).value_or(0);
}

LoggedEvent Logged(std::wstring source, DWORD id, std::string_view time) {
  return {L"Application", std::move(source), id, EventLevel::error, At(time)};
}

class EventLogReading : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.seed = 1;
    LoggedEvent vss = Logged(L"VSS", 8193, "2026-01-01T00:00:10.0001Z");
    vss.texts = {L"IVssAsync", L"0x80070005"};
    vss.message = L"The service failed: \x00FC.\r\n\r\n";
    vss.data = L"01";
    LoggedEvent sql = Logged(L"MSSQL$O'BRIEN", 0x40000BE1, "2026-01-01T00:00:20Z");
    sql.texts = {L"one", L"two"};
    sql.level = EventLevel::warning;
    model.events = {vss, sql, Logged(L"Other", 1, "2026-01-01T00:00:30Z")};
    Install(model);
  }

  static ChannelEvents Read(const std::vector<std::string>& sources = {}, const std::string& channel = "Application") {
    return varnelctl::ReadEvents(channel, sources, At("2026-01-01T00:00:00Z"), At("2026-01-01T00:01:00Z"));
  }
  static std::vector<unsigned> Ids(const ChannelEvents& events) {
    std::vector<unsigned> ids;
    for (const Event& event : events.events) ids.push_back(event.id);
    return ids;
  }
  void ExpectProblem(ChannelState state, const std::string& problem, const std::string& channel = "Application") {
    const ChannelEvents events = Read({}, channel);
    EXPECT_EQ(events.state, state);
    EXPECT_EQ(varnelctl::ProblemOf(events), problem);
  }
};

TEST_F(EventLogReading, TellsWhatAnEventSays) {
  const ChannelEvents events = Read({"VSS"});
  EXPECT_EQ(events.channel, "Application");
  EXPECT_EQ(events.state, ChannelState::read);
  EXPECT_EQ(varnelctl::ProblemOf(events), "");
  ASSERT_THAT(events.events, SizeIs(1));
  const Event& event = events.events[0];
  EXPECT_EQ(event.time, At("2026-01-01T00:00:10.0001Z"));
  EXPECT_EQ(event.source, "VSS");
  EXPECT_EQ(event.id, 8193u);
  EXPECT_EQ(event.level, 2u);
  EXPECT_EQ(event.record, 1u);
  EXPECT_EQ(event.computer, "HOST");
  EXPECT_THAT(event.texts, ElementsAre("IVssAsync", "0x80070005"));
  EXPECT_EQ(event.text, "The service failed: \xC3\xBC.");
  EXPECT_THAT(event.xml, StartsWith("<Event xmlns="));
  EXPECT_THAT(event.xml, HasSubstr("<Binary>01</Binary>"));
}

TEST_F(EventLogReading, WithoutTheMessagesOfItsSourceAnEventTellsItsInsertedTexts) {
  const ChannelEvents events = Read({"MSSQL$O'BRIEN"});
  ASSERT_THAT(events.events, SizeIs(1));
  EXPECT_EQ(events.events[0].id, 3041u);
  EXPECT_EQ(events.events[0].level, 3u);
  EXPECT_EQ(events.events[0].text, "one\ntwo");
}

TEST_F(EventLogReading, WithoutSourcesTellsEveryOneOldestFirst) {
  EXPECT_THAT(Ids(Read()), ElementsAre(8193u, 3041u, 1u));
}

// A query holds ten sources.
TEST_F(EventLogReading, ManySourcesAreReadInOneOrder) {
  std::vector<std::string> sources = {"Other"};
  for (int i = 0; i < 18; ++i) sources.push_back("Source " + std::to_string(i));
  sources.push_back("MSSQL$O'BRIEN");
  sources.push_back("VSS");
  EXPECT_THAT(Ids(Read(sources)), ElementsAre(8193u, 3041u, 1u));
  EXPECT_THAT(Calls("EvtQuery"), SizeIs(3));
}

TEST_F(EventLogReading, TakesTheStretchOfTimeToWholeMilliseconds) {
  const auto read = [](const char* from, const char* to) {
    return Ids(varnelctl::ReadEvents("Application", {}, At(from), At(to)));
  };
  EXPECT_THAT(read("2026-01-01T00:00:10.0002Z", "2026-01-01T00:00:20Z"), ElementsAre(8193u, 3041u));
  EXPECT_THAT(read("2026-01-01T00:00:10.001Z", "2026-01-01T00:00:20Z"), ElementsAre(3041u));
  EXPECT_THAT(read("2026-01-01T00:00:10Z", "2026-01-01T00:00:10.00005Z"), ElementsAre(8193u));
  EXPECT_THAT(read("2026-01-01T00:00:10Z", "2026-01-01T00:00:10Z"), IsEmpty());
}

TEST_F(EventLogReading, TellsWhyAChannelCannotBeRead) {
  ExpectProblem(ChannelState::absent, "the channel \"Hyper-V\" is not on this host", "Hyper-V");
  FailCall("EvtQuery", ERROR_ACCESS_DENIED);
  ExpectProblem(ChannelState::accessDenied, "the channel \"Application\" may not be read by this account");
  FailCall("EvtQuery", 1717);
  ExpectProblem(ChannelState::failed, "the channel \"Application\" could not be read: error 1717");
}

TEST_F(EventLogReading, AfterAQueryThatCannotBeMadeNothingElseIsAsked) {
  FailCall("EvtQuery", ERROR_SUCCESS, 0);
  ExpectProblem(ChannelState::notAvailable, "this system has no event log that could be read");
  EXPECT_THAT(host().calls().lines(), ElementsAre(StartsWith("EvtQuery(")));
}

TEST_F(EventLogReading, WhatWasReadBeforeAFailureIsTold) {
  FailCall("EvtNext", 1717, 2);
  const ChannelEvents events = Read();
  EXPECT_EQ(events.state, ChannelState::failed);
  EXPECT_EQ(events.error, 1717u);
  EXPECT_THAT(Ids(events), ElementsAre(8193u, 3041u, 1u));
}

// Keeps how long the reader would wait.
class HostWithAskedLog final : public ForwardingHost {
 public:
  explicit HostWithAskedLog(Host& inner) : ForwardingHost(inner), log_(inner.eventLog()) {}
  EventLog& eventLog() override { return log_; }
  DWORD longest() const { return log_.longest; }

 private:
  struct Log final : ForwardingEventLog {
    using ForwardingEventLog::ForwardingEventLog;
    BOOL EvtNext(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD milliseconds, DWORD flags,
                 DWORD* returned) override {
      longest = std::max(longest, milliseconds);
      return ForwardingEventLog::EvtNext(results, count, events, milliseconds, flags, returned);
    }
    DWORD longest = 0;
  };
  Log log_;
};

TEST_F(EventLogReading, DoesNotWaitForEver) {
  HostWithAskedLog asked(host());
  {
    const ScopedHost current(asked);
    EXPECT_THAT(Read().events, SizeIs(3));
  }
  EXPECT_GT(asked.longest(), 0u);
  EXPECT_LE(asked.longest(), 60'000u);
}

TEST_F(EventLogReading, AnEventThatCannotBeRenderedIsAFailureAndTheOthersAreThere) {
  FailCall("EvtRender", ERROR_INVALID_HANDLE, 3);
  const ChannelEvents events = Read();
  EXPECT_EQ(events.state, ChannelState::failed);
  EXPECT_EQ(events.error, DWORD{ERROR_INVALID_HANDLE});
  EXPECT_THAT(Ids(events), SizeIs(2));
}

TEST_F(EventLogReading, OfTooManyEventsTheNewestAreTold) {
  model().events.assign(varnelctl::kMostEvents + 2, Logged(L"VSS", 1, "2026-01-01T00:00:10Z"));
  const ChannelEvents events = Read();
  EXPECT_TRUE(events.cutShort);
  ASSERT_THAT(events.events, SizeIs(varnelctl::kMostEvents));
  EXPECT_EQ(events.events.front().record, 3u);
  EXPECT_EQ(events.events.back().record, varnelctl::kMostEvents + 2);
  EXPECT_FALSE(Read({"None"}).cutShort);
}

TEST(EventXml, OfAnotherKindOfSourceIsReadToo) {
  const Event event = varnelctl::ParseEvent(
      "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
      "<Provider Name='Microsoft-Windows-Hyper-V-VMMS' Guid='{6066f867-7ca1-4418-85fd-36e3f9c0600c}'/>"
      "<EventID>10150</EventID><Level>2</Level><TimeCreated SystemTime='2026-01-01T00:00:05.123456789Z'/>"
      "<EventRecordID>18446744073709551615</EventRecordID><Computer>HV01</Computer></System>"
      "<UserData><VmlEventLog><VmName>a</VmName></VmlEventLog></UserData></Event>");
  EXPECT_EQ(event.source, "Microsoft-Windows-Hyper-V-VMMS");
  EXPECT_EQ(event.id, 10150u);
  EXPECT_EQ(event.time, At("2026-01-01T00:00:05.1234567Z"));
  EXPECT_EQ(event.record, 18446744073709551615ull);
  EXPECT_THAT(event.texts, IsEmpty());
}

TEST(EventXml, ThatIsNoneIsKeptAsItIs) {
  for (const char* xml : {"", "<Event>", "text", "<Other/>", "<Event><System><EventID>x</EventID></System></Event>"}) {
    const Event event = varnelctl::ParseEvent(xml);
    EXPECT_EQ(event.xml, xml);
    EXPECT_EQ(event.id, 0u);
    EXPECT_EQ(event.source, "");
  }
}

TEST(EventLevels, HaveNames) {
  std::vector<std::string> names;
  for (unsigned level = 0; level < 7; ++level) names.push_back(varnelctl::LevelName(level));
  EXPECT_THAT(names, ElementsAre("always", "critical", "error", "warning", "information", "verbose", "level 6"));
}

}  // namespace
}  // namespace varnel::test
