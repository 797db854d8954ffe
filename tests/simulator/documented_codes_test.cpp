// Every code that the platform documents for a call is reached here, by itself or by a fault of the host file, and
// docs/simulator.md says how. With the environment variable VARNEL_UPDATE_GOLDEN set, the page's table is rewritten.
#include "tests/simulator/documented_codes.h"
#include "simulator/machine/call_names.h"
#include "tests/support/golden.h"

namespace varnel::test {
namespace {

constexpr char kBegin[] = "<!-- The table is made by documented_codes_test. -->\n";
constexpr char kEnd[] = "<!-- The end of the table. -->\n";

// The faults of a host file that has this entry.
simulator::Faults FaultOf(const std::string& entry) {
  return simulator::ParseHostFile(R"({"disks": [], "faults": [)" + entry + "]}", "h", {}).faults;
}

std::string Entry(const char* kind, const std::string& name, HRESULT result) {
  return std::string("{\"") + kind + "\": \"" + name + "\", \"occurrence\": 0, \"result\": \"" + ResultName(result) +
         "\"}";
}

class DocumentedCodes : public ShadowCopyService {
 protected:
  void ExpectByItself(const std::string& name, const Reached& reached) {
    SCOPED_TRACE(name + " " + reached.how);
    Install(reached.host());
    EXPECT_THAT(reached.prepare()(), Gives(reached.code));
  }

  void ExpectByCallFault(const DocumentedCall& call, HRESULT code) {
    SCOPED_TRACE(call.name + " " + ResultName(code));
    Install(call.byItself.at(0).host());
    const Made made = call.byItself.at(0).prepare();
    const simulator::CallFault fault = FaultOf(Entry("call", call.name, code)).calls.at(0);
    host().faults().FailCall(fault.call, fault.result, fault.occurrence);
    EXPECT_THAT(made(), Gives(code));
  }

  void ExpectByAsyncFault(const DocumentedAsync& async, HRESULT code) {
    SCOPED_TRACE(async.name + " " + ResultName(code));
    Install(VssHost());
    const Made made = async.byItself.at(0).prepare();
    const simulator::AsyncFault fault = FaultOf(Entry("async", async.name, code)).asyncs.at(0);
    host().faults().FailAsync(fault.async, fault.result, fault.occurrence);
    EXPECT_THAT(made(), Gives(code));
  }
};

TEST_F(DocumentedCodes, OfEveryCallAreReached) {
  for (const auto& calls : {BackupCalls(), ObjectCalls()}) {
    for (const DocumentedCall& call : calls) {
      for (const Reached& reached : call.byItself) ExpectByItself(call.name, reached);
      for (const HRESULT code : call.byFault) ExpectByCallFault(call, code);
    }
  }
}

TEST_F(DocumentedCodes, OfEveryOperationAreReached) {
  for (const DocumentedAsync& async : Asyncs()) {
    for (const Reached& reached : async.byItself) ExpectByItself(async.name, reached);
    for (const HRESULT code : async.byFault) ExpectByAsyncFault(async, code);
  }
}

// The failures that a writer may report.
constexpr HRESULT kWriterFailures[] = {VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT,
                                       VSS_E_WRITERERROR_OUTOFRESOURCES,
                                       VSS_E_WRITERERROR_TIMEOUT,
                                       VSS_E_WRITERERROR_RETRYABLE,
                                       VSS_E_WRITERERROR_NONRETRYABLE,
                                       VSS_E_WRITERERROR_PARTIAL_FAILURE,
                                       VSS_E_WRITER_NOT_RESPONDING,
                                       VSS_E_WRITER_STATUS_NOT_AVAILABLE};

TEST_F(DocumentedCodes, OfEveryWriterAreReached) {
  for (const Reached& reached : WriterFailures()) ExpectByItself("writer", reached);
  for (const HRESULT failure : kWriterFailures) {
    SCOPED_TRACE(ResultName(failure));
    Install(VssHost());
    FailWriter(WriterEvent::postSnapshot, failure);
    EXPECT_THAT(Backup(Phase::snapshotDone).Statuses().at(0).failure, Gives(failure));
  }
}

std::string Code(const std::string& text) {
  return "`" + text + "`";
}

std::string Row(const std::string& name, const std::string& codes, const std::string& how) {
  return "| " + Code(name) + " | " + codes + " | " + how + " |\n";
}

template <class Codes>
std::string ListOf(const Codes& codes) {
  std::string list;
  for (const HRESULT code : codes) list += (list.empty() ? "" : ", ") + Code(ResultName(code));
  return list;
}

template <class Documented>
std::string RowsOf(const Documented& documented, const std::string& fault) {
  std::string rows;
  for (const Reached& reached : documented.byItself) {
    rows += Row(documented.name, Code(ResultName(reached.code)), reached.how);
  }
  if (!documented.byFault.empty()) rows += Row(documented.name, ListOf(documented.byFault), fault);
  return rows;
}

std::string Table() {
  std::string table = "\n| call | code | how it is reached |\n|---|---|---|\n";
  for (const auto& calls : {BackupCalls(), ObjectCalls()}) {
    for (const DocumentedCall& call : calls) table += RowsOf(call, "a `call` fault");
  }
  table += "\n| operation | status | how it is reached |\n|---|---|---|\n";
  for (const DocumentedAsync& async : Asyncs()) table += RowsOf(async, "an `async` fault");
  table += "\n| writer | failure | how it is reached |\n|---|---|---|\n";
  for (const Reached& reached : WriterFailures()) {
    table += "| by itself | " + Code(ResultName(reached.code)) + " | " + reached.how + " |\n";
  }
  table += "| every one | " + ListOf(kWriterFailures) + " | a `writer` fault |\n\n";
  return table;
}

TEST(DocumentedCodesPage, TellsHowEveryCodeIsReached) {
  const std::filesystem::path page = std::filesystem::path(VARNEL_DOCS_DIR) / "simulator.md";
  std::string text = ReadText(page);
  const std::size_t begin = text.find(kBegin);
  const std::size_t end = text.find(kEnd);
  ASSERT_NE(begin, text.npos);
  ASSERT_NE(end, text.npos);
  const std::size_t table = begin + std::string(kBegin).size();
  CompareWithGolden(page, text.replace(table, end - table, Table()));
}

TEST(DocumentedCodesPage, NamesNoCallThatTheFaultPlanDoesNotKnow) {
  const auto names = simulator::CallNames();
  for (const auto& calls : {BackupCalls(), ObjectCalls()}) {
    for (const DocumentedCall& call : calls) {
      EXPECT_NE(std::find(names.begin(), names.end(), call.name), names.end()) << call.name;
    }
  }
}

}  // namespace
}  // namespace varnel::test
