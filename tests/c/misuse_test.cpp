// Wrong calls of the C interface: a code, and nothing else.
#include <thread>

#include "tests/c/c_fixture.h"

namespace varnel::test {
namespace {

class CMisuse : public CInterfaceFixture {};

// Every function that takes nothing but a request.
constexpr int (*kOperations[])(varnel_request*) = {
    varnel_request_validate_host, varnel_request_initialize,   varnel_request_gather, varnel_request_snapshot,
    varnel_request_verify,        varnel_request_read_catalog, varnel_request_break,  varnel_request_mask,
    varnel_request_delete,        varnel_request_disconnect};

varnel_request* HandleOf(std::uintptr_t number) {
  return reinterpret_cast<varnel_request*>(number);  // NOLINT(performance-no-int-to-ptr): no address
}

TEST_F(CMisuse, WhatIsNoRequestIsKnownAsSuch) {
  int local = 0;
  for (varnel_request* handle :
       {HandleOf(0), HandleOf(1U << 30), HandleOf(~std::uintptr_t{0}), reinterpret_cast<varnel_request*>(&local)}) {
    for (const auto operation : kOperations) EXPECT_EQ(operation(handle), VARNEL_BAD_HANDLE);
    EXPECT_EQ(varnel_request_free(handle), VARNEL_BAD_HANDLE);
    EXPECT_EQ(varnel_request_complete(handle, 0), VARNEL_BAD_HANDLE);
    varnel_outcome outcome = {};
    EXPECT_EQ(varnel_request_get_outcome(handle, &outcome), VARNEL_BAD_HANDLE);
  }
}

TEST_F(CMisuse, ARequestIsFreedOnce) {
  varnel_request* request = Make();
  EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_free(request), VARNEL_BAD_HANDLE);
  EXPECT_NE(Make(), request) << "its handle is not given out again";
  EXPECT_EQ(varnel_request_initialize(request), VARNEL_BAD_HANDLE);
}

TEST_F(CMisuse, OptionsOfAnotherSizeAreRefused) {
  varnel_request_options options = {};
  varnel_request* request = HandleOf(1);
  for (const std::size_t size : {std::size_t{0}, sizeof options - 1, sizeof options + 1, ~std::size_t{0}}) {
    options.size = size;
    EXPECT_EQ(varnel_request_create(&options, &request), VARNEL_BAD_VERSION);
    EXPECT_EQ(request, nullptr);
  }
  EXPECT_EQ(varnel_request_create(&options, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_create(nullptr, &request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
}

TEST_F(CMisuse, AStructureThatIsTooSmallIsNotFilledAndALargerOneIsFilledAsFarAsItIsKnown) {
  varnel_request* request = Make();
  struct {
    varnel_outcome known;
    long later;
  } outcome = {{}, 42};
  outcome.known.size = sizeof outcome.known - 1;
  EXPECT_EQ(varnel_request_get_outcome(request, &outcome.known), VARNEL_BAD_VERSION);
  EXPECT_EQ(outcome.known.message, nullptr);
  outcome.known.size = sizeof outcome;
  EXPECT_EQ(varnel_request_get_outcome(request, &outcome.known), VARNEL_DONE);
  EXPECT_EQ(outcome.known.size, sizeof outcome.known);
  EXPECT_EQ(outcome.later, 42);
}

TEST_F(CMisuse, OptionsThatMeanNothingAreRefused) {
  varnel_request* request = nullptr;
  const auto create = [&](auto change) {
    varnel_request_options options = {};
    options.size = sizeof options;
    change(options);
    return varnel_request_create(&options, &request);
  };
  EXPECT_EQ(create([](auto& options) { options.application = 4; }), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(create([](auto& options) { options.backup_type = 7; }), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(create([](auto& options) { options.backup_type = -1; }), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(create([](auto& options) { options.provider_id = "tessel"; }), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(create([](auto& options) { options.provider_id = "\xff"; }), VARNEL_BAD_TEXT);
  EXPECT_EQ(create([](auto& options) { options.document = "\xc3("; }), VARNEL_BAD_TEXT);
}

TEST_F(CMisuse, TextsThatAreNotUtf8AreRefused) {
  varnel_request* request = Make();
  const char* const texts[] = {"TSL0001", "\xc3("};
  EXPECT_EQ(varnel_request_add_disks(request, texts, 2), VARNEL_BAD_TEXT);
  EXPECT_EQ(OutcomeOf(request).code, VARNEL_BAD_TEXT);
  EXPECT_EQ(varnel_request_validate_volumes(request, texts, 2), VARNEL_BAD_TEXT);
  EXPECT_EQ(varnel_request_set_provider(request, "\x80"), VARNEL_BAD_TEXT);
  int found = 0;
  EXPECT_EQ(varnel_request_find_disk(request, "\xf8", &found), VARNEL_BAD_TEXT);
}

TEST_F(CMisuse, NullPointersAreRefused) {
  varnel_request* request = Make();
  const char* const nothing[] = {nullptr};
  EXPECT_EQ(varnel_request_add_disks(request, nullptr, 1), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_add_disks(request, nothing, 1), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_add_disks(request, nothing, 0), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_find_provider(request, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_THAT(Calls("IVssAdmin::QueryProviders"), IsEmpty()) << "nothing is asked for an answer that nobody takes";
  EXPECT_EQ(varnel_request_read_disks(request, nullptr, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_get_outcome(request, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_get_set_id(request, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_get_writer_count(request, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(varnel_request_get_writer(request, 0, nullptr), VARNEL_BAD_ARGUMENT);
  EXPECT_EQ(OutcomeOf(request).code, VARNEL_BAD_ARGUMENT);
}

TEST_F(CMisuse, NothingIsDoneOutOfOrder) {
  varnel_request* request = Make();
  for (const auto operation :
       {varnel_request_gather, varnel_request_snapshot, varnel_request_verify, varnel_request_break,
        varnel_request_mask, varnel_request_delete, varnel_request_disconnect}) {
    EXPECT_EQ(operation(request), VARNEL_BAD_ORDER);
    EXPECT_STRNE(OutcomeOf(request).message, "");
  }
  EXPECT_EQ(varnel_request_complete(request, 0), VARNEL_BAD_ORDER);
  EXPECT_THAT(host().calls().lines(), IsEmpty());
  const char* const disk = "TSL0001";
  EXPECT_EQ(varnel_request_add_disks(request, &disk, 1), VARNEL_DONE);
  EXPECT_EQ(varnel_request_initialize(request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_initialize(request), VARNEL_BAD_ORDER);
  int found = 0;
  EXPECT_EQ(varnel_request_find_writer(request, &found), VARNEL_BAD_ORDER);
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_snapshot(request), VARNEL_BAD_ORDER);
  EXPECT_EQ(varnel_request_add_disks(request, &disk, 1), VARNEL_BAD_ORDER);
  EXPECT_EQ(varnel_request_complete(request, 0), VARNEL_DONE);
  EXPECT_EQ(varnel_request_complete(request, 0), VARNEL_BAD_ORDER);
}

TEST_F(CMisuse, ARequestThatIsFreedUncompletedHoldsNothing) {
  varnel_request* request = MakeTaken();
  EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
  ExpectNothingLive();
}

// What the log function tries while the request is at work.
struct Intruder {
  varnel_request* request = nullptr;
  int sameThread = -1;
  int otherThread = -1;
  int freed = -1;
  int log = -1;
};

TEST_F(CMisuse, ARequestInUseIsBusyForEverybody) {
  Intruder intruder;
  intruder.request = Make();
  const auto tell = [](void* user, int, const char*, int, const char*) {
    auto& it = *static_cast<Intruder*>(user);
    it.sameThread = varnel_request_validate_host(it.request);
    it.freed = varnel_request_free(it.request);
    it.log = varnel_set_log(nullptr, nullptr, 0);
    std::thread([&] { it.otherThread = varnel_request_complete(it.request, 0); }).join();
  };
  ASSERT_EQ(varnel_set_log(tell, &intruder, VARNEL_LOG_VERBOSE), VARNEL_DONE);
  const char* const disk = "TSL0001";
  EXPECT_EQ(varnel_request_add_disks(intruder.request, &disk, 1), VARNEL_DONE);
  EXPECT_EQ(varnel_request_initialize(intruder.request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_snapshot(intruder.request), VARNEL_DONE);
  EXPECT_EQ(varnel_set_log(nullptr, nullptr, 0), VARNEL_DONE);
  EXPECT_EQ(intruder.sameThread, VARNEL_BUSY);
  EXPECT_EQ(intruder.freed, VARNEL_BUSY);
  EXPECT_EQ(intruder.log, VARNEL_BUSY);
  EXPECT_EQ(intruder.otherThread, VARNEL_BUSY);
  EXPECT_EQ(varnel_request_complete(intruder.request, 0), VARNEL_DONE);
}

}  // namespace
}  // namespace varnel::test
