// The alert records to the byte: taking the error details apart, the edges of a record's room, and its values.
#include <algorithm>
#include <cstdint>
#include <optional>

#include "platform/ansi.h"
#include "requestors/HyperVReq.h"
#include "tests/core/alert_examples.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

constexpr std::string_view kDots = "...";

// ---- Taking the error details apart ----

// A record, and the lists that belong to it.
struct SplitRecord {
  std::string record;
  Lines lists;
};

bool IsComplete(const std::string& record) {
  const std::size_t reason = record.find("rc=");
  return reason != record.npos && record.find("ca=", reason) != record.npos;
}

// The cuts of the page's second rule.
Lines Cut(const std::string& details) {
  Lines pieces = {""};
  for (const char c : details) {
    std::string& piece = pieces.back();
    piece += c;
    if (piece.ends_with(";\n") || piece.ends_with(":\n") || piece.ends_with("ca=ContactSupport")) {
      pieces.emplace_back();
    }
  }
  if (pieces.back().empty()) pieces.pop_back();
  return pieces;
}

// The page's rules, the request text left out already.
std::vector<SplitRecord> Split(const std::string& details) {
  std::vector<SplitRecord> records;
  for (const std::string& piece : Cut(details)) {
    if (!records.empty() && !IsComplete(records.back().record)) {
      records.back().record += piece;
    } else if (!records.empty() && piece.find("rc=") == piece.npos) {
      records.back().lists.push_back(piece);
    } else {
      records.push_back({piece, {}});
    }
  }
  return records;
}

// The value of a key that stands before `before`.
std::string Between(const std::string& record, const std::string& key, const std::string& before) {
  const std::size_t begin = record.find(key) + key.size();
  return record.substr(begin, record.rfind(before) - begin);
}

class SplitDetails : public HostFixture {
 protected:
  /// A writer with one component on TSL0001.
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
    Install(std::move(model));
  }
  WriterFault FreezeFault(std::wstring message) {
    WriterFault fault;
    fault.writer = L"Mail";
    fault.event = WriterEvent::freeze;
    fault.failure = VSS_E_WRITERERROR_RETRYABLE;
    fault.applicationResult = static_cast<HRESULT>(0x80040E14);
    fault.applicationMessage = std::move(message);
    return fault;
  }
};

// The record and what its writer appends after it.
std::string Written(std::size_t i) {
  std::string details;
  WriteAlertWith(*alert::All()[i], ExampleValues().at(i), details);
  const AlertRecord* record = alert::All()[i];
  const bool hasLists =
      record == &alert::kMixedCluster || record == &alert::kMixedCsv || record == &alert::kClusterDisk;
  return hasLists ? details + "Clustered:F:\\,G:\\;\n" : details;
}

TEST_F(SplitDetails, AnyTwoRecordsComeApart) {
  for (std::size_t i = 0; i < alert::All().size(); ++i) {
    for (std::size_t j = 0; j < alert::All().size(); ++j) {
      const std::vector<SplitRecord> records = Split(Written(i) + Written(j));
      SCOPED_TRACE(Written(i) + Written(j));
      ASSERT_THAT(records, SizeIs(2));
      EXPECT_EQ(records[0].record, Written(i));
      EXPECT_EQ(records[1].record, Written(j));
    }
  }
}

TEST_F(SplitDetails, TheListsOfAMismatchBelongToItsRecord) {
  SnapshotRequest request({.serialNumbers = {L"TSL0002", L"TSL0009"}});
  ASSERT_EQ(request.StartAndCreate().alertCode, 602);
  const std::vector<SplitRecord> records = Split(request.alerts());
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_THAT(records[0].record, StartsWith("status=LunMismatch, VolCollVolumes=2, "));
  EXPECT_THAT(records[0].lists, ElementsAre("Input list of volumes in volume collection: TSL0002, TSL0009;\n",
                                            "List of volumes used by application writer : ;\n"));
}

TEST_F(SplitDetails, TheListOfExtraVolumesEndsInAColon) {
  SnapshotRequest request(BothDisks());
  ASSERT_EQ(request.StartAndCreate().alertCode, 701);
  const std::vector<SplitRecord> records = Split(request.alerts());
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_THAT(records[0].record, StartsWith("status=ExtarVolumesInVolColl, "));
  EXPECT_THAT(records[0].lists, ElementsAre("Extra volumes in volume collection are:TSL0002:\n"));
}

