// Stands in for libFuzzer: runs the target once over every file that is named on the command line or lies in a folder
// that is. An input that was worth keeping thus stays a test under any compiler.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> InputsOf(const fs::path& named) {
  if (!fs::is_directory(named)) return {named};
  std::vector<fs::path> inputs;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(named)) {
    if (entry.is_regular_file()) inputs.push_back(entry.path());
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

void Replay(const fs::path& input) {
  // Named first, so that an input which ends the process is known.
  std::printf("%s\n", input.string().c_str());
  std::fflush(stdout);
  const std::string content = varnel::test::ReadFile(input);
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

int ReplayAll(const std::vector<std::string>& names) {
  std::size_t count = 0;
  for (const std::string& name : names) {
    for (const fs::path& input : InputsOf(name)) {
      Replay(input);
      ++count;
    }
  }
  std::printf("[    TOTAL ] %zu inputs\n", count);
  return count == 0 ? 2 : 0;  // having replayed nothing is no success
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return ReplayAll(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
