// Where a virtual function stands in its table.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace varnel::test {

// In the C++ ABI of GCC and Clang a pointer to a virtual function holds the function's offset in the table plus one.
template <class Method>
std::size_t SlotOf(Method method) {
  static_assert(sizeof method == 2 * sizeof(std::ptrdiff_t));
  std::ptrdiff_t parts[2];
  std::memcpy(parts, &method, sizeof parts);
  EXPECT_EQ(parts[0] % 2, 1) << "not a virtual function";
  return static_cast<std::size_t>(parts[0] - 1) / sizeof(void*);
}

}  // namespace varnel::test