TEST_F(SplitDetails, ARecordAfterAnAsynchronousFailureIsCutOff) {
  host().faults().FailAsync("DoSnapshotSet", VSS_E_HOLD_WRITES_TIMEOUT);
  SnapshotRequest request;
  const Outcome outcome = request.StartAndCreate();
  ASSERT_EQ(outcome, Outcome::Thrown(VSS_E_HOLD_WRITES_TIMEOUT));
  FailCall("IVssBackupComponents::BreakSnapshotSet", VSS_E_BAD_STATE);
  EXPECT_EQ(OutcomeOf([&] { request.requestor.BreakSnapshotSet(request.details()); }),
            Outcome::Thrown(VSS_E_BAD_STATE));
  const std::vector<SplitRecord> records = Split(request.alerts());
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_EQ(records[0].record,
            "RequestStatus=QueryStatus(), Function=pAsync->QueryStatus(), Error=VSS_E_HOLD_WRITES_TIMEOUT, "
            "rc=SystemError, ca=ContactSupport");
  EXPECT_EQ(records[1].record,
            "m_pVssObject->BreakSnapshotSet()=Failed, error=VSS_E_BAD_STATE, rc=COMMError, ca=ContactTechSupport;\n");
}

TEST_F(SplitDetails, ALineBreakInsideAMessageDoesNotEndItsRecord) {
  const std::wstring message = L"first;\nsecond:\nthird, a=\"b\";\r\n";
  FailWriter(FreezeFault(message));
  SnapshotRequest request;
  ASSERT_EQ(request.StartAndCreate().alertCode, 600);
  const std::vector<SplitRecord> records = Split(request.alerts());
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(Between(records[0].record, "ApplicationMsg=", ", rc="), WideToUtf8(message));
  EXPECT_THAT(records[0].record, EndsWith(", rc=VssWriterStatusError, ca=CheckWriterState;\n"));
}

TEST_F(SplitDetails, TheNamesOfVolumesFollowTheirRecordDirectly) {
  model().cluster = simulator::ClusterNode{L"CLU01", {}};
  model().disks[1].clustered = true;
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  HyperVReq requestor(0);
  requestor.SetDiskAndVolumeEnumeratorObj(&enumerator);
  std::string status;
  std::string details;
  EXPECT_EQ(requestor.ValidateVolumes({WideToAnsi(VolumeName(1)), WideToAnsi(VolumeName(2))}, status, details, {}, ""),
            253u);
  ASSERT_THAT(Split(details), SizeIs(1));
  EXPECT_EQ(details,
            "Error, status=TesselHyperVValidation_MixOfStandalone_ClusterVolumes, rc=ConfigError, "
            "ca=CheckVolumeCollectionClustered:" +
                WideToAnsi(VolumeName(1)) + "Standalone:" + WideToAnsi(VolumeName(2)) + ";\n");
}

// ---- The room of a record ----

// The values of one record, each text and each number the same.
class Values {
 public:
  Values(const AlertRecord& record, const std::wstring& text, std::uint32_t number)
      : parts_(PartsOf(record)), texts_(parts_.values.size(), text), number_(number) {}

  std::wstring& text(std::size_t slot) { return texts_[slot]; }
  const AlertParts& parts() const { return parts_; }
  bool IsText(std::size_t slot) const { return parts_.values[slot] == AlertValue::text; }

  std::vector<FormatArgument> Arguments() const {
    std::vector<FormatArgument> arguments;
    for (std::size_t slot = 0; slot < texts_.size(); ++slot) {
      arguments.push_back(IsText(slot) ? FormatArgument(texts_[slot]) : FormatArgument(number_));
    }
    return arguments;
  }
  /// The values as they stand in a record that has room for them.
  Lines Shown() const {
    Lines shown;
    for (std::size_t slot = 0; slot < texts_.size(); ++slot) {
      const char* format = parts_.values[slot] == AlertValue::decimal ? "%d" : "%x";
      shown.push_back(IsText(slot) ? WideToUtf8Lossy(texts_[slot]) : FormatNarrow(format, {number_}));
    }
    return shown;
  }
  std::string Whole() const { return parts_.Join(Shown()); }

 private:
  AlertParts parts_;
  std::vector<std::wstring> texts_;
  std::uint32_t number_;
};

