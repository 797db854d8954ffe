// What the service's library has for requestors beside the backup components object.
#include "simulator/services/requestor_functions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"
#include "tests/simulator/fixture.h"

namespace varnel::test {
namespace {

TEST_F(ShadowCopyService, TellsWhetherAVolumeHasShadowCopies) {
  BOOL present = 7;
  LONG capability = 7;
  const auto ask = [&](LPCWSTR volume) {
    return simulator::IsVolumeSnapshotted(host().machine(), volume, &present, &capability);
  };
  EXPECT_THAT(ask(L"E:\\"), Gives(S_OK));
  EXPECT_EQ(present, FALSE);
  Backup backup(Phase::snapshotDone);
  EXPECT_THAT(ask(L"C:\\mnt\\data\\"), Gives(S_OK)) << "another name of the volume";
  EXPECT_EQ(present, TRUE);
  EXPECT_EQ(capability, 0);
  EXPECT_THAT(ask(L"F:\\"), Gives(S_OK));
  EXPECT_EQ(present, FALSE);
  EXPECT_THAT(ask(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(ask(L"E:"), Gives(E_INVALIDARG));
  EXPECT_THAT(ask(nullptr), Gives(E_INVALIDARG));
  Expect(backup->BreakSnapshotSet(backup.setId), S_OK);
  EXPECT_THAT(ask(L"E:\\"), Gives(S_OK));
  EXPECT_EQ(present, FALSE) << "the service does not know a broken set";
  EXPECT_THAT(host().calls().Of("IsVolumeSnapshotted"), Contains("IsVolumeSnapshotted(\"F:\\\") = S_OK"));
}

TEST_F(ShadowCopyService, HasNoWriterThatBlocksARevert) {
  VssBool block = true;
  const auto ask = [&](LPCWSTR volume) { return simulator::ShouldBlockRevert(host().machine(), volume, &block); };
  EXPECT_THAT(ask(L"E:\\"), Gives(S_OK));
  EXPECT_FALSE(block);
  EXPECT_THAT(ask(L"X:\\"), Gives(VSS_E_OBJECT_NOT_FOUND));
  EXPECT_THAT(ask(nullptr), Gives(E_INVALIDARG));
}

TEST_F(ShadowCopyService, ExaminesAWritersDocumentWithoutABackup) {
  const auto examine = [&](const Bstr& xml, ComPtr<IVssExamineWriterMetadata>& metadata) {
    return simulator::CreateVssExamineWriterMetadata(host().machine(), xml.Get(), metadata.Put());
  };
  ComPtr<IVssExamineWriterMetadata> metadata;
  const Bstr document(Utf8ToWide(simulator::kSmallDocument));
  ASSERT_THAT(examine(document, metadata), Gives(S_OK));
  EXPECT_EQ(Got(*metadata, &IVssExamineWriterMetadata::GetBackupSchema), 881U);
  EXPECT_EQ(WideToUtf8(Got(*metadata, &IVssExamineWriterMetadata::SaveAsXML)), simulator::kSmallDocument);
  const Bstr rubbish(L"<WRITER_METADATA/>");
  EXPECT_THAT(examine(rubbish, metadata), Gives(VSS_E_INVALID_XML_DOCUMENT));
  EXPECT_FALSE(metadata);
  EXPECT_THAT(simulator::CreateVssExamineWriterMetadata(host().machine(), nullptr, metadata.Put()),
              Gives(E_INVALIDARG));
}

}  // namespace
}  // namespace varnel::test
