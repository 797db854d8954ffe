// The right name for a wrong one.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

/// "; did you mean \"NAME\"?" with the name that takes the fewest changes of characters; empty when every one takes
/// more than a third of them. Of names with "::" the part after it counts as well. UTF-8; ASCII case does not count.
std::string DidYouMean(std::string_view wrong, std::span<const std::string_view> names);
std::string DidYouMean(std::string_view wrong, const std::vector<std::wstring>& names);

}  // namespace varnel