std::string Format(const AlertRecord& record, const Values& values) {
  return FormatAlertWith(record, values.Arguments());
}

// Every text of every record, but for the call's name, which gives way last.
struct Slot {
  const AlertRecord* record;
  std::size_t slot;
};

std::vector<Slot> TextSlots() {
  std::vector<Slot> slots;
  for (const AlertRecord* record : alert::All()) {
    const AlertParts parts = PartsOf(*record);
    for (std::size_t slot = record->tag == nullptr ? 1 : 0; slot < parts.values.size(); ++slot) {
      if (parts.values[slot] == AlertValue::text) slots.push_back({record, slot});
    }
  }
  return slots;
}

// The values with one text of such a length that the record would be `bytes` long.
Values FilledTo(const Slot& place, std::size_t bytes) {
  Values values(*place.record, L"v", 7);
  values.text(place.slot).clear();
  values.text(place.slot).assign(bytes - values.Whole().size(), L'x');
  return values;
}

TEST(AlertRoom, ThirteenTextsBesideTheCallsNameAreTried) {
  EXPECT_EQ(TextSlots().size(), 13u);
}

TEST(AlertRoom, ARecordThatFillsItsRoomExactlyIsWhole) {
  for (const Slot& place : TextSlots()) {
    SCOPED_TRACE(std::string(place.record->format) + " " + std::to_string(place.slot));
    const Values values = FilledTo(place, place.record->bytes - 1);
    const std::string text = Format(*place.record, values);
    EXPECT_EQ(text, values.Whole());
    EXPECT_EQ(text.size(), place.record->bytes - 1);
  }
}

TEST(AlertRoom, OneByteTooManyCostsTheLongestTextThreeMoreForTheDots) {
  for (const Slot& place : TextSlots()) {
    SCOPED_TRACE(std::string(place.record->format) + " " + std::to_string(place.slot));
    const Values values = FilledTo(place, place.record->bytes);
    Lines shown = values.Shown();
    shown[place.slot].replace(shown[place.slot].size() - kDots.size() - 1, kDots.size() + 1, kDots);
    EXPECT_EQ(Format(*place.record, values), values.parts().Join(shown));
    EXPECT_EQ(values.parts().Join(shown).size(), place.record->bytes - 1);
  }
}

TEST(AlertRoom, EveryLengthAroundTheLimitIsExactToTheByte) {
  for (const Slot& place : TextSlots()) {
    for (std::size_t excess = 0; excess < 12; ++excess) {
      const Values values = FilledTo(place, place.record->bytes - 6 + excess);
      const std::string whole = values.Whole();
      const std::string text = Format(*place.record, values);
      EXPECT_EQ(text.size(), std::min(whole.size(), place.record->bytes - 1)) << place.record->format;
      EXPECT_EQ(text == whole, whole.size() < place.record->bytes) << place.record->format;
    }
  }
}

TEST(AlertRoom, ACharacterOfSeveralBytesGoesAltogether) {
  for (const Slot& place : TextSlots()) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      Values values = FilledTo(place, place.record->bytes - 60);
      values.text(place.slot) += std::wstring(shift, L'y');
      for (int i = 0; i < 30; ++i) values.text(place.slot) += L"\U0001F680";
      const std::string text = Format(*place.record, values);
      EXPECT_NO_THROW(Utf8ToWide(text));
      EXPECT_THAT(text, HasSubstr("\xF0\x9F\x9A\x80..."));
      EXPECT_LT(text.size(), place.record->bytes);
      EXPECT_GE(text.size(), place.record->bytes - 4);
    }
  }
}

TEST(AlertRoom, ACallsNameGivesWayOnlyWhenNothingElseIsLeft) {
  const std::size_t fixed = PartsOf(alert::kComError).Join({"", ""}).size();
  const std::string call(2047 - fixed - kDots.size(), 'c');
  const std::string text = FormatAlert(alert::kComError, {call, std::wstring(500, L'e')});
  EXPECT_EQ(text, PartsOf(alert::kComError).Join({call, "..."}));
  EXPECT_EQ(text.size(), 2047u);
  const std::string longer = FormatAlert(alert::kComError, {call + "c", std::wstring(500, L'e')});
  EXPECT_EQ(longer.size(), 2047u);
  EXPECT_THAT(longer, StartsWith("ccc"));
  EXPECT_THAT(longer, HasSubstr("c...=Failed, error=..., rc=COMMError"));
}

