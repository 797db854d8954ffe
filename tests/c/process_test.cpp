// The C interface's functions for the whole process: versions, codes, the log and COM.
#include <set>

#include "c/com.h"
#include "tests/c/c_fixture.h"

namespace varnel::test {
namespace {

class CProcess : public CInterfaceFixture {};

constexpr int kCodes[] = {VARNEL_DONE,
                          VARNEL_BAD_ARGUMENT,
                          VARNEL_BAD_HANDLE,
                          VARNEL_BAD_VERSION,
                          VARNEL_BAD_TEXT,
                          VARNEL_BAD_ORDER,
                          VARNEL_BUSY,
                          VARNEL_NO_MEMORY,
                          VARNEL_NO_HOST,
                          VARNEL_CALL_FAILED,
                          VARNEL_COM_TOO_LATE,
                          VARNEL_UNEXPECTED,
                          VARNEL_MIXED_CSV,
                          VARNEL_CLUSTERED_NO_CSV,
                          VARNEL_VALIDATION_FAILED,
                          VARNEL_MIXED_CLUSTER,
                          VARNEL_UNSUPPORTED_OS,
                          VARNEL_MISSING_HOTFIXES,
                          VARNEL_WRITER_FAILURE,
                          VARNEL_PARTIAL_SUCCESS,
                          VARNEL_CONFIGURATION_ERROR,
                          VARNEL_VERIFICATION_FAILURE,
                          VARNEL_EXTRA_VOLUMES};

TEST_F(CProcess, TellsItsVersion) {
  EXPECT_STREQ(varnel_version_text(), VARNEL_VERSION);
  const std::string version = VARNEL_VERSION;
  const std::size_t first = version.find('.');
  const std::size_t second = version.find('.', first + 1);
  const auto part = [&](std::size_t begin, std::size_t end) { return std::stoi(version.substr(begin, end - begin)); };
  EXPECT_EQ(varnel_version(), part(0, first) * 10000 + part(first + 1, second) * 100 + part(second + 1, version.npos));
  EXPECT_EQ(varnel_interface(), VARNEL_C_INTERFACE);
}

TEST_F(CProcess, EveryCodeHasAMeaningOfItsOwn) {
  std::set<std::string> texts;
  for (const int code : kCodes) texts.insert(varnel_code_text(code));
  EXPECT_EQ(texts.size(), std::size(kCodes));
  EXPECT_STREQ(varnel_code_text(42), "no code of this library");
  EXPECT_FALSE(texts.contains(varnel_code_text(42)));
}

struct Lines {
  std::vector<std::string> all;
  static void Add(void* user, int category, const char* source, int line, const char* text) {
    EXPECT_GT(line, 0);
    static_cast<Lines*>(user)->all.push_back(std::to_string(category) + " " + source + " " + text);
  }
};

TEST_F(CProcess, TheLogIsToldToTheFunction) {
  Lines lines;
  ASSERT_EQ(varnel_set_log(Lines::Add, &lines, VARNEL_LOG_INFORMATION), VARNEL_DONE);
  varnel_request* request = MakeTaken();
  EXPECT_THAT(lines.all, Contains("2 varnel Getting snapshot properties..."));
  EXPECT_THAT(lines.all, Not(Contains(StartsWith("1 "))));
  ASSERT_EQ(varnel_set_log(Lines::Add, &lines, VARNEL_LOG_ERROR), VARNEL_DONE);
  lines.all.clear();
  varnel_request_complete(request, 0);
  EXPECT_THAT(lines.all, IsEmpty());
  ASSERT_EQ(varnel_set_log(nullptr, nullptr, 0), VARNEL_DONE);
  EXPECT_THAT(log.All(), IsEmpty());
  varnel_request_delete(request);
  EXPECT_THAT(log.All(), Not(IsEmpty())) << "the log before is back";
}

TEST_F(CProcess, AnotherRequestMayBeUsedInTheLogFunction) {
  struct Second {
    varnel_request* request = nullptr;
    int calls = 0;
  } second{Make()};
  const auto tell = [](void* user, int, const char*, int, const char*) {
    auto& it = *static_cast<Second*>(user);
    if (it.calls++ == 0) EXPECT_EQ(varnel_request_initialize(it.request), VARNEL_DONE);
  };
  ASSERT_EQ(varnel_set_log(tell, &second, VARNEL_LOG_VERBOSE), VARNEL_DONE);
  varnel_request* request = MakeTaken();
  varnel_set_log(nullptr, nullptr, 0);
  EXPECT_GT(second.calls, 0);
  varnel_request_complete(request, 0);
  varnel_request_complete(second.request, -1);
}

TEST_F(CProcess, TheLogFunctionMayTakeASetWhereTheDatabasesOfAnotherCannotBeNamed) {
  varnel_request_options options = {};
  options.writer_code = 2;  // its databases are asked for, of which there is no list
  struct Second {
    varnel_request* request = nullptr;
    int told = 0;
    int code = -1;
  } second{MakeReady(options)};
  const auto tell = [](void* user, int, const char*, int, const char* text) {
    auto& it = *static_cast<Second*>(user);
    if (std::string_view(text).find("GetdbFilesToQuiescePtr failed") == std::string_view::npos) return;
    if (it.told++ == 0) it.code = varnel_request_snapshot(it.request);
  };
  varnel_request* first = MakeReady(options);
  ASSERT_EQ(varnel_set_log(tell, &second, VARNEL_LOG_VERBOSE), VARNEL_DONE);
  EXPECT_EQ(varnel_request_snapshot(first), VARNEL_DONE);
  varnel_set_log(nullptr, nullptr, 0);
  EXPECT_EQ(second.told, 2);
  EXPECT_EQ(second.code, VARNEL_DONE);
  varnel_request_complete(first, 0);
  varnel_request_complete(second.request, 0);
}

// COM as a test has it.
struct FakeCom {
  static inline HRESULT initialized, secured;
  static inline int open;
  static constexpr c::ComCalls kCalls = {[] {
                                           if (SUCCEEDED(initialized)) ++open;
                                           return initialized;
                                         },
                                         [] { return secured; }, [] { --open; }};
  static std::pair<int, HRESULT> Initialize(HRESULT initialize, HRESULT secure) {
    initialized = initialize;
    secured = secure;
    open = 0;
    HRESULT result = S_OK;
    const int code = c::InitializeCom(kCalls, result);
    return {code, result};
  }
};

constexpr auto kTooLate = static_cast<HRESULT>(0x80010119);      // RPC_E_TOO_LATE
constexpr auto kChangedMode = static_cast<HRESULT>(0x80010106);  // RPC_E_CHANGED_MODE

// In one test: who set the security first is remembered for the process.
TEST_F(CProcess, ComIsInitialisedAndItsSecuritySetOnce) {
  using Result = std::pair<int, HRESULT>;
  EXPECT_EQ(FakeCom::Initialize(kChangedMode, S_OK), Result(VARNEL_CALL_FAILED, kChangedMode));
  EXPECT_EQ(FakeCom::open, 0);
  EXPECT_EQ(FakeCom::Initialize(S_OK, E_OUTOFMEMORY), Result(VARNEL_CALL_FAILED, E_OUTOFMEMORY));
  EXPECT_EQ(FakeCom::open, 0) << "what is not secured is ended";
  EXPECT_EQ(FakeCom::Initialize(S_FALSE, kTooLate), Result(VARNEL_COM_TOO_LATE, kTooLate));
  EXPECT_EQ(FakeCom::open, 1) << "COM is there all the same";
  EXPECT_EQ(FakeCom::Initialize(S_OK, S_OK), Result(VARNEL_DONE, S_OK));
  EXPECT_EQ(FakeCom::Initialize(S_FALSE, kTooLate), Result(VARNEL_DONE, S_OK)) << "on the next thread it is ours";
}

TEST_F(CProcess, ASimulatedHostNeedsNoCom) {
  int hresult = -1;
  EXPECT_EQ(varnel_initialize_com(&hresult), VARNEL_DONE);
  EXPECT_EQ(hresult, 0);
  EXPECT_EQ(varnel_initialize_com(nullptr), VARNEL_DONE);
  EXPECT_EQ(varnel_uninitialize_com(), VARNEL_DONE);
}

#ifndef _WIN32
TEST(CProcessWithoutHost, IsToldSo) {
  int hresult = -1;
  EXPECT_EQ(varnel_initialize_com(&hresult), VARNEL_NO_HOST);
  EXPECT_EQ(varnel_uninitialize_com(), VARNEL_NO_HOST);
  varnel_request* request = nullptr;
  ASSERT_EQ(varnel_request_create(nullptr, &request), VARNEL_DONE);
  EXPECT_EQ(varnel_request_initialize(request), VARNEL_NO_HOST);
  EXPECT_EQ(varnel_request_free(request), VARNEL_DONE);
}
#endif

}  // namespace
}  // namespace varnel::test
