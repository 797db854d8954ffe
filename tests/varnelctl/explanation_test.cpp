// Where writers and components stand towards a set, the objects that people know, and what is required of a set.
#include "varnelctl/explanation/explanation.h"

#include <gmock/gmock.h>

#include "tests/support/host_fixture.h"
#include "tests/support/host_model.h"
#include "varnelctl/application.h"
#include "varnelctl/explanation/objects.h"
#include "varnelctl/explanation/requirement.h"

namespace varnel::test {
namespace {

using simulator::HostModel;
using simulator::WriterComponent;
using testing::ElementsAre;
using testing::IsEmpty;
using varnelctl::Application;
using varnelctl::ApplicationObject;
using varnelctl::ComponentExplanation;
using varnelctl::Explanation;
using varnelctl::Reason;

constexpr wchar_t kSqlWriter[] = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";

WriterComponent Part(WriterComponent component) {
  component.selectable = false;
  return component;
}

WriterComponent Captioned(WriterComponent component, const wchar_t* caption) {
  component.caption = caption;
  return component;
}

/// Selections of one writer's components, and what is said of them.
class Explained : public HostFixture {
 protected:
  void TearDown() override {
    planned.reset();
    HostFixture::TearDown();
  }
  // Up to the selection, whatever it throws.
  const Explanation& Select(std::vector<std::wstring> disks, const std::string& request = "writer=0,") {
    planned.reset();
    Install(model);
    planned.emplace(varnelctl::MakePlanningRequestor(application));
    std::string details = request;
    CVarnel& requestor = *planned->requestor;
    requestor.SetInputDriveSerialNos(disks);
    requestor.Initialize(0, L"", false, VSS_BT_FULL, details, &enumerator.emplace());
    requestor.GatherWriterMetadata(details);
    ended = "selected";
    try {
      varnelctl::SelectionWatcher nobody;
      planned->select(nobody, details);
    } catch (const VarnelException& alert) {
      ended = std::to_string(alert.GetAlertCode());
    } catch (long hr) {
      ended = WideToUtf8Lossy(CVarnel::HResult2String(hr));
    }
    varnelctl::VolumeLocations locations(*enumerator);
    return explanation = varnelctl::Explain(requestor.GetWriters(), application, disks, locations);
  }
  void AddWriter(std::vector<WriterComponent> components, std::wstring_view id = kSqlWriter) {
    const DWORD number = static_cast<DWORD>(model.writers.size()) + 1;
    model.writers.push_back(MakeWriterOf(id, L"Writer " + std::to_wstring(number), number, std::move(components)));
  }
  // "captured", "leftOut noFiles", with what it is because of.
  std::string Of(const std::wstring& path) {
    for (const varnelctl::WriterExplanation& writer : explanation) {
      for (const ComponentExplanation& component : writer.components) {
        if (component.component->fullPath == path) return Text(component);
      }
    }
    return "not explained";
  }
  static std::string Text(const ComponentExplanation& component) {
    std::string text = WordFor(component.place);
    if (component.reason != Reason::None) text += std::string(" ") + WordFor(component.reason);
    if (component.because != nullptr) text += ", " + WideToUtf8Lossy(component.because->fullPath);
    if (!component.missingDisks.empty()) text += ", " + varnelctl::SerialNumberList(component.missingDisks);
    for (const std::wstring& file : component.files) text += ", " + WideToUtf8Lossy(file);
    return text;
  }
  std::string Required(const std::vector<std::string>& names) {
    try {
      varnelctl::CheckRequired(names, ObjectsOf(explanation, application), application);
    } catch (const varnelctl::NotContained& error) {
      std::string text = error.what();
      for (const std::string& object : error.objects()) text += "\n" + object;
      return text;
    }
    return "";
  }

  HostModel model = SmallHost();
  Application application = Application::Sql;
  std::string ended;
  Explanation explanation;
  std::optional<TesselCommonClasses::DiskAndVolumeEnumerator> enumerator;
  std::optional<varnelctl::PlanningRequestor> planned;
};

TEST_F(Explained, AComponentWhoseFilesAreAllOnDisksOfTheSetIsCaptured) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data", L"F:\\log"})});
  Select({L"TSL0001", L"TSL0002"});