// What became of a text of one letter: how many of it are left, and whether dots follow them.
struct Kept {
  std::size_t letters = 0;
  bool shortened = false;
};

// Reads a record whose nth text is a run of the nth letter.
std::optional<std::vector<Kept>> ReadRuns(const std::string& text, const AlertParts& parts, const std::string& number) {
  std::vector<Kept> kept(parts.values.size());
  std::string_view rest = text;
  for (std::size_t slot = 0; slot <= parts.values.size(); ++slot) {
    if (!rest.starts_with(parts.literals[slot])) return std::nullopt;
    rest.remove_prefix(parts.literals[slot].size());
    if (slot == parts.values.size()) break;
    if (parts.values[slot] != AlertValue::text) {
      rest.remove_prefix(number.size());
      continue;
    }
    kept[slot].letters = std::min(rest.find_first_not_of(static_cast<char>('A' + slot)), rest.size());
    rest.remove_prefix(kept[slot].letters);
    kept[slot].shortened = rest.starts_with(kDots);
    if (kept[slot].shortened) rest.remove_prefix(kDots.size());
  }
  return rest.empty() ? std::optional(kept) : std::nullopt;
}

// All combinations of these lengths for the texts of a record; its numbers have none.
void ForEachCombination(const AlertParts& parts, const auto& visit) {
  const std::vector<std::size_t> lengths = {0, 1, 4, 400, 1900, 5000};
  std::vector<std::size_t> chosen(parts.values.size(), 0);
  const auto choices = [&](std::size_t slot) { return parts.values[slot] == AlertValue::text ? lengths.size() : 1; };
  for (;;) {
    std::vector<std::size_t> combination;
    combination.reserve(chosen.size());
    for (const std::size_t choice : chosen) combination.push_back(lengths[choice]);
    visit(combination);
    std::size_t slot = 0;
    while (slot < chosen.size() && ++chosen[slot] == choices(slot)) chosen[slot++] = 0;
    if (slot == chosen.size()) return;
  }
}

Values Runs(const AlertRecord& record, const std::vector<std::size_t>& lengths, std::uint32_t number) {
  Values values(record, L"", number);
  for (std::size_t slot = 0; slot < lengths.size(); ++slot) {
    if (values.IsText(slot)) values.text(slot).assign(lengths[slot], static_cast<wchar_t>(L'A' + slot));
  }
  return values;
}

// Longer texts give way before shorter ones, and none more than it must.
void ExpectFairShortening(const std::vector<Kept>& kept, const std::vector<std::size_t>& lengths,
                          const Values& values) {
  auto shortestCut = static_cast<std::size_t>(-1);
  std::size_t longestWhole = 0;
  int halves = 0;
  for (std::size_t slot = 0; slot < kept.size(); ++slot) {
    if (!values.IsText(slot)) continue;
    if (!kept[slot].shortened) {
      EXPECT_EQ(kept[slot].letters, lengths[slot]);
      longestWhole = std::max(longestWhole, lengths[slot]);
      continue;
    }
    shortestCut = std::min(shortestCut, lengths[slot]);
    if (kept[slot].letters > 0) ++halves;
  }
  EXPECT_GE(shortestCut, longestWhole);
  EXPECT_LE(halves, 1) << "the longest goes altogether before the next is cut";
}

TEST(AlertRoom, SeveralLongValuesAtOnceNeverOverrunAndGiveWayByLength) {
  for (const AlertRecord* record : alert::All()) {
    const AlertParts parts = PartsOf(*record);
    if (record->tag == nullptr || !parts.HasText()) continue;
    ForEachCombination(parts, [&](const std::vector<std::size_t>& lengths) {
      const Values values = Runs(*record, lengths, 0xFFFFFFFF);
      const std::string text = Format(*record, values);
      SCOPED_TRACE(testing::PrintToString(lengths));
      ASSERT_LT(text.size(), record->bytes);
      const auto kept = ReadRuns(text, parts, "ffffffff");
      ASSERT_TRUE(kept) << text;
      if (values.Whole().size() < record->bytes) {
        EXPECT_EQ(text, values.Whole());
      } else {
        EXPECT_EQ(text.size(), record->bytes - 1);
        ExpectFairShortening(*kept, lengths, values);
      }
    });
  }
}

