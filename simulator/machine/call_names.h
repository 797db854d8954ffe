// The names by which the fault plan knows what it can fail.
#pragma once

#include <span>
#include <string_view>

namespace varnel::simulator {

/// Every call, "Interface::Method" or a function's name, in order.
std::span<const std::string_view> CallNames();
/// Every asynchronous operation, by the method that starts it, in order.
std::span<const std::string_view> AsyncNames();

}  // namespace varnel::simulator
