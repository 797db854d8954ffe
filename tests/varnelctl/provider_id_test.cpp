// varnelctl --provider-id: another array's provider in place of the built-in one.
#include "tests/varnelctl/snapshot_support.h"

namespace varnel::test {
namespace {

using nlohmann::json;

constexpr char kOtherProvider[] = "{5ec0d000-1111-2222-3333-444455556666}";

class ProviderId : public SnapshotFixture {
 protected:
  ProviderId() {
    hostFile = SmallHostJson();
    hostFile["providers"].push_back(
        {{"id", kOtherProvider}, {"name", "Second Hardware Provider"}, {"type", "hardware"}, {"version", "2.0"}});
  }
};

TEST_F(ProviderId, TellsWhichProviderIsTheArrays) {
  const json document = Document({"providers", "--provider-id", kOtherProvider});
  EXPECT_EQ(document.at("providers").at(0).at("isArrayProvider"), false);
  EXPECT_EQ(document.at("providers").at(1).at("isArrayProvider"), true);
  EXPECT_EQ(document.at("arrayProviderPresent"), true);
  const json builtIn = Document({"providers"});
  EXPECT_EQ(builtIn.at("providers").at(0).at("isArrayProvider"), true);
}

TEST_F(ProviderId, TakesTheSetWithIt) {
  const json outcome = SnapshotJson({"--provider-id", kOtherProvider});
  EXPECT_EQ(outcome.at("provider").at("id"), kOtherProvider);
  EXPECT_EQ(outcome.at("provider").at("name"), "Second Hardware Provider");
  EXPECT_EQ(outcome.at("header").at("provider"), kOtherProvider);
}

TEST_F(ProviderId, OneThatIsNotRegisteredIsWarnedOfAndFailsTheRequest) {
  const json outcome = SnapshotJson({"--provider-id", "{7419d000-1111-2222-3333-444455556666}"}, 15);
  EXPECT_EQ(outcome.at("warnings").at(0).at("code"), "providerMissing");
  EXPECT_EQ(outcome.at("result").at("hresult"), "0x80042304");
}

TEST_F(ProviderId, OnePlansWithItToo) {
  const json plan =
      Document({"plan", "--app", "none", "--disk", "TSL0001", "TSL0002", "--provider-id", kOtherProvider});
  EXPECT_EQ(plan.at("header").at("provider"), kOtherProvider);
}

TEST_F(ProviderId, WhatIsNoIdentifierInBracesIsRefused) {
  for (const char* text : {"", "5ec0d000-1111-2222-3333-444455556666", "{5ec0d000}", "second"}) {
    ExpectRefused(Run({"providers", "--provider-id", text}), "varnelctl: --provider-id: no identifier in braces");
  }
}

}  // namespace
}  // namespace varnel::test
