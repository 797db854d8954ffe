// What a room counts besides its tests. tools/run-tests.sh shows the line beside the room's result.
#pragma once

#include <iostream>
#include <string>

namespace varnel::test {

inline void TellTotal(const std::string& total) {
  std::cout << "[    TOTAL ] " << total << '\n';
}

}  // namespace varnel::test
