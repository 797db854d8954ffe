// The process's log, told to a function of the program.
#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <shared_mutex>

#include "c/varnel-c.h"
#include "platform/tessel/log_sink.h"
#include "text/unicode.h"

namespace varnel::c {
namespace {

// Whether this thread is in the log function.
constinit thread_local bool isTelling = false;

class FunctionSink final : public LogSink {
 public:
  // What the function itself makes the library log, it is told too: this thread has the lock then.
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    if (isTelling) return Tell(category, source, line, text);
    const std::shared_lock lock(mutex_);
    isTelling = true;
    Tell(category, source, line, text);
    isTelling = false;
  }
  int LowestCategory() const override { return lowest_; }

  // Waits for the lines that are being told.
  int Use(varnel_log_function function, void* user, int lowest) {
    if (isTelling) return VARNEL_BUSY;
    const std::unique_lock lock(mutex_);
    function_ = function;
    user_ = user;
    lowest_ = lowest;
    current_.reset();
    if (function != nullptr) current_.emplace(*this);
    return VARNEL_DONE;
  }

 private:
  void Tell(int category, std::wstring_view source, int line, std::wstring_view text) noexcept {
    if (function_ == nullptr) return;
    try {
      function_(user_, category, WideToUtf8Lossy(source).c_str(), line, WideToUtf8Lossy(text).c_str());
    } catch (const std::exception&) {
      // Without memory for the line it is lost; the request goes on.
    }
  }

  std::shared_mutex mutex_;  // of what follows
  varnel_log_function function_ = nullptr;
  void* user_ = nullptr;
  std::optional<ScopedLog> current_;
  std::atomic<int> lowest_{0};
};

// Lives as long as the process: threads may still log while it ends.
FunctionSink& Sink() {
  static FunctionSink& sink = *new FunctionSink;
  return sink;
}

}  // namespace
}  // namespace varnel::c

int varnel_set_log(varnel_log_function function, void* user, int lowest_category) {
  try {
    return varnel::c::Sink().Use(function, user, lowest_category);
  } catch (const std::exception&) {
    return VARNEL_NO_MEMORY;
  }
}
