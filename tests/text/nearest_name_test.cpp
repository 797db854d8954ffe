#include "text/nearest_name.h"

#include <gtest/gtest.h>

namespace varnel {
namespace {

TEST(NearestName, IsTheOneWithTheFewestChanges) {
  EXPECT_EQ(DidYouMean("snapshto", std::vector<std::wstring>{L"disks", L"snapshot"}), "; did you mean \"snapshot\"?");
  EXPECT_EQ(DidYouMean("tsl0O01", std::vector<std::wstring>{L"TSL0002", L"TSL0001"}), "; did you mean \"TSL0001\"?");
}

TEST(NearestName, IsNoneThatTakesMoreThanAThirdOfItsCharacters) {
  EXPECT_EQ(DidYouMean("frobnicate", std::vector<std::wstring>{L"disks", L"snapshot"}), "");
  EXPECT_EQ(DidYouMean("", std::vector<std::wstring>{L"disks"}), "");
  EXPECT_EQ(DidYouMean("disks", std::vector<std::wstring>()), "");
}

TEST(NearestName, MayLackTheInterfaceOfAMethod) {
  EXPECT_EQ(DidYouMean("DoSnapshot", std::vector<std::wstring>{L"IVssBackupComponents::DoSnapshotSet"}),
            "; did you mean \"IVssBackupComponents::DoSnapshotSet\"?");
}

TEST(NearestName, IsNotLookedForAcrossPages) {
  const std::wstring page(201, L'x');
  EXPECT_EQ(DidYouMean(std::string(201, 'x'), std::vector<std::wstring>{page}), "");
}

}  // namespace
}  // namespace varnel
