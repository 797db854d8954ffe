// One whole snapshot request on one host, measured:
//
//   request_cost WORKLOAD N floor|quiet|logged|memory|c [CALLS.txt]
//
// "floor" is the bare requestor, "quiet" the real one with logging off, "logged" the real one with its log at
// information level in a file; "memory" is the real one on a host whose own memory does not count; "c" is the real one
// with logging off through the C interface. Prints one JSON
// object. With CALLS.txt the call log is written there (and costs).
// Under callgrind, MeasuredRequest and MeasuredRequestInC are the functions to collect.
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_set>

#include "bench/floor.h"
#include "bench/workloads.h"
#include "c/texts.h"
#include "c/varnel-c.h"
#include "platform/tessel/FileLog.h"
#include "platform/tessel/log_sink.h"
#include "simulator/simulated_host.h"
#include "tests/faults/guarded_host.h"
#include "text/unicode.h"

// The C library's allocator with a count around it: what the program gets from malloc and from operator new alike.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

// The counts take no part in what they count.
template <class T>
struct UncountedAllocator {
  using value_type = T;
  UncountedAllocator() = default;
  template <class U>
  UncountedAllocator(const UncountedAllocator<U>&) noexcept {}
  T* allocate(std::size_t count) {
    // NOLINTNEXTLINE(bugprone-sizeof-expression): a set of pointers allocates pointers
    if (void* block = __libc_malloc(count * sizeof(T))) return static_cast<T*>(block);
    throw std::bad_alloc();
  }
  void deallocate(T* block, std::size_t) noexcept { __libc_free(block); }
  friend bool operator==(const UncountedAllocator&, const UncountedAllocator&) { return true; }
};

using BlockSet = std::unordered_set<void*, std::hash<void*>, std::equal_to<>, UncountedAllocator<void*>>;

struct Allocations {
  bool counting = false;
  long long count = 0;
  long long live = 0;
  long long peak = 0;
  BlockSet* own = nullptr;  // the blocks that were counted, where not all are

  void* Add(void* block) {
    if (counting && block != nullptr) {
      ++count;
      live += static_cast<long long>(::malloc_usable_size(block));
      if (live > peak) peak = live;
      if (own != nullptr) own->insert(block);
    }
    return block;
  }
  void Remove(void* block) {
    if (block != nullptr && (own != nullptr ? own->erase(block) != 0 : counting)) {
      live -= static_cast<long long>(::malloc_usable_size(block));
    }
  }
};

Allocations allocations;

}  // namespace

extern "C" {
void* malloc(std::size_t size) {
  return allocations.Add(__libc_malloc(size));
}
void* calloc(std::size_t nmemb, std::size_t size) {
  return allocations.Add(__libc_calloc(nmemb, size));
}
void* realloc(void* ptr, std::size_t size) {
  allocations.Remove(ptr);
  return allocations.Add(__libc_realloc(ptr, size));
}
void free(void* ptr) {
  allocations.Remove(ptr);
  __libc_free(ptr);
}
}

// The guards around the host's calls, and what they switch.
namespace varnel::test::memory {

Switch::Switch(bool armed) noexcept : before_(allocations.counting) {
  allocations.counting = armed;
}

Switch::~Switch() {
  allocations.counting = before_;
}

}  // namespace varnel::test::memory

