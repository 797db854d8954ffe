// The alert records: their formats, their room, and how they are written.
#include <iterator>
#include <set>

#include "tests/support/alert_parts.h"
#include "tests/support/foreign_text.h"
#include "tests/support/request_fixture.h"

namespace varnel::test {
namespace {

// Text outside the basic plane, and text that no one-byte locale has.

struct ExpectedRecord {
  const char* format;
  const char* tag;
  const char* ending;
  int category;
  const wchar_t* logFormat;
  std::size_t bytes;
};

constexpr char kHyperVFormat[] = "Error, status=%s, rc=ConfigError, ca=CheckVolumeCollection";

constexpr ExpectedRecord kExpectedRecords[] = {
    {"%s=Failed, error=%S, rc=COMMError, ca=ContactTechSupport;", nullptr, "\n", 4, L" %S", 2048},
    {"%s, WriterName=%S, WriterError=%S, WriterStatus=%S, ApplicationError=0x%x, ApplicationMsg=%S, "
     "rc=VssWriterStatusError, ca=CheckWriterState;\n",
     "RequestStatus=WriterFailure", "", 4, L"  %S", 2048},
    {"%s, Component=%S, ComponentLevelError=%S, ApplicationError=0x%x, ApplicationMsg=%S, rc=VssPartialWriterError, "
     "ca=CheckWriterState;\n",
     "RequestStatus=ComponentLevelFailure", "", 4, L"  %S", 2048},
    {"%s, rc=SystemError, error=%S, ca=ContactTechSupport;\n", "RequestStatus=GetDiskSerialNumberForVolume()_failed",
     "", 4, L"  %S", 2048},
    {"%s, Function=%s, Error=%S, rc=SystemError, ca=ContactSupport", "RequestStatus=QueryStatus()", "", 4, L"  %S",
     2048},
    {"malloc() Failed, Variable=SessionInfo, %s, rc=SystemError, ca=CallSupport;\n", "RequestStatus=LowMemory", "", 4,
     L"  %S", 2048},
    {"%s, rc=SystemError, ca=CallSupport;\n", "RequestStatus=LowMemory", "", 3, L"  %S", 2048},
    {"status=%s, Component=%S, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes", "AddComponentFailed",
     ";\n", 4, L"  %S", 2048},
    {"status=%s, rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections",
     "NoComponentsEligibleForBackup", ";\n", 4, L"  %S", 2048},
    {"status=%s, VolCollVolumes=%d, VolumesInvolvedInSnapshot=%d, rc=ConfigError, ca=CheckVolumeCollection, "
     "ca=CheckHostsVolumes/Connections",
     "LunMismatch", ";\n", 4, L" %S", 2048},
    {"status=%s, VolumesInvolvedInSnapshot =%d , ExtraVolumes =%d, rc=ConfigWarning, ca=CheckVolumeCollection, "
     "ca=CheckHostsVolumes/Connections",
     "ExtarVolumesInVolColl", ";\n", 3, L"%S", 2048},
    {kHyperVFormat, "TesselHyperVValidation_MixOfStandalone_ClusterVolumes", "", 4, L"  %S", 1024},
    {kHyperVFormat, "TesselHyperVValidation_MixOfCSV_NonCSVVolumes", "", 4, L"  %S", 1024},
    {kHyperVFormat, "TesselHyperVValidation_ClusterDiskFound", "", 4, L"  %S", 1024},
    {"Error, status=%s, ErrMsg=%ws, rc=ConfigError, ca=CheckVolumeCollection", "TesselHyperVValidation_Exception",
     ";\n", 4, L"  %S", 1024},
    {"Error, status=%s, rc=ConfigError, ca=VerifyRequiredHotfixes", "MissingHotfixes", ";\n", 4, L"  %S", 1024},
    {"Error, status=%s, rc=ConfigError, ca=CheckHostOSVersion", "UnsupportedOSVersion", ";\n", 4, L"  %S", 1024},
};

class AlertTest : public HostFixture {
 protected:
  std::string Write(const AlertRecord& record, std::initializer_list<FormatArgument> arguments) {
    std::string details;
    WriteAlert(record, arguments, details);
    return details;
  }
};

TEST_F(AlertTest, TheRecordsAreTheseAndNoOthers) {
  const auto records = alert::All();
  ASSERT_THAT(records, SizeIs(std::size(kExpectedRecords)));
  for (std::size_t i = 0; i < records.size(); ++i) {
    const AlertRecord& record = *records[i];
    const ExpectedRecord& expected = kExpectedRecords[i];
    SCOPED_TRACE(expected.format);
    EXPECT_STREQ(record.format, expected.format);
    EXPECT_STREQ(record.tag, expected.tag);
    EXPECT_STREQ(record.ending, expected.ending);
    EXPECT_EQ(record.category, expected.category);
    EXPECT_STREQ(record.logFormat, expected.logFormat);
    EXPECT_EQ(record.bytes, expected.bytes);
  }
}

TEST_F(AlertTest, EveryRecordUsesTheClosedVocabulary) {
  const std::set<std::string> reasons = {"COMMError",   "VssWriterStatusError", "VssPartialWriterError",
                                         "SystemError", "ConfigError",          "ConfigWarning"};
  const std::set<std::string> actions = {"ContactTechSupport",
                                         "ContactSupport",
                                         "CallSupport",
                                         "CheckWriterState",
                                         "CheckVolumeCollection",
                                         "CheckHostsVolumes",
                                         "CheckHostsVolumes/Connections",
                                         "VerifyRequiredHotfixes",
                                         "CheckHostOSVersion"};
  for (const AlertRecord* record : alert::All()) {
    const std::string format = record->format;
    SCOPED_TRACE(format);
    std::size_t found = 0;
    for (std::size_t at = format.find("="); at != std::string::npos; at = format.find("=", at + 1)) {
      const std::size_t end = format.find_first_of(",;", at);
      const std::string value = format.substr(at + 1, end == std::string::npos ? end : end - at - 1);
      const std::string key = format.substr(at < 2 ? 0 : at - 2, 2);
      if (key != "rc" && key != "ca") continue;
      EXPECT_THAT(key == "rc" ? reasons : actions, Contains(value));
      ++found;
    }
    EXPECT_GE(found, 2u);
  }
}

TEST_F(AlertTest, ARecordIsLoggedAndAppendedWithItsEnding) {
  std::string details = "old;\n";
  WriteAlert(alert::kAddComponentFailed, {L"\\db\\" + kForeign}, details);
  const std::string record = "status=AddComponentFailed, Component=\\db\\" + kForeignUtf8 +
                             ", rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes";
  EXPECT_EQ(details, "old;\n" + record + ";\n");
  EXPECT_THAT(log.All(), ElementsAre("E   " + record));
  EXPECT_EQ(log.lines.front().source, "varnel");
}

TEST_F(AlertTest, TheWarningsAreLoggedAsWarnings) {
  EXPECT_EQ(Write(alert::kExtraVolumes, {2, 0}),
            "status=ExtarVolumesInVolColl, VolumesInvolvedInSnapshot =2 , ExtraVolumes =0, rc=ConfigWarning, "
            "ca=CheckVolumeCollection, ca=CheckHostsVolumes/Connections;\n");
  EXPECT_EQ(Write(alert::kDeviceMemory, {}), "RequestStatus=LowMemory, rc=SystemError, ca=CallSupport;\n");
  EXPECT_THAT(log.Warnings(), SizeIs(2));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(AlertTest, TheAsynchronousRecordHasNeitherSemicolonNorLineEnd) {
  EXPECT_EQ(Write(alert::kQueryStatus, {"f()", L"E_UNEXPECTED"}),
            "RequestStatus=QueryStatus(), Function=f(), Error=E_UNEXPECTED, rc=SystemError, ca=ContactSupport");
}

TEST_F(AlertTest, NumbersOfARecordAre32Bits) {
  EXPECT_EQ(Write(alert::kWriterFailure, {L"w", L"e", L"s", static_cast<HRESULT>(0x80040E14), L"m"}),
            "RequestStatus=WriterFailure, WriterName=w, WriterError=e, WriterStatus=s, ApplicationError=0x80040e14, "
            "ApplicationMsg=m, rc=VssWriterStatusError, ca=CheckWriterState;\n");
  EXPECT_THAT(Write(alert::kLunMismatch, {3, -1}), HasSubstr("VolCollVolumes=3, VolumesInvolvedInSnapshot=-1, rc="));
}

TEST_F(AlertTest, ValuesAreNeitherEscapedNorTrimmed) {
  EXPECT_THAT(Write(alert::kAddComponentFailed, {L" a,b;c=%d\n"}), HasSubstr("Component= a,b;c=%d\n, rc="));
}

TEST_F(AlertTest, FormattingAloneNeitherLogsNorAppends) {
  EXPECT_EQ(FormatAlert(alert::kMissingHotfixes, {}),
            "Error, status=MissingHotfixes, rc=ConfigError, ca=VerifyRequiredHotfixes");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(AlertTest, ARecordThatJustFitsIsWhole) {
  const std::size_t fixed = FormatAlert(alert::kAddComponentFailed, {L""}).size();
  const std::wstring fits(2047 - fixed, L'x');
  EXPECT_EQ(FormatAlert(alert::kAddComponentFailed, {fits}).size(), 2047u);
  EXPECT_THAT(FormatAlert(alert::kAddComponentFailed, {fits}), Not(HasSubstr("...")));
  const std::string shortened = FormatAlert(alert::kAddComponentFailed, {fits + L"y"});
  EXPECT_EQ(shortened.size(), 2047u);
  EXPECT_THAT(shortened, HasSubstr("xx..., rc=ConfigError"));
}

// A record whose values are far too long.
struct LongRecord {
  std::size_t bytes;
  std::string text;
  std::string start;
  std::string end;
};

TEST_F(AlertTest, ValuesThatAreTooLongGiveWayToTheFieldsThatTheArrayReads) {
  const std::wstring wide(5000, L'w');
  const std::string narrow(5000, 'n');
  const std::vector<LongRecord> records = {
      {2048, FormatAlert(alert::kComError, {"f()", wide}), "f()=Failed, error=www",
       "www..., rc=COMMError, ca=ContactTechSupport;"},
      {2048, FormatAlert(alert::kWriterFailure, {wide, wide, wide, 1, wide}),
       "RequestStatus=WriterFailure, WriterName=", ", rc=VssWriterStatusError, ca=CheckWriterState;\n"},
      {2048, FormatAlert(alert::kComponentFailure, {L"c", L"e", 1, wide}),
       "RequestStatus=ComponentLevelFailure, Component=c, ComponentLevelError=e, ApplicationError=0x1, "
       "ApplicationMsg=www",
       "www..., rc=VssPartialWriterError, ca=CheckWriterState;\n"},
      {2048, FormatAlert(alert::kDiskSerialNumber, {wide}),
       "RequestStatus=GetDiskSerialNumberForVolume()_failed, rc=SystemError, error=www",
       "www..., ca=ContactTechSupport;\n"},
      {2048, FormatAlert(alert::kQueryStatus, {narrow, wide}),
       "RequestStatus=QueryStatus(), Function=", ", rc=SystemError, ca=ContactSupport"},
      {2048, FormatAlert(alert::kAddComponentFailed, {wide}), "status=AddComponentFailed, Component=www",
       "www..., rc=ConfigError, ca=CheckVolumeCollection, ca=CheckHostsVolumes"},
      {1024, FormatAlert(alert::kValidationException, {wide}),
       "Error, status=TesselHyperVValidation_Exception, ErrMsg=www",
       "www..., rc=ConfigError, ca=CheckVolumeCollection"},
  };
  for (const LongRecord& record : records) {
    EXPECT_LE(record.text.size(), record.bytes - 1);
    EXPECT_THAT(record.text, StartsWith(record.start));
    EXPECT_THAT(record.text, EndsWith(record.end));
  }
}

TEST_F(AlertTest, TheLongestValueGivesWayFirst) {
  const std::wstring name(300, L'n');
  const std::string record = FormatAlert(alert::kWriterFailure, {name, L"e", L"s", 1, std::wstring(3000, L'm')});
  EXPECT_EQ(record.size(), 2047u);
  EXPECT_THAT(record, HasSubstr("WriterName=" + std::string(300, 'n') + ", WriterError=e"));
  EXPECT_THAT(record, HasSubstr("mm..., rc="));
}

TEST_F(AlertTest, ALongCallStaysWholeWhileTheErrorTextCanGiveWay) {
  const std::string call(1500, 'c');
  const std::string record = FormatAlert(alert::kComError, {call, std::wstring(1000, L'e')});
  EXPECT_LE(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith(call + "=Failed, error=eee"));
  EXPECT_THAT(record, EndsWith("e..., rc=COMMError, ca=ContactTechSupport;"));
}

TEST_F(AlertTest, ACallThatAloneIsTooLongIsShortenedToo) {
  const std::string record = FormatAlert(alert::kComError, {std::string(5000, 'c'), L"E_FAIL"});
  EXPECT_LE(record.size(), 2047u);
  EXPECT_THAT(record, StartsWith("ccc"));
  EXPECT_THAT(record, HasSubstr("c...=Failed, error="));
  EXPECT_THAT(record, EndsWith(", rc=COMMError, ca=ContactTechSupport;"));
}

TEST_F(AlertTest, ATextThatIsNoLongerThanTheDotsStaysWhole) {
  const std::string call(5000, 'c');
  for (const std::size_t length : {0u, 1u, 2u, 3u}) {
    const std::string end = "...=Failed, error=" + std::string(length, 'e') + ", rc=COMMError, ca=ContactTechSupport;";
    EXPECT_EQ(FormatAlert(alert::kComError, {call, std::wstring(length, L'e')}),
              std::string(2047 - end.size(), 'c') + end);
  }
  EXPECT_THAT(FormatAlert(alert::kComError, {call, L"eeee"}), HasSubstr("c...=Failed, error=..., rc=COMMError"));
}

TEST_F(AlertTest, ACharacterIsNeverCutInHalf) {
  for (const std::wstring& character :
       {std::wstring(L"\u00E9"), std::wstring(L"\u65E5"), std::wstring(L"\U0001F680")}) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      std::wstring value(shift, L'x');
      for (int i = 0; i < 3000; ++i) value += character;
      for (const AlertRecord* record : {&alert::kAddComponentFailed, &alert::kValidationException}) {
        const std::string text = FormatAlert(*record, {value});
        EXPECT_NO_THROW(Utf8ToWide(text));
        EXPECT_LE(text.size(), record->bytes - 1);
        EXPECT_GE(text.size(), record->bytes - 4);
        EXPECT_THAT(text, Not(HasSubstr("\xEF\xBF\xBD")));
      }
    }
  }
}

TEST_F(AlertTest, AnUnreadableCharacterIsReplaced) {
  const std::wstring broken = {L'a', static_cast<wchar_t>(0xDC00), L'b'};
  EXPECT_THAT(FormatAlert(alert::kAddComponentFailed, {broken}), HasSubstr("Component=a\xEF\xBF\xBD"
                                                                           "b, rc="));
}

TEST_F(AlertTest, TheShortenedRecordIsWhatIsLoggedAndAppended) {
  std::string details;
  WriteAlert(alert::kAddComponentFailed, {std::wstring(5000, L'x')}, details);
  EXPECT_EQ(details.size(), 2047u + 2);
  ASSERT_THAT(log.lines, SizeIs(1));
  EXPECT_EQ("  " + details, log.lines[0].text + ";\n");
}

TEST_F(AlertTest, TheConfigurationChecksOfHyperVHaveTheSmallerBuffer) {
  EXPECT_EQ(FormatAlert(alert::kValidationException, {std::wstring(5000, L'x')}).size(), 1023u);
  EXPECT_EQ(FormatAlert(alert::kAddComponentFailed, {std::wstring(5000, L'x')}).size(), 2047u);
}

}  // namespace
}  // namespace varnel::test
