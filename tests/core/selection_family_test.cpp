// Parents and children in a selection, against the pairwise rules.
#include <optional>
#include <random>

#include "tests/core/component_paths.h"
#include "tests/core/selection_fixture.h"

namespace varnel::test {
namespace {

class Family : public HostFixture {
 protected:
  SnapshotRequest<> request;

  std::vector<VssComponent>& Include(std::vector<VssComponent> components) {
    request.probe.writers() = {WriterOf(std::move(components))};
    request.probe.IncludeImplicitComponents();
    return request.probe.writers()[0].components;
  }
  Outcome Verify(std::vector<VssComponent> components) {
    request.probe.writers() = {WriterOf(std::move(components))};
    return OutcomeOf([&] { request.probe.VerifyComponentSelection(); });
  }
};

TEST_F(Family, AParentIsIncludedBecauseOfItsChild) {
  const auto& components = Include({Unselected(L"\\A", {L"1"}), Selected(L"\\a\\B", {L"2"})});
  EXPECT_FALSE(components[0].excluded);
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_EQ(components[1].affectedSerialNumbers, (Names{L"2"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A, BecauseOf='\\a\\B"));
}

TEST_F(Family, AComponentThatOnlyBeginsAlikeIsNoParent) {
  const auto& components = Include({Unselected(L"\\A"), Selected(L"\\AB")});
  EXPECT_TRUE(components[0].excluded);
  EXPECT_THAT(log.All(), SizeIs(1));
}

TEST_F(Family, AnUnselectedChildIncludesNobody) {
  EXPECT_TRUE(Include({Unselected(L"\\A"), Unselected(L"\\A\\B")})[0].excluded);
}

TEST_F(Family, AChildIsNotIncludedBecauseOfItsParent) {
  EXPECT_TRUE(Include({Selected(L"\\A"), Unselected(L"\\A\\B")})[1].excluded);
}

TEST_F(Family, WholeChainsOfParentsAreIncluded) {
  const auto& components = Include({Unselected(L"\\A"), Unselected(L"\\A\\B"), Selected(L"\\A\\B\\C", {L"1"})});
  EXPECT_FALSE(components[0].excluded);
  EXPECT_FALSE(components[1].excluded);
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1"}));
  EXPECT_EQ(components[1].affectedSerialNumbers, (Names{L"1"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A, BecauseOf='\\A\\B\\C",
                          "I Including, Component='\\A\\B, BecauseOf='\\A\\B\\C"));
}

TEST_F(Family, AParentJustIncludedCountsAsAChildOfLaterParents) {
  const auto& components =
      Include({Unselected(L"\\A\\B", {L"1"}), Selected(L"\\A\\B\\C", {L"2"}), Unselected(L"\\A", {L"3"})});
  EXPECT_EQ(components[2].affectedSerialNumbers, (Names{L"1", L"2", L"3"}));
  EXPECT_THAT(log.All(),
              ElementsAre("I Including implicit components", "I Including, Component='\\A\\B, BecauseOf='\\A\\B\\C",
                          "I Including, Component='\\A, BecauseOf='\\A\\B"));
}

TEST_F(Family, AParentIsIncludedOnceAndJoinsTheDisksOfAllItsChildren) {
  const auto& components = Include(
      {Unselected(L"\\A"), Selected(L"\\A\\B", {L"1"}), Selected(L"\\A\\C", {L"2"}), Unselected(L"\\A\\D", {L"3"})});
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_THAT(log.All(), SizeIs(2));
}

TEST_F(Family, AParentThatWasIncludedAnywayJoinsItsChildrensDisksSilently) {
  const auto& components = Include({Selected(L"\\A", {L"1"}), Selected(L"\\A\\B", {L"2"})});
  EXPECT_EQ(components[0].affectedSerialNumbers, (Names{L"1", L"2"}));
  EXPECT_THAT(log.All(), ElementsAre("I Including implicit components"));
}

TEST_F(Family, DisksThatParentsTakeOverAreNoDisksOfTheApplication) {
  Include({Unselected(L"\\A", {L"1"}), Selected(L"\\A\\B", {L"2"})});
  EXPECT_THAT(request.probe.eligibleSerialNumbers(), IsEmpty());
}

TEST_F(Family, ExcludedWritersAreLeftAlone) {
  VssWriter excluded = WriterOf({Unselected(L"\\A"), Selected(L"\\A\\B")});
  excluded.excluded = true;
  request.probe.writers() = {excluded};
  request.probe.IncludeImplicitComponents();
  EXPECT_TRUE(request.probe.writers()[0].components[0].excluded);
  request.probe.writers()[0].components = {Selected(L"\\A"), Unselected(L"\\A\\B")};
  EXPECT_NO_THROW(request.probe.VerifyComponentSelection());
}

TEST_F(Family, ComponentsOfDifferentWritersAreNotRelated) {
  request.probe.writers() = {WriterOf({Unselected(L"\\A")}), WriterOf({Selected(L"\\A\\B")})};
  request.probe.IncludeImplicitComponents();
  EXPECT_TRUE(request.probe.writers()[0].components[0].excluded);
  request.probe.writers() = {WriterOf({Selected(L"\\A")}), WriterOf({Unselected(L"\\A\\B")})};
  EXPECT_NO_THROW(request.probe.VerifyComponentSelection());
}

TEST_F(Family, AnExcludedChildUnderAnIncludedParentIsAConfigurationError) {
  EXPECT_EQ(Verify({Selected(L"\\A"), Unselected(L"\\A\\B")}), NeedsChild("the \\A", "the \\A\\B"));
  EXPECT_THAT(log.All(), ElementsAre("I VerifyComponentSelection", "E " + NeedsChildLine("the \\A", "the \\A\\B")));
}

TEST_F(Family, TheFirstPairInListOrderIsReported) {
  Verify({Unselected(L"\\A\\B\\D"), Selected(L"\\X"), Selected(L"\\A\\B"), Selected(L"\\A"), Unselected(L"\\A\\C"),
          Unselected(L"\\X\\Y")});
  EXPECT_THAT(log.Errors(), ElementsAre(NeedsChildLine("the \\X", "the \\X\\Y")));
}

TEST_F(Family, TheFirstChildOfAParentInListOrderIsReported) {
  Verify({Selected(L"\\A\\C"), Selected(L"\\A"), Unselected(L"\\A\\B\\D"), Unselected(L"\\A\\B")});
  EXPECT_THAT(log.Errors(), ElementsAre(NeedsChildLine("the \\A", "the \\A\\B\\D")));
}

TEST_F(Family, AnExcludedParentMayHaveExcludedChildren) {
  EXPECT_EQ(Verify({Unselected(L"\\A"), Unselected(L"\\A\\B"), Selected(L"\\C")}), Outcome::Returned());
  EXPECT_THAT(log.All(), ElementsAre("I VerifyComponentSelection"));
}

TEST_F(Selection, AChildOnAListedDiskIncludesItsParentOnAnUnlistedOne) {
  InstallComponents({MakeComponent(L"", L"A", {L"F:\\a"}), MakeComponent(L"A", L"B", {L"E:\\b"})});
  SelectedRequest request(*this);
  EXPECT_THAT(Added(), ElementsAre("|A", "A|B"));
  EXPECT_THAT(LinesWith("Including,"), ElementsAre("I Including, Component='\\A, BecauseOf='\\A\\B"));
  EXPECT_EQ(request.requestor.GetWriters()[0].components[0].affectedSerialNumbers, (Names{L"TSL0001", L"TSL0002"}));
  EXPECT_THAT(log.Errors(), IsEmpty());
}

TEST_F(Selection, AParentOnAListedDiskWithItsChildOnAnUnlistedOneIsAConfigurationError) {
  InstallComponents({MakeComponent(L"", L"A", {L"E:\\a"}), MakeComponent(L"A", L"B", {L"F:\\b"})});
  GatheredRequest request;
  EXPECT_EQ(OutcomeOf([&] { Select(request); }), NeedsChild("A", "B"));
  EXPECT_THAT(log.Errors(), ElementsAre(NeedsChildLine("A", "B")));
  EXPECT_THAT(Added(), IsEmpty());
  EXPECT_EQ(request.alerts(), "");
}

TEST_F(Selection, AParentIncludedBecauseOfOneChildWithAnExcludedSiblingIsAConfigurationError) {
  InstallComponents(
      {MakeComponent(L"", L"A", {}), MakeComponent(L"A", L"B", {L"E:\\b"}), MakeComponent(L"A", L"C", {L"F:\\c"})});
  GatheredRequest request;
  EXPECT_EQ(OutcomeOf([&] { Select(request); }), NeedsChild("A", "C"));
  EXPECT_THAT(log.Errors(), ElementsAre(NeedsChildLine("A", "C")));
}

// The pairwise rules: every component against every other one.
class Pairwise {
 public:
  static void Include(std::vector<VssWriter>& writers, Lines& lines) {
    lines.push_back("I Including implicit components");
    for (VssWriter& writer : writers) {
      if (writer.excluded) continue;
      for (VssComponent& p : writer.components) {
        for (const VssComponent& c : writer.components) {
          if (!PairwiseAncestor(p.fullPath, c.fullPath) || c.excluded) continue;
          if (p.excluded) {
            lines.push_back("I Including, Component='" + WideToUtf8(p.fullPath) + ", BecauseOf='" +
                            WideToUtf8(c.fullPath));
            p.excluded = false;
          }
          for (const std::wstring& serial : c.affectedSerialNumbers) p.affectedSerialNumbers.insert(serial);
        }
      }
    }
  }

  /// The parent and the child that end the check.
  static std::optional<std::pair<std::wstring, std::wstring>> Verify(const std::vector<VssWriter>& writers) {
    for (const VssWriter& writer : writers) {
      if (writer.excluded) continue;
      for (const VssComponent& p : writer.components) {
        for (const VssComponent& c : writer.components) {
          if (PairwiseAncestor(p.fullPath, c.fullPath) && !p.excluded && c.excluded)
            return std::pair(p.caption, c.caption);
        }
      }
    }
    return std::nullopt;
  }
};

// Trees with few names, so that components are often related, equal, or alike but for their case or an empty name.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::vector<VssWriter> Writers() {
    std::vector<VssWriter> writers(1 + Number(3));
    for (VssWriter& writer : writers) {
      writer.excluded = Number(5) == 0;
      const unsigned components = Number(14);
      for (unsigned i = 0; i < components; ++i) writer.components.push_back(Component(i));
    }
    return writers;
  }

 private:
  unsigned Number(unsigned below) { return static_cast<unsigned>(random_() % below); }

  VssComponent Component(unsigned index) {
    static const wchar_t* const kNames[] = {L"a", L"A", L"b", L"ab", L"", L"a b", L"\u00C4", L"\u00E4"};
    VssComponent component;
    const unsigned depth = 1 + Number(4);
    for (unsigned i = 0; i < depth; ++i) {
      component.fullPath += L'\\';
      component.fullPath += kNames[Number(8)];
    }
    component.caption = std::to_wstring(index) + L" " + component.fullPath;
    component.excluded = Number(3) != 0;
    for (unsigned disks = Number(3); disks > 0; --disks) {
      component.affectedSerialNumbers.insert(L"TSL000" + std::to_wstring(Number(6)));
    }
    return component;
  }

  std::mt19937 random_;
};

class FamilyReference : public HostFixture {};

TEST_F(FamilyReference, IncludingGivesTheResultsAndTheLinesOfThePairwiseRules) {
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    SnapshotRequest request;
    request.probe.writers() = Generator(seed).Writers();
    std::vector<VssWriter> expected = request.probe.writers();
    Lines expectedLines;
    Pairwise::Include(expected, expectedLines);
    log.lines.clear();
    request.probe.IncludeImplicitComponents();
    ASSERT_EQ(log.All(), expectedLines) << "seed " << seed;
    for (std::size_t w = 0; w < expected.size(); ++w) {
      for (std::size_t c = 0; c < expected[w].components.size(); ++c) {
        const VssComponent& wanted = expected[w].components[c];
        const VssComponent& found = request.probe.writers()[w].components[c];
        ASSERT_EQ(found.excluded, wanted.excluded) << "seed " << seed << ", component " << c;
        ASSERT_EQ(found.affectedSerialNumbers, wanted.affectedSerialNumbers) << "seed " << seed << ", component " << c;
      }
    }
  }
}

TEST_F(FamilyReference, VerifyingReportsTheFirstPairOfThePairwiseRules) {
  int failures = 0;
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    SnapshotRequest request;
    request.probe.writers() = Generator(seed).Writers();
    const auto expected = Pairwise::Verify(request.probe.writers());
    Lines expectedLines = {"I VerifyComponentSelection"};
    if (expected) {
      expectedLines.push_back("E " + NeedsChildLine(WideToUtf8(expected->first), WideToUtf8(expected->second)));
      ++failures;
    }
    log.lines.clear();
    const Outcome outcome = OutcomeOf([&] { request.probe.VerifyComponentSelection(); });
    ASSERT_EQ(outcome.alertCode, expected ? 602 : 0) << "seed " << seed;
    ASSERT_EQ(log.All(), expectedLines) << "seed " << seed;
  }
  EXPECT_GT(failures, 100);
  EXPECT_LT(failures, 1900);
}

TEST_F(FamilyReference, TheAncestorTestIsThatOfThePairwiseRules) {
  int ancestors = 0;
  for (unsigned seed = 1; seed <= 200; ++seed) {
    for (const VssWriter& writer : Generator(seed).Writers()) {
      for (const VssComponent& a : writer.components) {
        for (const VssComponent& b : writer.components) {
          ASSERT_EQ(IsAncestor(a, b), PairwiseAncestor(a.fullPath, b.fullPath))
              << WideToUtf8(a.fullPath) << " and " << WideToUtf8(b.fullPath);
          ancestors += IsAncestor(a, b) ? 1 : 0;
        }
      }
    }
  }
  EXPECT_GT(ancestors, 100);
}

VssComponent OnDisk(std::wstring fullPath, bool excluded, std::wstring serialNumber) {
  VssComponent component;
  component.fullPath = std::move(fullPath);
  component.excluded = excluded;
  component.affectedSerialNumbers = {std::move(serialNumber)};
  return component;
}

// A hundred million pairs, or steps of one path: what takes each by itself does not end in a test's time.
TEST(LargeFamilies, AreGoneThroughWithoutLookingAtEachPair) {
  constexpr std::size_t kMany = 10000;
  const std::wstring deep(64000, L'\\');
  CVarnel requestor(0);
  RequestorProbe probe(requestor);
  VssWriter& writer = probe.writers().emplace_back();
  for (std::size_t i = 0; i < kMany; ++i) writer.components.push_back(OnDisk(L"\\parent", true, L"A"));
  for (std::size_t i = 0; i < kMany; ++i) {
    writer.components.push_back(OnDisk(L"\\parent\\child" + std::to_wstring(i), i == 0, i % 2 == 0 ? L"B" : L"C"));
  }
  writer.components.push_back(OnDisk(deep, true, L"D"));
  writer.components.push_back(OnDisk(deep + L"\\x", false, L"E"));

  probe.IncludeImplicitComponents();
  const std::set<std::wstring> all = {L"A", L"B", L"C"};
  for (std::size_t i = 0; i < kMany; ++i) {
    ASSERT_FALSE(writer.components[i].excluded);
    ASSERT_EQ(writer.components[i].affectedSerialNumbers, all);
  }
  EXPECT_FALSE(writer.components[2 * kMany].excluded);
  EXPECT_EQ(writer.components[2 * kMany].affectedSerialNumbers, (std::set<std::wstring>{L"D", L"E"}));
  EXPECT_THROW(probe.VerifyComponentSelection(), VarnelException);
  writer.components[kMany].excluded = false;
  EXPECT_NO_THROW(probe.VerifyComponentSelection());
}

}  // namespace
}  // namespace varnel::test
