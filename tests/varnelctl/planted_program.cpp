// A real program in the current directory of a real process.
#include "core/varnel.h"
#include "tests/varnelctl/cli_support.h"
#include "varnelctl/program_search.h"

namespace varnel::test {
namespace {

using varnelctl::ProgramSearch;

constexpr long kNotFound = static_cast<long>(0x80070002);
constexpr long kPlantedRan = static_cast<long>(0x8007002A);  // its exit code is 42

std::wstring CurrentDirectory() {
  return std::filesystem::current_path().wstring();
}

// How the library's command ends that starts the checker by its bare name.
long RunChecker() {
  try {
    CVarnel(0).ExecCommand(L"eseutil.exe /k x");
  } catch (long hr) {
    return hr;
  }
  return 0;
}

class PlantedProgram : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::copy_file(VARNEL_PLANTED_PROGRAM, PathOf(folder_.File("eseutil.exe")));
    std::filesystem::current_path(PathOf(folder_.File("")));
  }
  void TearDown() override { std::filesystem::current_path(start_); }

 private:
  const std::filesystem::path start_ = std::filesystem::current_path();
  const TemporaryFolder folder_;
};

TEST_F(PlantedProgram, IsRunWhereNothingKeepsItOut) {
  EXPECT_EQ(RunChecker(), kPlantedRan);
}

TEST_F(PlantedProgram, IsNotRunDuringAVerification) {
  const std::wstring before = CurrentDirectory();
  {
    const ProgramSearch search(L"");
    EXPECT_EQ(RunChecker(), kNotFound);
    EXPECT_FALSE(ProgramSearch::Finds(L"eseutil.exe"));
    EXPECT_NE(::GetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", nullptr, 0), 0u);
  }
  EXPECT_EQ(CurrentDirectory(), before);
  EXPECT_EQ(::GetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", nullptr, 0), 0u);
}

TEST_F(PlantedProgram, IsKeptOutByTheCurrentDirectoryAlone) {
  const ProgramSearch search(L"");
  ::SetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", nullptr);

  EXPECT_EQ(RunChecker(), kNotFound);
}

TEST_F(PlantedProgram, IsRunFromAFolderThatIsAddedToThePath) {
  const ProgramSearch search(CurrentDirectory());

  EXPECT_EQ(RunChecker(), kPlantedRan);
  EXPECT_TRUE(ProgramSearch::Finds(L"eseutil.exe"));
}

}  // namespace
}  // namespace varnel::test
