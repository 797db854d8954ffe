// The C interface without memory: a whole request again and again, each time with another request for memory that
// fails, once or from then on. Every function returns a code all the same, and nothing is left behind.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "c/varnel-c.h"
#include "simulator/simulated_host.h"
#include "tests/faults/failing_memory.h"
#include "tests/faults/guarded_host.h"
#include "tests/faults/sample.h"
#include "tests/support/host_fixture.h"
#include "tests/support/host_model.h"

namespace varnel::test {
namespace {

struct CShortage {
  int request = 0;
  bool persistent = false;
};

// The codes of one request, in the order of its functions.
class CMemoryRun {
 public:
  explicit CMemoryRun(const CShortage& shortage) : host_(Model()), guarded_(host_, texts_) { Run(shortage); }

  int requests = 0;
  bool fired = false;
  std::array<int, 16> codes{};
  std::size_t count = 0;
  std::string left;

 private:
  void Run(const CShortage& shortage) {
    const ScopedHost current(guarded_);
    memory::FailNth(shortage.request, shortage.persistent);
    {
      const memory::Armed armed;
      Request();
    }
    requests = memory::Requests();
    fired = memory::Fired();
    memory::FailNth(0, false);
    left = host_.live().Describe();
  }

  static simulator::HostModel Model() {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
    return model;
  }

  int Note(int code) { return codes[count++] = code; }

  void Request() {
    varnel_request* request = nullptr;
    if (Note(varnel_request_create(nullptr, &request)) != VARNEL_DONE) return;
    const char* const disk = "TSL0001";
    const bool isTaken = Note(varnel_request_add_disks(request, &disk, 1)) == VARNEL_DONE &&
                         Note(varnel_request_initialize(request)) == VARNEL_DONE &&
                         Note(varnel_request_snapshot(request)) == VARNEL_DONE;
    varnel_outcome outcome = {};
    outcome.size = sizeof outcome;
    Note(varnel_request_get_outcome(request, &outcome));
    if (isTaken) ReadResults(request);
    Note(varnel_request_complete(request, outcome.backup_status));
    Note(varnel_request_free(request));
  }

  void ReadResults(varnel_request* request) {
    const char* text = "";
    Note(varnel_request_get_set_id(request, &text));
    Note(varnel_request_get_document(request, &text));
    varnel_component component = {};
    component.size = sizeof component;
    Note(varnel_request_get_component(request, 0, 0, &component));
    Note(varnel_request_read_catalog(request));
  }

  TextShortage texts_{0, false};
  simulator::SimulatedHost host_;
  GuardedHost guarded_;
};

// What is wrong with the run.
void Check(const CMemoryRun& run) {
  EXPECT_TRUE(run.fired);
  EXPECT_EQ(run.left, "");
  for (std::size_t i = 0; i < run.count; ++i) {
    EXPECT_STRNE(varnel_code_text(run.codes[i]), "no code of this library") << run.codes[i];
  }
}

TEST(CMemorySweep, EveryFunctionReturnsACodeAndNothingIsLeft) {
  [[maybe_unused]] const CMemoryRun first({});  // makes what is made once for the process
  const int requests = CMemoryRun({}).requests;
  ASSERT_GT(requests, 100);
  std::vector<CShortage> shortages;
  for (int n = 1; n <= requests; ++n) shortages.insert(shortages.end(), {{n, false}, {n, true}});
  Sample sample;
  long refused = 0;
  for (const CShortage& shortage : sample.Of(shortages)) {
    SCOPED_TRACE("request " + std::to_string(shortage.request) + (shortage.persistent ? " and later" : ""));
    const long before = memory::LiveBlocks();
    {
      const CMemoryRun run(shortage);
      Check(run);
      refused += std::count(run.codes.begin(), run.codes.end(), VARNEL_NO_MEMORY);
    }
    EXPECT_EQ(memory::LiveBlocks(), before);
  }
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace varnel::test