// ---- The values ----

TEST(AlertValues, MayAllBeEmpty) {
  for (const AlertRecord* record : alert::All()) {
    const Values values(*record, L"", 0);
    EXPECT_EQ(Format(*record, values), values.Whole());
  }
  EXPECT_EQ(FormatAlert(alert::kWriterFailure, {L"", L"", L"", 0, L""}),
            "RequestStatus=WriterFailure, WriterName=, WriterError=, WriterStatus=, ApplicationError=0x0, "
            "ApplicationMsg=, rc=VssWriterStatusError, ca=CheckWriterState;\n");
  EXPECT_EQ(FormatAlert(alert::kComError, {"", L""}), "=Failed, error=, rc=COMMError, ca=ContactTechSupport;");
}

TEST(AlertValues, ANullTextIsAnEmptyOne) {
  const wchar_t* wide = nullptr;
  const char* narrow = nullptr;
  EXPECT_EQ(FormatAlert(alert::kQueryStatus, {narrow, wide}),
            "RequestStatus=QueryStatus(), Function=, Error=, rc=SystemError, ca=ContactSupport");
}

TEST(AlertValues, EveryKindOfCharacterGoesInAsItIs) {
  using namespace std::string_literals;
  const std::vector<std::pair<std::wstring, std::string>> texts = {
      {LR"("quoted" and 'quoted')", R"("quoted" and 'quoted')"},
      {L", rc=Fake, ca=Fake;", ", rc=Fake, ca=Fake;"},
      {L";\nstatus=Fake\r\n\t", ";\nstatus=Fake\r\n\t"},
      {L"100% %s %n %d %%", "100% %s %n %d %%"},
      {LR"(\path\with \n)", R"(\path\with \n)"},
      {L"a\0b\0"s, "a\0b\0"s},
      {L"\x01\x1B\x7F", "\x01\x1B\x7F"},
      {L"...", "..."},
      {L"\u00C4\u0416\u65E5", "\xC3\x84\xD0\x96\xE6\x97\xA5"},
      {L"\U0001F680\U0010FFFF", "\xF0\x9F\x9A\x80\xF4\x8F\xBF\xBF"},
      {L"\uFEFF\u2028\u200B\uFFFD", "\xEF\xBB\xBF\xE2\x80\xA8\xE2\x80\x8B\xEF\xBF\xBD"},
      {{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE80)}, "\xF0\x9F\x9A\x80"},
      {{L'a', static_cast<wchar_t>(0xD83D)}, "a\xEF\xBF\xBD"},
      {{static_cast<wchar_t>(0xDE80), L'b'},
       "\xEF\xBF\xBD"
       "b"},
      {{static_cast<wchar_t>(0xDE80), static_cast<wchar_t>(0xD83D)}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const AlertRecord* record : alert::All()) {
    for (const auto& [wide, narrow] : texts) {
      const Values values(*record, wide, 7);
      Lines shown(values.parts().values.size(), "7");
      for (std::size_t slot = 0; slot < shown.size(); ++slot) {
        if (values.IsText(slot)) shown[slot] = narrow;
      }
      EXPECT_EQ(Format(*record, values), values.parts().Join(shown)) << record->format;
    }
  }
}

TEST(AlertValues, ANulIsCutNeitherByTheRecordNorByItsRoom) {
  const std::string record = FormatAlert(alert::kAddComponentFailed, {std::wstring(3000, L'\0')});
  EXPECT_EQ(record.size(), 2047u);
  EXPECT_THAT(record,
              EndsWith(std::string(10, '\0') + "..., rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes"));
}

TEST(AlertValues, NumbersReachTheirLimits) {
  EXPECT_EQ(FormatAlert(alert::kLunMismatch, {0x7FFFFFFF, 0x80000000u}),
            "status=LunMismatch, VolCollVolumes=2147483647, VolumesInvolvedInSnapshot=-2147483648, rc=ConfigError, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections");
  EXPECT_THAT(FormatAlert(alert::kComponentFailure, {L"c", L"e", 0xFFFFFFFFu, L"m"}),
              HasSubstr("ApplicationError=0xffffffff, "));
  EXPECT_THAT(FormatAlert(alert::kComponentFailure, {L"c", L"e", 0, L"m"}), HasSubstr("ApplicationError=0x0, "));
}