  EXPECT_EQ(Of(L"\\S\\sales"), "captured");
  EXPECT_EQ(ended, "selected");
}

TEST_F(Explained, AMissingDiskIsNamedWithTheFilesOnIt) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data", L"F:\\log"}), MakeComponent(L"S", L"crm", {L"E:\\crm"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Of(L"\\S\\sales"), "leftOut diskNotInSet, \"TSL0002\", F:\\log\\data.bin");
  EXPECT_EQ(ReasonText(explanation[0].components[0]), "not in the protection set: disk \"TSL0002\"");
}

TEST_F(Explained, WhatNoDiskWouldMendComesBeforeAMissingDisk) {
  model.disks[2].volumes[0].otherDisks = {1};
  AddWriter({MakeComponent(L"S", L"tools", {L"E:\\data", L"C:\\tools"}), MakeComponent(L"S", L"wide", {L"F:\\data"}),
             MakeComponent(L"S", L"lost", {L"E:\\data", L"Z:\\data"}), MakeComponent(L"S", L"far", {L"E:\\data"}),
             MakeComponent(L"S", L"near", {L"G:\\data"})});
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  Select({L"TSL0003"});

  EXPECT_EQ(Of(L"\\S\\tools"), "leftOut systemDisk, \"TSL0001\", E:\\data\\data.bin, C:\\tools\\data.bin");
  EXPECT_EQ(Of(L"\\S\\wide"), "leftOut severalDisks, F:\\data\\data.bin");
  EXPECT_EQ(Of(L"\\S\\lost"), "leftOut diskUnknown, \"TSL0001\", E:\\data\\data.bin, Z:\\data\\data.bin");
  EXPECT_EQ(Of(L"\\S\\far"), "leftOut diskNotInSet, \"TSL0001\", E:\\data\\data.bin");
  EXPECT_EQ(Of(L"\\S\\near"), "captured");
  EXPECT_EQ(ReasonText(explanation[0].components[0]), "disk \"SYS\" holds the system");
  EXPECT_EQ(ReasonText(explanation[0].components[1]),
            "F:\\data\\data.bin lies on several disks (2, 1), so no snapshot of one of them holds it whole");
  EXPECT_EQ(ReasonText(explanation[0].components[2]), "the disk of E:\\data\\data.bin and 1 more file is not known");
}

TEST_F(Explained, AComponentWithoutFilesSaysSo) {
  AddWriter({MakeComponent(L"S", L"empty", {}), MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Of(L"\\S\\empty"), "leftOut noFiles");
}

TEST_F(Explained, ADatabaseThatTheArrayDidNotNameSaysSoWhereverItsFilesLie) {
  model.computerName = L"S";
  model.databases = {{L"TSL0001", L"sales@S"}};
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"}), MakeComponent(L"S", L"crm", {L"E:\\crm"}),
             MakeComponent(L"S", L"far", {L"F:\\far"})});
  Select({L"TSL0001"}, "writer=2,");

  EXPECT_EQ(Of(L"\\S\\sales"), "captured");
  EXPECT_EQ(Of(L"\\S\\crm"), "leftOut notNamed");
  EXPECT_EQ(Of(L"\\S\\far"), "leftOut notNamed, \"TSL0002\", F:\\far\\data.bin");
}

TEST_F(Explained, AParentIsCapturedBecauseOfAPartAndItsPartsWithIt) {
  AddWriter({MakeComponent(L"", L"S", {}), Part(MakeComponent(L"S", L"File", {L"E:\\data"})),
             Part(MakeComponent(L"S", L"Logs", {L"E:\\log"}))});
  Select({L"TSL0001"});

  EXPECT_EQ(Of(L"\\S"), "implicit, \\S\\File");
  EXPECT_EQ(Of(L"\\S\\File"), "withParent, \\S");
  EXPECT_EQ(BecauseText(explanation[0].components[0]), "because of File (\\S\\File)");
  EXPECT_EQ(BecauseText(explanation[0].components[1]), "with S (\\S)");
}

