// Names that are replaced, and texts that are not.
#include <gtest/gtest.h>

#include <chrono>

#include "varnelctl/anonymise/anonymiser.h"
#include "varnelctl/anonymise/folding.h"
#include "varnelctl/console/json.h"

namespace varnelctl {
namespace {

TEST(Anonymiser, ReplacesANameWholeInPathsFilesAndLogicalPaths) {
  Anonymiser names;
  names.Add(NameKind::Host, "SQL01");
  names.Add(NameKind::Instance, "PROD");
  names.Add(NameKind::Database, "Sales");
  EXPECT_EQ(names.Replace("\\SQL01\\PROD\\Sales"), "\\HOST01\\INST01\\DB0001");
  EXPECT_EQ(names.Replace("C:\\Data\\Sales.mdf and C:\\Data\\Sales_log.ldf"),
            "C:\\Data\\DB0001.mdf and C:\\Data\\DB0001_log.ldf");
  EXPECT_EQ(names.Replace("Salesforce, Presales and Sales2"), "Salesforce, Presales and Sales2");
}

TEST(Anonymiser, TakesTheLongestOfNamesThatArePartsOfOthers) {
  Anonymiser names;
  names.Add(NameKind::Database, "Sales");
  names.Add(NameKind::Database, "Sales 2019");
  names.Add(NameKind::Database, "Sales-2019.old");
  EXPECT_EQ(names.Replace("Sales Sales 2019 Sales-2019.old Sales-2019"), "DB0001 DB0002 DB0003 DB0001-2019");
}

TEST(Anonymiser, FindsANameInWhateverCaseAndTellsSpellingsApart) {
  Anonymiser names;
  names.Add(NameKind::Host, "SQL01");
  names.Add(NameKind::Database, "Größe");
  names.Add(NameKind::Database, "ПРОДАЖИ");
  EXPECT_EQ(names.Replace("SQL01 sql01 Sql01"), "HOST01 host01 host01");
  EXPECT_EQ(names.Replace("Größe GRÖßE Größen"), "DB0001 db0001 Größen");
  EXPECT_EQ(names.Replace("продажи"), "db0002");
}

TEST(Anonymiser, GivesOneNameOneReplacementHoweverOftenItIsTold) {
  Anonymiser names;
  names.Add(NameKind::Database, "Sales");
  EXPECT_EQ(names.Replace("Sales"), "DB0001");
  names.Add(NameKind::File, "SALES");
  names.Add(NameKind::File, "  Sales: ");
  names.Add(NameKind::Database, "CRM");
  EXPECT_EQ(names.Replace("Sales CRM"), "DB0001 DB0002");
  EXPECT_EQ(names.Key().size(), 2u);
}

TEST(Anonymiser, ChoosesNoReplacementThatIsThereAlready) {
  Anonymiser names;
  names.Add(NameKind::Database, "Sales");
  names.Add(NameKind::Database, "DB0001");
  names.Add(NameKind::Folder, "db0002_old");
  names.Avoid("C:\\x\\DB0003.mdf");
  EXPECT_EQ(names.Replace("Sales DB0001 db0002_old DB0003"), "DB0004 DB0005 FOLDER0001 DB0003");
}

TEST(Anonymiser, KeepsProductsSystemFoldersExtensionsAndDrives) {
  Anonymiser names;
  names.Keep("SqlServerWriter");
  for (const char* name : {"SQL", "Windows", "master", "log", "mdf", "E", "Server"})
    names.Add(NameKind::Database, name);
  EXPECT_EQ(names.Replace("C:\\Program Files\\Microsoft SQL Server\\MSSQL\\log\\SQL.mdf"),
            "C:\\Program Files\\Microsoft SQL Server\\MSSQL\\DB0002\\DB0001.mdf");
  EXPECT_EQ(names.Replace("C:\\Windows\\System32\\master.mdf E:\\E\\E.log SqlServerWriter Server"),
            "C:\\Windows\\System32\\master.mdf E:\\DB0004\\DB0004.log SqlServerWriter DB0005");
  EXPECT_EQ(names.Replace("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"),
            "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1");
}

TEST(Anonymiser, ReplacesIdentifiersByIdentifiersWithOrWithoutBraces) {
  Anonymiser names;
  names.Add(NameKind::Identifier, L"{6F1C0A20-0000-0000-0000-00000000000A}");
  EXPECT_EQ(names.Replace("\\\\?\\Volume{6f1c0a20-0000-0000-0000-00000000000a}\\ 6F1C0A20-0000-0000-0000-00000000000A"),
            "\\\\?\\Volume{00000000-0000-4000-8000-000000000001}\\ 00000000-0000-4000-8000-000000000001");
}

TEST(Anonymiser, TakesFoldersAndFilesOfPathsButNotThoseOfWindows) {
  Anonymiser names;
  names.AddPath(L"E:\\Data\\Contoso\\2019", L"Ledger*.ndf");
  names.AddPath(L"%SystemRoot%\\Contoso", L"secret.dat");
  names.AddPath(L"C:\\Windows\\Fonts", L"x.ttf");
  names.AddPath(L"C:\\Program Files (x86)\\v15");
  names.AddPath(L"\\\\?\\Volume{6f1c0a20-0000-0000-0000-000000000001}\\Fabrikam", L"*");
  EXPECT_EQ(names.Replace("E:\\Data\\Contoso\\2019\\Ledger1.ndf Ledger*.ndf"),
            "E:\\Data\\FOLDER0001\\2019\\Ledger1.ndf FILE0001*.ndf");
  EXPECT_EQ(names.Replace("C:\\Program Files (x86)\\V15"), "C:\\Program Files (x86)\\V15");
  EXPECT_EQ(names.Replace("secret Fonts Fabrikam"), "secret Fonts FOLDER0002");
}

TEST(Anonymiser, ReplacesWideTextAsWell) {
  Anonymiser names;
  names.Add(NameKind::Serial, L" WD 17 ");
  EXPECT_EQ(names.Replace(std::wstring(L"disk ' WD 17 ', SHADOW-WD 17")), L"disk ' SERIAL0001 ', SHADOW-SERIAL0001");
}

TEST(Anonymiser, ReplacesTheValuesOfADocumentAndNoneOfItsOwnWords) {
  Anonymiser names;
  for (const char* name : {"R&D", "FILE_GROUP", "yes", "path", "OTHER"}) names.Add(NameKind::Database, name);
  EXPECT_EQ(
      names.ReplaceInXml("<FILE_GROUP componentName=\"R&amp;D\" selectable=\"yes\" caption='path&#10;\"R&#38;D\"' "
                         "dataSource = \"OTHER\"><FILE_LIST path=\"E:\\path\" filespec=\"r&amp;d.mdf\"/></FILE_GROUP>"),
      "<FILE_GROUP componentName=\"DB0001\" selectable=\"yes\" caption='DB0004&#10;\"DB0001\"' "
      "dataSource = \"OTHER\"><FILE_LIST path=\"E:\\DB0004\" filespec=\"db0001.mdf\"/></FILE_GROUP>");
}

TEST(Anonymiser, ReplacesInCommentsOfADocumentAndHidesWhatWritersLeft) {
  Anonymiser names;
  names.Add(NameKind::Database, "Sales");
  EXPECT_EQ(
      names.ReplaceInXml("<!-- Sales isn't <x> --><a backupMetadata=\"U2FsZXM=\" backupStamp=\"\" b=\"<Sales>\"/>"),
      "<!-- DB0001 isn't <x> --><a backupMetadata=\"YW5vbnltaXNlZA==\" backupStamp=\"\" b=\"&lt;DB0001>\"/>");
}

TEST(Anonymiser, TakesADocumentThatIsCutShortAsItIs) {
  Anonymiser names;
  names.Add(NameKind::Database, "Sales");
  const std::string document = "<!--Sales--><a b='Sales' c=\"Sales&amp;\">Sales</a>";
  for (std::size_t length = 0; length < document.size(); ++length) {
    EXPECT_LE(names.ReplaceInXml(document.substr(0, length)).size(), length + 8);
  }
}

TEST(Anonymiser, ReplacesTextsOfJsonBelowEveryKeyButThoseNamed) {
  Anonymiser names;
  names.Add(NameKind::Database, "sales");
  const Json value = {{"kind", "sales"}, {"sales", {"E:\\sales", 1, nullptr, {{"text", "a\nsales"}}}}};
  const Json expected = {{"kind", "sales"}, {"sales", {"E:\\DB0001", 1, nullptr, {{"text", "a\nDB0001"}}}}};
  EXPECT_EQ(names.ReplaceInJson(value, {"kind"}).dump(), expected.dump());
}

TEST(Anonymiser, TellsItsKeyInTheOrderOfTheReplacements) {
  Anonymiser names;
  names.Add(NameKind::Host, "SQL01");
  names.Add(NameKind::Serial, "TSL0001");
  EXPECT_EQ(names.Key().dump(),
            "[{\"kind\":\"host\",\"original\":\"SQL01\",\"replacement\":\"HOST01\"},"
            "{\"kind\":\"serial\",\"original\":\"TSL0001\",\"replacement\":\"SERIAL0001\"}]");
}

// Names of one first word must not be compared one by one.
TEST(Anonymiser, TakesTwentyThousandNamesInLinearTime) {
  Anonymiser names;
  std::wstring text;
  for (int i = 0; i < 20000; ++i) {
    const std::wstring file = L"Sales " + std::to_wstring(i);
    names.AddPath(L"E:\\Data\\Folder" + std::to_wstring(i % 100), file + L".mdf");
    text += L"<FILE_LIST path=\"E:\\Data\\Folder" + std::to_wstring(i % 100) + L"\" filespec=\"" + file + L".mdf\"/>\n";
  }
  const auto start = std::chrono::steady_clock::now();
  const std::wstring replaced = names.Replace(text);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(replaced.find(L"Sales"), replaced.npos);
  EXPECT_NE(replaced.find(L"FILE20000.mdf"), replaced.npos);
}

TEST(Folding, KeepsTheLengthOfEveryText) {
  EXPECT_EQ(Folded("AbZ ÄÖÜ×ŞŸ ΑΩ АЯЁ İı"), "abz äöü×şŸ αω аяё İı");
  for (int c = 0x80; c < 0x100; ++c) EXPECT_EQ(Folded(std::string(1, static_cast<char>(c))).size(), 1u);
}

}  // namespace
}  // namespace varnelctl
