// The list of what the fault plan can fail, against the simulator's own sources.
#include "simulator/machine/call_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace varnel::simulator {
namespace {

using Names = std::set<std::string>;

std::filesystem::path SourceFolder() {
  return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "simulator";
}

// The first group of every match.
Names Matches(const std::string& text, const std::regex& pattern) {
  Names names;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) names.insert((*at)[1]);
  return names;
}

// The interface of the methods that a source names by what follows it: "::Method", "Ex2::Method".
std::string InterfaceOf(const std::string& file) {
  static const std::map<std::string, std::string> interfaces = {{"vss_backup.cpp", "IVssBackupComponents"},
                                                                {"vss_components.cpp", "IVssComponent"},
                                                                {"vss_enum.cpp", "IVssAdmin"},
                                                                {"vss_metadata.cpp", "IVssExamineWriterMetadata"}};
  const auto found = interfaces.find(file);
  return found == interfaces.end() ? "" : found->second;
}

struct Found {
  Names calls;
  Names asyncs;
};

void AddFrom(const std::string& text, const std::string& file, Found& found) {
  static const std::regex method(R"re("((?:I[A-Z]\w+|MetadataService)::\w+)")re");
  static const std::regex function(R"re(\b(?:Win32Call|CodeCall<\w+>|Call)\(\s*\*?machine(?:_|\(\)|),\s*"(\w+)")re");
  static const std::regex suffix(R"re("((?:Ex\d?)?::\w+)")re");
  static const std::regex kind(R"re(ComObject\(std::move\(machine\),\s*"(\w+)")re");
  static const std::regex async(R"re(\b(?:RunAsync|OnAsync)\("(\w+)")re");
  found.calls.merge(Matches(text, method));
  found.calls.merge(Matches(text, function));
  found.asyncs.merge(Matches(text, async));
  for (const std::string& name : Matches(text, kind)) found.calls.insert(name + "::QueryInterface");
  for (const std::string& name : Matches(text, suffix)) {
    EXPECT_NE(InterfaceOf(file), "") << file << " names " << name;
    found.calls.insert(InterfaceOf(file) + name);
  }
}

Found InSources() {
  Found found;
  for (const char* folder : {"services", "vss", "dropin"}) {
    for (const auto& entry : std::filesystem::directory_iterator(SourceFolder() / folder)) {
      if (entry.path().extension() != ".cpp") continue;
      std::ifstream file(entry.path());
      std::stringstream text;
      text << file.rdbuf();
      AddFrom(text.str(), entry.path().filename().string(), found);
    }
  }
  return found;
}

TEST(CallNames, AreThoseOfTheSources) {
  const Found found = InSources();
  const auto calls = CallNames();
  const auto asyncs = AsyncNames();
  EXPECT_EQ(Names(calls.begin(), calls.end()), found.calls);
  EXPECT_EQ(Names(asyncs.begin(), asyncs.end()), found.asyncs);
}

TEST(CallNames, StandInOrderAndOnce) {
  for (const auto names : {CallNames(), AsyncNames()}) {
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  }
}

}  // namespace
}  // namespace varnel::simulator
