// The identifiers that the library asks for by its own constants, against those that MinGW's headers give the same
// interfaces, and its answer to who implements the coordinator.
#include <gtest/gtest.h>

#include "platform/vss.h"

namespace varnel {
namespace {

template <class Interface>
const GUID& PublishedId() {
  return __uuidof(Interface);
}

TEST(Identifiers, AreThoseOfTheInterfaces) {
  EXPECT_EQ(kIidUnknown, PublishedId<IUnknown>());
  EXPECT_EQ(kIidVssAsync, PublishedId<IVssAsync>());
  EXPECT_EQ(kIidVssEnumObject, PublishedId<IVssEnumObject>());
  EXPECT_EQ(kIidVssAdmin, PublishedId<IVssAdmin>());
  EXPECT_EQ(kIidVssBackupComponents, PublishedId<IVssBackupComponents>());
  EXPECT_EQ(kIidVssBackupComponentsEx, PublishedId<IVssBackupComponentsEx>());
  EXPECT_EQ(kIidVssBackupComponentsEx2, PublishedId<IVssBackupComponentsEx2>());
  EXPECT_EQ(kIidVssBackupComponentsEx3, PublishedId<IVssBackupComponentsEx3>());
  EXPECT_EQ(kIidVssBackupComponentsEx4, PublishedId<IVssBackupComponentsEx4>());
  EXPECT_EQ(kIidVssExamineWriterMetadata, PublishedId<IVssExamineWriterMetadata>());
  EXPECT_EQ(kIidVssExamineWriterMetadataEx, PublishedId<IVssExamineWriterMetadataEx>());
  EXPECT_EQ(kIidVssExamineWriterMetadataEx2, PublishedId<IVssExamineWriterMetadataEx2>());
  EXPECT_EQ(kIidVssComponent, PublishedId<IVssComponent>());
  EXPECT_EQ(kIidVssComponentEx, PublishedId<IVssComponentEx>());
  EXPECT_EQ(kIidVssComponentEx2, PublishedId<IVssComponentEx2>());
}

TEST(Identifiers, TheCoordinatorsClassIsThePublishedOne) {
  EXPECT_EQ(kClsidVssCoordinator, PublishedId<VSSCoordinator>());
}

}  // namespace
}  // namespace varnel
