#include "c/handles.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace varnel::c {
namespace {

struct Table {
  std::mutex mutex;
  std::uintptr_t last = 0;
  std::unordered_map<std::uintptr_t, std::shared_ptr<Request>> requests;
};

// Lives as long as the process: threads may still use requests while it ends.
Table& All() {
  static Table& table = *new Table;
  return table;
}

std::uintptr_t NumberOf(const varnel_request* handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

}  // namespace

varnel_request* AddHandle(std::shared_ptr<Request> request) {
  Table& table = All();
  const std::lock_guard lock(table.mutex);
  const std::uintptr_t number = table.last + 1;
  table.requests.emplace(number, std::move(request));
  table.last = number;
  return reinterpret_cast<varnel_request*>(number);  // NOLINT(performance-no-int-to-ptr): a number, never an address
}

std::shared_ptr<Request> FindHandle(const varnel_request* handle) noexcept {
  Table& table = All();
  const std::lock_guard lock(table.mutex);
  const auto found = table.requests.find(NumberOf(handle));
  return found == table.requests.end() ? nullptr : found->second;
}

void RemoveHandle(const varnel_request* handle) noexcept {
  Table& table = All();
  const std::lock_guard lock(table.mutex);
  table.requests.erase(NumberOf(handle));
}

}  // namespace varnel::c