TEST(AlertValues, OnlyTheLow32BitsOfANumberCount) {
  EXPECT_THAT(FormatAlert(alert::kExtraVolumes, {std::uint64_t{0x500000002}, std::int64_t{-1}}),
              HasSubstr("VolumesInvolvedInSnapshot =2 , ExtraVolumes =-1, "));
}

class AlertChannels : public HostFixture {};

TEST_F(AlertChannels, EveryRecordIsLoggedOnceAndAppendedWithItsEnding) {
  std::string expected = "writer=0,";
  std::string details = expected;
  Lines lines;
  for (std::size_t i = 0; i < alert::All().size(); ++i) {
    const AlertRecord& record = *alert::All()[i];
    const std::string text = FormatAlertWith(record, ExampleValues().at(i));
    WriteAlertWith(record, ExampleValues()[i], details);
    expected += text + record.ending;
    lines.push_back((record.category == CFileLog::Warning ? "W " : "E ") +
                    FormatNarrow(WideToUtf8(record.logFormat), {text}));
    EXPECT_EQ(details, expected);
  }
  EXPECT_EQ(log.All(), lines);
}

TEST_F(AlertChannels, EveryShortenedRecordIsTheSameInBoth) {
  for (const AlertRecord* record : alert::All()) {
    log.lines.clear();
    const Values values(*record, std::wstring(3000, L'x'), 7);
    std::string details;
    WriteAlertWith(*record, values.Arguments(), details);
    const std::string text = details.substr(0, details.size() - std::string_view(record->ending).size());
    EXPECT_LT(text.size(), record->bytes);
    ASSERT_THAT(log.lines, SizeIs(1));
    EXPECT_EQ(log.lines[0].text, FormatNarrow(WideToUtf8(record->logFormat), {text}));
  }
}

TEST_F(AlertChannels, ALogLineEndsAtANulTheErrorDetailsDoNot) {
  using namespace std::string_literals;
  std::string details;
  WriteAlert(alert::kAddComponentFailed, {L"a\0b"s}, details);
  EXPECT_EQ(details,
            "status=AddComponentFailed, Component=a\0b, rc=ConfigError, ca=CheckVolumeCollection, "
            "ca=CheckHostsVolumes;\n"s);
  EXPECT_THAT(log.All(), ElementsAre("E   status=AddComponentFailed, Component=a"));
}

TEST_F(AlertChannels, WithoutAListenerTheErrorDetailsAreTheSame) {
  std::string heard;
  WriteAlert(alert::kAddComponentFailed, {std::wstring(3000, L'x')}, heard);
  std::string unheard;
  {
    struct Deaf final : LogSink {
      int LowestCategory() const override { return CFileLog::Error + 1; }
      void Write(int /*category*/, std::wstring_view /*source*/, int /*line*/, std::wstring_view /*text*/) override {
        ADD_FAILURE() << "nobody listens";
      }
    } deaf;
    const ScopedLog silence(deaf);
    WriteAlert(alert::kAddComponentFailed, {std::wstring(3000, L'x')}, unheard);
  }
  EXPECT_EQ(unheard, heard);
}

TEST_F(AlertChannels, AnExactMessageOfAWriterComesThroughTheWholeRequest) {
  model().writers = {MakeWriter(L"M\u00E4il, \"A\"", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
  WriterFault fault;
  fault.writer = L"M\u00E4il, \"A\"";
  fault.event = WriterEvent::freeze;
  fault.failure = VSS_E_WRITERERROR_NONRETRYABLE;
  fault.applicationMessage = std::wstring(3000, L'm') + L"\U0001F680";
  FailWriter(fault);
  SnapshotRequest request;
  ASSERT_EQ(request.StartAndCreate().alertCode, 600);
  const std::string start =
      "RequestStatus=WriterFailure, WriterName=M\xC3\xA4il, \"A\", WriterError=VSS_E_WRITERERROR_NONRETRYABLE, "
      "WriterStatus=VSS_WS_FAILED_AT_FREEZE, ApplicationError=0x0, ApplicationMsg=";
  const std::string end = "..., rc=VssWriterStatusError, ca=CheckWriterState;\n";
  EXPECT_EQ(request.alerts(), start + std::string(2047 - start.size() - end.size(), 'm') + end);
}

}  // namespace
}  // namespace varnel::test