TEST_F(Explained, AParentWithFilesOutsideTheSetIsTornAlthoughItTakesPart) {
  AddWriter({MakeComponent(L"", L"S", {L"F:\\own"}), MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(ended, "selected");
  EXPECT_EQ(Of(L"\\S"), "implicit diskNotInSet, \\S\\sales, \"TSL0002\", F:\\own\\data.bin");
}

TEST_F(Explained, AContainerThatCannotBeSelectedIsCapturedByItsParts) {
  AddWriter({Part(MakeComponent(L"", L"S", {})), MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Of(L"\\S"), "container");
}

TEST_F(Explained, APartWithoutASelectableParentSaysSo) {
  AddWriter({Part(MakeComponent(L"S", L"part", {L"E:\\data"})), MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Of(L"\\S\\part"), "leftOut notSelectable");
}

TEST_F(Explained, AMissingPartIsNamedAndTheRestEndedWithTheRequest) {
  AddWriter({MakeComponent(L"", L"S", {}), Part(MakeComponent(L"S", L"File", {L"E:\\data"})),
             Part(MakeComponent(L"S", L"Logs", {L"F:\\log"})), MakeComponent(L"T", L"other", {L"E:\\other"})});
  Select({L"TSL0001"});

  EXPECT_EQ(ended, "602");
  EXPECT_EQ(Of(L"\\S"), "leftOut childMissing, \\S\\Logs");
  EXPECT_EQ(Of(L"\\S\\Logs"), "leftOut diskNotInSet, \"TSL0002\", F:\\log\\data.bin");
  EXPECT_EQ(Of(L"\\S\\File"), "leftOut requestEnded");
  EXPECT_EQ(Of(L"\\T\\other"), "leftOut requestEnded");
  EXPECT_EQ(ReasonText(explanation[0].components[0]), "its part Logs (\\S\\Logs) is left out");
}

TEST_F(Explained, AWriterOfAnotherApplicationIsLeftOutWhole) {
  AddWriter({MakeComponent(L"", L"files", {L"E:\\x"})}, kHyperVWriterId);
  AddWriter({});
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(explanation[0].reason, Reason::OtherApplication);
  EXPECT_THAT(explanation[0].components, IsEmpty());
  EXPECT_EQ(explanation[1].reason, Reason::NoComponents);
  EXPECT_EQ(explanation[2].reason, Reason::None);
}

TEST_F(Explained, AnApplicationWithoutAWriterIsSaidToBeAbsent) {
  AddWriter({MakeComponent(L"", L"files", {L"E:\\x"})}, kHyperVWriterId);
  Select({L"TSL0001"});

  EXPECT_EQ(ended, "602");
  ASSERT_EQ(explanation.size(), 2u);
  EXPECT_EQ(explanation[1].writer, nullptr);
  EXPECT_EQ(explanation[1].reason, Reason::WriterAbsent);
}

TEST_F(Explained, TheVolumesOfAPlanAreThoseOfTheFilesAndOfTheExtraDisks) {
  model.disks.push_back(MakeDisk(L"TSL0003", 3, L"G:\\"));
  AddWriter({MakeComponent(L"S", L"sales", {L"F:\\data", L"E:\\data", L"f:\\more"})});
  Select({L"TSL0001", L"TSL0002", L"TSL0003"});

  EXPECT_EQ(ended, "701");
  std::vector<std::wstring> volumes;
  for (const SnapshotVolumeInfo& volume : planned->requestor->GetSnapshotVolumes()) {
    volumes.push_back(volume.volumeName);
    EXPECT_EQ(volume.snapshotId, L"");
  }
  EXPECT_THAT(volumes, ElementsAre(VolumeName(2), VolumeName(1), VolumeName(3)));
}

TEST_F(Explained, APlanFailsWhereTheProviderWouldRefuseAVolume) {
  model.providers.clear();
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(ended, "VSS_E_PROVIDER_NOT_REGISTERED");
}

TEST_F(Explained, NoWriterIsAskedForMoreThanItsMetadata) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});
  planned.reset();

  for (const char* call : {"StartSnapshotSet", "AddToSnapshotSet", "PrepareForBackup", "DoSnapshotSet",
                           "GatherWriterStatus", "BackupComplete", "AbortBackup"}) {
    EXPECT_THAT(host().calls().Of(std::string("IVssBackupComponents::") + call), IsEmpty()) << call;
  }
}

// ---- objects ----

TEST_F(Explained, AMailboxDatabaseIsWholeWithAllItsParts) {
  application = Application::None;
  AddWriter({Part(MakeComponent(L"", L"EX", {})), Captioned(MakeComponent(L"EX", L"db1", {}), L"Mailbox 1"),
             Part(MakeComponent(L"EX\\db1", L"File", {L"E:\\1"})), Part(MakeComponent(L"EX\\db1", L"Logs", {L"F:\\1"})),
             MakeComponent(L"EX", L"db2", {}), Part(MakeComponent(L"EX\\db2", L"File", {L"E:\\2"}))});
  Select({L"TSL0001", L"TSL0002"});
  const std::vector<ApplicationObject> objects = ObjectsOf(explanation, Application::Exchange);

  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(objects[0].name, "Mailbox 1");
  EXPECT_EQ(objects[0].parts.size(), 2u);
  EXPECT_THAT(objects[0].disks, ElementsAre(L"TSL0001", L"TSL0002"));
  EXPECT_TRUE(objects[0].IsCaptured());
  EXPECT_EQ(objects[1].name, "db2");
}

TEST_F(Explained, AnObjectSaysWhichDisksItLacksUnlessTheseWouldNotHelp) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data", L"F:\\log"}),
             MakeComponent(L"S", L"tools", {L"C:\\data", L"F:\\log"}), MakeComponent(L"S", L"crm", {L"E:\\crm"})});
  Select({L"TSL0001"});
  const std::vector<ApplicationObject> objects = ObjectsOf(explanation, application);

  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(WhyNotCaptured(objects[0], application),
            "S\\sales: not in the protection set: disk \"TSL0002\" (add it with --disk TSL0002)");
  EXPECT_EQ(WhyNotCaptured(objects[1], application),
            "S\\tools: disk \"SYS\" holds the system (move it to a disk of the array)");
  EXPECT_EQ(WhyNotCaptured(objects[2], application), "S\\crm");
}