namespace varnel::bench {

// The host agent's order of calls. Not inlined: the profiler finds it by its name.
[[gnu::noinline]] void MeasuredRequest(const Workload& workload, bool bare, const std::vector<std::wstring>& disks) {
  TesselCommonClasses::DiskAndVolumeEnumerator enumerator;
  if (bare) {
    TakeBareSnapshot(workload.writerIds, disks, enumerator);
    return;
  }
  const std::unique_ptr<CVarnel> requestor = workload.makeRequestor();
  std::string errorDetails = "writer=0,";
  requestor->SetInputDriveSerialNos(disks);
  requestor->Initialize(0, L"", false, VSS_BT_FULL, errorDetails, &enumerator);
  requestor->CreateVssSnapshotSet(errorDetails);
  requestor->SetBackupStatus(0, errorDetails);
}

// The same through the C interface.
[[gnu::noinline]] void MeasuredRequestInC(int application, const std::vector<const char*>& disks) {
  varnel_request_options options = {};
  options.size = sizeof options;
  options.application = application;
  varnel_request* request = nullptr;
  int code = varnel_request_create(&options, &request);
  if (code == VARNEL_DONE) code = varnel_request_add_disks(request, disks.data(), disks.size());
  if (code == VARNEL_DONE) code = varnel_request_initialize(request);
  if (code == VARNEL_DONE) code = varnel_request_snapshot(request);
  if (code == VARNEL_DONE) code = varnel_request_complete(request, 0);
  varnel_request_free(request);
  if (code != VARNEL_DONE) throw std::runtime_error(varnel_code_text(code));
}

namespace {

enum class Who { floor, quiet, logged, memory, c };

Who ParseWho(const std::string& text) {
  if (text == "floor") return Who::floor;
  if (text == "quiet") return Who::quiet;
  if (text == "logged") return Who::logged;
  if (text == "memory") return Who::memory;
  if (text == "c") return Who::c;
  throw std::invalid_argument("neither floor, quiet, logged, memory nor c: " + text);
}

// A log file that goes with the run.
class TemporaryLog {
 public:
  TemporaryLog()
      : path_(std::filesystem::temp_directory_path() / ("request_cost." + std::to_string(::getpid()) + ".log")),
        sink_(OpenLogFile(path_, CFileLog::Information)),
        current_(*sink_) {}
  ~TemporaryLog() {
    sink_.reset();
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  TemporaryLog(const TemporaryLog&) = delete;
  TemporaryLog& operator=(const TemporaryLog&) = delete;

 private:
  std::filesystem::path path_;
  std::unique_ptr<LogSink> sink_;
  ScopedLog current_;
};

void Measure(const std::string& name, std::size_t n, const std::string& who, const char* callsFile) {
  const Workload& workload = FindWorkload(name);
  simulator::HostModel model = workload.makeHost(n);
  const std::size_t files = CountFiles(model);
  const std::vector<std::wstring> disks = DisksOf(model);
  std::vector<std::string> narrow;
  narrow.reserve(disks.size());
  for (const std::wstring& disk : disks) narrow.push_back(WideToUtf8(disk));
  const std::vector<const char*> texts = c::PointersTo(narrow);
  simulator::SimulatedHost host(std::move(model));
  host.calls().enabled = callsFile != nullptr;
  test::TextShortage noShortage(0, false);
  test::GuardedHost guarded(host, noShortage);
  const ScopedHost current(ParseWho(who) == Who::memory ? static_cast<Host&>(guarded) : host);
  std::optional<TemporaryLog> log;
  if (ParseWho(who) == Who::logged) log.emplace();

  const auto start = std::chrono::steady_clock::now();
  BlockSet own;
  if (ParseWho(who) == Who::memory) allocations.own = &own;
  {
    const test::memory::Armed counting;
    if (ParseWho(who) == Who::c) {
      MeasuredRequestInC(workload.application, texts);
    } else {
      MeasuredRequest(workload, ParseWho(who) == Who::floor, disks);
    }
  }
  allocations.own = nullptr;
  const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
  std::printf(
      R"({"workload":"%s","n":%zu,"who":"%s","files":%zu,"milliseconds":%.3f,"allocations":%lld,"peakBytes":%lld})"
      "\n",
      name.c_str(), n, who.c_str(), files, elapsed.count(), allocations.count, allocations.peak);
  if (callsFile != nullptr) {
    std::ofstream file(callsFile);
    for (const std::string& line : host.calls().lines()) file << line << '\n';
  }
}

}  // namespace
}  // namespace varnel::bench

int main(int argc, char** argv) {
  constexpr int kFewestArguments = 4;
  if (argc < kFewestArguments) {
    std::cerr << "usage: request_cost WORKLOAD N floor|quiet|logged|memory|c [CALLS.txt]\n";
    return 2;
  }
  try {
    varnel::bench::Measure(argv[1], std::stoul(argv[2]), argv[3], argc > kFewestArguments ? argv[4] : nullptr);
  } catch (const std::exception& error) {
    std::cerr << "request_cost: " << error.what() << '\n';
    return 1;
  } catch (long hr) {
    std::cerr << "request_cost: thrown " << std::hex << hr << '\n';
    return 1;
  }
  return 0;
}
