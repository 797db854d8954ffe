// Runs varnelctl in the test's own process and looks at its status, its text and its JSON documents.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/host_fixture.h"
#include "tests/support/random.h"
#include "tests/varnelctl/document_schema.h"
#include "varnelctl/console/text.h"
#include "varnelctl/run.h"

namespace varnel::test {

using varnelctl::PathOf;

using Arguments = std::vector<std::string>;

struct CliResult {
  int status;
  std::string out;
  std::string err;         ///< without the next step
  std::string next;        ///< what to do about the failure, and what to ask `varnelctl explain`
  bool wantsJson = false;  ///< --json was asked for
};

/// The documents in the output, by their order: one over many lines, or one a line. None in any other text.
inline std::vector<nlohmann::json> DocumentsIn(const std::string& out) {
  if (!out.starts_with('{')) return {};
  if (out.starts_with("{\n")) return {nlohmann::json::parse(out)};
  std::vector<nlohmann::json> documents;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) documents.push_back(nlohmann::json::parse(line));
  return documents;
}

/// Takes the lines of the next step out of `err`.
inline std::string TakeNextStep(std::string& err) {
  std::istringstream lines(std::exchange(err, std::string()));
  std::string next;
  bool isNext = false;
  for (std::string line; std::getline(lines, line);) {
    const bool isLast = line.starts_with("  next: varnelctl explain ");
    isNext = isNext || isLast || line.starts_with("  what to do: ");  // a terminal's width may break the lines
    (isNext ? next : err) += line + (lines.eof() ? "" : "\n");
    if (isLast) isNext = false;
  }
  return next;
}

inline CliResult MakeResult(int status, std::string out, std::string err, bool wantsJson = false) {
  std::string next = TakeNextStep(err);
  return {status, std::move(out), std::move(err), std::move(next), wantsJson};
}

/// Every document that is printed is as the schema says.
inline CliResult RunCli(Arguments arguments, varnelctl::InterruptionSource interruption = {},
                        const varnelctl::Terminals& terminals = {}) {
  std::ostringstream out;
  std::ostringstream err;
  const bool wantsJson = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  const int status = varnelctl::RunVarnelctl(std::move(arguments), out, err, terminals, std::move(interruption));
  for (const nlohmann::json& document : DocumentsIn(out.str())) {
    EXPECT_THAT(SchemaErrors(document), testing::IsEmpty());
  }
  return MakeResult(status, out.str(), err.str(), wantsJson);
}

/// Nothing on standard output but, where one was asked for, the document of the failure.
inline void ExpectOnlyTrouble(const CliResult& result) {
  if (!result.wantsJson) {
    EXPECT_EQ(result.out, "");
    return;
  }
  const nlohmann::json document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document.at("kind"), "failure");
  EXPECT_EQ(document.at("status"), result.status);
  EXPECT_THAT(result.err, testing::HasSubstr("varnelctl: " + document.at("result").at("message").get<std::string>()));
}

/// Status 2, one line that starts and ends so, and nothing else.
inline void ExpectRefused(const CliResult& result, const std::string& start, const std::string& end = "\n") {
  EXPECT_EQ(result.status, 2);
  ExpectOnlyTrouble(result);
  EXPECT_THAT(result.err, testing::AllOf(testing::StartsWith(start), testing::EndsWith(end)));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

inline std::string ReadFile(const std::string& argument) {
  std::ifstream file(PathOf(argument), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A new folder, removed with everything in it. Files are named as arguments of varnelctl.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() / (std::string("varnelctl-") + test->name());
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string File(const std::string& name) const {
    const std::u8string path = (path_ / PathOf(name)).u8string();
    return {path.begin(), path.end()};
  }
  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / PathOf(name), std::ios::binary) << text;
    return File(name);
  }

 private:
  std::filesystem::path path_;
};

/// varnelctl on the fixture's host; on that of a host file where `hostFile` is the document of one.
class CliFixture : public HostFixture {
 protected:
  CliResult Run(Arguments arguments, varnelctl::InterruptionSource interruption = {}) {
    if (!hostFile.is_null())
      arguments.insert(arguments.begin(), {"--host", folder.Write("host.json", hostFile.dump())});
    return RunCli(std::move(arguments), std::move(interruption));
  }
  /// The text of a run without any trouble.
  std::string Output(Arguments arguments) {
    const CliResult result = Run(std::move(arguments));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }
  /// The document of a run that ends so; `err` has what it says of trouble.
  nlohmann::json Document(Arguments arguments, int status = 0, varnelctl::InterruptionSource interruption = {}) {
    arguments.emplace_back("--json");
    const CliResult result = Run(std::move(arguments), std::move(interruption));
    EXPECT_EQ(result.status, status) << result.err;
    err = result.err;
    return nlohmann::json::parse(result.out);
  }
  void Fail(const std::string& call, HRESULT result, int nth = 1) {
    host().faults().FailCall(call, static_cast<DWORD>(result), nth);
  }
  /// Runs this again and again on `model`, each time with another call that fails, until the run has fewer calls: with
  /// every call, or where sweeps make a sample of their runs (VARNEL_SAMPLE) with every fifth.
  /// Nothing may stay behind or be given back wrongly; `check` looks at the rest of each run.
  template <class Check>
  void FailEachCall(const simulator::HostModel& model, const Arguments& arguments, Check check) {
    constexpr int kMoreThanAnyRun = 2000;
    const int step = EnvironmentNumber("VARNEL_SAMPLE").value_or(1) > 1 ? 5 : 1;
    const int first = 1 + static_cast<int>(EnvironmentNumber("VARNEL_SAMPLE_SEED").value_or(0)) % step;
    for (int n = first; n < kMoreThanAnyRun; n += step) {
      Install(model).faults().FailNthCall(n, static_cast<DWORD>(E_FAIL));
      const CliResult result = Run(arguments);

      SCOPED_TRACE("call " + std::to_string(n) + ": " + host().faults().firedAt());
      EXPECT_EQ(host().live().Describe(), "");
      EXPECT_THAT(host().live().misuses(), IsEmpty());
      EXPECT_THAT(result.err, testing::AnyOf(testing::StartsWith("varnelctl: "), IsEmpty()));
      const bool fired = host().faults().fired();
      check(result);
      if (fired) continue;
      EXPECT_EQ(result.status, 0);
      return;
    }
    FAIL() << "the run never came to its end";
  }
  std::vector<std::string> CallsOf(const std::string& call) { return host().calls().Of(call); }

  TemporaryFolder folder;
  nlohmann::json hostFile;
  std::string err;
};

}  // namespace varnel::test
