// Request texts from anywhere: the writer code is what the rule says, and a code that is no number is refused with one
// error line.
// Input: the request text.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/varnel.h"
#include "fuzz/fuzz_support.h"
#include "tests/support/recording_log.h"
#include "tests/support/requestor_probe.h"

namespace {

using varnel::RequestorProbe;
using varnel::fuzz::Require;

// The rule, told from the word instead of from the fields: no field is split by it.
std::string ExpectedCode(const std::string& text) {
  const std::size_t word = text.find("writer");
  if (word == text.npos) return {};
  const std::size_t comma = text.rfind(',', word);
  const std::size_t begin = comma == text.npos ? 0 : comma + 1;
  const std::string field = text.substr(begin, text.find(',', word) - begin);
  const std::size_t equals = field.find('=');
  return equals == field.npos ? field : field.substr(equals + 1);
}

enum class Reading { number, noNumber, outOfRange };

struct CodeNumber {
  Reading reading = Reading::number;
  long value = 0;
};

CodeNumber Read(const std::string& code) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(code.c_str(), &end, 10);
  if (end == code.c_str()) return {Reading::noNumber, 0};
  const bool inRange = value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
  return {errno == ERANGE || !inRange ? Reading::outOfRange : Reading::number, value};
}

// Whether a component passes under the held code; nothing when the code is refused.
std::optional<bool> Passes(RequestorProbe& probe, const std::set<std::wstring>& named, Reading expected) {
  try {
    return probe.checkComponents(named, L"\\HOST\\Sales");
  } catch (const std::out_of_range&) {
    Require(expected == Reading::outOfRange, "only a number that is too large is out of range");
  } catch (const std::invalid_argument&) {
    Require(expected == Reading::noNumber, "only what is no number is an invalid argument");
  }
  return std::nullopt;
}

// Made once; an input changes the code and the log.
struct Agent {
  varnel::test::RecordingLog log;
  varnel::ScopedLog scopedLog{log};
  CVarnel requestor{0};
  RequestorProbe probe{requestor};
};

void CheckNumber(Agent& agent, const std::string& code) {
  const CodeNumber number = Read(code);
  agent.log.lines.clear();
  const std::optional<bool> none = Passes(agent.probe, {}, number.reading);
  Require(none.has_value() == (number.reading == Reading::number), "what is no number is refused");
  Require(agent.log.Errors().size() == (none ? 0U : 1U), "a refusal leaves one error line");
  if (!none) return;
  const bool namesDatabases = number.value >= 2 && number.value <= 4;
  Require(*none != namesDatabases, "with 2, 3 and 4 only named components pass");
  Require(Passes(agent.probe, {L"\\host\\sales"}, number.reading) == true, "a named component passes");
  Require(Passes(agent.probe, {L"ALL_DB"}, number.reading) == true, "with all databases every component passes");
  Require(Passes(agent.probe, {L"\\host\\crm"}, number.reading) != namesDatabases, "another name does not count");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Agent agent;
  const std::string text(varnel::fuzz::Input(data, size).Rest());
  const std::string code = agent.probe.parseWriterCode(text);
  Require(code == ExpectedCode(text), "the code stands after the first equals sign of the first field with the word");
  Require(agent.probe.getWriterCode() == code, "the code is kept");
  Require(agent.log.lines.size() == 1, "the code is logged once");
  CheckNumber(agent, code);
  Require(agent.probe.parseWriterCode("host=a,writer=" + code + ",x=1") == code,
          "a code is read back from its own field");
  agent.probe.setWriterCode("");
  agent.log.lines.clear();
  return 0;
}
