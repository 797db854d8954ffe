// Writer Metadata Documents: reading, writing, and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "simulator/host_file/documents.h"
#include "tests/simulator/fixture.h"
#include "text/guid.h"

namespace varnel::simulator {
namespace {

using testing::SizeIs;
using testing::StartsWith;

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string DocumentErrorOf(const std::string& xml) {
  try {
    ParseWriterMetadata(xml);
  } catch (const DocumentError& error) {
    return error.what();
  }
  return {};
}

TEST(WriterMetadataDocument, IsReadWithEveryAttribute) {
  const Writer writer = ParseWriterMetadata(kSmallDocument);
  EXPECT_EQ(writer.name, L"SqlServerWriter");
  EXPECT_EQ(FormatGuid(writer.writerId), L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_EQ(writer.instanceName, L"SQL & more");
  EXPECT_EQ(writer.usage, VSS_UT_USERDATA);
  EXPECT_EQ(writer.source, VSS_ST_TRANSACTEDDB);
  EXPECT_EQ(writer.backupSchema, 881u);
  ASSERT_TRUE(writer.restoreMethod);
  EXPECT_EQ(writer.restoreMethod->method, VSS_RME_STOP_RESTORE_START);
  EXPECT_EQ(writer.restoreMethod->writerRestore, VSS_WRE_ALWAYS);
  EXPECT_TRUE(writer.restoreMethod->rebootRequired);
  ASSERT_THAT(writer.components, SizeIs(2));
  const WriterComponent& group = writer.components[0];
  EXPECT_EQ(group.type, VSS_CT_FILEGROUP);
  EXPECT_EQ(FullPath(group), L"\\SQL01\\sales");
  EXPECT_EQ(group.caption, L"one\r\ntwo");
  EXPECT_FALSE(group.selectable);
  EXPECT_EQ(group.componentFlags, 2u);
  ASSERT_THAT(group.files, SizeIs(1));
  EXPECT_TRUE(group.files[0].recursive);
  EXPECT_EQ(group.files[0].alternatePath, L"E:\\alt");
  const WriterComponent& database = writer.components[1];
  EXPECT_EQ(database.type, VSS_CT_DATABASE);
  EXPECT_EQ(database.name, L"m\u00fc");
  EXPECT_EQ(database.logicalPath, std::nullopt);
  EXPECT_EQ(database.caption, std::nullopt);
  EXPECT_EQ(FullPath(database), L"\\m\u00fc");
  ASSERT_THAT(database.logFiles, SizeIs(1));
  EXPECT_EQ(database.logFiles[0].backupTypeMask, 15u);
  ASSERT_THAT(writer.excludeFilesFromSnapshot, SizeIs(1));
  EXPECT_EQ(writer.excludeFilesFromSnapshot[0].path, L"\\Heat");
}

TEST(WriterMetadataDocument, IsWrittenAsItWasRead) {
  EXPECT_EQ(FormatWriterMetadata(ParseWriterMetadata(kSmallDocument)), kSmallDocument);
}

TEST(WriterMetadataDocument, TakesWhiteSpaceCommentsAndUnknownContentInItsStride) {
  const Writer writer = ParseWriterMetadata(
      "<?xml version=\"1.0\"?>\r\n<!-- a > b --><WRITER_METADATA newer=\"1\">\r\n\t<NEWER><X/></NEWER>\r\n"
      "\t<BACKUP_LOCATIONS><FILE_GROUP componentName='a>b'/></BACKUP_LOCATIONS>\r\n"
      "\t<IDENTIFICATION writerId=\"A65FAA63-5EA8-4EBC-9DBD-A0C4DB26912A\" "
      "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" friendlyName=\"x\" "
      "another=\"\"/>\r\n</WRITER_METADATA>\r\n");
  EXPECT_EQ(FormatGuid(writer.writerId), L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");
  EXPECT_EQ(writer.restoreMethod, std::nullopt);
  ASSERT_THAT(writer.components, SizeIs(1));
  EXPECT_EQ(writer.components[0].name, L"a>b");
}

TEST(WriterMetadataDocument, SaysPreciselyWhyAnotherTextIsNone) {
  const std::string id =
      "<IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" "
      "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" friendlyName=\"x\"/>";
  const auto document = [&](const std::string& content) {
    return "<WRITER_METADATA>" + content + "</WRITER_METADATA>";
  };
  EXPECT_EQ(DocumentErrorOf(""), "not XML: there is no element");
  EXPECT_EQ(DocumentErrorOf("<a>\n<b></a>"), "not XML: line 2: </a> does not close the open element");
  EXPECT_EQ(DocumentErrorOf("<a>\n"), "not XML: line 2: <a> is not closed");
  EXPECT_EQ(DocumentErrorOf("<a/><b/>"), "not XML: there is more than one root element");
  EXPECT_THAT(DocumentErrorOf("<WRITER_METADATA>\n<a b=c/></WRITER_METADATA>"), StartsWith("not XML: line 2: "));
  EXPECT_EQ(DocumentErrorOf(std::string("<a/>\0", 5)), "not XML: it contains a NUL character");
  EXPECT_EQ(DocumentErrorOf("<BACKUP_COMPONENTS/>"), "the root element is BACKUP_COMPONENTS, not WRITER_METADATA");
  EXPECT_EQ(DocumentErrorOf(document("")), "no IDENTIFICATION");
  EXPECT_EQ(DocumentErrorOf(document(id + id)), "more than one IDENTIFICATION");
  EXPECT_EQ(DocumentErrorOf(document("<IDENTIFICATION friendlyName=\"x\"/>")), "IDENTIFICATION without writerId");
  EXPECT_EQ(DocumentErrorOf(document("<IDENTIFICATION writerId=\"{1}\"/>")),
            "IDENTIFICATION: writerId \"{1}\" is no GUID");
  EXPECT_EQ(DocumentErrorOf(document(id + "<RESTORE_METHOD method=\"SOMEHOW\"/>")),
            "RESTORE_METHOD: method \"SOMEHOW\" is unknown");
  EXPECT_EQ(DocumentErrorOf(document(id + "<BACKUP_LOCATIONS><FILE_GROUP/></BACKUP_LOCATIONS>")),
            "FILE_GROUP without componentName");
  EXPECT_EQ(DocumentErrorOf(document(
                id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"a\" selectable=\"maybe\"/></BACKUP_LOCATIONS>")),
            "FILE_GROUP: selectable \"maybe\" is unknown");
  EXPECT_EQ(DocumentErrorOf(document(
                id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"a\" componentFlags=\"-1\"/></BACKUP_LOCATIONS>")),
            "FILE_GROUP: componentFlags \"-1\" is out of range");
  EXPECT_EQ(DocumentErrorOf(document(id + "<BACKUP_LOCATIONS><FILE_GROUP componentName=\"\xFF\"/></BACKUP_LOCATIONS>")),
            "not XML: it is not UTF-8");
}

TEST(WriterMetadataDocument, RefusesDeepNestingInsteadOfRunningOutOfStack) {
  std::string xml;
  for (int i = 0; i < 200000; ++i) xml += "<a>";
  EXPECT_EQ(DocumentErrorOf(xml), "not XML: line 1: elements nested deeper than 64");
}

TEST(WriterMetadataDocument, HoldsTwentyThousandFilesInOneComponent) {
  Writer writer = ParseWriterMetadata(kSmallDocument);
  writer.components[0].files.assign(20000, {L"C:\\Windows\\winsxs\\a-rather-long-folder-name-for-one-file", L"x.dll"});
  writer.components[0].files.back().filespec = L"last.dll";
  const Writer read = ParseWriterMetadata(FormatWriterMetadata(writer));
  ASSERT_THAT(read.components[0].files, SizeIs(20000));
  EXPECT_EQ(read.components[0].files.back().filespec, L"last.dll");
}

TEST(WriterMetadataDocument, CapturesOfARealServerAreReadWholly) {
  const char* folder = std::getenv("VARNEL_CAPTURES");
  const std::filesystem::path captures = folder == nullptr ? "" : folder;
  if (folder == nullptr || !std::filesystem::is_directory(captures)) {
    GTEST_SKIP() << "VARNEL_CAPTURES does not name a folder with captured documents";
  }
  std::size_t writers = 0;
  std::size_t groups = 0;
  std::size_t files = 0;
  std::size_t exclusions = 0;
  std::size_t snapshotExclusions = 0;
  for (const auto& entry : std::filesystem::directory_iterator(captures)) {
    if (!entry.path().filename().string().starts_with("WM")) continue;
    const Writer writer = ParseWriterMetadata(ReadText(entry.path()));
    const std::string written = FormatWriterMetadata(writer);
    EXPECT_EQ(FormatWriterMetadata(ParseWriterMetadata(written)), written);
    ++writers;
    groups += writer.components.size();
    for (const WriterComponent& component : writer.components) files += component.files.size();
    exclusions += writer.excludeFiles.size();
    snapshotExclusions += writer.excludeFilesFromSnapshot.size();
  }
  EXPECT_EQ(writers, 11u);
  EXPECT_EQ(groups, 24u);
  EXPECT_EQ(files, 18960u);
  EXPECT_EQ(exclusions, 8u);
  EXPECT_EQ(snapshotExclusions, 17u);
}

}  // namespace
}  // namespace varnel::simulator