TEST_F(Explained, AVirtualMachineIsKnownByItsNameAndTheHostIsNone) {
  application = Application::HyperV;
  AddWriter({Captioned(MakeComponent(L"", L"Host Component", {L"E:\\x"}), L"Host Component"),
             Captioned(MakeComponent(L"", L"EC7AC8AD", {L"E:\\WEB01"}), L"Online\\WEB01")},
            kHyperVWriterId);
  Select({L"TSL0001"});
  const std::vector<ApplicationObject> objects = ObjectsOf(explanation, application);

  ASSERT_EQ(objects.size(), 1u);
  EXPECT_EQ(objects[0].name, "WEB01");
  for (const char* name : {"WEB01", "web01", "Online\\WEB01", "ec7ac8ad", "\\EC7AC8AD"}) {
    EXPECT_TRUE(IsNamed(objects[0], name)) << name;
  }
  for (const char* name : {"WEB", "", "Online", "\\"}) EXPECT_FALSE(IsNamed(objects[0], name)) << name;
}

// ---- what is required ----

TEST_F(Explained, WhatIsRequiredAndSelectedPasses) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"}), MakeComponent(L"S", L"far", {L"F:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Required({}), "");
  EXPECT_EQ(Required({"sales"}), "");
  EXPECT_EQ(Required({"S\\SALES"}), "");
}

TEST_F(Explained, WhatIsRequiredAndNotSelectedIsNamedWithItsDisk) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"}), MakeComponent(L"S", L"far", {L"F:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Required({"all"}),
            "1 of 2 required databases would not be in the set\n"
            "S\\far: not in the protection set: disk \"TSL0002\" (add it with --disk TSL0002)");
  EXPECT_EQ(Required({"far"}),
            "the required database would not be in the set\n"
            "S\\far: not in the protection set: disk \"TSL0002\" (add it with --disk TSL0002)");
}

TEST_F(Explained, ANameThatNoObjectHasIsAnsweredWithTheNearest) {
  AddWriter({MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Required({"salles"}), "this host has no database \"salles\"; did you mean \"sales\"?");
  EXPECT_EQ(Required({"nothing like it"}), "this host has no database \"nothing like it\"");
}

TEST_F(Explained, ATornParentIsNoWholeObject) {
  AddWriter({MakeComponent(L"", L"S", {L"F:\\own"}), MakeComponent(L"S", L"sales", {L"E:\\data"})});
  Select({L"TSL0001"});

  EXPECT_EQ(Required({"\\S"}),
            "the required database would not be in the set\n"
            "S: not in the protection set: disk \"TSL0002\" (add it with --disk TSL0002)");
}

}  // namespace
}  // namespace varnel::test
