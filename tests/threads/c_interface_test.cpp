// The C interface on several threads: each with requests of its own, and all of them with one.
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/c/c_fixture.h"

namespace varnel::test {
namespace {

constexpr std::size_t kThreads = 4;

class CThreads : public CInterfaceFixture {
 protected:
  template <class Action>
  static void OnEachThread(Action action) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) threads.emplace_back([&action, i] { action(i); });
    for (std::thread& thread : threads) thread.join();
  }
};

TEST_F(CThreads, EachThreadHasRequestsOfItsOwn) {
  std::atomic<int> lines{0};
  const auto count = [](void* user, int, const char*, int, const char*) { ++*static_cast<std::atomic<int>*>(user); };
  ASSERT_EQ(varnel_set_log(count, &lines, VARNEL_LOG_VERBOSE), VARNEL_DONE);
  std::array<int, kThreads> taken{};
  OnEachThread([&](std::size_t thread) {
    for (int round = 0; round < 5; ++round) {
      varnel_request* request = nullptr;
      ASSERT_EQ(varnel_request_create(nullptr, &request), VARNEL_DONE);
      const char* const disks[] = {"TSL0001", "TSL0002"};
      EXPECT_EQ(varnel_request_add_disks(request, disks, 2), VARNEL_DONE);
      EXPECT_EQ(varnel_request_initialize(request), VARNEL_DONE);
      // The service takes one set at a time.
      const int code = varnel_request_snapshot(request);
      EXPECT_TRUE(code == VARNEL_DONE || OutcomeOf(request).hresult == VSS_E_SNAPSHOT_SET_IN_PROGRESS);
      taken[thread] += code == VARNEL_DONE ? 1 : 0;
      EXPECT_EQ(varnel_request_complete(request, OutcomeOf(request).backup_status), VARNEL_DONE);
      EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
    }
  });
  EXPECT_EQ(varnel_set_log(nullptr, nullptr, 0), VARNEL_DONE);
  EXPECT_GT(lines, 0);
  EXPECT_GT(taken[0] + taken[1] + taken[2] + taken[3], 0);
}

TEST_F(CThreads, TheOneThatFightsForARequestGetsACode) {
  for (int round = 0; round < 10; ++round) {
    varnel_request* request = nullptr;
    ASSERT_EQ(varnel_request_create(nullptr, &request), VARNEL_DONE);
    std::atomic<int> freed{0};
    OnEachThread([&](std::size_t thread) {
      for (int i = 0; i < 50; ++i) {
        int found = 0;
        varnel_request_find_provider(request, &found);
        std::size_t count = 0;
        varnel_request_get_writer_count(request, &count);
        if (thread == 0 && i == 40) freed += varnel_request_free(request) == VARNEL_DONE ? 1 : 0;
      }
    });
    if (freed == 0) EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
    EXPECT_EQ(varnel_request_free(request), VARNEL_BAD_HANDLE);
  }
}

TEST_F(CThreads, TheLogFunctionComesAndGoesWhileLinesAreWritten) {
  std::atomic<bool> isDone{false};
  std::thread writer([&] {
    varnel_request* request = MakeTaken();
    varnel_request_complete(request, 0);
    isDone = true;
  });
  int lines = 0;  // nobody else writes it, and nobody writes it after the function was taken away
  const auto count = [](void* user, int, const char*, int, const char*) { ++*static_cast<int*>(user); };
  do {
    EXPECT_EQ(varnel_set_log(count, &lines, VARNEL_LOG_VERBOSE), VARNEL_DONE);
    EXPECT_EQ(varnel_set_log(nullptr, nullptr, 0), VARNEL_DONE);
    lines = 0;
  } while (!isDone);
  writer.join();
}

}  // namespace
}  // namespace varnel::test
