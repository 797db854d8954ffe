// One watch for several parts of a run.
#pragma once

#include <utility>

#include "varnelctl/console/interruption.h"

namespace varnelctl {

/// The same source; whoever asks while a watch of it lives shares that, and nothing that was noted is lost between
/// them.
inline InterruptionSource SharedWatch(InterruptionSource source) {
  class Share final : public Interruption {
   public:
    explicit Share(std::shared_ptr<Interruption> watch) : watch_(std::move(watch)) {}
    bool Requested() const override { return watch_->Requested(); }

   private:
    std::shared_ptr<Interruption> watch_;
  };
  if (!source) return source;
  return [source = std::move(source), current = std::weak_ptr<Interruption>()]() mutable {
    std::shared_ptr<Interruption> watch = current.lock();
    if (!watch) current = watch = source();
    return std::make_unique<Share>(std::move(watch));
  };
}

}  // namespace varnelctl
