// Requests of the C interface on a simulated host.
#pragma once

#include <string>
#include <vector>

#include "c/varnel-c.h"
#include "tests/support/host_fixture.h"

namespace varnel::test {

/// A host with one writer, two databases and two disks of the array.
class CInterfaceFixture : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(
        L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"}), MakeComponent(L"mail", L"größe", {L"F:\\db2"})})};
    model.writers[0].excludeFiles = {{L"E:\\temporary", L"*.tmp"}};
    Install(std::move(model));
  }
  void TearDown() override {
    for (varnel_request* request : requests_) varnel_request_free(request);
    HostFixture::TearDown();
  }

  varnel_request* Make(varnel_request_options options = {}) {
    options.size = sizeof options;
    varnel_request* request = nullptr;
    EXPECT_EQ(varnel_request_create(&options, &request), VARNEL_DONE);
    requests_.push_back(request);
    return request;
  }
  /// With both disks, unless others are named, and initialized.
  varnel_request* MakeReady(varnel_request_options options = {},
                            const std::vector<const char*>& disks = {"TSL0001", "TSL0002"}) {
    varnel_request* request = Make(options);
    EXPECT_EQ(varnel_request_add_disks(request, disks.data(), disks.size()), VARNEL_DONE);
    EXPECT_EQ(varnel_request_initialize(request), VARNEL_DONE);
    return request;
  }
  varnel_request* MakeTaken(varnel_request_options options = {}) {
    varnel_request* request = MakeReady(options);
    EXPECT_EQ(varnel_request_snapshot(request), VARNEL_DONE);
    return request;
  }

  static varnel_outcome OutcomeOf(varnel_request* request) {
    varnel_outcome outcome = {};
    outcome.size = sizeof outcome;
    EXPECT_EQ(varnel_request_get_outcome(request, &outcome), VARNEL_DONE);
    EXPECT_EQ(outcome.size, sizeof outcome);
    return outcome;
  }
  static std::vector<std::string> DetailsOf(const varnel_outcome& outcome) {
    return {outcome.details, outcome.details + outcome.detail_count};
  }
  /// What one of the functions answers that give a text.
  static std::string TextOf(varnel_request* request, int (*question)(varnel_request*, const char**)) {
    const char* text = nullptr;
    EXPECT_EQ(question(request, &text), VARNEL_DONE);
    return text;
  }
  static std::size_t CountOf(varnel_request* request, int (*question)(varnel_request*, std::size_t*)) {
    std::size_t count = 0;
    EXPECT_EQ(question(request, &count), VARNEL_DONE);
    return count;
  }

 private:
  std::vector<varnel_request*> requests_;
};

}  // namespace varnel::test
